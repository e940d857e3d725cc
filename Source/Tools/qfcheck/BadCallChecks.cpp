// SPDX-License-Identifier: MIT
// Calls with null and with impossible values: no call is fatal, and no call takes anything in.
#include <limits>

#include "Check.h"
#include "OutputFile.h"

namespace {

constexpr std::int32_t kLeastNumber = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMostNumber = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kNumbers[] = {kLeastNumber, kLeastNumber + 1, -1, 0, 1, kMostNumber - 1, kMostNumber};

constexpr const char* kVideoCodes[] = {"H264", "N264", "I264", "havc", "MP2V", "Xvid", "VP8 ", "????"};
constexpr const char* kAudioCodes[] = {"AAC ", "AC3 ", "MP3 ", "PCM ", "VBIS", "????", "DTS ", "MP2A"};

void NullHandles(Host& host) {
    Octets data = Hex("01 02");
    Record frame("MEDIA_FRAME");
    frame.Set("videoData", data.data());
    frame.Set("videoSize", 2);
    frame.Set("audioData", data.data());
    frame.Set("audioSize", 2);
    int sizes[] = {1, 2};
    for (const FourCC isWebm : {0U, 1U}) {
        *host.IsWebm() = isWebm;
        RequireEqual(host.WriteVideoPacket(nullptr, &frame), 0, "WriteVideoPacket of a null handle");
        RequireEqual(host.WriteVideoPacket(nullptr, nullptr), 0, "WriteVideoPacket of nothing but null");
        RequireEqual(host.WriteAudioPacket(nullptr, &frame, sizes), 0, "WriteAudioPacket of a null handle");
        RequireEqual(host.WriteAudioPacket(nullptr, nullptr, nullptr), 0, "WriteAudioPacket of nothing but null");
        host.WriteVosData(nullptr, data.data(), 2);
        host.WritezXPSData(nullptr, data.data(), 2, data.data(), 2);
        host.CloseMediaFile(nullptr);
    }
}

void NullFrames(Host& host) {
    int sizes[] = {1, 2};
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "VP8 ", "VBIS"));
        RequireEqual(host.WriteVideoPacket(output.Handle(), nullptr), 0, "WriteVideoPacket of a null frame");
        RequireEqual(host.WriteAudioPacket(output.Handle(), nullptr, nullptr), 0, "WriteAudioPacket of a null frame");
        RequireEqual(host.WriteAudioPacket(output.Handle(), nullptr, sizes), 0, "WriteAudioPacket of a null frame");
        Require(output.Close().empty(), "something was written though nothing was handed over");
    }
}

void NoDataOrNoSize(Host& host) {
    const Octets data = Hex("00 00 00 01 65 88 00 00 01 B3");
    for (const char* format : kFormats) {
        for (const char* code : kVideoCodes) {
            OutputFile output(host, MakeJob(format, code, "AAC "));
            GuardedOctets buffer(data);
            for (unsigned char* pointer : {buffer.Data(), static_cast<unsigned char*>(nullptr)}) {
                for (const std::int32_t size : kNumbers) {
                    if (pointer != nullptr && size > 0) continue;
                    Record frame("MEDIA_FRAME");
                    frame.Set("videoData", pointer);
                    frame.Set("videoSize", size);
                    frame.Set("audioData", pointer);
                    frame.Set("audioSize", size);
                    const std::string what = " of " + Text(size) + " octets at " + Text(static_cast<void*>(pointer));
                    RequireEqual(host.WriteVideoPacket(output.Handle(), &frame), 0, "WriteVideoPacket" + what);
                    RequireEqual(host.WriteAudioPacket(output.Handle(), &frame, nullptr), 0, "WriteAudioPacket" + what);
                }
            }
            Require(buffer.Copy() == data, "a frame without a size was changed");
            Require(output.Close().empty(), "something was written though nothing was handed over");
        }
    }
}

void NullSetUp(Host& host) {
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "H264", "AAC "));
        Octets data = Hex("67 42 C0 1E");
        for (const std::int32_t length : kNumbers) {
            host.WriteVosData(output.Handle(), nullptr, length);
            host.WritezXPSData(output.Handle(), nullptr, length, nullptr, length);
            if (length > 0) continue;
            host.WriteVosData(output.Handle(), data.data(), length);
            host.WritezXPSData(output.Handle(), data.data(), length, data.data(), length);
        }
        output.TakeVideo(Hex("00 00 00 02 65 88"), 0);
        output.TakeAudio(Hex("21"), 0);
        output.Finish();
    }
}

void Jobs(Host& host) {
    for (const char* format : kFormats) {
        for (const std::int32_t number : kNumbers) {
            for (std::size_t i = 0; i < std::size(kVideoCodes); ++i) {
                Record job = MakeJob(format, kVideoCodes[i], kAudioCodes[i]);
                for (const char* field : {"videoParam.width", "videoParam.height", "videoParam.bitCount",
                                          "audioParam.sampleRate", "audioParam.channels", "audioParam.bitsPerSample"}) {
                    job.Set(field, number);
                }
                job.Set("videoParam.frameRate", static_cast<double>(number));
                OutputFile output(host, job);
                output.Video(Hex("00 00 00 01 65 88"), 0, true, number);
                output.Audio(Hex("01"), 0, number);
                output.Finish();
            }
        }
    }
    Record job = MakeJob("MKV ", "Xvid", "");
    job.Set("videoParam.frameRate", std::numeric_limits<double>::quiet_NaN());
    OutputFile output(host, job);
    output.TakeVideo(Hex("01 02"), 0);
    output.Finish();
}

void Times(Host& host) {
    constexpr std::int64_t kEarliest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
    for (const char* format : kFormats) {
        for (const std::int64_t time : {kEarliest, kEarliest + 1, std::int64_t{-1}, std::int64_t{0}, kLatest}) {
            OutputFile output(host, MakeJob(format, "Xvid", "MP3 "));
            for (const std::int64_t start : {std::int64_t{0}, time, -1000 * kMillisecond, time}) {
                for (const std::int32_t duration : {kLeastNumber, 0, kMostNumber}) {
                    RequireEqual(output.Video(Hex("01 02"), start, duration == 0, duration), 2, "WriteVideoPacket");
                    RequireEqual(output.Audio(Hex("03"), start, duration), 1, "WriteAudioPacket");
                    RequireEqual(output.PackedAudio(Hex("04 05"), start, duration, {2, 1, 1}), 2, "WriteAudioPacket");
                }
            }
            output.FinishAsTree();
        }
    }
}

void SizeTables(Host& host) {
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "", "MP3 "));
        for (const std::vector<int>& sizes : {std::vector<int>{kLeastNumber},
                                              {-1},
                                              {0},
                                              {1, -1},
                                              {1, kLeastNumber},
                                              {2, -1, -1},
                                              {3, 0, -1, kLeastNumber},
                                              {1, kMostNumber}}) {
            RequireEqual(output.PackedAudio(Hex("01 02 03 04"), 0, kFrameTime, sizes), 0,
                         "WriteAudioPacket with a table of no frame");
        }
        RequireEqual(output.PackedAudio({}, 0, kFrameTime, {1, 4}), 0, "WriteAudioPacket without data");
        Require(output.Close().empty(), "something was written though nothing was handed over");
    }
}

void OddFrames(Host& host) {
    // Start codes in every place of short frames; the buffers end at the frame's last octet.
    constexpr unsigned char kOctets[] = {0x00, 0x01, 0x65};
    for (const char* code : {"N264", "H264"}) {
        OutputFile output(host, MakeJob("MKV ", code, ""));
        output.Video(Hex("00 00 00 01 65"), 0);
        for (std::size_t size = 1; size <= 6; ++size) {
            std::size_t count = 1;
            for (std::size_t i = 0; i < size; ++i) count *= std::size(kOctets);
            for (std::size_t number = 0; number < count; ++number) {
                Octets frame;
                for (std::size_t rest = number; frame.size() < size; rest /= std::size(kOctets)) {
                    frame.push_back(kOctets[rest % std::size(kOctets)]);
                }
                const int result = output.Video(frame, 0);
                Require(result >= 0 && result <= static_cast<int>(size),
                        "WriteVideoPacket of " + Text(frame) + " returned " + Text(result));
            }
        }
        output.FinishAsTree();
    }
}

} // namespace

std::vector<Check> BadCallChecks() {
    return {
        {"null.handle", "a null handle is refused by every function", NullHandles},
        {"null.frame", "a null frame is refused", NullFrames},
        {"null.data", "frames without data or without a size are refused", NoDataOrNoSize},
        {"null.set-up", "set-up data that is null or has no length is ignored", NullSetUp},
        {"absurd.jobs", "extreme values in every field of a job make a sound file", Jobs},
        {"absurd.times", "extreme times and durations do no harm", Times},
        {"absurd.size-tables", "impossible tables of sizes are refused", SizeTables},
        {"absurd.start-codes", "frames of hardly more than start codes are processed inside their buffer", OddFrames},
    };
}
