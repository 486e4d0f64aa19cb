// Drawing passes and presentation: the conversion and sharpen passes into the
// output bank, the copy to the back buffer with the overlay pass, Present.
#include "xop/D3D11Renderer.h"

namespace xop {

using Microsoft::WRL::ComPtr;

void D3D11Renderer::BeginFrame() {
    if (!m_renderTargetView) return;
    m_context->OMSetRenderTargets(1, &m_renderTargetView, nullptr);
    const float black[4] = {0.0f, 0.0f, 0.0f, 1.0f};
    m_context->ClearRenderTargetView(m_renderTargetView, black);
}

// The pixel shaders sample with the linear sampler at slot 0 and the point
// sampler at slot 1 (the sharpen filter uses the point one).
void D3D11Renderer::DrawPass(D3D11RenderTexture* out, const int viewport[4], ID3D11ShaderResourceView* const* views,
                             int count, ID3D11Buffer* const* constants) {
    static const double kFull[4] = {0.0, 0.0, 1.0, 1.0};
    out->Begin(viewport, kFull);
    for (int s = 0; s < count; ++s) out->SetShaderResource(s, views[s]);
    if (constants) out->SetConstantBuffer(0, *constants);
    out->SetSampler(0, m_linearSampler);
    out->SetSampler(1, m_pointSampler);
    out->Draw();
    out->End();
    for (int s = 0; s < count; ++s) out->SetShaderResource(s, nullptr);
    m_currentOutput = out;
}

void D3D11Renderer::ApplySharpen() {
    static const int kWhole[4] = {0, 0, 0, 0};
    if (!m_currentOutput || !(m_unsharp > 0.0f)) return;
    D3D11RenderTexture* out = Output(OutputBank::kSharpen);
    if (!out || !m_context) return;
    const float params[4] = {static_cast<float>(m_frameWidth), static_cast<float>(m_frameHeight), m_unsharp, 0.0f};
    if (m_sharpenParams) m_context->UpdateSubresource(m_sharpenParams, 0, nullptr, params, 0, 0);
    ID3D11ShaderResourceView* const picture = m_currentOutput->GetShaderResourceView();
    DrawPass(out, kWhole, &picture, 1, &m_sharpenParams);
}

void D3D11Renderer::PresentOutput(const ShowFrameData* frame) {
    if (m_currentOutput) {
        ComPtr<ID3D11Texture2D> backBuffer;
        if (m_swapChain &&
            SUCCEEDED(m_swapChain->GetBuffer(0, IID_ID3D11Texture2D,
                                             reinterpret_cast<void**>(backBuffer.GetAddressOf()))) &&
            backBuffer) {
            if (m_currentOutput->GetTexture()) m_context->CopyResource(backBuffer.Get(), m_currentOutput->GetTexture());
        }
        m_currentOutput = nullptr;
    }
    if (m_d2dRenderTarget) {
        m_d2dRenderTarget->BeginDraw();
        if (m_drawCallback && frame) m_drawCallback(const_cast<ShowFrameData*>(frame), m_drawCallbackUser);
        m_d2dRenderTarget->EndDraw();
    }
    if (frame) m_keepWindowOnDestroy = frame->eraseOnRelease == 0;
}

void D3D11Renderer::PresentSwapChain() {
    if (!m_swapChain) return;
    HRESULT hr = m_swapChain->Present(0, 0);
    if (IsDeviceLost(hr)) {  // still drawing and other failures are ignored
        Destroy();
        Init(m_hWnd);
    }
}

void D3D11Renderer::Render(const FrameImage& frame) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!m_device) return;
    if (!EnsureInputTextures(frame.width, frame.height, frame.format)) return;
    BeginFrame();
    UpdateFrame(frame);
    ApplySharpen();
    PresentSwapChain();
}

}  // namespace xop
