#include "xop/Shaders.h"

#include "xop/ShaderBytes.inc"

namespace xop {

const ShaderCode kQuadVertexShader = {kQuadVS, sizeof(kQuadVS), "QuadVS"};

const D3D11_INPUT_ELEMENT_DESC kQuadInputLayout[3] = {
    {"POSITION", 0, DXGI_FORMAT_R32G32B32_FLOAT, 0, 0, D3D11_INPUT_PER_VERTEX_DATA, 0},
    {"TEXCOORD", 0, DXGI_FORMAT_R32G32_FLOAT, 0, 12, D3D11_INPUT_PER_VERTEX_DATA, 0},
    {"COLOR", 0, DXGI_FORMAT_R32G32B32A32_FLOAT, 0, 20, D3D11_INPUT_PER_VERTEX_DATA, 0},
};

const ShaderCode kPixelShaders[7] = {
    {nullptr, 0, "none"},
    {kBgraPS, sizeof(kBgraPS), "BgraPS"},
    {kI420Bt601PS, sizeof(kI420Bt601PS), "I420Bt601PS"},
    {kI420Bt709PS, sizeof(kI420Bt709PS), "I420Bt709PS"},
    {kNv12Bt709PS, sizeof(kNv12Bt709PS), "Nv12Bt709PS"},
    {kNv12Bt601PS, sizeof(kNv12Bt601PS), "Nv12Bt601PS"},
    {kSharpenPS, sizeof(kSharpenPS), "SharpenPS"},
};

}  // namespace xop
