// SPDX-License-Identifier: MIT
#include "AvOptions.h"

#include "ToolError.h"

AvOptions ParseAvOptions(const std::string& text, const std::string& option) {
    AVDictionary* parsed = nullptr;
    const int result = text.empty() ? 0 : av_dict_parse_string(&parsed, text.c_str(), "=", ",", 0);
    AvOptions options;
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(parsed, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
        options[entry->key] = entry->value;
    }
    av_dict_free(&parsed);
    if (result < 0) throw ToolError(kExitUsage, option + " takes a list like crf=20,preset=slow, not '" + text + "'");
    return options;
}

std::string ToText(const AvOptions& options) {
    std::string text;
    for (const auto& [name, value] : options) {
        text += (text.empty() ? "" : ",");
        text += name;
        text += "=";
        text += value;
    }
    return text;
}

AvDictionary::AvDictionary(const AvOptions& options) {
    for (const auto& [name, value] : options) av_dict_set(&m_pEntries, name.c_str(), value.c_str(), 0);
}

AvDictionary::~AvDictionary() { av_dict_free(&m_pEntries); }

std::string AvDictionary::FirstLeft() const {
    const AVDictionaryEntry* const entry = av_dict_get(m_pEntries, "", nullptr, AV_DICT_IGNORE_SUFFIX);
    return entry != nullptr ? entry->key : "";
}
