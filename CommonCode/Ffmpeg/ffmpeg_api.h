#pragma once
// Run-time binding of FFmpeg 7. Nothing links FFmpeg: its module(s) are
// loaded from the directory of QuillonSDK.dll and every entry point is
// resolved by name into a slot. The rest of the library calls FFmpeg only
// through the ff_ wrappers, which report an empty slot on stderr and return
// the failure value of their result type instead of crashing.
//
// Slots, binding and wrappers all come from ffmpeg_ops.inc. This header
// declares those of the avcodec and avutil groups, the ones decoding uses,
// and needs only libavcodec's and libavutil's headers; the groups that are
// bound but never called (avformat, avfilter, swscale, swresample) are
// declared in ffmpeg_other_api.h.
#include <windows.h>

#include <cstdint>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
}

// Types of avcodec- and avutil-group rows declared by other FFmpeg headers;
// the rows only pass pointers to them.
typedef struct AVAudioFifo AVAudioFifo;
typedef struct AVBufferSrcParameters AVBufferSrcParameters;
typedef struct AVFilterContext AVFilterContext;
typedef struct AVPixFmtDescriptor AVPixFmtDescriptor;

// A row's declarations: its slot, typed as the function's own prototype and
// null until bound, and (except for SLOT rows) its wrapper ff_<slot> with the
// function's own parameters and result.
#define FF_DECLARE_CALL(slot, ret, params) ret ff_##slot params;
#define FF_DECLARE_LEGACY FF_DECLARE_CALL
#define FF_DECLARE_NOFWD FF_DECLARE_CALL
#define FF_DECLARE_SLOT(slot, ret, params)
#define FF_DECLARE(slot, ret, params, kind) \
    extern ret(*g_pfn_##slot) params;       \
    FF_DECLARE_##kind(slot, ret, params)

#define FF_DECODING_avcodec FF_DECLARE
#define FF_DECODING_avutil FF_DECLARE
#define FF_DECODING_avformat(...)
#define FF_DECODING_avfilter(...)
#define FF_DECODING_swscale(...)
#define FF_DECODING_swresample(...)
#define FF_API(group, slot, name, ret, params, args, kind) FF_DECODING_##group(slot, ret, params, kind)
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API

// Loading. 0 = loaded now or before (or nothing to do), -1 = failure.
// Start-up uses the one-module layout: ff_load_ffmpeg_as_one("ffmpeg-7.dll", "QuillonSDK.dll").
int ff_load_ffmpeg_as_one(const char* libName, const char* selfModuleName);
int ff_load_avformat_lib(const char* libName, const char* selfModuleName);
int ff_load_avutil_lib(const char* libName, const char* selfModuleName);
int ff_load_avcodec_lib(const char* libName, const char* selfModuleName);
int ff_load_avfilter_lib(const char* libName, const char* selfModuleName);
int ff_load_swscale_lib(const char* libName, const char* selfModuleName);
int ff_load_swresample_lib(const char* libName, const char* selfModuleName);

// Binding of one group from the module given.
void ff_load_avformat_dynamic_lib(HMODULE module);
void ff_load_avutil_dynamic_lib(HMODULE module);
void ff_load_avcodec_dynamic_lib(HMODULE module);
void ff_load_avfilter_dynamic_lib(HMODULE module);
void ff_load_swscale_dynamic_lib(HMODULE module);
void ff_load_swresample_dynamic_lib(HMODULE module);

// 0 when every entry point decoding needs is bound, else -1 (first gap reported).
int ff_check_codec_api();

// Frees every loaded module and clears its handle; the slots keep their values.
void ff_unload_ffmpeg_libs();
