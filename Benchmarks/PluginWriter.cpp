// SPDX-License-Identifier: MIT
// The plug-in, loaded and called as a host does.
//
// The plug-in writes through stdio alone, so the counting sink replaces fopen: it returns a stream of the C library
// whose octets are counted where they would go to the kernel.
#include <cstring>
#include <stdexcept>

#include "Plugin.h"
#include "StdioHook.h"
#include "Writer.h"

namespace {

FourCC Code(const char* text) {
    FourCC code;
    std::memcpy(&code, text, sizeof code); // the first character in the lowest octet
    return code;
}

class CountingFile {
public:
    static constexpr const char* kPath = "/counted";

    CountingFile() {
        StdioHook::SetOpen([this](const std::string& path, const char* mode) -> std::FILE* {
            if (path != kPath) return StdioHook::Open(path.c_str(), mode);
            cookie_io_functions_t functions{};
            functions.write = Write;
            functions.seek = Seek;
            return fopencookie(this, mode, functions);
        });
    }
    ~CountingFile() { StdioHook::SetOpen({}); }
    CountingFile(const CountingFile&) = delete;
    CountingFile& operator=(const CountingFile&) = delete;

    std::uint64_t m_Written = 0;

private:
    static ssize_t Write(void* cookie, const char*, std::size_t count) {
        auto& file = *static_cast<CountingFile*>(cookie);
        file.m_Written += count;
        file.m_Position += static_cast<off64_t>(count);
        if (file.m_Position > file.m_Size) file.m_Size = file.m_Position;
        return static_cast<ssize_t>(count);
    }

    static int Seek(void* cookie, off64_t* offset, int origin) {
        auto& file = *static_cast<CountingFile*>(cookie);
        *offset += origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.m_Position : file.m_Size;
        file.m_Position = *offset;
        return 0;
    }

    off64_t m_Position = 0;
    off64_t m_Size = 0;
};

class PluginWriter final : public Writer {
public:
    PluginWriter(const WorkloadKind& kind, const std::string& output) {
        const std::string path = output.empty() ? CountingFile::kPath : output;
        EncodeParam job{};
        job.formatFourCC = Code(kind.m_Format);
        job.disableVideo = *kind.m_VideoCodec == '\0';
        if (!job.disableVideo) job.videoParam.fourCC = Code(kind.m_VideoCodec);
        job.videoParam.width = 1920;
        job.videoParam.height = 1080;
        job.videoParam.frameRate = kind.m_FrameRate;
        job.videoParam.bitCount = 24;
        job.audioParam.fourCC = Code(kind.m_AudioCodec);
        job.audioParam.sampleRate = static_cast<std::int32_t>(kind.m_AudioRate);
        job.audioParam.channels = 2;
        job.audioParam.bitsPerSample = 16;
        m_pHandle = Library().CreateMediaFile(std::wstring(path.begin(), path.end()).c_str(), &job);
        if (m_pHandle == nullptr) throw std::runtime_error("the plug-in does not open " + path);
        SetUp(kind);
    }
    ~PluginWriter() override { Library().CloseMediaFile(m_pHandle, nullptr, nullptr); }

    void Write(const Frame& frame) override {
        MEDIA_FRAME& record = m_Record;
        record.timestamp = frame.m_Time;
        record.duration = frame.m_Duration;
        int taken = 0;
        if (frame.m_IsVideo) {
            record.videoData = frame.m_pData;
            record.videoSize = static_cast<std::int32_t>(frame.m_Size);
            record.frameFlags = frame.m_IsKey ? 1 : 0;
            taken = m_Plugin.WriteVideoPacket(m_pHandle, &record);
        } else {
            record.audioData = frame.m_pData;
            record.audioSize = static_cast<std::int32_t>(frame.m_Size);
            taken = m_Plugin.WriteAudioPacket(m_pHandle, &record, nullptr);
        }
        if (taken <= 0) throw std::runtime_error("the plug-in does not take a frame");
    }

    std::uint64_t Close() override {
        Library().CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
        return m_File.m_Written;
    }

private:
    // Loaded once: a host does not load a plug-in for each file.
    static const Plugin& Library() {
        static const Plugin plugin(QF_PLUGIN);
        return plugin;
    }

    void SetUp(const WorkloadKind& kind) {
        const auto copy = [](const auto& octets) {
            return std::vector<unsigned char>(std::begin(octets), std::end(octets));
        };
        if (kind.m_Framing != Framing::None) {
            auto pictureSet = copy(kPictureSet);
            auto sequenceSet = copy(kSequenceSet);
            m_Plugin.WritezXPSData(m_pHandle, pictureSet.data(), static_cast<int>(pictureSet.size()),
                                   sequenceSet.data(), static_cast<int>(sequenceSet.size()));
        }
        auto setup = Code(kind.m_AudioCodec) == MakeFourCC("VBIS") ? copy(kVorbisHeaders) : copy(kAacConfiguration);
        m_Plugin.WriteVosData(m_pHandle, setup.data(), static_cast<int>(setup.size()));
    }

    const Plugin& m_Plugin = Library();
    CountingFile m_File;
    MEDIA_FRAME m_Record{};
    void* m_pHandle = nullptr;
};

} // namespace

std::unique_ptr<Writer> OpenPlugin(const WorkloadKind& kind, const std::string& path) {
    return std::make_unique<PluginWriter>(kind, path);
}
