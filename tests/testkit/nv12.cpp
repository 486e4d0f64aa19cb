#include "testkit/nv12.h"

#include "player/Nv12Pool.h"
#include "xop/D3D11RenderTexture.h"
#include "xop/ScopedMap.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

using Microsoft::WRL::ComPtr;

namespace testkit {

static int Clamp8(double v) { return static_cast<int>(std::lround(std::min(255.0, std::max(0.0, v)))); }

// R'G'B' from studio-range Y'CbCr with luma weights kr, kb.
static Rgb ToRgb(Yuv c, double kr, double kb) {
    const double kg = 1.0 - kr - kb;
    const double y = (c.y - 16) * 255.0 / 219.0;
    const double pb = (c.u - 128) * 255.0 / 224.0, pr = (c.v - 128) * 255.0 / 224.0;
    const double r = y + 2 * (1 - kr) * pr;
    const double b = y + 2 * (1 - kb) * pb;
    const double g = (y - kr * r - kb * b) / kg;
    return {Clamp8(r), Clamp8(g), Clamp8(b)};
}

Rgb Bt709ToRgb(Yuv c) { return ToRgb(c, 0.2126, 0.0722); }
Rgb Bt601ToRgb(Yuv c) { return ToRgb(c, 0.299, 0.114); }

Yuv Bt709FromRgb(Rgb c) {
    const double kr = 0.2126, kb = 0.0722, kg = 1 - kr - kb;
    const double y = kr * c.r + kg * c.g + kb * c.b;
    const double pb = (c.b - y) / (2 * (1 - kb)), pr = (c.r - y) / (2 * (1 - kr));
    return {Clamp8(16 + y * 219.0 / 255.0), Clamp8(128 + pb * 224.0 / 255.0), Clamp8(128 + pr * 224.0 / 255.0)};
}

Nv12Picture::Nv12Picture(int w, int h, Yuv fill) : width(w), height(h), y(size_t(w) * h), uv(size_t(w) * h / 2) {
    Fill(0, 0, w, h, fill);
}

void Nv12Picture::Fill(int x, int top, int w, int h, Yuv c) {
    for (int row = top; row < top + h; ++row) {
        std::memset(&y[size_t(row) * width + x], c.y, w);
        if (row % 2) continue;
        uint8_t* pair = &uv[size_t(row / 2) * width + x];
        for (int i = 0; i < w; i += 2) {
            pair[i] = static_cast<uint8_t>(c.u);
            pair[i + 1] = static_cast<uint8_t>(c.v);
        }
    }
}

void Nv12Picture::Quadrants(int visibleH, Yuv tl, Yuv tr, Yuv bl, Yuv br) {
    const int hw = width / 2, hh = visibleH / 2;
    Fill(0, 0, hw, hh, tl);
    Fill(hw, 0, width - hw, hh, tr);
    Fill(0, hh, hw, visibleH - hh, bl);
    Fill(hw, hh, width - hw, visibleH - hh, br);
}

// The size the decoder's pool gives a picture side: rounded up to 32.
static int PoolAlign(int v) { return (v + 31) & ~31; }

// An NV12 description; `misc` as given.
static D3D11_TEXTURE2D_DESC Nv12Desc(UINT w, UINT h, D3D11_USAGE usage, UINT bind, UINT cpu, UINT slices, UINT misc) {
    D3D11_TEXTURE2D_DESC d = xop::TextureDesc(w, h, DXGI_FORMAT_NV12, usage, bind, cpu, slices);
    d.MiscFlags = misc;
    return d;
}

DecoderPool::DecoderPool(ID3D11Device* device, int w, int h, UINT slices)
    : m_device(device), m_width(PoolAlign(w)), m_height(PoolAlign(h)) {
    const D3D11_TEXTURE2D_DESC d =
        Nv12Desc(m_width, m_height, D3D11_USAGE_DEFAULT, D3D11_BIND_DECODER, 0, slices, D3D11_RESOURCE_MISC_SHARED);
    if (!device || FAILED(device->CreateTexture2D(&d, nullptr, &m_array))) m_array.Reset();
}

bool DecoderPool::Write(UINT slice, const Nv12Picture& picture) {
    if (!m_array || picture.width != m_width || picture.height != m_height) return false;
    const D3D11_TEXTURE2D_DESC d = Nv12Desc(m_width, m_height, D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_WRITE, 1, 0);
    ComPtr<ID3D11Texture2D> staging;
    if (FAILED(m_device->CreateTexture2D(&d, nullptr, &staging))) return false;
    ComPtr<ID3D11DeviceContext> context;
    m_device->GetImmediateContext(&context);
    {
        xop::ScopedMap map(context.Get(), staging.Get(), D3D11_MAP_WRITE);
        if (!map.Mapped()) return false;
        // The chroma plane follows the luma plane at the same pitch.
        for (int row = 0; row < m_height * 3 / 2; ++row) {
            const uint8_t* in = row < m_height ? &picture.y[size_t(row) * m_width]
                                               : &picture.uv[size_t(row - m_height) * m_width];
            std::memcpy(map.Data() + size_t(row) * map.RowPitch(), in, m_width);
        }
    }
    context->CopySubresourceRegion(m_array.Get(), D3D11CalcSubresource(0, slice, 1), 0, 0, 0, staging.Get(), 0,
                                   nullptr);
    context->Flush();
    return true;
}

bool CanSampleNv12(ID3D11Device* device) { return Nv12Pool::CanSampleNv12(device); }

bool OnNv12Stack() {
    const char* stack = std::getenv("QUILLON_STACK");
    return stack && std::strcmp(stack, "2") == 0;
}

}  // namespace testkit
