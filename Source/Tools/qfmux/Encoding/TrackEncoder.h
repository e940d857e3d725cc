// SPDX-License-Identifier: MIT
// The frames of a stream that is decoded, filtered and encoded anew.
#pragma once

#include <memory>
#include <vector>

#include "Encoding.h"
#include "FilterGraph.h"
#include "FrameSource.h"
#include "StreamDecoder.h"
#include "StreamEncoder.h"

class TrackEncoder : public FrameSource {
public:
    // source: must have this stream chosen. encoding: must outlive this object. other: when the first block of the
    // file's other track is shown, 100 ns; kFurthestTime if there is no other.
    TrackEncoder(std::shared_ptr<PacketSource> source, int streamIndex, const Encoding& encoding, std::int64_t other);

    bool Next(Frame& frame) override;
    const AVCodecParameters& Parameters() const override { return *m_Parameters; }
    const std::vector<std::uint8_t>& SetupData() const override { return m_SetupData; }
    double FrameRate() const override;
    Likeness* Compared() const override { return m_Encoder != nullptr ? m_Encoder->Compared() : nullptr; }
    int SizeChanges() const override { return m_Graph.SizeChanges(); }
    int Concealed() const override { return m_Decoder.Damaged(); }
    int Gaps() const override { return m_Decoder.Gaps(); }
    std::int64_t GapLength() const override { return m_Decoder.GapLength(); }
    std::int64_t FirstConcealed() const override { return m_Decoder.FirstDamaged() - HostTime(m_Origin, kAvTimeBase); }

private:
    // Takes a picture or samples from the decoder to the filters; at the end, tells these.
    void Feed();
    // Takes the next filtered picture or samples to the encoder; false when the filters need more.
    bool Encode();
    bool OpensCluster(std::int64_t time);
    void OpenEncoder(const AVFrame* first);
    void PushHeld(std::int64_t next);
    void Examine(Frame& frame);

    const Encoding& m_Encoding;
    const bool m_IsVideo;
    StreamDecoder m_Decoder;
    FilterGraph m_Graph;
    FilterGraph m_Pieces; // cuts sound to the encoder's frames, across changes of its parameters
    std::unique_ptr<StreamEncoder> m_Encoder;
    AvPtr<AVCodecParameters> m_Parameters;
    std::vector<std::uint8_t> m_SetupData;
    AvPtr<AVFrame> m_Decoded;
    AvPtr<AVFrame> m_Held; // the last filtered picture: its duration is known with the next one
    bool m_IsHeld = false;
    std::int64_t m_Origin;      // where the source begins, microseconds
    std::int64_t m_Zero;        // when the file begins, 100 ns
    std::int64_t m_Cluster = 0; // of the last picture
    bool m_SourceHasEnded = false;
    bool m_FiltersHaveEnded = false;
    bool m_HasEnded = false;
};
