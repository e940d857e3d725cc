// SPDX-License-Identifier: MIT
// libmatroska as its users call it: SimpleBlocks that own their frames, a cluster for each second, a cue for each key
// frame (for each cluster in a file without pictures).
#include <ebml/EbmlHead.h>
#include <ebml/EbmlSubHead.h>
#include <ebml/EbmlVoid.h>
#include <matroska/KaxBlock.h>
#include <matroska/KaxCluster.h>
#include <matroska/KaxCues.h>
#include <matroska/KaxCuesData.h>
#include <matroska/KaxInfo.h>
#include <matroska/KaxInfoData.h>
#include <matroska/KaxSeekHead.h>
#include <matroska/KaxSegment.h>
#include <matroska/KaxTracks.h>

#include <stdexcept>

#include "CodecSetup.h"
#include "Output.h"
#include "Writer.h"

using namespace libmatroska;

namespace {

constexpr std::uint64_t kTimecodeScale = 1000000; // ns
constexpr std::uint64_t kSecondInNs = 1000000000;

class BufferedCallback final : public IOCallback {
public:
    explicit BufferedCallback(const std::string& path) : m_Output(path) {}

    uint32 read(void*, size_t) override { throw std::logic_error("nothing is read"); }
    void setFilePointer(int64 offset, seek_mode mode) override {
        if (mode != seek_beginning) throw std::logic_error("positions are absolute");
        m_Output.Seek(offset);
    }
    size_t write(const void* octets, size_t count) override {
        m_Output.Write(octets, count);
        return count;
    }
    uint64 getFilePointer() override { return static_cast<uint64>(m_Output.Position()); }
    void close() override { m_Output.Flush(); }

    BufferedOutput m_Output;
};

template <class Element>
void SetNumber(EbmlMaster& parent, std::uint64_t value) {
    static_cast<EbmlUInteger&>(GetChild<Element>(parent)) = value;
}

class LibmatroskaWriter final : public Writer {
public:
    LibmatroskaWriter(const WorkloadKind& kind, const std::string& path)
        : m_HasVideo(kind.m_FrameRate != 0), m_Output(path) {
        EbmlHead head;
        static_cast<EbmlString&>(GetChild<EDocType>(head)) = kind.m_Format == std::string("WEBM") ? "webm" : "matroska";
        SetNumber<EDocTypeVersion>(head, 2);
        SetNumber<EDocTypeReadVersion>(head, 2);
        head.Render(m_Output, true);

        m_Segment.WriteHead(m_Output, 8);
        m_Room.SetSize(4096);
        m_Room.Render(m_Output);
        KaxInfo& info = GetChild<KaxInfo>(m_Segment);
        SetNumber<KaxTimecodeScale>(info, kTimecodeScale);
        static_cast<EbmlFloat&>(GetChild<KaxDuration>(info)) = 1.0;
        static_cast<EbmlUnicodeString&>(GetChild<KaxMuxingApp>(info)).SetValueUTF8("libmatroska");
        static_cast<EbmlUnicodeString&>(GetChild<KaxWritingApp>(info)).SetValueUTF8("qf_bench");
        info.Render(m_Output);

        const CodecSetup setup(kind);
        KaxTracks& tracks = GetChild<KaxTracks>(m_Segment);
        if (m_HasVideo) {
            m_pVideo = &AddTrack(tracks, 1, track_video, setup.m_Video);
            KaxTrackVideo& video = GetChild<KaxTrackVideo>(*m_pVideo);
            SetNumber<KaxVideoPixelWidth>(video, 1920);
            SetNumber<KaxVideoPixelHeight>(video, 1080);
        }
        m_pAudio = &AddTrack(tracks, 2, track_audio, setup.m_Audio);
        KaxTrackAudio& audio = GetChild<KaxTrackAudio>(*m_pAudio);
        static_cast<EbmlFloat&>(GetChild<KaxAudioSamplingFreq>(audio)) = kind.m_AudioRate;
        SetNumber<KaxAudioChannels>(audio, 2);
        tracks.Render(m_Output);
        m_Cues.SetGlobalTimecodeScale(kTimecodeScale);
    }

    void Write(const Frame& frame) override {
        const std::uint64_t time = static_cast<std::uint64_t>(frame.m_Time) * 100;
        const bool opens = m_pCluster == nullptr || time >= m_ClusterTime + kSecondInNs;
        if (opens) OpenCluster(time);
        auto* const block = new KaxSimpleBlock;
        m_pCluster->PushElement(*block); // which frees it
        block->SetParent(*m_pCluster);
        block->SetKeyframe(frame.m_IsKey);
        auto* const data = new DataBuffer(frame.m_pData, frame.m_Size, nullptr, true); // a copy
        block->AddFrame(frame.m_IsVideo ? *m_pVideo : *m_pAudio, time, *data, LACING_NONE);
        if (m_HasVideo ? frame.m_IsVideo && frame.m_IsKey : opens) AddCue(time);
        m_Duration = time + static_cast<std::uint64_t>(frame.m_Duration) * 100;
    }

    std::uint64_t Close() override {
        WriteCluster();
        m_Cues.Render(m_Output);
        KaxInfo& info = GetChild<KaxInfo>(m_Segment);
        static_cast<EbmlFloat&>(GetChild<KaxDuration>(info)) =
            static_cast<double>(m_Duration) / static_cast<double>(kTimecodeScale);
        const auto end = m_Output.getFilePointer();
        m_Output.setFilePointer(static_cast<int64>(info.GetElementPosition()), seek_beginning);
        info.Render(m_Output);
        KaxSeekHead seekHead;
        seekHead.IndexThis(info, m_Segment);
        seekHead.IndexThis(GetChild<KaxTracks>(m_Segment), m_Segment);
        seekHead.IndexThis(m_Cues, m_Segment);
        m_Room.ReplaceWith(seekHead, m_Output, true);
        m_Output.setFilePointer(static_cast<int64>(end), seek_beginning);
        if (m_Segment.ForceSize(end - m_Segment.GetElementPosition() - m_Segment.HeadSize())) {
            m_Segment.OverwriteHead(m_Output);
        }
        m_Output.close();
        return m_Output.m_Output.Written();
    }

private:
    static KaxTrackEntry& AddTrack(KaxTracks& tracks, std::uint64_t number, track_type type,
                                   const CodecSetup::Codec& codec) {
        KaxTrackEntry& track = AddNewChild<KaxTrackEntry>(tracks);
        track.SetGlobalTimecodeScale(kTimecodeScale);
        SetNumber<KaxTrackNumber>(track, number);
        SetNumber<KaxTrackUID>(track, number);
        SetNumber<KaxTrackType>(track, type);
        static_cast<EbmlString&>(GetChild<KaxCodecID>(track)) = codec.m_MatroskaID;
        if (!codec.m_Private.empty()) {
            GetChild<KaxCodecPrivate>(track).CopyBuffer(codec.m_Private.data(),
                                                        static_cast<uint32>(codec.m_Private.size()));
        }
        track.EnableLacing(false);
        return track;
    }

    void OpenCluster(std::uint64_t time) {
        WriteCluster();
        m_pCluster = std::make_unique<KaxCluster>();
        m_pCluster->SetParent(m_Segment);
        m_pCluster->InitTimecode(time / kTimecodeScale, kTimecodeScale);
        SetNumber<KaxClusterTimecode>(*m_pCluster, time / kTimecodeScale);
        m_ClusterTime = time / kTimecodeScale * kTimecodeScale;
    }

    void WriteCluster() {
        if (m_pCluster != nullptr) m_pCluster->Render(m_Output, m_Cues);
        m_pCluster.reset();
    }

    void AddCue(std::uint64_t time) {
        KaxCuePoint& point = AddNewChild<KaxCuePoint>(m_Cues);
        SetNumber<KaxCueTime>(point, time / kTimecodeScale);
        KaxCueTrackPositions& positions = GetChild<KaxCueTrackPositions>(point);
        SetNumber<KaxCueTrack>(positions, m_HasVideo ? 1 : 2);
        SetNumber<KaxCueClusterPosition>(positions, m_Segment.GetRelativePosition(m_Output.getFilePointer()));
    }

    bool m_HasVideo;
    BufferedCallback m_Output;
    KaxSegment m_Segment;
    EbmlVoid m_Room; // for the seek head
    KaxTrackEntry* m_pVideo = nullptr;
    KaxTrackEntry* m_pAudio = nullptr;
    KaxCues m_Cues;
    std::unique_ptr<KaxCluster> m_pCluster;
    std::uint64_t m_ClusterTime = 0; // ns
    std::uint64_t m_Duration = 0;    // ns
};

} // namespace

std::unique_ptr<Writer> OpenLibmatroska(const WorkloadKind& kind, const std::string& path) {
    return std::make_unique<LibmatroskaWriter>(kind, path);
}
