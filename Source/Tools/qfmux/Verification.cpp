// SPDX-License-Identifier: MIT
#include "Verification.h"

#include <filesystem>
#include <functional>
#include <future>
#include <nlohmann/json.hpp>
#include <vector>

#include "Likeness.h"
#include "LossText.h"
#include "RunReport.h"
#include "SignalGuard.h"
#include "TimeLine.h"
#include "ToolError.h"
#include "Verify.h"

namespace {

SourceStreams StreamsOf(const std::optional<Track>& video, const std::optional<Track>& audio) {
    SourceStreams streams{};
    if (video) streams[0] = &video->SourceParameters();
    // After a change players use the first set-up data, of which the user is warned.
    if (audio && !audio->SetupHasChanged()) streams[1] = &audio->SourceParameters();
    return streams;
}

bool IsDamaged(const std::optional<Track>& video, const std::optional<Track>& audio) {
    for (const auto* track : {&video, &audio}) {
        if (!*track || (*track)->IsEncoded()) continue; // an encoder's frames are whole
        const ReadErrors& errors = (*track)->Plan().m_pFile->Errors();
        if (errors.Packets() + errors.Others() + (*track)->Reader().Damaged() > 0) return true;
    }
    return false;
}

void ReportLikeness(const std::vector<LikeMinute>& minutes, bool arePictures, RunReport& report) {
    nlohmann::json list = nlohmann::json::array();
    for (const LikeMinute& minute : minutes) {
        list.push_back(arePictures ? nlohmann::json{{"ssim", minute.m_Result}}
                                   : nlohmann::json{{"sourceLevel", minute.m_Source}, {"level", minute.m_Result}});
    }
    for (nlohmann::json& track : report.Facts()["tracks"]) {
        if (track["kind"] == (arePictures ? "video" : "audio")) track["encoding"]["minutes"] = list;
    }
    const std::string bad = OutOfLine(minutes, arePictures);
    if (bad.empty()) return;
    report.Note(arePictures ? "the encoded pictures differ more than usual from their source in " + bad
                            : "the encoded sound is not as loud as its source in " + bad);
}

} // namespace

Verification::Verification(const Options& options, std::int64_t length, std::optional<Track>& video,
                           std::optional<Track>& audio)
    : m_Options(options), m_Video(video), m_Audio(audio) {
    // Start-code form loses units and is for testing a plug-in.
    if (!options.m_H264.empty()) return;
    if (options.m_Verify == VerifyMode::Full) {
        m_Excerpts.emplace(video.has_value(), ToMilliseconds(length),
                           video && video->Reader().Parameters().codec_id == AV_CODEC_ID_MPEG4);
    }
    if (options.m_Verify != VerifyMode::Decode) return;
    m_Whole = std::make_unique<WholePlay>(StreamsOf(video, audio));
    for (auto* track : {&video, &audio}) {
        Likeness* const given = *track ? (*track)->Reader().Compared() : nullptr;
        if (given != nullptr) m_Whole->CompareWith(track == &video, *given);
    }
}

void Verification::Take(bool isVideo, const Frame& frame, std::int64_t time) {
    if (m_Excerpts) m_Excerpts->Take(isVideo, frame, time);
    if (m_Whole != nullptr) m_Whole->Take(isVideo, frame);
}

void Verification::Check(const StagedFile& output, Progress& progress, RunReport& report) {
    const std::string path = output.Path().string();
    std::uint64_t sent = 0;
    if (m_Video) sent += m_Video->Digest().TotalOctets();
    if (m_Audio) sent += m_Audio->Digest().TotalOctets();
    std::optional<std::string> fault = CheckSegmentSize(path);
    if (std::filesystem::file_size(output.Path()) < sent || fault) {
        throw ToolError(kExitOutput, "cannot write '" + m_Options.m_Output + "': " + output.WriteFailure() +
                                         "; the unfinished file was removed");
    }
    if (m_Options.m_Verify == VerifyMode::None) return;
    // Runs both at the same time: playing takes longer.
    std::future<Played> playing;
    if (m_Excerpts) {
        playing =
            std::async(std::launch::async, PlayExcerpts, path, std::cref(*m_Excerpts), StreamsOf(m_Video, m_Audio));
    }
    fault = CheckBlocks(path, m_Video ? &m_Video->Digest() : nullptr, m_Video && m_Video->HasUnits(),
                        m_Audio ? &m_Audio->Digest() : nullptr, progress);
    if (playing.valid()) m_Played = playing.get();
    if (m_Whole != nullptr && !fault) m_Played = m_Whole->Compare(path, StreamsOf(m_Video, m_Audio));
    if (!fault && m_Played.m_Fault && IsDamaged(m_Video, m_Audio)) {
        m_Played.m_Notes.emplace_back(
            "the source is damaged, and not all of it decodes alike each time: it was compared");
    } else if (!fault) {
        fault = m_Played.m_Fault;
    }
    if (fault) {
        throw ToolError(kExitVerification,
                        "'" + m_Options.m_Output + "' failed verification and was removed: " + *fault);
    }
    for (const std::string& note : m_Played.m_Notes) report.Note(note);
    if (m_Played.m_Damage && m_Video && !m_Video->IsEncoded()) {
        report.Warn(
            m_Video->Plan().m_pFile->Path() + " has damaged pictures that decoders conceal or leave out" +
            (m_Excerpts ? ", one of them in the second from " + SecondsText(10000 * *m_Played.m_Damage) + " on" : ""));
    }
    if (m_Whole == nullptr || SignalGuard::Caught() != 0) return;
    for (auto* track : {&m_Video, &m_Audio}) {
        Likeness* const given = *track ? (*track)->Reader().Compared() : nullptr;
        if (given != nullptr) ReportLikeness(given->Finish(), track == &m_Video, report);
    }
}
