// SPDX-License-Identifier: MIT
#include "MapSummary.h"

#include <algorithm>
#include <filesystem>

#include "Surroundings.h"
#include "Words.h"

namespace {

std::string PartName(const MapElement& element) {
    if (element.m_Kind == MapKind::Void) return "reserved (Void)";
    return element.m_Kind == MapKind::Other ? Clean(element.m_Name) : MapKindName(element.m_Kind);
}

} // namespace

std::string FileName(const FileMap& map) { return Clean(std::filesystem::path(map.m_Path).filename().string()); }

std::string Headline(const FileMap& map) {
    std::string text = map.m_DocType == "webm" ? "WebM" : "Matroska";
    text += " · " + OctetsText(map.m_Octets);
    if (UnitFor(map.m_Octets).m_Octets > 1) text += " (" + Grouped(map.m_Octets) + " bytes)";
    text += " · " + SpanText(map.m_Duration.value_or(map.LastTime() - map.FirstTime()));
    text += " · " + Many(map.m_Tracks.size(), "track") + " · " + Many(map.m_Clusters.size(), "cluster");
    if (map.KeyFrames() > 0) text += " · " + Many(map.KeyFrames(), "key frame");
    text += " · " + Many(map.m_Cues.size(), "cue");
    return text;
}

std::string TrackName(const MapTrack& track, const FileMap& map) {
    const auto same = std::count_if(map.m_Tracks.begin(), map.m_Tracks.end(),
                                    [&](const MapTrack& other) { return other.m_Kind == track.m_Kind; });
    return same > 1 ? track.m_Kind + " " + std::to_string(track.m_Number) : track.m_Kind;
}

std::vector<Finding> Findings(const FileMap& map) {
    std::vector<Finding> findings;
    for (const std::string& problem : map.m_Problems) findings.push_back({true, Clean(problem)});
    std::size_t continuous = 0;
    bool isClean = true;
    for (const MapTrack& track : map.m_Tracks) {
        const std::string name = TrackName(track, map);
        if (track.IsContinuous() && track.m_Blocks > 0) ++continuous;
        if (!track.m_Lags.empty()) {
            isClean = false;
            const auto largest =
                std::max_element(track.m_Lags.begin(), track.m_Lags.end(),
                                 [](const auto& a, const auto& b) { return a.m_Largest < b.m_Largest; });
            findings.push_back(
                {true, name + " lags: it lies up to " + SpanText(largest->m_Largest) + " behind in the file (" +
                           OctetsText(largest->m_First.m_Position) + " to " + OctetsText(largest->m_Last.m_Position) +
                           ")" +
                           (track.m_Lags.size() > 1 ? ", in " + Grouped(track.m_Lags.size()) + " stretches" : "")});
        }
        std::size_t told = 0;
        for (const MapGap& gap : track.m_Gaps) {
            isClean = false;
            const std::string length = SpanText(gap.m_To - gap.m_From);
            if (++told > 3) continue;
            if (gap.m_Where == MapGap::Where::Start) {
                findings.push_back({true, name + " starts " + length + " late"});
            } else if (gap.m_Where == MapGap::Where::End) {
                findings.push_back({true, name + " ends " + length + " early, at " + TimeText(gap.m_From, 0.1)});
            } else {
                findings.push_back({true, name + " has a gap of " + length + ", from " + TimeText(gap.m_From, 0.1) +
                                              " to " + TimeText(gap.m_To, 0.1)});
            }
        }
        if (told > 3) findings.push_back({true, name + " has " + Many(told - 3, "more gap")});
    }
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Kind == MapKind::SegmentHeader && !element.m_Declared) {
            findings.push_back({false, "the Segment's size is unknown: a live recording, or an unfinished file"});
        }
    }
    if (map.m_Cues.empty() && !map.m_Clusters.empty()) {
        findings.push_back({false, "no cues: players find places by searching"});
    }
    if (isClean && continuous > 1) {
        findings.push_back({false, "well interleaved: no track comes over a second late, no gaps"});
    } else if (isClean && continuous == 1) {
        findings.push_back({false, "no gaps"});
    }
    return findings;
}

std::vector<Part> PartsOf(const FileMap& map) {
    std::vector<Part> parts;
    const bool hasClusters = !map.m_Clusters.empty();
    const std::uint64_t from = hasClusters ? map.m_Clusters.front().m_Element.m_Position : map.m_Octets;
    const std::uint64_t to = hasClusters ? map.m_Clusters.back().m_Element.End() : map.m_Octets;
    const auto add = [&](const MapElement& element) {
        parts.push_back({element.m_Kind, PartName(element), element.m_Position, element.End()});
    };
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position < from) add(element);
    }
    if (hasClusters) parts.push_back({MapKind::Cluster, Many(map.m_Clusters.size(), "cluster"), from, to});
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position >= to) add(element);
    }
    constexpr std::size_t kMost = 14;
    if (parts.size() > kMost) { // those in the middle as one
        const std::size_t first = kMost / 2;
        const std::size_t last = parts.size() - kMost / 2;
        const Part middle{MapKind::Other, std::to_string(last - first) + " parts", parts[first].m_Begin,
                          parts[last - 1].m_End};
        parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(first),
                    parts.begin() + static_cast<std::ptrdiff_t>(last));
        parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(first), middle);
    }
    return parts;
}
