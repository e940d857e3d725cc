// Media files as libavformat reads them: what streams an input has, and one stream's frames in decoding order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

#include "TimeLine.h"

struct AvDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
template <class Object>
using AvPtr = std::unique_ptr<Object, AvDeleter>;

// libavutil's words for one of its error codes.
std::string AvReason(int error);

// One compressed frame. Times in 100 ns units.
struct Frame {
    AvPtr<AVPacket> m_Packet;
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
    AVFormatContext* Context() const { return m_Context.get(); }
    // The file's streams of that kind, without attached pictures and those of which nothing is known.
    std::vector<AVStream*> Streams(AVMediaType type) const;
    // Whether the file has the stream's sample rate, or the size of its pictures.
    static bool IsKnown(const AVStream* stream);
    // Whether its times may jump by design and count from anywhere, as those of broadcasts do.
    bool HasLooseTimes() const { return (m_Context->iformat->flags & AVFMT_TS_DISCONT) != 0; }
    // When it begins, 100 ns, for formats that count from anywhere; else 0.
    std::int64_t Origin() const;
    // Whether the container keeps codec set-up data for the stream, outside its frames.
    bool HasSetup(const AVStream* stream) const;
    // Frames per second of a video stream, 25 when the file does not tell.
    double FrameRate(AVStream* stream) const;

private:
    void Open(bool looksFar);

    std::string m_Path;
    AvPtr<AVFormatContext> m_Context;
    std::set<int> m_WithSetup; // indexes of streams
};

// Reads a file once for all of its chosen streams. A packet of another stream than the one asked for waits; where too
// much waits, in a badly interleaved file, the stream that is so far behind has the file opened for itself.
class PacketSource {
public:
    // file: for this source alone. streams: their indexes. shift: of all times, 100 ns.
    // Throws ToolError when the file lacks a stream.
    PacketSource(std::shared_ptr<MediaFile> file, std::set<int> streams, std::int64_t shift);

    MediaFile& File() const { return *m_File; }
    // Reads the stream's next packet. Returns 0 or libavformat's error, AVERROR_EOF at the end.
    int Next(int stream, AVPacket& packet);
    // In the times of what has been read for that stream.
    int Jumps(int stream) const;

private:
    struct Chosen {
        bool m_IsAskedFor = true; // here, and not in a source of its own
        std::deque<AvPtr<AVPacket>> m_Waiting;
        std::uint64_t m_Taken = 0;             // packets handed out
        std::unique_ptr<PacketSource> m_Alone; // once it has the file for itself
    };
    int OpenForItself(int stream, AVPacket& packet);

    std::shared_ptr<MediaFile> m_File;
    const std::set<int> m_Streams;
    const std::int64_t m_Shift;
    TimeLine m_TimeLine;
    std::map<int, Chosen> m_Chosen;
    std::size_t m_WaitingOctets = 0;
    int m_End = 0; // what ended the file
};

// Presentation times for pictures that came without: raw streams have none, AVI files only those of decoding,
// broadcasts some. Pictures are held until their place in presentation order is known; one without a time then follows
// the one in front of it. Where none has a time the n-th one presented takes the time at which the n-th was decoded.
//
// H.264 numbers its pictures in that order; 16 of them at most wait (its largest picture buffer). In MPEG-4 a
// B picture is presented at once, any other when the next such one comes. libavformat knows the latter rule, but not
// that frames may be taken apart behind it, as those of MPEG-4 are.
class PictureOrder {
public:
    explicit PictureOrder(const AVCodecParameters& parameters);

    // Whether there is a rule for the codec.
    static bool Knows(AVCodecID codec);

    // In decoding order. isTold: whether the file tells when it is presented.
    void Push(Frame frame, bool isTold);
    void Flush(); // no more frames come
    // Takes the oldest frame whose presentation time is known; false when there is none.
    bool Pop(Frame& frame);

private:
    struct Held {
        Frame m_Frame;
        std::int64_t m_Order; // smaller is presented earlier, among those not placed
        bool m_IsTold;
        bool m_Placed;
    };
    void PlaceEarliest();

    bool m_IsH264;
    AvPtr<AVCodecContext> m_Codec;
    AvPtr<AVCodecParserContext> m_Parser;
    std::deque<Held> m_Held;
    std::deque<std::int64_t> m_DecodeTimes; // of frames not placed yet
    std::optional<std::int64_t> m_Next;     // when the one placed last ends, once the file told of one
    std::size_t m_Unplaced = 0;
    std::int64_t m_Pushed = 0;
};

// The frames of one stream.
class TrackReader {
public:
    // source: with this stream among its chosen. filters: bitstream filters in libavcodec's notation, or empty.
    TrackReader(std::shared_ptr<PacketSource> source, int streamIndex, const std::string& filters);

    // What comes out of the filters.
    const AVCodecParameters& Parameters() const { return *m_Filter->par_out; }

    // Codec set-up octets: those of the file, or those that a filter found in the frames read so far.
    const std::vector<std::uint8_t>& SetupData() const { return m_SetupData; }

    // The stream lacks time stamps, and they were made from the order of its frames and its rate.
    bool TimesWereMade() const { return m_TimesWereMade && !m_TimesWereTold; }
    // Frames that were left out since they are damaged.
    int Damaged() const { return m_Damaged; }
    int Jumps() const { return m_Source->Jumps(m_pStream->index); }

    // Reads the next frame; false at the end. Throws ToolError for a damaged file or one without time stamps.
    bool Next(Frame& frame);

private:
    bool NextPacket(AVPacket& packet);
    bool ReadFrame(Frame& frame);
    // Reads ahead to the first decoding time and gives one to each frame before it.
    void ReadLeadingFrames();
    // hasPresentation: whether the file tells when it is presented.
    bool NextInDecodingOrder(Frame& frame, bool& hasPresentation);

    const std::string& Path() const { return m_Source->File().Path(); }

    std::shared_ptr<PacketSource> m_Source;
    AVStream* m_pStream;
    AvPtr<AVBSFContext> m_Filter;
    bool m_HasBegun = false;
    std::deque<AvPtr<AVPacket>> m_Leading; // frames read ahead
    std::vector<std::uint8_t> m_SetupData;
    std::int64_t m_FrameDuration; // 100 ns, for frames that do not tell theirs
    std::int64_t m_NextDecode = 0;
    bool m_TimesWereMade = false;
    bool m_TimesWereTold = false;
    int m_Damaged = 0;
    std::unique_ptr<PictureOrder> m_Order; // where frames may lack their presentation times
    Frame m_Ahead;                         // read and not handed out
    bool m_HasAhead = false;
    bool m_IsStarted = false;
};
