// SPDX-License-Identifier: MIT
#include "Session.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "StagedFile.h"
#include "Surroundings.h"
#include "ToolError.h"

namespace {

using nlohmann::json;

constexpr int kSessionVersion = 1;

// Codes of four printable characters are written as such, others as numbers.
json FourCCToJson(FourCC fourCC) {
    std::string text;
    for (FourCC rest = fourCC; text.size() < 4; rest /= 256) text += static_cast<char>(rest % 256);
    for (const char c : text) {
        if (c < ' ' || c > '~') return fourCC;
    }
    return text;
}

FourCC FourCCFromJson(const json& value) {
    if (!value.is_string()) return value.get<FourCC>();
    const auto text = value.get<std::string>();
    if (text.size() != 4) throw std::runtime_error("a code has four characters");
    return MakeFourCC({text[0], text[1], text[2], text[3], '\0'});
}

json ToJson(const EncodeParam& param) {
    const VideoParam& video = param.videoParam;
    const AudioParam& audio = param.audioParam;
    return {{"formatFourCC", FourCCToJson(param.formatFourCC)},
            {"disableVideo", param.disableVideo},
            {"disableAudio", param.disableAudio},
            {"videoParam",
             {{"fourCC", FourCCToJson(video.fourCC)},
              {"width", video.width},
              {"height", video.height},
              {"frameRate", double{video.frameRate}},
              {"bitCount", video.bitCount}}},
            {"audioParam",
             {{"fourCC", FourCCToJson(audio.fourCC)},
              {"sampleRate", audio.sampleRate},
              {"channels", audio.channels},
              {"bitsPerSample", audio.bitsPerSample}}}};
}

EncodeParam EncodeParamFromJson(const json& value) {
    EncodeParam param{};
    const json& video = value.at("videoParam");
    const json& audio = value.at("audioParam");
    param.formatFourCC = FourCCFromJson(value.at("formatFourCC"));
    param.disableVideo = value.at("disableVideo");
    param.disableAudio = value.at("disableAudio");
    param.videoParam.fourCC = FourCCFromJson(video.at("fourCC"));
    param.videoParam.width = video.at("width");
    param.videoParam.height = video.at("height");
    param.videoParam.frameRate = video.at("frameRate").get<double>();
    param.videoParam.bitCount = video.at("bitCount");
    param.audioParam.fourCC = FourCCFromJson(audio.at("fourCC"));
    param.audioParam.sampleRate = audio.at("sampleRate");
    param.audioParam.channels = audio.at("channels");
    param.audioParam.bitsPerSample = audio.at("bitsPerSample");
    return param;
}

} // namespace

// ---- recording

SessionWriter::File SessionWriter::Create(const std::string& path, bool overwrite) {
    File file(std::fopen(path.c_str(), overwrite ? "wb" : "wbx"), std::fclose);
    if (file == nullptr) throw RecordError("cannot write '" + path + "': " + std::strerror(errno));
    return file;
}

SessionWriter::SessionWriter(const std::string& path, const std::string& pluginVersion, bool overwrite)
    : m_Text(nullptr, std::fclose), m_Payload(nullptr, std::fclose) {
    for (const std::string& name : {path, path + ".payload"}) {
        const std::string reason = WhyNotWritable(name, overwrite);
        if (!reason.empty()) throw RecordError("cannot write '" + name + "': " + reason);
    }
    m_Text = Create(path, overwrite);
    m_Payload = Create(path + ".payload", overwrite);
    Write({{"qfsession", kSessionVersion}, {"plugin", pluginVersion}});
}

void SessionWriter::Fail() {
    m_HasFailed = true;
    throw RecordError(std::string("cannot record the session: ") + std::strerror(errno));
}

json SessionWriter::Store(const void* data, std::int64_t size) {
    if (data == nullptr) return nullptr;
    json reference = {{"at", m_PayloadSize}, {"size", size}};
    if (size > 0 && !m_HasFailed) {
        const auto octets = static_cast<std::size_t>(size);
        if (std::fwrite(data, 1, octets, m_Payload.get()) != octets) Fail();
        m_PayloadSize += octets;
    }
    return reference;
}

void SessionWriter::Write(const json& line) {
    if (m_HasFailed) return;
    const std::string text = line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
    if (std::fputs(text.c_str(), m_Text.get()) < 0) Fail();
}

void SessionWriter::Flush() {
    if (!m_HasFailed && (std::fflush(m_Payload.get()) != 0 || std::fflush(m_Text.get()) != 0)) Fail();
}

void HostCalls::Record(const json& line) {
    if (m_Writer != nullptr) m_Writer->Write(line);
}

int HostCalls::FileNumber(void* handle) const {
    const auto file = m_Files.find(handle);
    return file != m_Files.end() ? file->second : 0;
}

int HostCalls::SetMuxParam(MuxParam* param) {
    json line = {{"call", "SetMuxParam"}, {"param", nullptr}};
    if (param != nullptr) {
        line["param"] = {{"muxFlags", param->muxFlags},
                         {"displayAspectX", param->displayAspectX},
                         {"displayAspectY", param->displayAspectY}};
    }
    const int result = m_Plugin.SetMuxParam(param);
    line["result"] = result;
    Record(line);
    return result;
}

void* HostCalls::CreateMediaFile(const std::wstring& path, const EncodeParam& param) {
    void* const handle = m_Plugin.CreateMediaFile(path.c_str(), &param);
    const int number = ++m_FileCount;
    if (handle != nullptr) m_Files[handle] = number;
    if (m_Writer != nullptr) {
        Record({{"call", "CreateMediaFile"},
                {"file", number},
                {"path", std::filesystem::path(path).u8string()},
                {"param", ToJson(param)},
                {"result", handle != nullptr}});
    }
    return handle;
}

int HostCalls::WriteVideoPacket(void* handle, const MEDIA_FRAME& frame) {
    if (m_Writer == nullptr) return m_Plugin.WriteVideoPacket(handle, &frame);
    // Stored before the call, which may rewrite the octets.
    json data = m_Writer->Store(frame.videoData, frame.videoSize);
    const int result = m_Plugin.WriteVideoPacket(handle, &frame);
    Record({{"call", "WriteVideoPacket"},
            {"file", FileNumber(handle)},
            {"timestamp", std::int64_t{frame.timestamp}},
            {"duration", frame.duration},
            {"frameFlags", frame.frameFlags},
            {"data", std::move(data)},
            {"result", result}});
    return result;
}

int HostCalls::WriteAudioPacket(void* handle, const MEDIA_FRAME& frame, int* frameSizes) {
    if (m_Writer == nullptr) return m_Plugin.WriteAudioPacket(handle, &frame, frameSizes);
    json sizes;
    if (frameSizes != nullptr) sizes = std::vector<int>(frameSizes + 1, frameSizes + 1 + std::max(frameSizes[0], 0));
    json data = m_Writer->Store(frame.audioData, frame.audioSize);
    const int result = m_Plugin.WriteAudioPacket(handle, &frame, frameSizes);
    Record({{"call", "WriteAudioPacket"},
            {"file", FileNumber(handle)},
            {"timestamp", std::int64_t{frame.timestamp}},
            {"duration", frame.duration},
            {"data", std::move(data)},
            {"frameSizes", std::move(sizes)},
            {"result", result}});
    return result;
}

void HostCalls::WriteVosData(void* handle, std::vector<std::uint8_t> data) {
    const int size = static_cast<int>(data.size());
    json kept = m_Writer != nullptr ? m_Writer->Store(data.data(), size) : nullptr;
    m_Plugin.WriteVosData(handle, data.data(), size);
    Record({{"call", "WriteVosData"}, {"file", FileNumber(handle)}, {"data", std::move(kept)}});
}

void HostCalls::WritezXPSData(void* handle, std::vector<std::uint8_t> pictureSet,
                              std::vector<std::uint8_t> sequenceSet) {
    const int pictureSize = static_cast<int>(pictureSet.size());
    const int sequenceSize = static_cast<int>(sequenceSet.size());
    json picture;
    json sequence;
    if (m_Writer != nullptr) {
        picture = m_Writer->Store(pictureSet.data(), pictureSize);
        sequence = m_Writer->Store(sequenceSet.data(), sequenceSize);
    }
    m_Plugin.WritezXPSData(handle, pictureSet.data(), pictureSize, sequenceSet.data(), sequenceSize);
    Record({{"call", "WritezXPSData"},
            {"file", FileNumber(handle)},
            {"pictureSet", std::move(picture)},
            {"sequenceSet", std::move(sequence)}});
}

void HostCalls::CloseMediaFile(void* handle) {
    m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
    Record({{"call", "CloseMediaFile"}, {"file", FileNumber(handle)}});
    m_Files.erase(handle);
    if (m_Writer != nullptr) m_Writer->Flush();
}

// ---- replaying

namespace {

constexpr const char* kTooShort = "the payload file does not have these bytes";

// The octets of a call, which the plug-in may rewrite. m_Size is the size that the call is given: any number.
struct Payload {
    std::vector<unsigned char> m_Octets;
    bool m_Null = true;
    std::int32_t m_Size = 0;

    unsigned char* Data() { return m_Null ? nullptr : m_Octets.data(); }
};

class Replay {
public:
    Replay(const Plugin& plugin, const std::string& path, std::string output, bool overwrite)
        : m_Plugin(plugin), m_Payload(path + ".payload", std::ios::binary), m_Output(std::move(output)),
          m_Overwrite(overwrite) {}

    ~Replay() {
        for (const auto& file : m_Files) m_Plugin.CloseMediaFile(file.second, nullptr, nullptr);
    }

    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    json Make(const json& line) {
        const std::string call = line.at("call");
        if (call == "SetMuxParam") return SetMuxParam(line);
        if (call == "CreateMediaFile") return CreateMediaFile(line);
        const int number = line.at("file");
        const auto file = m_Files.find(number);
        void* const handle = file != m_Files.end() ? file->second : nullptr;
        if (call == "WriteVideoPacket") return WriteVideoPacket(line, handle);
        if (call == "WriteAudioPacket") return WriteAudioPacket(line, handle);
        if (call == "WriteVosData") {
            Payload data = Octets(line.at("data"));
            m_Plugin.WriteVosData(handle, data.Data(), data.m_Size);
        } else if (call == "WritezXPSData") {
            Payload pictureSet = Octets(line.at("pictureSet"));
            Payload sequenceSet = Octets(line.at("sequenceSet"));
            m_Plugin.WritezXPSData(handle, pictureSet.Data(), pictureSet.m_Size, sequenceSet.Data(),
                                   sequenceSet.m_Size);
        } else if (call == "CloseMediaFile") {
            m_Plugin.CloseMediaFile(handle, nullptr, nullptr);
            m_Files.erase(number);
        } else {
            throw std::runtime_error("no such call: " + call);
        }
        return nullptr;
    }

private:
    Payload Octets(const json& reference) {
        if (reference.is_null()) return {};
        Payload payload;
        payload.m_Null = false;
        if (reference.contains("hex")) {
            const auto hex = reference.at("hex").get<std::string>();
            for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
                payload.m_Octets.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
            }
            payload.m_Size = static_cast<std::int32_t>(payload.m_Octets.size());
            return payload;
        }
        payload.m_Size = reference.at("size");
        if (payload.m_Size <= 0) {
            payload.m_Octets.resize(1); // so that the pointer is not null
            return payload;
        }
        m_Payload.clear();
        m_Payload.seekg(0, std::ios::end);
        const auto available = static_cast<std::uint64_t>(std::max<std::streamoff>(m_Payload.tellg(), 0));
        const std::uint64_t at = reference.at("at");
        const auto size = static_cast<std::uint64_t>(payload.m_Size);
        if (at > available || size > available - at) throw std::runtime_error(kTooShort);
        payload.m_Octets.resize(static_cast<std::size_t>(size));
        m_Payload.seekg(static_cast<std::streamoff>(at));
        m_Payload.read(reinterpret_cast<char*>(payload.m_Octets.data()), payload.m_Size);
        if (!m_Payload) throw std::runtime_error(kTooShort);
        return payload;
    }

    json SetMuxParam(const json& line) const {
        const json& value = line.at("param");
        if (value.is_null()) return m_Plugin.SetMuxParam(nullptr);
        MuxParam param{};
        param.muxFlags = value.at("muxFlags");
        param.displayAspectX = value.at("displayAspectX");
        param.displayAspectY = value.at("displayAspectY");
        return m_Plugin.SetMuxParam(&param);
    }

    json CreateMediaFile(const json& line) {
        const int number = line.at("file");
        const std::string path = number == 1 ? m_Output : m_Output + "." + std::to_string(number);
        const EncodeParam param = EncodeParamFromJson(line.at("param"));
        std::error_code none;
        if (!m_Overwrite && std::filesystem::exists(path, none)) {
            throw ToolError(kExitOutput, "cannot write '" + path + "': it exists; --overwrite replaces it");
        }
        void* const handle = m_Plugin.CreateMediaFile(std::filesystem::u8path(path).wstring().c_str(), &param);
        if (handle != nullptr) m_Files[number] = handle;
        return handle != nullptr;
    }

    static MEDIA_FRAME FrameFrom(const json& line) {
        MEDIA_FRAME frame{};
        frame.timestamp = line.at("timestamp").get<std::int64_t>();
        frame.duration = line.at("duration");
        return frame;
    }

    json WriteVideoPacket(const json& line, void* handle) {
        Payload data = Octets(line.at("data"));
        MEDIA_FRAME frame = FrameFrom(line);
        frame.frameFlags = line.at("frameFlags");
        frame.videoData = data.Data();
        frame.videoSize = data.m_Size;
        return m_Plugin.WriteVideoPacket(handle, &frame);
    }

    json WriteAudioPacket(const json& line, void* handle) {
        Payload data = Octets(line.at("data"));
        MEDIA_FRAME frame = FrameFrom(line);
        frame.audioData = data.Data();
        frame.audioSize = data.m_Size;
        std::vector<int> sizes;
        if (!line.at("frameSizes").is_null()) {
            sizes = line.at("frameSizes").get<std::vector<int>>();
            sizes.insert(sizes.begin(), static_cast<int>(sizes.size()));
        }
        return m_Plugin.WriteAudioPacket(handle, &frame, sizes.empty() ? nullptr : sizes.data());
    }

    const Plugin& m_Plugin;
    std::ifstream m_Payload;
    std::string m_Output;
    bool m_Overwrite;
    std::map<int, void*> m_Files;
};

} // namespace

void ReplaySession(const Plugin& plugin, const std::string& path, const std::string& output, bool overwrite,
                   const std::function<bool(const json&, int, const json&)>& onResult) {
    NeedRegularFile(path);
    std::error_code none;
    if (std::filesystem::exists(path + ".payload", none)) NeedRegularFile(path + ".payload");
    std::ifstream text(path);
    if (!text) throw std::runtime_error("cannot read '" + path + "': " + std::strerror(errno));
    Replay replay(plugin, path, output, overwrite);
    int number = 0;
    try {
        for (std::string words; std::getline(text, words);) {
            ++number;
            if (words.empty()) continue;
            const json line = json::parse(words);
            if (number == 1) {
                if (line.at("qfsession") != kSessionVersion) throw std::runtime_error("not a session of version 1");
                continue;
            }
            const json result = replay.Make(line);
            if (onResult && !onResult(line, number, result)) return;
        }
    } catch (const ToolError&) {
        throw;
    } catch (const std::exception& error) {
        throw std::runtime_error("'" + path + "', line " + std::to_string(number) + ": " + error.what());
    }
    if (number == 0) throw std::runtime_error("'" + path + "' is empty");
}
