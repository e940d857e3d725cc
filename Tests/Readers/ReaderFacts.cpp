// SPDX-License-Identifier: MIT
#include "ReaderFacts.h"

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "Command.h"

namespace {

using nlohmann::json;

std::string Number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string Milliseconds(const std::string& hours, const std::string& minutes, const std::string& seconds) {
    return Number((std::stod(hours) * 3600 + std::stod(minutes) * 60 + std::stod(seconds)) * 1000);
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// The first capture in a text, empty for no match.
std::string Capture(const std::string& text, const std::string& pattern) {
    std::smatch match;
    return std::regex_search(text, match, std::regex(pattern)) ? match[1].str() : "";
}

void Put(Facts& facts, const std::string& property, const std::string& value) {
    if (!value.empty()) facts[property] = value;
}

// What a command printed to stderr, and that it failed.
std::string Complaints(const std::string& command) {
    const CommandResult result = RunCommand(command + " 2>&1 >/dev/null");
    std::string words = result.m_Output;
    if (result.m_ExitCode != 0) words += "exit code " + std::to_string(result.m_ExitCode);
    for (char& c : words) c = c == '\n' ? ' ' : c;
    return words;
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
    Facts facts;
    facts["complaints"] = Complaints("mkvinfo " + Quoted(file));
    std::string width;
    std::string displayWidth;
    bool isVideo = false;
    for (const std::string& line : Lines(RunCommand("mkvinfo " + Quoted(file) + " 2>&1").m_Output)) {
        if (line.find("(MKVInfo)") != std::string::npos) facts["complaints"] += line;
        const auto value = [&line](const char* name) {
            return Capture(line, std::string("^[| ]*\\+ ") + name + ": (.*)$");
        };
        std::smatch match;
        if (std::regex_search(line, match, std::regex("\\+ Duration: (\\d+):(\\d+):([\\d.]+)"))) {
            facts["duration"] = Milliseconds(match[1], match[2], match[3]);
        }
        if (const std::string type = value("Track type"); !type.empty()) isVideo = type == "video";
        Put(facts, isVideo ? "video codec" : "audio codec", value("Codec ID"));
        Put(facts, "container", value("Document type"));
        Put(facts, "frame rate", value("Frame rate"));
        Put(facts, "sample rate", value("Sampling frequency"));
        Put(facts, "channels", value("Channels"));
        if (!value("Pixel width").empty()) width = value("Pixel width");
        if (!value("Pixel height").empty()) facts["size"] = width + "x" + value("Pixel height");
        if (!value("Display width").empty()) displayWidth = value("Display width");
        if (!value("Display height").empty()) facts["display size"] = displayWidth + "x" + value("Display height");
    }
    std::vector<bool> keys;
    for (const std::string& line : Lines(RunCommand("mkvinfo -s " + Quoted(file) + " 2>&1").m_Output)) {
        if (line.find(" frame, track 1,") != std::string::npos) keys.push_back(line[0] == 'I');
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
    Facts facts;
    facts["complaints"] = Complaints("mediainfo " + Quoted(file));
    const json said = json::parse(RunCommand("mediainfo --Output=JSON " + Quoted(file)).m_Output);
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
        const auto value = [&line](const char* name) {
            return Capture(line, std::string("^ *") + name + " *: *([^ ]*)");
        };
        if (!value("Duration\\(secs\\)").empty() && facts.count("duration") == 0) {
            facts["duration"] = Number(std::stod(value("Duration\\(secs\\)")) * 1000);
        }
        Put(facts, "container", value("Doc Type"));
        if (!value("TrackType").empty()) isVideo = value("TrackType") == "1";
        Put(facts, isVideo ? "video codec" : "audio codec", value("CodecID"));
        Put(facts, "frame rate", value("FrameRate"));
        Put(facts, "sample rate", value("SamplingFrequency"));
        Put(facts, "channels", value("Channels"));
        if (!value("PixelWidth").empty()) width = value("PixelWidth");
        if (!value("PixelHeight").empty()) facts["size"] = width + "x" + value("PixelHeight");
        if (line.find("Block: type:V") != std::string::npos) keys.push_back(line.find("frame:I") != std::string::npos);
    }
    Put(facts, "key frames", Places(keys));
    return facts;
}

Facts GstDiscovererFacts(const std::string& file) {
    Facts facts = {{"complaints", ""}};
    const CommandResult said = RunCommand("gst-discoverer-1.0 -v " + Quoted(file) + " 2>&1 | cut -c 1-2000");
    for (const std::string& line : Lines(said.m_Output)) {
        std::smatch match;
        if (std::regex_search(line, std::regex("(error|warning|missing|WARN|CRITICAL)", std::regex::icase)) &&
            line.find("codec_data") == std::string::npos) {
            facts["complaints"] += line;
        }
        if (std::regex_search(line, match, std::regex("^ *Duration: (\\d+):(\\d+):([\\d.]+)"))) {
            facts["duration"] = Milliseconds(match[1], match[2], match[3]);
        }
        const auto number = [&line](const char* name) {
            return Capture(line, std::string("[, ]") + name + "=\\(int\\)(\\d+)");
        };
        if (std::regex_search(line, match, std::regex("^ *(video|audio) #\\d+: ([^, ]+)"))) {
            std::string codec = match[2];
            if (codec == "video/mpeg" || codec == "audio/mpeg") codec += " " + number("mpegversion");
            if (!number("layer").empty()) codec += " " + number("layer");
            facts[match[1].str() + " codec"] = codec;
        }
        if (!Capture(line, "^ *Width: (\\d+)").empty()) facts["size"] = Capture(line, "Width: (\\d+)");
        if (!Capture(line, "^ *Height: (\\d+)").empty()) facts["size"] += "x" + Capture(line, "Height: (\\d+)");
        if (std::regex_search(line, match, std::regex("^ *Frame rate: (\\d+)/(\\d+)"))) {
            facts["frame rate"] = Number(std::stod(match[1]) / std::stod(match[2]));
        }
        Put(facts, "sample rate", Capture(line, "^ *Sample rate: (\\d+)"));
        Put(facts, "channels", Capture(line, "^ *Channels: (\\d+)"));
    }
    return facts;
}

Facts FfprobeFacts(const std::string& file) {
    Facts facts;
    const std::string probe = "ffprobe -v warning -of json -show_format -show_streams -show_entries packet=flags," +
                              std::string("stream_index ") + Quoted(file);
    facts["complaints"] = Complaints(probe);
    const json said = json::parse(RunCommand(probe + " 2>/dev/null").m_Output);
    facts["duration"] = Number(std::strtod(said["format"].value("duration", "").c_str(), nullptr) * 1000);
    int video = -1;
    for (const json& stream : said["streams"]) {
        if (stream["codec_type"] == "video") {
            video = stream["index"];
            facts["video codec"] = stream["codec_name"];
            facts["size"] = stream["width"].dump() + "x" + stream["height"].dump();
            const std::string rate = stream.value("avg_frame_rate", "");
            facts["frame rate"] = Number(std::stod(rate) / std::stod(rate.substr(rate.find('/') + 1)));
        } else {
            facts["audio codec"] = stream["codec_name"];
            facts["sample rate"] = stream["sample_rate"];
            facts["channels"] = stream["channels"].dump();
        }
    }
    std::vector<bool> keys;
    for (const json& packet : said["packets"]) {
        if (packet["stream_index"] == video) keys.push_back(packet["flags"].get<std::string>()[0] == 'K');
    }
    Put(facts, "key frames", Places(keys));
    return facts;
}
