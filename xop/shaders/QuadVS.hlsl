// Full-picture quad: pixel-space positions through view and projection.
cbuffer VertexShaderConstants : register(b0)
{
    float4x4 view;
    float4x4 projection;
};

struct VSInput
{
    float3 position : POSITION;
    float2 texcoord : TEXCOORD;
    float4 color : COLOR;
};

struct VSOutput
{
    float4 position : SV_POSITION;
    float2 texcoord : TEXCOORD;
    float4 color : COLOR;
};

VSOutput main(VSInput input)
{
    VSOutput output;
    float4 p = mul(float4(input.position, 1.0f), view);
    output.position = mul(p, projection);
    output.texcoord = input.texcoord;
    output.color = input.color;
    return output;
}
