#pragma once
// One Direct3D 11 texture with what it takes to draw into it: its views, a
// full-picture quad, vertex and pixel shader, input layout and rasterizer
// state. Creation failures leave members null; every call skips what is null.
#include <windows.h>
#include <d3d11.h>
#include <dxgi.h>

namespace xop {

// A one-mip, single-sample 2D texture; flags not given are zero.
inline D3D11_TEXTURE2D_DESC TextureDesc(UINT width, UINT height, DXGI_FORMAT format, D3D11_USAGE usage,
                                        UINT bindFlags, UINT cpuAccessFlags = 0, UINT arraySize = 1) {
    D3D11_TEXTURE2D_DESC desc = {};
    desc.Width = width;
    desc.Height = height;
    desc.MipLevels = 1;
    desc.ArraySize = arraySize;
    desc.Format = format;
    desc.SampleDesc.Count = 1;
    desc.Usage = usage;
    desc.BindFlags = bindFlags;
    desc.CPUAccessFlags = cpuAccessFlags;
    return desc;
}

class D3D11RenderTexture {
public:
    explicit D3D11RenderTexture(IDXGISwapChain* swapChain);
    virtual ~D3D11RenderTexture();

    D3D11RenderTexture(const D3D11RenderTexture&) = delete;
    D3D11RenderTexture& operator=(const D3D11RenderTexture&) = delete;

    bool InitTexture(UINT width, UINT height, DXGI_FORMAT format, D3D11_USAGE usage, UINT bindFlags,
                     UINT cpuAccessFlags, UINT miscFlags);
    bool InitVertexShader();
    bool InitPixelShader(ID3D11ClassLinkage* classLinkage, const void* bytecode, SIZE_T length);
    bool InitRasterizerState();

    // Draw bracket: viewport (left, top, right, bottom; all zero = whole
    // texture) and source rectangle in fractions of the picture.
    void Begin(const int viewport[4], const double sourceRect[4]);
    void SetShaderResource(UINT slot, ID3D11ShaderResourceView* view);
    void SetConstantBuffer(UINT slot, ID3D11Buffer* buffer);
    void SetSampler(UINT slot, ID3D11SamplerState* sampler);
    void Draw();
    void End();

    ID3D11Texture2D* GetTexture() const { return m_texture; }
    ID3D11RenderTargetView* GetRenderTargetView() const { return m_renderTargetView; }
    ID3D11ShaderResourceView* GetShaderResourceView() const { return m_shaderResourceView; }
    ID3D11ShaderResourceView* GetLumaView() const { return m_lumaView; }
    ID3D11ShaderResourceView* GetChromaView() const { return m_chromaView; }

private:
    void ReleaseTexture();  // the texture and its views

    ID3D11Device* m_device = nullptr;
    IDXGISwapChain* m_swapChain = nullptr;
    ID3D11DeviceContext* m_context = nullptr;
    ID3D11Texture2D* m_texture = nullptr;
    ID3D11RenderTargetView* m_renderTargetView = nullptr;
    ID3D11ShaderResourceView* m_shaderResourceView = nullptr;
    ID3D11VertexShader* m_vertexShader = nullptr;
    ID3D11InputLayout* m_inputLayout = nullptr;
    ID3D11Buffer* m_vertexConstants = nullptr;
    ID3D11Buffer* m_vertexBuffer = nullptr;
    ID3D11PixelShader* m_pixelShader = nullptr;
    ID3D11RasterizerState* m_rasterizerState = nullptr;
    ID3D11RenderTargetView* m_savedRenderTargetView = nullptr;
    ID3D11DepthStencilView* m_savedDepthStencilView = nullptr;
    ID3D11ShaderResourceView* m_lumaView = nullptr;
    ID3D11ShaderResourceView* m_chromaView = nullptr;
};

}  // namespace xop
