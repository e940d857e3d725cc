// SPDX-License-Identifier: MIT
// GStreamer as a player: it demuxes and decodes one track of a Matroska file, seeks, and reports its results.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct GstLanding {
    std::optional<std::int64_t> m_FrameTime; // ms, of the first frame out of the demuxer; none when none came
    std::string m_Picture;                   // MD5 of the first picture shown, as I420, or of the first sound
};

class GstPlayer {
public:
    // Opens the file and decodes the first frame of its picture, or of its sound if it has no picture. Throws
    // std::runtime_error with GStreamer's words.
    GstPlayer(const std::string& path, bool hasPicture);
    ~GstPlayer();
    GstPlayer(const GstPlayer&) = delete;
    GstPlayer& operator=(const GstPlayer&) = delete;

    // Seeks to the key frame at or before a time.
    GstLanding Seek(std::int64_t milliseconds);

    // Plays from the start to the end. For each frame in file order, whether the demuxer calls it a key frame.
    std::vector<bool> PlayForKeyFlags();

private:
    struct State;
    std::unique_ptr<State> m_pState;
};
