// SPDX-License-Identifier: MIT
// The packets of a file's chosen streams, read once for all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "MediaFile.h"
#include "TimeLine.h"

// Reads a file once for all of its chosen streams. Packets of other streams than the requested stream wait. If too much
// waits, in a badly interleaved file, the file is opened again for the stream that is behind.
class PacketSource {
public:
    // By a stream's index: whether its packets are decoded. Decoders drop the frames that an edit list hides.
    using Streams = std::map<int, bool>;

    // file: used by this source only. shift: added to all times, 100 ns. Throws ToolError when the file lacks a stream
    // or a stream is encrypted.
    PacketSource(std::shared_ptr<MediaFile> file, Streams streams, std::int64_t shift);

    MediaFile& File() const { return *m_File; }
    // Added to all times, 100 ns.
    std::int64_t Shift() const { return m_Shift; }
    // Reads the stream's next packet. Returns 0, or AVERROR_EOF at the end or where libavformat cannot read on. Throws
    // ToolError for an encrypted packet.
    int Next(int stream, AVPacket& packet);
    // Of the packets read for that stream: the number of jumps in their times; their start and length, 100 ns.
    int Jumps(int stream) const;
    std::int64_t Start(int stream) const;
    std::int64_t Length(int stream) const;
    // libavformat's reason why reading ended; empty at the end of the file.
    const std::string& Failure() const { return m_Failure; }
    // Whether all streams that have packets are chosen.
    bool HasAllStreams() const;

private:
    struct Chosen {
        bool m_IsAskedFor = true; // by callers of this source
        std::deque<AvPtr<AVPacket>> m_Waiting;
        std::uint64_t m_Taken = 0;             // packets handed out
        std::optional<std::int64_t> m_First;   // start of the earliest packet, 100 ns
        std::int64_t m_End = 0;                // end of the latest packet, 100 ns
        std::unique_ptr<PacketSource> m_Alone; // set once the file was opened again for this stream
    };
    int OpenForItself(int stream, AVPacket& packet);
    static void Measure(Chosen& chosen, const AVPacket& packet, AVRational timeBase);

    std::shared_ptr<MediaFile> m_File;
    const Streams m_Streams;
    const std::int64_t m_Shift;
    TimeLine m_TimeLine;
    std::map<int, Chosen> m_Chosen;
    std::size_t m_WaitingOctets = 0;
    int m_End = 0; // the result that ended reading
    std::string m_Failure;
};
