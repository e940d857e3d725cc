// SPDX-License-Identifier: MIT
// What libavformat complains of while it reads a file.
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

// It tells some faults in its log alone: packets cut off or with parts missing, and a file that ends too early.
class ReadErrors {
public:
    // Counts from now on what concerns the context, which this object must outlive.
    void Watch(AVFormatContext& context);

    int Packets() const { return m_Packets; } // that it calls corrupt
    int Others() const { return m_Others; }

private:
    static void Take(void* object, int level, const char* format, va_list arguments);

    int m_Packets = 0;
    int m_Others = 0;
};
