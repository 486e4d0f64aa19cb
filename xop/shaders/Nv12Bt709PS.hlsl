#include "PixelInput.hlsli"
#include "YuvToRgb.hlsli"

Texture2D<float4> YTexture : register(t0);
Texture2D<float4> UVTexture : register(t1);

float4 main(PSInput input) : SV_TARGET
{
    float y = YTexture.Sample(LinearSampler, input.texcoord).r;
    float2 uv = UVTexture.Sample(LinearSampler, input.texcoord).rg;
    return YUV_TO_RGB(y, uv.x, uv.y, 1.7927f, -0.2132f, -0.5329f, 2.1124f);
}
