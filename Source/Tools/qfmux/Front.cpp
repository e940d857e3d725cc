// SPDX-License-Identifier: MIT
#include "Front.h"

#include <cstdint>
#include <cstdio>
#include <string>

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
        char text[80];
        std::snprintf(text, sizeof text, "%d %s%s (%.2f s)", frames, kind, frames == 1 ? "" : "s",
                      static_cast<double>(length) / 1e7);
        return std::string(text);
    };
    std::string text = words(video.InFront(), "picture", video.LengthInFront());
    if (audio && audio->InFront() > 0)
        text += " and " + words(audio->InFront(), "frame", audio->LengthInFront()) + " of sound";
    const bool isOne = video.InFront() == 1 && !(audio && audio->InFront() > 0);
    report.Warn(text + " of " + video.Plan().m_pFile->Path() + (isOne ? " was" : " were") +
                " left out before the first picture that can be decoded");
}
