// SPDX-License-Identifier: MIT
// A whole session of one format, three seconds of it, and everything that its file must then hold.
#pragma once

#include <string>

#include "OutputFile.h"

// Compares an element's children one by one. A child named `except` is passed over.
void RequireChildren(const Ebml::File& file, const std::string& path, const Octets& expected,
                     const std::string& except = "");

class Trial {
public:
    static constexpr int kFrames = 75; // of each kind that the format has

    Trial(Host& host, const std::string& format, const std::string& name = "file", unsigned char gap = 0);

    // Hands over set-up data; at the start.
    void SetUp();
    // Hands over the frames of each kind with these numbers.
    void Feed(int from = 0, int to = kFrames);
    // Closes the file, which holds the frames up to `frames`, and looks at all of it.
    void Finish(int frames = kFrames);
    void Run();

    OutputFile& Output() { return m_File; }

private:
    struct Kind;
    static const Kind& KindOf(const std::string& format);

    const Kind& m_Kind;
    OutputFile m_File;
};
