// SPDX-License-Identifier: MIT
// Owners of the media libraries' objects, and texts of their errors.
#pragma once

#include <memory>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavfilter/avfilter.h>
#include <libavformat/avformat.h>
}

struct AvDeleter {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    void operator()(AVFilterGraph* graph) const { avfilter_graph_free(&graph); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
template <class Object>
using AvPtr = std::unique_ptr<Object, AvDeleter>;

// Blank packets and frames.
AvPtr<AVPacket> NewAvPacket();
AvPtr<AVFrame> NewAvFrame();

// Returns the result of a call of the media libraries. Throws std::bad_alloc when the call found no memory.
int CheckMemory(int result);

// libavutil's text for an error code.
std::string AvReason(int error);
