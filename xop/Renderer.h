#pragma once
// The abstract renderer and the CPU picture it draws.
#include <windows.h>

#include <cstdint>

namespace xop {

// Picture format codes of FrameImage::format.
enum FrameFormat : int {
    kFrameBgra = 1,     // packed 32-bit BGRA, one plane
    kFrameI420 = 2,     // planar YUV 4:2:0, chroma planes (w+1)/2 x (h+1)/2
    kFrameNv12 = 3,     // luma plane and one interleaved chroma plane
    kFrameYuv444 = 4,   // planar YUV 4:4:4, three full-size planes
};

// A picture in CPU memory: size, one line size (bytes) and one pointer per
// plane, and the format code. Any other code draws nothing.
struct FrameImage {
    int32_t width = 0;
    int32_t height = 0;
    int32_t linesize[3] = {0, 0, 0};
    uint8_t* data[3] = {nullptr, nullptr, nullptr};
    int32_t format = 0;
};

class Renderer {
public:
    virtual ~Renderer() {}
    virtual bool Init(HWND window) = 0;
    virtual void Destroy() = 0;
    virtual bool Resize() = 0;
    virtual void Render(const FrameImage& frame) = 0;
    virtual void SetSharpen(float unsharp) { (void)unsharp; }
};

}  // namespace xop
