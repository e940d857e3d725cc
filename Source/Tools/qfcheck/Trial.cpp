// SPDX-License-Identifier: MIT
#include "Trial.h"

#include <algorithm>
#include <cmath>
#include <ctime>

namespace {

constexpr int kKeyDistance = 30;

bool IsKey(int number) { return number % kKeyDistance == 0; }

// One NAL unit behind its length, which other codecs take as it is.
Octets VideoFrame(int number) {
    const auto count = static_cast<unsigned char>(3 + number % 7);
    Octets frame = {
        0, 0, 0, count, static_cast<unsigned char>(IsKey(number) ? 0x65 : 0x41), static_cast<unsigned char>(number)};
    frame.resize(4U + count, 0x88);
    return frame;
}

Octets AudioFrame(int number) {
    Octets frame = {0x21, static_cast<unsigned char>(number)};
    frame.resize(2U + static_cast<unsigned>(number) % 5, 0x5A);
    return frame;
}

// Seconds since 1970 from nanoseconds since 2001.
double UnixTime(std::int64_t date) { return static_cast<double>(date) / 1e9 + 978307200.0; }

Octets Slice(const Octets& octets, std::size_t from, std::size_t size) {
    from = std::min(from, octets.size());
    size = std::min(size, octets.size() - from);
    const auto begin = octets.begin() + static_cast<std::ptrdiff_t>(from);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

// The children of a TrackEntry in their order, the TrackUID left out.
Octets VideoTrack(const std::string& codecID, const Octets& codecPrivate) {
    return Join({
        Hex("D7 81 01 83 81 01"),          // TrackNumber 1, TrackType video
        Hex("6D E7 81 01 6D F8 81 01"),    // MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"), // Language
        Element("86", Ascii(codecID) + Zeros(1)), codecPrivate.empty() ? Octets{} : Element("63 A2", codecPrivate),
        Hex("23 E3 83 84 02 62 5A 00"), // DefaultDuration 40000000 ns
        Hex("E0 97 B0 82 01 40"),       // Video: PixelWidth 320
        Hex("BA 81 F0"),                //   PixelHeight 240
        Hex("54 B0 81 00 54 BA 81 00"), //   DisplayWidth 0, DisplayHeight 0
        Hex("23 83 E3 84 41 C8 00 00"), //   FrameRate 25.0
    });
}

Octets AudioTrack(const std::string& flags, const std::string& codecID, const Octets& codecPrivate) {
    return Join({
        Hex("D7 81 02 83 81 02"), // TrackNumber 2, TrackType audio
        Hex(flags),
        Hex("6D E7 81 01 6D F8 81 01"),    // MinCache 1, MaxCache 1
        Hex("22 B5 9C 83") + Ascii("und"), // Language
        Element("86", Ascii(codecID) + Zeros(1)), codecPrivate.empty() ? Octets{} : Element("63 A2", codecPrivate),
        Hex("E1 8D B5 84 47 2C 44 00"), // Audio: SamplingFrequency 44100.0
        Hex("9F 81 02 62 64 81 10"),    //   Channels 2, BitDepth 16
    });
}

const char* const kMatroskaHeader = "42 82 88 6D 61 74 72 6F 73 6B 61 42 87 81 01 42 85 81 01";

} // namespace

struct Trial::Kind {
    const char* m_Format;
    const char* m_Video; // code; empty for none
    const char* m_Audio;
    Octets m_VosData;
    Octets m_PictureSet;
    Octets m_SequenceSet;
    Octets m_Header;     // children of EBML
    Octets m_VideoTrack; // children of the TrackEntry without the TrackUID
    Octets m_AudioTrack;
    bool m_IsWebm;
};

const Trial::Kind& Trial::KindOf(const std::string& format) {
    static const Kind kinds[] = {
        {"MKV ", "H264", "AAC ", Hex("12 10"), Hex("68 CE 38 80"), Hex("67 42 C0 1E D9 40"), Hex(kMatroskaHeader),
         // The record of ISO/IEC 14496-15: profile, compatibility and level of the set; one set of each kind.
         VideoTrack("V_MPEG4/ISO/AVC", Hex("01 42 C0 1E FF E1 00 06 67 42 C0 1E D9 40 01 00 04 68 CE 38 80")),
         AudioTrack("", "A_AAC", Hex("12 10")), false},
        {"HMKV",
         "havc",
         "AC3 ",
         {},
         {},
         {},
         Hex(kMatroskaHeader),
         // A BITMAPINFOHEADER of 40 octets: 320x240, 1 plane, 24 bits, X264.
         VideoTrack("V_MS/VFW/FOURCC", Hex("28000000 40010000 F0000000 0100 1800") + Ascii("X264") + Zeros(20)),
         AudioTrack("", "A_AC3", {}),
         false},
        {"MKA ", "", "MP3 ", {}, {}, {}, Hex(kMatroskaHeader), {}, AudioTrack("", "A_MPEG/L3", {}), false},
        {"WEBM",
         "VP8 ",
         "VBIS",
         Hex("02 01 01 76 6F 72"),
         {},
         {},
         Hex("42 86 81 01 42 F7 81 01 42 F2 81 04 42 F3 81 08") + Hex("42 82 84") + Ascii("webm") +
             Hex("42 87 81 02 42 85 81 02"),
         VideoTrack("V_VP8", {}),
         AudioTrack("88 81 01 9C 81 01", "A_VORBIS", Hex("02 01 01 76 6F 72")),
         true},
    };
    for (const Kind& kind : kinds) {
        if (kind.m_Format == format) return kind;
    }
    throw std::logic_error("no trial of " + format);
}

void RequireChildren(const Ebml::File& file, const std::string& path, const Octets& expected,
                     const std::string& except) {
    std::size_t at = 0;
    for (const Ebml::Element& child : file.At(path).m_Children) {
        if (child.m_pType->m_Name == except) continue;
        const Octets octets = file.OctetsOf(child);
        const Octets wanted = Slice(expected, at, octets.size());
        if (octets != wanted) throw Failure(child.m_Path + " is " + Text(octets) + ", expected " + Text(wanted));
        at += octets.size();
    }
    Require(at == expected.size(),
            path + " ends too early: what should follow is " + Text(Slice(expected, at, expected.size() - at)));
}

Trial::Trial(Host& host, const std::string& format, const std::string& name, unsigned char gap)
    : m_Kind(KindOf(format)), m_File(host, MakeJob(format, m_Kind.m_Video, m_Kind.m_Audio, gap), name, gap) {}

void Trial::SetUp() {
    if (!m_Kind.m_SequenceSet.empty()) m_File.XpsData(m_Kind.m_PictureSet, m_Kind.m_SequenceSet);
    if (!m_Kind.m_VosData.empty()) m_File.VosData(m_Kind.m_VosData);
}

void Trial::Feed(int from, int to) {
    for (int number = from; number < to; ++number) {
        const std::int64_t time = std::int64_t{number} * kFrameTime;
        if (*m_Kind.m_Video != '\0') {
            m_File.TakeVideo(VideoFrame(number), time, IsKey(number));
            Require(m_File.m_HostBuffer == VideoFrame(number), "WriteVideoPacket changed a frame without start codes");
        }
        m_File.TakeAudio(AudioFrame(number), time);
    }
}

void Trial::Finish(int frames) {
    const Ebml::File file = m_File.Finish();
    RequireChildren(file, "EBML", m_Kind.m_Header);

    constexpr float kMsPerFrame = 40;
    RequireEqual(file.Unsigned("Segment/Info/TimestampScale"), 1000000U, "the TimestampScale");
    RequireEqual(static_cast<double>(file.Float("Segment/Info/Duration")),
                 static_cast<double>(kMsPerFrame * static_cast<float>(frames)), "the Duration in ms");
    RequireEqual(file.Text("Segment/Info/MuxingApp"), "Tarnwell Matroska Muxer", "the MuxingApp");
    // Local midnight and summer time may move it.
    const double date = UnixTime(file.Signed("Segment/Info/DateUTC"));
    Require(std::abs(date - static_cast<double>(std::time(nullptr))) < 26 * 3600,
            "DateUTC is not of today: " + Text(date) + " s since 1970");

    const bool hasVideo = *m_Kind.m_Video != '\0';
    const std::string entry = "Segment/Tracks/TrackEntry";
    RequireEqual(file.Children("Segment/Tracks", "TrackEntry").size(), hasVideo ? 2U : 1U, "the number of tracks");
    if (hasVideo) RequireChildren(file, entry + "[0]", m_Kind.m_VideoTrack, "TrackUID");
    RequireChildren(file, entry + (hasVideo ? "[1]" : "[0]"), m_Kind.m_AudioTrack, "TrackUID");

    const std::vector<Ebml::Block> blocks = file.Blocks();
    RequireEqual(static_cast<int>(blocks.size()), hasVideo ? 2 * frames : frames, "the number of blocks");
    for (int i = 0; i < static_cast<int>(blocks.size()); ++i) {
        const Ebml::Block& block = blocks[static_cast<std::size_t>(i)];
        const int number = hasVideo ? i / 2 : i;
        const bool isVideo = hasVideo && i % 2 == 0; // video first where times are equal
        const bool isKey = !isVideo || IsKey(number);
        const std::string what = "block " + Text(i) + ": ";
        RequireEqual(block.m_Track, isVideo ? 1U : 2U, what + "the track");
        RequireEqual(block.Time(), std::int64_t{40} * number, what + "the time in ms");
        RequireEqual(block.m_Frame, isVideo ? VideoFrame(number) : AudioFrame(number), what + "the frame");
        RequireEqual(block.m_Simple, m_Kind.m_IsWebm, what + "the SimpleBlock");
        if (m_Kind.m_IsWebm) {
            RequireEqual(static_cast<unsigned>(block.m_Flags), isKey ? 0x80U : 0U, what + "the flags");
        } else {
            RequireEqual(block.m_Reference.has_value(), !isKey, what + "having a ReferenceBlock");
            if (!isKey) RequireEqual(*block.m_Reference, std::int64_t{-40}, what + "the ReferenceBlock");
        }
    }
    Require(file.Has("Segment/Cues"), "there are no Cues");
}

void Trial::Run() {
    SetUp();
    Feed();
    Finish();
}
