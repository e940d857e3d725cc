#include "Remux.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <vector>

#include <unistd.h>

#include "CodecMap.h"
#include "H264.h"
#include "Media.h"
#include "Plugin.h"
#include "ToolError.h"

namespace {

namespace fs = std::filesystem;

void Note(const std::string& text) { std::fprintf(stderr, "qfmux: %s\n", text.c_str()); }

bool Lists(const EncoderEntry* list, FourCC fourCC) {
    for (; list->fourCC != 0; ++list) {
        if (list->fourCC == fourCC) return true;
    }
    return false;
}

std::string ListText(const EncoderEntry* list) {
    std::string text;
    for (; list->fourCC != 0; ++list) text += (text.empty() ? "'" : ", '") + FourCCText(list->fourCC) + "'";
    return text;
}

// The plug-in's first format with that extension.
const FileFormatInfo& FormatFor(const FileFormatInfo* formats, const fs::path& output) {
    std::wstring extension = output.extension().wstring();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](wchar_t c) { return c >= L'A' && c <= L'Z' ? c - L'A' + L'a' : c; });
    std::string known;
    for (; formats->fourCC != 0; ++formats) {
        if (extension == formats->extension) return *formats;
        known += " " + fs::path(formats->extension).string();
    }
    throw ToolError(kExitUsage, "'" + output.string() + "': the name must end in one of" + known);
}

// One stream on its way into the file.
struct Track {
    Track(const MediaFile& file, AVStream* stream, const CodecChoice& choice)
        : m_Choice(choice), m_Reader(file.Path(), stream->index, choice.m_Filters),
          m_FrameRate(FrameRate(file.Context(), stream)) {
        m_More = m_Reader.Next(m_Next);
    }

    CodecChoice m_Choice;
    TrackReader m_Reader;
    double m_FrameRate;
    Frame m_Next; // the frame to write next
    bool m_More;
};

// Takes the kind's stream if the format has a place for it and accepts its codec. Throws when it does not accept it.
std::optional<Track> OpenTrack(const MediaFile& file, AVMediaType type, const FileFormatInfo& format,
                               const EncoderEntry* accepted) {
    AVStream* const stream = file.FindStream(type);
    if (stream == nullptr) return std::nullopt;
    const char* const kind = av_get_media_type_string(type);
    if (accepted == nullptr) {
        Note(std::string(kind) + " is left out: the format has none");
        return std::nullopt;
    }
    const CodecChoice choice = ChooseCodec(*stream->codecpar);
    const bool listed = choice.m_FourCC != 0 && Lists(accepted, choice.m_FourCC);
    const std::string formatName = FourCCText(format.fourCC);
    const std::string codec = avcodec_get_name(stream->codecpar->codec_id);
    if (!listed && (choice.m_FourCC == 0 || format.fourCC == MakeFourCC("WEBM"))) {
        throw ToolError(kExitError, std::string(kind) + " codec " + codec + " is not accepted by '" + formatName +
                                        "', which lists " + ListText(accepted));
    }
    if (!listed) Note(std::string(kind) + " codec " + codec + " is not in the list of '" + formatName + "'");
    return std::optional<Track>(std::in_place, file, stream, choice);
}

VideoParam VideoParamOf(const Track& track) {
    const AVCodecParameters& parameters = track.m_Reader.Parameters();
    VideoParam video{};
    video.fourCC = track.m_Choice.m_FourCC;
    video.width = parameters.width;
    video.height = parameters.height;
    video.frameRate = track.m_FrameRate;
    video.bitCount = 24;
    return video;
}

AudioParam AudioParamOf(const Track& track) {
    const AVCodecParameters& parameters = track.m_Reader.Parameters();
    AudioParam audio{};
    audio.fourCC = track.m_Choice.m_FourCC;
    audio.sampleRate = parameters.sample_rate;
    audio.channels = parameters.ch_layout.nb_channels;
    const int bits = std::max(parameters.bits_per_coded_sample, av_get_bits_per_sample(parameters.codec_id));
    audio.bitsPerSample = bits > 0 ? bits : 16;
    return audio;
}

// The host's side of one output file: owns the handle and, until it is kept, the file.
class OutputFile {
public:
    OutputFile(Plugin& plugin, const fs::path& target, const EncodeParam& param)
        : m_Plugin(plugin), m_Target(target),
          m_Part(target.parent_path() / (".qfmux-" + std::to_string(getpid()) + target.extension().string())) {
        m_pHandle = plugin.CreateMediaFile(m_Part.wstring().c_str(), &param);
        if (m_pHandle == nullptr) throw ToolError(kExitError, "cannot write '" + target.string() + "'");
    }

    ~OutputFile() {
        if (m_pHandle != nullptr) m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        std::error_code ignored;
        fs::remove(m_Part, ignored);
    }

    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void* Handle() const { return m_pHandle; }

    void Keep() {
        m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr);
        m_pHandle = nullptr;
        std::error_code error;
        fs::rename(m_Part, m_Target, error);
        if (error) throw ToolError(kExitError, "cannot write '" + m_Target.string() + "': " + error.message());
    }

private:
    Plugin& m_Plugin;
    fs::path m_Target;
    fs::path m_Part; // beside the target until the file is whole
    void* m_pHandle;
};

void SendVideoSetup(Plugin& plugin, void* handle, const Track& track) {
    std::vector<std::uint8_t> setupData = track.m_Reader.SetupData();
    if (track.m_Reader.Parameters().codec_id == AV_CODEC_ID_H264) {
        H264Setup setup = ReadH264Setup(setupData);
        plugin.WritezXPSData(handle, setup.m_Picture.data(), static_cast<int>(setup.m_Picture.size()),
                             setup.m_Sequence.data(), static_cast<int>(setup.m_Sequence.size()));
    } else {
        plugin.WritezXPSData(handle, nullptr, 0, setupData.data(), static_cast<int>(setupData.size()));
    }
}

void SendAudioSetup(Plugin& plugin, void* handle, const Track& track) {
    std::vector<std::uint8_t> setupData = track.m_Reader.SetupData();
    if (track.m_Reader.Parameters().codec_id == AV_CODEC_ID_VORBIS) setupData = LacedVorbisHeaders(setupData);
    plugin.WriteVosData(handle, setupData.data(), static_cast<int>(setupData.size()));
}

MEDIA_FRAME HostFrame(const Frame& frame, std::int64_t shift) {
    MEDIA_FRAME record{};
    record.timestamp = frame.m_Presentation + shift;
    record.duration = frame.m_Duration;
    record.frameFlags = frame.m_Key ? 1 : 0;
    return record;
}

void SendVideo(Plugin& plugin, void* handle, Track& track, bool startCodes, std::int64_t shift) {
    AVPacket& packet = *track.m_Next.m_Packet;
    MEDIA_FRAME record = HostFrame(track.m_Next, shift);
    std::vector<std::uint8_t> rewritten;
    record.videoData = packet.data;
    record.videoSize = packet.size;
    if (startCodes) {
        rewritten = WithLongStartCodes(packet.data, static_cast<std::size_t>(packet.size));
        record.videoData = rewritten.data();
        record.videoSize = static_cast<std::int32_t>(rewritten.size());
    }
    plugin.WriteVideoPacket(handle, &record);
}

void SendAudio(Plugin& plugin, void* handle, Track& track, std::int64_t shift) {
    AVPacket& packet = *track.m_Next.m_Packet;
    MEDIA_FRAME record = HostFrame(track.m_Next, shift);
    record.audioData = packet.data;
    record.audioSize = packet.size;
    plugin.WriteAudioPacket(handle, &record, nullptr);
}

} // namespace

void Remux(const RemuxJob& job) {
    Plugin plugin(job.m_Plugin.c_str());
    const fs::path output = job.m_Output;
    const FileFormatInfo& format = FormatFor(plugin.GetFileFormats(), output);
    const MediaFile input(job.m_Input);
    std::optional<Track> video = OpenTrack(input, AVMEDIA_TYPE_VIDEO, format, format.videoEncoders);
    std::optional<Track> audio = OpenTrack(input, AVMEDIA_TYPE_AUDIO, format, format.audioEncoders);
    if (!video && !audio) throw ToolError(kExitError, "'" + job.m_Input + "' has nothing for this format");
    std::error_code ignored;
    if (fs::equivalent(job.m_Input, output, ignored)) {
        throw ToolError(kExitUsage, "'" + job.m_Output + "' is the input itself");
    }

    EncodeParam param{};
    param.formatFourCC = format.fourCC;
    param.disableVideo = video ? 0 : 1;
    param.disableAudio = audio ? 0 : 1;
    if (video) param.videoParam = VideoParamOf(*video);
    if (audio) param.audioParam = AudioParamOf(*audio);

    OutputFile file(plugin, output, param);
    void* const handle = file.Handle();
    bool startCodes = false;
    if (video) {
        startCodes = video->m_Reader.Parameters().codec_id == AV_CODEC_ID_H264 &&
                     ReadH264Setup(video->m_Reader.SetupData()).m_StartCodes;
        SendVideoSetup(plugin, handle, *video);
    }
    if (audio) SendAudioSetup(plugin, handle, *audio);

    // No time lies below zero: the plug-in takes such a frame to be the first.
    std::int64_t shift = 0;
    if (video) shift = std::max(shift, -std::min(video->m_Next.m_Decode, video->m_Next.m_Presentation));
    if (audio) shift = std::max(shift, -audio->m_Next.m_Decode);

    const auto more = [](const std::optional<Track>& track) { return track && track->m_More; };
    while (more(video) || more(audio)) {
        const bool videoIsNext = more(video) && (!more(audio) || video->m_Next.m_Decode <= audio->m_Next.m_Decode);
        Track& track = videoIsNext ? *video : *audio;
        if (videoIsNext) {
            SendVideo(plugin, handle, track, startCodes, shift);
        } else {
            SendAudio(plugin, handle, track, shift);
        }
        track.m_More = track.m_Reader.Next(track.m_Next);
    }
    file.Keep();
}
