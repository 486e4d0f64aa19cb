// The FFmpeg binding against the real ffmpeg-7.dll (staged beside QuillonSDK.dll with the recording Velmor.dll).
// The suites run in file order: the first needs the binding of this executable still unloaded.
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <set>
#include <string>

#include "CommonCode/Ffmpeg/ffmpeg_other_api.h"
#include "core/core_api.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::Count;
using testkit::StagedDir;
using testkit::StderrCapture;
using testkit::TakeVelmorCalls;

namespace {

struct Row {
    const char* slot;
    const char* name;
    void** pointer;
    int line;  // of the row in the table
};

// Every slot of the binding with the name it is looked up by.
const Row kRows[] = {
#define FF_API(group, slot, name, ret, params, args, kind) \
    {#slot, #name, reinterpret_cast<void**>(&g_pfn_##slot), __LINE__},
#include "CommonCode/Ffmpeg/ffmpeg_ops.inc"
#undef FF_API
};

// The slots each group's bind operation fills from FFmpeg 7 (names it no longer exports left out), written out here
// so that a row in the wrong group shows.
const std::map<std::string, std::set<std::string>> kGroups = {
    {"avformat", {"avformat_alloc_context", "avio_alloc_context", "avio_context_free", "avformat_free_context",
                  "avformat_open_input", "avformat_close_input", "avformat_find_stream_info", "av_read_frame",
                  "av_find_best_stream", "av_dump_format", "avformat_alloc_output_context2", "avformat_new_stream",
                  "av_write_trailer", "avio_closep", "av_interleaved_write_frame", "av_probe_input_buffer",
                  "avformat_write_header", "avio_open", "av_find_input_format", "av_guess_frame_rate"}},
    {"avutil", {"av_malloc", "av_free", "av_strerror", "av_file_map", "av_file_unmap", "av_rescale_q_rnd",
                "av_rescale_q", "av_freep", "av_strdup", "av_frame_free", "av_frame_alloc", "av_opt_set_bin",
                "av_opt_set", "av_image_alloc", "av_log", "av_buffer_create", "av_image_copy_to_buffer",
                "av_hwdevice_ctx_create", "av_mallocz", "av_hwframe_get_buffer", "av_frame_move_ref", "av_frame_unref",
                "av_frame_copy_props", "av_hwframe_transfer_data", "av_hwframe_ctx_init", "av_buffer_unref",
                "av_hwframe_ctx_alloc", "av_hwdevice_ctx_alloc", "av_hwdevice_ctx_init", "av_buffer_ref",
                "av_hwdevice_get_type_name", "av_sample_fmt_is_planar", "av_get_bytes_per_sample",
                "av_buffersrc_parameters_alloc", "av_buffersrc_parameters_set", "av_int_list_length_for_size",
                "avfilter_free", "av_samples_get_buffer_size", "av_audio_fifo_alloc", "av_audio_fifo_realloc",
                "av_audio_fifo_write", "av_audio_fifo_read", "av_audio_fifo_free", "av_audio_fifo_size",
                "av_frame_get_buffer", "av_rescale_rnd"}},
    {"avcodec", {"av_init_packet", "av_packet_free", "av_packet_unref", "avcodec_open2",
                 "avcodec_parameters_to_context", "avcodec_alloc_context3", "avcodec_find_decoder", "avcodec_close",
                 "avcodec_find_encoder", "av_free_context", "av_packet_copy_props", "av_packet_from_data",
                 "avcodec_find_decoder_by_name", "avcodec_free_context", "avcodec_send_packet", "avcodec_receive_frame",
                 "avcodec_flush_buffers", "av_parser_init", "av_parser_parse2", "av_parser_close",
                 "avcodec_get_hw_config", "av_hwdevice_find_type_by_name", "av_pix_fmt_desc_get", "avcodec_send_frame",
                 "avcodec_receive_packet", "av_packet_alloc", "av_hwdevice_iterate_types"}},
    {"avfilter", {"av_buffersrc_add_frame_flags", "av_buffersink_get_frame", "avfilter_inout_alloc",
                  "avfilter_graph_alloc", "avfilter_get_by_name", "avfilter_graph_create_filter",
                  "avfilter_graph_parse_ptr", "avfilter_graph_config", "avfilter_inout_free", "avfilter_graph_free"}},
    {"swscale", {"sws_getContext", "sws_scale", "sws_freeContext"}},
    {"swresample", {"swr_alloc", "swr_init", "swr_free", "swr_close", "swr_convert", "swr_is_initialized",
                    "swr_get_delay", "swr_get_out_samples", "swr_alloc_set_opts2"}},
};

// The stderr reports of empty slots: "<line of the row in the table>,ff_<slot>".
std::string Reports(std::initializer_list<std::string> slots) {
    std::string all;
    for (const std::string& slot : slots) {
        int line = -1;
        for (const Row& r : kRows)
            if (slot == r.slot) line = r.line;
        all += std::to_string(line) + ",ff_" + slot;
    }
    return all;
}

void ClearSlots() { for (const Row& r : kRows) *r.pointer = nullptr; }

// The slots that are filled.
std::set<std::string> Bound() {
    std::set<std::string> out;
    for (const Row& r : kRows)
        if (*r.pointer) out.insert(r.slot);
    return out;
}

// An error-log record of the binding (its lines are not fixed: the position line is checked up to the line number).
void ExpectBindingError(Calls calls, const std::string& func, const std::string& message) {
    const std::string position = "sdk_log_buf_msg(file: CommonCode/Ffmpeg/ffmpeg_api.cpp, func:" + func + ", line: ";
    ASSERT_EQ(calls.size(), 5u) << func;
    EXPECT_EQ(calls[3].rfind(position, 0), 0u) << calls[3];
    calls[3] = position;
    EXPECT_EQ(calls, (Calls{"sdk_log_buf_lock", "sdk_log_buf_date", "sdk_log_get_level", position,
                            "sdk_err_buf_msg_unlock(" + message + ")"}));
}

}  // namespace

TEST(FfmpegUnbound, WrappersReportAndReturnTheFailureValueOfTheirType) {
    ASSERT_TRUE(Bound().empty()) << "this suite must run first";
    StderrCapture err;
    EXPECT_EQ(ff_avcodec_find_decoder(AV_CODEC_ID_H264), nullptr);
    EXPECT_EQ(ff_avcodec_open2(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(ff_av_rescale_q(1, AVRational{1, 2}, AVRational{1, 3}), -1);
    const AVRational rate = ff_av_guess_frame_rate(nullptr, nullptr, nullptr);
    EXPECT_EQ(std::make_pair(rate.num, rate.den), std::make_pair(0, 0));
    ff_av_init_packet(nullptr);
    ff_av_free_context(nullptr);
    ff_avcodec_free_context(nullptr);
    EXPECT_EQ(ff_av_hwdevice_iterate_types(AV_HWDEVICE_TYPE_NONE), AV_HWDEVICE_TYPE_NONE);
    EXPECT_EQ(ff_av_int_list_length_for_size(4, nullptr, 0), UINT_MAX);
    EXPECT_EQ(err.Take(),
              Reports({"avcodec_find_decoder", "avcodec_open2", "av_rescale_q", "av_guess_frame_rate", "av_init_packet",
                       "av_free_context", "avcodec_free_context", "av_hwdevice_iterate_types",
                       "av_int_list_length_for_size"}));

    // Hand-written reports: their lines are not fixed.
    ff_av_log(nullptr, 0, "x");
    EXPECT_EQ(ff_check_codec_api(), -1);
    EXPECT_EQ(ff_load_ffmpeg_as_one(nullptr, "QuillonSDK.dll"), -1);
    EXPECT_EQ(ff_load_swscale_lib(nullptr, "QuillonSDK.dll"), -1);
    const std::string more = err.Take();
    for (const char* func : {",ff_av_log", ",ff_check_codec_api", ",ff_load_ffmpeg_as_one", ",ff_load_swscale_lib"})
        EXPECT_EQ(Count(more, func), 1u) << more;
}

class RealFfmpeg : public testkit::RecordingTest {
protected:
    static void SetUpTestSuite() {
        ASSERT_TRUE(Stage("ffmpeg_real").bound);
        ASSERT_EQ(CLS_VelmorApi::GetInstance().LoadOSSDK("QuillonSDK.dll", nullptr, nullptr), 0);
    }
};

// Each group's separate load and bind operation: how each reports a failure (two bind texts name another group, as
// they always have) and which slots each binds. An empty name loads nothing.
TEST_F(RealFfmpeg, EachGroupReportsInItsOwnWayAndBindsOnlyItsOwnSlots) {
    const struct {
        const char* group;
        int (*load)(const char*, const char*);
        void (*bind)(HMODULE);
        const char* lib;       // the load's own word in its lines
        bool errorRecord;      // a failed load logs an error record, else a message
        const char* bindText;  // the group a failed bind names
    } cases[] = {
        {"avformat", ff_load_avformat_lib, ff_load_avformat_dynamic_lib, "", true, "avformat"},
        {"avutil", ff_load_avutil_lib, ff_load_avutil_dynamic_lib, "", true, "avcodec"},
        {"avcodec", ff_load_avcodec_lib, ff_load_avcodec_dynamic_lib, "", true, "avcodec"},
        {"avfilter", ff_load_avfilter_lib, ff_load_avfilter_dynamic_lib, "avfilter ", false, "avfilter"},
        {"swscale", ff_load_swscale_lib, ff_load_swscale_dynamic_lib, "swscale ", false, "swscale"},
        {"swresample", ff_load_swresample_lib, ff_load_swresample_dynamic_lib, "swresample ", false, "swscale"},
    };
    for (const auto& c : cases) {
        const std::string load = std::string("ff_load_") + c.group + "_lib";
        const std::string text = std::string("load ffmpeg ") + c.lib + "lib ";
        ClearSlots();
        c.bind(nullptr);
        ExpectBindingError(TakeVelmorCalls(), std::string("ff_load_") + c.group + "_dynamic_lib",
                           std::string("load ff_load_") + c.bindText + "_dynamic_lib lib faild!");
        EXPECT_EQ(c.load("", "QuillonSDK.dll"), 0) << load;
        EXPECT_EQ(c.load("absent.dll", "QuillonSDK.dll"), -1) << load;
        if (c.errorRecord) {
            ExpectBindingError(TakeVelmorCalls(), load, text + "absent.dll fail!");
        } else {
            EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(" + text + "absent.dll fail!)"}));
        }
        EXPECT_TRUE(Bound().empty());
        ASSERT_EQ(c.load("ffmpeg-7.dll", "QuillonSDK.dll"), 0) << load;
        EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(" + text + "ffmpeg-7.dll success!)"}));
        EXPECT_EQ(Bound(), kGroups.at(c.group)) << c.group;
        // Loaded already: nothing to do, nothing logged.
        EXPECT_EQ(c.load("absent.dll", "QuillonSDK.dll"), 0);
        EXPECT_EQ(TakeVelmorCalls(), Calls{});
    }
    ff_unload_ffmpeg_libs();
    ClearSlots();
}

TEST_F(RealFfmpeg, SwscaleSecondAttemptLoadsWithoutBinding) {
    // Staged as the only module: the one-module layout is not loaded yet.
    static StagedDir dir("swscale_retry");
    dir.Add("QuillonSDK.dll").Add("FfTestSwscale.dll", "swscale-8.dll");
    dir.Add("..\\sibling\\FfTestDependency.dll", "FfTestDependency.dll");
    Stage("ffmpeg_real").Unload();
    HMODULE sdk = dir.Load("QuillonSDK.dll");
    ASSERT_NE(sdk, nullptr);
    EXPECT_EQ(ff_load_swscale_lib("swscale-8.dll", "QuillonSDK.dll"), 0);
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(load ffmpeg swscale lib swscale-8.dll fail!)",
                                        "sdk_log_get_level", "sdk_log_msg(load ffmpeg lib swscale-8.dll success!)"}));
    EXPECT_TRUE(Bound().empty());
    ff_unload_ffmpeg_libs();
    EXPECT_EQ(GetModuleHandleA("swscale-8.dll"), nullptr);
    FreeLibrary(sdk);
    Stage("ffmpeg_real").Load();
    ASSERT_TRUE(Stage("ffmpeg_real").bound);
}

TEST_F(RealFfmpeg, OneModuleBindsEveryNameFfmpeg7Exports) {
    EXPECT_EQ(ff_load_ffmpeg_as_one("", "QuillonSDK.dll"), 0);
    EXPECT_EQ(ff_load_ffmpeg_as_one("absent.dll", "QuillonSDK.dll"), -1);
    ExpectBindingError(TakeVelmorCalls(), "ff_load_ffmpeg_as_one", "load ffmpeg lib absent.dll fail!");
    ASSERT_EQ(ff_load_ffmpeg_as_one("ffmpeg-7.dll", "QuillonSDK.dll"), 0);
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(load ffmpeg lib ffmpeg-7.dll success!)"}));
    HMODULE ffmpeg = GetModuleHandleA("ffmpeg-7.dll");
    ASSERT_NE(ffmpeg, nullptr);
    // Every slot holds what the module exports under the row's name (null for the names FFmpeg 7 no longer has).
    for (const Row& r : kRows) EXPECT_EQ(*r.pointer, reinterpret_cast<void*>(GetProcAddress(ffmpeg, r.name))) << r.name;
    EXPECT_EQ(g_pfn_av_free_context, g_pfn_avcodec_free_context);
    StderrCapture err;
    ff_av_register_all();
    EXPECT_EQ(err.Take(), Reports({"av_register_all"}));
    ff_av_log(nullptr, AV_LOG_PANIC, "never forwarded\n");
    EXPECT_EQ(err.Take(), "");
}

TEST_F(RealFfmpeg, CheckCodecApiStopsAtTheFirstGap) {
    EXPECT_EQ(ff_check_codec_api(), 0);
    StderrCapture err;
    auto saved = g_pfn_av_frame_alloc;
    auto savedLater = g_pfn_av_hwframe_ctx_alloc;
    g_pfn_av_frame_alloc = nullptr;
    g_pfn_av_hwframe_ctx_alloc = nullptr;
    EXPECT_EQ(ff_check_codec_api(), -1);
    const std::string once = err.Take();
    g_pfn_av_frame_alloc = saved;
    EXPECT_EQ(ff_check_codec_api(), -1);
    const std::string later = err.Take();
    g_pfn_av_hwframe_ctx_alloc = savedLater;
    EXPECT_EQ(Count(once, ",ff_check_codec_api"), 1u) << once;
    EXPECT_EQ(Count(later, ",ff_check_codec_api"), 1u) << later;
    EXPECT_NE(once, later);  // each check reports its own line
}
