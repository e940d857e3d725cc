// SPDX-License-Identifier: MIT
// libavformat as a reader of a file: its packets in file order, also after seeks.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "ReaderFacts.h"

struct AVFormatContext;

struct AvformatPacket {
    bool m_IsVideo;
    bool m_IsKey;
    double m_Time;           // ms, of presentation, or of decoding if there is no other
    double m_Duration;       // ms; 0 when it is not known
    std::int64_t m_Position; // octets
};

class AvformatFile {
public:
    // Throws std::runtime_error when it does not open.
    explicit AvformatFile(const std::string& path);
    AvformatFile(const AvformatFile&) = delete;
    AvformatFile& operator=(const AvformatFile&) = delete;

    // Empty at the end.
    std::optional<AvformatPacket> Next();

    // Goes to the place from which a reader decodes what is shown at this time.
    void SeekTo(std::int64_t milliseconds);

    // Facts of the header. The complaints are those so far.
    Facts Describe() const;

private:
    struct Close {
        void operator()(AVFormatContext* context) const;
    };
    std::string m_Complaints;
    std::unique_ptr<AVFormatContext, Close> m_pContext;
};

// The header's facts and the places of key frames.
Facts AvformatFacts(const std::string& file);
