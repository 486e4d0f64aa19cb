#pragma once
// A host-side stand-in for a hardware decoder's picture pool: an NV12
// texture array on the renderer's device into which software-decoded I420
// pictures are uploaded, one slice after another, so that they are shown
// through QuillonRenderShowFrame's texture path (zoom and destination
// rectangle included) exactly like hardware-decoded pictures.
//
// The array is shaped like the decoder's pool: width and height rounded up
// to 32, DXGI_FORMAT_NV12, usage DEFAULT, bind flag D3D11_BIND_DECODER only.
// The renderer only copies out of it (CopySubresourceRegion into its own
// shader-visible texture), so the pool itself needs no shader binding, and
// it is not MISC_SHARED since it lives on the renderer's own device.
// Pictures reach a slice through one CPU-writable NV12 staging texture
// (Map, interleave, Unmap, CopySubresourceRegion), which is valid for planar
// formats on every Direct3D 11 device; UpdateSubresource is not.
//
// Not thread-safe: call Upload on the thread that shows the pictures. The
// renderer's device is multithread-protected, so a decoder elsewhere may
// use the same device meanwhile.
#include <windows.h>
#include <d3d11.h>
#include <wrl/client.h>

#include <string>

#include "QuillonSDK.h"
#include "player/PlayerSource.h"

class Nv12Pool {
public:
    // Makes the array (and the staging texture) on `device`; false with the
    // reason in Error(). May be called again, with another size or device.
    bool Create(ID3D11Device* device, int width, int height, int slices = 10);

    // Writes `picture` into the next slice (round-robin) and fills `frame`'s
    // texture, arraySlice, width and height (data is cleared). A picture
    // larger than the pool re-creates it at the new size. False, with
    // `frame` untouched, when the picture is malformed or Direct3D fails.
    bool Upload(const I420Picture& picture, ShowFrameData& frame);

    // Can an NV12 texture be a shader resource on `device` (luma and chroma
    // views), which the renderer's texture path needs?
    static bool CanSampleNv12(ID3D11Device* device);

    ID3D11Texture2D* Texture() const { return m_array.Get(); }
    int Width() const { return m_width; }
    int Height() const { return m_height; }
    int Slices() const { return m_slices; }
    const std::string& Error() const { return m_error; }

private:
    bool Fail(const std::string& what, HRESULT hr);

    Microsoft::WRL::ComPtr<ID3D11Device> m_device;
    Microsoft::WRL::ComPtr<ID3D11DeviceContext> m_context;
    Microsoft::WRL::ComPtr<ID3D11Texture2D> m_array;
    Microsoft::WRL::ComPtr<ID3D11Texture2D> m_staging;
    int m_width = 0;
    int m_height = 0;
    int m_slices = 0;
    int m_next = 0;
    std::string m_error;
};
