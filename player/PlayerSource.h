#pragma once
// The player's input: FFmpeg's demuxer on an H.264 or HEVC file (raw Annex B,
// MP4 or Matroska), each access unit turned into an Annex B packet with its
// parameter sets in band (what QuillonSDK's decoder expects), and a software
// decoder for hosts where the hardware decoder cannot be set up.
#include <cstdint>
#include <string>
#include <vector>

struct AVFormatContext;
struct AVBSFContext;
struct AVCodecContext;
struct AVPacket;
struct AVFrame;
struct SwsContext;

// One I420 picture, planes packed without padding: Y (w*h), U, V (w/2*h/2).
struct I420Picture {
    int width = 0;
    int height = 0;
    int64_t timestampMs = 0;
    bool damaged = false;  // the decoder concealed errors in this picture
    std::vector<uint8_t> bytes;
};

// Copies a w x h 4:2:0 picture from planes with their own strides into
// `out`, packed as I420Picture::bytes (w and h even).
void PackI420(const uint8_t* const src[3], const int stride[3], int w, int h, uint8_t* out);

class PlayerSource {
public:
    PlayerSource() = default;
    ~PlayerSource();
    PlayerSource(const PlayerSource&) = delete;
    PlayerSource& operator=(const PlayerSource&) = delete;

    // Opens the file and picks its first H.264 or HEVC stream. On failure
    // returns false with the reason in Error().
    bool Open(const std::string& path);
    const std::string& Error() const { return m_error; }

    int Width() const { return m_width; }
    int Height() const { return m_height; }
    bool IsHevc() const { return m_hevc; }
    // Frames per second from the container, 25 where it gives none.
    double FrameRate() const { return static_cast<double>(m_rateNum) / m_rateDen; }

    // Next access unit as Annex B bytes and its timestamp in milliseconds.
    // False at the end of the stream or on a read error.
    bool NextAccessUnit(std::vector<uint8_t>& unit, int64_t& timestampMs);

    // Software decoding of access units from NextAccessUnit; an empty unit
    // drains the decoder. Appends every picture that came out.
    bool StartSoftwareDecoder();
    bool DecodeSoftware(const std::vector<uint8_t>& unit, int64_t timestampMs, std::vector<I420Picture>& out);

    // Errors FFmpeg itself reported (each also printed as a decode error),
    // in all and on the calling thread (software decoders decode on the
    // thread that feeds them).
    static int LoggedErrors();
    static int ThreadLoggedErrors();
    // Program name that begins each printed decode error (default QuillonPlay).
    static void SetProgramName(const char* name);

private:
    bool Fail(const std::string& what, int err = 0);
    bool ReceiveFiltered(std::vector<uint8_t>& unit, int64_t& timestampMs);
    void ToI420(const AVFrame* frame, I420Picture& picture);

    AVFormatContext* m_format = nullptr;
    AVBSFContext* m_bsf = nullptr;
    AVCodecContext* m_decoder = nullptr;
    AVPacket* m_packet = nullptr;
    AVFrame* m_frame = nullptr;
    SwsContext* m_sws = nullptr;
    int m_stream = -1;
    int m_width = 0;
    int m_height = 0;
    bool m_hevc = false;
    bool m_eof = false;
    int m_tbNum = 1;
    int m_tbDen = 1000;
    int64_t m_rateNum = 25;  // frame rate for streams without timestamps
    int64_t m_rateDen = 1;
    int64_t m_units = 0;
    std::string m_error;
};
