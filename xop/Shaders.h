#pragma once
// Compiled shaders (DXBC, vs_4_0 / ps_4_0) embedded in the library.
#include <cstddef>

namespace xop {

struct ShaderCode {
    const void* code;
    size_t size;
    const char* name;
};

extern const ShaderCode kQuadVertexShader;
// Pixel shaders by output-bank index; index 0 has none (code null).
extern const ShaderCode kPixelShaders[7];

}  // namespace xop
