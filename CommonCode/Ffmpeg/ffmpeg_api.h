#pragma once
// Run-time binding of FFmpeg 7. Nothing links FFmpeg: its module(s) are
// loaded from the directory of QuillonSDK.dll and every entry point is
// resolved by name into a slot. The rest of the library calls FFmpeg only
// through the ff_ wrappers, which report an empty slot on stderr and return
// the failure value of their result type instead of crashing.
//
// Slots, binding and wrappers all come from ffmpeg_ops.inc.
#include <windows.h>

#include <cstdint>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
#include <libavformat/avio.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/file.h>
#include <libavutil/hwcontext.h>
#include <libavutil/imgutils.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

// One slot per row, typed as the function's own prototype; null until bound.
#define FF_API(group, slot, name, ret, params, args, kind) extern ret(*g_pfn_##slot) params;
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API

// The wrappers: ff_<slot> with the function's own parameters and result.
#define FF_DECLARE_CALL(slot, ret, params) ret ff_##slot params;
#define FF_DECLARE_LEGACY FF_DECLARE_CALL
#define FF_DECLARE_NOFWD FF_DECLARE_CALL
#define FF_DECLARE_SLOT(slot, ret, params)
#define FF_API(group, slot, name, ret, params, args, kind) FF_DECLARE_##kind(slot, ret, params)
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
