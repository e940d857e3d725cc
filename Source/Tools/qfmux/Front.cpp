// SPDX-License-Identifier: MIT
#include "Front.h"

#include <cstdint>
#include <string>

#include "LossText.h"
#include "RunReport.h"
#include "ToolError.h"

void LeaveOutFront(Track& video, std::optional<Track>& audio) {
    const bool beginsHere = video.Next().m_Access.m_IsEntry;
    while (video.HasFrame() && !video.Next().m_Access.m_IsEntry) video.LeaveOutInFront();
    if (!video.HasFrame()) {
        throw ToolError(kExitError, "cannot use '" + video.Plan().m_pFile->Path() +
                                        "': decoding cannot begin at any of its pictures");
    }
    video.CutFront();
    if (beginsHere) return;
    const std::int64_t begin = video.Next().m_Presentation;
    while (audio && audio->HasFrame() && audio->Next().m_Presentation + audio->Next().m_Duration <= begin) {
        audio->LeaveOutInFront();
    }
}

void WarnOfFront(const Track& video, const std::optional<Track>& audio, RunReport& report) {
    if (video.InFront() == 0) return;
    const auto words = [](int frames, const char* kind, std::int64_t length) {
        return Counted(static_cast<std::size_t>(frames), kind) + " (" + SecondsText(length) + ")";
    };
    std::string text = words(video.InFront(), "picture", video.LengthInFront());
    if (audio && audio->InFront() > 0)
        text += " and " + words(audio->InFront(), "frame", audio->LengthInFront()) + " of sound";
    const bool isOne = video.InFront() == 1 && !(audio && audio->InFront() > 0);
    report.Warn(text + " of " + video.Plan().m_pFile->Path() + (isOne ? " was" : " were") +
                " left out before the first picture that can be decoded");
}
