// SPDX-License-Identifier: MIT
// Frames and set-up data: H.264 rewritten in the host's buffer, audio frames in one packet, late set-up data.
#include "Check.h"
#include "OutputFile.h"

namespace {

constexpr const char* kTrackEntry = "Segment/Tracks/TrackEntry";

void RequireFrames(const Ebml::File& file, const std::vector<Octets>& expected) {
    const std::vector<Ebml::Block> blocks = file.Blocks();
    RequireEqual(blocks.size(), expected.size(), "the number of blocks");
    for (std::size_t i = 0; i < expected.size(); ++i) {
        RequireEqual(blocks[i].m_Frame, expected[i], "block " + Text(i));
    }
}

void StartCodes(Host& host) {
    OutputFile output(host, MakeJob("MKV ", "H264", ""));
    // Delimiter, sequence set, picture set, IDR slice; then a slice.
    const Octets first = Hex("00000001 09 10 00000001 67 64 00000001 68 EE 3C 00000001 65 88 84 21");
    const Octets rewritten = Hex("00000002 09 10 00000002 67 64 00000003 68 EE 3C 00000004 65 88 84 21");
    RequireEqual(output.Video(first, 0), static_cast<int>(first.size()), "the result of WriteVideoPacket");
    RequireEqual(output.m_HostBuffer, rewritten, "the host's buffer");
    RequireEqual(output.Video(Hex("00000001 41 9A 02"), kFrameTime, false), 7, "the result of WriteVideoPacket");
    RequireEqual(output.m_HostBuffer, Hex("00000003 41 9A 02"), "the host's buffer");
    RequireFrames(output.Finish(), {rewritten, Hex("00000003 41 9A 02")});
}

void DropsOtherUnits(Host& host) {
    OutputFile output(host, MakeJob("MKV ", "H264", ""));
    // An IDR slice between supplemental information and the end of the sequence.
    RequireEqual(output.Video(Hex("00000001 06 05 01 00000001 65 88 00000001 0A"), 0), 6,
                 "the result of WriteVideoPacket");
    RequireFrames(output.Finish(), {Hex("00000002 65 88")});
}

void Slices(Host& host) {
    const struct {
        const char* m_Format;
        const char* m_Code;
    } rows[] = {{"MKV ", "N264"}, {"MKV ", "A264"}, {"MKV ", "I264"},
                {"HMKV", "I264"}, {"WEBM", "N264"}, {"WEBM", "A264"}};
    for (const auto& row : rows) {
        const std::string what = std::string(row.m_Code) + " in " + row.m_Format + ": ";
        OutputFile output(host, MakeJob(row.m_Format, row.m_Code, ""));
        // Two slices behind their parameter sets: each becomes a block.
        const Octets frame = Hex("00000001 67 42 00000001 68 CE 00000001 65 B8 00000001 65 B9 77");
        RequireEqual(output.Video(frame, 0), 13, what + "the result of WriteVideoPacket");
        const Octets& buffer = output.m_HostBuffer;
        RequireEqual(Octets(buffer.begin() + 12, buffer.end()), Hex("00000002 65 B8 00000003 65 B9 77"),
                     what + "the slices in the host's buffer");
        RequireEqual(output.Video(Hex("00000001 41 9A"), kFrameTime, false), 6,
                     what + "the result of WriteVideoPacket");
        RequireFrames(output.Finish(), {Hex("00000002 65 B8"), Hex("00000003 65 B9 77"), Hex("00000002 41 9A")});
    }
}

void OtherFrames(Host& host) {
    const struct {
        const char* m_Format;
        const char* m_Code;
        const char* m_Frame;
    } rows[] = {
        {"MKV ", "H264", "00000003 65 88 84 00000002 65 89"}, // lengths, not start codes
        {"HMKV", "havc", "00000001 65 88"},                   // a Video-for-Windows track
        {"MKV ", "Xvid", "00000001 65 88"},
        {"WEBM", "VP8 ", "00000001 65 88"},
        {"WEBM", "H264", "00000001 65 88"},
    };
    for (const auto& row : rows) {
        const std::string what = std::string(row.m_Code) + " in " + row.m_Format + ": ";
        OutputFile output(host, MakeJob(row.m_Format, row.m_Code, ""));
        const Octets frame = Hex(row.m_Frame);
        output.TakeVideo(frame, 0);
        RequireEqual(output.m_HostBuffer, frame, what + "the host's buffer");
        RequireFrames(output.Finish(), {frame});
    }
}

void PackedAudio(Host& host) {
    for (const char* format : kFormats) {
        const std::string what = std::string(format) + ": ";
        OutputFile output(host, MakeJob(format, "", "MP3 "));
        RequireEqual(output.PackedAudio(Hex("A1 A2 B1 B2 B3 C1"), 0, 900000, {3, 2, 3, 1}), 6, what + "three frames");
        // A size below 1 is no frame; one that reaches past the data ends the list.
        RequireEqual(output.PackedAudio(Hex("D1 D2 E1"), 900000, 1200000, {4, 2, 0, -1, 1}), 3, what + "two of four");
        RequireEqual(output.PackedAudio(Hex("F1 F2"), 2100000, 200000, {2, 1, 2}), 1, what + "one of two");
        const Ebml::File file = output.Finish();
        RequireFrames(file, {Hex("A1 A2"), Hex("B1 B2 B3"), Hex("C1"), Hex("D1 D2"), Hex("E1"), Hex("F1")});
        const std::int64_t times[] = {0, 30, 60, 90, 180, 210}; // the duration is shared out evenly
        for (std::size_t i = 0; i < std::size(times); ++i) {
            RequireEqual(file.Blocks()[i].Time(), times[i], what + "the time of block " + Text(i));
        }
    }
}

void Rounding(Host& host) {
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "", "MP3 "));
        for (const std::int64_t time : {0, 404999, 405000, 814999, 9999999 + 5001}) output.TakeAudio(Hex("01"), time);
        const std::vector<Ebml::Block> blocks = output.Finish().Blocks();
        const std::int64_t expected[] = {0, 40, 41, 81, 1001}; // ms: (t + 5000) / 10000
        for (std::size_t i = 0; i < std::size(expected); ++i) {
            RequireEqual(blocks.at(i).Time(), expected[i], std::string(format) + ": the time of block " + Text(i));
        }
    }
}

void LateSetUp(Host& host) {
    const struct {
        const char* m_Format;
        const char* m_Audio;
        std::size_t m_Room; // octets of the placeholder
    } rows[] = {{"MKV ", "AAC ", 1024}, {"HMKV", "AAC ", 1024}, {"WEBM", "VBIS", 10240}};
    for (const auto& row : rows) {
        const std::string what = std::string(row.m_Audio) + " in " + row.m_Format + ": ";
        OutputFile output(host, MakeJob(row.m_Format, "H264", row.m_Audio));
        for (int i = 0; i < 10; ++i) {
            output.TakeVideo(Hex("00 00 00 02 65 88"), i * std::int64_t{kFrameTime});
            output.TakeAudio(Hex("21"), i * std::int64_t{kFrameTime});
        }
        output.VosData(Repeated(row.m_Room + 1, 0xEE)); // does not fit and is ignored
        output.VosData(Hex("12 10"));
        output.XpsData(Hex("68 EE 3C"), Hex("67 64 00 0A AC"));
        const Ebml::File file = output.Finish();
        RequireEqual(file.Payload(std::string(kTrackEntry) + "[0]/CodecPrivate"),
                     Hex("01 64 00 0A FF E1 00 05 67 64 00 0A AC 01 00 03 68 EE 3C") + Zeros(1024 - 19),
                     what + "the video track's CodecPrivate");
        RequireEqual(file.Payload(std::string(kTrackEntry) + "[1]/CodecPrivate"), Hex("12 10") + Zeros(row.m_Room - 2),
                     what + "the audio track's CodecPrivate");
    }
}

void SetUpAgain(Host& host) {
    OutputFile output(host, MakeJob("MKV ", "H264", "AAC "));
    for (const char* data : {"11 90 56 E5", "12 10"}) output.VosData(Hex(data));
    output.XpsData(Hex("68 01"), Hex("67 01 02 03 04"));
    output.XpsData(Hex("68 EE"), Hex("67 64 00 0A"));
    output.TakeVideo(Hex("00 00 00 02 65 88"), 0);
    output.TakeAudio(Hex("21"), 0);
    const Ebml::File file = output.Finish();
    RequireEqual(file.Payload(std::string(kTrackEntry) + "[0]/CodecPrivate"),
                 Hex("01 64 00 0A FF E1 00 04 67 64 00 0A 01 00 02 68 EE"), "the video track's CodecPrivate");
    RequireEqual(file.Payload(std::string(kTrackEntry) + "[1]/CodecPrivate"), Hex("12 10"),
                 "the audio track's CodecPrivate");
}

} // namespace

std::vector<Check> FrameChecks() {
    return {
        {"frames.start-codes", "start codes become lengths, in the host's buffer and in the file", StartCodes},
        {"frames.other-units", "units other than slices, parameter sets and delimiters are dropped", DropsOtherUnits},
        {"frames.slices", "N264, A264 and I264 become one block for each slice", Slices},
        {"frames.untouched", "all other frames stay as they are", OtherFrames},
        {"frames.packed-audio", "several audio frames in one packet share its duration", PackedAudio},
        {"frames.rounding", "times are rounded to the millisecond", Rounding},
        {"set-up.late", "late set-up data is written into the reserved space", LateSetUp},
        {"set-up.again", "set-up data may come again", SetUpAgain},
    };
}
