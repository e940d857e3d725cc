// SPDX-License-Identifier: MIT
// One stream's frames in decoding order, each with its times.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "Frame.h"
#include "PacketSource.h"
#include "PictureOrder.h"

// The frames of one stream.
class TrackReader {
public:
    // source: must have this stream chosen. filters: bitstream filters in libavcodec's notation, or empty.
    TrackReader(std::shared_ptr<PacketSource> source, int streamIndex, const std::string& filters);

    // The parameters after the filters.
    const AVCodecParameters& Parameters() const { return *m_Filter->par_out; }

    // Codec set-up data from the file, or from a filter that found them in the frames read so far.
    const std::vector<std::uint8_t>& SetupData() const { return m_SetupData; }

    // Whether the stream has no time stamps, so that they were derived from frame order and frame rate.
    bool TimesWereMade() const { return m_TimesWereMade && !m_TimesWereTold; }
    // Damaged frames that a filter dropped, plus frames with truncated units.
    int Damaged() const { return m_Damaged; }
    // The length of the frames read, and the length in the file's header (0 if none), 100 ns.
    std::int64_t Length() const { return m_Source->Length(m_pStream->index); }
    std::int64_t PromisedLength() const {
        return m_Source->File().PromisedLength(m_pStream, m_Source->HasAllStreams());
    }
    // For sound of broadcasts: the number of gaps of more than 0.1 s, and their total length, 100 ns.
    int Gaps() const { return m_Gaps; }
    std::int64_t GapLength() const { return m_GapLength; }
    const std::string& Failure() const { return m_Source->Failure(); }
    int Jumps() const { return m_Source->Jumps(m_pStream->index); }

    // Reads the next frame; false at the end. Throws ToolError for a damaged file or one without time stamps.
    bool Next(Frame& frame);

private:
    bool NextPacket(Frame& frame);
    bool ReadFrame(Frame& frame);
    // Reads ahead to the first decoding time and gives one to each frame before it.
    void ReadLeadingFrames();
    // hasPresentation: set to whether the file has the frame's presentation time.
    bool NextInDecodingOrder(Frame& frame, bool& hasPresentation);

    void Examine(Frame& frame);
    unsigned LengthSize() const;

    const std::string& Path() const { return m_Source->File().Path(); }

    std::shared_ptr<PacketSource> m_Source;
    AVStream* m_pStream;
    const bool m_HasFilter;
    unsigned m_LengthSize = 0; // octets of the length prefix of H.264 units; 0 for start codes
    AvPtr<AVBSFContext> m_Filter;
    bool m_HasBegun = false;
    std::deque<Frame> m_Leading; // read ahead
    std::vector<std::uint8_t> m_SetupData;
    std::int64_t m_FrameDuration; // 100 ns, for frames without a duration
    std::int64_t m_NextDecode = 0;
    bool m_TimesWereMade = false;
    bool m_TimesWereTold = false;
    int m_Damaged = 0;
    int m_Gaps = 0;
    std::int64_t m_GapLength = 0;
    std::uint32_t m_AdtsHeader = 0;        // fixed part of the first header; 0 for none
    std::unique_ptr<PictureOrder> m_Order; // set where frames may lack presentation times
    Frame m_Ahead;                         // read but not returned yet
    bool m_HasAhead = false;
    bool m_IsStarted = false;
};
