// SPDX-License-Identifier: MIT
#include "Playing.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>

#include "H264Units.h"
#include "Likeness.h"
#include "LossText.h"
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

std::string Seconds(std::int64_t milliseconds) { return SecondsText(10000 * milliseconds); }

// The file's packets at the place of an excerpt.
struct FilePiece {
    std::unique_ptr<RawFile> m_File;
    std::array<const AVStream*, 2> m_Streams{};
    std::array<std::vector<AvPtr<AVPacket>>, 2> m_Packets;
};

// Seeks to the excerpt and reads as many blocks of each track as the excerpt has, from the same time on. Returns the
// fault, or nothing.
std::optional<std::string> ReadPiece(const std::string& path, const Excerpt& excerpt, bool hasVideo,
                                     const SourceStreams& sources, FilePiece& piece) {
    piece.m_File = std::make_unique<RawFile>(path);
    RawFile& file = *piece.m_File;
    if (!file.Error().empty()) return file.Error();
    std::array<std::size_t, 2> left{};
    for (std::size_t i = 0; i < sources.size(); ++i) {
        left[i] = sources[i] != nullptr ? excerpt.m_Tracks[i].m_Packets.size() : 0;
        if (left[i] == 0) continue;
        piece.m_Streams[i] = file.Stream(kTypes[i]);
        if (piece.m_Streams[i] == nullptr) return std::string("it has no ") + kNames[i];
    }
    const AVStream* const cued = file.Stream(kTypes[hasVideo ? 0 : 1]);
    if (excerpt.m_Time > 0 && cued != nullptr &&
        av_seek_frame(file.Context(), cued->index, excerpt.m_Time, AVSEEK_FLAG_BACKWARD) < 0) {
        return "seeking to " + Seconds(excerpt.m_Time) + " fails";
    }
    while (left[0] + left[1] > 0) {
        AvPtr<AVPacket> packet = NewAvPacket();
        if (file.Next(*packet) < 0) return "a seek to " + Seconds(excerpt.m_Time) + " does not find the frames there";
        const std::size_t i =
            piece.m_Streams[0] != nullptr && piece.m_Streams[0]->index == packet->stream_index ? 0 : 1;
        if (left[i] == 0 || piece.m_Streams[i]->index != packet->stream_index) continue;
        const std::int64_t start = excerpt.m_Tracks[i].m_Start;
        const std::int64_t time = RawFile::Time(*packet);
        if (time < start || (piece.m_Packets[i].empty() && time != start)) continue;
        piece.m_Packets[i].push_back(std::move(packet));
        --left[i];
    }
    return std::nullopt;
}

// Whether both decoders get the same octets and set-up data, so that their results must be equal.
bool IsSameInput(const AVCodecParameters& source, const ExcerptTrack& track, const AVCodecParameters& file,
                 const std::vector<AvPtr<AVPacket>>& packets) {
    if (source.codec_id != file.codec_id || !track.m_Setup.empty()) return false;
    const std::vector<std::uint8_t> one(source.extradata, source.extradata + source.extradata_size);
    const std::vector<std::uint8_t> other(file.extradata, file.extradata + file.extradata_size);
    if (one != other) {
        // Different H.264 records may have the same meaning.
        if (source.codec_id != AV_CODEC_ID_H264) return false;
        const QfHost::H264Setup setup = QfHost::ReadH264Setup(one);
        const std::vector<NalUnit> sets = QfHost::ParameterSets(one);
        const std::vector<NalUnit> others = QfHost::ParameterSets(other);
        const bool isSame = std::equal(sets.begin(), sets.end(), others.begin(), others.end(),
                                       [](const NalUnit& left, const NalUnit& right) {
                                           return std::equal(left.m_pData, left.m_pData + left.m_Size, right.m_pData,
                                                             right.m_pData + right.m_Size);
                                       });
        if (setup.m_StartCodes || setup.m_LengthSize != 4 || !isSame) return false;
    }
    return std::equal(packets.begin(), packets.end(), track.m_Packets.begin(), track.m_Packets.end(),
                      [](const auto& left, const auto& right) {
                          return left->size == right->size &&
                                 std::memcmp(left->data, right->data, static_cast<std::size_t>(left->size)) == 0 &&
                                 av_packet_get_side_data(right.get(), AV_PKT_DATA_NEW_EXTRADATA, nullptr) == nullptr;
                      });
}

std::unique_ptr<Decoding> Decode(const AVCodecParameters& parameters, const std::vector<std::uint8_t>* setup,
                                 const std::vector<AvPtr<AVPacket>>& packets) {
    auto decoding = std::make_unique<Decoding>(parameters, setup, 1);
    for (const auto& packet : packets) decoding->Take(*packet);
    decoding->End();
    return decoding;
}

void AddNote(Played& played, const std::string& note) {
    if (std::find(played.m_Notes.begin(), played.m_Notes.end(), note) == played.m_Notes.end()) {
        played.m_Notes.push_back(note);
    }
}

// Compares one track of one excerpt. The source may be damaged; decoding damage need not give the same result twice.
void Compare(std::size_t kind, const Decoding& source, const Decoding& file, const std::string& where, bool isSure,
             Played& played) {
    if (source.IsEqual(file)) {
        (kind == 0 ? played.m_Pictures : played.m_Samples) += source.Count();
    } else if (source.HasErrors() || !isSure || file.Count() > source.Count()) {
        AddNote(played,
                std::string("the ") + kNames[kind] +
                    " is damaged and may decode differently each time: its frames were compared but not all played");
    } else if (!played.m_Fault) {
        played.m_Fault =
            std::string("its ") + kNames[kind] + " plays differently from the source's" + where + ": " +
            std::to_string(source.Count()) + (kind == 0 ? " pictures" : " samples") + " from the source, " +
            (source.Count() == file.Count() ? "different ones" : std::to_string(file.Count())) + " from the file";
    }
}

Played PlayExcerpt(const std::string& path, const Excerpt& excerpt, bool hasVideo, const SourceStreams& sources) {
    Played played;
    FilePiece piece;
    played.m_Fault = ReadPiece(path, excerpt, hasVideo, sources, piece);
    if (played.m_Fault) return played;
    played.m_Places = 1;
    for (std::size_t i = 0; i < sources.size(); ++i) {
        if (piece.m_Packets[i].empty()) continue;
        const ExcerptTrack& track = excerpt.m_Tracks[i];
        const AVCodecParameters& parameters = *piece.m_Streams[i]->codecpar;
        const std::unique_ptr<Decoding> file = Decode(parameters, nullptr, piece.m_Packets[i]);
        if (!file->IsPossible()) {
            played.m_Fault = std::string("players cannot recognise its ") + kNames[i];
            return played;
        }
        if (file->HasDamage()) played.m_Damage = excerpt.m_Time;
        // If the octets are the same in both files, decoding once halves the time.
        if (i == 0 && IsSameInput(*sources[i], track, parameters, piece.m_Packets[i])) {
            played.m_Pictures += file->Count();
            continue;
        }
        const std::unique_ptr<Decoding> source = Decode(*sources[i], &track.m_Setup, track.m_Packets);
        const bool isSure =
            source->IsEqual(*file) || Decode(*sources[i], &track.m_Setup, track.m_Packets)->IsEqual(*source);
        Compare(i, *source, *file, " from " + Seconds(excerpt.m_Time) + " on", isSure, played);
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
    // Two threads, since each has the buffers of two decoders.
    std::future<void> other = std::async(std::launch::async, work);
    work();
    other.get();
    for (const Played& result : results) {
        if (!played.m_Fault) played.m_Fault = result.m_Fault;
        if (!played.m_Damage) played.m_Damage = result.m_Damage;
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

void WholePlay::CompareWith(bool isVideo, Likeness& given) {
    Decoding* const decoding = m_Decodings[isVideo ? 0 : 1].get();
    if (decoding != nullptr) decoding->ShowTo([&given](const AVFrame& frame) { given.TakeResult(frame); });
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
            played.m_Fault = std::string("players cannot recognise its ") + kNames[i];
            return played;
        }
    }
    const AvPtr<AVPacket> packet = NewAvPacket();
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
        if (decodings[i]->HasDamage()) played.m_Damage = 0;
        ::Compare(i, *m_Decodings[i], *decodings[i], "", true, played);
    }
    NoteSilence(playable, played);
    return played;
}
