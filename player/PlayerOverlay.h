#pragma once
// The player's overlays, drawn from QuillonSDK's draw callback: a timestamp
// with the picture number, a tracking box and a hatched privacy region.
#include "player/QuillonSdkApi.h"

struct OverlayState {
    QuillonSdkApi* sdk = nullptr;
    QuillonRenderHandle render = nullptr;
    int clientWidth = 0;
    int clientHeight = 0;
    int frameNumber = 0;
    long long timestampMs = 0;
};

// The draw callback; `user` is the OverlayState.
void QUILLON_CALL DrawOverlays(ShowFrameData* frame, void* user);
