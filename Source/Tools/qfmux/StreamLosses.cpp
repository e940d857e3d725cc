// SPDX-License-Identifier: MIT
#include "StreamLosses.h"

#include <algorithm>
#include <string>

namespace {

using Inputs = std::vector<std::shared_ptr<MediaFile>>;

// "#2 (aac, eng)", with the file's name if there are several inputs.
std::string StreamName(const MediaFile& file, const AVStream& stream, bool withFile) {
    std::string text = (withFile ? file.Path() + " " : "") + "#" + std::to_string(stream.index);
    std::string about;
    const AVCodecParameters& parameters = *stream.codecpar;
    if (parameters.codec_id != AV_CODEC_ID_NONE) {
        about = avcodec_get_name(parameters.codec_id);
    } else if (parameters.codec_tag != 0) {
        about = FourCCText(parameters.codec_tag); // "tmcd" for a time code
    }
    if (const char* const name = Value(stream.metadata, "filename"))
        about += (about.empty() ? "" : ", ") + std::string(name);
    if (const char* const language = Value(stream.metadata, "language")) {
        about += (about.empty() ? "" : ", ") + std::string(language);
    }
    return about.empty() ? text : text + " (" + about + ")";
}

// MP4 keeps the titles of chapters in a track of its own.
bool IsChapterText(const AVFormatContext& context, const AVStream& stream) {
    return context.nb_chapters > 0 && stream.codecpar->codec_id == AV_CODEC_ID_BIN_DATA &&
           stream.discard == AVDISCARD_ALL;
}

struct StreamKind {
    const char* m_Kind;
    const char* m_Name; // singular
    const char* m_Reason;
};
constexpr StreamKind kMoreVideo = {"video", "video stream", "the file holds one"};
constexpr StreamKind kMoreAudio = {"audio", "audio stream", "the file holds one"};
constexpr StreamKind kUnknownVideo = {"video", "video stream", "its size is not known"};
constexpr StreamKind kUnknownAudio = {"audio", "audio stream", "its sample rate is not known"};
constexpr StreamKind kSubtitles = {"subtitles", "subtitle stream", "the file holds only video and audio"};
constexpr StreamKind kData = {"data", "data stream", "the file holds only video and audio"};
constexpr StreamKind kNavigation = {"data", "navigation stream", "it serves the menus of a DVD"};
constexpr StreamKind kAttachments = {"attachments", "attachment", "the file has no place for it"};
constexpr StreamKind kCover = {"cover", "cover picture", "the file has no place for it"};

const StreamKind& KindOf(const AVStream& stream) {
    const bool isKnown = MediaFile::IsKnown(&stream);
    switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
        return IsCover(stream) ? kCover : isKnown ? kMoreVideo : kUnknownVideo;
    case AVMEDIA_TYPE_AUDIO:
        return isKnown ? kMoreAudio : kUnknownAudio;
    case AVMEDIA_TYPE_SUBTITLE:
        return kSubtitles;
    case AVMEDIA_TYPE_ATTACHMENT:
        return kAttachments;
    default:
        return stream.codecpar->codec_id == AV_CODEC_ID_DVD_NAV ? kNavigation : kData;
    }
}

class StreamGroups {
public:
    StreamGroups(const Plan& plan, const Inputs& inputs, const Options& options)
        : m_Plan(plan), m_Inputs(inputs), m_Options(options) {
        for (const auto& input : inputs) {
            for (unsigned i = 0; i < input->Context()->nb_streams; ++i) Add(*input, *input->Context()->streams[i]);
        }
    }

    void Tell(Losses& losses) const {
        for (const Group& group : m_Groups) {
            const bool isOne = group.m_Names.size() == 1;
            const std::string reason = group.m_Weight == LossWeight::AsAsked ? "as asked" : group.m_pKind->m_Reason;
            losses.push_back({group.m_pKind->m_Kind,
                              Counted(group.m_Names.size(), group.m_pKind->m_Name) + (isOne ? " is" : " are") +
                                  " left out (" + reason + "): " + Joined(group.m_Names),
                              group.m_Weight});
        }
    }

private:
    struct Group {
        const StreamKind* m_pKind;
        LossWeight m_Weight;
        std::vector<std::string> m_Names;
    };

    void Add(const MediaFile& file, const AVStream& stream) {
        for (const auto* track : {&m_Plan.m_Video, &m_Plan.m_Audio}) {
            if (*track && (*track)->m_pStream == &stream) return;
        }
        if (IsChapterText(*file.Context(), stream)) return;
        const StreamKind& kind = KindOf(stream);
        const LossWeight weight = WeightOf(kind, file);
        auto group = std::find_if(m_Groups.begin(), m_Groups.end(),
                                  [&](const Group& one) { return one.m_pKind == &kind && one.m_Weight == weight; });
        if (group == m_Groups.end()) group = m_Groups.insert(group, Group{&kind, weight, {}});
        group->m_Names.push_back(StreamName(file, stream, m_Inputs.size() > 1));
    }

    LossWeight WeightOf(const StreamKind& kind, const MediaFile& file) const {
        if (&kind == &kAttachments || &kind == &kCover || &kind == &kNavigation) return LossWeight::Note;
        const auto asked = [](bool isAsked) { return isAsked ? LossWeight::AsAsked : LossWeight::Warning; };
        if (&kind == &kSubtitles) return asked(m_Options.m_NoSubtitles);
        if (&kind == &kData) return asked(m_Options.m_NoData);
        const bool isVideo = &kind == &kMoreVideo || &kind == &kUnknownVideo;
        const std::optional<PlannedTrack>& chosen = isVideo ? m_Plan.m_Video : m_Plan.m_Audio;
        return asked((isVideo ? m_Options.m_NoVideo : m_Options.m_NoAudio) ||
                     (isVideo ? m_Options.m_VideoIndex : m_Options.m_AudioIndex) ||
                     // A format of sound alone was asked for, or of two files each for one kind.
                     (isVideo && m_Plan.m_pFormat->videoEncoders == nullptr) ||
                     (chosen && chosen->m_pFile.get() != &file));
    }

    const Plan& m_Plan;
    const Inputs& m_Inputs;
    const Options& m_Options;
    std::vector<Group> m_Groups;
};

} // namespace

void TellOfStreams(const Plan& plan, const Inputs& inputs, const Options& options, Losses& losses) {
    StreamGroups(plan, inputs, options).Tell(losses);
}
