// SPDX-License-Identifier: MIT
#include "LossText.h"

#include <cstdio>
#include <cstring>

#include "TimeLine.h"

std::string SecondsText(std::int64_t time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", static_cast<double>(time) / kSecond);
    return text;
}

std::string Counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

std::string KindName(const AVStream* stream) {
    const char* const name = av_get_media_type_string(stream->codecpar->codec_type);
    return name != nullptr ? name : "unknown";
}

const char* Value(const AVDictionary* tags, const char* key) {
    const AVDictionaryEntry* const entry = av_dict_get(tags, key, nullptr, 0);
    return entry != nullptr && entry->value[0] != '\0' ? entry->value : nullptr;
}

bool HasAlphaPictures(const AVStream* stream) {
    const char* const mode = Value(stream->metadata, "alpha_mode");
    return mode != nullptr && std::strcmp(mode, "0") != 0;
}

bool IsCover(const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0; }
