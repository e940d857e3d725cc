// SPDX-License-Identifier: MIT
// Decodes a stream's packets to compare the results.
#pragma once

#include <xxhash.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "AvPtr.h"
#include "ReadErrors.h"

// Decodes packets and keeps a count and a hash of the pictures or samples that come out. Nothing is skipped, not even
// the pictures and samples that a container tells players to leave out.
class Decoding {
public:
    // setup: replaces the parameters' set-up data unless null. threads: 0 for as many as there are processors.
    Decoding(const AVCodecParameters& parameters, const std::vector<std::uint8_t>* setup, int threads);

    // Shows each decoded frame to someone else too.
    void ShowTo(std::function<void(const AVFrame&)> viewer) { m_Viewer = std::move(viewer); }

    // Whether libavcodec has a decoder that takes the parameters.
    bool IsPossible() const { return m_Codec != nullptr; }

    void Take(const AVPacket& packet);
    void End(); // no more packets follow

    // Pictures, or samples of one channel.
    std::uint64_t Count() const { return m_Count; }
    // The decoder rejected a packet or marked its output as damaged.
    bool HasErrors() const { return m_HasErrors; }
    // The decoder concealed damage in pictures or reported errors in them.
    bool HasDamage() const { return m_Errors.Others() + m_Errors.Concealed() > 0; }
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

    ReadErrors m_Errors;
    AvPtr<AVCodecContext> m_Codec;
    std::function<void(const AVFrame&)> m_Viewer;
    AvPtr<AVFrame> m_Frame;
    std::unique_ptr<XXH3_state_t, Free> m_State;
    std::uint64_t m_Count = 0;
    bool m_HasErrors = false;
};
