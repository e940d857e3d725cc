// SPDX-License-Identifier: MIT
// The smallest host: one second of silence into a .mka file. It finds all that it calls in the plug-in's own table.
#include <MKVInterface.h>
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 2) return 3;
    std::vector<wchar_t> path(4096);
    if (std::mbstowcs(path.data(), argv[1], path.size() - 1) == static_cast<std::size_t>(-1)) return 3;

    void* const library = dlopen(PLUGIN, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 2;
    const auto formats = reinterpret_cast<FileFormatInfo* (*)()>(dlsym(library, "GetFileFormats"));
    const FileFormatInfo* format = formats();
    while (format->fourCC != 0 && format->fourCC != MakeFourCC("MKA ")) ++format;
    if (format->fourCC == 0) return 2;

    EncodeParam job{};
    job.formatFourCC = format->fourCC;
    job.disableVideo = 1;
    job.audioParam.fourCC = MakeFourCC("PCM ");
    job.audioParam.sampleRate = 48000;
    job.audioParam.channels = 2;
    job.audioParam.bitsPerSample = 16;
    void* const file = format->CreateMediaFile(path.data(), &job);
    if (file == nullptr) return 2;

    std::vector<unsigned char> silence(48000 / 50 * 4); // 20 ms
    MEDIA_FRAME frame{};
    frame.audioData = silence.data();
    frame.audioSize = static_cast<std::int32_t>(silence.size());
    frame.duration = 200000; // of 100 ns
    for (int i = 0; i < 50; ++i, frame.timestamp += frame.duration) {
        if (format->WriteAudioPacket(file, &frame, nullptr) != frame.audioSize) return 2;
    }
    format->CloseMediaFile(file, nullptr, nullptr);
    dlclose(library);
    return 0;
}
