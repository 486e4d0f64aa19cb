#include "selfcheck/SelfCheckCompare.h"

#include <algorithm>
#include <cmath>

double PlanePsnr(const PlaneView& a, const PlaneView& b, int width, int height)
{
    if (!a.data || !b.data || width <= 0 || height <= 0) return 0.0;
    double squares = 0.0;
    for (int y = 0; y < height; ++y) {
        const uint8_t* rowA = a.data + y * a.pitch;
        const uint8_t* rowB = b.data + y * b.pitch;
        for (int x = 0; x < width; ++x) {
            const double d = double(rowA[x * a.step]) - double(rowB[x * b.step]);
            squares += d * d;
        }
    }
    if (squares == 0.0) return kPsnrIdentical;
    const double mse = squares / (double(width) * height);
    return std::min(kPsnrIdentical, 10.0 * std::log10(255.0 * 255.0 / mse));
}

FramePsnr Nv12VersusI420(const uint8_t* nv12, size_t rowPitch, int chromaRow, const uint8_t* i420, int width,
                         int height)
{
    if (!nv12 || !i420) return FramePsnr{0.0, 0.0, 0.0};
    const int cw = width / 2, ch = height / 2;
    const uint8_t* chroma = nv12 + rowPitch * size_t(chromaRow);
    const uint8_t* u = i420 + size_t(width) * height;
    const uint8_t* v = u + size_t(cw) * ch;
    return FramePsnr{
        PlanePsnr(PlaneView{nv12, rowPitch, 1}, PlaneView{i420, size_t(width), 1}, width, height),
        PlanePsnr(PlaneView{chroma, rowPitch, 2}, PlaneView{u, size_t(cw), 1}, cw, ch),
        PlanePsnr(PlaneView{chroma + 1, rowPitch, 2}, PlaneView{v, size_t(cw), 1}, cw, ch),
    };
}

int ReadBackChromaRow(int height) { return (height + 15) & ~15; }

bool FramePasses(const FramePsnr& psnr, double thresholdDb)
{
    return psnr.y >= thresholdDb && psnr.u >= thresholdDb && psnr.v >= thresholdDb;
}
