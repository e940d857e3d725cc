// SPDX-License-Identifier: MIT
#include "FilterGraph.h"

#include <cstdio>
#include <new>
#include <utility>

#include "AvLog.h"
#include "ToolError.h"

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace {

// A filter's end that a text of filters can be connected to. Takes over nothing.
struct Ends {
    Ends(const char* name, AVFilterContext* filter) : m_pEnd(avfilter_inout_alloc()) {
        if (m_pEnd == nullptr) throw std::bad_alloc();
        m_pEnd->name = av_strdup(name);
        m_pEnd->filter_ctx = filter;
    }
    ~Ends() { avfilter_inout_free(&m_pEnd); }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    AVFilterInOut* m_pEnd;
};

} // namespace

FilterGraph::FilterGraph(std::string filter, AVMediaType type, AVRational timeBase, AVRational frameRate)
    : m_Filter(std::move(filter)), m_Type(type), m_TimeBase(timeBase), m_FrameRate(frameRate) {}

void FilterGraph::Check(int result) const {
    if (CheckMemory(result) < 0)
        throw ToolError(kExitError, "libavfilter refuses '" + m_Filter + "': " + TakeAvError(result));
}

bool FilterGraph::IsLike(const AVFrame& frame) const {
    if (frame.format != m_Like->format) return false;
    if (m_Type == AVMEDIA_TYPE_VIDEO) return frame.width == m_Like->width && frame.height == m_Like->height;
    return frame.sample_rate == m_Like->sample_rate &&
           av_channel_layout_compare(&frame.ch_layout, &m_Like->ch_layout) == 0;
}

void FilterGraph::Push(AVFrame* frame) {
    if (frame == nullptr) {
        if (m_Graph != nullptr) Check(av_buffersrc_add_frame(m_pIn, nullptr));
        return;
    }
    if (m_Type == AVMEDIA_TYPE_AUDIO && frame->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        const int channels = frame->ch_layout.nb_channels;
        av_channel_layout_default(&frame->ch_layout, channels);
    }
    if (m_Like != nullptr && (frame->width != m_Like->width || frame->height != m_Like->height)) ++m_SizeChanges;
    if (m_Graph == nullptr || !IsLike(*frame)) Configure(*frame);
    Check(av_buffersrc_add_frame(m_pIn, frame));
}

bool FilterGraph::Pull(AVFrame& frame) {
    if (!m_Rest.empty()) {
        av_frame_move_ref(&frame, m_Rest.front().get());
        m_Rest.pop_front();
        return true;
    }
    if (m_Graph == nullptr) return false;
    const int result = av_buffersink_get_frame(m_pOut, &frame);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return false;
    Check(result);
    return true;
}

AVRational FilterGraph::TimeBase() const { return av_buffersink_get_time_base(m_pOut); }
AVRational FilterGraph::FrameRate() const { return av_buffersink_get_frame_rate(m_pOut); }
AVRational FilterGraph::PixelAspect() const { return av_buffersink_get_sample_aspect_ratio(m_pOut); }
AVSampleFormat FilterGraph::SampleFormat() const {
    return static_cast<AVSampleFormat>(av_buffersink_get_format(m_pOut));
}
int FilterGraph::SampleRate() const { return av_buffersink_get_sample_rate(m_pOut); }
void FilterGraph::CopyChannelLayout(AVCodecContext& codec) const {
    Check(av_buffersink_get_ch_layout(m_pOut, &codec.ch_layout));
}

std::string FilterGraph::Pinned() const {
    if (m_Graph == nullptr) return "";
    char text[160];
    if (m_Type == AVMEDIA_TYPE_VIDEO) {
        std::snprintf(text, sizeof text, ",scale=%d:%d,format=%s", av_buffersink_get_w(m_pOut),
                      av_buffersink_get_h(m_pOut),
                      av_get_pix_fmt_name(static_cast<AVPixelFormat>(av_buffersink_get_format(m_pOut))));
        return text;
    }
    AVChannelLayout layout{};
    char layoutText[64] = "";
    Check(av_buffersink_get_ch_layout(m_pOut, &layout));
    av_channel_layout_describe(&layout, layoutText, sizeof layoutText);
    av_channel_layout_uninit(&layout);
    std::snprintf(text, sizeof text, ",aformat=sample_fmts=%s:sample_rates=%d:channel_layouts=%s",
                  av_get_sample_fmt_name(SampleFormat()), SampleRate(), layoutText);
    return text;
}

void FilterGraph::Drain() {
    if (m_Graph == nullptr) return;
    Check(av_buffersrc_add_frame(m_pIn, nullptr));
    std::deque<AvPtr<AVFrame>> rest = std::exchange(m_Rest, {});
    for (AvPtr<AVFrame> frame = NewAvFrame(); Pull(*frame); frame = NewAvFrame()) rest.push_back(std::move(frame));
    m_Rest = std::move(rest);
}

void FilterGraph::Configure(const AVFrame& frame) {
    const std::string filter = m_Filter + Pinned();
    Drain();
    const bool isVideo = m_Type == AVMEDIA_TYPE_VIDEO;
    AvPtr<AVFilterGraph> graph(avfilter_graph_alloc());
    if (graph == nullptr) throw std::bad_alloc();
    graph->scale_sws_opts = av_strdup("flags=bicubic");
    char source[320];
    if (isVideo) {
        const AVRational aspect = frame.sample_aspect_ratio.den != 0 ? frame.sample_aspect_ratio : AVRational{0, 1};
        std::snprintf(source, sizeof source, "video_size=%dx%d:pix_fmt=%d:time_base=%d/%d:pixel_aspect=%d/%d",
                      frame.width, frame.height, frame.format, m_TimeBase.num, m_TimeBase.den, aspect.num, aspect.den);
    } else {
        char layout[64] = "";
        av_channel_layout_describe(&frame.ch_layout, layout, sizeof layout);
        std::snprintf(source, sizeof source, "time_base=1/%d:sample_rate=%d:sample_fmt=%s:channel_layout=%s",
                      frame.sample_rate, frame.sample_rate,
                      av_get_sample_fmt_name(static_cast<AVSampleFormat>(frame.format)), layout);
    }
    std::string text = source;
    if (isVideo && m_FrameRate.num > 0) {
        text += ":frame_rate=" + std::to_string(m_FrameRate.num) + "/" + std::to_string(m_FrameRate.den);
    }
    Check(avfilter_graph_create_filter(&m_pIn, avfilter_get_by_name(isVideo ? "buffer" : "abuffer"), "in", text.c_str(),
                                       nullptr, graph.get()));
    Check(avfilter_graph_create_filter(&m_pOut, avfilter_get_by_name(isVideo ? "buffersink" : "abuffersink"), "out",
                                       isVideo ? nullptr : "all_channel_counts=1", nullptr, graph.get()));
    Ends outputs("in", m_pIn);
    Ends inputs("out", m_pOut);
    Check(avfilter_graph_parse_ptr(graph.get(), filter.c_str(), &inputs.m_pEnd, &outputs.m_pEnd, nullptr));
    const int result = avfilter_graph_config(graph.get(), nullptr);
    if (result < 0 && !isVideo && frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        throw ToolError(kExitError, "the positions of the " + std::to_string(frame.ch_layout.nb_channels) +
                                        " channels are unknown, so they cannot be mixed: --audio-codec pcm keeps them "
                                        "all, and --audio-filter chooses among them, for example with "
                                        "pan=stereo|c0=c0|c1=c1");
    }
    Check(result);
    m_Graph = std::move(graph);
    if (m_FrameSize > 0) av_buffersink_set_frame_size(m_pOut, static_cast<unsigned>(m_FrameSize));
    m_Like = NewAvFrame();
    m_Like->format = frame.format;
    m_Like->width = frame.width;
    m_Like->height = frame.height;
    m_Like->sample_rate = frame.sample_rate;
    if (!isVideo) Check(av_channel_layout_copy(&m_Like->ch_layout, &frame.ch_layout));
}
