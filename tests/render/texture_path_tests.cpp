// The decoder-texture path through the exports: a texture array shaped like
// the decoder's pool is filled with known NV12 pictures and shown; colours,
// padding rows, zoom crop, destination rectangle, overlays, window changes
// and read-back are checked against arithmetic done here. Sources the
// renderer must not copy from are refused with one record each.
#include <gtest/gtest.h>

#include <d3d11.h>
#include <wrl/client.h>

#include <cstring>

#include "tests/render/render_fixture.h"
#include "testkit/nv12.h"
#include "xop/D3D11RenderTexture.h"

using Microsoft::WRL::ComPtr;
using testkit::DecoderPool;
using testkit::Nv12Picture;
using testkit::Rgb;
using testkit::Yuv;

namespace {

const Yuv kRed = testkit::Bt709FromRgb({200, 40, 30});
const Yuv kGreen = testkit::Bt709FromRgb({30, 190, 60});
const Yuv kBlue = testkit::Bt709FromRgb({20, 50, 210});
const Yuv kWhite = testkit::Bt709FromRgb({230, 230, 230});
const Yuv kMagenta = {105, 212, 234};  // loud: marks rows that must never show
const Rgb kBlack = {0, 0, 0};

ID3D11Device* DeviceOf(const RenderInitParam& init) { return static_cast<ID3D11Device*>(init.device); }

ShowFrameData Slice(const DecoderPool& pool, UINT slice, int w, int h)
{
    ShowFrameData f;
    memset(&f, 0, sizeof(f));
    f.texture = pool.Texture();
    f.arraySlice = slice;
    f.width = w;
    f.height = h;
    return f;
}

// Shows `f` again and again (a swap chain made anew may drop its first
// pictures) until the client pixel (x, y) is `want` within `tolerance`.
bool ShowsAt(QuillonRenderHandle h, ShowFrameData f, HWND wnd, int x, int y, Rgb want, int tolerance = 3)
{
    COLORREF c = 0;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), 0);
        c = testkit::WaitForClientPixel(
            wnd, x, y, [&](COLORREF p) { return testkit::Near(p, want.r, want.g, want.b, tolerance); }, 150);
        if (testkit::Near(c, want.r, want.g, want.b, tolerance)) return true;
    }
    ADD_FAILURE() << "pixel (" << x << "," << y << ") = rgb " << int(GetRValue(c)) << "," << int(GetGValue(c)) << ","
                  << int(GetBValue(c)) << ", want " << want.r << "," << want.g << "," << want.b;
    return false;
}

bool Shows(HWND wnd, int x, int y, Rgb want, int tolerance = 3)
{
    const COLORREF c = testkit::ClientPixel(wnd, x, y);
    const bool ok = testkit::Near(c, want.r, want.g, want.b, tolerance);
    EXPECT_TRUE(ok) << "pixel (" << x << "," << y << ") = rgb " << int(GetRValue(c)) << "," << int(GetGValue(c))
                    << "," << int(GetBValue(c)) << ", want " << want.r << "," << want.g << "," << want.b;
    return ok;
}

Rgb Rgb709(Yuv c) { return testkit::Bt709ToRgb(c); }

}  // namespace

TEST_F(Render, SliceQuadrantsShowInBt709AndPaddingRowsNever)
{
    HWND wnd = NewWindow(20, 20, 480, 270);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    DecoderPool pool(DeviceOf(init), 1920, 1080);
    ASSERT_TRUE(pool.Ok());
    ASSERT_EQ(pool.Height(), 1088);
    Nv12Picture picture(1920, 1088, kMagenta);  // rows 1080..1087 stay magenta
    picture.Quadrants(1080, kRed, kGreen, kBlue, kWhite);
    ASSERT_TRUE(pool.Write(3, picture));
    ASSERT_TRUE(pool.Write(0, Nv12Picture(1920, 1088, kMagenta)));

    ShowFrameData f = Slice(pool, 3, 1920, 1080);
    QUILLON_REQUIRE_NV12_SAMPLING(DeviceOf(init));
    // A decoder reporting its padded height (1088, or 1085..1088 rounded up)
    // shows 1080 rows as well.
    for (int height : {1080, 1088, 1086}) {
        f.height = height;
        ShowsAt(h, f, wnd, 120, 67, Rgb709(kRed));
        Shows(wnd, 360, 67, Rgb709(kGreen));
        Shows(wnd, 120, 202, Rgb709(kBlue));
        Shows(wnd, 360, 202, Rgb709(kWhite));
        // 4:1 down: the last row samples source rows 1077-1078, where a
        // 1088-row crop would reach the magenta padding.
        ShowsAt(h, f, wnd, 120, 269, Rgb709(kBlue));
        ShowsAt(h, f, wnd, 360, 269, Rgb709(kWhite));
    }
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST_F(Render, ZoomCropAndDestinationRectangleLandWhereTheArithmeticSays)
{
    HWND wnd = NewWindow(20, 320, 640, 360);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    DecoderPool pool(DeviceOf(init), 1280, 720);
    ASSERT_EQ(pool.Height(), 736);
    // Edges at source column 400 and row 300 between four greys: chroma is
    // the same everywhere, so the luma edges land on exact pixels.
    const Yuv tl = {40, 128, 128}, tr = {90, 128, 128}, bl = {150, 128, 128}, br = {210, 128, 128};
    Nv12Picture picture(1280, 736, kMagenta);
    picture.Fill(0, 0, 400, 300, tl);
    picture.Fill(400, 0, 880, 300, tr);
    picture.Fill(0, 300, 400, 420, bl);
    picture.Fill(400, 300, 880, 420, br);
    ASSERT_TRUE(pool.Write(1, picture));
    ShowFrameData f = Slice(pool, 1, 1280, 720);
    QUILLON_REQUIRE_NV12_SAMPLING(DeviceOf(init));

    // Zoom 0.25..0.75: the box (320,180)-(960,540), 640 x 360, drawn 1:1,
    // so the edges land on client column 80 and row 120 exactly.
    EZoomArea zoom = {0.25, 0.25, 0.75, 0.75};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom)), 0);
    ShowsAt(h, f, wnd, 79, 119, Rgb709(tl));
    Shows(wnd, 80, 119, Rgb709(tr));
    Shows(wnd, 79, 120, Rgb709(bl));
    Shows(wnd, 80, 120, Rgb709(br));
    Shows(wnd, 639, 359, Rgb709(br));

    // Into (100,50)-(420,230) at half size: edges at column 140, row 110;
    // black around it.
    DstRect dst = {100, 50, 420, 230};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DST_RECT, &dst, sizeof(dst)), 0);
    ShowsAt(h, f, wnd, 139, 109, Rgb709(tl));
    Shows(wnd, 140, 109, Rgb709(tr));
    Shows(wnd, 139, 110, Rgb709(bl));
    Shows(wnd, 140, 110, Rgb709(br));
    Shows(wnd, 99, 100, kBlack);
    Shows(wnd, 420, 100, kBlack);
    Shows(wnd, 200, 49, kBlack);
    Shows(wnd, 200, 230, kBlack);

    // A zoom reaching beyond the picture is cut to the texture: the whole
    // 1280 x 736 array, padding included, fills the rectangle.
    EZoomArea wide = {-1.0, -1.0, 2.0, 2.0};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_EZOOM_AREA, &wide, sizeof(wide)), 0);
    ShowsAt(h, f, wnd, 418, 228, Rgb709(kMagenta));
    Shows(wnd, 102, 52, Rgb709(tl));
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
}

TEST_F(Render, OverlaysFromTheCallbackDrawOverADecoderPicture)
{
    HWND wnd = NewWindow(680, 20, 160, 120);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    OverlayTarget target = {h};
    DrawCallBackParam cb = {DrawOverlays, &target};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DRAW_CALLBACK, &cb, sizeof(cb)), 0);
    DecoderPool pool(DeviceOf(init), 160, 120);
    ASSERT_TRUE(pool.Write(5, Nv12Picture(160, 128, kBlue)));
    QUILLON_REQUIRE_NV12_SAMPLING(DeviceOf(init));
    ShowsAt(h, Slice(pool, 5, 160, 120), wnd, 80, 20, {0, 255, 0}, 40);
    Shows(wnd, 50, 80, {255, 0, 0}, 40);
    Shows(wnd, 5, 115, Rgb709(kBlue));
}

TEST_F(Render, DecoderPicturesFollowAResizedWindowAndANewWindow)
{
    HWND wnd = NewWindow(680, 200, 320, 180);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    DecoderPool pool(DeviceOf(init), 320, 180);
    ASSERT_TRUE(pool.Write(2, Nv12Picture(320, 192, kGreen)));
    ShowFrameData f = Slice(pool, 2, 320, 180);
    QUILLON_REQUIRE_NV12_SAMPLING(DeviceOf(init));
    // A fixed 160 x 90 destination: a swap chain not rebuilt at the new
    // size would stretch it.
    DstRect dst = {0, 0, 160, 90};
    ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_SET_DST_RECT, &dst, sizeof(dst)), 0);
    ShowsAt(h, f, wnd, 150, 80, Rgb709(kGreen));
    Shows(wnd, 170, 80, kBlack);

    RECT r = {0, 0, 480, 270};
    AdjustWindowRect(&r, WS_POPUP, FALSE);
    SetWindowPos(wnd, nullptr, 0, 0, r.right - r.left, r.bottom - r.top, SWP_NOMOVE | SWP_NOZORDER);
    Settle();
    ShowsAt(h, f, wnd, 150, 80, Rgb709(kGreen));
    ShowsAt(h, f, wnd, 200, 80, kBlack);
    Shows(wnd, 470, 260, kBlack);

    HWND other = NewWindow(680, 500, 240, 135);  // a window of its own
    ASSERT_EQ(g_sdk.QuillonRenderSetWnd(h, other), 0);
    ShowsAt(h, f, other, 150, 80, Rgb709(kGreen));
    ShowsAt(h, f, other, 170, 80, kBlack);
}

// Byte-exact read-back of the visible picture from arrays padded to 32
// rows, through a staging texture padded to 16 only.
TEST_F(Render, ReadBackBytesEqualTheSliceAt720pAnd2160p)
{
    struct Size {
        int w, h;
    };
    for (Size s : {Size{1280, 720}, Size{3840, 2160}}) {
        RenderInitParam init;
        QuillonRenderHandle h = OnWindow(nullptr, &init);
        DecoderPool pool(DeviceOf(init), s.w, s.h);
        ASSERT_TRUE(pool.Ok());
        Nv12Picture picture(pool.Width(), pool.Height(), kMagenta);
        for (size_t i = 0; i < picture.y.size(); ++i) picture.y[i] = static_cast<uint8_t>(i * 7 + i / 4099);
        for (size_t i = 0; i < picture.uv.size(); ++i) picture.uv[i] = static_cast<uint8_t>(i * 13 + i / 3001);
        ASSERT_TRUE(pool.Write(9, picture));
        NV12ReadBack rb;
        memset(&rb, 0, sizeof(rb));
        rb.texture = pool.Texture();
        rb.arraySlice = 9;
        rb.width = s.w;
        rb.height = s.h;
        ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, sizeof(rb)), 0);
        ASSERT_NE(rb.data, nullptr);
        ASSERT_GE(rb.rowPitch, static_cast<uint32_t>(s.w));
        EXPECT_EQ(TakeVelmorCalls(), Calls{});
        if (!testkit::OnNv12Stack()) continue;  // wined3d copies NV12 array slices back as zeros
        const auto* bytes = static_cast<const uint8_t*>(rb.data);
        int wrong = 0;
        for (int row = 0; row < s.h; ++row) {
            wrong += memcmp(bytes + size_t(row) * rb.rowPitch, &picture.y[size_t(row) * s.w], s.w) != 0;
        }
        const uint8_t* chroma = bytes + size_t(rb.rowPitch) * s.h;  // the staging height is s.h (16-aligned)
        for (int row = 0; row < s.h / 2; ++row) {
            wrong += memcmp(chroma + size_t(row) * rb.rowPitch, &picture.uv[size_t(row) * s.w], s.w) != 0;
        }
        EXPECT_EQ(wrong, 0) << s.w << "x" << s.h << ": rows that differ";
    }
}

// Sources the renderer must not copy from: refused with -1 from ShowFrame
// (read-back: the host's outputs left as sent) and one record, on any stack.
TEST_F(Render, ForeignMissingAndNonNv12SourcesAndEmptyCropsAreRefused)
{
    HWND wnd = NewWindow(20, 720, 64, 64);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    ComPtr<ID3D11Device> foreign;
    ASSERT_HRESULT_SUCCEEDED(D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, 0, nullptr, 0,
                                               D3D11_SDK_VERSION, &foreign, nullptr, nullptr));
    DecoderPool theirs(foreign.Get(), 64, 64);
    DecoderPool ours(DeviceOf(init), 64, 64);
    ComPtr<ID3D11Texture2D> bgra;
    const D3D11_TEXTURE2D_DESC d = xop::TextureDesc(64, 64, DXGI_FORMAT_B8G8R8A8_UNORM, D3D11_USAGE_DEFAULT, 0);
    ASSERT_HRESULT_SUCCEEDED(DeviceOf(init)->CreateTexture2D(&d, nullptr, &bgra));
    ASSERT_TRUE(theirs.Ok() && ours.Ok());

    const std::string file = "render/CLS_D3D11vaRenderer.cpp";
    const std::string show = "CLS_D3D11vaRenderer::ShowDecodedFrame", read = "CLS_D3D11vaRenderer::Texture2DToNV12";
    struct Case {
        ID3D11Texture2D* texture;
        UINT slice;
        const char* message;
    };
    for (Case c : {Case{theirs.Texture(), 0, "texture of another device"},
                   Case{ours.Texture(), 10, "arraySlice out of range"},
                   Case{bgra.Get(), 0, "texture is not NV12"}}) {
        ShowFrameData f = Slice(ours, c.slice, 64, 64);
        f.texture = c.texture;
        EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), -1) << c.message;
        EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, show, 75, c.message));
        NV12ReadBack rb = {c.texture, c.slice, 64, 64, {}, reinterpret_cast<void*>(0x5678), 9, {}};
        EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, sizeof(rb)), 0);
        EXPECT_EQ(rb.data, reinterpret_cast<void*>(0x5678));
        EXPECT_EQ(rb.rowPitch, 9u);
        EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, read, 146, c.message));
    }

    // Empty, inverted or wholly outside the picture: nothing left to show.
    for (EZoomArea zoom : {EZoomArea{0.5, 0.5, 0.5, 0.9}, EZoomArea{0.8, 0.1, 0.2, 0.9},
                           EZoomArea{1.5, 0.0, 2.0, 1.0}, EZoomArea{0.5, 0.5, 0.0, 0.0}}) {
        ASSERT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_EZOOM_AREA, &zoom, sizeof(zoom)), 0);
        ShowFrameData f = Slice(ours, 1, 64, 64);
        EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), -1);
        EXPECT_EQ(TakeVelmorCalls(), ErrorRecord(file, show, 83, "zoom area leaves no picture"));
    }
}

static ID3D11Texture2D* MakeNv12Array(void* device, UINT w, UINT h, UINT bind)
{
    const D3D11_TEXTURE2D_DESC d = xop::TextureDesc(w, h, DXGI_FORMAT_NV12, D3D11_USAGE_DEFAULT, bind, 0, 2);
    ID3D11Texture2D* t = nullptr;
    static_cast<ID3D11Device*>(device)->CreateTexture2D(&d, nullptr, &t);
    return t;
}

TEST_F(Render, HardwarePathShowsOrFailsCleanlyByWhatTheStackSamples)
{
    HWND wnd = NewWindow(480, 200, 64, 64);
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(wnd, &init);
    ID3D11Texture2D* texture = MakeNv12Array(init.device, 64, 64, D3D11_BIND_DECODER);
    ASSERT_NE(texture, nullptr);
    ShowFrameData f;
    memset(&f, 0, sizeof(f));
    f.texture = texture;
    f.width = 64;
    f.height = 64;
    f.arraySlice = 1;
    // Where NV12 cannot be sampled the path gives -1, no crash; elsewhere
    // the picture is shown.
    const bool samples = testkit::CanSampleNv12(static_cast<ID3D11Device*>(init.device));
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), samples ? 0 : -1);
    EZoomArea empty = {0.5, 0.5, 0.0, 0.0};
    g_sdk.QuillonRenderConfig(h, QUILLON_CMD_EZOOM_AREA, &empty, 16);
    EXPECT_EQ(g_sdk.QuillonRenderShowFrame(h, &f, sizeof(f)), -1);
    texture->Release();
}

TEST_F(Render, ReadBackMakesItsStagingTextureOnceAndCopiesBackByLength)
{
    RenderInitParam init;
    QuillonRenderHandle h = OnWindow(nullptr, &init, 4096);  // more than 72: 72 copied
    ID3D11Texture2D* small = MakeNv12Array(init.device, 64, 48, D3D11_BIND_DECODER);
    ID3D11Texture2D* large = MakeNv12Array(init.device, 256, 192, D3D11_BIND_DECODER);
    ASSERT_NE(small, nullptr);
    ASSERT_NE(large, nullptr);

    NV12ReadBack rb;
    memset(&rb, 0, sizeof(rb));
    rb.texture = small;
    rb.arraySlice = 1;
    rb.width = 60;  // staging 64 x 48: rounded up to 16
    rb.height = 40;
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &rb, sizeof(rb)), 0);
    EXPECT_NE(rb.data, nullptr);
    const unsigned firstPitch = rb.rowPitch;
    EXPECT_GE(firstPitch, 64u);
    EXPECT_LT(firstPitch, 256u);

    // A larger picture still goes through the first, smaller staging texture.
    NV12ReadBack again;
    memset(&again, 0, sizeof(again));
    again.texture = large;
    again.width = 256;
    again.height = 192;
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &again, sizeof(again)), 0);
    EXPECT_EQ(again.rowPitch, firstPitch);

    // 24 bytes: the outputs are not copied back.
    NV12ReadBack partial = again;
    partial.data = reinterpret_cast<void*>(0x1234);
    partial.rowPitch = 77;
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &partial, 24), 0);
    EXPECT_EQ(partial.data, reinterpret_cast<void*>(0x1234));
    EXPECT_EQ(partial.rowPitch, 77u);

    // A failed read-back (no texture) leaves what the host sent.
    NV12ReadBack none;
    memset(&none, 0, sizeof(none));
    none.data = reinterpret_cast<void*>(0x5678);
    none.rowPitch = 9;
    EXPECT_EQ(g_sdk.QuillonRenderConfig(h, QUILLON_CMD_TEXTURE2D_TO_NV12, &none, sizeof(none)), 0);
    EXPECT_EQ(none.data, reinterpret_cast<void*>(0x5678));
    EXPECT_EQ(none.rowPitch, 9u);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    small->Release();
    large->Release();
}
