// Media files as libavformat reads them: what streams an input has, and one stream's frames in decoding order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
}

constexpr AVRational kHostTimeBase = {1, 10000000}; // 100 ns
// 3,653 years: sums and differences of such times stay within 64 bits, whatever a damaged file says.
constexpr std::int64_t kFurthestTime = std::int64_t{1} << 60;

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
    // The file's streams of that kind, attached pictures left out.
    std::vector<AVStream*> Streams(AVMediaType type) const;
    // Whether the container keeps codec set-up data for the stream, outside its frames.
    bool HasSetup(const AVStream* stream) const;
    // Frames per second of a video stream, 25 when the file does not tell.
    double FrameRate(AVStream* stream) const;

private:
    std::string m_Path;
    AvPtr<AVFormatContext> m_Context;
    std::set<int> m_WithSetup; // indexes of streams
};

// Where a recording was cut, joined or damaged, the times of its packets jump. What comes behind a jump is moved to
// where that in front of it ends. Streams pass such a place one after the other, and stay together.
class TimeLine {
public:
    explicit TimeLine(const AVInputFormat& format);

    // To be called for each packet in the order of the file.
    void Mend(AVPacket& packet, AVRational timeBase);
    int Jumps() const { return m_Jumps; }

private:
    // 100 ns units.
    struct Stream {
        std::int64_t m_Expected = 0; // when the next packet is due
        std::int64_t m_Shift = 0;
        std::int64_t m_ShiftBefore = 0;
    };
    bool Fits(const Stream& stream, std::int64_t time, std::int64_t mostAhead) const;
    std::int64_t LatestExpected() const;
    std::int64_t ShiftBehindJump(const Stream& stream, std::int64_t told);

    const std::int64_t m_MostBack;  // behind what the stream expects
    const std::int64_t m_MostAhead; // of what all streams expect: one of them may have a gap
    std::map<int, Stream> m_Streams;
    int m_Jumps = 0;
};

// Reads a file once for all of its chosen streams. A packet of another stream than the one asked for waits; where too
// much waits, in a badly interleaved file, the stream that is so far behind has the file opened for itself.
class PacketSource {
public:
    // file: for this source alone. streams: their indexes. Throws ToolError when the file lacks one.
    PacketSource(std::shared_ptr<MediaFile> file, const std::set<int>& streams);

    MediaFile& File() const { return *m_File; }
    // Reads the stream's next packet. Returns 0 or libavformat's error, AVERROR_EOF at the end.
    int Next(int stream, AVPacket& packet);
    // In the times of what has been read for that stream.
    int Jumps(int stream) const;

private:
    struct Chosen {
        std::deque<AvPtr<AVPacket>> m_Waiting;
        std::uint64_t m_Taken = 0;             // packets handed out
        std::unique_ptr<PacketSource> m_Alone; // once it has the file for itself
    };
    int OpenForItself(int stream, AVPacket& packet);

    std::shared_ptr<MediaFile> m_File;
    TimeLine m_TimeLine;
    std::map<int, Chosen> m_Chosen;
    std::size_t m_WaitingOctets = 0;
    int m_End = 0; // what ended the file
};

// Presentation times for pictures that came without: raw streams have none, AVI files only those of decoding. Pictures
// are held until their place in presentation order is known; the n-th one presented then takes the time at which the
// n-th was decoded.
//
// H.264 numbers its pictures in that order; 16 of them at most wait (its largest picture buffer). In MPEG-4 a
// B picture is presented at once, any other when the next such one comes. libavformat knows the latter rule, but not
// that frames may be taken apart behind it, as those of MPEG-4 are.
class PictureOrder {
public:
    explicit PictureOrder(const AVCodecParameters& parameters);

    // Whether there is a rule for the codec.
    static bool Knows(AVCodecID codec);

    void Push(Frame frame); // in decoding order
    void Flush();           // no more frames come
    // Takes the oldest frame whose presentation time is known; false when there is none.
    bool Pop(Frame& frame);

private:
    struct Held {
        Frame m_Frame;
        std::int64_t m_Order; // smaller is presented earlier, among those not placed
        bool m_Placed;
    };
    void PlaceEarliest();

    bool m_IsH264;
    AvPtr<AVCodecContext> m_Codec;
    AvPtr<AVCodecParserContext> m_Parser;
    std::deque<Held> m_Held;
    std::deque<std::int64_t> m_DecodeTimes; // of frames not placed yet
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
    bool TimesWereMade() const { return m_TimesWereMade; }
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
    std::unique_ptr<PictureOrder> m_Order; // once a frame lacked its presentation time
    Frame m_Ahead;                         // read and not handed out
    bool m_HasAhead = false;
    bool m_IsStarted = false;
};
