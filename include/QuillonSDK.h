/*
 * QuillonSDK.h - the C interface of QuillonSDK.dll.
 *
 * Valid C89 and C++. Every record is a binding byte layout: the host builds
 * it, the library reads it at fixed offsets (64-bit Windows alignment).
 * Offsets and sizes are checked at compile time where the compiler can.
 */
#ifndef QUILLON_SDK_H
#define QUILLON_SDK_H

#include <windows.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QUILLON_CALL __cdecl
#ifdef QUILLON_BUILDING_SDK
#define QUILLON_API
#else
#define QUILLON_API __declspec(dllimport)
#endif

/* Opaque handles: the address of the object behind them; NULL is never valid. */
typedef void* QuillonDecoderHandle;
typedef void* QuillonRenderHandle;

/* Result codes. */
#define QUILLON_OK 0
#define QUILLON_ERR_FAIL (-1)

/* ---- decoder records ---------------------------------------------------- */

/* Decoder result codes (besides 0 and -1). */
#define QUILLON_ERR_NULL_POINTER (-404)   /* a required record or buffer pointer is NULL */
#define QUILLON_ERR_VIDEO_MODE (-428)     /* CreateNeed.VideoMode is not one of the values below */

/* CreateNeed.VideoMode */
#define QUILLON_VIDEO_H264 21
#define QUILLON_VIDEO_H264_ALT 22         /* also H.264 */
#define QUILLON_VIDEO_H265 23

/* QuillonDecoderInitial: picture size, video type and the device to decode
 * on. `deviceSlot` points at a slot holding an ID3D11Device* (for instance the
 * one QuillonRenderInitDevice wrote back) or NULL for a device of the
 * decoder's own; the slot address itself must not be NULL. */
typedef struct CreateNeed {
    int iWidth;                   /* 0 */
    int iHeight;                  /* 4 */
    int VideoMode;                /* 8 */
    unsigned char reserved[20];   /* 12: the host's, not read */
    void** deviceSlot;            /* 32 */
} CreateNeed;                     /* 40 bytes */

typedef struct CreateNeedExtern {
    unsigned char reserved[16];   /* 0: the host's, not read */
    void* userContext;            /* 16: kept by the decoder, never used */
} CreateNeedExtern;               /* 24 bytes */

/* The 32-byte header in front of every compressed frame handed to
 * QuillonDecoderDecodeOneFrame; `payloadLength` bytes of bitstream follow. */
typedef struct FrameHead {
    unsigned char reserved0[16];  /* 0 */
    unsigned int timestamp;       /* 16: becomes the picture's timestamp */
    unsigned int payloadLength;   /* 20 */
    unsigned char reserved1[8];   /* 24 */
} FrameHead;                      /* 32 bytes */

/* Output of QuillonDecoderDecodeOneFrame. Only width, height and timestamp
 * are written (and only when a picture came out and surfaceRecordSize > 0);
 * every other byte is left as the host set it. */
typedef struct DecOut {
    unsigned char reserved0[12];  /* 0 */
    int width;                    /* 12 */
    int height;                   /* 16 */
    unsigned char reserved1[16];  /* 20 */
    int timestamp;                /* 36: low 32 bits of the frame's FrameHead.timestamp */
    unsigned char reserved2[804]; /* 40 */
    int surfaceRecordSize;        /* 844: bytes at surfaceRecord (read only) */
    void* surfaceRecord;          /* 848: the host's SurfaceRecord (read only) */
} DecOut;                         /* 856 bytes */

/* Where a decoded picture lies: one slice of an NV12 texture array on the
 * decoder's device. Only the first min(surfaceRecordSize, 136) bytes are
 * written; the reserved bytes keep the host's values. The texture carries
 * no reference for the host and may be reused from the next decode on. */
typedef struct SurfaceRecord {
    void* texture;                /* 0: ID3D11Texture2D* */
    unsigned char reserved0[120]; /* 8 */
    unsigned int sliceIndex;      /* 128: index in the texture array */
    unsigned char reserved1[4];   /* 132 */
} SurfaceRecord;                  /* 136 bytes */

/* ---- render records ----------------------------------------------------- */

/* Render result codes (besides 0 and -1). */
#define QUILLON_ERR_NULL_RECORD (-101)    /* the record pointer is NULL */
#define QUILLON_ERR_NO_DEVICE (-200)      /* QuillonRenderShowFrame before QuillonRenderInitDevice */
#define QUILLON_RENDER_RELEASED 1         /* QuillonRenderRelease's success result */

/* QuillonRenderInitDevice: the window to draw into (NULL: a device without a
 * swap chain); the library writes the device it made into `device`. */
typedef struct RenderInitParam {
    HWND hWnd;                  /* 0 */
    unsigned char reserved0[16]; /* 8 */
    void* device;               /* 24: out, ID3D11Device* */
    unsigned char reserved1[40]; /* 32 */
} RenderInitParam;              /* 72 bytes */

/* QuillonRenderGetDrawInfo: the renderer's device (NULL before InitDevice). */
typedef struct DrawInfo {
    void* device;               /* 0: ID3D11Device* */
} DrawInfo;                     /* 8 bytes */

/* QuillonRenderShowFrame, and the record the draw callback receives.
 * `texture` set: a decoder texture array slice on the renderer's device
 * (hardware path). `texture` NULL: I420 planes at `data` (Y, then U at
 * width*height, then V at width*height*5/4). */
typedef struct ShowFrameData {
    unsigned char* data;        /* 0: I420 picture in memory */
    unsigned char reserved0[8]; /* 8 */
    int width;                  /* 16 */
    int height;                 /* 20 */
    void* texture;              /* 24: ID3D11Texture2D* (NV12 array) */
    unsigned int eraseOnRelease; /* 32: repaint the window when the device goes */
    unsigned char reserved1[36]; /* 36 */
    int lineSize;               /* 72: Y bytes per row, 0 = width */
    unsigned char reserved2[32]; /* 76 */
    unsigned int arraySlice;    /* 108: slice of `texture` */
} ShowFrameData;                /* 112 bytes */

/* QuillonRenderConfig command codes. */
#define QUILLON_CMD_TEXTURE2D_TO_NV12 0 /* NV12ReadBack */
#define QUILLON_CMD_SET_DRAW_CALLBACK 1 /* DrawCallBackParam */
#define QUILLON_CMD_DRAW_LINE 2         /* OverlayParam */
#define QUILLON_CMD_DRAW_TEXT 3         /* OverlayParam */
#define QUILLON_CMD_DRAW_BLURRY 4       /* OverlayParam */
#define QUILLON_CMD_EZOOM_AREA 5        /* EZoomArea */
#define QUILLON_CMD_SET_DST_RECT 6      /* DstRect */

/* Command 0: read one slice of a decoder texture back as NV12. `data` and
 * `rowPitch` come back filled: luma rows of rowPitch bytes, then the
 * interleaved chroma rows. */
typedef struct NV12ReadBack {
    void* texture;              /* 0: ID3D11Texture2D* */
    unsigned int arraySlice;    /* 8 */
    unsigned int width;         /* 12 */
    unsigned int height;        /* 16 */
    unsigned int pad0;          /* 20 */
    void* data;                 /* 24: out */
    unsigned int rowPitch;      /* 32: out */
    unsigned int pad1;          /* 36 */
} NV12ReadBack;                 /* 40 bytes */

/* Called once per shown picture between the overlay pass's begin and end,
 * with the library's copy of the ShowFrameData (valid during the call) and
 * the host's pointer; overlay commands 2 to 4 may be issued from inside. */
typedef void(QUILLON_CALL* QuillonDrawCallBack)(ShowFrameData* frame, void* user);

/* Command 1. A NULL callback switches it off. */
typedef struct DrawCallBackParam {
    QuillonDrawCallBack callback; /* 0 */
    void* user;                 /* 8 */
} DrawCallBackParam;            /* 16 bytes */

/* Command 5: the part of the picture to show, as fractions of its width and
 * height; default 0, 0, 1, 1. Hardware path only. */
typedef struct EZoomArea {
    double left;                /* 0 */
    double top;                 /* 8 */
    double right;               /* 16 */
    double bottom;              /* 24 */
} EZoomArea;                    /* 32 bytes */

/* Command 6: where the picture goes, in render-target pixels; all zero
 * means the whole target. */
typedef struct DstRect {
    int left;                   /* 0 */
    int top;                    /* 4 */
    int right;                  /* 8 */
    int bottom;                 /* 12 */
} DstRect;                      /* 16 bytes */

/* ---- overlay records ---------------------------------------------------- */

/* A point of an overlay, in client-area pixels of the window. */
typedef struct OverlayPoint {
    int x;
    int y;
} OverlayPoint;

/* Payload of the overlay commands (line, text, hatched region); 416 bytes. */
typedef struct OverlayParam {
    int closed;               /* line: 1 joins the last point to the first */
    unsigned int color;       /* red bits 0-7, green 8-15, blue 16-23; drawn opaque */
    int lineWidth;            /* line and hatch: stroke width (below 1: 2.0); text: font size */
    int pointCount;           /* number of points used */
    OverlayPoint points[32];  /* text: points[0] top-left, points[1] bottom-right of the box */
    char text[128];           /* NUL-terminated */
    float spacing;            /* hatch: distance between lines; 0.0 means 10.0 */
    int fontType;             /* text: 1 the CJK sans family, else "Times New Roman" */
    int charset;              /* text: 2 UTF-8, else the ANSI code page */
    unsigned char reserved[4];
} OverlayParam;

/* ---- exported functions ------------------------------------------------- */

/* Start-up and clean-up, reference counted: call QuillonStartup first and
 * QuillonCleanup once per QuillonStartup. QuillonStartup returns -1 when
 * Velmor.dll is missing beside the library; QuillonCleanup always 0. */
QUILLON_API int QUILLON_CALL QuillonStartup(void);
QUILLON_API int QUILLON_CALL QuillonCleanup(void);

/* Decoder family: handles from QuillonDecoderCreate stay valid for the life
 * of the process (release frees the decoder's resources, a later Initial
 * sets it up again); every other function returns -1 for an unknown handle. */
QUILLON_API QuillonDecoderHandle QUILLON_CALL QuillonDecoderCreate(void* reserved, unsigned int reservedSize);
QUILLON_API int QUILLON_CALL QuillonDecoderInitial(QuillonDecoderHandle handle, CreateNeed* createNeed,
                                                   CreateNeedExtern* createNeedExtern);
QUILLON_API int QUILLON_CALL QuillonDecoderDecodeOneFrame(QuillonDecoderHandle handle, unsigned char* frameData,
                                                          unsigned int length, DecOut* decOut);
QUILLON_API int QUILLON_CALL QuillonDecoderRelease(QuillonDecoderHandle handle);

/* Render family: handles from QuillonRenderCreate; every other function
 * returns -1 for an unknown handle. */
QUILLON_API QuillonRenderHandle QUILLON_CALL QuillonRenderCreate(void* reserved, unsigned int reservedSize);
QUILLON_API int QUILLON_CALL QuillonRenderInitDevice(QuillonRenderHandle handle, void* initParam, int size);
QUILLON_API int QUILLON_CALL QuillonRenderShowFrame(QuillonRenderHandle handle, void* frame, unsigned int size);
QUILLON_API int QUILLON_CALL QuillonRenderGetDrawInfo(QuillonRenderHandle handle, void* drawInfo, unsigned int size);
QUILLON_API int QUILLON_CALL QuillonRenderSetWnd(QuillonRenderHandle handle, HWND hWnd);
QUILLON_API int QUILLON_CALL QuillonRenderConfig(QuillonRenderHandle handle, unsigned int command, void* data,
                                                 unsigned int size);
QUILLON_API int QUILLON_CALL QuillonRenderRelease(QuillonRenderHandle handle);

#ifdef __cplusplus
}
#endif

/* ---- layout checks ------------------------------------------------------ */
/* MSVC reports __cplusplus as 199711L unless /Zc:__cplusplus is given. */
#if defined(__cplusplus) && (__cplusplus >= 201103L || (defined(_MSC_VER) && _MSC_VER >= 1900))
#define QUILLON_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QUILLON_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#ifdef QUILLON_STATIC_ASSERT
#include <stddef.h>
/* decoder layout checks */
QUILLON_STATIC_ASSERT(sizeof(CreateNeed) == 40 && offsetof(CreateNeed, VideoMode) == 8, "CreateNeed");
QUILLON_STATIC_ASSERT(offsetof(CreateNeed, deviceSlot) == 32, "CreateNeed.deviceSlot");
QUILLON_STATIC_ASSERT(sizeof(CreateNeedExtern) == 24 && offsetof(CreateNeedExtern, userContext) == 16, "CreateNeedExtern");
QUILLON_STATIC_ASSERT(sizeof(FrameHead) == 32 && offsetof(FrameHead, timestamp) == 16, "FrameHead");
QUILLON_STATIC_ASSERT(offsetof(FrameHead, payloadLength) == 20, "FrameHead.payloadLength");
QUILLON_STATIC_ASSERT(offsetof(DecOut, width) == 12 && offsetof(DecOut, height) == 16, "DecOut size fields");
QUILLON_STATIC_ASSERT(offsetof(DecOut, timestamp) == 36 && offsetof(DecOut, surfaceRecordSize) == 844, "DecOut");
QUILLON_STATIC_ASSERT(offsetof(DecOut, surfaceRecord) == 848 && sizeof(DecOut) == 856, "DecOut.surfaceRecord");
QUILLON_STATIC_ASSERT(sizeof(SurfaceRecord) == 136 && offsetof(SurfaceRecord, sliceIndex) == 128, "SurfaceRecord");
/* render layout checks */
QUILLON_STATIC_ASSERT(sizeof(RenderInitParam) == 72 && offsetof(RenderInitParam, device) == 24, "RenderInitParam");
QUILLON_STATIC_ASSERT(sizeof(DrawInfo) == 8, "DrawInfo");
QUILLON_STATIC_ASSERT(sizeof(ShowFrameData) == 112, "ShowFrameData size");
QUILLON_STATIC_ASSERT(offsetof(ShowFrameData, width) == 16 && offsetof(ShowFrameData, height) == 20, "ShowFrameData size fields");
QUILLON_STATIC_ASSERT(offsetof(ShowFrameData, texture) == 24 && offsetof(ShowFrameData, eraseOnRelease) == 32, "ShowFrameData texture");
QUILLON_STATIC_ASSERT(offsetof(ShowFrameData, lineSize) == 72 && offsetof(ShowFrameData, arraySlice) == 108, "ShowFrameData slice");
QUILLON_STATIC_ASSERT(sizeof(NV12ReadBack) == 40 && offsetof(NV12ReadBack, width) == 12, "NV12ReadBack");
QUILLON_STATIC_ASSERT(offsetof(NV12ReadBack, data) == 24 && offsetof(NV12ReadBack, rowPitch) == 32, "NV12ReadBack out");
QUILLON_STATIC_ASSERT(sizeof(DrawCallBackParam) == 16 && offsetof(DrawCallBackParam, user) == 8, "DrawCallBackParam");
QUILLON_STATIC_ASSERT(sizeof(EZoomArea) == 32 && offsetof(EZoomArea, bottom) == 24, "EZoomArea");
QUILLON_STATIC_ASSERT(sizeof(DstRect) == 16 && offsetof(DstRect, bottom) == 12, "DstRect");
/* overlay layout checks */
QUILLON_STATIC_ASSERT(sizeof(OverlayPoint) == 8, "OverlayPoint size");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, closed) == 0, "OverlayParam.closed");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, color) == 4, "OverlayParam.color");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, lineWidth) == 8, "OverlayParam.lineWidth");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, pointCount) == 12, "OverlayParam.pointCount");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, points) == 16, "OverlayParam.points");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, text) == 272, "OverlayParam.text");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, spacing) == 400, "OverlayParam.spacing");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, fontType) == 404, "OverlayParam.fontType");
QUILLON_STATIC_ASSERT(offsetof(OverlayParam, charset) == 408, "OverlayParam.charset");
QUILLON_STATIC_ASSERT(sizeof(OverlayParam) == 416, "OverlayParam size");
#endif

#endif /* QUILLON_SDK_H */
