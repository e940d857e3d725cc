// SPDX-License-Identifier: MIT
#include "Verify.h"

#include <algorithm>
#include <array>
#include <fstream>

#include "RawFile.h"
#include "SignalGuard.h"

extern "C" {
#include <libavutil/common.h>
}

namespace {

std::string Difference(const char* kind, const TrackDigest& sent, const TrackDigest& found) {
    const std::string name = std::string(kind) + ": ";
    if (sent.Blocks() != found.Blocks()) {
        return name + std::to_string(sent.Blocks()) + " frames were written, " + std::to_string(found.Blocks()) +
               " were read back";
    }
    return sent.Hash() != found.Hash() ? name + "the frames read back differ from those written" : "";
}

} // namespace

std::optional<std::string> CheckSegmentSize(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<unsigned char, 64> front{};
    file.read(reinterpret_cast<char*>(front.data()), front.size());
    file.clear();
    file.seekg(0, std::ios::end);
    const std::int64_t length = file.tellg();
    // The EBML header's length takes one octet; the Segment's identifier 4 and its length 8.
    const std::size_t segment = 5 + (front[4] & 0x7FU);
    static constexpr std::array<unsigned char, 5> kSegmentStart = {0x18, 0x53, 0x80, 0x67, 0x01};
    const bool found = length >= 64 && segment + 12 <= front.size() &&
                       std::equal(kSegmentStart.begin(), kSegmentStart.end(), front.begin() + segment);
    if (!found) return "it has no Segment";
    std::int64_t size = 0;
    for (std::size_t i = segment + 5; i < segment + 12; ++i) size = size * 256 + front[i];
    const std::int64_t present = length - static_cast<std::int64_t>(segment) - 12;
    if (size == present) return std::nullopt;
    return "its Segment has a size of " + std::to_string(size) + " bytes, but the file has " + std::to_string(present);
}

std::optional<std::string> CheckBlocks(const std::string& path, const TrackDigest* video, bool hasUnits,
                                       const TrackDigest* audio, Progress& progress) {
    RawFile file(path);
    if (!file.Error().empty()) return file.Error();
    TrackDigest foundVideo(true);
    TrackDigest foundAudio(true);
    const AvPtr<AVPacket> packet = NewAvPacket();
    std::uint64_t octets = 0;
    for (int result = 0; (result = file.Next(*packet)) != AVERROR_EOF;) {
        if (SignalGuard::Caught() != 0) return std::nullopt; // the caller knows
        if (result < 0) return "it cannot be read to its end: " + AvReason(result);
        const AVMediaType type = file.Context()->streams[packet->stream_index]->codecpar->codec_type;
        TrackDigest& digest = type == AVMEDIA_TYPE_VIDEO ? foundVideo : foundAudio;
        digest.Block(RawFile::Time(*packet), (packet->flags & AV_PKT_FLAG_KEY) != 0);
        const auto size = static_cast<std::size_t>(packet->size);
        if (type == AVMEDIA_TYPE_VIDEO && hasUnits) {
            bool isWhole = true;
            for (const NalUnit& unit : WithoutPadding(QfHost::SplitLengths(packet->data, size, 4, isWhole))) {
                digest.Unit(unit);
            }
        } else {
            digest.Octets(packet->data, size);
        }
        octets += size;
        progress.Update(digest.LastTime() * 10000, octets); // from ms
        av_packet_unref(packet.get());
    }
    const TrackDigest none(true);
    std::string difference = Difference("video", video != nullptr ? *video : none, foundVideo);
    if (difference.empty()) difference = Difference("audio", audio != nullptr ? *audio : none, foundAudio);
    if (difference.empty() && video != nullptr && audio != nullptr && video->Blocks() > 0 && audio->Blocks() > 0 &&
        av_sat_sub64(video->FirstTime(), audio->FirstTime()) !=
            av_sat_sub64(foundVideo.FirstTime(), foundAudio.FirstTime())) {
        difference = "the distance between the starts of picture and sound has changed";
    }
    if (difference.empty()) return std::nullopt;
    return difference;
}
