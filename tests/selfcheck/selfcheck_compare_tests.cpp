// The self-check's verdict rests on these: PSNR of a plane, of an NV12 read-back against packed I420, the threshold.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "selfcheck/SelfCheckCompare.h"

namespace {

// NV12 as the read-back lays it out: rows of `pitch` bytes (padding filled
// with 0xEE), chroma from row `chromaRow`, the rows between filled too.
std::vector<uint8_t> Nv12FromI420(const std::vector<uint8_t>& i420, int w, int h, size_t pitch, int chromaRow) {
    std::vector<uint8_t> p(pitch * (chromaRow + h / 2), 0xEE);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) p[y * pitch + x] = i420[y * w + x];
    const uint8_t* u = i420.data() + w * h;
    const uint8_t* v = u + w / 2 * (h / 2);
    for (int y = 0; y < h / 2; ++y)
        for (int x = 0; x < w / 2; ++x) {
            p[(chromaRow + y) * pitch + 2 * x] = u[y * (w / 2) + x];
            p[(chromaRow + y) * pitch + 2 * x + 1] = v[y * (w / 2) + x];
        }
    return p;
}

}  // namespace

TEST(SelfCheckCompare, PlanePsnrValues) {
    const uint8_t zeros[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    const uint8_t ones[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    const uint8_t mixed[8] = {0, 2, 0, 2, 0, 2, 0, 2};
    const PlaneView z{zeros, 4, 1}, o{ones, 4, 1}, m{mixed, 4, 1};
    EXPECT_EQ(kPsnrIdentical, PlanePsnr(z, z, 4, 2));
    EXPECT_NEAR(48.1308, PlanePsnr(z, o, 4, 2), 1e-4);  // MSE 1: 10*log10(255^2)
    EXPECT_NEAR(45.1205, PlanePsnr(z, m, 4, 2), 1e-4);  // MSE 2
    const uint8_t black[2] = {0, 0}, white[2] = {255, 255};
    EXPECT_NEAR(0.0, PlanePsnr(PlaneView{black, 2, 1}, PlaneView{white, 2, 1}, 2, 1), 1e-9);
    // Only width x height samples count: the differing bytes past them do not.
    EXPECT_EQ(kPsnrIdentical, PlanePsnr(PlaneView{mixed, 4, 2}, z, 2, 2));  // every second sample: all 0
    EXPECT_EQ(kPsnrIdentical, PlanePsnr(m, PlaneView{zeros, 4, 1}, 1, 2));
    // Nothing to compare is no match.
    EXPECT_EQ(0.0, PlanePsnr(PlaneView{nullptr, 4, 1}, z, 4, 2));
    EXPECT_EQ(0.0, PlanePsnr(z, z, 0, 2));
}

TEST(SelfCheckCompare, Nv12ReadBackAgainstI420) {
    const int w = 24, h = 18;  // luma rows padded to 64 bytes, chroma from row 32
    std::vector<uint8_t> ref(size_t(w) * h * 3 / 2);
    for (size_t i = 0; i < ref.size(); ++i) ref[i] = uint8_t(i * 7);
    const int chromaRow = ReadBackChromaRow(h);
    ASSERT_EQ(32, chromaRow);
    std::vector<uint8_t> nv12 = Nv12FromI420(ref, w, h, 64, chromaRow);

    FramePsnr same = Nv12VersusI420(nv12.data(), 64, chromaRow, ref.data(), w, h);
    EXPECT_EQ((std::vector<double>{same.y, same.u, same.v}), std::vector<double>(3, kPsnrIdentical));
    EXPECT_TRUE(FramePasses(same));

    // One V sample off by 16: only V drops, by the exact amount.
    nv12[(chromaRow + 3) * 64 + 2 * 5 + 1] ^= 16;
    FramePsnr v = Nv12VersusI420(nv12.data(), 64, chromaRow, ref.data(), w, h);
    EXPECT_EQ(kPsnrIdentical, v.y);
    EXPECT_EQ(kPsnrIdentical, v.u);
    EXPECT_NEAR(10.0 * std::log10(255.0 * 255.0 * (12 * 9) / 256.0), v.v, 1e-9);

    // Chroma looked for at the picture's own height (row 18) finds padding.
    FramePsnr wrongRow = Nv12VersusI420(nv12.data(), 64, h, ref.data(), w, h);
    EXPECT_LT(wrongRow.u, kPassThresholdDb);

    FramePsnr none = Nv12VersusI420(nullptr, 64, chromaRow, ref.data(), w, h);
    EXPECT_FALSE(FramePasses(none));
}

TEST(SelfCheckCompare, ThresholdAndChromaRow) {
    EXPECT_TRUE(FramePasses(FramePsnr{40.0, 40.0, 40.0}));
    EXPECT_FALSE(FramePasses(FramePsnr{60.0, 39.99, 60.0}));
    EXPECT_FALSE(FramePasses(FramePsnr{39.99, 60.0, 60.0}));
    EXPECT_FALSE(FramePasses(FramePsnr{60.0, 60.0, 39.99}));
    EXPECT_TRUE(FramePasses(FramePsnr{30.0, 30.0, 30.0}, 30.0));
    EXPECT_EQ(720, ReadBackChromaRow(720));
    EXPECT_EQ(1088, ReadBackChromaRow(1080));
}
