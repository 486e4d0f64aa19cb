// The exported functions of QuillonSDK.dll (names and ordinals in
// QuillonSDK.def): the reference-counted start-up and clean-up, then one
// forwarder per handle function.
#include "CommonCode/Ffmpeg/ffmpeg_api.h"
#include "core/core_api.h"
#include "include/QuillonSDK.h"
#include "interface/CLS_DecoderManager.h"
#include "interface/CLS_RenderManager.h"

// Outstanding QuillonStartup calls. Start-up and clean-up are called from one
// thread; nothing guards this.
static int g_iStartupCount = 0;

extern "C" {

int QUILLON_CALL QuillonStartup(void)
{
    if (g_iStartupCount > 0) {
        ++g_iStartupCount;
        core_log_msg("[QuillonStartup] already Startup!");
        return 0;
    }
    const int iRet = CLS_VelmorApi::GetInstance().LoadOSSDK("QuillonSDK.dll", NULL, NULL);
    // A missing FFmpeg is logged where it is loaded and surfaces when a
    // decoder is set up; start-up itself succeeds.
    ff_load_ffmpeg_as_one("ffmpeg-7.dll", "QuillonSDK.dll");
    // The first start-up deliberately writes the same text as later ones,
    // but as an error record.
    QUILLON_LOG_ERROR("QuillonStartup", 37, "[QuillonStartup] already Startup!");
    g_iStartupCount = 1;
    return iRet;
}

int QUILLON_CALL QuillonCleanup(void)
{
    if (g_iStartupCount == 1) {
        // Leaves Velmor.dll and FFmpeg loaded: logging keeps working and a
        // later start-up finds both in place.
        CLS_VelmorApi::ReleaseInstance();
        g_iStartupCount = 0;
        return 0;
    }
    if (--g_iStartupCount < 0) {
        g_iStartupCount = 0;
    }
    return 0;
}

// --- decoders -------------------------------------------------------------------

QuillonDecoderHandle QUILLON_CALL QuillonDecoderCreate(void* reserved, unsigned int reservedSize)
{
    return CLS_DecoderManager::GetInstance().Create(reserved, reservedSize);
}

int QUILLON_CALL QuillonDecoderInitial(QuillonDecoderHandle handle, CreateNeed* createNeed,
                                       CreateNeedExtern* createNeedExtern)
{
    return CLS_DecoderManager::GetInstance().Initial(handle, createNeed, createNeedExtern);
}

int QUILLON_CALL QuillonDecoderDecodeOneFrame(QuillonDecoderHandle handle, unsigned char* frameData,
                                              unsigned int length, DecOut* decOut)
{
    return CLS_DecoderManager::GetInstance().DecodeOneFrame(handle, frameData, length, decOut);
}

int QUILLON_CALL QuillonDecoderRelease(QuillonDecoderHandle handle)
{
    return CLS_DecoderManager::GetInstance().Release(handle);
}

}  // extern "C"

// --- renderers -------------------------------------------------------------------

extern "C" {

QuillonRenderHandle QUILLON_CALL QuillonRenderCreate(void* reserved, unsigned int reservedSize)
{
    return CLS_RenderManager::GetInstance().Create(reserved, reservedSize);
}

int QUILLON_CALL QuillonRenderInitDevice(QuillonRenderHandle handle, void* initParam, int size)
{
    return CLS_RenderManager::GetInstance().InitDevice(handle, initParam, size);
}

int QUILLON_CALL QuillonRenderShowFrame(QuillonRenderHandle handle, void* frame, unsigned int size)
{
    return CLS_RenderManager::GetInstance().ShowFrame(handle, frame, size);
}

int QUILLON_CALL QuillonRenderGetDrawInfo(QuillonRenderHandle handle, void* drawInfo, unsigned int size)
{
    return CLS_RenderManager::GetInstance().GetDrawInfo(handle, drawInfo, size);
}

int QUILLON_CALL QuillonRenderSetWnd(QuillonRenderHandle handle, HWND hWnd)
{
    return CLS_RenderManager::GetInstance().SetWnd(handle, hWnd);
}

int QUILLON_CALL QuillonRenderConfig(QuillonRenderHandle handle, unsigned int command, void* data, unsigned int size)
{
    return CLS_RenderManager::GetInstance().Config(handle, command, data, size);
}

int QUILLON_CALL QuillonRenderRelease(QuillonRenderHandle handle)
{
    return CLS_RenderManager::GetInstance().Release(handle);
}

}  // extern "C"
