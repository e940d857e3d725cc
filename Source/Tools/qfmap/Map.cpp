// SPDX-License-Identifier: MIT
#include "Map.h"

#include <algorithm>
#include <limits>
#include <nlohmann/json.hpp>

namespace {

nlohmann::json ElementAsJson(const MapElement& element) {
    nlohmann::json json = {{"name", element.m_Name},
                           {"role", MapKindName(element.m_Kind)},
                           {"position", element.m_Position},
                           {"headerOctets", element.m_HeaderSize},
                           {"octets", element.m_Octets}};
    if (element.m_Kind != MapKind::Junk) {
        json["declaredOctets"] = element.m_Declared ? nlohmann::json(*element.m_Declared) : nlohmann::json(nullptr);
    }
    if (element.m_IsCut) json["cut"] = true;
    return json;
}

const char* WhereName(MapGap::Where where) {
    return where == MapGap::Where::Start ? "start" : where == MapGap::Where::Inside ? "inside" : "end";
}

} // namespace

const char* MapKindName(MapKind kind) {
    switch (kind) {
    case MapKind::EbmlHeader:
        return "EBML header";
    case MapKind::SegmentHeader:
        return "Segment header";
    case MapKind::SeekHead:
        return "seek head";
    case MapKind::ClusterIndex:
        return "cluster index";
    case MapKind::Void:
        return "reserved space";
    case MapKind::Info:
        return "info";
    case MapKind::Tracks:
        return "tracks";
    case MapKind::Cluster:
        return "cluster";
    case MapKind::Cues:
        return "cues";
    case MapKind::Other:
        return "other";
    case MapKind::Junk:
        return "no element";
    }
    return "";
}

double FileMap::FirstTime() const {
    double time = std::numeric_limits<double>::infinity();
    for (const MapTrack& track : m_Tracks) {
        if (track.m_Blocks > 0) time = std::min(time, track.m_FirstTime);
    }
    return time == std::numeric_limits<double>::infinity() ? 0 : time;
}

double FileMap::LastTime() const {
    double time = FirstTime();
    for (const MapTrack& track : m_Tracks) {
        if (track.m_Blocks > 0) time = std::max(time, track.m_LastTime);
    }
    return time;
}

std::uint64_t FileMap::KeyFrames() const {
    std::uint64_t count = 0;
    for (const MapTrack& track : m_Tracks) count += track.m_Kind == "video" ? track.m_KeyFrames : 0;
    return count;
}

std::vector<MapShare> MapShares(const FileMap& map) {
    std::vector<MapShare> shares;
    const auto take = [&](const std::string& what, std::uint64_t count, std::uint64_t octets) {
        for (MapShare& share : shares) {
            if (share.m_What != what) continue;
            share.m_Count += count;
            share.m_Octets += octets;
            return;
        }
        shares.push_back({what, count, octets});
    };
    const auto takeElement = [&](const MapElement& element) {
        take(element.m_Kind == MapKind::Other ? element.m_Name : MapKindName(element.m_Kind), 1, element.m_Octets);
    };
    // In the order of the file, what clusters hold at the place of the first one.
    const std::uint64_t firstCluster = map.m_Clusters.empty() ? map.m_Octets : map.m_Clusters[0].m_Element.m_Position;
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position < firstCluster) takeElement(element);
    }
    std::uint64_t rest = 0;
    for (const MapCluster& cluster : map.m_Clusters) rest += cluster.m_Element.m_Octets;
    for (const MapTrack& track : map.m_Tracks) {
        take("blocks of track " + std::to_string(track.m_Number) + ", " + track.m_Kind, track.m_Blocks, track.m_Octets);
        rest -= track.m_Octets;
    }
    if (!map.m_Clusters.empty()) take("clusters beside blocks", map.m_Clusters.size(), rest);
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position >= firstCluster) takeElement(element);
    }
    return shares;
}

nlohmann::json MapAsJson(const FileMap& map) {
    using nlohmann::json;
    json elements = json::array();
    auto cluster = map.m_Clusters.begin();
    const auto addClusters = [&](std::uint64_t before) {
        for (; cluster != map.m_Clusters.end() && cluster->m_Element.m_Position < before; ++cluster) {
            json entry = ElementAsJson(cluster->m_Element);
            entry["time"] = cluster->m_Time;
            entry["blocks"] = cluster->m_Blocks;
            entry["keyFrames"] = cluster->m_KeyFrames;
            entry["firstTime"] = cluster->m_FirstTime;
            entry["lastTime"] = cluster->m_LastTime;
            elements.push_back(std::move(entry));
        }
    };
    for (const MapElement& element : map.m_Elements) {
        addClusters(element.m_Position);
        elements.push_back(ElementAsJson(element));
    }
    addClusters(map.m_Octets);

    json tracks = json::array();
    for (const MapTrack& track : map.m_Tracks) {
        json gaps = json::array();
        for (const MapGap& gap : track.m_Gaps) {
            gaps.push_back({{"where", WhereName(gap.m_Where)},
                            {"from", gap.m_From},
                            {"to", gap.m_To},
                            {"position", gap.m_Position}});
        }
        json lags = json::array();
        for (const MapLag& lag : track.m_Lags) {
            lags.push_back({{"position", lag.m_First.m_Position},
                            {"end", lag.m_Last.m_Position},
                            {"from", lag.m_First.m_Time},
                            {"to", lag.m_Last.m_Time},
                            {"seconds", lag.m_Largest}});
        }
        tracks.push_back({{"number", track.m_Number},
                          {"kind", track.m_Kind},
                          {"codecID", track.m_CodecID},
                          {"blocks", track.m_Blocks},
                          {"keyFrames", track.m_KeyFrames},
                          {"octets", track.m_Octets},
                          {"firstTime", track.m_FirstTime},
                          {"lastTime", track.m_LastTime},
                          {"gaps", std::move(gaps)},
                          {"lags", std::move(lags)}});
    }
    json cues = json::array();
    for (const MapCue& cue : map.m_Cues) {
        cues.push_back({{"time", cue.m_Time},
                        {"track", cue.m_Track},
                        {"clusterPosition", cue.m_IsFound ? json(cue.m_Cluster) : json(nullptr)}});
    }
    json shares = json::array();
    for (const MapShare& share : MapShares(map)) {
        shares.push_back({{"what", share.m_What},
                          {"count", share.m_Count},
                          {"octets", share.m_Octets},
                          {"share", static_cast<double>(share.m_Octets) / static_cast<double>(map.m_Octets)}});
    }
    return {{"file", map.m_Path},
            {"octets", map.m_Octets},
            {"docType", map.m_DocType},
            {"muxingApp", map.m_MuxingApp},
            {"writingApp", map.m_WritingApp},
            {"duration", map.m_Duration ? json(*map.m_Duration) : json(nullptr)},
            {"elements", std::move(elements)},
            {"tracks", std::move(tracks)},
            {"cues", std::move(cues)},
            {"shares", std::move(shares)},
            {"problems", map.m_Problems}};
}
