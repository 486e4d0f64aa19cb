// Pixel-stage input shared by every pixel shader; only texcoord is read.
struct PSInput
{
    float4 position : SV_POSITION;
    float2 texcoord : TEXCOORD;
    float4 color : COLOR;
};

SamplerState LinearSampler : register(s0);
SamplerState PointSampler : register(s1);
