// SPDX-License-Identifier: MIT
#include "TrackStream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "CodecPrivate.h"

using namespace MatroskaWriter;

namespace {

// Room for set-up data that may come after the track's header has been written.
constexpr std::size_t kAvcPlaceholder = 1024;
constexpr std::size_t kAacPlaceholder = 1024;
constexpr std::size_t kVorbisPlaceholder = 10240;

// A payload of up to so many octets, mostly sound, keeps its memory when its block is used again. Pictures vary too
// much: each block would grow to the largest picture.
constexpr std::size_t kKeptPayload = 1024;

struct CodecRow {
    FourCC m_FourCC;
    const char* m_CodecID;
};

constexpr CodecRow kVideoCodecs[] = {
    {MakeFourCC("MP1V"), "V_MPEG1"},         {MakeFourCC("MP2V"), "V_MPEG2"},
    {MakeFourCC("MP4V"), "V_MPEG4/ISO/ASP"}, {MakeFourCC("Xvid"), "V_MPEG4/ISO/ASP"},
    {MakeFourCC("VP8 "), "V_VP8"},           {MakeFourCC("H264"), "V_MPEG4/ISO/AVC"},
    {MakeFourCC("N264"), "V_MPEG4/ISO/AVC"}, {MakeFourCC("A264"), "V_MPEG4/ISO/AVC"},
    {MakeFourCC("I264"), "V_MPEG4/ISO/AVC"},
};

constexpr CodecRow kAudioCodecs[] = {
    {MakeFourCC("MP2A"), "A_MPEG/L2"}, {MakeFourCC("MP3 "), "A_MPEG/L3"},     {MakeFourCC("AC3 "), "A_AC3"},
    {MakeFourCC("DTS "), "A_DTS"},     {MakeFourCC("PCM "), "A_PCM/INT/LIT"}, {MakeFourCC("AAC "), "A_AAC"},
    {MakeFourCC("VBIS"), "A_VORBIS"},
};

template <std::size_t N>
const char* FindCodecID(const CodecRow (&rows)[N], FourCC fourCC) {
    const auto row = std::find_if(std::begin(rows), std::end(rows),
                                  [fourCC](const CodecRow& candidate) { return candidate.m_FourCC == fourCC; });
    return row != std::end(rows) ? row->m_CodecID : nullptr;
}

// A host's signed number in an unsigned element: widened with its sign.
std::uint64_t Widened(std::int32_t value) { return static_cast<std::uint64_t>(std::int64_t{value}); }

} // namespace

std::int64_t ToMilliseconds(std::int64_t hostTime) {
    return WrappingAdd(hostTime, kHostTicksPerMs / 2) / kHostTicksPerMs;
}

const char* VideoCodecID(FourCC fourCC) { return FindCodecID(kVideoCodecs, fourCC); }

// ---- the header values

template <class Block>
void TrackStream<Block>::InitCommon(std::uint64_t track) {
    m_WrittenTime = 0;
    m_pTrackEntry = std::make_unique<TrackEntry>(0xAE);
    m_pTrackEntry->m_TrackUID.Set(Widened(std::rand()));
    m_pTrackEntry->m_MinCache.Set(1);
    m_pTrackEntry->m_MaxCache.Set(1);
    m_pTrackEntry->m_TrackNumber.Set(track);
    m_pTrackEntry->m_TrackType.Set(track);
    m_pTrackEntry->m_Language.Set("und");
    m_pTrackEntry->m_MediaKind = static_cast<std::uint32_t>(track);
}

template <class Block>
void TrackStream<Block>::SetCodec(const char* codecID, Bytes codecPrivate) {
    m_pTrackEntry->m_CodecID.Set(codecID);
    m_pTrackEntry->m_CodecPrivate.m_Data = std::move(codecPrivate);
}

template <class Block>
void TrackStream<Block>::InitVideo(const VideoParam& video, const MuxParam* mux, const char* codecID) {
    InitCommon(kVideoTrack);
    m_LastStart = -1;
    m_LastEnd = -1;
    // A rate of 0 or below, or so small that its period exceeds 64 bits, gives no DefaultDuration.
    const double period = 1e9 / video.frameRate;
    if (period >= 0 && period < std::ldexp(1.0, 64)) {
        m_pTrackEntry->m_DefaultDuration.Set(static_cast<std::uint64_t>(period));
    }
    Video& entry = m_pTrackEntry->m_Video;
    entry.m_PixelWidth.Set(Widened(video.width));
    entry.m_PixelHeight.Set(static_cast<std::uint64_t>(std::abs(std::int64_t{video.height})));
    const bool hasAspect =
        mux != nullptr && mux->muxFlags % 2 == 1 && mux->displayAspectX > 0 && mux->displayAspectY > 0;
    // Without an aspect the display size is written as 0, deliberately, not left out.
    entry.m_DisplayWidth.Set(hasAspect ? Widened(mux->displayAspectX) : 0);
    entry.m_DisplayHeight.Set(hasAspect ? Widened(mux->displayAspectY) : 0);
    entry.m_FrameRate.Set(static_cast<float>(video.frameRate));

    if (codecID != nullptr) {
        SetCodec(codecID, {});
    } else {
        // 'havc' is written as the code by which players know it.
        const bool isHavc = video.fourCC == MakeFourCC("havc");
        SetCodec("V_MS/VFW/FOURCC", BitmapInfoHeader(video, isHavc ? MakeFourCC("X264") : video.fourCC));
    }
}

// Leaves the times of the last frame as they are, deliberately, unlike the function above.
template <class Block>
void TrackStream<Block>::InitAudio(const AudioParam& audio) {
    InitCommon(kAudioTrack);
    Audio& entry = m_pTrackEntry->m_Audio;
    entry.m_SamplingFrequency.Set(static_cast<float>(audio.sampleRate));
    entry.m_Channels.Set(Widened(audio.channels));
    entry.m_BitDepth.Set(Widened(audio.bitsPerSample)); // of compressed codecs too

    if (const char* const codecID = FindCodecID(kAudioCodecs, audio.fourCC)) {
        SetCodec(codecID, {});
    } else {
        SetCodec("A_MS/VFW/FOURCC", WaveFormatEx(audio));
    }
}

// ---- intake

template <class Block>
int TrackStream<Block>::WritePacket(const unsigned char* data, int size, std::int64_t start, std::int64_t end,
                                    unsigned int keyFrame) {
    const ByteView frame = HostBytes(data, size);
    if (frame.m_Size == 0) return 0;
    if (m_BlankBlocks.empty()) AddBlankBlock();
    Block& block = m_BlankBlocks.front();
    BlockBase& header = BlockOf(block);
    header.m_Frames.front().m_Data.assign(frame.m_pData, frame.m_pData + frame.m_Size);
    Bytes& codecPrivate = m_pTrackEntry->m_CodecPrivate.m_Data;
    if (codecPrivate.empty() && !m_HeaderInFile) codecPrivate = DeriveCodecPrivate(frame);

    // From here on nothing fails.
    header.m_TrackNumber.m_Length = m_pTrackEntry->m_TrackNumber.m_Value;
    header.m_Timecode = ToMilliseconds(start);
    header.m_StopTime = ToMilliseconds(end);
    Describe(block, start, end, keyFrame);
    m_Queue.splice(m_Queue.end(), m_BlankBlocks, m_BlankBlocks.begin());
    m_LastStart = start;
    m_LastEnd = end;
    return size;
}

template <class Block>
Bytes TrackStream<Block>::DeriveCodecPrivate(ByteView frame) const {
    const std::string codec = m_pTrackEntry->m_CodecID.ToString();
    Bytes derived;
    if (m_pTrackEntry->m_TrackType.m_Value == kVideoTrack) {
        if (IsMpegVideo(codec)) Append(derived, FindSequenceHeader(frame));
        if (IsAvc(codec)) derived.resize(kAvcPlaceholder);
    } else if (m_pTrackEntry->m_TrackType.m_Value == kAudioTrack) {
        if (codec == "A_AAC") derived.resize(kAacPlaceholder);
        if (codec == "A_VORBIS") derived.resize(kVorbisPlaceholder);
    }
    return derived;
}

template <class Block>
void TrackStream<Block>::ReturnTo(const Mark& mark) {
    while (m_Queue.size() > mark.m_QueuedBlocks) m_Queue.pop_back();
    m_LastStart = mark.m_LastStart;
    m_LastEnd = mark.m_LastEnd;
}

// ---- blocks that are used again

template <class Block>
void TrackStream<Block>::AddBlankBlock() {
    std::list<Block> fresh;
    BlockOf(fresh.emplace_back(Block::kId)).m_Frames.emplace_back(0);
    m_BlankBlocks.splice(m_BlankBlocks.end(), fresh);
}

template <class Block>
void TrackStream<Block>::TakeBack(std::list<Block>& blocks) {
    // Keeps only as many blocks as one cluster had: blocks left from the cluster before are freed.
    m_BlankBlocks.clear();
    for (auto block = blocks.begin(); block != blocks.end();) {
        const auto taken = block++;
        const BlockBase& header = BlockOf(*taken);
        if (header.m_TrackNumber.m_Length != m_pTrackEntry->m_TrackNumber.m_Value || header.m_Frames.empty()) continue;
        Renew(*taken);
        m_BlankBlocks.splice(m_BlankBlocks.end(), blocks, taken);
    }
}

template <class Block>
void TrackStream<Block>::Renew(Block& block) {
    std::list<CBinary> frames = std::move(BlockOf(block).m_Frames);
    frames.erase(std::next(frames.begin()), frames.end());
    frames.front().m_ID = 0;
    Bytes& payload = frames.front().m_Data;
    if (payload.capacity() > kKeptPayload) Bytes().swap(payload);
    std::destroy_at(&block);
    new (&block) Block{Block::kId};
    BlockOf(block).m_Frames = std::move(frames);
}

template class TrackStream<BlockGroup>;
template class TrackStream<SimpleBlock>;
