// SPDX-License-Identifier: MIT
// The frames of a stream that is copied.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "FrameSource.h"
#include "PictureOrder.h"

class TrackReader : public FrameSource {
public:
    // source: must have this stream chosen. filters: bitstream filters in libavcodec's notation, or empty.
    TrackReader(std::shared_ptr<PacketSource> source, int streamIndex, const std::string& filters);

    bool Next(Frame& frame) override;

    // The parameters after the filters.
    const AVCodecParameters& Parameters() const override { return *m_Filter->par_out; }
    // Codec set-up data from the file, or from a filter that found them in the frames read so far.
    const std::vector<std::uint8_t>& SetupData() const override { return m_SetupData; }

    bool TimesWereMade() const override { return m_TimesWereMade && !m_TimesWereTold; }
    int Damaged() const override { return m_Damaged; }
    int Gaps() const override { return m_Gaps; }
    std::int64_t GapLength() const override { return m_GapLength; }

private:
    bool NextPacket(Frame& frame);
    bool ReadFrame(Frame& frame);
    // Reads ahead to the first decoding time and gives one to each frame before it.
    void ReadLeadingFrames();
    // hasPresentation: set to whether the file has the frame's presentation time.
    bool NextInDecodingOrder(Frame& frame, bool& hasPresentation);

    void Examine(Frame& frame);
    unsigned LengthSize() const;

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
    std::uint32_t m_SoundHeader = 0;       // fixed part of the first header; 0 for none
    std::unique_ptr<PictureOrder> m_Order; // set where frames may lack presentation times
    Frame m_Ahead;                         // read but not returned yet
    bool m_HasAhead = false;
    bool m_IsStarted = false;
};
