// SPDX-License-Identifier: MIT
#include "ReaderFacts.h"

#include <gst/gst.h>
#include <gst/pbutils/pbutils.h>

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Command.h"
#include "TempDirectory.h"

namespace {

using nlohmann::json;

std::string Number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

// Of "0:00:03.04".
std::string Milliseconds(const std::string& time) {
    int hours = 0;
    int minutes = 0;
    double seconds = 0;
    std::sscanf(time.c_str(), "%d:%d:%lf", &hours, &minutes, &seconds);
    return Number((hours * 3600 + minutes * 60 + seconds) * 1000);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// What stands on either side of a line's first colon, without the blanks and branches of a tree around it: "Codec ID"
// and "V_VP8" of "|  + Codec ID: V_VP8".
struct NameAndValue {
    explicit NameAndValue(const std::string& line) {
        const auto trimmed = [](const std::string& text) {
            const std::size_t begin = text.find_first_not_of("|+ ");
            return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
        };
        const std::size_t colon = line.find(':');
        m_Name = trimmed(line.substr(0, colon));
        if (colon != std::string::npos) m_Value = trimmed(line.substr(colon + 1));
    }

    std::string m_Name;
    std::string m_Value;
};

void Put(Facts& facts, const std::string& property, const std::string& value) {
    if (!value.empty()) facts[property] = value;
}

struct Said {
    std::string m_Output;
    std::string m_Complaints; // what the reader printed to stderr, and that it failed
};

Said Ask(const std::string& command) {
    const TempDirectory directory;
    const std::string errors = (directory / "errors").string();
    const CommandResult result = RunCommand(command + " 2>" + Quoted(errors));
    const std::vector<unsigned char> octets = ReadFile(errors);
    std::string words(octets.begin(), octets.end());
    if (result.m_ExitCode != 0) words += "exit code " + std::to_string(result.m_ExitCode);
    for (char& c : words) c = c == '\n' ? ' ' : c;
    return {result.m_Output, words};
}

} // namespace

std::string Places(const std::vector<bool>& flags) {
    std::string places;
    for (std::size_t i = 0; i < flags.size(); ++i) {
        if (flags[i]) places += (places.empty() ? "" : " ") + std::to_string(i);
    }
    return places;
}

Facts MkvinfoFacts(const std::string& file) {
    const Said said = Ask("mkvinfo --continue " + Quoted(file));
    Facts facts = {{"complaints", said.m_Complaints}};
    std::string width;
    std::string displayWidth;
    bool isVideo = false;
    bool refers = false; // the block group to another block
    std::vector<bool> keys;
    for (const std::string& line : Lines(said.m_Output)) {
        if (line.find("(MKVInfo)") != std::string::npos) facts["complaints"] += line;
        const auto [name, value] = NameAndValue(line);
        if (name == "Duration") facts["duration"] = Milliseconds(value);
        if (name == "Track type") isVideo = value == "video";
        if (name == "Codec ID") facts[isVideo ? "video codec" : "audio codec"] = value;
        if (name == "Document type") facts["container"] = value;
        if (name == "Frame rate") facts["frame rate"] = value;
        if (name == "Sampling frequency") facts["sample rate"] = value;
        if (name == "Channels") facts["channels"] = value;
        if (name == "Pixel width") width = value;
        if (name == "Pixel height") facts["size"] = width + "x" + value;
        if (name == "Display width") displayWidth = value;
        if (name == "Display height") facts["display size"] = displayWidth + "x" + value;
        if (name == "Block group") refers = false;
        if (name == "Reference block") refers = true;
        if (value.find("track number 1,") != std::string::npos) {
            keys.push_back(name == "Block" ? !refers : value.rfind("key,", 0) == 0);
        }
    }
    Put(facts, "key frames", Places(keys));
    return facts;
}

Facts MkvmergeFacts(const std::string& file) {
    Facts facts;
    const json said = json::parse(RunCommand("mkvmerge -J " + Quoted(file)).m_Output);
    for (const char* kind : {"warnings", "errors"}) {
        for (const json& words : said[kind]) facts["complaints"] += words.get<std::string>();
    }
    facts["complaints"] += said["container"]["recognized"] == true ? "" : "not recognised";
    const json& duration = said["container"]["properties"]["duration"];
    if (duration.is_number()) facts["duration"] = Number(duration.get<double>() / 1e6);
    for (const json& track : said["tracks"]) {
        const json& properties = track["properties"];
        if (track["type"] == "video") {
            facts["video codec"] = track["codec"];
            facts["size"] = properties["pixel_dimensions"];
            facts["display size"] = properties.value("display_dimensions", "none");
            facts["frame rate"] = Number(1e9 / properties["default_duration"].get<double>());
        } else {
            facts["audio codec"] = track["codec"];
            facts["sample rate"] = Number(properties["audio_sampling_frequency"].get<double>());
            facts["channels"] = Number(properties["audio_channels"].get<double>());
        }
    }
    return facts;
}

Facts MediainfoFacts(const std::string& file) {
    const Said answer = Ask("mediainfo --Output=JSON " + Quoted(file));
    Facts facts = {{"complaints", answer.m_Complaints}};
    const json said = json::parse(answer.m_Output);
    for (const json& track : said["media"]["track"]) {
        const auto value = [&track](const char* name) { return track.value(name, ""); };
        if (track["@type"] == "General") {
            facts["container"] = value("Format") == "WebM" ? "webm" : value("Format") == "Matroska" ? "matroska" : "";
            facts["duration"] = Number(std::strtod(value("Duration").c_str(), nullptr) * 1000);
            if (value("IsTruncated") == "Yes") facts["complaints"] += "IsTruncated";
        } else if (track["@type"] == "Video") {
            const std::string version = value("Format") == "MPEG Video" ? value("Format_Version") : "";
            facts["video codec"] = value("Format") + (version.empty() ? "" : " " + version);
            facts["size"] = value("Width") + "x" + value("Height");
            Put(facts, "frame rate", value("FrameRate"));
        } else if (track["@type"] == "Audio") {
            const std::string layer = value("Format") == "MPEG Audio" ? value("Format_Profile") : "";
            facts["audio codec"] = value("Format") + (layer.empty() ? "" : " " + layer);
            facts["sample rate"] = value("SamplingRate");
            facts["channels"] = value("Channels");
        }
    }
    return facts;
}

Facts WebmInfoFacts(const std::string& file) {
    Facts facts;
    const CommandResult said = RunCommand("webm_info -all -i " + Quoted(file) + " 2>&1");
    facts["complaints"] = said.m_ExitCode == 0 ? "" : "exit code " + std::to_string(said.m_ExitCode);
    for (const std::string& line : Lines(said.m_Output)) {
        if (line.find("failed") != std::string::npos) facts["complaints"] = line;
    }
    if (!facts["complaints"].empty()) return facts;
    std::string width;
    std::string displayWidth;
    bool isVideo = false;
    std::vector<bool> keys;
    for (const std::string& line : Lines(said.m_Output)) {
        const auto [name, value] = NameAndValue(line);
        if (name == "Duration(secs)") facts.emplace("duration", Number(std::stod(value) * 1000));
        if (name == "Doc Type") facts["container"] = value;
        if (name == "TrackType") isVideo = value == "1";
        if (name == "CodecID") facts[isVideo ? "video codec" : "audio codec"] = value;
        if (name == "FrameRate") facts["frame rate"] = value;
        if (name == "SamplingFrequency") facts["sample rate"] = value;
        if (name == "Channels") facts["channels"] = value;
        if (name == "PixelWidth") width = value;
        if (name == "PixelHeight") facts["size"] = width + "x" + value;
        if (line.find("Block: type:V") != std::string::npos) keys.push_back(line.find("frame:I") != std::string::npos);
    }
    Put(facts, "key frames", Places(keys));
    return facts;
}

Facts GstDiscovererFacts(const std::string& file) {
    gst_init(nullptr, nullptr);
    Facts facts = {{"complaints", ""}};
    std::string& complaints = facts["complaints"];
    const GLogFunc before = g_log_set_default_handler(
        [](const gchar*, GLogLevelFlags, const gchar* words, gpointer to) { *static_cast<std::string*>(to) += words; },
        &complaints);
    GError* error = nullptr;
    gchar* const uri = gst_filename_to_uri(file.c_str(), nullptr);
    GstDiscoverer* const discoverer = gst_discoverer_new(60 * GST_SECOND, nullptr);
    GstDiscovererInfo* const info = gst_discoverer_discover_uri(discoverer, uri, &error);
    if (error != nullptr) complaints += error->message;
    for (const gchar** missing = gst_discoverer_info_get_missing_elements_installer_details(info);
         missing != nullptr && *missing != nullptr; ++missing) {
        complaints += *missing;
    }
    facts["duration"] = Number(static_cast<double>(gst_discoverer_info_get_duration(info)) / GST_MSECOND);
    GList* const streams = gst_discoverer_info_get_stream_list(info);
    for (const GList* each = streams; each != nullptr; each = each->next) {
        auto* const stream = static_cast<GstDiscovererStreamInfo*>(each->data);
        const bool isVideo = GST_IS_DISCOVERER_VIDEO_INFO(stream) != FALSE;
        if (isVideo) {
            const GstDiscovererVideoInfo* const video = GST_DISCOVERER_VIDEO_INFO(stream);
            facts["size"] = std::to_string(gst_discoverer_video_info_get_width(video)) + "x" +
                            std::to_string(gst_discoverer_video_info_get_height(video));
            facts["frame rate"] = Number(static_cast<double>(gst_discoverer_video_info_get_framerate_num(video)) /
                                         gst_discoverer_video_info_get_framerate_denom(video));
        } else if (GST_IS_DISCOVERER_AUDIO_INFO(stream) != FALSE) {
            const GstDiscovererAudioInfo* const audio = GST_DISCOVERER_AUDIO_INFO(stream);
            facts["sample rate"] = std::to_string(gst_discoverer_audio_info_get_sample_rate(audio));
            facts["channels"] = std::to_string(gst_discoverer_audio_info_get_channels(audio));
        } else {
            continue; // the container
        }
        GstCaps* const form = gst_discoverer_stream_info_get_caps(stream);
        const GstStructure* const fields = gst_caps_get_structure(form, 0);
        std::string& codec = facts[isVideo ? "video codec" : "audio codec"];
        codec = gst_structure_get_name(fields);
        for (const char* field : {"mpegversion", "layer"}) {
            int value = 0;
            if (gst_structure_get_int(fields, field, &value) != FALSE) codec += " " + std::to_string(value);
        }
        gst_caps_unref(form);
    }
    gst_discoverer_stream_info_list_free(streams);
    g_object_unref(info);
    g_object_unref(discoverer);
    g_free(uri);
    g_clear_error(&error);
    g_log_set_default_handler(before, nullptr);
    return facts;
}
