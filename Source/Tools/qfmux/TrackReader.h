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
    // source: with this stream among its chosen. filters: bitstream filters in libavcodec's notation, or empty.
    TrackReader(std::shared_ptr<PacketSource> source, int streamIndex, const std::string& filters);

    // What comes out of the filters.
    const AVCodecParameters& Parameters() const { return *m_Filter->par_out; }

    // Codec set-up octets: those of the file, or those that a filter found in the frames read so far.
    const std::vector<std::uint8_t>& SetupData() const { return m_SetupData; }

    // The stream lacks time stamps, and they were made from the order of its frames and its rate.
    bool TimesWereMade() const { return m_TimesWereMade && !m_TimesWereTold; }
    // Frames that a filter left out since they are damaged, and those with units that are cut off.
    int Damaged() const { return m_Damaged; }
    // Of what was read, and what the file's header promises, 100 ns; 0 for no promise.
    std::int64_t Length() const { return m_Source->Length(m_pStream->index); }
    std::int64_t PromisedLength() const {
        return m_Source->File().PromisedLength(m_pStream, m_Source->HasAllStreams());
    }
    // Of a broadcast's sound: places where more than 0.1 s is missing, and how much in all, 100 ns.
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
    // hasPresentation: whether the file tells when it is presented.
    bool NextInDecodingOrder(Frame& frame, bool& hasPresentation);

    void Examine(Frame& frame);
    unsigned LengthSize() const;

    const std::string& Path() const { return m_Source->File().Path(); }

    std::shared_ptr<PacketSource> m_Source;
    AVStream* m_pStream;
    const bool m_HasFilter;
    unsigned m_LengthSize = 0; // of H.264, in front of each unit; 0 for start codes
    AvPtr<AVBSFContext> m_Filter;
    bool m_HasBegun = false;
    std::deque<Frame> m_Leading; // read ahead
    std::vector<std::uint8_t> m_SetupData;
    std::int64_t m_FrameDuration; // 100 ns, for frames that do not tell theirs
    std::int64_t m_NextDecode = 0;
    bool m_TimesWereMade = false;
    bool m_TimesWereTold = false;
    int m_Damaged = 0;
    int m_Gaps = 0;
    std::int64_t m_GapLength = 0;
    std::uint32_t m_AdtsHeader = 0;        // the fixed part of the first, 0 for none
    std::unique_ptr<PictureOrder> m_Order; // where frames may lack their presentation times
    Frame m_Ahead;                         // read and not handed out
    bool m_HasAhead = false;
    bool m_IsStarted = false;
};
