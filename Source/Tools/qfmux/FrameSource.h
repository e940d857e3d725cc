// SPDX-License-Identifier: MIT
// Where a track's frames come from: a stream that is copied, or an encoder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Frame.h"
#include "PacketSource.h"

class Likeness;

// The compressed frames of one stream in decoding order, each with its times.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;

    // Reads the next frame; false at the end. Throws ToolError for a damaged file or one without time stamps.
    virtual bool Next(Frame& frame) = 0;

    // The parameters of the frames.
    virtual const AVCodecParameters& Parameters() const = 0;
    // The codec's set-up data that are known so far.
    virtual const std::vector<std::uint8_t>& SetupData() const = 0;
    // Pictures per second, for video.
    virtual double FrameRate() const { return File().FrameRate(m_pStream); }

    // Whether the stream has no time stamps, so that they were derived from frame order and frame rate.
    virtual bool TimesWereMade() const { return false; }
    // Damaged frames that were dropped, plus frames with truncated units.
    virtual int Damaged() const { return 0; }
    // For a comparison of an encoder's frames with what it was given; null without.
    virtual Likeness* Compared() const { return nullptr; }
    // Damaged pictures or pieces of sound that a decoder concealed or left out, and when the first is shown, 100 ns.
    virtual int Concealed() const { return 0; }
    virtual std::int64_t FirstConcealed() const { return 0; }
    // How often the size of decoded pictures changed: all are scaled to the first size.
    virtual int SizeChanges() const { return 0; }
    // For sound of broadcasts: the number of gaps of more than 0.1 s, and their total length, 100 ns.
    virtual int Gaps() const { return 0; }
    virtual std::int64_t GapLength() const { return 0; }

    // When the packets read begin, their length, and the length in the file's header (0 if none), 100 ns.
    std::int64_t Start() const { return m_Source->Start(m_pStream->index); }
    std::int64_t Length() const { return m_Source->Length(m_pStream->index); }
    std::int64_t PromisedLength() const { return File().PromisedLength(m_pStream, Start()); }
    // Whether all streams of the file that have packets are read.
    bool HasAllStreams() const { return m_Source->HasAllStreams(); }
    const std::string& Failure() const { return m_Source->Failure(); }
    int Jumps() const { return m_Source->Jumps(m_pStream->index); }

protected:
    // source: must have this stream chosen.
    FrameSource(std::shared_ptr<PacketSource> source, int streamIndex)
        : m_Source(std::move(source)), m_pStream(File().Context()->streams[streamIndex]) {}

    PacketSource& Source() const { return *m_Source; }
    MediaFile& File() const { return m_Source->File(); }
    AVStream* Stream() const { return m_pStream; }
    const std::string& Path() const { return File().Path(); }

private:
    std::shared_ptr<PacketSource> m_Source;
    AVStream* m_pStream;
};
