#pragma once
// Picture comparison of the self-check: PSNR between the SDK's NV12 read-back
// of a hardware-decoded picture and FFmpeg's software decode (I420) of the
// same frame. Pure functions, no device needed.
#include <cstddef>
#include <cstdint>

// One 8-bit plane: `step` bytes between neighbouring samples of a row (2 for
// the U or V samples of NV12's interleaved chroma), `pitch` bytes between rows.
struct PlaneView {
    const uint8_t* data;
    size_t pitch;
    int step;
};

// PSNR in dB over width x height samples; identical planes give kPsnrIdentical.
constexpr double kPsnrIdentical = 100.0;
double PlanePsnr(const PlaneView& a, const PlaneView& b, int width, int height);

struct FramePsnr {
    double y;
    double u;
    double v;
};

// NV12 as the read-back command leaves it: luma rows of `rowPitch` bytes, the
// interleaved chroma rows starting `chromaRow` rows further on. The I420
// picture is packed: Y (w*h), U, V (w/2*h/2 each).
FramePsnr Nv12VersusI420(const uint8_t* nv12, size_t rowPitch, int chromaRow, const uint8_t* i420, int width,
                         int height);

// First chroma row of a read-back: the staging texture is the picture's size
// rounded up to whole 16 x 16 macroblocks.
int ReadBackChromaRow(int height);

// A frame passes when every plane reaches the threshold.
constexpr double kPassThresholdDb = 40.0;
bool FramePasses(const FramePsnr& psnr, double thresholdDb = kPassThresholdDb);
