#pragma once
// Compiled shaders (DXBC, vs_4_0 / ps_4_0) embedded in the library.
#include <d3d11.h>

#include <array>
#include <cstddef>

#include "xop/Banks.h"

namespace xop {

struct ShaderCode {
    const void* code;
    size_t size;
    const char* name;
};

extern const ShaderCode kQuadVertexShader;
// The quad vertex the vertex shader reads (36 bytes): position, texture
// coordinate, colour.
extern const D3D11_INPUT_ELEMENT_DESC kQuadInputLayout[3];
// Pixel shaders by output-bank index; OutputBank::kNone has none (code null).
extern const std::array<ShaderCode, kOutputBankSize> kPixelShaders;

inline const ShaderCode& PixelShader(OutputBank bank) { return kPixelShaders[Index(bank)]; }

}  // namespace xop
