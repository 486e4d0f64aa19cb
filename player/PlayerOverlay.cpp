#include "player/PlayerOverlay.h"

#include <cstdio>
#include <cstring>

namespace {

OverlayParam Overlay(unsigned int rgb, int lineWidth)
{
    OverlayParam p;
    memset(&p, 0, sizeof(p));
    // The record's colour is red in the low byte, then green, then blue.
    p.color = ((rgb >> 16) & 0xFF) | (rgb & 0xFF00) | ((rgb & 0xFF) << 16);
    p.lineWidth = lineWidth;
    return p;
}

void AddPoint(OverlayParam& p, double fx, double fy, int w, int h)
{
    p.points[p.pointCount].x = static_cast<int>(fx * w);
    p.points[p.pointCount].y = static_cast<int>(fy * h);
    ++p.pointCount;
}

// The four corners of a rectangle given as fractions of the window.
void AddRect(OverlayParam& p, double left, double top, double right, double bottom, int w, int h)
{
    AddPoint(p, left, top, w, h);
    AddPoint(p, right, top, w, h);
    AddPoint(p, right, bottom, w, h);
    AddPoint(p, left, bottom, w, h);
}

}  // namespace

// Runs inside QuillonRenderShowFrame between the overlay pass's begin and
// end: a timestamp, a tracking box and a hatched privacy region.
void QUILLON_CALL DrawOverlays(ShowFrameData* frame, void* user)
{
    (void)frame;
    OverlayState* s = static_cast<OverlayState*>(user);
    const int w = s->clientWidth;
    const int h = s->clientHeight;

    OverlayParam text = Overlay(0xFFFF40, h >= 200 ? 20 : 12);
    const long long t = s->timestampMs;
    snprintf(text.text, sizeof(text.text), "%02lld:%02lld:%02lld.%03lld  #%d", t / 3600000, t / 60000 % 60,
             t / 1000 % 60, t % 1000, s->frameNumber);
    // A dark copy one pixel down and right keeps the text readable on light bars.
    OverlayParam shadow = text;
    shadow.color = 0;
    shadow.points[0] = {9, 5};
    shadow.points[1] = {w - 7, 5 + text.lineWidth * 2};
    s->sdk->QuillonRenderConfig(s->render, QUILLON_CMD_DRAW_TEXT, &shadow, sizeof(shadow));
    text.points[0] = {8, 4};
    text.points[1] = {w - 8, 4 + text.lineWidth * 2};
    s->sdk->QuillonRenderConfig(s->render, QUILLON_CMD_DRAW_TEXT, &text, sizeof(text));

    OverlayParam box = Overlay(0x40FF40, 2);
    box.closed = 1;
    AddRect(box, 0.10, 0.30, 0.40, 0.70, w, h);
    s->sdk->QuillonRenderConfig(s->render, QUILLON_CMD_DRAW_LINE, &box, sizeof(box));

    OverlayParam privacy = Overlay(0x808080, 2);
    privacy.spacing = 4.0f;
    AddRect(privacy, 0.60, 0.60, 0.92, 0.92, w, h);
    s->sdk->QuillonRenderConfig(s->render, QUILLON_CMD_DRAW_BLURRY, &privacy, sizeof(privacy));
}
