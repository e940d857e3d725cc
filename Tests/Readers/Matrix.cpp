// SPDX-License-Identifier: MIT
#include "Matrix.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>

namespace {

constexpr CodecNames kAvc = {"V_MPEG4/ISO/AVC", "AVC/H.264/MPEG-4p10", "AVC", "video/x-h264", "h264"};
constexpr CodecNames kVfw = {"V_MS/VFW/FOURCC", "AVC/H.264/MPEG-4p10", "AVC", "video/x-h264", "h264"};
constexpr CodecNames kMpeg1 = {"V_MPEG1", "MPEG-1/2", "MPEG Video 1", "video/mpeg 1", "mpeg1video"};
constexpr CodecNames kMpeg2 = {"V_MPEG2", "MPEG-1/2", "MPEG Video 2", "video/mpeg 2", "mpeg2video"};
constexpr CodecNames kAsp = {"V_MPEG4/ISO/ASP", "MPEG-4p2", "MPEG-4 Visual", "video/mpeg 4", "mpeg4"};
constexpr CodecNames kVp8 = {"V_VP8", "VP8", "VP8", "video/x-vp8", "vp8"};

// Names of codes and traits are tags. B pictures are in every clip whose codec has them.
const std::vector<VideoRow>& VideoRows() {
    static const std::vector<VideoRow> rows = {
        {"H264", "h264.mkv", "", kAvc, false, false, {"H264", "lengths"}},
        {"H264 start codes", "h264.ts", "", kAvc, true, false, {"H264", "start codes"}},
        {"N264", "h264.mkv", "--h264 N264", kAvc, true, true, {"N264"}},
        {"A264", "h264.mkv", "--h264 A264", kAvc, true, true, {"A264"}},
        {"I264", "h264.ts", "--h264 I264", kAvc, true, true, {"I264"}},
        {"havc", "h264.mkv", "--h264 havc", kVfw, false, false, {"havc"}},
        {"MP1V", "mpeg1.mkv", "", kMpeg1, false, false, {"MP1V"}},
        {"MP2V", "mpeg2.mkv", "", kMpeg2, false, false, {"MP2V"}},
        {"MP4V", "mpeg4.mkv", "", kAsp, false, false, {"MP4V"}},
        {"Xvid", "xvid.avi", "", kAsp, false, false, {"Xvid"}},
        {"VP8", "vp8.webm", "", kVp8, false, false, {"VP8"}},
        {"H264 slices", "h264-slices.mkv", "", kAvc, false, false, {"H264", "lengths", "slices"}},
        {"H264 start codes slices", "h264-slices.ts", "", kAvc, true, false, {"H264", "start codes", "slices"}},
        {"N264 slices", "h264-slices.mkv", "--h264 N264", kAvc, true, true, {"N264", "slices", "split"}},
        {"A264 slices", "h264-slices.mkv", "--h264 A264", kAvc, true, true, {"A264", "slices", "split"}},
        {"I264 slices", "h264-slices.mkv", "--h264 I264", kAvc, true, true, {"I264", "slices", "split"}},
        {"H264 intra", "h264-intra.mkv", "", kAvc, false, false, {"H264", "lengths", "intra"}},
        {"H264 whole", "h264-whole.mkv", "", kAvc, false, false, {"H264", "lengths", "whole"}},
        {"H264 uneven", "h264-uneven.mkv", "", kAvc, false, false, {"H264", "lengths", "uneven"}},
        {"H264 late", "h264-late.mkv", "", kAvc, false, false, {"H264", "lengths", "picture later"}},
        {"VP8 odd", "vp8-odd.webm", "", kVp8, false, false, {"VP8", "odd"}},
        {"VP8 intra", "vp8-intra.webm", "", kVp8, false, false, {"VP8", "intra"}},
        {"VP8 whole", "vp8-whole.webm", "", kVp8, false, false, {"VP8", "whole"}},
        {"VP8 uneven", "vp8-uneven.webm", "", kVp8, false, false, {"VP8", "uneven"}},
        {"VP8 late", "vp8-late.webm", "", kVp8, false, false, {"VP8", "picture later"}},
    };
    return rows;
}

constexpr CodecNames kAac = {"A_AAC", "AAC", "AAC", "audio/mpeg 4", "aac"};
constexpr CodecNames kAc3 = {"A_AC3", "AC-3", "AC-3", "audio/x-ac3", "ac3"};
constexpr CodecNames kMp3 = {"A_MPEG/L3", "MP3", "MPEG Audio Layer 3", "audio/mpeg 1 3", "mp3"};
constexpr CodecNames kMp2 = {"A_MPEG/L2", "MP2", "MPEG Audio Layer 2", "audio/mpeg 1 2", "mp2"};
constexpr CodecNames kDts = {"A_DTS", "DTS", "DTS", "audio/x-dts", "dts"};
constexpr CodecNames kPcm = {"A_PCM/INT/LIT", "PCM", "PCM", "audio/x-raw", "pcm_s16le"};
constexpr CodecNames kVorbis = {"A_VORBIS", "Vorbis", "Vorbis", "audio/x-vorbis", "vorbis"};

// The edit list of an MP4 has players skip the encoder's first samples, which a file of ours has no word for.
constexpr const char* kWithPriming = "-ignore_editlist 1 -flags2 +skip_manual";
constexpr const char* kAllSamples = "-flags2 +skip_manual";

const std::vector<AudioRow>& AudioRows() {
    static const std::vector<AudioRow> rows = {
        {"AAC", "aac-48.aac", "", kAac, 48000, 2, {"AAC"}},
        {"AAC mp4", "aac-48.mp4", kWithPriming, kAac, 48000, 2, {"AAC", "edit list"}},
        {"AAC 44", "aac-44.mp4", kWithPriming, kAac, 44100, 1, {"AAC", "edit list"}},
        {"AC3", "ac3-48.ac3", "", kAc3, 48000, 2, {"AC3"}},
        {"AC3 44", "ac3-44.ac3", "", kAc3, 44100, 1, {"AC3"}},
        {"MP3", "mp3-48.mp3", "", kMp3, 48000, 2, {"MP3"}},
        {"MP3 44", "mp3-44.mp3", "", kMp3, 44100, 1, {"MP3"}},
        {"MP2A", "mp2-48.mp2", "", kMp2, 48000, 2, {"MP2A"}},
        {"MP2A 44", "mp2-44.mp2", "", kMp2, 44100, 1, {"MP2A"}},
        {"DTS", "dts-48.dts", "", kDts, 48000, 2, {"DTS"}},
        {"DTS 44", "dts-44.dts", "", kDts, 44100, 1, {"DTS"}},
        {"PCM", "pcm-48.wav", "", kPcm, 48000, 2, {"PCM"}},
        {"PCM 44", "pcm-44.wav", "", kPcm, 44100, 1, {"PCM"}},
        {"VBIS", "vorbis-48.mka", kAllSamples, kVorbis, 48000, 2, {"VBIS"}},
        {"VBIS 44", "vorbis-44.mka", kAllSamples, kVorbis, 44100, 1, {"VBIS"}},
        {"PCM late", "pcm-late.mka", "", kPcm, 48000, 2, {"PCM", "sound later"}},
        {"VBIS late", "vorbis-late.mka", kAllSamples, kVorbis, 48000, 2, {"VBIS", "sound later"}},
    };
    return rows;
}

template <class Row>
const Row* Find(const std::vector<Row>& rows, const std::string& name) {
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& row) { return row.m_Name == name; });
    if (found == rows.end()) throw std::logic_error("no row " + name);
    return &*found;
}

const VideoRow* Video(const std::string& name) { return Find(VideoRows(), name); }
const AudioRow* Audio(const std::string& name) { return Find(AudioRows(), name); }

bool TakenByWebm(const VideoRow& row) { return row.m_Tags.count("VP8") != 0; }
bool TakenByWebm(const AudioRow& row) { return row.m_Tags.count("VBIS") != 0; }
// The lists of the formats do not name every code; the plug-in takes what it is given.
const char* OptionsOf(const VideoRow* video, const AudioRow* audio) {
    const bool hmkv =
        video != nullptr && audio != nullptr && video->m_Tags.count("havc") != 0 && audio->m_Tags.count("AC3") != 0;
    return hmkv ? "--format HMKV" : "";
}

void AddLateOnes(std::vector<Case>& cases) {
    cases.push_back({"mkv", "", Video("H264"), Audio("AAC"), LateSetup::Yes});
    cases.push_back({"mkv", "", Video("H264 start codes"), Audio("VBIS"), LateSetup::Yes});
    cases.push_back({"mka", "", nullptr, Audio("AAC mp4"), LateSetup::Yes});
    cases.push_back({"webm", "", Video("VP8"), Audio("VBIS"), LateSetup::Yes});
}

std::vector<Case> FullProduct() {
    std::vector<Case> cases;
    for (const VideoRow& video : VideoRows()) {
        for (const AudioRow& audio : AudioRows()) {
            cases.push_back({"mkv", OptionsOf(&video, &audio), &video, &audio});
            if (TakenByWebm(video) && TakenByWebm(audio)) cases.push_back({"webm", "", &video, &audio});
        }
        cases.push_back({"mkv", "", &video, nullptr});
        if (TakenByWebm(video)) cases.push_back({"webm", "", &video, nullptr});
    }
    for (const AudioRow& audio : AudioRows()) {
        cases.push_back({"mka", "", nullptr, &audio});
        if (TakenByWebm(audio)) cases.push_back({"webm", "", nullptr, &audio});
    }
    AddLateOnes(cases);
    return cases;
}

std::vector<Case> Pairs() {
    std::vector<Case> cases;
    const auto mkv = [&](const char* video, const char* audio) {
        const VideoRow* const picture = Video(video);
        const AudioRow* const sound = audio == nullptr ? nullptr : Audio(audio);
        cases.push_back({"mkv", OptionsOf(picture, sound), picture, sound});
    };
    // Each video code twice, each audio code at either rate.
    mkv("H264", "AAC mp4");
    mkv("H264", "PCM 44");
    mkv("H264 start codes", "AAC");
    mkv("H264 start codes", "MP2A 44");
    mkv("N264", "AC3");
    mkv("N264", "VBIS 44");
    mkv("A264", "MP3");
    mkv("I264", "DTS");
    mkv("havc", "AC3");
    mkv("havc", "AAC 44");
    mkv("MP1V", "MP2A");
    mkv("MP2V", "AC3 44");
    mkv("MP2V", "DTS 44");
    mkv("MP4V", "AAC 44");
    mkv("Xvid", "MP3 44");
    mkv("VP8", "VBIS");
    mkv("VP8", "AAC");
    // Traits.
    mkv("H264 slices", "AC3");
    mkv("H264 start codes slices", "MP3");
    mkv("N264 slices", "AAC");
    mkv("H264 intra", "PCM");
    mkv("H264 whole", "VBIS");
    mkv("H264 uneven", "AAC mp4");
    mkv("H264 late", "MP3");
    mkv("H264", "PCM late");
    mkv("H264", nullptr);
    mkv("MP2V", nullptr);
    mkv("VP8", nullptr);
    for (const char* audio : {"AAC", "AAC 44", "AC3", "MP3 44", "MP2A", "DTS", "PCM", "VBIS"}) {
        cases.push_back({"mka", "", nullptr, Audio(audio)});
    }
    for (const char* video : {"VP8", "VP8 odd", "VP8 intra", "VP8 whole", "VP8 uneven", "VP8 late"}) {
        cases.push_back({"webm", "", Video(video), Audio("VBIS")});
    }
    cases.push_back({"webm", "", Video("VP8"), Audio("VBIS 44")});
    cases.push_back({"webm", "", Video("VP8"), Audio("VBIS late")});
    cases.push_back({"webm", "", Video("VP8"), nullptr});
    cases.push_back({"webm", "", nullptr, Audio("VBIS")});
    AddLateOnes(cases);
    return cases;
}

} // namespace

std::string Case::Name() const {
    std::string name = m_Extension;
    if (m_pVideo != nullptr) name += std::string("_") + m_pVideo->m_Name;
    if (m_pAudio != nullptr) name += std::string("_") + m_pAudio->m_Name;
    if (m_LateSetup == LateSetup::Yes) name += "_late setup";
    std::replace_if(
        name.begin(), name.end(), [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
    return name;
}

void PrintTo(const Case& one, std::ostream* out) { *out << one.Name(); }

Tags Case::StaticTags() const {
    Tags tags = {"all", m_Extension, m_pVideo != nullptr ? "picture" : "no picture",
                 m_pAudio != nullptr ? "sound" : "no sound"};
    if (m_pVideo != nullptr) tags.insert(m_pVideo->m_Tags.begin(), m_pVideo->m_Tags.end());
    if (m_pAudio != nullptr) {
        tags.insert(m_pAudio->m_Tags.begin(), m_pAudio->m_Tags.end());
        tags.insert(m_pAudio->m_Rate == 44100 ? "44.1 kHz" : "48 kHz");
    }
    if (m_LateSetup == LateSetup::Yes) tags.insert("late set-up");
    return tags;
}

std::vector<Case> MatrixCases() { return std::getenv("QF_READERS_FULL") != nullptr ? FullProduct() : Pairs(); }
