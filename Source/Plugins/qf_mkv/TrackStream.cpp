#include "TrackStream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <string>
#include <utility>

#include "CodecPrivate.h"

namespace {

// Room for set-up data that may come after the track's header has been written.
constexpr std::size_t kAvcPlaceholder = 1024;
constexpr std::size_t kAacPlaceholder = 1024;
constexpr std::size_t kVorbisPlaceholder = 10240;

// A payload of up to so many octets keeps its memory when its block is used again: sound, mostly. Pictures vary too
// much: each would come to take what the largest did.
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

const char* TrackStream::VideoCodecID(FourCC fourCC) { return FindCodecID(kVideoCodecs, fourCC); }

void TrackStream::InitCommon(std::uint64_t track) {
    m_WrittenTime = 0;
    m_LastStart = -1;
    m_LastEnd = -1;
    m_TrackEntry = MatroskaWriter::TrackEntry{0xAE};
    m_TrackEntry.m_TrackUID.Set(static_cast<std::uint64_t>(std::int64_t{std::rand()}));
    m_TrackEntry.m_MinCache.Set(1);
    m_TrackEntry.m_MaxCache.Set(1);
    m_TrackEntry.m_TrackNumber.Set(track);
    m_TrackEntry.m_TrackType.Set(track);
    m_TrackEntry.m_Language.Set("und");
    m_TrackEntry.m_MediaKind = static_cast<std::uint32_t>(track);
}

void TrackStream::SetCodec(const char* codecID, Bytes codecPrivate) {
    m_TrackEntry.m_CodecID.Set(codecID);
    m_TrackEntry.m_CodecPrivate.m_Data = std::move(codecPrivate);
}

void TrackStream::InitVideo(const VideoParam& video, const MuxParam* mux, const char* codecID) {
    InitCommon(kVideoTrack);
    // A rate of 0 or below, or so small that its period has no 64-bit number, has no DefaultDuration.
    const double period = 1e9 / video.frameRate;
    if (period >= 0 && period < std::ldexp(1.0, 64)) {
        m_TrackEntry.m_DefaultDuration.Set(static_cast<std::uint64_t>(period));
    }
    MatroskaWriter::Video& entry = m_TrackEntry.m_Video;
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
        // 'havc' is declared as the code that players know for it.
        const bool isHavc = video.fourCC == MakeFourCC("havc");
        SetCodec("V_MS/VFW/FOURCC", BitmapInfoHeader(video, isHavc ? MakeFourCC("X264") : video.fourCC));
    }
}

void TrackStream::InitAudio(const AudioParam& audio) {
    InitCommon(kAudioTrack);
    MatroskaWriter::Audio& entry = m_TrackEntry.m_Audio;
    entry.m_SamplingFrequency.Set(static_cast<float>(audio.sampleRate));
    entry.m_Channels.Set(Widened(audio.channels));
    entry.m_BitDepth.Set(Widened(audio.bitsPerSample)); // of compressed codecs too

    if (const char* const codecID = FindCodecID(kAudioCodecs, audio.fourCC)) {
        SetCodec(codecID, {});
    } else {
        SetCodec("A_MS/VFW/FOURCC", WaveFormatEx(audio));
    }
}

int TrackStream::WritePacket(const unsigned char* data, int size, std::int64_t start, std::int64_t end,
                             unsigned int keyFrame) {
    const ByteView frame = HostBytes(data, size);
    if (frame.m_Size == 0) return 0;
    Bytes& codecPrivate = m_TrackEntry.m_CodecPrivate.m_Data;
    if (codecPrivate.empty() && !m_HeaderInFile) {
        Bytes derived = DeriveCodecPrivate(frame);
        QueueBlock(frame, start, end, keyFrame);
        codecPrivate.swap(derived);
    } else {
        QueueBlock(frame, start, end, keyFrame);
    }
    m_LastStart = start;
    m_LastEnd = end;
    return size;
}

void TrackStream::ReturnTo(const Mark& mark) {
    while (QueuedBlocks() > mark.m_QueuedBlocks) DropTail();
    m_LastStart = mark.m_LastStart;
    m_LastEnd = mark.m_LastEnd;
}

bool TrackStream::SetCodecPrivate(ByteView data) {
    Bytes& codecPrivate = m_TrackEntry.m_CodecPrivate.m_Data;
    if (!m_HeaderInFile) {
        codecPrivate.assign(data.m_pData, data.m_pData + data.m_Size);
        return true;
    }
    if (codecPrivate.size() < data.m_Size) return false;
    std::copy(data.m_pData, data.m_pData + data.m_Size, codecPrivate.begin());
    return true;
}

void TrackStream::FillBlock(MatroskaWriter::BlockBase& block, ByteView frame, std::int64_t start,
                            std::int64_t end) const {
    block.m_TrackNumber.m_Length = m_TrackEntry.m_TrackNumber.m_Value;
    block.m_Timecode = ToMilliseconds(start);
    block.m_StopTime = ToMilliseconds(end);
    if (block.m_Frames.empty()) block.m_Frames.emplace_back(0);
    block.m_Frames.front().m_Data.assign(frame.m_pData, frame.m_pData + frame.m_Size);
}

void TrackStream::EmptyBlock(MatroskaWriter::BlockBase& block) {
    Bytes& payload = block.m_Frames.front().m_Data;
    payload.clear();
    if (payload.capacity() > kKeptPayload) Bytes().swap(payload);
}

Bytes TrackStream::DeriveCodecPrivate(ByteView frame) const {
    const std::string codec = m_TrackEntry.m_CodecID.ToString();
    Bytes derived;
    if (codec == "V_MPEG1" || codec == "V_MPEG2") {
        Append(derived, FindSequenceHeader(frame));
    } else if (codec == "V_MPEG4/ISO/AVC") {
        derived.resize(kAvcPlaceholder);
    } else if (codec == "A_AAC") {
        derived.resize(kAacPlaceholder);
    } else if (codec == "A_VORBIS") {
        derived.resize(kVorbisPlaceholder);
    }
    return derived;
}
