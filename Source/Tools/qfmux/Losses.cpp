// SPDX-License-Identifier: MIT
#include "Losses.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <string>

#include "EndLosses.h"
#include "LossText.h"
#include "PictureLosses.h"
#include "StreamLosses.h"

extern "C" {
#include <libavutil/avstring.h>
}

namespace {

using Inputs = std::vector<std::shared_ptr<MediaFile>>;

void Note(Losses& losses, const char* kind, const std::string& text) {
    losses.push_back({kind, text, LossWeight::Note});
}

// Tags that a muxer or an encoder writes for programs, and tags that other losses report.
bool IsTechnical(const std::string& key) {
    static const std::set<std::string> kKeys = {
        "major_brand", "minor_version", "compatible_brands", "encoder", "handler_name",     "vendor_id",
        "duration",    "alpha_mode",    "stereo_mode",       "rotate",  "number_of_frames", "number_of_bytes",
        "bps",         "software",      "language",          "title",   "enc_key_id"};
    std::string name = key.substr(0, key.find('-')); // DURATION-eng
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return kKeys.count(name) > 0 || name.rfind("_statistics_", 0) == 0 || name.rfind("replaygain_", 0) == 0;
}

// Its streams have the tags that other files have.
bool IsOgg(const MediaFile& file) { return av_match_name("ogg", file.Context()->iformat->name) != 0; }

void AddKeys(std::vector<std::string>& keys, const AVDictionary* tags) {
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(tags, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        const bool isNew = std::find(keys.begin(), keys.end(), entry->key) == keys.end();
        if (isNew && !IsTechnical(entry->key) && entry->value[0] != '\0') keys.emplace_back(entry->key);
    }
}

void TellOfFilm(const Inputs& inputs, const std::vector<const PlannedTrack*>& tracks, Losses& losses) {
    std::size_t chapters = 0;
    std::vector<std::string> titles;
    std::vector<std::string> keys;
    for (const auto& input : inputs) {
        const AVFormatContext& context = *input->Context();
        chapters += context.nb_chapters;
        if (const char* const title = Value(context.metadata, "title"))
            titles.push_back("'" + std::string(title) + "'");
        if (IsOgg(*input)) {
            for (const PlannedTrack* track : tracks) {
                const char* const title =
                    track->m_pFile == input ? Value(track->m_pStream->metadata, "title") : nullptr;
                if (title != nullptr) titles.push_back("'" + std::string(title) + "'");
            }
        }
        AddKeys(keys, context.metadata);
        for (unsigned i = 0; i < context.nb_programs; ++i) AddKeys(keys, context.programs[i]->metadata);
    }
    for (const PlannedTrack* track : tracks) AddKeys(keys, track->m_pStream->metadata);
    if (chapters > 0) {
        Note(losses, "chapters", Counted(chapters, "chapter") + (chapters == 1 ? " is" : " are") + " left out");
    }
    if (!titles.empty()) Note(losses, "title", "the title is left out: " + Joined(titles));
    if (!keys.empty()) Note(losses, "tags", "tags are left out: " + Joined(keys));
}

void TellOfTracks(const std::vector<const PlannedTrack*>& tracks, Losses& losses) {
    std::vector<std::string> languages;
    std::vector<std::string> names;
    std::vector<std::string> flags;
    for (const PlannedTrack* track : tracks) {
        const AVStream* const stream = track->m_pStream;
        const std::string kind = " (" + KindName(stream) + ")";
        const char* const language = Value(stream->metadata, "language");
        if (language != nullptr && std::strcmp(language, "und") != 0) languages.push_back(language + kind);
        if (const char* const name = Value(stream->metadata, "title"); name != nullptr && !IsOgg(*track->m_pFile))
            names.push_back("'" + std::string(name) + "'" + kind);
        // Each track of the file is a default track and has no other flag.
        const char* const format = track->m_pFile->Context()->iformat->name;
        const bool knowsDefault = av_match_name("matroska", format) != 0 || av_match_name("mov", format) != 0;
        if (knowsDefault && (stream->disposition & AV_DISPOSITION_DEFAULT) == 0) flags.push_back("not default" + kind);
        for (int flag = 1; flag > 0 && flag <= AV_DISPOSITION_STILL_IMAGE; flag *= 2) {
            if (flag == AV_DISPOSITION_DEFAULT || (stream->disposition & flag) == 0) continue;
            if (const char* const name = av_disposition_to_string(flag)) flags.push_back(name + kind);
        }
    }
    if (!languages.empty()) Note(losses, "languages", "languages are left out: " + Joined(languages));
    if (!names.empty()) Note(losses, "track names", "track names are left out: " + Joined(names));
    if (!flags.empty()) Note(losses, "flags", "track flags are left out: " + Joined(flags));
}

} // namespace

Losses ListLosses(const Plan& plan, const Inputs& inputs, const Options& options) {
    Losses losses;
    std::vector<const PlannedTrack*> tracks;
    if (plan.m_Video) tracks.push_back(&*plan.m_Video);
    if (plan.m_Audio) tracks.push_back(&*plan.m_Audio);
    TellOfStreams(plan, inputs, options, losses);
    TellOfFilm(inputs, tracks, losses);
    TellOfTracks(tracks, losses);
    if (plan.m_Video) TellOfPictures(*plan.m_Video, plan, losses);
    TellOfEnds(tracks, options, losses);
    return losses;
}
