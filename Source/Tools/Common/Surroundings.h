// What a tool meets that it did not make: names of files, and what stands behind them.
#pragma once

#include <string>

// Text on one line that any terminal and any XML reader takes: what is no UTF-8, and control characters, become U+FFFD.
std::string Clean(const std::string& text);

// Opens what is closed of the three standard streams on /dev/null: a file opened later would take its number, and with
// it the words meant for the stream.
void OpenStandardStreams();

// Throws std::runtime_error when there is no regular file of that name. What else may stand there, a pipe say, would
// keep its reader waiting for ever.
void NeedRegularFile(const std::string& path);

// Whether both names stand for one file, or would if it were there.
bool IsSameFile(const std::string& one, const std::string& other);
