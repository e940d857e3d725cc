// SPDX-License-Identifier: MIT
// Texts for losses and other messages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "AvPtr.h"
#include "Loss.h"

using Losses = std::vector<Loss>;

// "1.25 s". time: 100 ns units.
std::string SecondsText(std::int64_t time);
// "1 chapter", "2 chapters".
std::string Counted(std::size_t count, const std::string& what);
std::string Joined(const std::vector<std::string>& words);
// "video", "audio", ...
std::string KindName(const AVStream* stream);
// A tag's text; null if it is absent or empty.
const char* Value(const AVDictionary* tags, const char* key);
// Whether the file has a second picture with the transparency of each picture.
bool HasAlphaPictures(const AVStream* stream);
// Whether the stream is a cover picture, which does not count as video.
bool IsCover(const AVStream& stream);
