#pragma once
// QuillonSDK.dll as the player uses it: loaded beside the executable at run
// time and bound by name, so a missing module or entry point is reported
// in words instead of a loader dialog.
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "QuillonSDK.h"

#define QUILLON_PLAYER_FUNCTIONS(X)                                                              \
    X(QuillonStartup) X(QuillonCleanup) X(QuillonDecoderCreate) X(QuillonDecoderInitial)       \
    X(QuillonDecoderDecodeOneFrame) X(QuillonDecoderRelease) X(QuillonRenderCreate)             \
    X(QuillonRenderInitDevice) X(QuillonRenderShowFrame) X(QuillonRenderGetDrawInfo)            \
    X(QuillonRenderSetWnd) X(QuillonRenderConfig) X(QuillonRenderRelease)

struct QuillonSdkApi {
#define QUILLON_PLAYER_SLOT(name) decltype(&::name) name = nullptr;
    QUILLON_PLAYER_FUNCTIONS(QUILLON_PLAYER_SLOT)
#undef QUILLON_PLAYER_SLOT

    // False with the reason in `error` when the module or a function is missing.
    bool Load(std::string& error) { return Bind(LoadLibraryA("QuillonSDK.dll"), error); }

    bool Bind(HMODULE module, std::string& error)
    {
        if (!module) {
            error = "cannot load QuillonSDK.dll";
            return false;
        }
#define QUILLON_PLAYER_BIND(name)                                                                   \
    name = reinterpret_cast<decltype(name)>(reinterpret_cast<void*>(GetProcAddress(module, #name))); \
    if (!name) {                                                                                    \
        error = "QuillonSDK.dll lacks " #name;                                                      \
        return false;                                                                               \
    }
        QUILLON_PLAYER_FUNCTIONS(QUILLON_PLAYER_BIND)
#undef QUILLON_PLAYER_BIND
        return true;
    }

    // One access unit through QuillonDecoderDecodeOneFrame: the unit behind a
    // FrameHead carrying `timestamp`, the picture's place written to
    // `surface` (texture left NULL while the decoder holds the picture back).
    int DecodeUnit(QuillonDecoderHandle decoder, const std::vector<uint8_t>& unit, unsigned int timestamp,
                   DecOut& out, SurfaceRecord& surface) const
    {
        std::vector<uint8_t> buffer(sizeof(FrameHead) + unit.size());
        FrameHead* head = reinterpret_cast<FrameHead*>(buffer.data());
        head->timestamp = timestamp;
        head->payloadLength = static_cast<unsigned int>(unit.size());
        if (!unit.empty()) memcpy(buffer.data() + sizeof(FrameHead), unit.data(), unit.size());
        memset(&surface, 0, sizeof(surface));
        memset(&out, 0, sizeof(out));
        out.surfaceRecordSize = sizeof(surface);
        out.surfaceRecord = &surface;
        return QuillonDecoderDecodeOneFrame(decoder, buffer.data(), static_cast<unsigned int>(buffer.size()), &out);
    }
};
