#pragma once
// Pieces the benchmarks through the exports share: a render object on a
// window, and I420 pictures with a gradient (so uploads are not all one value).
#include <cstdio>
#include <cstring>
#include <vector>

#include "testkit/staged_sdk.h"
#include "xop/Renderer.h"

namespace bench {

inline QuillonRenderHandle OpenRender(QuillonSdkApi& sdk, HWND window)
{
    QuillonRenderHandle render = sdk.QuillonRenderCreate(nullptr, 0);
    RenderInitParam init;
    memset(&init, 0, sizeof(init));
    init.hWnd = window;
    if (sdk.QuillonRenderInitDevice(render, &init, sizeof(init)) != 0) fprintf(stderr, "InitDevice failed\n");
    return render;
}

// A picture with a gradient, so uploads are not all one value.
inline std::vector<uint8_t> Picture(int w, int h)
{
    std::vector<uint8_t> p = SolidI420(w, h, 81, 90, 240);
    for (size_t i = 0; i < static_cast<size_t>(w) * h; ++i) p[i] = static_cast<uint8_t>(16 + i % 219);
    return p;
}

// The picture as the renderer core's frame record.
inline xop::FrameImage I420Image(std::vector<uint8_t>& p, int w, int h)
{
    xop::FrameImage image = {};
    image.width = w;
    image.height = h;
    image.linesize[0] = w;
    image.linesize[1] = image.linesize[2] = w / 2;
    image.data[0] = p.data();
    image.data[1] = p.data() + w * h;
    image.data[2] = p.data() + w * h * 5 / 4;
    image.format = xop::kFrameI420;
    return image;
}

}  // namespace bench
