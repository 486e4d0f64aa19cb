// QuillonSelfCheck: run on the target Windows machine before deploying the
// SDK. Reports the adapter, its driver and Direct3D 11 feature level, which
// H.264/HEVC decoder profiles the video device offers at 720p, 1080p and
// 2160p, then decodes the clip embedded in this program through
// QuillonSDK.dll on the GPU, reads every picture back as NV12 (render
// command 0) and compares it with FFmpeg's software decode of the same clip.
//
// Exit codes: 0 PASS, 1 FAIL, 2 hardware decoding unavailable on this
// machine, 3 the check could not run (no Direct3D 11 device, module missing).
#include <d3d11.h>
#include <dxgi.h>
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "QuillonSDK.h"
#include "player/PlayerSource.h"
#include "player/QuillonSdkApi.h"
#include "selfcheck/SelfCheckCompare.h"
#include "xop/ComUtil.h"

namespace {

enum ExitCode { kPass = 0, kFail = 1, kUnavailable = 2, kCannotRun = 3 };

// Decoder profile GUIDs of the video device (values from the Direct3D 11
// video headers, spelled out so no GUID library is needed).
const GUID kProfileH264 = {0x1b81be68, 0xa0c7, 0x11d3, {0xb9, 0x84, 0x00, 0xc0, 0x4f, 0x2e, 0x73, 0xc5}};
const GUID kProfileHevcMain = {0x5b11d51b, 0x2f4c, 0x4452, {0xbc, 0xc3, 0x09, 0xf2, 0xa1, 0x16, 0x0c, 0xc0}};

struct CodecRow {
    const char* name;
    const GUID* profile;
};
const CodecRow kCodecs[] = {{"H.264", &kProfileH264}, {"HEVC", &kProfileHevcMain}};
const SIZE kSizes[] = {{1280, 720}, {1920, 1080}, {3840, 2160}};

const char* FeatureLevelName(D3D_FEATURE_LEVEL level)
{
    switch (level) {
    case D3D_FEATURE_LEVEL_12_1: return "12_1";
    case D3D_FEATURE_LEVEL_12_0: return "12_0";
    case D3D_FEATURE_LEVEL_11_1: return "11_1";
    case D3D_FEATURE_LEVEL_11_0: return "11_0";
    case D3D_FEATURE_LEVEL_10_1: return "10_1";
    case D3D_FEATURE_LEVEL_10_0: return "10_0";
    default: return "below 10_0";
    }
}

// Adapter description and driver version of the device's adapter.
void PrintAdapter(ID3D11Device* device)
{
    IDXGIDevice* dxgiDevice = nullptr;
    IDXGIAdapter* adapter = nullptr;
    DXGI_ADAPTER_DESC desc = {};
    if (SUCCEEDED(device->QueryInterface(__uuidof(IDXGIDevice), reinterpret_cast<void**>(&dxgiDevice))) &&
        SUCCEEDED(dxgiDevice->GetAdapter(&adapter)) && SUCCEEDED(adapter->GetDesc(&desc))) {
        char name[256] = {};
        WideCharToMultiByte(CP_UTF8, 0, desc.Description, -1, name, sizeof(name) - 1, nullptr, nullptr);
        printf("Adapter:        %s (vendor 0x%04x, device 0x%04x, %u MB video memory)\n", name,
               unsigned(desc.VendorId), unsigned(desc.DeviceId), unsigned(desc.DedicatedVideoMemory >> 20));
        LARGE_INTEGER version = {};
        if (SUCCEEDED(adapter->CheckInterfaceSupport(__uuidof(IDXGIDevice), &version)))
            printf("Driver:         %u.%u.%u.%u\n", unsigned(HIWORD(version.HighPart)), unsigned(LOWORD(version.HighPart)),
                   unsigned(HIWORD(version.LowPart)), unsigned(LOWORD(version.LowPart)));
        else
            printf("Driver:         unknown\n");
    } else {
        printf("Adapter:        unknown\nDriver:         unknown\n");
    }
    xop::SafeRelease(adapter);
    xop::SafeRelease(dxgiDevice);
}

bool HasProfile(ID3D11VideoDevice* video, const GUID& profile)
{
    const UINT count = video->GetVideoDecoderProfileCount();
    for (UINT i = 0; i < count; ++i) {
        GUID g;
        if (SUCCEEDED(video->GetVideoDecoderProfile(i, &g)) && IsEqualGUID(g, profile)) return true;
    }
    return false;
}

// The capability table; `video` NULL prints it with every cell "n/a".
// Returns whether the H.264 profile decodes 1080p to NV12.
bool PrintCapabilities(ID3D11VideoDevice* video)
{
    bool h264Ready = false;
    printf("\n%-6s %-10s %-8s %-5s %s\n", "Codec", "Size", "Profile", "NV12", "Configs");
    for (const CodecRow& codec : kCodecs) {
        const bool profile = video && HasProfile(video, *codec.profile);
        BOOL nv12 = FALSE;
        if (profile) video->CheckVideoDecoderFormat(codec.profile, DXGI_FORMAT_NV12, &nv12);
        for (const SIZE& size : kSizes) {
            char dims[16];
            snprintf(dims, sizeof(dims), "%ldx%ld", size.cx, size.cy);
            if (!video) {
                printf("%-6s %-10s %-8s %-5s %s\n", codec.name, dims, "n/a", "n/a", "n/a");
                continue;
            }
            UINT configs = 0;
            if (profile && nv12) {
                D3D11_VIDEO_DECODER_DESC desc = {*codec.profile, UINT(size.cx), UINT(size.cy), DXGI_FORMAT_NV12};
                if (FAILED(video->GetVideoDecoderConfigCount(&desc, &configs))) configs = 0;
            }
            if (codec.profile == &kProfileH264 && size.cy == 1080 && configs > 0) h264Ready = true;
            printf("%-6s %-10s %-8s %-5s %u\n", codec.name, dims, profile ? "yes" : "no", nv12 ? "yes" : "no", configs);
        }
    }
    return h264Ready;
}

// Writes the clip embedded as resource "CLIP" to a temporary file for
// FFmpeg's demuxer; returns its path or "" on failure.
std::string ExtractClip()
{
    HRSRC res = FindResourceA(nullptr, "CLIP", MAKEINTRESOURCEA(10) /* RT_RCDATA */);
    HGLOBAL loaded = res ? LoadResource(nullptr, res) : nullptr;
    const void* bytes = loaded ? LockResource(loaded) : nullptr;
    const DWORD size = res ? SizeofResource(nullptr, res) : 0;
    char dir[MAX_PATH];
    if (!bytes || !size || !GetTempPathA(MAX_PATH, dir)) return "";
    const std::string path = std::string(dir) + "QuillonSelfCheck-" + std::to_string(GetCurrentProcessId()) + ".264";
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return "";
    const bool ok = fwrite(bytes, 1, size, f) == size;
    fclose(f);
    return ok ? path : "";
}

struct Clip {
    int width = 0;
    int height = 0;
    std::vector<std::vector<uint8_t>> units;
    std::vector<int64_t> times;
    std::map<int64_t, I420Picture> reference;  // software pictures by timestamp
};

// Demuxes the embedded clip and decodes it in software as the reference.
bool LoadClip(Clip& clip)
{
    const std::string path = ExtractClip();
    if (path.empty()) {
        printf("Clip:           cannot extract the embedded clip\n");
        return false;
    }
    PlayerSource source;
    bool ok = source.Open(path) && source.StartSoftwareDecoder();
    if (ok) {
        clip.width = source.Width();
        clip.height = source.Height();
        std::vector<uint8_t> unit;
        int64_t ts = 0;
        std::vector<I420Picture> pictures;
        while (ok && source.NextAccessUnit(unit, ts)) {
            clip.units.push_back(unit);
            clip.times.push_back(ts);
            ok = source.DecodeSoftware(unit, ts, pictures);
        }
        ok = ok && source.DecodeSoftware({}, 0, pictures);
        for (I420Picture& p : pictures) clip.reference[p.timestampMs] = std::move(p);
    }
    if (!ok) printf("Clip:           %s\n", source.Error().c_str());
    DeleteFileA(path.c_str());
    if (ok)
        printf("Clip:           H.264 %dx%d, %zu frames embedded, %zu decoded in software\n", clip.width, clip.height,
               clip.units.size(), clip.reference.size());
    return ok;
}

struct Outcome {
    int decoded = 0;
    int compared = 0;
    int failed = 0;
    std::string error;
};

// Decodes the clip through the SDK on the renderer's device and compares
// every picture read back with the software reference.
Outcome DecodeAndCompare(QuillonSdkApi& sdk, const Clip& clip)
{
    Outcome o;
    QuillonRenderHandle render = sdk.QuillonRenderCreate(nullptr, 0);
    RenderInitParam init;
    memset(&init, 0, sizeof(init));  // no window: a device without a swap chain
    int rc = render ? sdk.QuillonRenderInitDevice(render, &init, sizeof(init)) : -1;
    QuillonDecoderHandle decoder = nullptr;
    if (rc != 0) {
        o.error = "QuillonRenderInitDevice returned " + std::to_string(rc);
    } else {
        decoder = sdk.QuillonDecoderCreate(nullptr, 0);
        CreateNeed need;
        memset(&need, 0, sizeof(need));
        need.iWidth = clip.width;
        need.iHeight = clip.height;
        need.VideoMode = QUILLON_VIDEO_H264;
        need.deviceSlot = &init.device;
        CreateNeedExtern needExtern;
        memset(&needExtern, 0, sizeof(needExtern));
        rc = decoder ? sdk.QuillonDecoderInitial(decoder, &need, &needExtern) : -1;
        if (rc != 0) o.error = "QuillonDecoderInitial returned " + std::to_string(rc);
    }
    if (o.error.empty()) printf("\n%-6s %-9s %-8s %-8s %-8s %s\n", "Frame", "Time(ms)", "PSNR-Y", "PSNR-U", "PSNR-V", "Result");
    for (size_t i = 0; o.error.empty() && i < clip.units.size(); ++i) {
        SurfaceRecord surface;
        DecOut out;
        rc = sdk.DecodeUnit(decoder, clip.units[i], static_cast<unsigned int>(clip.times[i]), out, surface);
        if (rc != 0) {
            o.error = "QuillonDecoderDecodeOneFrame returned " + std::to_string(rc) + " at frame " + std::to_string(i);
            break;
        }
        if (!surface.texture) continue;  // held back by the decoder for now
        ++o.decoded;
        NV12ReadBack readBack;
        memset(&readBack, 0, sizeof(readBack));
        readBack.texture = surface.texture;
        readBack.arraySlice = surface.sliceIndex;
        readBack.width = unsigned(out.width);
        readBack.height = unsigned(out.height);
        sdk.QuillonRenderConfig(render, QUILLON_CMD_TEXTURE2D_TO_NV12, &readBack, sizeof(readBack));
        auto ref = clip.reference.find(out.timestamp);
        if (ref == clip.reference.end() || !readBack.data || ref->second.width != out.width ||
            ref->second.height != out.height) {
            printf("%-6d %-9d %-8s %-8s %-8s FAIL (%s)\n", o.decoded, out.timestamp, "-", "-", "-",
                   readBack.data ? "no software picture of that time and size" : "read-back failed");
            ++o.failed;
            continue;
        }
        const FramePsnr psnr = Nv12VersusI420(static_cast<const uint8_t*>(readBack.data), readBack.rowPitch,
                                              ReadBackChromaRow(out.height), ref->second.bytes.data(), out.width,
                                              out.height);
        const bool pass = FramePasses(psnr);
        ++o.compared;
        if (!pass) ++o.failed;
        printf("%-6d %-9d %-8.2f %-8.2f %-8.2f %s\n", o.decoded, out.timestamp, psnr.y, psnr.u, psnr.v,
               pass ? "PASS" : "FAIL");
    }
    if (decoder) sdk.QuillonDecoderRelease(decoder);
    if (render) sdk.QuillonRenderRelease(render);
    return o;
}

int Verdict(int code, const std::string& text)
{
    static const char* const names[] = {"PASS", "FAIL", "UNAVAILABLE", "ERROR"};
    printf("\nResult: %s - %s\n", names[code], text.c_str());
    return code;
}

}  // namespace

int main()
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    printf("QuillonSelfCheck %s\n\n", QUILLON_SELFCHECK_VERSION);

    ID3D11Device* device = nullptr;
    ID3D11DeviceContext* context = nullptr;
    D3D_FEATURE_LEVEL level = D3D_FEATURE_LEVEL_9_1;
    // The highest level first; runtimes without 11_1 refuse a list naming it,
    // and some drivers refuse the video flag: try the next combination then.
    static const D3D_FEATURE_LEVEL levels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0, D3D_FEATURE_LEVEL_10_1,
                                               D3D_FEATURE_LEVEL_10_0};
    HRESULT hr = E_FAIL;
    for (UINT flags : {UINT(D3D11_CREATE_DEVICE_VIDEO_SUPPORT), 0u})
        for (UINT first = 0; first < 2 && FAILED(hr); ++first)
            hr = D3D11CreateDevice(nullptr, D3D_DRIVER_TYPE_HARDWARE, nullptr, flags, levels + first,
                                   UINT(sizeof(levels) / sizeof(levels[0])) - first, D3D11_SDK_VERSION, &device, &level,
                                   &context);
    if (FAILED(hr)) {
        printf("Direct3D 11:    no hardware device (0x%08lx)\n", static_cast<unsigned long>(hr));
        return Verdict(kCannotRun, "no Direct3D 11 hardware device");
    }
    PrintAdapter(device);
    printf("Feature level:  %s\n", FeatureLevelName(level));

    ID3D11VideoDevice* video = nullptr;
    hr = device->QueryInterface(__uuidof(ID3D11VideoDevice), reinterpret_cast<void**>(&video));
    if (FAILED(hr)) {
        video = nullptr;
        printf("Video device:   not available (0x%08lx)\n", static_cast<unsigned long>(hr));
    } else {
        printf("Video device:   available\n");
    }
    const bool h264Ready = PrintCapabilities(video);
    xop::SafeRelease(video);
    xop::SafeRelease(context);
    xop::SafeRelease(device);
    printf("\n");

    Clip clip;
    if (!LoadClip(clip)) return Verdict(kCannotRun, "the embedded clip cannot be decoded in software");

    QuillonSdkApi sdk;
    std::string error;
    if (!sdk.Load(error)) return Verdict(kCannotRun, error);
    if (sdk.QuillonStartup() != 0) printf("SDK:            QuillonStartup failed (Velmor.dll missing?)\n");
    const Outcome o = DecodeAndCompare(sdk, clip);
    sdk.QuillonCleanup();

    if (!o.error.empty()) {
        printf("SDK decode:     %s\n", o.error.c_str());
        if (!h264Ready) return Verdict(kUnavailable, "hardware decoding is not available on this machine");
        return Verdict(kFail, "hardware decoding failed although the device offers it");
    }
    printf("\nCompared %d of %d pictures (%zu frames in the clip), threshold %.1f dB\n", o.compared, o.decoded,
           clip.units.size(), kPassThresholdDb);
    if (o.compared == 0) return Verdict(kFail, "no picture came out of the hardware decoder");
    if (o.failed > 0) return Verdict(kFail, std::to_string(o.failed) + " picture(s) differ from the software decode");
    return Verdict(kPass, "hardware decoding matches the software decode");
}
