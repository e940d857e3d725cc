// SPDX-License-Identifier: MIT
// The packets of a file's chosen streams, read once for all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "MediaFile.h"
#include "TimeLine.h"

// Reads a file once for all of its chosen streams. A packet of another stream than the one asked for waits; where too
// much waits, in a badly interleaved file, the stream that is so far behind has the file opened for itself.
class PacketSource {
public:
    // file: for this source alone. streams: their indexes. shift: of all times, 100 ns.
    // Throws ToolError when the file lacks a stream.
    PacketSource(std::shared_ptr<MediaFile> file, std::set<int> streams, std::int64_t shift);

    MediaFile& File() const { return *m_File; }
    // Reads the stream's next packet. Returns 0, or AVERROR_EOF at the end or where libavformat reads no further.
    int Next(int stream, AVPacket& packet);
    // Of what has been read for that stream: jumps in its times, its length, 100 ns, and packets left out since they
    // are cut off.
    int Jumps(int stream) const;
    std::int64_t Length(int stream) const;
    // What libavformat says of the place where reading ended, unless that is the end of the file.
    const std::string& Failure() const { return m_Failure; }
    // Whether all streams with packets of their own are chosen.
    bool HasAllStreams() const;

private:
    struct Chosen {
        bool m_IsAskedFor = true; // here, and not in a source of its own
        std::deque<AvPtr<AVPacket>> m_Waiting;
        std::uint64_t m_Taken = 0;             // packets handed out
        std::optional<std::int64_t> m_First;   // when the earliest begins, 100 ns
        std::int64_t m_End = 0;                // and the latest ends
        std::unique_ptr<PacketSource> m_Alone; // once it has the file for itself
    };
    int OpenForItself(int stream, AVPacket& packet);
    static void Measure(Chosen& chosen, const AVPacket& packet, AVRational timeBase);

    std::shared_ptr<MediaFile> m_File;
    const std::set<int> m_Streams;
    const std::int64_t m_Shift;
    TimeLine m_TimeLine;
    std::map<int, Chosen> m_Chosen;
    std::size_t m_WaitingOctets = 0;
    int m_End = 0; // what ended the file
    std::string m_Failure;
};
