// SPDX-License-Identifier: MIT
// File names and files from outside, which may be anything.
#pragma once

#include <string>

// Makes a text safe for a line of any terminal and any XML reader: control characters and octets that are not UTF-8
// become U+FFFD.
std::string Clean(const std::string& text);

// Opens /dev/null for each standard stream that is closed. Otherwise a file that is opened later would take the
// stream's number and receive its output.
void OpenStandardStreams();

// Throws std::runtime_error when there is no regular file of that name. A pipe, for example, would keep its reader
// waiting for ever.
void NeedRegularFile(const std::string& path);

// True when both names refer to the same file, or would if it existed.
bool IsSameFile(const std::string& one, const std::string& other);
