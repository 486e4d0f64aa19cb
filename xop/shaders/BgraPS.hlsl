#include "PixelInput.hlsli"

Texture2D<float4> Texture : register(t0);

float4 main(PSInput input) : SV_TARGET
{
    return Texture.Sample(LinearSampler, input.texcoord);
}
