// Life cycle (xop/D3D11Renderer.cpp): devices, windows, destroy, recovery; debug lines of failures.
#include <gtest/gtest.h>

#include <d3d10.h>

#include "xop_testutil.h"

using namespace xoptest;
using xop::InputBank;

TEST_F(RendererTest, InitBuildsBothBanksOnAWindowAndInitDeviceOnlyNoSwapChain) {
    DebugCapture debug;
    ASSERT_TRUE(r.Init(m_window));  // again: starts afresh
    EXPECT_EQ(std::vector<std::string>{"[xop::D3D11Renderer::CreateRenderer:540] D3D11Renderer::CreateRenderer() "
                                       "width = 160 height = 120 \n \n"},
              debug.Take());
    for (const auto& out : r.m_outputTextures)
        EXPECT_TRUE(out && out->GetRenderTargetView()) << &out - r.m_outputTextures;
    EXPECT_TRUE(r.m_d2dRenderTarget);
    // An unknown format makes no textures and converts nothing.
    EXPECT_TRUE(r.InitInputTextures(W, H, 9));
    r.UpdateFrame({W, H, {0, 0, 0}, {nullptr, nullptr, nullptr}, 9});
    EXPECT_EQ(nullptr, r.m_currentOutput);

    // A device alone (afresh, as Init): no swap chain, so no overlays, input textures or size.
    ASSERT_TRUE(r.InitDeviceOnly());
    ASSERT_NE(nullptr, r.GetDevice());
    OverlayParam p = {};
    p.pointCount = 2;
    strcpy(p.text, "x");
    EXPECT_EQ(-1, r.InnerOnDrawLine(&p));
    EXPECT_EQ(-1, r.InnerOnDrawText(&p));
    EXPECT_EQ(-1, r.InnerOnDrawBlurry(&p));
    EXPECT_STREQ("x", p.text);
    Microsoft::WRL::ComPtr<ID3D10Multithread> mt;
    ASSERT_HRESULT_SUCCEEDED(r.GetDevice()->QueryInterface(IID_ID3D10Multithread, &mt));
    EXPECT_TRUE(mt->GetMultithreadProtected());
    uint32_t w = 7, h = 9;
    EXPECT_EQ(-1, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(std::make_pair(7u, 9u), std::make_pair(w, h));
    EXPECT_EQ(std::vector<std::string>{"[xop::D3D11Renderer::GetSwapChainSize:1329]  D3D11Renderer::GetSwapChainSize "
                                       "failed, nullptr == swap_chain_ \n"},
              debug.Take());
    EXPECT_TRUE(r.InitInputTextures(W, H, xop::kFrameI420));
    EXPECT_EQ(nullptr, r.Input(InputBank::kY)->GetTexture());
    r.BeginFrame();
    Present(r);
}

TEST_F(RendererTest, SetWndReportsFailuresAndMovesToAnotherWindowKeepingTheDevice) {
    ShowWindow(m_window, SW_MINIMIZE);  // a client area of 0 x 0: no resize (resizes: the render suites)
    IDXGISwapChain* before = r.m_swapChain;
    EXPECT_FALSE(r.Resize());
    EXPECT_EQ(before, r.m_swapChain);
    DebugCapture debug;
    ID3D11Device* device = r.GetDevice();
    EXPECT_FALSE(r.SetWnd(nullptr));  // no client rectangle: no swap chain
    EXPECT_EQ(std::vector<std::string>{"[xop::D3D11Renderer::SetWnd:66] CreateSwapChain() failed\n \n"}, debug.Take());
    EXPECT_EQ(nullptr, r.m_swapChain);
    EXPECT_FALSE(r.Resize());
    HWND first = std::exchange(m_window, NewWindow(120, 80));
    ASSERT_TRUE(r.SetWnd(m_window));
    DestroyWindow(first);
    EXPECT_EQ(device, r.GetDevice());
    uint32_t w = 0, h = 0;
    ASSERT_EQ(0, r.GetSwapChainSize(&w, &h));
    EXPECT_EQ(std::make_pair(120u, 80u), std::make_pair(w, h));
    // A zero-sized picture: every plane texture fails to be made, one message each.
    debug.Take();
    EXPECT_TRUE(r.InitInputTextures(0, 0, xop::kFrameI420));
    const std::vector<std::string> messages = debug.Take();
    ASSERT_EQ(3u, messages.size());
    for (const std::string& m : messages) {
        EXPECT_EQ(0u, m.find("[xop::D3D11RenderTexture::InitTexture:101] ID3D11Device::CreateTexture2D() failed, "));
    }
    r.UpdateFrame({0, 0, {0, 0, 0}, {nullptr, nullptr, nullptr}, xop::kFrameI420});
    EXPECT_EQ(nullptr, r.m_currentOutput);
}

TEST(Lifecycle, DestroyRepaintsUnlessThePictureIsKept) {
    Picture white = SolidYuv(xop::kFrameI420, W, H, {235, 128, 128});
    for (bool keep : {false, true}) {
        HWND window = NewWindow();
        TestRenderer r;
        ASSERT_TRUE(r.Init(window));
        ShowFrameData record = {};
        record.eraseOnRelease = keep ? 0 : 1;
        ShowPicture(r, white.image, &record);
        ASSERT_TRUE(ShowsColour(window, W / 2, H / 2, {255, 255, 255}, 2));
        r.Destroy();
        EXPECT_EQ(nullptr, r.GetDevice());
        EXPECT_EQ(0, r.m_frameFormat);
        if (!keep) {
            EXPECT_TRUE(ShowsColour(window, W / 2, H / 2, {0, 0, 0}, 2));
        } else if (!testkit::OnNv12Stack()) {  // under DXVK the picture goes with the swap chain
            Sleep(300);
            EXPECT_TRUE(testkit::Near(testkit::ClientPixel(window, W / 2, H / 2), 255, 255, 255, 2));
        }
        DestroyWindow(window);
    }
}

namespace {

// Forwards to a real swap chain but answers Present with a chosen result.
#define FORWARD(name, params, args) \
    HRESULT STDMETHODCALLTYPE name params override { return m_real->name args; }
class PresentResult final : public IDXGISwapChain {
public:
    PresentResult(IDXGISwapChain* real, HRESULT result) : m_result(result) { m_real.Attach(real); }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs; }
    ULONG STDMETHODCALLTYPE Release() override {
        if (--m_refs) return m_refs;
        delete this;
        return 0;
    }
    HRESULT STDMETHODCALLTYPE Present(UINT, UINT) override { return m_result; }
    FORWARD(QueryInterface, (REFIID i, void** o), (i, o))
    FORWARD(SetPrivateData, (REFGUID g, UINT n, const void* d), (g, n, d))
    FORWARD(SetPrivateDataInterface, (REFGUID g, const IUnknown* u), (g, u))
    FORWARD(GetPrivateData, (REFGUID g, UINT* n, void* d), (g, n, d))
    FORWARD(GetParent, (REFIID i, void** o), (i, o))
    FORWARD(GetDevice, (REFIID i, void** o), (i, o))
    FORWARD(GetBuffer, (UINT b, REFIID i, void** o), (b, i, o))
    FORWARD(SetFullscreenState, (BOOL f, IDXGIOutput* o), (f, o))
    FORWARD(GetFullscreenState, (BOOL* f, IDXGIOutput** o), (f, o))
    FORWARD(GetDesc, (DXGI_SWAP_CHAIN_DESC* d), (d))
    FORWARD(ResizeBuffers, (UINT c, UINT w, UINT h, DXGI_FORMAT f, UINT l), (c, w, h, f, l))
    FORWARD(ResizeTarget, (const DXGI_MODE_DESC* d), (d))
    FORWARD(GetContainingOutput, (IDXGIOutput** o), (o))
    FORWARD(GetFrameStatistics, (DXGI_FRAME_STATISTICS* s), (s))
    FORWARD(GetLastPresentCount, (UINT* c), (c))

private:
    Microsoft::WRL::ComPtr<IDXGISwapChain> m_real;  // the renderer's reference
    HRESULT m_result;
    ULONG m_refs = 1;
};
#undef FORWARD

}  // namespace

TEST_F(RendererTest, PresentRecoversOnlyFromDeviceRemoval) {
    for (HRESULT result : {DXGI_ERROR_WAS_STILL_DRAWING, E_FAIL, DXGI_ERROR_DEVICE_HUNG, DXGI_ERROR_DEVICE_REMOVED}) {
        SCOPED_TRACE(testing::Message() << std::hex << result);
        ASSERT_TRUE(r.Init(m_window));  // afresh
        Microsoft::WRL::ComPtr<ID3D11Device> device = r.GetDevice();
        r.m_swapChain = new PresentResult(r.m_swapChain, result);
        r.PresentSwapChain();
        // Only a removed device is replaced, by a new one on the same window.
        EXPECT_EQ(result == DXGI_ERROR_DEVICE_REMOVED, device.Get() != r.GetDevice());
        uint32_t w = 0, h = 0;
        EXPECT_EQ(0, r.GetSwapChainSize(&w, &h));
        EXPECT_EQ(160u, w);
    }
}
