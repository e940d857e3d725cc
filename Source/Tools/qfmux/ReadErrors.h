// SPDX-License-Identifier: MIT
// Errors that libavformat and libavcodec report while they read a file.
#pragma once

#include <atomic>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

// Some errors are only in the log: packets that are truncated or incomplete, a file that ends too early, and pictures
// that a decoder conceals. Its frames are not always marked, since several threads decode.
class ReadErrors {
public:
    // Counts the context's errors from now on. This object must outlive the context.
    void Watch(AVFormatContext& context);
    void Watch(AVCodecContext& context); // before it is opened

    // To be called for each line in the log.
    static void Take(AVFormatContext& context, int level, const char* format);
    static void Take(AVCodecContext& context, int level, const char* format);

    int Packets() const { return m_Packets; } // packets reported as corrupt
    int Others() const { return m_Others; }
    int Concealed() const { return m_Concealed; } // pictures

private:
    int m_Packets = 0;
    std::atomic<int> m_Others = 0;
    std::atomic<int> m_Concealed = 0;
};
