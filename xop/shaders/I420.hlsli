// Planar YUV to RGB; the including file defines COEFFICIENTS (kRV, kGU, kGV, kBU).
#include "PixelInput.hlsli"
#include "YuvToRgb.hlsli"

Texture2D<float4> YTexture : register(t0);
Texture2D<float4> UTexture : register(t1);
Texture2D<float4> VTexture : register(t2);

float4 main(PSInput input) : SV_TARGET
{
    float y = YTexture.Sample(LinearSampler, input.texcoord).r;
    float u = UTexture.Sample(LinearSampler, input.texcoord).r;
    float v = VTexture.Sample(LinearSampler, input.texcoord).r;
    return YUV_TO_RGB(y, u, v, COEFFICIENTS);
}
