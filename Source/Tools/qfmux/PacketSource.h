// The packets of a file's chosen streams, read once for all of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>

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
    // Reads the stream's next packet. Returns 0 or libavformat's error, AVERROR_EOF at the end.
    int Next(int stream, AVPacket& packet);
    // In the times of what has been read for that stream.
    int Jumps(int stream) const;

private:
    struct Chosen {
        bool m_IsAskedFor = true; // here, and not in a source of its own
        std::deque<AvPtr<AVPacket>> m_Waiting;
        std::uint64_t m_Taken = 0;             // packets handed out
        std::unique_ptr<PacketSource> m_Alone; // once it has the file for itself
    };
    int OpenForItself(int stream, AVPacket& packet);

    std::shared_ptr<MediaFile> m_File;
    const std::set<int> m_Streams;
    const std::int64_t m_Shift;
    TimeLine m_TimeLine;
    std::map<int, Chosen> m_Chosen;
    std::size_t m_WaitingOctets = 0;
    int m_End = 0; // what ended the file
};
