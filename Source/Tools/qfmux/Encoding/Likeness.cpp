// SPDX-License-Identifier: MIT
#include "Likeness.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "ToolError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/dict.h>
#include <libavutil/mathematics.h>
}

namespace {

void Check(int result) {
    if (CheckMemory(result) < 0)
        throw ToolError(kExitError, "cannot compare the result with its source: " + AvReason(result));
}

std::size_t MinuteOf(std::int64_t time, AVRational timeBase) {
    return static_cast<std::size_t>(
        std::clamp<std::int64_t>(av_rescale_q_rnd(time, timeBase, {60, 1}, AV_ROUND_DOWN), 0, 100000));
}

// Sums for the mean of each minute.
class Means {
public:
    void Add(std::size_t minute, double sum, double count) {
        if (m_Sums.size() <= minute) m_Sums.resize(minute + 1);
        m_Sums[minute][0] += sum;
        m_Sums[minute][1] += count;
    }
    std::size_t Size() const { return m_Sums.size(); }
    double Sum(std::size_t minute) const { return minute < m_Sums.size() ? m_Sums[minute][0] : 0; }
    double Count(std::size_t minute) const { return minute < m_Sums.size() ? std::max(1.0, m_Sums[minute][1]) : 1; }
    double Of(std::size_t minute) const { return Sum(minute) / Count(minute); }

private:
    std::vector<std::array<double, 2>> m_Sums;
};

class PictureLikeness : public Likeness {
public:
    explicit PictureLikeness(AVRational timeBase) : m_TimeBase(timeBase) {}

    void TakeSource(const AVFrame& frame) override {
        if (m_Graph == nullptr) Open(frame);
        Push(m_pSource, frame);
    }
    void TakeResult(const AVFrame& frame) override {
        if (m_Graph != nullptr) Push(m_pResult, frame);
    }
    std::vector<LikeMinute> Finish() override {
        if (m_Graph != nullptr) {
            Check(av_buffersrc_add_frame(m_pSource, nullptr));
            Check(av_buffersrc_add_frame(m_pResult, nullptr));
            Pull();
        }
        std::vector<LikeMinute> minutes;
        for (std::size_t i = 0; i < m_Means.Size(); ++i) minutes.push_back({1, m_Means.Of(i)});
        return minutes;
    }

private:
    void Open(const AVFrame& like) {
        AvPtr<AVFilterGraph> graph(avfilter_graph_alloc());
        if (graph == nullptr) throw std::bad_alloc();
        char text[160];
        std::snprintf(text, sizeof text, "video_size=%dx%d:pix_fmt=%d:time_base=%d/%d", like.width, like.height,
                      like.format, m_TimeBase.num, m_TimeBase.den);
        const AVFilter* const buffer = avfilter_get_by_name("buffer");
        AVFilterContext* ssim = nullptr;
        Check(avfilter_graph_create_filter(&m_pSource, buffer, "source", text, nullptr, graph.get()));
        Check(avfilter_graph_create_filter(&m_pResult, buffer, "result", text, nullptr, graph.get()));
        Check(avfilter_graph_create_filter(&ssim, avfilter_get_by_name("ssim"), "ssim", nullptr, nullptr, graph.get()));
        Check(avfilter_graph_create_filter(&m_pSink, avfilter_get_by_name("buffersink"), "sink", nullptr, nullptr,
                                           graph.get()));
        Check(avfilter_link(m_pSource, 0, ssim, 0));
        Check(avfilter_link(m_pResult, 0, ssim, 1));
        Check(avfilter_link(ssim, 0, m_pSink, 0));
        Check(avfilter_graph_config(graph.get(), nullptr));
        m_Graph = std::move(graph);
    }

    void Push(AVFilterContext* to, const AVFrame& frame) {
        Check(av_buffersrc_write_frame(to, &frame));
        Pull();
    }

    void Pull() {
        for (const AvPtr<AVFrame> frame = NewAvFrame(); av_buffersink_get_frame(m_pSink, frame.get()) >= 0;) {
            const AVDictionaryEntry* const all = av_dict_get(frame->metadata, "lavfi.ssim.All", nullptr, 0);
            if (all != nullptr) m_Means.Add(MinuteOf(frame->pts, m_TimeBase), std::strtod(all->value, nullptr), 1);
            av_frame_unref(frame.get());
        }
    }

    const AVRational m_TimeBase;
    AvPtr<AVFilterGraph> m_Graph;
    AVFilterContext* m_pSource = nullptr; // all three belong to the graph
    AVFilterContext* m_pResult = nullptr;
    AVFilterContext* m_pSink = nullptr;
    Means m_Means;
};

// The mean power of a stream's samples.
class Power {
public:
    Power(AVRational timeBase, std::int64_t origin)
        : m_TimeBase(timeBase), m_Origin(origin),
          m_Graph("aformat=sample_fmts=flt", AVMEDIA_TYPE_AUDIO, timeBase, {0, 1}) {}

    void Take(const AVFrame& frame) {
        const AvPtr<AVFrame> copy(av_frame_clone(&frame));
        if (copy == nullptr) throw std::bad_alloc();
        m_Graph.Push(copy.get());
        Pull();
    }
    void End() {
        m_Graph.Push(nullptr);
        Pull();
    }
    std::size_t Size() const { return m_Means.Size(); }
    // In decibels of full scale, as the mean of as many samples as the other has: an encoder's padding is silent.
    double Level(std::size_t minute, const Power& other) const {
        return 10 * std::log10(std::max(1e-12, m_Means.Sum(minute) / other.m_Means.Count(minute)));
    }

private:
    void Pull() {
        for (const AvPtr<AVFrame> frame = NewAvFrame(); m_Graph.Pull(*frame);) {
            const auto* const samples = reinterpret_cast<const float*>(frame->data[0]);
            const int channels = frame->ch_layout.nb_channels;
            for (int i = 0; i < frame->nb_samples; ++i) {
                double sum = 0;
                for (int k = i * channels; k < (i + 1) * channels; ++k)
                    sum += static_cast<double>(samples[k]) * samples[k];
                m_Means.Add(MinuteOf(frame->pts + i - m_Origin, m_TimeBase), sum, channels);
            }
            av_frame_unref(frame.get());
        }
    }

    const AVRational m_TimeBase;
    const std::int64_t m_Origin;
    FilterGraph m_Graph;
    Means m_Means;
};

class SoundLikeness : public Likeness {
public:
    SoundLikeness(AVRational timeBase, std::int64_t origin) : m_Source(timeBase, origin), m_Result(timeBase, origin) {}

    void TakeSource(const AVFrame& frame) override { m_Source.Take(frame); }
    void TakeResult(const AVFrame& frame) override { m_Result.Take(frame); }
    std::vector<LikeMinute> Finish() override {
        m_Source.End();
        m_Result.End();
        std::vector<LikeMinute> minutes;
        for (std::size_t i = 0; i < m_Source.Size(); ++i) {
            minutes.push_back({m_Source.Level(i, m_Source), m_Result.Level(i, m_Source)});
        }
        return minutes;
    }

private:
    Power m_Source;
    Power m_Result;
};

} // namespace

std::unique_ptr<Likeness> Likeness::OfPictures(AVRational timeBase) {
    return std::make_unique<PictureLikeness>(timeBase);
}

std::unique_ptr<Likeness> Likeness::OfSound(AVRational timeBase, std::int64_t origin) {
    return std::make_unique<SoundLikeness>(timeBase, origin);
}

std::string OutOfLine(const std::vector<LikeMinute>& minutes, bool arePictures) {
    constexpr double kLeastSimilarity = 0.85;
    constexpr double kMostBelowUsual = 0.05;
    constexpr double kMostLevel = 1.5; // dB
    constexpr double kSilence = -60;   // dB
    std::vector<double> sorted;
    sorted.reserve(minutes.size());
    for (const LikeMinute& minute : minutes) sorted.push_back(minute.m_Result);
    std::sort(sorted.begin(), sorted.end());
    std::string text;
    for (std::size_t i = 0; i < minutes.size(); ++i) {
        const LikeMinute& minute = minutes[i];
        const double usual = sorted[sorted.size() / 2];
        const bool isPoor = minute.m_Result < std::max(kLeastSimilarity, usual - kMostBelowUsual);
        const bool isOff = std::max(minute.m_Source, minute.m_Result) > kSilence &&
                           std::abs(minute.m_Source - minute.m_Result) > kMostLevel;
        if (arePictures ? !isPoor : !isOff) continue;
        char words[80];
        if (arePictures) {
            std::snprintf(words, sizeof words, "minute %zu (SSIM %.3f)", i + 1, minute.m_Result);
        } else {
            std::snprintf(words, sizeof words, "minute %zu (%.1f dB instead of %.1f dB)", i + 1, minute.m_Result,
                          minute.m_Source);
        }
        text += (text.empty() ? "" : ", ") + std::string(words);
    }
    return text;
}
