#pragma once
// The renderer a render object owns: shows one picture described by a
// ShowFrameData, either a slice of a decoder texture array (hardware path,
// cropped by the electronic zoom on the GPU) or I420 planes in memory
// (CPU-data path), and reads one slice of a decoder texture back as NV12.
#include <cstdint>

#include "QuillonSDK.h"
#include "xop/D3D11Renderer.h"

// Source rectangle of the electronic zoom on a decoded picture of
// _iWidth x _iHeight: the size rounded up to a multiple of 4 (a height of
// 1088 read as 1080 and 368 as 360, the lines a decoder pads), each zoom
// fraction times that size truncated toward zero, then every coordinate made
// even.
RECT ZoomSourceRect(int _iWidth, int _iHeight, const double _pdZoom[4]);

// The copy box for `_tWant` cut to a texture of _uiWidth x _uiHeight, so that
// a copy never reaches outside its source. False when nothing is left (an
// empty or inverted rectangle, or one wholly outside).
bool FitBox(const RECT& _tWant, UINT _uiWidth, UINT _uiHeight, D3D11_BOX* _ptBox);

class CLS_D3D11vaRenderer : public xop::D3D11Renderer {
public:
    CLS_D3D11vaRenderer() = default;
    ~CLS_D3D11vaRenderer() override;

    // Also drops the read-back's staging texture (and its mapping), which
    // belongs to the device being released; device-removal recovery reaches
    // this through the virtual table.
    void Destroy() override;

    // 0 when the picture was presented, -1 otherwise.
    virtual int32_t ShowDecodedFrame(ShowFrameData* _ptFrame);
    // Copies slice `_uiArraySlice` of `_pSource` into a staging texture made
    // at the first call's size (kept until the device objects are released)
    // and hands out its mapped memory and row pitch. The memory stays mapped,
    // and the pointer valid, until the next read-back or Destroy. 0, or -1
    // for a missing argument or device, or a refused source (logged).
    virtual int32_t Texture2DToNV12(ID3D11Texture2D* _pSource, uint32_t _uiArraySlice, uint32_t _uiWidth,
                                    uint32_t _uiHeight, void** _ppData, uint32_t* _puiRowPitch);

    // Settings of the configuration commands; they take no lock and apply
    // from the next picture on.
    DrawCallBackParam GetDrawCallBack() const;
    void SetDrawCallBack(const DrawCallBackParam& _tParam);
    EZoomArea GetZoomArea() const;
    void SetZoomArea(const EZoomArea& _tArea);
    DstRect GetDstRect() const;
    void SetDstRect(const DstRect& _tRect);

protected:
    ID3D11Texture2D* stagingTexture = nullptr;
    bool m_bStagingMapped = false;

private:
    // Null when `_pSource` may be copied from: made on this renderer's
    // device, NV12 with one mip level, and holding `_uiSlice`; else why not.
    const char* CheckSource(ID3D11Texture2D* _pSource, UINT _uiSlice, D3D11_TEXTURE2D_DESC* _ptDesc) const;
    void ReleaseStaging();
    int32_t ShowTexture(const ShowFrameData* _ptFrame);
    int32_t ShowPlanes(const ShowFrameData* _ptFrame);
    void Finish(const ShowFrameData* _ptFrame);
};
