#pragma once
// QuillonSDK.dll as the player uses it: loaded beside the executable at run
// time and bound by name, so a missing module or entry point is reported
// in words instead of a loader dialog.
#include <windows.h>

#include <string>

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
};
