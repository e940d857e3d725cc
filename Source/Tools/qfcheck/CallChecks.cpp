// SPDX-License-Identifier: MIT
// The functions that open no file, and the options.
#include <cstdlib>
#include <limits>

#include "Check.h"
#include "MisalignedCall.h"
#include "OutputFile.h"

namespace {

void Version(Host& host) {
    const std::string expected = QF_VERSION;
    const int length = static_cast<int>(expected.size());
    const GuardedOctets buffer(Repeated(expected.size() + 1, 0xEE));
    const int result = host.GetMultiVersion(reinterpret_cast<char*>(buffer.Data()));
    RequireEqual(buffer.Copy(), Ascii(expected) + Zeros(1), "the version " + Text(expected) + " and its terminator");
    RequireEqual(result, length, "the result of GetMultiVersion");
    RequireEqual(host.GetMultiVersion(nullptr), 0, "the result of GetMultiVersion for a null buffer");
}

void FindsFormats(Host& host) {
    for (const char* format : kFormats) RequireEqual(host.FindFileFormat(Code(format)), 1, Text(std::string(format)));
    for (const char* format : {"AVI ", "mkv ", "MKV", "WEBm", "H264", " VKM"}) {
        RequireEqual(host.FindFileFormat(Code(format)), 0, Text(std::string(format)));
    }
    for (const unsigned long format : {0UL, 1UL, 0xFFFFFFFFUL})
        RequireEqual(host.FindFileFormat(format), 0, Text(format));
}

void EncoderFunctions(Host& host) {
    const Record job = MakeJob("MKV ", "H264", "AAC ");
    const Record frame("MEDIA_FRAME", 0x5A);
    const void* const none = nullptr;
    RequireEqual(static_cast<const void*>(host.CreateEncoder(Code("H264"), &job)), none, "what CreateEncoder returns");
    RequireEqual(static_cast<const void*>(host.CreateEncoder(0, nullptr)), none, "what CreateEncoder returns");
    int encoder = 7;
    void* outFrame = &encoder;
    int* outSizes = &encoder;
    RequireEqual(host.Encode(&encoder, &frame, &outFrame, &outSizes), 0, "the result of Encode");
    Require(outFrame == &encoder && outSizes == &encoder, "Encode touched an out-argument");
    RequireEqual(host.Encode(nullptr, nullptr, nullptr, nullptr), 0, "the result of Encode");
    host.DestroyEncoder(nullptr);
    host.DestroyEncoder(&encoder);
    RequireEqual(encoder, 7, "what lies at the encoder");
}

void ReviseAudio(Host& host) {
    const Record param("AudioParam", 0x5A);
    RequireEqual(host.ReviseAudioParam(&param), 1, "the result of ReviseAudioParam");
    RequireEqual(host.ReviseAudioParam(nullptr), 1, "the result of ReviseAudioParam for null");
}

// ---- options

const unsigned char* Stored(Host& host) { return static_cast<const unsigned char*>(host.Data("m_MuxParam")); }

std::int32_t StoredTerm(Host& host, const char* name) {
    return Interface::Read<std::int32_t>(Stored(host), "MuxParam", name);
}

std::int32_t Wrapped(std::int64_t value) {
    const auto low = static_cast<std::uint32_t>(value);
    std::int32_t result;
    std::memcpy(&result, &low, sizeof result);
    return result;
}

void RequireAspect(Host& host, std::int32_t x, std::int32_t y, std::int32_t storedX, std::int32_t storedY,
                   std::int32_t result) {
    Record param("MuxParam", 0x11);
    param.Set("muxFlags", 0x22222222U);
    param.Set("displayAspectX", x);
    param.Set("displayAspectY", y);
    const std::string what = "of " + Text(x) + " by " + Text(y);
    RequireEqual(host.SetMuxParam(&param), result, "the result of SetMuxParam " + what);
    RequireEqual(StoredTerm(host, "displayAspectX"), storedX, "displayAspectX " + what);
    RequireEqual(StoredTerm(host, "displayAspectY"), storedY, "displayAspectY " + what);
}

void Aspect(Host& host) {
    // By hand.
    RequireAspect(host, 1920, 1080, 16, 9, 9);
    RequireAspect(host, 0, 9, 0, 9, 0);
    RequireAspect(host, -4, 0, -4, 0, -4);
    RequireAspect(host, -1920, 1080, 16, -9, -9); // the remainders end in -120
    RequireAspect(host, 5, -5, -1, 1, 1);         // divisor -5
    // Euclid's loop with signed remainders, worked out in 64 bits and cut to 32.
    constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
    constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t kTerms[] = {0,         1,           -1,  2,    -2,    3,      4,      5,         7,
                                       9,         -12,         16,  720,  1080,  -1080,  1920,   -1920,     65536,
                                       123456789, -1073741824, 486, 1001, kMost, -kMost, kLeast, kLeast + 1};
    for (const std::int32_t x : kTerms) {
        for (const std::int32_t y : kTerms) {
            if (x == 0 || y == 0) {
                RequireAspect(host, x, y, x, y, x);
                continue;
            }
            std::int64_t divisor = x;
            for (std::int64_t rest = y; rest != 0;) {
                const std::int64_t next = divisor % rest;
                divisor = rest;
                rest = next;
            }
            RequireAspect(host, x, y, Wrapped(x / divisor), Wrapped(y / divisor), Wrapped(y / divisor));
        }
    }
}

void CopiesOptions(Host& host) {
    Record param("MuxParam", 0x5A);
    param.Set("muxFlags", 0xA1B2C3D4U);
    param.Set("displayAspectX", 7);
    param.Set("displayAspectY", 3);
    host.SetMuxParam(&param);
    RequireEqual(Octets(Stored(host), Stored(host) + 24), param.Copy(), "m_MuxParam");
    RequireEqual(host.SetMuxParam(nullptr), 0, "the result of SetMuxParam for null");
    RequireEqual(Octets(Stored(host), Stored(host) + 24), Zeros(24), "m_MuxParam after null");
}

void SetAspect(Host& host, std::uint32_t flags, std::int32_t x, std::int32_t y) {
    Record param("MuxParam");
    param.Set("muxFlags", flags);
    param.Set("displayAspectX", x);
    param.Set("displayAspectY", y);
    host.SetMuxParam(&param);
}

void DisplaySize(Host& host) {
    const struct {
        const char* m_Format;
        std::uint32_t m_Flags;
        std::int32_t m_X, m_Y;
        std::uint64_t m_Width, m_Height; // in the file
    } rows[] = {
        {"MKV ", 1, 1920, 1080, 16, 9}, {"HMKV", 1, 4, 3, 4, 3},  {"MKV ", 0xFFFFFFFE, 4, 3, 0, 0},
        {"MKV ", 1, 0, 3, 0, 0},        {"MKV ", 1, 4, -3, 0, 0}, {"WEBM", 1, 4, 3, 0, 0},
    };
    for (const auto& row : rows) {
        SetAspect(host, row.m_Flags, row.m_X, row.m_Y);
        OutputFile output(host, MakeJob(row.m_Format, "Xvid", ""));
        SetAspect(host, 1, 5, 2); // open files keep theirs
        output.TakeVideo(Hex("01 02"), 0);
        const Ebml::File file = output.Finish();
        const std::string video = "Segment/Tracks/TrackEntry/Video/Display";
        const std::string what = std::string(" in ") + row.m_Format + " with flags " + Text(row.m_Flags) + " and " +
                                 Text(row.m_X) + " by " + Text(row.m_Y);
        RequireEqual(file.Unsigned(video + "Width"), row.m_Width, "DisplayWidth" + what);
        RequireEqual(file.Unsigned(video + "Height"), row.m_Height, "DisplayHeight" + what);
    }
}

#if defined(__i386__)

// Hosts of older compilers align their stack to 4 octets only.
void Stack(Host& host) {
    const std::wstring path = host.PathOf("file");
    const Record job = MakeJob("MKV ", "Xvid", "");
    Octets data = Hex("01 02 03 04");
    Record frame("MEDIA_FRAME");
    frame.Set("videoData", data.data());
    frame.Set("videoSize", 4);
    for (std::uintptr_t offset = 0; offset < 16; offset += 4) {
        const auto call = [&](const char* function, const void* a, const void* b) {
            void* const entry = host.Function(function);
            host.Marks().Enter(function);
            const std::uintptr_t result = CallMisaligned(entry, a, b, offset);
            host.Marks().Leave();
            return result;
        };
        const std::string what = " with the stack " + Text(offset) + " octets off a multiple of 16";
        void* const handle = reinterpret_cast<void*>(call("CreateMediaFile", path.c_str(), job.Data()));
        Require(handle != nullptr, "CreateMediaFile returned null" + what);
        for (std::int64_t time = 0; time < 10 * 1000 * kMillisecond; time += kFrameTime) {
            frame.Set("timestamp", time);
            RequireEqual(static_cast<int>(call("WriteVideoPacket", handle, frame.Data())), 4,
                         "the result of WriteVideoPacket" + what);
        }
        call("CloseMediaFile", handle, nullptr);
    }
}

#endif

} // namespace

std::vector<Check> CallChecks() {
    return {
        {"calls.version", "GetMultiVersion writes the version, 9 octets in all, and counts it", Version},
            {"calls.find-format", "FindFileFormat knows the four formats and no other", FindsFormats},
            {"calls.encoders", "the encoder functions do nothing", EncoderFunctions},
            {"calls.revise-audio", "ReviseAudioParam returns 1 and leaves the record alone", ReviseAudio},
#if defined(__i386__)
            {"calls.stack", "the stack need not be aligned to more than 4 octets", Stack},
#endif
            {"options.aspect", "SetMuxParam reduces the aspect to its lowest terms, with Euclid's signs", Aspect},
            {"options.copied", "SetMuxParam copies all 24 octets, and none for null", CopiesOptions},
            {"options.display-size", "options reach the Matroska files created after them and no others", DisplaySize},
    };
}
