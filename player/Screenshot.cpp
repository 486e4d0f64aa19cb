#include "player/Screenshot.h"

#include <cstdio>
#include <cstring>

bool CaptureClient(HWND window, RgbImage& image)
{
    RECT client = {};
    if (!GetClientRect(window, &client) || client.right <= 0 || client.bottom <= 0) return false;
    POINT origin = {0, 0};
    ClientToScreen(window, &origin);
    const int w = client.right;
    const int h = client.bottom;

    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = w;
    info.bmiHeader.biHeight = -h;  // top-down
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HDC screen = GetDC(nullptr);
    HDC mem = CreateCompatibleDC(screen);
    HBITMAP dib = CreateDIBSection(screen, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    bool ok = dib && bits;
    if (ok) {
        HGDIOBJ old = SelectObject(mem, dib);
        ok = BitBlt(mem, 0, 0, w, h, screen, origin.x, origin.y, SRCCOPY) != FALSE;
        GdiFlush();
        SelectObject(mem, old);
    }
    if (ok) {
        image.width = w;
        image.height = h;
        image.rgb.resize(static_cast<size_t>(w) * h * 3);
        const uint8_t* src = static_cast<const uint8_t*>(bits);
        for (size_t i = 0, n = static_cast<size_t>(w) * h; i < n; ++i) {
            image.rgb[i * 3 + 0] = src[i * 4 + 2];
            image.rgb[i * 3 + 1] = src[i * 4 + 1];
            image.rgb[i * 3 + 2] = src[i * 4 + 0];
        }
    }
    if (dib) DeleteObject(dib);
    DeleteDC(mem);
    ReleaseDC(nullptr, screen);
    return ok;
}

namespace {

void Put32(std::vector<uint8_t>& out, uint32_t v, bool bigEndian)
{
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<uint8_t>(v >> (bigEndian ? 24 - 8 * i : 8 * i)));
}

void Put16(std::vector<uint8_t>& out, uint16_t v)
{
    out.push_back(static_cast<uint8_t>(v));
    out.push_back(static_cast<uint8_t>(v >> 8));
}

std::vector<uint8_t> EncodeBmp(const RgbImage& image)
{
    const uint32_t rowBytes = (static_cast<uint32_t>(image.width) * 3 + 3) & ~3u;
    const uint32_t pixelBytes = rowBytes * image.height;
    std::vector<uint8_t> out = {'B', 'M'};
    Put32(out, 54 + pixelBytes, false);
    Put32(out, 0, false);
    Put32(out, 54, false);
    Put32(out, 40, false);
    Put32(out, image.width, false);
    Put32(out, image.height, false);  // bottom-up rows
    Put16(out, 1);
    Put16(out, 24);
    for (int i = 0; i < 6; ++i) Put32(out, 0, false);
    for (int y = image.height - 1; y >= 0; --y) {
        const uint8_t* row = &image.rgb[static_cast<size_t>(y) * image.width * 3];
        for (int x = 0; x < image.width; ++x) {
            out.push_back(row[x * 3 + 2]);
            out.push_back(row[x * 3 + 1]);
            out.push_back(row[x * 3 + 0]);
        }
        out.resize(out.size() + (rowBytes - image.width * 3), 0);
    }
    return out;
}

uint32_t Crc32(const uint8_t* p, size_t n, uint32_t crc = 0)
{
    crc = ~crc;
    while (n--) {
        crc ^= *p++;
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1)));
    }
    return ~crc;
}

void PutChunk(std::vector<uint8_t>& out, const char* type, const std::vector<uint8_t>& data)
{
    Put32(out, static_cast<uint32_t>(data.size()), true);
    const size_t start = out.size();
    out.insert(out.end(), type, type + 4);
    out.insert(out.end(), data.begin(), data.end());
    Put32(out, Crc32(&out[start], out.size() - start), true);
}

// PNG with the picture in stored (uncompressed) deflate blocks: larger than
// a compressed file, but exact and needing no compressor.
std::vector<uint8_t> EncodePng(const RgbImage& image)
{
    std::vector<uint8_t> raw;
    for (int y = 0; y < image.height; ++y) {
        raw.push_back(0);  // filter: none
        const uint8_t* row = &image.rgb[static_cast<size_t>(y) * image.width * 3];
        raw.insert(raw.end(), row, row + image.width * 3);
    }
    std::vector<uint8_t> z = {0x78, 0x01};
    for (size_t pos = 0; pos < raw.size() || pos == 0;) {
        const size_t n = raw.size() - pos < 65535 ? raw.size() - pos : 65535;
        z.push_back(pos + n == raw.size() ? 1 : 0);
        Put16(z, static_cast<uint16_t>(n));
        Put16(z, static_cast<uint16_t>(~n));
        z.insert(z.end(), raw.begin() + pos, raw.begin() + pos + n);
        pos += n;
        if (n == 0) break;
    }
    uint32_t a = 1, b = 0;
    for (uint8_t c : raw) {
        a = (a + c) % 65521;
        b = (b + a) % 65521;
    }
    Put32(z, (b << 16) | a, true);

    std::vector<uint8_t> out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> header;
    Put32(header, image.width, true);
    Put32(header, image.height, true);
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8-bit RGB, no interlace
    PutChunk(out, "IHDR", header);
    PutChunk(out, "IDAT", z);
    PutChunk(out, "IEND", {});
    return out;
}

bool EndsWithPng(const std::string& path)
{
    if (path.size() < 4) return false;
    std::string ext = path.substr(path.size() - 4);
    for (char& c : ext) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return ext == ".png";
}

}  // namespace

bool WriteImage(const std::string& path, const RgbImage& image)
{
    if (image.width <= 0 || image.height <= 0) return false;
    const std::vector<uint8_t> bytes = EndsWithPng(path) ? EncodePng(image) : EncodeBmp(image);
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return false;
    const bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    return fclose(f) == 0 && ok;
}

bool SaveScreenshot(HWND window, const std::string& path, const char* program)
{
    RgbImage image;
    if (CaptureClient(window, image) && WriteImage(path, image)) {
        printf("%s: screenshot %s (%dx%d)\n", program, path.c_str(), image.width, image.height);
        return true;
    }
    fprintf(stderr, "%s: cannot write the screenshot %s\n", program, path.c_str());
    return false;
}
