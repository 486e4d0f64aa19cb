// Frames per second of planar 4:2:0 pictures through the renderer's frame
// steps, next to a minimal hand-written Direct3D 11 loop doing the same
// upload, draw and present in the same process (bench/bench_common.h).
// Prints figures only.
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "testkit/testkit.h"
#include "xop/D3D11Renderer.h"

namespace {

using bench::FramesPerSecond;

// The renderer with its Direct2D target in reach.
class Renderer : public xop::D3D11Renderer {
public:
    void DropOverlayTarget() { m_d2dRenderTarget.Reset(); }
};

// A w x h planar 4:2:0 picture: a luma gradient, so uploads are not all one
// value, under red chroma.
struct Picture {
    Picture(int w, int h)
        : luma(static_cast<size_t>(w) * h), u(static_cast<size_t>((w + 1) / 2) * ((h + 1) / 2), 90), v(u.size(), 240) {
        for (size_t i = 0; i < luma.size(); ++i) luma[i] = static_cast<uint8_t>(16 + i % 219);
        image = {w, h, {w, (w + 1) / 2, (w + 1) / 2}, {luma.data(), u.data(), v.data()}, xop::kFrameI420};
    }
    std::vector<uint8_t> luma, u, v;
    xop::FrameImage image;
};

// `overlayPass` false drops the Direct2D target, as on a machine without
// Direct2D: the frame then skips the (empty) overlay pass.
double RendererFps(HWND window, const xop::FrameImage& image, bool overlayPass) {
    Renderer r;
    if (!r.Init(window)) return 0.0;
    if (!overlayPass) r.DropOverlayTarget();
    r.InitInputTextures(image.width, image.height, image.format);
    return FramesPerSecond([&] {
        r.BeginFrame();
        r.UpdateFrame(image);
        r.ApplySharpen();
        r.PresentOutput(nullptr);
        r.PresentSwapChain();
    });
}

}  // namespace

int main() {
    bench::Table table("frame_steps", "picture",
                       {"renderer fps", "baseline fps", "ratio", "no 2D pass fps", "no 2D ratio"});
    const int sizes[2][2] = {{1280, 720}, {1920, 1080}};
    for (const auto& s : sizes) {
        HWND window = testkit::CreateTestWindow(0, 0, s[0], s[1], "quillon bench");
        Picture picture(s[0], s[1]);
        const double renderer = RendererFps(window, picture.image, true);
        const double baseline = bench::BaselineFps(window, picture.image);
        const double no2d = RendererFps(window, picture.image, false);
        const double b = baseline > 0 ? baseline : 1.0;
        table.Row(std::to_string(s[0]) + "x" + std::to_string(s[1]), {renderer, baseline, renderer / b, no2d, no2d / b});
        DestroyWindow(window);
    }
    table.Publish(2);
    return 0;
}
