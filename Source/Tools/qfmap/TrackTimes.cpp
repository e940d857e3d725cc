// SPDX-License-Identifier: MIT
#include "TrackTimes.h"

#include <algorithm>
#include <functional>
#include <queue>

namespace {

constexpr std::size_t kMostPieces = 4096; // of a track
constexpr std::size_t kMostHoles = 4096;
constexpr std::size_t kMostLags = 512;
constexpr std::size_t kReordered = 32; // blocks of a track that may stand in another order than their times; H.264: 16
constexpr double kSmallestGap = 0.25;  // s
constexpr double kSmallestLag = 1.0;   // s

void Append(MapPiece& piece, const MapPiece& next) {
    piece.m_Last = next.m_Last;
    piece.m_Octets += next.m_Octets;
    piece.m_Blocks += next.m_Blocks;
    if (!piece.m_KeyFrame) piece.m_KeyFrame = next.m_KeyFrame;
    piece.m_Lag = std::max(piece.m_Lag, next.m_Lag);
}

// The stretches of time between a track's blocks that are longer than usual.
class HoleFinder {
public:
    struct Span {
        double m_Start;
        double m_End; // m_Start when it is not known
        std::uint64_t m_Position;
        bool operator>(const Span& other) const { return m_Start > other.m_Start; }
    };

    // One block's time, in the order of the file.
    void Take(const Span& span) {
        m_Waiting.push(span);
        if (m_Waiting.size() > kReordered) TakeNextInTime();
    }

    // No more blocks follow; what is usual is kept for those of another Segment. Of a track that should have blocks all
    // the time the gaps are noted, also towards the first and last time of all tracks.
    void End(MapTrack& track, double first, double last) {
        while (!m_Waiting.empty()) TakeNextInTime();
        if (track.IsContinuous()) AddGaps(track, first, last);
        m_Previous.reset();
        m_Holes.clear();
    }

private:
    struct Hole {
        Span m_Before;
        Span m_After;
        double Length() const { return m_After.m_Start - m_Before.m_End; }
    };

    void TakeNextInTime() {
        const Span span = m_Waiting.top();
        m_Waiting.pop();
        if (m_Previous) {
            const double distance = span.m_Start - m_Previous->m_Start;
            if (distance > kSmallestGap) {
                m_Holes.push_back({*m_Previous, span});
                if (m_Holes.size() > 2 * kMostHoles) KeepLargest();
            } else {
                m_Usual += distance;
                ++m_UsualCount;
            }
        }
        m_Previous = span;
    }

    void KeepLargest() {
        if (m_Holes.size() <= kMostHoles) return;
        std::nth_element(m_Holes.begin(), m_Holes.begin() + kMostHoles, m_Holes.end(),
                         [](const auto& a, const auto& b) { return a.Length() > b.Length(); });
        m_Holes.resize(kMostHoles);
    }

    void AddGaps(MapTrack& track, double first, double last) {
        if (track.m_Blocks < 2 || !m_Previous) return;
        // Where holes outnumber the other distances, as in a film of few pictures a second, the mean is what is usual.
        const double usual = m_UsualCount >= m_Holes.size()
                                 ? m_Usual / static_cast<double>(std::max<std::uint64_t>(1, m_UsualCount))
                                 : (track.m_LastTime - track.m_FirstTime) / static_cast<double>(track.m_Blocks - 1);
        const double smallest = std::max(kSmallestGap, 3 * usual);
        KeepLargest();
        std::sort(m_Holes.begin(), m_Holes.end(),
                  [](const auto& a, const auto& b) { return a.m_After.m_Start < b.m_After.m_Start; });
        if (track.m_FirstTime - first > smallest) {
            track.m_Gaps.push_back(
                {MapGap::Where::Start, first, track.m_FirstTime, track.m_Pieces.front().m_First.m_Position});
        }
        for (const Hole& hole : m_Holes) {
            const bool knowsEnd = hole.m_Before.m_End > hole.m_Before.m_Start;
            const double from = knowsEnd ? hole.m_Before.m_End : hole.m_Before.m_Start + usual;
            if (hole.m_After.m_Start - from <= smallest) continue;
            track.m_Gaps.push_back({MapGap::Where::Inside, from, hole.m_After.m_Start, hole.m_After.m_Position});
        }
        const double end = m_Previous->m_Start + usual;
        if (last - end > smallest) track.m_Gaps.push_back({MapGap::Where::End, end, last, m_Previous->m_Position});
    }

    std::priority_queue<Span, std::vector<Span>, std::greater<>> m_Waiting; // to be taken in order of time
    std::optional<Span> m_Previous;
    std::vector<Hole> m_Holes;
    double m_Usual = 0; // sum of the distances that are no holes
    std::uint64_t m_UsualCount = 0;
};

} // namespace

// What is needed of a track while its blocks go by, beside what its map says already.
class TrackTimes::Notes {
public:
    void SetFrameDuration(double seconds) { m_FrameDuration = seconds; }

    void Take(MapTrack& track, const PassingBlock& block, double lag) {
        if (track.IsContinuous()) TakeLag(track.m_Lags, block, lag);
        AddPiece(track.m_Pieces, block, lag);
        const double duration =
            block.m_Duration > 0 ? block.m_Duration : m_FrameDuration * static_cast<double>(block.m_Frames);
        m_Holes.Take({block.m_Time, block.m_Time + duration, block.m_Position});
    }

    void EndSegment(MapTrack& track, double first, double last) {
        m_IsLagging = false;
        m_Holes.End(track, first, last);
    }

private:
    // When there are too many pieces, two become one, and later ones take twice as many blocks.
    void AddPiece(std::vector<MapPiece>& pieces, const PassingBlock& block, double lag) {
        const MapPoint first{block.m_Position, block.m_Time};
        const MapPoint last{block.m_End, block.m_Time};
        if (pieces.empty() || pieces.back().m_Blocks >= m_BlocksPerPiece) {
            if (pieces.size() == kMostPieces) {
                for (std::size_t i = 0; i < kMostPieces / 2; ++i) {
                    pieces[i] = pieces[2 * i];
                    Append(pieces[i], pieces[2 * i + 1]);
                }
                pieces.resize(kMostPieces / 2);
                m_BlocksPerPiece *= 2;
            }
            pieces.push_back({first, last, 0, 0, {}, 0});
        }
        MapPiece piece{first, last, block.m_End - block.m_Position, 1, {}, lag};
        if (block.m_IsKey) piece.m_KeyFrame = first;
        Append(pieces.back(), piece);
    }

    // A stretch begins with a block more than a second late and ends when less than half of that is left.
    void TakeLag(std::vector<MapLag>& lags, const PassingBlock& block, double lag) {
        const MapPoint last{block.m_End, block.m_Time};
        if (lag > kSmallestLag && !m_IsLagging) {
            m_IsLagging = true;
            if (lags.size() < kMostLags) lags.push_back({{block.m_Position, block.m_Time}, last, lag});
        } else if (lag < kSmallestLag / 2) {
            m_IsLagging = false;
        }
        if (!m_IsLagging) return;
        MapLag& stretch = lags.back();
        stretch.m_Last = last;
        stretch.m_Largest = std::max(stretch.m_Largest, lag);
    }

    double m_FrameDuration = 0; // s, 0 for unknown
    std::uint32_t m_BlocksPerPiece = 1;
    bool m_IsLagging = false;
    HoleFinder m_Holes;
};

void TrackTimes::Leader::Take(std::size_t track, double time) {
    if (!m_First || time > *m_First) {
        if (track != m_Track) m_Second = m_First;
        m_First = time;
        m_Track = track;
    } else if (track != m_Track && (!m_Second || time > *m_Second)) {
        m_Second = time;
    }
}

TrackTimes::TrackTimes(FileMap& map) : m_Map(map) {}
TrackTimes::~TrackTimes() = default;

std::size_t TrackTimes::IndexOf(std::uint64_t number) {
    const auto [place, isNew] = m_Indices.try_emplace(number, m_Map.m_Tracks.size());
    if (isNew) {
        m_Map.m_Tracks.emplace_back();
        m_Map.m_Tracks.back().m_Number = number;
        m_Map.m_Tracks.back().m_Kind = "unknown";
        m_Notes.emplace_back();
    }
    return place->second;
}

void TrackTimes::Describe(std::uint64_t number, const std::string& kind, const std::string& codecID,
                          std::uint64_t frameDuration) {
    const std::size_t index = IndexOf(number);
    m_Map.m_Tracks[index].m_Kind = kind;
    m_Map.m_Tracks[index].m_CodecID = codecID;
    // Beyond an hour it is none.
    if (frameDuration < 3600000000000) m_Notes[index].SetFrameDuration(static_cast<double>(frameDuration) / 1e9);
}

const MapTrack& TrackTimes::Take(const PassingBlock& block) {
    const std::size_t index = IndexOf(block.m_Track);
    MapTrack& track = m_Map.m_Tracks[index];
    track.m_FirstTime = track.m_Blocks == 0 ? block.m_Time : std::min(track.m_FirstTime, block.m_Time);
    track.m_LastTime = track.m_Blocks == 0 ? block.m_Time : std::max(track.m_LastTime, block.m_Time);
    ++track.m_Blocks;
    track.m_Octets += block.m_End - block.m_Position;
    if (block.m_IsKey) ++track.m_KeyFrames;

    double lag = 0;
    if (track.IsContinuous()) {
        lag = std::max(0.0, m_Leader.Others(index).value_or(block.m_Time) - block.m_Time);
        m_Leader.Take(index, block.m_Time);
    }
    m_Notes[index].Take(track, block, lag);
    return track;
}

void TrackTimes::EndSegment() {
    const double first = m_Map.FirstTime();
    const double last = m_Map.LastTime();
    for (std::size_t i = 0; i < m_Notes.size(); ++i) m_Notes[i].EndSegment(m_Map.m_Tracks[i], first, last);
    m_Leader = {};
}
