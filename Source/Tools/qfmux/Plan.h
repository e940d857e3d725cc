// SPDX-License-Identifier: MIT
// The plan of a run: format, streams, codes and losses.
#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "CodecMap.h"
#include "Encoding.h"
#include "Loss.h"
#include "MediaFile.h"
#include "Options.h"
#include "Plugin.h"

class RunReport;

struct PlannedTrack {
    std::shared_ptr<MediaFile> m_pFile;
    AVStream* m_pStream;
    CodecChoice m_Choice;
    std::optional<Encoding> m_Encoding; // absent for a copy
};

struct Plan {
    const FileFormatInfo* m_pFormat = nullptr;
    std::optional<PlannedTrack> m_Video;
    std::optional<PlannedTrack> m_Audio;
    std::optional<Aspect> m_Aspect; // display aspect, if it differs from the pictures' size
    std::vector<Loss> m_Lost;

    // WEBM has no place for an aspect.
    bool WritesAspect() const { return m_Aspect && !IsWebm(); }
    bool IsWebm() const { return m_pFormat->fourCC == MakeFourCC("WEBM"); }
};

// The display aspect of pictures whose pixels are not square. pixel: the aspect of a pixel, 0/1 if it is not known.
std::optional<Aspect> DisplayAspect(AVRational pixel, const AVCodecParameters& parameters);

// Throws ToolError when the plug-in lists no formats.
const FileFormatInfo* FormatsOf(const Plugin& plugin);

// The formats must outlive the plan. Throws ToolError for codecs that the format does not support.
Plan MakePlan(const Options& options, const FileFormatInfo* formats,
              const std::vector<std::shared_ptr<MediaFile>>& inputs, RunReport& report);

nlohmann::json PlanAsJson(const Plan& plan, const Options& options);
// One line for each track.
std::vector<std::string> PlanAsLines(const Plan& plan);

// The plug-in's tables, for `qfmux formats`.
nlohmann::json FormatsAsJson(const FileFormatInfo* formats);
std::string FormatsAsText(const FileFormatInfo* formats);
