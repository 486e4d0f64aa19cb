#pragma once
// Captures what a window shows (read from the screen, where the swap chain
// presents) and writes it as a BMP or PNG file.
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

struct RgbImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;  // top-down rows, 3 bytes per pixel, R G B
};

// The client area of `window` as it is on the screen now.
bool CaptureClient(HWND window, RgbImage& image);

// Writes `image` to `path`: PNG when the name ends in ".png" (any case),
// otherwise a 24-bit BMP.
bool WriteImage(const std::string& path, const RgbImage& image);

// Captures `window` into `path` and says so on stdout ("<program>: screenshot
// ..."), or on stderr that it cannot.
bool SaveScreenshot(HWND window, const std::string& path, const char* program);
