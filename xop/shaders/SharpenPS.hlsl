#include "PixelInput.hlsli"

cbuffer SharpenParams : register(b0)
{
    float width;
    float height;
    float unsharp;
    float padding;
};

Texture2D<float4> Texture : register(t0);

float4 main(PSInput input) : SV_TARGET
{
    float2 t = float2(1.0f / width, 1.0f / height);
    float2 uv = input.texcoord;
    float4 centre = Texture.Sample(PointSampler, uv);
    float4 diagonal = Texture.Sample(PointSampler, uv + float2(1.2f * t.x, 1.2f * t.y))
                    + Texture.Sample(PointSampler, uv + float2(-1.2f * t.x, 1.2f * t.y))
                    + Texture.Sample(PointSampler, uv + float2(1.2f * t.x, -1.2f * t.y))
                    + Texture.Sample(PointSampler, uv + float2(-1.2f * t.x, -1.2f * t.y));
    float4 axis = Texture.Sample(PointSampler, uv + float2(1.5f * t.x, 0.0f))
                + Texture.Sample(PointSampler, uv + float2(0.0f, 1.5f * t.y))
                + Texture.Sample(PointSampler, uv + float2(-1.5f * t.x, 0.0f))
                + Texture.Sample(PointSampler, uv + float2(0.0f, -1.5f * t.y));
    float4 detail = 0.859375f * centre - 0.1171875f * axis - 0.09765625f * diagonal;
    return centre + unsharp * detail;
}
