// SPDX-License-Identifier: MIT
// Writes one real file of any size with the plug-in: pictures and sound of two streams, over and over.
//     qf_big_file PLUGIN PICTURE.h264 SOUND.ac3 OUTPUT OCTETS
// Prints the number of pictures that it took until the file had that many octets.
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "ElementaryStreams.h"
#include "Plugin.h"
#include "TempDirectory.h"

namespace {

constexpr std::int32_t kPicture = 400000;  // 100 ns units: 25 pictures a second
constexpr std::int32_t kAc3Frame = 320000; // 1,536 samples at 48 kHz
constexpr std::size_t kAc3Size = 768;      // 192 kbit/s

int Run(char** arguments) {
    const Plugin plugin(arguments[1]);
    const AvcStream picture(ReadFile(arguments[2]));
    const std::vector<Octets> sound = Ac3Frames(ReadFile(arguments[3]), kAc3Size);
    const std::filesystem::path output = arguments[4];
    const std::uint64_t octets = std::stoull(arguments[5]);

    EncodeParam job{};
    job.formatFourCC = MakeFourCC("MKV ");
    job.videoParam.fourCC = MakeFourCC("H264");
    job.videoParam.width = 1920;
    job.videoParam.height = 1080;
    job.videoParam.frameRate = 25;
    job.audioParam.fourCC = MakeFourCC("AC3 ");
    job.audioParam.sampleRate = 48000;
    job.audioParam.channels = 2;
    job.audioParam.bitsPerSample = 16;
    void* const handle = plugin.CreateMediaFile(output.wstring().c_str(), &job);
    if (handle == nullptr) throw std::runtime_error("the file does not open");
    Octets pictureSet = picture.m_PictureSet;
    Octets sequenceSet = picture.m_SequenceSet;
    plugin.WritezXPSData(handle, pictureSet.data(), static_cast<int>(pictureSet.size()), sequenceSet.data(),
                         static_cast<int>(sequenceSet.size()));

    std::size_t pictures = 0;
    std::size_t sounds = 0;
    // The streams hold whole groups of pictures. The file lags a second behind.
    while (std::filesystem::file_size(output) < octets) {
        const AvcStream::AccessUnit& unit = picture.m_AccessUnits[pictures % picture.m_AccessUnits.size()];
        Octets host = unit.m_Octets; // which the plug-in rewrites
        MEDIA_FRAME frame{};
        frame.timestamp = static_cast<std::int64_t>(pictures) * kPicture;
        frame.duration = kPicture;
        frame.frameFlags = unit.m_Key ? 1 : 0;
        frame.videoData = host.data();
        frame.videoSize = static_cast<std::int32_t>(host.size());
        if (plugin.WriteVideoPacket(handle, &frame) <= 0) throw std::runtime_error("a picture was not taken");
        ++pictures;
        for (; static_cast<std::int64_t>(sounds) * kAc3Frame < static_cast<std::int64_t>(pictures) * kPicture;
             ++sounds) {
            Octets samples = sound[sounds % sound.size()];
            MEDIA_FRAME packet{};
            packet.timestamp = static_cast<std::int64_t>(sounds) * kAc3Frame;
            packet.duration = kAc3Frame;
            packet.audioData = samples.data();
            packet.audioSize = static_cast<std::int32_t>(samples.size());
            if (plugin.WriteAudioPacket(handle, &packet, nullptr) <= 0) throw std::runtime_error("sound was not taken");
        }
    }
    plugin.CloseMediaFile(handle, nullptr, nullptr);
    std::printf("%zu\n", pictures);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::fputs("qf_big_file PLUGIN PICTURE.h264 SOUND.ac3 OUTPUT OCTETS\n", stderr);
        return 3;
    }
    try {
        return Run(argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qf_big_file: %s\n", error.what());
        return 2;
    }
}
