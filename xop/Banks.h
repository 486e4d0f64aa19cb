#pragma once
// Indices of the renderer's two banks of render textures. The input bank
// receives the picture's planes and is indexed by plane role; the output bank
// holds render targets of the back buffer's size, one per pixel shader
// (xop/Shaders.h). Both banks have seven entries.

namespace xop {

enum class InputBank : int {
    kBgra = 1,  // format 1: the packed picture
    kNv12 = 2,  // format 3 and the decoder-texture copy: one NV12 texture
    kY = 3,     // formats 2 and 4: one R8 texture per plane
    kU = 4,
    kV = 5,
};
constexpr int kInputBankSize = 7;

enum class OutputBank : int {
    kNone = 0,       // no shader, never drawn into
    kBgra = 1,       // BGRA copy (format 1)
    kI420Bt601 = 2,  // planar YUV to RGB (formats 2 and 4)
    kI420Bt709 = 3,  // made, not drawn with
    kNv12Bt709 = 4,  // NV12 to RGB (format 3 and the decoder-texture path)
    kNv12Bt601 = 5,  // made, not drawn with
    kSharpen = 6,    // unsharp filter over the current output
};
constexpr int kOutputBankSize = 7;

constexpr int Index(InputBank bank) { return static_cast<int>(bank); }
constexpr int Index(OutputBank bank) { return static_cast<int>(bank); }

static_assert(Index(InputBank::kBgra) > 0 && Index(InputBank::kV) < kInputBankSize,
              "every plane role has an entry of the input bank");
static_assert(Index(OutputBank::kSharpen) + 1 == kOutputBankSize,
              "one output entry per pixel shader, the sharpen pass last");

}  // namespace xop
