// SPDX-License-Identifier: MIT
// What libavcodec makes of a stream's packets.
#pragma once

#include <xxhash.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "AvPtr.h"

// Decodes packets and keeps a count and a hash of the pictures or samples that come out. Nothing is skipped, not even
// the pictures and samples that a container tells players to leave out.
class Decoding {
public:
    // setup: instead of the parameters' own set-up data, or null. threads: 0 for as many as there are processors.
    Decoding(const AVCodecParameters& parameters, const std::vector<std::uint8_t>* setup, int threads);

    // Whether libavcodec has a decoder that takes the parameters.
    bool IsPossible() const { return m_Codec != nullptr; }

    void Take(const AVPacket& packet);
    void End(); // no more packets come

    // Pictures, or samples of one channel.
    std::uint64_t Count() const { return m_Count; }
    // The decoder refused a packet or marked what it gave as damaged.
    bool HasErrors() const { return m_HasErrors; }
    bool IsEqual(const Decoding& other) const { return m_Count == other.m_Count && Hash() == other.Hash(); }

private:
    struct Free {
        void operator()(XXH3_state_t* state) const { XXH3_freeState(state); }
    };
    std::uint64_t Hash() const { return XXH3_64bits_digest(m_State.get()); }
    void Send(const AVPacket* packet);
    void Receive();
    void TakePicture();
    void TakeSamples();

    AvPtr<AVCodecContext> m_Codec;
    AvPtr<AVFrame> m_Frame;
    std::unique_ptr<XXH3_state_t, Free> m_State;
    std::uint64_t m_Count = 0;
    bool m_HasErrors = false;
};
