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
    return YUV_TO_RGB(y, u, v, 1.7927f, -0.2132f, -0.5329f, 2.1124f);
}
