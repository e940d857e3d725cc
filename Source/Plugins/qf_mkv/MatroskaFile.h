// SPDX-License-Identifier: MIT
// The elements of a Matroska file (RFC 8794 for EBML, RFC 9559 for Matroska).
//
// An element has its identifier, computes its size in octets and writes itself at a stream's current position; it never
// seeks and never reads. A value that is absent (an unset number, an empty string or byte array) takes no octets and is
// not written, so an owner sets only the values that are to be written. A compound element lists its children once, in
// the order in which they are written: sizes and octets both walk that list, so they cannot disagree.
// Sizes are computed anew at each call.
//
// Members are public: elements are plain building blocks of the muxers. Repeated children are in a std::list, which
// owns them, and by which a block moves from queue to cluster without being copied. Cue points stay in memory as long
// as the file is open, so they are in containers that need less of it.
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <string>
#include <type_traits>
#include <vector>

#include "ByteOrder.h"
#include "FileEx.h"

namespace MatroskaWriter {

// Identifiers that seek entries name.
constexpr unsigned long kSegmentId = 0x18538067;
constexpr unsigned long kSeekHeadId = 0x114D9B74;
constexpr unsigned long kInfoId = 0x1549A966;
constexpr unsigned long kTracksId = 0x1654AE6B;
constexpr unsigned long kClusterId = 0x1F43B675;
constexpr unsigned long kCuesId = 0x1C53BB6B;

// A length field of this value means an unknown size (RFC 8794, Element Data Size).
constexpr std::uint64_t kUnknownSize = 0x00FFFFFFFFFFFFFF;

// Octets that a length field takes: the fewest whose bits are not all ones, which would mean an unknown size.
// kUnknownSize takes 8; 2^56 and above take none at all.
constexpr unsigned LengthWidth(std::uint64_t length) {
    if (length > kUnknownSize) return 0;
    for (unsigned width = 1; width < 8; ++width) {
        if (length < PowerOfTwo(7 * width) - 1) return width;
    }
    return 8;
}

// The base of every element. On its own it is a bare identifier.
class CID {
public:
    // id: the identifier as it stands in the file, marker bits included; 0 for none.
    explicit CID(unsigned long id) : m_ID(static_cast<std::uint32_t>(id)) {}

    // The payload's octets; with the flag, those of identifier and length field too. A bare CID takes its identifier's.
    virtual std::uint64_t Size(bool withHeader) const;
    // Writes identifier, length and payload. A value returns what the stream's Write returned, a compound element 0.
    // A bare CID writes its identifier, with the marker of its width.
    virtual std::int32_t Write(IStream* stream) const;

    // Octets of identifier and length field in front of that much payload.
    std::uint64_t HeaderSize(std::uint64_t payloadSize) const {
        return SignificantOctets(m_ID) + LengthWidth(payloadSize);
    }
    // Writes the identifier and the length of this element's own payload. Returns 0.
    std::int32_t HeaderWrite(IStream* stream) const;

    std::uint32_t m_ID;

protected:
    std::int32_t HeaderWrite(IStream* stream, std::uint64_t payloadSize) const;
    std::uint64_t Sized(std::uint64_t payload, bool withHeader) const {
        return withHeader ? payload + HeaderSize(payload) : payload;
    }
};

// A number in EBML's variable-size form: a data size, a track number.
class CLength final : public CID {
public:
    explicit CLength(std::uint64_t length = 0) : CID(0), m_Length(length) {}
    std::uint64_t Size(bool withHeader) const override;
    std::int32_t Write(IStream* stream) const override;

    std::uint64_t m_Length;
};

// ---- values

// A scalar value, absent until it is set.
template <class Value, class Derived>
class CSimpleVar : public CID {
public:
    using CID::CID;

    Derived& Set(Value value) {
        m_Value = value;
        m_IsSet = true;
        return static_cast<Derived&>(*this);
    }

    std::uint64_t Size(bool withHeader) const override {
        return m_IsSet ? Sized(Self().PayloadWidth(), withHeader) : 0;
    }

    // Writes the low-order octets that the value takes, the most significant first.
    std::int32_t Write(IStream* stream) const override {
        if (!m_IsSet) return 0;
        const unsigned width = Self().PayloadWidth();
        unsigned char payload[8];
        StoreBigEndian(payload, Self().PayloadBits(), width);
        HeaderWrite(stream, width);
        return stream->Write(payload, width, nullptr);
    }

    bool m_IsSet = false; // first, where it takes no room of its own: cues and index stay in memory as long as the file
    Value m_Value{};

private:
    const Derived& Self() const { return static_cast<const Derived&>(*this); }
};

class CUInt final : public CSimpleVar<unsigned long long, CUInt> {
public:
    using CSimpleVar::CSimpleVar;
    unsigned PayloadWidth() const { return m_Value == 0 ? 1 : SignificantOctets(m_Value); }
    std::uint64_t PayloadBits() const { return m_Value; }
};

// Deliberately narrower than a signed integer needs: a positive value gets no sign octet (128 is 0x80), and the test
// for a negative value reads a bit that is its sign only for a width of one octet (-33000 is 0x7F 0x18).
class CInt final : public CSimpleVar<long long, CInt> {
public:
    using CSimpleVar::CSimpleVar;
    unsigned PayloadWidth() const;
    std::uint64_t PayloadBits() const { return static_cast<std::uint64_t>(m_Value); }
};

// Single precision, never double.
class CFloat final : public CSimpleVar<float, CFloat> {
public:
    using CSimpleVar::CSimpleVar;
    unsigned PayloadWidth() const { return sizeof(float); }
    std::uint64_t PayloadBits() const;
};

// The base of the next three: a run of octets as payload.
class CRun : public CID {
public:
    using CID::CID;

protected:
    std::int32_t WriteRun(IStream* stream, const void* octets, std::size_t size) const;
};

// Octets, absent when there are none.
class CBinary final : public CRun {
public:
    using CRun::CRun;
    // Takes the text and a terminating zero octet, deliberately: it is part of the payload.
    CBinary& Set(const std::string& text);
    // The octets up to the first zero.
    std::string ToString() const;
    std::uint64_t Size(bool withHeader) const override { return m_Data.empty() ? 0 : Sized(m_Data.size(), withHeader); }
    std::int32_t Write(IStream* stream) const override {
        return m_Data.empty() ? 0 : WriteRun(stream, m_Data.data(), m_Data.size());
    }

    Bytes m_Data;
};

// An ASCII string, written as it is without a terminator; absent when empty.
class CANSI final : public CRun {
public:
    using CRun::CRun;
    CANSI& Set(std::string text);
    std::uint64_t Size(bool withHeader) const override;
    std::int32_t Write(IStream* stream) const override;

    std::string m_Value;
};

// A wide string, written as UTF-8 (cut at 2,047 octets) without a terminator; absent when the wide string is empty.
class CUTF8 final : public CRun {
public:
    using CRun::CRun;
    CUTF8& Set(std::wstring text);
    std::uint64_t Size(bool withHeader) const override;
    std::int32_t Write(IStream* stream) const override;

    std::wstring m_Value;
};

// ---- compound elements

// Derived lists its children in the order in which they are written, lists as a whole:
//     template <class Self, class Visit> static void Children(Self& self, Visit visit);
// Its own header is always written, even without children.
template <class Derived>
class Compound : public CID {
public:
    using CID::CID;

    std::uint64_t Size(bool withHeader) const override {
        std::uint64_t payload = 0;
        Derived::Children(Self(), SizeSum{payload});
        return Sized(payload, withHeader);
    }

    std::int32_t Write(IStream* stream) const override {
        HeaderWrite(stream, Compound::Size(false));
        Derived::Children(Self(), Writer{stream});
        return 0;
    }

private:
    struct SizeSum {
        std::uint64_t& m_Sum;
        template <class Child>
        void operator()(const Child& child) const {
            if constexpr (std::is_base_of_v<CID, Child>) {
                m_Sum += child.Size(true);
            } else {
                for (const auto& element : child) m_Sum += element.Size(true);
            }
        }
    };

    struct Writer {
        IStream* m_pStream;
        template <class Child>
        void operator()(const Child& child) const {
            if constexpr (std::is_base_of_v<CID, Child>) {
                child.Write(m_pStream);
            } else {
                // A list ends early at a child that reports a failure, but the element itself does not.
                for (const auto& element : child) {
                    if (element.Write(m_pStream) < 0) break;
                }
            }
        }
    };

    const Derived& Self() const { return static_cast<const Derived&>(*this); }
};

// The kinds of children that a Compound's visitors take one at a time.
template <class Visit, class... Child>
void VisitEach(Visit visit, Child&... child) {
    (visit(child), ...);
}

// ---- Segment level

class EBML final : public Compound<EBML> { // RFC 8794, EBML header
public:
    using Compound::Compound;
    CUInt m_EBMLVersion{0x4286};
    CUInt m_EBMLReadVersion{0x42F7};
    CUInt m_EBMLMaxIDLength{0x42F2};
    CUInt m_EBMLMaxSizeLength{0x42F3};
    CANSI m_DocType{0x4282};
    CUInt m_DocTypeVersion{0x4287};
    CUInt m_DocTypeReadVersion{0x4285};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_EBMLVersion, self.m_EBMLReadVersion, self.m_EBMLMaxIDLength, self.m_EBMLMaxSizeLength,
                  self.m_DocType, self.m_DocTypeVersion, self.m_DocTypeReadVersion);
    }
};

// The Segment's header alone: its muxer writes the contents. The length always takes 8 octets, so that a later header
// with the real size fits over the first one.
class Segment final : public CID {
public:
    // size: of the payload; 0 for unknown.
    Segment(std::uint64_t size, unsigned long id) : CID(id), m_Size(size) {}
    // kUnknownSize either way while the size is unknown. With the flag a known size counts the shortest length field,
    // deliberately not the 8 octets that Write makes.
    std::uint64_t Size(bool withHeader) const override;
    std::int32_t Write(IStream* stream) const override;

    std::uint64_t m_Size;
};

class Info final : public Compound<Info> { // RFC 9559, Info
public:
    using Compound::Compound;
    CBinary m_SegmentUID{0x73A4};
    CBinary m_PrevUID{0x3CB923};
    CBinary m_NextUID{0x3EB923};
    CUTF8 m_SegmentFilename{0x7384};
    CUTF8 m_PrevFilename{0x3C83AB};
    CUTF8 m_NextFilename{0x3E83BB};
    CUInt m_TimecodeScale = CUInt{0x2AD7B1}.Set(1000000); // ns in a tick: the file counts in ms
    CFloat m_Duration{0x4489};                            // ticks
    CInt m_DateUTC{0x4461};                               // ns since 2001-01-01
    CUTF8 m_Title{0x7BA9};
    CUTF8 m_MuxingApp{0x4D80};
    CUTF8 m_WritingApp{0x5741};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_SegmentUID, self.m_PrevUID, self.m_NextUID, self.m_SegmentFilename, self.m_PrevFilename,
                  self.m_NextFilename, self.m_TimecodeScale, self.m_Duration, self.m_DateUTC, self.m_Title,
                  self.m_MuxingApp, self.m_WritingApp);
    }
};

// The names of the next three are crossed by design: class Seek is Matroska's SeekHead, class SeekHead one of its
// Seeks.

// The identifier of the element that an entry points at, as payload.
class SeekID final : public Compound<SeekID> {
public:
    using Compound::Compound;
    CID m_SeekedID{0};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        visit(self.m_SeekedID);
    }
};

class SeekHead final : public Compound<SeekHead> { // RFC 9559, Seek
public:
    using Compound::Compound;
    SeekID m_SeekID{0x53AB};
    CUInt m_SeekPosition{0x53AC}; // octets from the start of the Segment's payload

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_SeekID, self.m_SeekPosition);
    }
};

class Seek final : public Compound<Seek> { // RFC 9559, SeekHead
public:
    using Compound::Compound;
    std::list<SeekHead> m_Seeks;

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        visit(self.m_Seeks);
    }
};

// Zeros that a later element may replace.
class Void final : public CID {
public:
    // size: of the payload, without the header.
    Void(std::uint64_t size, unsigned long id) : CID(id), m_Size(size) {}
    std::uint64_t Size(bool withHeader) const override;
    // Writes zeros: as many as the low 32 bits of the size, read with sign.
    std::int32_t Write(IStream* stream) const override;

    std::uint64_t m_Size;
};

class Tags final : public Compound<Tags> { // RFC 9559, Tags; always empty
public:
    using Compound::Compound;
    template <class Self, class Visit>
    static void Children(Self&, Visit) {}
};

// ---- Tracks

class Video final : public Compound<Video> { // RFC 9559, Video
public:
    using Compound::Compound;
    CUInt m_FlagInterlaced{0x9A};
    CUInt m_StereoMode{0x53B8};
    CUInt m_PixelWidth{0xB0};
    CUInt m_PixelHeight{0xBA};
    CUInt m_DisplayWidth{0x54B0};
    CUInt m_DisplayHeight{0x54BA};
    CUInt m_DisplayUnit{0x54B2};
    CUInt m_AspectRatioType{0x54B3};
    CUInt m_ColourSpace{0x2EB524};
    CFloat m_GammaValue{0x2FB523};
    CFloat m_FrameRate{0x2383E3};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_FlagInterlaced, self.m_StereoMode, self.m_PixelWidth, self.m_PixelHeight,
                  self.m_DisplayWidth, self.m_DisplayHeight, self.m_DisplayUnit, self.m_AspectRatioType,
                  self.m_ColourSpace, self.m_GammaValue, self.m_FrameRate);
    }
};

class Audio final : public Compound<Audio> { // RFC 9559, Audio
public:
    using Compound::Compound;
    CFloat m_SamplingFrequency{0xB5};
    CFloat m_OutputSamplingFrequency{0x78B5};
    CUInt m_Channels{0x9F};
    CBinary m_ChannelPositions{0x7D7B};
    CUInt m_BitDepth{0x6264};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_SamplingFrequency, self.m_OutputSamplingFrequency, self.m_Channels,
                  self.m_ChannelPositions, self.m_BitDepth);
    }
};

class TrackEntry final : public Compound<TrackEntry> { // RFC 9559, TrackEntry
public:
    using Compound::Compound;
    CUInt m_TrackNumber{0xD7};
    CUInt m_TrackUID{0x73C5};
    CUInt m_TrackType{0x83};
    CUInt m_FlagEnabled{0xB9};
    CUInt m_FlagDefault{0x88};
    CUInt m_FlagLacing{0x9C};
    CUInt m_MinCache{0x6DE7};
    CUInt m_MaxCache{0x6DF8};
    CUTF8 m_Name{0x536E};
    CANSI m_Language{0x22B59C};
    CBinary m_CodecID{0x86}; // octets, not a string: its terminating zero is written too
    CBinary m_CodecPrivate{0x63A2};
    CUTF8 m_CodecName{0x258688};
    CUTF8 m_CodecSettings{0x3A9697};
    CANSI m_CodecInfoURL{0x3B4040};
    CANSI m_CodecDownloadURL{0x26B240};
    CUInt m_CodecDecodeAll{0xAA};
    CUInt m_TrackOverlay{0x6FAB};
    CUInt m_DefaultDuration{0x23E383}; // ns
    std::uint32_t m_MediaKind = 0;     // which of the next two is written: 1 m_Video, 2 m_Audio, else neither
    Video m_Video{0xE0};
    Audio m_Audio{0xE1};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_TrackNumber, self.m_TrackUID, self.m_TrackType, self.m_FlagEnabled, self.m_FlagDefault,
                  self.m_FlagLacing, self.m_MinCache, self.m_MaxCache, self.m_Name, self.m_Language, self.m_CodecID,
                  self.m_CodecPrivate, self.m_CodecName, self.m_CodecSettings, self.m_CodecInfoURL,
                  self.m_CodecDownloadURL, self.m_CodecDecodeAll, self.m_TrackOverlay, self.m_DefaultDuration);
        if (self.m_MediaKind == 1) visit(self.m_Video);
        if (self.m_MediaKind == 2) visit(self.m_Audio);
    }
};

class Track final : public Compound<Track> { // RFC 9559, Tracks
public:
    using Compound::Compound;
    std::list<TrackEntry> m_TrackEntries;

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        visit(self.m_TrackEntries);
    }
};

// ---- clusters and blocks

// The base of Block and SimpleBlock: a header of track number, relative time and flags, and frames behind it. With more
// than one frame the size includes Xiph lacing.
class BlockBase : public CID {
public:
    using CID::CID;
    std::uint64_t Size(bool withHeader) const override;

    CLength m_TrackNumber;
    // Ticks. Absolute while the block is queued, relative to its cluster when its low 16 bits are written.
    std::int64_t m_Timecode = 0;
    std::int64_t m_StopTime = 0; // ticks, where the block ends; its owner's, never written
    std::list<CBinary> m_Frames; // written as bare octets, not as elements

protected:
    // Writes everything in front of lacing and frames.
    void WriteStart(IStream* stream, unsigned char flags) const;
    void WriteFrames(IStream* stream) const;
};

class CBlock final : public BlockBase { // RFC 9559, Block
public:
    using BlockBase::BlockBase;
    // Several frames are laced, their number written as it is, deliberately not one less as readers expect it.
    std::int32_t Write(IStream* stream) const override;
};

// Meant for exactly one frame: with more frames its size includes lacing, which is deliberately never written.
class SimpleBlock final : public BlockBase { // RFC 9559, SimpleBlock
public:
    static constexpr unsigned long kId = 0xA3; // in a Cluster
    using BlockBase::BlockBase;
    std::int32_t Write(IStream* stream) const override;

    std::uint32_t m_Keyframe = 0; // non-zero for a key frame
};

class BlockGroup final : public Compound<BlockGroup> { // RFC 9559, BlockGroup
public:
    static constexpr unsigned long kId = 0xA0; // in a Cluster
    using Compound::Compound;
    CUInt m_BlockDuration{0x9B};
    CUInt m_ReferencePriority{0xFA};
    CInt m_ReferenceBlock{0xFB};
    CInt m_ReferenceVirtual{0xFD};
    CBinary m_CodecState{0xA4};
    CBlock m_Block{0xA1}; // last, deliberately

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_BlockDuration, self.m_ReferencePriority, self.m_ReferenceBlock, self.m_ReferenceVirtual,
                  self.m_CodecState, self.m_Block);
    }
};

class Cluster final : public Compound<Cluster> { // RFC 9559, Cluster
public:
    using Compound::Compound;
    CUInt m_Timecode{0xE7};
    CUInt m_Position{0xA7};
    CUInt m_PrevSize{0xAB};
    std::list<BlockGroup> m_BlockGroups;
    std::list<SimpleBlock> m_SimpleBlocks;

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_Timecode, self.m_Position, self.m_PrevSize, self.m_BlockGroups, self.m_SimpleBlocks);
    }
};

// Every frame passes through these two: they are compiled together with the functions that they call.
extern template class Compound<BlockGroup>;
extern template class Compound<Cluster>;

// ---- cues

class CueTrackPosition final : public Compound<CueTrackPosition> { // RFC 9559, CueTrackPositions
public:
    using Compound::Compound;
    CUInt m_CueTrack{0xF7};
    CUInt m_CueClusterPosition{0xF1};
    CUInt m_CueBlockNumber{0x5387}; // deliberately not Matroska's 0x5378
    CUInt m_CueCodecState{0xEA};

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_CueTrack, self.m_CueClusterPosition, self.m_CueBlockNumber, self.m_CueCodecState);
    }
};

class CuePoint final : public Compound<CuePoint> { // RFC 9559, CuePoint
public:
    using Compound::Compound;
    CUInt m_CueTime{0xB3}; // ticks
    std::vector<CueTrackPosition> m_CueTrackPositions;

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_CueTime, self.m_CueTrackPositions);
    }
};

class Cue final : public Compound<Cue> { // RFC 9559, Cues
public:
    using Compound::Compound;
    std::deque<CuePoint> m_CuePoints;

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        visit(self.m_CuePoints);
    }
};

} // namespace MatroskaWriter
