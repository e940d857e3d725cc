// SPDX-License-Identifier: MIT
#include "EndLosses.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "IsoTracks.h"
#include "StreamEnds.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
}

namespace {

void Tell(Losses& losses, const char* kind, LossWeight weight, const std::string& text) {
    losses.push_back({kind, text, weight});
}

std::string SamplesText(std::uint64_t samples, int rate) {
    char text[48];
    std::snprintf(text, sizeof text, "%llu samples (%.1f ms)", static_cast<unsigned long long>(samples),
                  rate > 0 ? 1000.0 * static_cast<double>(samples) / rate : 0.0);
    return text;
}

// Channels that no encoder but PCM has a place for, and that libswresample does not mix into others: those overhead,
// for example.
void TellOfChannels(const AVChannelLayout& layout, Losses& losses) {
    std::vector<std::string> lost;
    for (unsigned i = 0; layout.order == AV_CHANNEL_ORDER_NATIVE && i < static_cast<unsigned>(layout.nb_channels);
         ++i) {
        const AVChannel channel = av_channel_layout_channel_from_index(&layout, i);
        if (channel <= AV_CHAN_SIDE_RIGHT || channel == AV_CHAN_STEREO_LEFT || channel == AV_CHAN_STEREO_RIGHT)
            continue;
        char name[32] = "";
        av_channel_name(name, sizeof name, channel);
        lost.emplace_back(name);
    }
    if (lost.empty()) return;
    Tell(losses, "channels", LossWeight::Warning,
         Counted(lost.size(), "channel") + (lost.size() == 1 ? " is" : " are") +
             " left out (the encoder has no place for " + (lost.size() == 1 ? "it" : "them") + "): " + Joined(lost));
}

void TellOfSound(const PlannedTrack& audio, const StreamEnds& ends, const IsoTrack& iso, const Options& options,
                 Losses& losses) {
    const AVCodecParameters& parameters = *audio.m_pStream->codecpar;
    const int rate = parameters.sample_rate;
    std::uint64_t end = ends.m_EndSamples;
    // libavformat drops whole frames after the edit.
    if (end == 0 && iso.m_TimeScale == static_cast<std::uint32_t>(rate) && parameters.frame_size > 0) {
        end = std::min<std::uint64_t>(iso.m_HiddenEnd, static_cast<std::uint64_t>(parameters.frame_size) - 1);
    }
    std::vector<std::string> parts;
    if (ends.m_StartSamples > 0) parts.push_back(SamplesText(ends.m_StartSamples, rate) + " at the start");
    if (end > 0) parts.push_back(SamplesText(end, rate) + " at the end");
    if (!parts.empty()) {
        Tell(losses, "trimming", LossWeight::Note,
             "players will play sound that they skip in the source: " + Joined(parts));
    }
    const bool hasGain = av_stream_get_side_data(audio.m_pStream, AV_PKT_DATA_REPLAYGAIN, nullptr) != nullptr;
    if (hasGain || Value(audio.m_pStream->metadata, "REPLAYGAIN_TRACK_GAIN") != nullptr) {
        Tell(losses, "volume", LossWeight::Note, "the replay gain is lost: players will not adjust the volume");
    }
    // Frames of other codecs carry the layout; for PCM the file has only the number of channels.
    AVChannelLayout usual{};
    av_channel_layout_default(&usual, parameters.ch_layout.nb_channels);
    const AVCodecID codec = audio.m_Encoding ? audio.m_Encoding->m_pTarget->m_Codec : parameters.codec_id;
    const bool isPcm = av_get_exact_bits_per_sample(codec) > 0;
    if (audio.m_Encoding && !isPcm && options.m_AudioFilter.empty()) TellOfChannels(parameters.ch_layout, losses);
    if (isPcm && parameters.ch_layout.order != AV_CHANNEL_ORDER_UNSPEC &&
        av_channel_layout_compare(&usual, &parameters.ch_layout) > 0) {
        char name[64] = "";
        av_channel_layout_describe(&parameters.ch_layout, name, sizeof name);
        Tell(losses, "channel layout", LossWeight::Note,
             std::string("the channel layout ") + name + " is lost: players will assume the usual layout");
    }
}

} // namespace

void TellOfEnds(const std::vector<const PlannedTrack*>& tracks, const Options& options, Losses& losses) {
    std::vector<std::string> edits;
    bool isApplicable = false; // by decoding
    for (const PlannedTrack* track : tracks) {
        const AVStream* const stream = track->m_pStream;
        const bool isSound = stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
        const char* const format = track->m_pFile->Context()->iformat->name;
        IsoTrack iso;
        if (av_match_name("mov", format) != 0) {
            iso = ReadIsoTracks(track->m_pFile->Path())[static_cast<std::uint32_t>(stream->id)];
        }
        StreamEnds ends;
        // Decoders leave out what the container hides. Other formats have no such data.
        const bool isEncoded = track->m_Encoding.has_value();
        for (const char* name : {"mov", "matroska", "mp3", "ogg", "flac", "caf"}) {
            if (isEncoded || av_match_name(name, format) == 0) continue;
            ends = ReadStreamEnds(*track->m_pFile, stream);
        }
        if (isSound) TellOfSound(*track, ends, iso, options, losses);
        if (ends.m_HiddenFrames > 0 && !isSound) {
            edits.push_back(Counted(static_cast<std::size_t>(ends.m_HiddenFrames), "picture") +
                            " before its start will be shown");
            isApplicable = true;
        }
        const std::string parts = std::to_string(iso.m_MediaEdits) + " parts of " + KindName(stream);
        if (iso.m_MediaEdits > 1 && !isEncoded) {
            edits.push_back("its " + parts +
                            (isSound ? " may have wrong edges" : " may begin too early, at key frames"));
            isApplicable = true;
        } else if (iso.m_MediaEdits > 1 && isSound) {
            Tell(losses, "trimming", LossWeight::Note,
                 "the " + parts + " in the edit list begin and end with whole frames");
        }
        if (iso.m_ChangesSpeed) edits.push_back("the change of speed of " + KindName(stream) + " is ignored");
    }
    if (!edits.empty()) {
        Tell(losses, "edit list", LossWeight::Warning,
             "the edit list is only partly applied: " + Joined(edits) +
                 (isApplicable ? " (--encode all applies it)" : ""));
    }
}
