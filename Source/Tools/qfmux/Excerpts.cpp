// SPDX-License-Identifier: MIT
#include "Excerpts.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <utility>

#include "TimeLine.h"

namespace {

constexpr std::int64_t kLength = 1000;         // ms
constexpr std::int64_t kLeastDistance = 2000;  // ms
constexpr std::size_t kMostExcerpts = 6;       // the first second included
constexpr std::size_t kMostOctets = 32U << 20; // per track: a second of the highest disc bit rates takes half of this

} // namespace

Excerpts::Excerpts(bool hasVideo, std::int64_t length, bool videoIsMpeg4)
    : m_HasVideo(hasVideo), m_VideoIsMpeg4(videoIsMpeg4),
      m_Distance(std::max(kLeastDistance, length / static_cast<std::int64_t>(kMostExcerpts))) {}

void Excerpts::Take(bool isVideo, const Frame& frame, std::int64_t time) {
    std::size_t size = 0;
    if (const std::uint8_t* setup = av_packet_get_side_data(&frame.Source(), AV_PKT_DATA_NEW_EXTRADATA, &size)) {
        m_Setups[isVideo ? 0 : 1].assign(setup, setup + size);
    }
    const bool hasCue = HasCue(isVideo, frame, time);
    if (m_All.empty()) {
        Begin(0);
    } else if (hasCue && time >= m_All.back().m_Time + m_Distance) {
        Begin(time);
    }
    Add(m_All.back(), isVideo, frame, time);
}

void Excerpts::Begin(std::int64_t time) {
    if (m_All.size() == kMostExcerpts) {
        for (auto excerpt = std::next(m_All.begin()); excerpt != m_All.end();) {
            excerpt = m_All.erase(excerpt);
            if (excerpt != m_All.end()) ++excerpt;
        }
        m_Distance *= 2;
        if (time < m_All.back().m_Time + m_Distance) return;
    }
    m_All.emplace_back();
    m_All.back().m_Time = time;
}

void Excerpts::Add(Excerpt& excerpt, bool isVideo, const Frame& frame, std::int64_t time) const {
    ExcerptTrack& track = excerpt.m_Tracks[isVideo ? 0 : 1];
    if (track.m_Packets.empty()) {
        const bool isHere =
            isVideo == m_HasVideo ? time == excerpt.m_Time : time >= excerpt.m_Time && time < excerpt.m_Time + kLength;
        if (excerpt.m_Time > 0 && !isHere) return;
        track.m_Start = time;
        track.m_DecodeStart = frame.m_Decode;
        track.m_Setup = m_Setups[isVideo ? 0 : 1];
    }
    // Takes all frames in decoding order, so that pictures have their references. Pictures presented before the first
    // may need earlier ones.
    track.m_IsWhole = track.m_IsWhole || ToMilliseconds(frame.m_Decode - track.m_DecodeStart) >= kLength ||
                      track.m_Octets > kMostOctets;
    if (track.m_IsWhole || time < track.m_Start) return;
    // A decoder that starts in the middle of a packed AVI cannot see that it is packed.
    const bool isUnpacked = isVideo && m_VideoIsMpeg4 && excerpt.m_Time > 0;
    AvPtr<AVPacket> packet(av_packet_clone(isUnpacked ? frame.m_Packet.get() : &frame.Source()));
    if (packet == nullptr) throw std::bad_alloc();
    track.m_Octets += static_cast<std::size_t>(packet->size);
    track.m_Packets.push_back(std::move(packet));
}

// The plug-in makes a cue for the first key frame of each cluster.
bool Excerpts::HasCue(bool isVideo, const Frame& frame, std::int64_t time) {
    if (isVideo != m_HasVideo || (isVideo && !frame.m_Access.m_IsKey)) return false;
    const std::int64_t cluster = ClusterOf(time);
    if (m_Cluster && cluster <= *m_Cluster) return false;
    m_Cluster = cluster;
    return true;
}
