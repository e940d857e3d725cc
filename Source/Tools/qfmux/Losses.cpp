#include "Losses.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/display.h>
}

namespace {

using Inputs = std::vector<std::shared_ptr<MediaFile>>;

std::string Counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

const char* Value(const AVDictionary* tags, const char* key) {
    const AVDictionaryEntry* const entry = av_dict_get(tags, key, nullptr, 0);
    return entry != nullptr && entry->value[0] != '\0' ? entry->value : nullptr;
}

// ---- streams

// "#2 (aac, eng)", with its file where there are several.
std::string StreamName(const MediaFile& file, const AVStream& stream, bool withFile) {
    std::string text = (withFile ? file.Path() + " " : "") + "#" + std::to_string(stream.index);
    std::string about;
    if (stream.codecpar->codec_id != AV_CODEC_ID_NONE) about = avcodec_get_name(stream.codecpar->codec_id);
    if (const char* const language = Value(stream.metadata, "language")) {
        about += (about.empty() ? "" : ", ") + std::string(language);
    }
    return about.empty() ? text : text + " (" + about + ")";
}

bool IsCover(const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0; }

// MP4 keeps the titles of chapters in a track of its own.
bool IsChapterText(const AVFormatContext& context, const AVStream& stream) {
    return context.nb_chapters > 0 && stream.codecpar->codec_id == AV_CODEC_ID_BIN_DATA &&
           stream.discard == AVDISCARD_ALL;
}

struct StreamKind {
    const char* m_Kind;
    const char* m_Name; // of one
    const char* m_Reason;
};
constexpr StreamKind kVideo = {"video", "video stream", "the file holds one"};
constexpr StreamKind kAudio = {"audio", "audio stream", "the file holds one"};
constexpr StreamKind kUnknownVideo = {"video", "video stream", "its size is not known"};
constexpr StreamKind kUnknownAudio = {"audio", "audio stream", "its sample rate is not known"};
constexpr StreamKind kSubtitles = {"subtitles", "subtitle stream", "the file holds video and audio alone"};
constexpr StreamKind kData = {"data", "data stream", "the file holds video and audio alone"};
constexpr StreamKind kAttachments = {"attachments", "attachment", "the file has no place for it"};
constexpr StreamKind kCover = {"cover", "cover picture", "the file has no place for it"};

const StreamKind& KindOf(const AVStream& stream) {
    const bool isKnown = MediaFile::IsKnown(&stream);
    switch (stream.codecpar->codec_type) {
    case AVMEDIA_TYPE_VIDEO:
        return IsCover(stream) ? kCover : isKnown ? kVideo : kUnknownVideo;
    case AVMEDIA_TYPE_AUDIO:
        return isKnown ? kAudio : kUnknownAudio;
    case AVMEDIA_TYPE_SUBTITLE:
        return kSubtitles;
    case AVMEDIA_TYPE_ATTACHMENT:
        return kAttachments;
    default:
        return kData;
    }
}

class StreamLosses {
public:
    StreamLosses(const Plan& plan, const Inputs& inputs, const Options& options)
        : m_Plan(plan), m_Inputs(inputs), m_Options(options) {
        for (const auto& input : inputs) {
            for (unsigned i = 0; i < input->Context()->nb_streams; ++i) Add(*input, *input->Context()->streams[i]);
        }
    }

    void Tell(std::vector<Loss>& losses) const {
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
        if (&kind == &kAttachments || &kind == &kCover) return LossWeight::Note;
        const auto asked = [](bool isAsked) { return isAsked ? LossWeight::AsAsked : LossWeight::Warning; };
        if (&kind == &kSubtitles) return asked(m_Options.m_NoSubtitles);
        if (&kind == &kData) return asked(m_Options.m_NoData);
        const bool isVideo = &kind == &kVideo || &kind == &kUnknownVideo;
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

// ---- how pictures are shown

// By how many degrees, counterclockwise, players turn the pictures; 0 when they do not.
int Rotation(const AVStream* stream) {
    std::size_t size = 0;
    const std::uint8_t* const matrix = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    std::int32_t elements[9];
    if (matrix == nullptr || size < sizeof elements) return 0;
    std::memcpy(elements, matrix, sizeof elements);
    const double degrees = av_display_rotation_get(elements);
    return std::isnan(degrees) ? 0 : static_cast<int>(std::lround(degrees));
}

// Whether each picture has a second one beside it in the file, which tells how transparent it is.
bool HasAlpha(const AVStream* stream) {
    const char* const mode = Value(stream->metadata, "alpha_mode");
    return mode != nullptr && std::strcmp(mode, "0") != 0;
}

void TellOfPictures(const PlannedTrack& video, const Plan& plan, std::vector<Loss>& losses) {
    if (plan.m_Aspect && plan.IsWebm()) {
        losses.push_back({"aspect",
                          "the display aspect " + std::to_string(plan.m_Aspect->m_X) + ":" +
                              std::to_string(plan.m_Aspect->m_Y) + " is lost: players will show square pixels",
                          LossWeight::Warning});
    }
    if (const int degrees = Rotation(video.m_pStream); degrees != 0) {
        losses.push_back({"rotation",
                          "the rotation by " + std::to_string(std::abs(degrees)) +
                              " degrees is lost: players will show the pictures as they were recorded",
                          LossWeight::Warning});
    }
    if (HasAlpha(video.m_pStream)) {
        losses.push_back(
            {"transparency", "transparency is lost: players will show the pictures opaque", LossWeight::Warning});
    }
}

} // namespace

std::vector<Loss> ListLosses(const Plan& plan, const Inputs& inputs, const Options& options) {
    std::vector<Loss> losses;
    StreamLosses(plan, inputs, options).Tell(losses);
    if (plan.m_Video) TellOfPictures(*plan.m_Video, plan, losses);
    return losses;
}
