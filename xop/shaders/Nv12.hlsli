// NV12 (luma plane, interleaved chroma plane) to RGB; the including file
// defines COEFFICIENTS (kRV, kGU, kGV, kBU).
#include "PixelInput.hlsli"
#include "YuvToRgb.hlsli"

Texture2D<float4> YTexture : register(t0);
Texture2D<float4> UVTexture : register(t1);

float4 main(PSInput input) : SV_TARGET
{
    float y = YTexture.Sample(LinearSampler, input.texcoord).r;
    float2 uv = UVTexture.Sample(LinearSampler, input.texcoord).rg;
    return YUV_TO_RGB(y, uv.x, uv.y, COEFFICIENTS);
}
