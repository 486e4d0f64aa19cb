#include "player/PlayerSource.h"

#include <cstdio>
#include <cstring>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <windows.h>

#include <atomic>

namespace {

// The FFmpeg functions the player uses, bound by name from ffmpeg-7.dll at
// run time (the executables import system DLLs only); prototypes from the
// FFmpeg 7 headers.
#define PLAYER_FFMPEG_FUNCTIONS(X) \
    X(av_bsf_alloc) X(av_bsf_free) X(av_bsf_get_by_name) \
    X(av_bsf_init) X(av_bsf_receive_packet) X(av_bsf_send_packet) \
    X(av_frame_alloc) X(av_frame_free) X(av_frame_unref) \
    X(av_new_packet) X(av_packet_alloc) X(av_packet_free) \
    X(av_packet_unref) X(av_read_frame) X(av_rescale_q) \
    X(av_strerror) X(avcodec_alloc_context3) X(avcodec_find_decoder) \
    X(avcodec_free_context) X(avcodec_open2) X(avcodec_parameters_copy) \
    X(avcodec_receive_frame) X(avcodec_send_packet) X(avformat_close_input) \
    X(avformat_find_stream_info) X(avformat_open_input) X(sws_freeContext) \
    X(sws_getCachedContext) X(sws_scale) X(av_log_set_callback) \
    X(av_log_default_callback) X(av_log_format_line2)

struct FfmpegModule {
#define PLAYER_FFMPEG_SLOT(name) decltype(&::name) name = nullptr;
    PLAYER_FFMPEG_FUNCTIONS(PLAYER_FFMPEG_SLOT)
#undef PLAYER_FFMPEG_SLOT
    std::string missing;  // empty when every function is bound

    FfmpegModule()
    {
        HMODULE module = LoadLibraryA("ffmpeg-7.dll");
        if (!module) {
            missing = "cannot load ffmpeg-7.dll";
            return;
        }
#define PLAYER_FFMPEG_BIND(name)                                                                     \
    name = reinterpret_cast<decltype(name)>(reinterpret_cast<void*>(GetProcAddress(module, #name))); \
    if (!name && missing.empty()) missing = "ffmpeg-7.dll lacks " #name;
        PLAYER_FFMPEG_FUNCTIONS(PLAYER_FFMPEG_BIND)
#undef PLAYER_FFMPEG_BIND
    }
};

const FfmpegModule& ff()
{
    static const FfmpegModule module;
    return module;
}

std::atomic<int> g_loggedErrors{0};
thread_local int t_loggedErrors = 0;
const char* g_programName = "QuillonPlay";

bool FromDecoder(void* avcl)
{
    const AVClass* cls = avcl ? *static_cast<const AVClass* const*>(avcl) : nullptr;
    return cls && cls->class_name && strcmp(cls->class_name, "AVCodecContext") == 0;
}

// FFmpeg's errors, and the decoder's warnings (a skipped NAL unit, a
// concealed slice), are the player's decode-error reports; everything else
// goes to FFmpeg's default output. May be called from decoding threads.
void LogCallback(void* avcl, int level, const char* fmt, va_list vl)
{
    if (level > AV_LOG_ERROR && !(level <= AV_LOG_WARNING && FromDecoder(avcl))) {
        ff().av_log_default_callback(avcl, level, fmt, vl);
        return;
    }
    char line[1024] = {};
    int printPrefix = 1;
    ff().av_log_format_line2(avcl, level, fmt, vl, line, sizeof(line), &printPrefix);
    ++g_loggedErrors;
    ++t_loggedErrors;
    fprintf(stderr, "%s: decode error: %s%s", g_programName, line, strchr(line, '\n') ? "" : "\n");
}

}  // namespace

int PlayerSource::LoggedErrors() { return g_loggedErrors; }
int PlayerSource::ThreadLoggedErrors() { return t_loggedErrors; }
void PlayerSource::SetProgramName(const char* name) { g_programName = name; }

PlayerSource::~PlayerSource()
{
    if (!ff().missing.empty()) return;  // nothing was ever allocated
    ff().sws_freeContext(m_sws);
    ff().av_frame_free(&m_frame);
    ff().av_packet_free(&m_packet);
    ff().avcodec_free_context(&m_decoder);
    ff().av_bsf_free(&m_bsf);
    ff().avformat_close_input(&m_format);
}

bool PlayerSource::Fail(const std::string& what, int err)
{
    m_error = what;
    if (err < 0) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        ff().av_strerror(err, text, sizeof(text));
        m_error += std::string(": ") + text;
    }
    return false;
}

bool PlayerSource::Open(const std::string& path)
{
    if (!ff().missing.empty()) return Fail(ff().missing);
    ff().av_log_set_callback(LogCallback);
    int err = ff().avformat_open_input(&m_format, path.c_str(), nullptr, nullptr);
    if (err < 0) return Fail("cannot open " + path, err);
    err = ff().avformat_find_stream_info(m_format, nullptr);
    if (err < 0) return Fail("cannot read stream information", err);

    for (unsigned i = 0; i < m_format->nb_streams && m_stream < 0; ++i) {
        const AVCodecParameters* par = m_format->streams[i]->codecpar;
        if (par->codec_id == AV_CODEC_ID_H264 || par->codec_id == AV_CODEC_ID_HEVC) m_stream = static_cast<int>(i);
    }
    if (m_stream < 0) return Fail("no H.264 or HEVC stream in " + path);
    const AVStream* stream = m_format->streams[m_stream];
    const AVCodecParameters* par = stream->codecpar;
    m_hevc = par->codec_id == AV_CODEC_ID_HEVC;
    m_width = par->width;
    m_height = par->height;
    m_tbNum = stream->time_base.num;
    m_tbDen = stream->time_base.den;
    const AVRational rate = stream->avg_frame_rate.num > 0 ? stream->avg_frame_rate : stream->r_frame_rate;
    if (rate.num > 0 && rate.den > 0) {
        m_rateNum = rate.num;
        m_rateDen = rate.den;
    }
    if (m_width <= 0 || m_height <= 0) return Fail("the stream has no picture size");

    // MP4 and Matroska keep parameter sets out of band and prefix NAL units
    // with lengths; raw Annex B input is already what the decoder wants.
    const uint8_t* extra = par->extradata;
    const bool annexB = par->extradata_size < 4 || (extra[0] == 0 && extra[1] == 0 && (extra[2] == 1 || (extra[2] == 0 && extra[3] == 1)));
    if (!annexB) {
        const AVBitStreamFilter* filter = ff().av_bsf_get_by_name(m_hevc ? "hevc_mp4toannexb" : "h264_mp4toannexb");
        if (!filter) return Fail("no Annex B conversion filter in the FFmpeg module");
        err = ff().av_bsf_alloc(filter, &m_bsf);
        if (err >= 0) err = ff().avcodec_parameters_copy(m_bsf->par_in, par);
        if (err >= 0) {
            m_bsf->time_base_in = stream->time_base;
            err = ff().av_bsf_init(m_bsf);
        }
        if (err < 0) return Fail("cannot set up the Annex B conversion", err);
    }
    m_packet = ff().av_packet_alloc();
    m_frame = ff().av_frame_alloc();
    if (!m_packet || !m_frame) return Fail("out of memory");
    return true;
}

bool PlayerSource::ReceiveFiltered(std::vector<uint8_t>& unit, int64_t& timestampMs)
{
    if (m_bsf && ff().av_bsf_receive_packet(m_bsf, m_packet) < 0) return false;
    const int64_t ts = m_packet->pts != AV_NOPTS_VALUE ? m_packet->pts : m_packet->dts;
    // Raw Annex B files carry no timestamps: count frames at the stream's rate.
    timestampMs = ts != AV_NOPTS_VALUE ? ff().av_rescale_q(ts, AVRational{m_tbNum, m_tbDen}, AVRational{1, 1000})
                                       : m_units * 1000 * m_rateDen / m_rateNum;
    ++m_units;
    unit.assign(m_packet->data, m_packet->data + m_packet->size);
    ff().av_packet_unref(m_packet);
    return true;
}

bool PlayerSource::NextAccessUnit(std::vector<uint8_t>& unit, int64_t& timestampMs)
{
    for (;;) {
        if (m_bsf && ReceiveFiltered(unit, timestampMs)) return true;
        if (m_eof) return false;
        const int err = ff().av_read_frame(m_format, m_packet);
        if (err < 0) {
            m_eof = true;
            if (m_bsf) ff().av_bsf_send_packet(m_bsf, nullptr);
            continue;
        }
        if (m_packet->stream_index != m_stream || m_packet->size <= 0) {
            ff().av_packet_unref(m_packet);
            continue;
        }
        if (!m_bsf) return ReceiveFiltered(unit, timestampMs);
        if (ff().av_bsf_send_packet(m_bsf, m_packet) < 0) ff().av_packet_unref(m_packet);
    }
}

bool PlayerSource::StartSoftwareDecoder()
{
    const AVCodec* codec = ff().avcodec_find_decoder(m_hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264);
    if (!codec) return Fail("no software decoder in the FFmpeg module");
    m_decoder = ff().avcodec_alloc_context3(codec);
    if (!m_decoder) return Fail("out of memory");
    // Parameter sets travel in band, as for the hardware decoder.
    m_decoder->width = m_width;
    m_decoder->height = m_height;
    m_decoder->pkt_timebase = AVRational{1, 1000};
    const int err = ff().avcodec_open2(m_decoder, codec, nullptr);
    if (err < 0) return Fail("cannot open the software decoder", err);
    return true;
}

bool PlayerSource::DecodeSoftware(const std::vector<uint8_t>& unit, int64_t timestampMs, std::vector<I420Picture>& out)
{
    if (!m_decoder) return Fail("the software decoder is not open");
    int err;
    if (unit.empty()) {
        err = ff().avcodec_send_packet(m_decoder, nullptr);
    } else {
        if (ff().av_new_packet(m_packet, static_cast<int>(unit.size())) < 0) return Fail("out of memory");
        memcpy(m_packet->data, unit.data(), unit.size());
        m_packet->pts = m_packet->dts = timestampMs;
        err = ff().avcodec_send_packet(m_decoder, m_packet);
        ff().av_packet_unref(m_packet);
    }
    if (err < 0 && err != AVERROR_EOF) return Fail("software decoding failed", err);
    while ((err = ff().avcodec_receive_frame(m_decoder, m_frame)) >= 0) {
        out.emplace_back();
        ToI420(m_frame, out.back());
        ff().av_frame_unref(m_frame);
    }
    if (err != AVERROR(EAGAIN) && err != AVERROR_EOF) return Fail("software decoding failed", err);
    return true;
}

void PackI420(const uint8_t* const src[3], const int stride[3], int w, int h, uint8_t* out)
{
    uint8_t* dst[3] = {out, out + w * h, out + w * h * 5 / 4};
    for (int p = 0; p < 3; ++p) {
        const int width = p ? w / 2 : w, rows = p ? h / 2 : h;
        for (int y = 0; y < rows; ++y) memcpy(dst[p] + y * width, src[p] + y * stride[p], width);
    }
}

void PlayerSource::ToI420(const AVFrame* frame, I420Picture& picture)
{
    // Even sizes keep the packed chroma planes exactly a quarter of luma.
    const int w = frame->width & ~1;
    const int h = frame->height & ~1;
    picture.width = w;
    picture.height = h;
    picture.timestampMs = frame->best_effort_timestamp != AV_NOPTS_VALUE ? frame->best_effort_timestamp : frame->pts;
    picture.damaged = (frame->flags & AV_FRAME_FLAG_CORRUPT) || frame->decode_error_flags;
    picture.bytes.assign(static_cast<size_t>(w) * h * 3 / 2, 0);
    uint8_t* planes[4] = {picture.bytes.data(), picture.bytes.data() + w * h, picture.bytes.data() + w * h * 5 / 4,
                          nullptr};
    int strides[4] = {w, w / 2, w / 2, 0};
    const AVPixelFormat format = static_cast<AVPixelFormat>(frame->format);
    if (format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P) {
        PackI420(frame->data, frame->linesize, w, h, picture.bytes.data());
        return;
    }
    m_sws = ff().sws_getCachedContext(m_sws, frame->width, frame->height, format, w, h, AV_PIX_FMT_YUV420P, SWS_POINT,
                                 nullptr, nullptr, nullptr);
    if (m_sws) ff().sws_scale(m_sws, frame->data, frame->linesize, 0, frame->height, planes, strides);
}
