// SPDX-License-Identifier: MIT
// Errors that libavformat reports while it reads a file.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

// libavformat reports some errors only in its log: packets that are truncated or incomplete, and a file that ends too
// early.
class ReadErrors {
public:
    // Counts the context's errors from now on. This object must outlive the context.
    void Watch(AVFormatContext& context);

    // To be called for each line that libavformat logs.
    static void Take(AVFormatContext& context, int level, const char* format);

    int Packets() const { return m_Packets; } // packets reported as corrupt
    int Others() const { return m_Others; }

private:
    int m_Packets = 0;
    int m_Others = 0;
};
