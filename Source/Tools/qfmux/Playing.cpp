#include "Playing.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <future>
#include <new>

#include "RawFile.h"
#include "SignalGuard.h"

namespace {

constexpr std::array<AVMediaType, 2> kTypes = {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO};
constexpr std::array<const char*, 2> kNames = {"video", "audio"};

using Decodings = std::array<std::unique_ptr<Decoding>, 2>;

// Notes the streams for which libavcodec has no decoder, and leaves them out.
SourceStreams Playable(const SourceStreams& sources, Played& played) {
    SourceStreams playable = sources;
    for (const AVCodecParameters*& source : playable) {
        if (source == nullptr || Decoding(*source, nullptr, 1).IsPossible()) continue;
        played.m_Notes.push_back("libavcodec cannot decode " + std::string(avcodec_get_name(source->codec_id)) +
                                 ": its frames were compared but not played");
        source = nullptr;
    }
    return playable;
}

Decodings DecodeSource(const Excerpt& excerpt, const SourceStreams& sources) {
    Decodings decodings;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        const ExcerptTrack& track = excerpt.m_Tracks[i];
        if (sources[i] == nullptr || track.m_Packets.empty()) continue;
        decodings[i] = std::make_unique<Decoding>(*sources[i], &track.m_Setup, 1);
        for (const auto& packet : track.m_Packets) decodings[i]->Take(*packet);
        decodings[i]->End();
    }
    return decodings;
}

std::string Seconds(std::int64_t milliseconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(milliseconds) / 1000);
    return text;
}

// Decodes the same of the file: the blocks of each track from the time at which the excerpt's begin, as many of them.
// Returns what is wrong, or nothing.
std::optional<std::string> DecodeFile(const std::string& path, const Excerpt& excerpt, bool hasVideo,
                                      const SourceStreams& sources, Decodings& decodings) {
    RawFile file(path);
    if (!file.Error().empty()) return file.Error();
    std::array<const AVStream*, 2> streams{};
    std::array<std::size_t, 2> left{};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        left[i] = sources[i] != nullptr ? excerpt.m_Tracks[i].m_Packets.size() : 0;
        if (left[i] == 0) continue;
        streams[i] = file.Stream(kTypes[i]);
        if (streams[i] == nullptr) return std::string("it has no ") + kNames[i];
        decodings[i] = std::make_unique<Decoding>(*streams[i]->codecpar, nullptr, 1);
        if (!decodings[i]->IsPossible()) return std::string("no player knows what its ") + kNames[i] + " is";
    }
    const AVStream* const cued = file.Stream(kTypes[hasVideo ? 0 : 1]);
    if (excerpt.m_Time > 0 && cued != nullptr &&
        av_seek_frame(file.Context(), cued->index, excerpt.m_Time, AVSEEK_FLAG_BACKWARD) < 0) {
        return "seeking to " + Seconds(excerpt.m_Time) + " fails";
    }
    std::array<bool, 2> hasBegun{};
    const AvPtr<AVPacket> packet(av_packet_alloc());
    if (packet == nullptr) throw std::bad_alloc();
    while (left[0] + left[1] > 0 && file.Next(*packet) >= 0) {
        for (std::size_t i = 0; i < sources.size(); ++i) {
            if (left[i] == 0 || streams[i]->index != packet->stream_index) continue;
            const std::int64_t start = excerpt.m_Tracks[i].m_Start;
            const std::int64_t time = RawFile::Time(*packet);
            hasBegun[i] = hasBegun[i] || time == start;
            if (!hasBegun[i] || time < start) continue;
            decodings[i]->Take(*packet);
            --left[i];
        }
        av_packet_unref(packet.get());
    }
    if (left[0] + left[1] > 0) return "a seek to " + Seconds(excerpt.m_Time) + " does not find what is there";
    for (const auto& decoding : decodings) {
        if (decoding != nullptr) decoding->End();
    }
    return std::nullopt;
}

void AddNote(Played& played, const std::string& note) {
    if (std::find(played.m_Notes.begin(), played.m_Notes.end(), note) == played.m_Notes.end()) {
        played.m_Notes.push_back(note);
    }
}

// One track of one piece. source may be what its decoder makes of damage, which need not be the same each time.
void Compare(std::size_t kind, const Decoding& source, const Decoding& file, const std::string& where, bool isSure,
             Played& played) {
    if (source.IsEqual(file)) {
        (kind == 0 ? played.m_Pictures : played.m_Samples) += source.Count();
    } else if (source.HasErrors() || !isSure) {
        AddNote(played, std::string("the ") + kNames[kind] +
                            " is damaged and does not decode alike each time: it was compared but not all played");
    } else if (!played.m_Fault) {
        played.m_Fault = std::string("its ") + kNames[kind] + " does not play as the source's" + where + ": " +
                         std::to_string(source.Count()) + (kind == 0 ? " pictures" : " samples") +
                         " come from the source, " +
                         (source.Count() == file.Count() ? "others" : std::to_string(file.Count())) + " from the file";
    }
}

Played PlayExcerpt(const std::string& path, const Excerpt& excerpt, bool hasVideo, const SourceStreams& sources) {
    Played played;
    const Decodings expected = DecodeSource(excerpt, sources);
    Decodings file;
    played.m_Fault = DecodeFile(path, excerpt, hasVideo, sources, file);
    if (played.m_Fault) return played;
    played.m_Places = 1;
    for (std::size_t i = 0; i < file.size(); ++i) {
        if (file[i] == nullptr) continue;
        const bool isEqual = expected[i]->IsEqual(*file[i]);
        const bool isSure = isEqual || DecodeSource(excerpt, sources)[i]->IsEqual(*expected[i]);
        Compare(i, *expected[i], *file[i], " from " + Seconds(excerpt.m_Time) + " on", isSure, played);
    }
    return played;
}

void NoteSilence(const SourceStreams& playable, Played& played) {
    if (played.m_Fault || !played.m_Notes.empty()) return;
    for (std::size_t i = 0; i < playable.size(); ++i) {
        if (playable[i] == nullptr || (i == 0 ? played.m_Pictures : played.m_Samples) > 0) continue;
        played.m_Notes.push_back("libavcodec decodes nothing of the source's " + std::string(kNames[i]) +
                                 ": its frames were compared but not played");
    }
}

} // namespace

Played PlayExcerpts(const std::string& path, const Excerpts& excerpts, const SourceStreams& sources) {
    Played played;
    const SourceStreams playable = Playable(sources, played);
    const bool hasVideo = sources[0] != nullptr;
    if (playable[0] == nullptr && playable[1] == nullptr) return played;
    std::vector<const Excerpt*> list;
    for (const Excerpt& excerpt : excerpts.All()) list.push_back(&excerpt);
    std::vector<Played> results(list.size());
    std::atomic<std::size_t> next = 0;
    const auto work = [&]() {
        for (std::size_t i = 0; (i = next++) < list.size();) {
            results[i] = PlayExcerpt(path, *list[i], hasVideo, playable);
        }
    };
    // Two, since each has the buffers of two decoders.
    std::future<void> other = std::async(std::launch::async, work);
    work();
    other.get();
    for (const Played& result : results) {
        if (!played.m_Fault) played.m_Fault = result.m_Fault;
        for (const std::string& note : result.m_Notes) AddNote(played, note);
        played.m_Places += result.m_Places;
        played.m_Pictures += result.m_Pictures;
        played.m_Samples += result.m_Samples;
    }
    NoteSilence(playable, played);
    return played;
}

WholePlay::WholePlay(const SourceStreams& sources) {
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (sources[i] != nullptr) m_Decodings[i] = std::make_unique<Decoding>(*sources[i], nullptr, 0);
    }
}

void WholePlay::Take(bool isVideo, const Frame& frame) { m_Decodings[isVideo ? 0 : 1]->Take(frame.Source()); }

Played WholePlay::Compare(const std::string& path, const SourceStreams& sources) {
    Played played;
    const SourceStreams playable = Playable(sources, played);
    RawFile file(path);
    if (!file.Error().empty()) {
        played.m_Fault = file.Error();
        return played;
    }
    Decodings decodings;
    for (std::size_t i = 0; i < playable.size(); ++i) {
        if (playable[i] == nullptr) continue;
        m_Decodings[i]->End();
        const AVStream* const stream = file.Stream(kTypes[i]);
        if (stream != nullptr) decodings[i] = std::make_unique<Decoding>(*stream->codecpar, nullptr, 0);
        if (decodings[i] == nullptr || !decodings[i]->IsPossible()) {
            played.m_Fault = std::string("no player knows what its ") + kNames[i] + " is";
            return played;
        }
    }
    const AvPtr<AVPacket> packet(av_packet_alloc());
    if (packet == nullptr) throw std::bad_alloc();
    while (SignalGuard::Caught() == 0 && file.Next(*packet) >= 0) {
        const AVMediaType type = file.Context()->streams[packet->stream_index]->codecpar->codec_type;
        const auto& decoding = decodings[type == AVMEDIA_TYPE_VIDEO ? 0 : 1];
        if (decoding != nullptr) decoding->Take(*packet);
        av_packet_unref(packet.get());
    }
    if (SignalGuard::Caught() != 0) return played; // the caller knows
    played.m_Places = 1;
    for (std::size_t i = 0; i < decodings.size(); ++i) {
        if (decodings[i] == nullptr) continue;
        decodings[i]->End();
        ::Compare(i, *m_Decodings[i], *decodings[i], "", true, played);
    }
    NoteSilence(playable, played);
    return played;
}
