#include "xop/Shaders.h"

#include "xop/ShaderBytes.inc"

namespace xop {

const ShaderCode kQuadVertexShader = {kQuadVS, sizeof(kQuadVS), "QuadVS"};

const D3D11_INPUT_ELEMENT_DESC kQuadInputLayout[3] = {
    {"POSITION", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, D3D11_INPUT_PER_VERTEX_DATA, 0},
    {"TEXCOORD", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 12, D3D11_INPUT_PER_VERTEX_DATA, 0},
    {"COLOR", 0, DXGI_FORMAT_R32G32B32A32_FLOAT, 0, 20, D3D11_INPUT_PER_VERTEX_DATA, 0},
};

namespace {

using PixelShaderTable = std::array<ShaderCode, kOutputBankSize>;

// Each output bank with its shader, named rather than placed, so that the
// table cannot fall out of step with the bank indices.
constexpr PixelShaderTable MakePixelShaderTable() {
    PixelShaderTable table = {};
    auto set = [&table](OutputBank bank, const ShaderCode& shader) { table[Index(bank)] = shader; };
    set(OutputBank::kNone, {nullptr, 0, "none"});
    set(OutputBank::kBgra, {kBgraPS, sizeof(kBgraPS), "BgraPS"});
    set(OutputBank::kI420Bt601, {kI420Bt601PS, sizeof(kI420Bt601PS), "I420Bt601PS"});
    set(OutputBank::kI420Bt709, {kI420Bt709PS, sizeof(kI420Bt709PS), "I420Bt709PS"});
    set(OutputBank::kNv12Bt709, {kNv12Bt709PS, sizeof(kNv12Bt709PS), "Nv12Bt709PS"});
    set(OutputBank::kNv12Bt601, {kNv12Bt601PS, sizeof(kNv12Bt601PS), "Nv12Bt601PS"});
    set(OutputBank::kSharpen, {kSharpenPS, sizeof(kSharpenPS), "SharpenPS"});
    return table;
}

// Every output bank but kNone draws with a shader of its own.
constexpr bool OneShaderPerOutputBank(const PixelShaderTable& table) {
    for (int i = 0; i < kOutputBankSize; ++i) {
        const bool none = i == Index(OutputBank::kNone);
        if (!table[i].name || (table[i].code == nullptr) != none) return false;
        for (int j = 0; j < i; ++j) {
            if (table[j].code == table[i].code) return false;
        }
    }
    return true;
}

}  // namespace

constexpr PixelShaderTable kPixelShaders = MakePixelShaderTable();
static_assert(OneShaderPerOutputBank(kPixelShaders), "each output bank needs its own pixel shader");

}  // namespace xop
