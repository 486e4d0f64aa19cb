#include "xop/Shaders.h"

#include "xop/ShaderBytes.inc"

namespace xop {

const ShaderCode kQuadVertexShader = {kQuadVS, sizeof(kQuadVS), "QuadVS"};

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
