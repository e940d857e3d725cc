// SPDX-License-Identifier: MIT
// A plug-in that passes all calls on to the real one but spoils one thing, which its file name selects, as in
// "hang-in-close.so". qfcheck must notice it, or a host's own check of its file. Under any other name it spoils
// nothing.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cfenv>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Plugin.h"

EncoderEntry MKVAudioEncoders[4];
EncoderEntry MKVVideoEncoders[8];
EncoderEntry HMKVAudioEncoders[2];
EncoderEntry HMKVVideoEncoders[4];
EncoderEntry WEBMAudioEncoders[2];
EncoderEntry WEBMVideoEncoders[2];
FileFormatInfo FormatArray[5];
EncoderInfo EncoderArray[1];
MuxParam m_MuxParam;
std::uint32_t IsWebm;

namespace {

using Bytes = std::vector<unsigned char>;

const Plugin& Real() {
    static const Plugin plugin(QF_PLUGIN);
    return plugin;
}

bool Spoils(const char* what) {
    static const std::string& name = *[] { // never destroyed: it is asked for at the end, too
        Dl_info info{};
        dladdr(&FormatArray, &info);
        return new std::string(std::filesystem::path(info.dli_fname).stem().string());
    }();
    return name == what;
}

// The state of an open file.
struct OpenFile {
    std::wstring m_Path;
    int m_Calls = 0;                  // for frames
    unsigned char* m_pKept = nullptr; // into the host's memory
    std::vector<Bytes> m_Held = {};
    std::thread::id m_Creator = std::this_thread::get_id();
};

std::map<void*, OpenFile> g_Files;
int g_FileCount = 0;
void* volatile g_pLeaked = nullptr;
int g_Frame = 0;

// Options and flag are the real plug-in's during a call, and this one's before and after it.
class InStep {
public:
    InStep() {
        *Real().m_pMuxParam = m_MuxParam;
        *Real().m_pIsWebm = Spoils("flag-of-one-only") && IsWebm != 1 ? 0 : IsWebm;
    }
    ~InStep() {
        m_MuxParam = *Real().m_pMuxParam;
        if (!Spoils("flag-never-set")) IsWebm = *Real().m_pIsWebm;
    }
    InStep(const InStep&) = delete;
    InStep& operator=(const InStep&) = delete;
};

[[noreturn]] void Crash() {
    std::raise(SIGSEGV);
    std::abort();
}

template <std::size_t N>
void CopyList(EncoderEntry (&own)[N], const EncoderEntry* real) {
    std::copy_n(real, N, own);
}

// Damage to the process of the host.
void SpoilProcess() {
    if (Spoils("changes-the-umask")) umask(0);
    if (Spoils("changes-the-directory")) static_cast<void>(chdir("/"));
    if (Spoils("changes-the-locale")) std::setlocale(LC_ALL, "C.UTF-8");
    if (Spoils("changes-the-environment")) setenv("QF_SPOILED", "1", 1);
    if (Spoils("ignores-a-signal")) std::signal(SIGPIPE, SIG_IGN);
    if (Spoils("blocks-signals")) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
    }
    if (Spoils("starts-a-thread")) std::thread([] {}).join();
    if (Spoils("seeds-chance")) std::srand(1);
    if (Spoils("rounds-up")) std::fesetround(FE_UPWARD);
    if (Spoils("prints")) std::puts("spoiled");
    if (Spoils("leaves-a-descriptor")) static_cast<void>(open("/dev/null", O_RDONLY));
    if (Spoils("changes-its-table")) FormatArray[0].extension[1] = L'M';
}

// Runs when the library is unloaded, or the program ends with it.
__attribute__((destructor)) void SpoilTheEnd() {
    if (Spoils("prints-at-the-end")) std::fputs("spoiled\n", stderr);
    if (Spoils("aborts-at-the-end")) std::abort();
}

// Runs when the library is loaded.
__attribute__((constructor)) void FillTables() {
    if (Spoils("hang-at-load")) pause();
    if (Spoils("changes-the-locale-at-load")) std::setlocale(LC_ALL, "C.UTF-8");
    if (Spoils("stays-loaded")) {
        Dl_info info{};
        dladdr(&FormatArray, &info);
        dlopen(info.dli_fname, RTLD_NOW);
    }
    const Plugin& real = Real();
    CopyList(MKVAudioEncoders, real.m_pMKVAudioEncoders);
    CopyList(MKVVideoEncoders, real.m_pMKVVideoEncoders);
    CopyList(HMKVAudioEncoders, real.m_pHMKVAudioEncoders);
    CopyList(HMKVVideoEncoders, real.m_pHMKVVideoEncoders);
    CopyList(WEBMAudioEncoders, real.m_pWEBMAudioEncoders);
    CopyList(WEBMVideoEncoders, real.m_pWEBMVideoEncoders);
    EncoderEntry* const lists[][2] = {{MKVAudioEncoders, MKVVideoEncoders},
                                      {HMKVAudioEncoders, HMKVVideoEncoders},
                                      {MKVAudioEncoders, nullptr},
                                      {WEBMAudioEncoders, WEBMVideoEncoders}};
    for (std::size_t i = 0; i < 4; ++i) {
        FileFormatInfo& format = FormatArray[i];
        format = real.m_pFormatArray[i];
        format.audioEncoders = lists[i][0];
        format.videoEncoders = lists[i][1];
        format.CreateMediaFile = CreateMediaFile;
        format.WriteAudioPacket = WriteAudioPacket;
        if (format.WriteVideoPacket != nullptr) format.WriteVideoPacket = WriteVideoPacket;
        format.CloseMediaFile = CloseMediaFile;
        format.WriteVosData = WriteVosData;
        if (format.WritezXPSData != nullptr) format.WritezXPSData = WritezXPSData;
        if (format.SetMuxParam != nullptr) format.SetMuxParam = SetMuxParam;
    }

    if (Spoils("table-entry-swapped")) {
        auto* const close = reinterpret_cast<unsigned char*>(&FormatArray[0].CloseMediaFile);
        std::swap_ranges(close, close + sizeof(void*), reinterpret_cast<unsigned char*>(&FormatArray[0].WriteVosData));
    }
    if (Spoils("audio-format-with-video")) FormatArray[2].WriteVideoPacket = WriteVideoPacket;
    if (Spoils("wrong-format-code")) FormatArray[1].fourCC = MakeFourCC("HMKW");
    if (Spoils("wrong-extension")) FormatArray[3].extension[1] = L'v';
    if (Spoils("records-too-long")) std::memmove(FormatArray[1].extension, &FormatArray[1], 800);
    if (Spoils("wrong-codec")) MKVVideoEncoders[2].fourCC = MakeFourCC("h264");
    if (Spoils("codec-list-of-another")) FormatArray[1].audioEncoders = MKVAudioEncoders;
    if (Spoils("offers-an-encoder")) EncoderArray[0].fourCC = MakeFourCC("H264");
    if (Spoils("flag-set-at-load")) IsWebm = 1;
}

// UTF-8, whatever the locale and whatever the path.
std::string Narrow(const std::wstring& path) {
    std::string text;
    for (const wchar_t character : path) {
        const auto code = static_cast<std::uint32_t>(character);
        const unsigned more = code < 0x80 ? 0 : code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
        constexpr unsigned kLead[] = {0, 0xC0, 0xE0, 0xF0};
        text += static_cast<char>(kLead[more] | code >> (6 * more));
        for (unsigned i = more; i-- > 0;) text += static_cast<char>(0x80 | (code >> (6 * i) & 0x3F));
    }
    return text;
}

Bytes ReadOctets(const std::wstring& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(Narrow(path).c_str(), "rb"), std::fclose);
    Bytes octets;
    for (int c; file != nullptr && (c = std::fgetc(file.get())) != EOF;)
        octets.push_back(static_cast<unsigned char>(c));
    return octets;
}

void WriteOctets(const std::wstring& path, const Bytes& octets) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(Narrow(path).c_str(), "wb"), std::fclose);
    if (file != nullptr) std::fwrite(octets.data(), 1, octets.size(), file.get());
}

// Where octets lie in a file; its end when they do not.
Bytes::iterator Find(Bytes& file, const Bytes& octets) {
    return std::search(file.begin(), file.end(), octets.begin(), octets.end());
}

// The finished file, spoiled.
void SpoilFile(const std::wstring& path) {
    Bytes file = ReadOctets(path);
    const auto change = [&file](const Bytes& octets, std::ptrdiff_t at, int difference) {
        const auto found = Find(file, octets);
        if (found == file.end()) return;
        found[at] = static_cast<unsigned char>(found[at] + difference);
    };
    if (file.empty()) {
        if (!Spoils("empty-file-gets-a-header")) return;
        file = {0x1A, 0x45, 0xDF, 0xA3, 0x80};
    } else if (Spoils("header-octet-changed")) {
        change({0x42, 0x85, 0x81}, 3, 1); // DocTypeReadVersion
    } else if (Spoils("segment-length-off")) {
        change({0x18, 0x53, 0x80, 0x67}, 11, -1);
    } else if (Spoils("no-duration")) {
        change({0x44, 0x89, 0x84}, 4, -0x40);
    } else if (Spoils("date-of-1904")) {
        change({0x44, 0x61, 0x88}, 3, 0x10);
    } else if (Spoils("muxing-app-changed")) {
        change({0x4D, 0x80, 0x97}, 4, 1);
    } else if (Spoils("codec-id-changed")) {
        change({'V', '_', 'V', 'P', '8'}, 4, 1);
    } else if (Spoils("track-size-swapped")) {
        change({0xB0, 0x82, 0x01, 0x40}, 3, 0x40);
    } else if (Spoils("cue-position-off")) {
        change({0xF7, 0x81, 0x01, 0xF1, 0x82}, 6, 1);
    } else if (Spoils("key-flag-lost")) {
        change({0xA3, 0x8B, 0x81, 0x00, 0x00, 0x80}, 5, -0x80);
    } else if (Spoils("block-time-off")) {
        change({0x82, 0x00, 0x78, 0x00}, 2, 5);
    } else if (Spoils("seek-entry-off")) {
        change({0x53, 0xAB, 0x84, 0x16, 0x54, 0xAE, 0x6B, 0x53, 0xAC, 0x82}, 11, 1);
    } else if (Spoils("uid-of-zeros")) {
        const auto uid = Find(file, {0x73, 0xC5, 0x84});
        if (uid != file.end()) std::fill_n(uid + 3, 4, static_cast<unsigned char>(0));
    } else if (Spoils("late-cue-off")) {
        // In the last cue of many.
        const Bytes cue = {0xF7, 0x81, 0x01, 0xF1, 0x83};
        const auto last = std::find_end(file.begin(), file.end(), cue.begin(), cue.end());
        if (last != file.end()) last[7] = static_cast<unsigned char>(last[7] + 1);
    } else if (Spoils("late-cluster-off")) {
        // Of the file's second minute.
        change({0xE7, 0x83, 0x01, 0x11, 0x70}, 4, 1);
    } else if (Spoils("no-cues")) {
        // A Void lies in their place.
        const Bytes id = {0x1C, 0x53, 0xBB, 0x6B};
        const auto cues = std::find_end(file.begin(), file.end(), id.begin(), id.end());
        if (cues == file.end()) return;
        const auto size = static_cast<unsigned char>(cues[4] & 0x7F);
        cues[0] = 0xEC;
        cues[1] = static_cast<unsigned char>(0x80 + size + 3);
        std::fill(cues + 2, cues + 5 + size, static_cast<unsigned char>(0));
    } else {
        return;
    }
    WriteOctets(path, file);
}

} // namespace

FileFormatInfo* GetFileFormats() {
    Real().GetFileFormats();
    if (Spoils("logs-twice")) Real().GetFileFormats();
    if (Spoils("table-null")) return nullptr;
    static FileFormatInfo bare[2]; // one format bare of all else, and the end
    bare[0].fourCC = MakeFourCC("MKV ");
    if (Spoils("table-bare")) return bare;
    if (Spoils("table-empty")) return bare + 1;
    return Spoils("table-of-another") ? Real().m_pFormatArray : FormatArray;
}

EncoderInfo* GetEncoders() { return EncoderArray; }

int GetMultiVersion(char* buffer) {
    const int result = Real().GetMultiVersion(buffer);
    if (buffer == nullptr) return result;
    if (Spoils("wrong-version")) buffer[result - 1] = '5';
    if (Spoils("version-past-its-buffer")) std::strcpy(buffer, "5,0,0,14.0");
    if (Spoils("version-not-counted")) return 1;
    return result;
}

int FindFileFormat(unsigned long format) {
    return Spoils("finds-any-format") && format != 0 ? 1 : Real().FindFileFormat(format);
}

void* CreateEncoder(unsigned long, const EncodeParam*) { return nullptr; }

int Encode(void*, const MEDIA_FRAME*, MEDIA_FRAME** outFrame, int**) {
    if (Spoils("encode-touches-out") && outFrame != nullptr) *outFrame = nullptr;
    return 0;
}

void DestroyEncoder(void*) {}

int ReviseAudioParam(AudioParam* param) {
    if (Spoils("audio-revised") && param != nullptr) param->sampleRate = 48000;
    return 1;
}

int SetMuxParam(MuxParam* param) {
    const InStep inStep;
    const int result = Real().SetMuxParam(param);
    MuxParam& stored = *Real().m_pMuxParam;
    if (Spoils("aspect-not-reduced") && param != nullptr) stored.displayAspectX = param->displayAspectX;
    if (Spoils("aspect-of-another-sign") && param != nullptr && param->displayAspectY < 0) {
        stored.displayAspectX = -stored.displayAspectX;
    }
    if (Spoils("options-half-copied")) stored.host20 = 0;
    if (Spoils("result-of-options") && result == 9) return 16;
    if (Spoils("host-options-changed") && param != nullptr) *param = stored;
    return result;
}

void* CreateMediaFile(const wchar_t* path, const EncodeParam* param) {
    const InStep inStep;
    if (path != nullptr && param != nullptr) SpoilProcess();
    if (Spoils("crash-at-null-path") && path == nullptr) Crash();
    std::wstring where = path != nullptr ? path : L"";
    EncodeParam job{};
    if (param != nullptr) job = *param;
    if (Spoils("records-one-word-longer") && param != nullptr) {
        job.formatFourCC = (&param->formatFourCC)[1]; // past the end of the host's record
    }
    if (Spoils("past-the-host-record") && param != nullptr) {
        auto* const record = const_cast<EncodeParam*>(param);
        (&record->formatFourCC)[1] = 0;
    }
    if (Spoils("video-row-swapped") && job.videoParam.fourCC == MakeFourCC("MP2V")) {
        job.videoParam.fourCC = MakeFourCC("MP1V");
    }
    if (Spoils("audio-row-swapped") && job.audioParam.fourCC == MakeFourCC("DTS ")) {
        job.audioParam.fourCC = MakeFourCC("AC3 ");
    }
    if (Spoils("channels-cut") && job.audioParam.channels > 2) job.audioParam.channels = 2;
    if (Spoils("height-without-sign")) job.videoParam.height = std::abs(job.videoParam.height);
    if (Spoils("doc-type-of-sound") && job.disableVideo != 0) job.videoParam.fourCC = 0;
    if (Spoils("sixteen-files") && g_Files.size() >= 16) return nullptr;
    if (Spoils("name-cut") && where.size() > 1023) where.resize(1023);
    if (Spoils("written-at-the-end")) where += L".part";
    if (Spoils("no-display-size")) Real().m_pMuxParam->muxFlags = 0;
    void* handle = Real().CreateMediaFile(path != nullptr ? where.c_str() : nullptr, param != nullptr ? &job : nullptr);
    if (Spoils("a-handle-for-nothing") && handle == nullptr && !where.empty() && param != nullptr) {
        handle = Real().CreateMediaFile(L"a.iso:", &job);
    }
    if (handle == nullptr) return handle;
    ++g_FileCount;
    if (Spoils("written-at-the-end")) WriteOctets(path, {});
    if (Spoils("nobody-may-read")) chmod(Narrow(where).c_str(), 0600);
    if (Spoils("options-for-one-file")) Real().m_pMuxParam->muxFlags = 0;
    if (Spoils("leaks-each-file")) g_pLeaked = std::malloc(1);
    try {
        g_Files[handle] = {where};
    } catch (const std::bad_alloc&) {
        Real().CloseMediaFile(handle, nullptr, nullptr);
        throw;
    }
    return handle;
}

int WriteVideoPacket(void* handle, const MEDIA_FRAME* frame) {
    const InStep inStep;
    if (Spoils("no-null-check-of-handles") && handle == nullptr) Crash();
    if (Spoils("no-null-check-of-frames") && frame->videoSize == 0) return 0;
    if (handle == nullptr || frame == nullptr) return Real().WriteVideoPacket(handle, frame);
    OpenFile& file = g_Files[handle];
    MEDIA_FRAME copy = *frame;
    const std::size_t size =
        frame->videoData != nullptr && frame->videoSize > 0 ? static_cast<std::size_t>(frame->videoSize) : 0;
    Bytes octets(frame->videoData, frame->videoData + size);
    ++g_Frame;
    ++file.m_Calls;
    if (Spoils("thread-of-the-creator") && file.m_Creator != std::this_thread::get_id()) return 0;
    if (Spoils("leaks-each-frame")) g_pLeaked = std::malloc(1);
    if (Spoils("holds-each-frame")) file.m_Held.push_back(octets);
    if (Spoils("times-of-32-bits")) copy.timestamp = static_cast<std::int32_t>(copy.timestamp);
    if (Spoils("times-of-a-day")) copy.timestamp %= 864000000000;
    if (Spoils("times-below-zero-cut")) copy.timestamp = std::max<std::int64_t>(copy.timestamp, 0);
    const bool takesCopy = (Spoils("tenth-frame-spoiled") && g_Frame == 10) || Spoils("frame-not-rewritten") ||
                           Spoils("start-codes-cut") || Spoils("other-files-frame") || Spoils("large-frame-spoiled");
    if (takesCopy && size > 0) {
        if (Spoils("tenth-frame-spoiled")) octets.back() = static_cast<unsigned char>(~octets.back());
        if (Spoils("large-frame-spoiled") && size > 0x10000) octets[0x10000] ^= 1U;
        if (Spoils("other-files-frame") && g_Files.size() > 1 && file.m_Calls == 3) octets.back() ^= 1U;
        copy.videoData = octets.data();
    }
    if (Spoils("every-frame-rewritten") && size > 4) frame->videoData[3] = static_cast<unsigned char>(size - 4);
    if (Spoils("frame-record-changed")) const_cast<MEDIA_FRAME*>(frame)->hostAfterTimestamp[0] = 1;
    if (Spoils("wrong-kind-is-taken") && IsWebm != 0 && size > 0) return frame->videoSize;
    if (Spoils("frame-lost") && file.m_Calls == 20) return frame->videoSize;
    if (Spoils("keeps-a-pointer") && size > 0) file.m_pKept = frame->videoData;
    if (Spoils("reads-past-the-frame") && size > 0) {
        volatile unsigned char next = frame->videoData[frame->videoSize];
        static_cast<void>(next);
    }
    if (Spoils("second-file-spoiled") && g_FileCount > 1 && file.m_Calls == 2) copy.timestamp += 10000;
    int result = 0;
    try {
        result = Real().WriteVideoPacket(handle, &copy);
    } catch (const std::bad_alloc&) {
        if (!Spoils("frame-lost-without-memory")) throw;
        result = frame->videoSize;
    }
    return Spoils("video-result") && result > 0 ? 1 : result;
}

int WriteAudioPacket(void* handle, const MEDIA_FRAME* frame, int* sizes) {
    const InStep inStep;
    if (handle == nullptr || frame == nullptr) return Real().WriteAudioPacket(handle, frame, sizes);
    if (Spoils("negative-size-taken") && frame->audioSize < 0) return -1;
    if (Spoils("packed-frames-as-one") && sizes != nullptr && sizes[0] > 0 && sizes[1] > 0) {
        return Real().WriteAudioPacket(handle, frame, nullptr);
    }
    if (Spoils("audio-changed") && frame->audioSize > 0) frame->audioData[0] ^= 0xFFU;
    if (Spoils("sizes-changed") && sizes != nullptr) sizes[0] = 0;
    if (Spoils("times-cut")) {
        MEDIA_FRAME copy = *frame;
        copy.timestamp = frame->timestamp / 10000 * 10000;
        return Real().WriteAudioPacket(handle, &copy, sizes);
    }
    return Real().WriteAudioPacket(handle, frame, sizes);
}

void WriteVosData(void* handle, unsigned char* data, int size) {
    const InStep inStep;
    if (Spoils("throws-at-null") && data == nullptr) throw std::runtime_error("no data");
    if (Spoils("late-set-up-cut")) size = std::min(size, 1024);
    if (Spoils("late-set-up-ignored") && handle != nullptr && g_Frame > 0) return;
    Real().WriteVosData(handle, data, size);
}

void WritezXPSData(void* handle, unsigned char* picture, int pictureSize, unsigned char* sequence, int sequenceSize) {
    const InStep inStep;
    if (Spoils("sets-swapped")) {
        std::swap(picture, sequence);
        std::swap(pictureSize, sequenceSize);
    }
    Real().WritezXPSData(handle, picture, pictureSize, sequence, sequenceSize);
}

void CloseMediaFile(void* handle, ProgressCallback progress, void* argument) {
    const InStep inStep;
    if (handle != nullptr) {
        if (Spoils("hang-in-close")) pause();
        if (Spoils("spin-in-close")) {
            for (volatile unsigned i = 0;; i = i + 1) {
            }
        }
        if (Spoils("crash-in-close") && g_Frame > 0) Crash();
        if (Spoils("exit-in-close")) std::exit(0);
        if (Spoils("abort-in-close")) std::abort();
        if (Spoils("needs-memory-to-close")) {
            auto* const memory = new char[100];
            g_pLeaked = memory;
            delete[] memory;
        }
        if (Spoils("calls-back") && progress != nullptr) progress(argument, 0, 0, 0);
    }
    const auto file = g_Files.find(handle);
    if (file != g_Files.end() && file->second.m_pKept != nullptr) {
        volatile unsigned char octet = *file->second.m_pKept;
        static_cast<void>(octet);
    }
    if (!Spoils("never-closes")) Real().CloseMediaFile(handle, progress, argument);
    if (file == g_Files.end()) return;
    try {
        SpoilFile(file->second.m_Path);
    } catch (const std::bad_alloc&) {
        // It is not spoiled then.
    }
    if (Spoils("written-at-the-end")) {
        const std::wstring part = file->second.m_Path;
        std::filesystem::rename(Narrow(part), Narrow(part.substr(0, part.size() - 5)));
    }
    if (Spoils("leaves-it-open")) static_cast<void>(open(Narrow(file->second.m_Path).c_str(), O_RDONLY));
    if (Spoils("flag-cleared-by-close")) *Real().m_pIsWebm = 0;
    g_Files.erase(file);
}
