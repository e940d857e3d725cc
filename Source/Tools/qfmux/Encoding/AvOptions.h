// SPDX-License-Identifier: MIT
// Options for the media libraries: their names and values.
#pragma once

#include <map>
#include <string>

extern "C" {
#include <libavutil/dict.h>
}

using AvOptions = std::map<std::string, std::string>;

// "crf=20,preset=slow". Throws ToolError with the name of the command-line option, such as "--video-options".
AvOptions ParseAvOptions(const std::string& text, const std::string& option);

// The opposite, for messages.
std::string ToText(const AvOptions& options);

// A dictionary for calls that take away the entries they know.
class AvDictionary {
public:
    explicit AvDictionary(const AvOptions& options);
    ~AvDictionary();
    AvDictionary(const AvDictionary&) = delete;
    AvDictionary& operator=(const AvDictionary&) = delete;

    AVDictionary** Get() { return &m_pEntries; }
    // The first name that is left; empty if there is none.
    std::string FirstLeft() const;

private:
    AVDictionary* m_pEntries = nullptr;
};
