#include "xop/D3D11RenderTexture.h"

#include <cstring>

#include "xop/ComUtil.h"
#include "xop/Shaders.h"
#include "xop/XopDebug.h"

namespace xop {

namespace {

struct Vertex {
    float position[3];
    float texcoord[2];
    float color[4];
};
static_assert(sizeof(Vertex) == 36, "vertex stride");

// The full-picture quad in pixel coordinates of the swap chain's buffer.
void FillQuad(Vertex* v, float w, float h) {
    const Vertex quad[4] = {
        {{0, 0, 0}, {0, 0}, {0, 1, 0, 1}},
        {{0, h, 0}, {0, 1}, {0, 1, 0, 1}},
        {{w, 0, 0}, {1, 0}, {0, 1, 0, 1}},
        {{w, h, 0}, {1, 1}, {0, 1, 0, 1}},
    };
    memcpy(v, quad, sizeof(quad));
}

// Left-handed off-centre orthographic projection (row-vector convention),
// computed in double precision and rounded to float.
void OrthoOffCenterLH(double l, double r, double b, double t, double zn, double zf, float m[16]) {
    memset(m, 0, 16 * sizeof(float));
    m[0] = static_cast<float>(2.0 / (r - l));
    m[5] = static_cast<float>(2.0 / (t - b));
    m[10] = static_cast<float>(1.0 / (zf - zn));
    m[12] = static_cast<float>(-(l + r) / (r - l));
    m[13] = static_cast<float>(-(t + b) / (t - b));
    m[14] = static_cast<float>(-zn / (zf - zn));
    m[15] = 1.0f;
}

void Transpose(const float in[16], float out[16]) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) out[c * 4 + r] = in[r * 4 + c];
}

}  // namespace

D3D11RenderTexture::D3D11RenderTexture(IDXGISwapChain* swapChain) : m_swapChain(swapChain) {
    if (!m_swapChain) return;
    m_swapChain->AddRef();
    if (SUCCEEDED(m_swapChain->GetDevice(IID_ID3D11Device, reinterpret_cast<void**>(&m_device))) && m_device) {
        m_device->GetImmediateContext(&m_context);
    }
}

D3D11RenderTexture::~D3D11RenderTexture() {
    SafeRelease(m_rasterizerState);
    SafeRelease(m_inputLayout);
    SafeRelease(m_vertexConstants);
    SafeRelease(m_vertexShader);
    SafeRelease(m_vertexBuffer);
    SafeRelease(m_pixelShader);
    SafeRelease(m_texture);
    SafeRelease(m_renderTargetView);
    SafeRelease(m_shaderResourceView);
    SafeRelease(m_chromaView);
    SafeRelease(m_lumaView);
    SafeRelease(m_savedRenderTargetView);
    SafeRelease(m_savedDepthStencilView);
    SafeRelease(m_device);
    SafeRelease(m_context);
    SafeRelease(m_swapChain);
}

bool D3D11RenderTexture::InitTexture(UINT width, UINT height, DXGI_FORMAT format, D3D11_USAGE usage,
                                     UINT bindFlags, UINT cpuAccessFlags, UINT miscFlags) {
    static const char* const kFunc = "xop::D3D11RenderTexture::InitTexture";
    if (!m_device) return false;
    ReleaseTexture();

    D3D11_TEXTURE2D_DESC desc = TextureDesc(width, height, format, usage, bindFlags, cpuAccessFlags);
    desc.MiscFlags = miscFlags;
    HRESULT hr = m_device->CreateTexture2D(&desc, nullptr, &m_texture);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateTexture2D() failed, %x \n", kFunc, 101, (unsigned)hr);
        return false;
    }

    // Every view is attempted; any failure then drops the texture and its views.
    bool ok = true;
    if (bindFlags & D3D11_BIND_RENDER_TARGET) {
        D3D11_RENDER_TARGET_VIEW_DESC rtv = {};
        rtv.Format = format;
        rtv.ViewDimension = D3D11_RTV_DIMENSION_TEXTURE2D;
        hr = m_device->CreateRenderTargetView(m_texture, &rtv, &m_renderTargetView);
        if (FAILED(hr)) {
            DebugPrint("[%s:%d] ID3D11Device::CreateRenderTargetView() failed, %x \n \n", kFunc, 118, (unsigned)hr);
            ok = false;
        }
    }
    D3D11_SHADER_RESOURCE_VIEW_DESC srv = {};
    srv.ViewDimension = D3D11_SRV_DIMENSION_TEXTURE2D;
    srv.Texture2D.MostDetailedMip = 0;
    srv.Texture2D.MipLevels = 1;
    if (format != DXGI_FORMAT_NV12) {
        srv.Format = format;
        hr = m_device->CreateShaderResourceView(m_texture, &srv, &m_shaderResourceView);
        if (FAILED(hr)) {
            DebugPrint("[%s:%d] ID3D11Device::CreateRenderTargetView() failed, %x \n \n", kFunc, 152, (unsigned)hr);
            ok = false;
        }
    } else {
        srv.Format = DXGI_FORMAT_R8_UNORM;
        hr = m_device->CreateShaderResourceView(m_texture, &srv, &m_lumaView);
        if (FAILED(hr)) {
            DebugPrint("[%s:%d] ID3D11Device::CreateRenderTargetView(R8) failed, %x \n \n", kFunc, 132, (unsigned)hr);
            ok = false;
        }
        srv.Format = DXGI_FORMAT_R8G8_UNORM;
        hr = m_device->CreateShaderResourceView(m_texture, &srv, &m_chromaView);
        if (FAILED(hr)) {
            DebugPrint("[%s:%d] ID3D11Device::CreateRenderTargetView(R8G8) failed, %x \n \n", kFunc, 139,
                       (unsigned)hr);
            ok = false;
        }
    }
    if (!ok) ReleaseTexture();
    return ok;
}

void D3D11RenderTexture::ReleaseTexture() {
    SafeRelease(m_texture);
    SafeRelease(m_renderTargetView);
    SafeRelease(m_chromaView);
    SafeRelease(m_lumaView);
    SafeRelease(m_shaderResourceView);
}

bool D3D11RenderTexture::InitVertexShader() {
    static const char* const kFunc = "xop::D3D11RenderTexture::InitVertexShader";
    if (!m_device) return false;
    SafeRelease(m_vertexBuffer);
    SafeRelease(m_inputLayout);
    SafeRelease(m_vertexConstants);
    SafeRelease(m_vertexShader);

    DXGI_SWAP_CHAIN_DESC chain = {};
    if (!m_swapChain || FAILED(m_swapChain->GetDesc(&chain))) return false;
    const float w = static_cast<float>(chain.BufferDesc.Width);
    const float h = static_cast<float>(chain.BufferDesc.Height);

    m_device->CreateVertexShader(kQuadVertexShader.code, kQuadVertexShader.size, nullptr, &m_vertexShader);

    HRESULT hr = m_device->CreateInputLayout(kQuadInputLayout, 3, kQuadVertexShader.code, kQuadVertexShader.size,
                                             &m_inputLayout);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateInputLayout() failed, %x. \n", kFunc, 245, (unsigned)hr);
        return false;
    }

    Vertex quad[4];
    FillQuad(quad, w, h);
    D3D11_BUFFER_DESC vb = {};
    vb.ByteWidth = sizeof(quad);
    vb.Usage = D3D11_USAGE_DYNAMIC;
    vb.BindFlags = D3D11_BIND_VERTEX_BUFFER;
    vb.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
    D3D11_SUBRESOURCE_DATA init = {quad, 0, 0};
    hr = m_device->CreateBuffer(&vb, &init, &m_vertexBuffer);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateBuffer(VERTEX_BUFFER) failed, %x \n \n", kFunc, 274, (unsigned)hr);
        return false;
    }

    D3D11_BUFFER_DESC cb = {};
    cb.ByteWidth = 128;
    cb.Usage = D3D11_USAGE_DEFAULT;
    cb.BindFlags = D3D11_BIND_CONSTANT_BUFFER;
    hr = m_device->CreateBuffer(&cb, nullptr, &m_vertexConstants);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateBuffer() failed, %x \n \n", kFunc, 287, (unsigned)hr);
        return false;
    }
    return true;
}

bool D3D11RenderTexture::InitPixelShader(ID3D11ClassLinkage* /*classLinkage*/, const void* bytecode, SIZE_T length) {
    if (!m_device) return false;
    HRESULT hr = m_device->CreatePixelShader(bytecode, length, nullptr, &m_pixelShader);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreatePixelShader() failed, %x  \n \n",
                   "xop::D3D11RenderTexture::InitPixelShader", 320, (unsigned)hr);
        return false;
    }
    return true;
}

bool D3D11RenderTexture::InitRasterizerState() {
    if (!m_device) return false;
    SafeRelease(m_rasterizerState);
    D3D11_RASTERIZER_DESC desc = {};
    desc.FillMode = D3D11_FILL_SOLID;
    desc.CullMode = D3D11_CULL_NONE;
    desc.FrontCounterClockwise = FALSE;
    desc.DepthClipEnable = TRUE;
    HRESULT hr = m_device->CreateRasterizerState(&desc, &m_rasterizerState);
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11Device::CreateRasterizerState(CULL_NONE) failed, %x \n \n",
                   "xop::D3D11RenderTexture::InitRasterizerState", 345, (unsigned)hr);
        return false;
    }
    return true;
}

void D3D11RenderTexture::Begin(const int viewport[4], const double sourceRect[4]) {
    if (!m_context || !m_swapChain) return;
    D3D11_TEXTURE2D_DESC tex = {};
    if (m_texture) m_texture->GetDesc(&tex);
    DXGI_SWAP_CHAIN_DESC chain = {};
    m_swapChain->GetDesc(&chain);
    const float w = static_cast<float>(chain.BufferDesc.Width);
    const float h = static_cast<float>(chain.BufferDesc.Height);

    D3D11_VIEWPORT vp = {};
    if (viewport[0] == 0 && viewport[1] == 0 && viewport[2] == 0 && viewport[3] == 0) {
        vp.Width = static_cast<float>(tex.Width);
        vp.Height = static_cast<float>(tex.Height);
    } else {
        vp.TopLeftX = static_cast<float>(viewport[0]);
        vp.TopLeftY = static_cast<float>(viewport[1]);
        vp.Width = static_cast<float>(viewport[2] - viewport[0]);
        vp.Height = static_cast<float>(viewport[3] - viewport[1]);
    }
    vp.MinDepth = 0.0f;
    vp.MaxDepth = 1.0f;
    m_context->RSSetViewports(1, &vp);

    // Unlike a plane upload (xop/ScopedMap.h), a failed Map here ends the
    // set-up at once, without an Unmap.
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    HRESULT hr = m_vertexBuffer ? m_context->Map(m_vertexBuffer, 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped) : E_POINTER;
    if (FAILED(hr)) {
        DebugPrint("[%s:%d] ID3D11DeviceContext::Map() failed, %x \n \n", "xop::D3D11RenderTexture::Begin", 432,
                   (unsigned)hr);
        return;
    }
    FillQuad(static_cast<Vertex*>(mapped.pData), w, h);
    m_context->Unmap(m_vertexBuffer, 0);

    float constants[32];
    float identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    float projection[16];
    OrthoOffCenterLH(sourceRect[0] * w, sourceRect[2] * w, sourceRect[3] * h, sourceRect[1] * h, 0.0, 1.0,
                     projection);
    Transpose(identity, constants);
    Transpose(projection, constants + 16);
    if (m_vertexConstants) m_context->UpdateSubresource(m_vertexConstants, 0, nullptr, constants, 0, 0);

    SafeRelease(m_savedRenderTargetView);
    SafeRelease(m_savedDepthStencilView);
    m_context->OMGetRenderTargets(1, &m_savedRenderTargetView, &m_savedDepthStencilView);
    m_context->OMSetRenderTargets(0, nullptr, nullptr);
    m_context->OMSetRenderTargets(1, &m_renderTargetView, nullptr);
    if (m_renderTargetView) {
        const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
        m_context->ClearRenderTargetView(m_renderTargetView, black);
    }

    if (m_rasterizerState) m_context->RSSetState(m_rasterizerState);
    if (m_inputLayout) m_context->IASetInputLayout(m_inputLayout);
    if (m_vertexShader) m_context->VSSetShader(m_vertexShader, nullptr, 0);
    if (m_vertexBuffer) {
        UINT stride = sizeof(Vertex), offset = 0;
        m_context->IASetVertexBuffers(0, 1, &m_vertexBuffer, &stride, &offset);
    }
    if (m_vertexConstants) m_context->VSSetConstantBuffers(0, 1, &m_vertexConstants);
    if (m_pixelShader) m_context->PSSetShader(m_pixelShader, nullptr, 0);
}

void D3D11RenderTexture::SetShaderResource(UINT slot, ID3D11ShaderResourceView* view) {
    if (m_context) m_context->PSSetShaderResources(slot, 1, &view);
}

void D3D11RenderTexture::SetConstantBuffer(UINT slot, ID3D11Buffer* buffer) {
    if (m_context) m_context->PSSetConstantBuffers(slot, 1, &buffer);
}

void D3D11RenderTexture::SetSampler(UINT slot, ID3D11SamplerState* sampler) {
    if (m_context) m_context->PSSetSamplers(slot, 1, &sampler);
}

void D3D11RenderTexture::Draw() {
    if (!m_context) return;
    m_context->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLESTRIP);
    m_context->Draw(4, 0);
}

void D3D11RenderTexture::End() {
    if (!m_texture || !m_context) return;
    m_context->OMSetRenderTargets(1, &m_savedRenderTargetView, m_savedDepthStencilView);
    SafeRelease(m_savedRenderTargetView);
    SafeRelease(m_savedDepthStencilView);
}

}  // namespace xop
