#include "CommonCode/Ffmpeg/ffmpeg_other_api.h"

#include <initializer_list>
#include <type_traits>

#include "core/core_api.h"
#include "core/load_lib.h"

// The remaining declarations the rows are checked against.
extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/file.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

// A row's prototype must be the one the FFmpeg 7 headers declare; some of
// them (av_init_packet, avcodec_close) are marked deprecated there.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
// (and some carry attributes such as warn_unused_result that the type drops)
#pragma GCC diagnostic ignored "-Wignored-attributes"

#define FF_CHECK_CALL(name, ret, params) \
    static_assert(std::is_same_v<ret(*) params, decltype(&::name)>, #name " differs from the FFmpeg headers");
#define FF_CHECK_NOFWD FF_CHECK_CALL
#define FF_CHECK_SLOT FF_CHECK_CALL
#define FF_CHECK_LEGACY(name, ret, params)
#define FF_API(group, slot, name, ret, params, args, kind) FF_CHECK_##kind(name, ret, params)
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API

#define FF_API(group, slot, name, ret, params, args, kind) ret(*g_pfn_##slot) params = nullptr;
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API

namespace {

HMODULE g_hAvformat = nullptr;
HMODULE g_hAvcodec = nullptr;
HMODULE g_hAvutil = nullptr;
HMODULE g_hAvfilter = nullptr;
HMODULE g_hSwscale = nullptr;
HMODULE g_hSwresample = nullptr;
HMODULE g_hFfmpeg = nullptr;

// What a wrapper returns for an empty slot: null, -1, or a zero value
// (the rational {0, 0}, AV_HWDEVICE_TYPE_NONE).
template <typename R>
R ff_failure()
{
    if constexpr (std::is_void_v<R>) {
        return;
    } else if constexpr (std::is_pointer_v<R>) {
        return nullptr;
    } else if constexpr (std::is_integral_v<R>) {
        return static_cast<R>(-1);
    } else {
        return R{};
    }
}

enum class Group { avformat, avutil, avcodec, avfilter, swscale, swresample };

void bind_group(Group group, HMODULE module)
{
#define FF_API(grp, slot, name, ret, params, args, kind) \
    if (group == Group::grp) bind_proc(g_pfn_##slot, module, #name);
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API
}

// How one load operation reports and binds.
struct LoadRule {
    const char* func;
    HMODULE* handle;
    void (*bind)(HMODULE);
    const char* success;  // core_log_msg format
    const char* failure;
    bool errorLog;        // failure through the error-log sequence, else a message line
    bool retryAltered;    // a second attempt with LOAD_WITH_ALTERED_SEARCH_PATH, which binds nothing
};

int load_module(const LoadRule& rule, const char* libName, const char* selfModuleName)
{
    if (!libName) {
        core_report_missing(__LINE__, rule.func);
        return -1;
    }
    if (*rule.handle || !*libName) {
        return 0;
    }
    *rule.handle = load_lib_beside_module(selfModuleName, libName, nullptr, false);
    if (*rule.handle) {
        core_log_msg(rule.success, libName);
        rule.bind(*rule.handle);
        return 0;
    }
    if (rule.errorLog) {
        QUILLON_LOG_ERROR(rule.func, __LINE__, rule.failure, libName);
    } else {
        core_log_msg(rule.failure, libName);
    }
    if (rule.retryAltered) {
        *rule.handle = load_lib_beside_module(selfModuleName, libName, nullptr, true);
        if (*rule.handle) {
            core_log_msg("load ffmpeg lib %s success!", libName);
            return 0;
        }
    }
    return -1;
}

void bind_all(HMODULE module)
{
    ff_load_avformat_dynamic_lib(module);
    ff_load_avcodec_dynamic_lib(module);
    ff_load_avutil_dynamic_lib(module);
    ff_load_avfilter_dynamic_lib(module);
    ff_load_swscale_dynamic_lib(module);
    ff_load_swresample_dynamic_lib(module);
}

void bind_or_report(Group group, HMODULE module, const char* func, const char* message)
{
    if (!module) {
        QUILLON_LOG_ERROR(func, __LINE__, "%s", message);
        return;
    }
    bind_group(group, module);
}

}  // namespace

// --- loading --------------------------------------------------------------------
// The separate loads differ on purpose: avfilter, swscale and swresample
// report at message level, and swscale alone tries a second time.

#define FF_LIB_OK "load ffmpeg lib %s success!"
#define FF_LIB_FAIL "load ffmpeg lib %s fail!"

namespace {
const LoadRule kAsOne = {"ff_load_ffmpeg_as_one", &g_hFfmpeg, bind_all, FF_LIB_OK, FF_LIB_FAIL, true, false};
const LoadRule kAvformat = {"ff_load_avformat_lib", &g_hAvformat, ff_load_avformat_dynamic_lib, FF_LIB_OK, FF_LIB_FAIL,
                            true, false};
const LoadRule kAvutil = {"ff_load_avutil_lib", &g_hAvutil, ff_load_avutil_dynamic_lib, FF_LIB_OK, FF_LIB_FAIL, true,
                          false};
const LoadRule kAvcodec = {"ff_load_avcodec_lib", &g_hAvcodec, ff_load_avcodec_dynamic_lib, FF_LIB_OK, FF_LIB_FAIL,
                           true, false};
const LoadRule kAvfilter = {"ff_load_avfilter_lib", &g_hAvfilter, ff_load_avfilter_dynamic_lib,
                            "load ffmpeg avfilter lib %s success!", "load ffmpeg avfilter lib %s fail!", false, false};
const LoadRule kSwscale = {"ff_load_swscale_lib", &g_hSwscale, ff_load_swscale_dynamic_lib,
                           "load ffmpeg swscale lib %s success!", "load ffmpeg swscale lib %s fail!", false, true};
const LoadRule kSwresample = {"ff_load_swresample_lib", &g_hSwresample, ff_load_swresample_dynamic_lib,
                              "load ffmpeg swresample lib %s success!", "load ffmpeg swresample lib %s fail!", false,
                              false};
}  // namespace

int ff_load_ffmpeg_as_one(const char* libName, const char* self) { return load_module(kAsOne, libName, self); }
int ff_load_avformat_lib(const char* libName, const char* self) { return load_module(kAvformat, libName, self); }
int ff_load_avutil_lib(const char* libName, const char* self) { return load_module(kAvutil, libName, self); }
int ff_load_avcodec_lib(const char* libName, const char* self) { return load_module(kAvcodec, libName, self); }
int ff_load_avfilter_lib(const char* libName, const char* self) { return load_module(kAvfilter, libName, self); }
int ff_load_swscale_lib(const char* libName, const char* self) { return load_module(kSwscale, libName, self); }
int ff_load_swresample_lib(const char* libName, const char* self) { return load_module(kSwresample, libName, self); }

// --- binding --------------------------------------------------------------------
// Two groups report with another group's text; the texts are kept as they are.

void ff_load_avformat_dynamic_lib(HMODULE module)
{
    bind_or_report(Group::avformat, module, "ff_load_avformat_dynamic_lib", "load ff_load_avformat_dynamic_lib lib faild!");
}

void ff_load_avutil_dynamic_lib(HMODULE module)
{
    bind_or_report(Group::avutil, module, "ff_load_avutil_dynamic_lib", "load ff_load_avcodec_dynamic_lib lib faild!");
}

void ff_load_avcodec_dynamic_lib(HMODULE module)
{
    bind_or_report(Group::avcodec, module, "ff_load_avcodec_dynamic_lib", "load ff_load_avcodec_dynamic_lib lib faild!");
}

void ff_load_avfilter_dynamic_lib(HMODULE module)
{
    bind_or_report(Group::avfilter, module, "ff_load_avfilter_dynamic_lib", "load ff_load_avfilter_dynamic_lib lib faild!");
}

void ff_load_swscale_dynamic_lib(HMODULE module)
{
    bind_or_report(Group::swscale, module, "ff_load_swscale_dynamic_lib", "load ff_load_swscale_dynamic_lib lib faild!");
}

void ff_load_swresample_dynamic_lib(HMODULE module)
{
    bind_or_report(Group::swresample, module, "ff_load_swresample_dynamic_lib",
                   "load ff_load_swscale_dynamic_lib lib faild!");
}

int ff_check_codec_api()
{
#define FF_REQUIRE(slot)                                      \
    if (!g_pfn_##slot) {                                      \
        core_report_missing(__LINE__, "ff_check_codec_api");  \
        return -1;                                            \
    }
    FF_REQUIRE(av_buffer_create)
    FF_REQUIRE(avcodec_find_decoder)
    FF_REQUIRE(avcodec_find_encoder)
    FF_REQUIRE(avcodec_open2)
    FF_REQUIRE(avcodec_alloc_context3)
    FF_REQUIRE(avcodec_free_context)
    FF_REQUIRE(avcodec_close)
    FF_REQUIRE(av_init_packet)
    FF_REQUIRE(av_frame_alloc)
    FF_REQUIRE(av_free)
    FF_REQUIRE(av_freep)
    FF_REQUIRE(av_frame_free)
    FF_REQUIRE(av_image_alloc)
    FF_REQUIRE(av_hwdevice_ctx_create)
    FF_REQUIRE(av_mallocz)
    FF_REQUIRE(av_hwframe_get_buffer)
    FF_REQUIRE(av_frame_move_ref)
    FF_REQUIRE(av_frame_unref)
    FF_REQUIRE(av_frame_copy_props)
    FF_REQUIRE(av_hwframe_transfer_data)
    FF_REQUIRE(av_hwframe_ctx_init)
    FF_REQUIRE(av_buffer_unref)
    FF_REQUIRE(av_hwframe_ctx_alloc)
#undef FF_REQUIRE
    return 0;
}

void ff_unload_ffmpeg_libs()
{
    for (HMODULE* handle : {&g_hAvformat, &g_hAvcodec, &g_hAvutil, &g_hAvfilter, &g_hSwscale, &g_hFfmpeg, &g_hSwresample}) {
        if (*handle) {
            FreeLibrary(*handle);
            *handle = nullptr;
        }
    }
}

// --- wrappers -------------------------------------------------------------------

#define FF_WRAP_CALL(slot, ret, params, args)                  \
    ret ff_##slot params                                       \
    {                                                          \
        if (!g_pfn_##slot) {                                   \
            core_report_missing(__LINE__, "ff_" #slot);        \
            return ff_failure<ret>();                          \
        }                                                      \
        return g_pfn_##slot args;                              \
    }
#define FF_WRAP_LEGACY FF_WRAP_CALL
#define FF_WRAP_SLOT(slot, ret, params, args)
#define FF_WRAP_NOFWD(slot, ret, params, args)
#define FF_API(group, slot, name, ret, params, args, kind) FF_WRAP_##kind(slot, ret, params, args)
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API

// FFmpeg's own logging never passes through here: with the entry point bound
// this does nothing at all.
void ff_av_log(void* /*avcl*/, int /*level*/, const char* /*fmt*/, ...)
{
    if (!g_pfn_av_log) {
        core_report_missing(__LINE__, "ff_av_log");
    }
}
