// SPDX-License-Identifier: MIT
// libwebm's mkvmuxer with its defaults: a cluster for each video key frame, cues, the file completed by seeking back.
#include <iterator>
#include <stdexcept>

#include "CodecSetup.h"
#include "Output.h"
#include "Writer.h"
#include "mkvmuxer/mkvmuxer.h"

namespace {

class BufferedMkvWriter final : public mkvmuxer::IMkvWriter {
public:
    explicit BufferedMkvWriter(const std::string& path) : m_Output(path) {}

    mkvmuxer::int32 Write(const void* octets, mkvmuxer::uint32 count) override {
        m_Output.Write(octets, count);
        return 0;
    }
    mkvmuxer::int64 Position() const override { return m_Output.Position(); }
    mkvmuxer::int32 Position(mkvmuxer::int64 position) override {
        m_Output.Seek(position);
        return 0;
    }
    bool Seekable() const override { return true; }
    void ElementStartNotify(mkvmuxer::uint64, mkvmuxer::int64) override {}

    BufferedOutput m_Output;
};

void Require(bool done) {
    if (!done) throw std::runtime_error("libwebm fails");
}

class LibwebmWriter final : public Writer {
public:
    LibwebmWriter(const WorkloadKind& kind, const std::string& path) : m_Output(path) {
        Require(m_Segment.Init(&m_Output));
        m_Segment.set_mode(mkvmuxer::Segment::kFile);
        m_Segment.OutputCues(true);
        const CodecSetup setup(kind);
        if (kind.m_FrameRate != 0) {
            m_VideoTrack = m_Segment.AddVideoTrack(1920, 1080, 1);
            SetCodec(m_VideoTrack, setup.m_Video);
        }
        m_AudioTrack = m_Segment.AddAudioTrack(static_cast<int>(kind.m_AudioRate), 2, 2);
        SetCodec(m_AudioTrack, setup.m_Audio);
        Require(m_Segment.CuesTrack(m_VideoTrack != 0 ? m_VideoTrack : m_AudioTrack));
    }

    void Write(const Frame& frame) override {
        Require(m_Segment.AddFrame(frame.m_pData, frame.m_Size, frame.m_IsVideo ? m_VideoTrack : m_AudioTrack,
                                   static_cast<std::uint64_t>(frame.m_Time) * 100, frame.m_IsKey));
    }

    std::uint64_t Close() override {
        Require(m_Segment.Finalize());
        m_Output.m_Output.Flush();
        return m_Output.m_Output.Written();
    }

private:
    void SetCodec(std::uint64_t number, const CodecSetup::Codec& codec) {
        mkvmuxer::Track* const track = m_Segment.GetTrackByNumber(number);
        Require(track != nullptr);
        track->set_codec_id(codec.m_MatroskaID);
        if (!codec.m_Private.empty()) Require(track->SetCodecPrivate(codec.m_Private.data(), codec.m_Private.size()));
    }

    BufferedMkvWriter m_Output;
    mkvmuxer::Segment m_Segment;
    std::uint64_t m_VideoTrack = 0;
    std::uint64_t m_AudioTrack = 0;
};

} // namespace

std::unique_ptr<Writer> OpenLibwebm(const WorkloadKind& kind, const std::string& path) {
    return std::make_unique<LibwebmWriter>(kind, path);
}
