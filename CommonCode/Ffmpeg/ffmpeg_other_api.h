#pragma once
// The rest of the FFmpeg binding: slots and wrappers of the groups that are
// bound but that the library never calls (avformat, avfilter, swscale,
// swresample), with the FFmpeg headers their prototypes need. Only the
// binding itself and its tests include this.
#include "CommonCode/Ffmpeg/ffmpeg_api.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#define FF_OTHER_avcodec(...)
#define FF_OTHER_avutil(...)
#define FF_OTHER_avformat FF_DECLARE
#define FF_OTHER_avfilter FF_DECLARE
#define FF_OTHER_swscale FF_DECLARE
#define FF_OTHER_swresample FF_DECLARE
#define FF_API(group, slot, name, ret, params, args, kind) FF_OTHER_##group(slot, ret, params, kind)
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API
