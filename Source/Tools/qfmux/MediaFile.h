// SPDX-License-Identifier: MIT
// A media file as libavformat opens it, and what streams it has.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AvPtr.h"
#include "ReadErrors.h"

// Throws ToolError with the file's name and the reason.
[[noreturn]] void FailReading(const std::string& path, const std::string& reason);
// The same for a result of the media libraries that is an error.
void CheckReading(int result, const std::string& path);

// An open media file. Throws ToolError when it cannot be read.
class MediaFile {
public:
    explicit MediaFile(const std::string& path);

    const std::string& Path() const { return m_Path; }
    AVFormatContext* Context() const { return m_Context.get(); }
    // The file's streams of that kind, without attached pictures and those of which nothing is known.
    std::vector<AVStream*> Streams(AVMediaType type) const;
    // Whether the file has the stream's sample rate, or the size of its pictures.
    static bool IsKnown(const AVStream* stream);
    // Whether its times may jump by design and count from anywhere, as those of broadcasts do.
    bool HasLooseTimes() const { return (m_Context->iformat->flags & AVFMT_TS_DISCONT) != 0; }
    // Whether packets may have faults that decoders hide, so that a damaged one is better than none.
    bool MayBeDamaged() const { return HasLooseTimes(); }
    // What libavformat has complained of so far.
    const ReadErrors& Errors() const { return *m_Errors; }
    // How long the header says that the stream is, 100 ns; 0 when it does not.
    // isAlone: no stream but the chosen ones counts for the length of the whole.
    std::int64_t PromisedLength(const AVStream* stream, bool isAlone) const;
    // When it begins, 100 ns, for formats that count from anywhere; else 0.
    std::int64_t Origin() const;
    // Whether the container keeps codec set-up data for the stream, outside its frames.
    bool HasSetup(const AVStream* stream) const;
    // What the container tells of the stream, before libavformat has looked into its frames. Null for a stream that
    // shows there alone.
    const AVCodecParameters* Declared(const AVStream* stream) const;
    // Frames per second of a video stream, 25 when the file does not tell.
    double FrameRate(AVStream* stream) const;

private:
    void Open(bool looksFar);

    std::string m_Path;
    std::unique_ptr<ReadErrors> m_Errors;
    AvPtr<AVFormatContext> m_Context;
    std::vector<AvPtr<AVCodecParameters>> m_Declared; // by the stream's index
};
