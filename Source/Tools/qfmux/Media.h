// Media files as libavformat reads them: what tracks an input has, and one track's frames in decoding order.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

struct AvDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

// One compressed frame. Times in 100 ns units.
struct Frame {
    std::unique_ptr<AVPacket, AvDeleter> m_Packet;
    std::int64_t m_Presentation = 0;
    std::int64_t m_Decode = 0;
    std::int32_t m_Duration = 0;
    bool m_Key = false;
};

// An open media file. Throws ToolError when it cannot be read.
class MediaFile {
public:
    explicit MediaFile(const std::string& path);

    const std::string& Path() const { return m_Path; }
    // The first usable stream of that kind, or null.
    AVStream* FindStream(AVMediaType type) const;
    AVFormatContext* Context() const { return m_Context.get(); }

private:
    std::string m_Path;
    std::unique_ptr<AVFormatContext, AvDeleter> m_Context;
};

// Frames per second of a video stream, 25 when the file does not tell.
double FrameRate(AVFormatContext* context, AVStream* stream);

// The frames of one stream. Each reader has the file open for itself, so that the tracks of a badly interleaved file
// can be read side by side without holding one of them in memory.
class TrackReader {
public:
    // filters: bitstream filters in libavcodec's notation, or empty.
    TrackReader(const std::string& path, int streamIndex, const std::string& filters);

    // What comes out of the filters.
    const AVCodecParameters& Parameters() const { return *m_Filter->par_out; }

    // Codec set-up octets: those of the file, or those that a filter found in the frames read so far.
    const std::vector<std::uint8_t>& SetupData() const { return m_SetupData; }

    // Reads the next frame; false at the end. Throws ToolError for a damaged file.
    bool Next(Frame& frame);

private:
    bool NextPacket(AVPacket& packet);

    MediaFile m_File;
    AVStream* m_pStream;
    std::unique_ptr<AVBSFContext, AvDeleter> m_Filter;
    std::vector<std::uint8_t> m_SetupData;
    std::int64_t m_FrameDuration; // 100 ns, for frames that do not tell theirs
    std::int64_t m_NextDecode = 0;
};
