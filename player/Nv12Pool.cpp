#include "player/Nv12Pool.h"

#include <cstdio>
#include <cstring>

#include "xop/D3D11RenderTexture.h"

using Microsoft::WRL::ComPtr;

namespace {

int AlignUp32(int v) { return (v + 31) & ~31; }

// I420 (packed planes) into mapped NV12 memory of a w32 x h32 texture: luma
// rows of `pitch` bytes, then the interleaved chroma rows. The last column
// and row are repeated into the padding, as a decoder's pool would hold
// something there; the renderer's copy box may reach up to 3 rows and
// columns past the picture.
void InterleaveI420(const I420Picture& p, int w32, int h32, uint8_t* dst, size_t pitch)
{
    const int w = p.width, h = p.height;
    const uint8_t* Y = p.bytes.data();
    const uint8_t* U = Y + w * h;
    const uint8_t* V = U + w * h / 4;
    for (int y = 0; y < h32; ++y) {
        uint8_t* row = dst + y * pitch;
        if (y >= h) {
            memcpy(row, dst + (h - 1) * pitch, w32);
            continue;
        }
        memcpy(row, Y + y * w, w);
        memset(row + w, row[w - 1], w32 - w);
    }
    uint8_t* chroma = dst + h32 * pitch;
    for (int y = 0; y < h32 / 2; ++y) {
        uint8_t* row = chroma + y * pitch;
        if (y >= h / 2) {
            memcpy(row, chroma + (h / 2 - 1) * pitch, w32);
            continue;
        }
        const uint8_t* u = U + y * (w / 2);
        const uint8_t* v = V + y * (w / 2);
        for (int x = 0; x < w32 / 2; ++x) {
            const int sx = x < w / 2 ? x : w / 2 - 1;
            row[2 * x] = u[sx];
            row[2 * x + 1] = v[sx];
        }
    }
}

}  // namespace

bool Nv12Pool::Fail(const std::string& what, HRESULT hr)
{
    char code[16];
    snprintf(code, sizeof(code), "0x%08lx", static_cast<unsigned long>(hr));
    m_error = what + " (" + code + ")";
    return false;
}

bool Nv12Pool::Create(ID3D11Device* device, int width, int height, int slices)
{
    m_array.Reset();
    m_staging.Reset();
    m_context.Reset();
    m_width = m_height = m_slices = m_next = 0;
    if (!device || width <= 0 || height <= 0 || slices <= 0 || width > 16384 || height > 16384)
        return Fail("no device or a bad pool size", E_INVALIDARG);
    m_device = device;
    m_device->GetImmediateContext(&m_context);
    const UINT w = AlignUp32(width), h = AlignUp32(height);
    D3D11_TEXTURE2D_DESC desc = xop::TextureDesc(w, h, DXGI_FORMAT_NV12, D3D11_USAGE_DEFAULT, D3D11_BIND_DECODER, 0,
                                                 static_cast<UINT>(slices));
    HRESULT hr = m_device->CreateTexture2D(&desc, nullptr, &m_array);
    if (FAILED(hr)) return Fail("cannot create the NV12 texture array", hr);
    desc = xop::TextureDesc(w, h, DXGI_FORMAT_NV12, D3D11_USAGE_STAGING, 0, D3D11_CPU_ACCESS_WRITE);
    hr = m_device->CreateTexture2D(&desc, nullptr, &m_staging);
    if (FAILED(hr)) {
        m_array.Reset();
        return Fail("cannot create the NV12 staging texture", hr);
    }
    m_width = static_cast<int>(w);
    m_height = static_cast<int>(h);
    m_slices = slices;
    return true;
}

bool Nv12Pool::Upload(const I420Picture& picture, ShowFrameData& frame)
{
    const int w = picture.width, h = picture.height;
    if (w < 2 || h < 2 || (w | h) & 1 || picture.bytes.size() < static_cast<size_t>(w) * h * 3 / 2)
        return Fail("not an even-sized I420 picture", E_INVALIDARG);
    if (!m_array || w > m_width || h > m_height) {
        if (!Create(m_device.Get(), w, h, m_slices ? m_slices : 10)) return false;
    }
    D3D11_MAPPED_SUBRESOURCE mapped = {};
    const HRESULT hr = m_context->Map(m_staging.Get(), 0, D3D11_MAP_WRITE, 0, &mapped);
    if (FAILED(hr) || !mapped.pData || mapped.RowPitch < static_cast<UINT>(m_width))
        return Fail("cannot map the NV12 staging texture", FAILED(hr) ? hr : E_FAIL);
    InterleaveI420(picture, m_width, m_height, static_cast<uint8_t*>(mapped.pData), mapped.RowPitch);
    m_context->Unmap(m_staging.Get(), 0);
    const UINT slice = static_cast<UINT>(m_next);
    m_next = (m_next + 1) % m_slices;
    // Same size and format: the whole staging picture lands in the slice.
    m_context->CopySubresourceRegion(m_array.Get(), D3D11CalcSubresource(0, slice, 1), 0, 0, 0, m_staging.Get(), 0,
                                     nullptr);
    frame.data = nullptr;
    frame.texture = m_array.Get();
    frame.arraySlice = slice;
    frame.width = w;
    frame.height = h;
    return true;
}

bool Nv12Pool::CanSampleNv12(ID3D11Device* device)
{
    if (!device) return false;
    const D3D11_TEXTURE2D_DESC desc =
        xop::TextureDesc(64, 64, DXGI_FORMAT_NV12, D3D11_USAGE_DEFAULT, D3D11_BIND_SHADER_RESOURCE);
    ComPtr<ID3D11Texture2D> texture;
    if (FAILED(device->CreateTexture2D(&desc, nullptr, &texture))) return false;
    for (DXGI_FORMAT plane : {DXGI_FORMAT_R8_UNORM, DXGI_FORMAT_R8G8_UNORM}) {
        D3D11_SHADER_RESOURCE_VIEW_DESC view = {};
        view.Format = plane;
        view.ViewDimension = D3D11_SRV_DIMENSION_TEXTURE2D;
        view.Texture2D.MipLevels = 1;
        ComPtr<ID3D11ShaderResourceView> srv;
        if (FAILED(device->CreateShaderResourceView(texture.Get(), &view, &srv))) return false;
    }
    return true;
}
