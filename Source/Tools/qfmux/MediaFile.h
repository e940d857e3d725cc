// SPDX-License-Identifier: MIT
// A media file opened by libavformat, and its streams.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AvPtr.h"
#include "ReadErrors.h"

// Throws ToolError with the file's name and the reason.
[[noreturn]] void FailReading(const std::string& path, const std::string& reason);
// The same if result is an error of the media libraries.
void CheckReading(int result, const std::string& path);

// An open media file. Throws ToolError when it cannot be read.
class MediaFile {
public:
    explicit MediaFile(const std::string& path);

    const std::string& Path() const { return m_Path; }
    AVFormatContext* Context() const { return m_Context.get(); }
    // The file's streams of that kind, except attached pictures and streams for which IsKnown is false.
    std::vector<AVStream*> Streams(AVMediaType type) const;
    // Whether the file has the stream's sample rate, or the size of its pictures.
    static bool IsKnown(const AVStream* stream);
    // Whether its times may jump by design and count from anywhere, as those of broadcasts do.
    bool HasLooseTimes() const { return (m_Context->iformat->flags & AVFMT_TS_DISCONT) != 0; }
    // Whether packets may have faults that decoders hide, so that a damaged one is better than none.
    bool MayBeDamaged() const { return HasLooseTimes(); }
    // The errors that libavformat has reported so far.
    const ReadErrors& Errors() const { return *m_Errors; }
    // The lengths of a stream and of the whole file from the header, 100 ns; 0 if the header has none.
    // first: when the stream's first packet begins, 100 ns.
    std::int64_t PromisedLength(const AVStream* stream, std::int64_t first) const;
    std::int64_t PromisedLength() const;
    bool IsMatroska() const;
    // The start time, 100 ns, for formats whose times may start anywhere; else 0.
    std::int64_t Origin() const;
    // Whether the container keeps codec set-up data for the stream, outside its frames.
    bool HasSetup(const AVStream* stream) const;
    // The stream's parameters from the container alone, before libavformat probed the frames. Null for a stream that
    // only the probing found.
    const AVCodecParameters* Declared(const AVStream* stream) const;
    // Frames per second of a video stream; 25 if the file has no rate.
    double FrameRate(AVStream* stream) const;

private:
    void Open(bool looksFar);
    bool HasHeaderLengths() const { return m_Context->duration_estimation_method == AVFMT_DURATION_FROM_STREAM; }

    std::string m_Path;
    std::unique_ptr<ReadErrors> m_Errors;
    AvPtr<AVFormatContext> m_Context;
    std::vector<AvPtr<AVCodecParameters>> m_Declared; // by the stream's index
};
