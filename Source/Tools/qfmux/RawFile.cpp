// SPDX-License-Identifier: MIT
#include "RawFile.h"

#include <new>

RawFile::RawFile(const std::string& path) {
    AVFormatContext* context = avformat_alloc_context();
    if (context == nullptr) throw std::bad_alloc();
    context->flags |= AVFMT_FLAG_NOPARSE | AVFMT_FLAG_NOFILLIN;
    const int result =
        avformat_open_input(&context, ("file:" + path).c_str(), av_find_input_format("matroska"), nullptr);
    if (result < 0) {
        m_Error = "it does not open: " + AvReason(result);
    } else {
        m_Context.reset(context);
    }
}

const AVStream* RawFile::Stream(AVMediaType type) const {
    for (unsigned i = 0; i < m_Context->nb_streams; ++i) {
        if (m_Context->streams[i]->codecpar->codec_type == type) return m_Context->streams[i];
    }
    return nullptr;
}
