// SPDX-License-Identifier: MIT
#include "Damage.h"

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>

#include "LossText.h"
#include "TimeLine.h"

namespace {

struct Findings {
    std::int64_t m_Length = 0;   // of the frames read, 100 ns
    std::int64_t m_Promised = 0; // by the file's header, 100 ns; 0 if it has no length
    int m_Packets = 0;
    int m_Others = 0;
    int m_Gaps = 0;               // in the sound
    std::int64_t m_GapLength = 0; // 100 ns
    std::string m_Failure;        // the error that ended reading before the end of the file
};

// start: of the file's streams, 100 ns.
void Add(Findings& findings, const FrameSource& reader, const MediaFile& file, std::int64_t start) {
    const std::int64_t later = reader.Start() - start;
    const std::int64_t promised = reader.PromisedLength();
    findings.m_Length = std::max(findings.m_Length, later + reader.Length());
    findings.m_Promised = std::max(findings.m_Promised, promised > 0             ? later + promised
                                                        : reader.HasAllStreams() ? file.PromisedLength()
                                                                                 : 0);
    findings.m_Packets += reader.Damaged();
    findings.m_Gaps += reader.Gaps();
    findings.m_GapLength += reader.GapLength();
    if (findings.m_Failure.empty()) findings.m_Failure = reader.Failure();
}

// Headers are rounded, and some writers count from another start. Without other faults much must be missing.
bool IsShort(const Findings& findings) {
    const bool isDamaged = findings.m_Packets + findings.m_Others > 0 || !findings.m_Failure.empty();
    const std::int64_t missing = findings.m_Promised - findings.m_Length;
    return missing > (isDamaged ? kSecond / 4 : std::max(kSecond, findings.m_Promised / 10));
}

std::string Words(const Findings& findings) {
    std::string words;
    const auto add = [&words](const std::string& more) { words += (words.empty() ? "" : ", ") + more; };
    if (IsShort(findings)) {
        add("ends after " + SecondsText(findings.m_Length) + " of " + SecondsText(findings.m_Promised));
    } else if (!findings.m_Failure.empty()) {
        add("ends after " + SecondsText(findings.m_Length));
    }
    if (!findings.m_Failure.empty()) words += " (" + findings.m_Failure + ")";
    if (findings.m_Packets > 0) {
        add("has " + Counted(static_cast<std::size_t>(findings.m_Packets), "damaged packet"));
    } else if (findings.m_Others > 0 && words.empty()) {
        add("is damaged in " + Counted(static_cast<std::size_t>(findings.m_Others), "place"));
    }
    if (findings.m_Gaps > 0) {
        add("lacks " + SecondsText(findings.m_GapLength) + " of sound in " +
            Counted(static_cast<std::size_t>(findings.m_Gaps), "place"));
    }
    return words;
}

void WarnOfConcealment(const Track& track, bool isVideo, RunReport& report) {
    const auto count = static_cast<std::size_t>(track.Reader().Concealed());
    if (count == 0) return;
    const char* const one = isVideo ? "damaged picture" : "damaged piece";
    report.Warn(track.Plan().m_pFile->Path() + " has " + Counted(count, one) + (isVideo ? "" : " of sound") +
                " that the decoder concealed or left out, " + (count == 1 ? "at " : "the first at ") +
                SecondsText(track.Reader().FirstConcealed()));
}

} // namespace

void WarnOfDamage(const std::optional<Track>& video, const std::optional<Track>& audio, bool isCut, RunReport& report) {
    std::set<const MediaFile*> told;
    for (const auto* track : {&video, &audio}) {
        if (!*track || !told.insert((*track)->Plan().m_pFile.get()).second) continue;
        const auto pFile = (*track)->Plan().m_pFile;
        const MediaFile& file = *pFile;
        Findings findings;
        findings.m_Packets = file.Errors().Packets();
        findings.m_Others = file.Errors().Others();
        std::int64_t start = (*track)->Reader().Start();
        const auto eachReader = [&](const auto& visit) {
            for (const auto* other : {&video, &audio}) {
                if (*other && (*other)->Plan().m_pFile == pFile) visit((*other)->Reader());
            }
        };
        eachReader([&](const FrameSource& reader) { start = std::min(start, reader.Start()); });
        eachReader([&](const FrameSource& reader) { Add(findings, reader, file, start); });
        if (isCut) findings.m_Promised = 0;
        const std::string words = Words(findings);
        if (!words.empty()) report.Warn(file.Path() + " " + words);
    }
    if (video) WarnOfConcealment(*video, true, report);
    if (audio) WarnOfConcealment(*audio, false, report);
}
