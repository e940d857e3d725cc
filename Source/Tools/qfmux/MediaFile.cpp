// SPDX-License-Identifier: MIT
#include "MediaFile.h"

#include <algorithm>
#include <new>
#include <utility>

#include "Surroundings.h"
#include "TimeLine.h"
#include "ToolError.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/avutil.h>
#include <libavutil/parseutils.h>
}

namespace {

// Playlists name other files. libavformat may wait for one that does not exist yet, and any could be the output.
void CheckSelfContained(const std::string& url, const std::string& path) {
    AVIOContext* file = nullptr;
    CheckReading(avio_open(&file, url.c_str(), AVIO_FLAG_READ), path);
    const AVInputFormat* format = nullptr;
    const int result = av_probe_input_buffer2(file, &format, url.c_str(), nullptr, 0, 0);
    avio_closep(&file);
    if (result < 0) return; // opening the file reports the error
    for (const char* name : {"concat", "dash", "hls", "imf", "sdp", "rtsp"}) {
        if (av_match_name(name, format->name) != 0) FailReading(path, "it is a list of other files");
    }
}

} // namespace

void FailReading(const std::string& path, const std::string& reason) {
    throw ToolError(kExitError, "cannot read '" + path + "': " + reason);
}

void CheckReading(int result, const std::string& path) {
    if (result < 0) FailReading(path, AvReason(result));
}

MediaFile::MediaFile(const std::string& path) : m_Path(path) {
    NeedRegularFile(path);
    CheckSelfContained("file:" + path, path);
    Open(false);
    // A stream may begin late.
    AVStream** const streams = m_Context->streams;
    if (!std::all_of(streams, streams + m_Context->nb_streams, IsKnown)) Open(true);
}

void MediaFile::Open(bool looksFar) {
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) throw std::bad_alloc();
    auto errors = std::make_unique<ReadErrors>();
    errors->Watch(*context);
    AVDictionary* options = nullptr;
    if (looksFar) {
        context->probesize = std::int64_t{256} << 20;
        context->max_analyze_duration = std::int64_t{600} * AV_TIME_BASE;
        av_dict_set(&options, "scan_all_pmts", "1", 0); // a transport stream's later tables too
    }
    const int result = avformat_open_input(&context, ("file:" + m_Path).c_str(), nullptr, &options);
    av_dict_free(&options);
    CheckReading(result, m_Path);
    m_Context.reset(context);
    m_Errors = std::move(errors);
    // Copies the container's parameters before libavformat probes the frames.
    m_Declared.clear();
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        m_Declared.emplace_back(avcodec_parameters_alloc());
        if (m_Declared.back() == nullptr) throw std::bad_alloc();
        CheckReading(avcodec_parameters_copy(m_Declared.back().get(), context->streams[i]->codecpar), m_Path);
    }
    CheckReading(avformat_find_stream_info(context, nullptr), m_Path);
}

bool MediaFile::IsKnown(const AVStream* stream) {
    const AVCodecParameters& parameters = *stream->codecpar;
    if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) return parameters.sample_rate > 0;
    return parameters.codec_type != AVMEDIA_TYPE_VIDEO || parameters.width > 0;
}

bool MediaFile::IsMatroska() const { return av_match_name("matroska", m_Context->iformat->name) != 0; }

std::int64_t MediaFile::Origin() const {
    const bool countsFromAnywhere = HasLooseTimes() || av_match_name("flv", m_Context->iformat->name) != 0;
    // Negative where the clock of a broadcast has wrapped around.
    const bool isKnown = m_Context->start_time != AV_NOPTS_VALUE;
    return countsFromAnywhere && isKnown ? HostTime(m_Context->start_time, {1, AV_TIME_BASE}) : 0;
}

std::int64_t MediaFile::PromisedLength(const AVStream* stream, std::int64_t first) const {
    if (!HasHeaderLengths()) return 0;
    if (!IsMatroska()) return HostTime(std::max<std::int64_t>(0, stream->duration), stream->time_base);
    // An optional tag: mkvmerge writes the length and lists its tags; libavformat writes the end.
    const AVDictionaryEntry* const tag = av_dict_get(stream->metadata, "DURATION", nullptr, AV_DICT_IGNORE_SUFFIX);
    std::int64_t told = 0;
    if (tag == nullptr || av_parse_time(&told, tag->value, 1) < 0) return 0;
    const bool isLength = av_dict_get(stream->metadata, "_STATISTICS_TAGS", nullptr, AV_DICT_IGNORE_SUFFIX) != nullptr;
    return HostTime(told, {1, AV_TIME_BASE}) - (isLength ? 0 : first);
}

std::int64_t MediaFile::PromisedLength() const {
    if (!HasHeaderLengths()) return 0;
    const std::int64_t start = IsMatroska() ? std::max<std::int64_t>(0, m_Context->start_time) : 0; // it has the end
    return HostTime(std::max<std::int64_t>(0, m_Context->duration - start), {1, AV_TIME_BASE});
}

std::vector<AVStream*> MediaFile::Streams(AVMediaType type) const {
    std::vector<AVStream*> streams;
    for (unsigned i = 0; i < m_Context->nb_streams; ++i) {
        AVStream* const stream = m_Context->streams[i];
        const bool isPicture = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        if (stream->codecpar->codec_type == type && !isPicture && IsKnown(stream)) streams.push_back(stream);
    }
    return streams;
}

const AVCodecParameters* MediaFile::Declared(const AVStream* stream) const {
    const auto index = static_cast<std::size_t>(stream->index);
    return index < m_Declared.size() ? m_Declared[index].get() : nullptr;
}

bool MediaFile::HasSetup(const AVStream* stream) const {
    const AVCodecParameters* const declared = Declared(stream);
    return declared != nullptr && declared->extradata_size > 0;
}

double MediaFile::FrameRate(AVStream* stream) const {
    const AVRational rate = av_guess_frame_rate(m_Context.get(), stream, nullptr);
    return rate.num > 0 && rate.den > 0 ? av_q2d(rate) : 25.0;
}
