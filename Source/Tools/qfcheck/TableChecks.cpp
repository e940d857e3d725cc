// SPDX-License-Identifier: MIT
// The tables that a host reads, at their documented positions.
#include "Check.h"

namespace {

using Interface::Read;

const char* const kInfo = "FileFormatInfo";

struct FormatRow {
    const char* m_Code;
    const wchar_t* m_Extension;
    const wchar_t* m_ShortName;
    const wchar_t* m_Description;
    const char* m_AudioList;
    const char* m_VideoList; // null: the format has no video
    bool m_TakesOptions;
};

constexpr FormatRow kRows[] = {
    {"MKV ", L".mkv", L"MKV", L"MKV File", "MKVAudioEncoders", "MKVVideoEncoders", true},
    {"HMKV", L".mkv", L"MKV", L"MKV File", "HMKVAudioEncoders", "HMKVVideoEncoders", false},
    {"MKA ", L".mka", L"MKA", L"MKA File", "MKVAudioEncoders", nullptr, false},
    {"WEBM", L".webm", L"WEBM", L"WEBM File", "WEBMAudioEncoders", "WEBMVideoEncoders", false},
};

const unsigned char* RecordAt(const void* table, std::size_t index) {
    return static_cast<const unsigned char*>(table) + index * Interface::SizeOf(kInfo);
}

// A text that must end inside its field.
std::wstring WideText(const unsigned char* record, const char* name) {
    const Interface::Field& field = Interface::FieldOf(kInfo, name);
    std::wstring text;
    for (std::size_t i = 0; i < field.m_Width / sizeof(wchar_t); ++i) {
        wchar_t character;
        std::memcpy(&character, record + field.At() + i * sizeof character, sizeof character);
        if (character == 0) return text;
        text += character;
    }
    throw Failure(std::string(name) + " has no terminator");
}

void Formats(Host& host) {
    const void* const table = host.GetFileFormats();
    RequireEqual(table, static_cast<const void*>(host.Data("FormatArray")), "what GetFileFormats returns");
    std::size_t index = 0;
    for (const FormatRow& row : kRows) {
        const unsigned char* const record = RecordAt(table, index++);
        const std::string what = std::string("format ") + row.m_Code + ": ";
        RequireEqual(CodeText(Read<FourCC>(record, kInfo, "fourCC")), row.m_Code, what + "the code");
        RequireEqual(WideText(record, "extension"), row.m_Extension, what + "the extension");
        RequireEqual(WideText(record, "shortName"), row.m_ShortName, what + "the short name");
        RequireEqual(WideText(record, "description"), row.m_Description, what + "the description");
    }
    RequireEqual(Read<FourCC>(RecordAt(table, index), kInfo, "fourCC"), 0U, "the terminator's code");
}

void Functions(Host& host) {
    std::size_t index = 0;
    for (const FormatRow& row : kRows) {
        const unsigned char* const record = RecordAt(host.Data("FormatArray"), index++);
        const bool hasVideo = row.m_VideoList != nullptr;
        const struct {
            const char* m_Field;
            bool m_IsSet;
        } fields[] = {
            {"CreateMediaFile", true},
            {"WriteAudioPacket", true},
            {"WriteVideoPacket", hasVideo},
            {"CloseMediaFile", true},
            {"WriteVosData", true},
            {"WritezXPSData", hasVideo},
            {"spare", false},
            {"SetMuxParam", row.m_TakesOptions},
        };
        for (const auto& field : fields) {
            const void* const expected = field.m_IsSet ? host.Function(field.m_Field) : nullptr;
            RequireEqual(Read<const void*>(record, kInfo, field.m_Field), expected,
                         std::string("format ") + row.m_Code + ": " + field.m_Field);
        }
    }
}

void Codecs(Host& host) {
    std::size_t index = 0;
    for (const FormatRow& row : kRows) {
        const unsigned char* const record = RecordAt(host.Data("FormatArray"), index++);
        const std::string what = std::string("format ") + row.m_Code + ": ";
        RequireEqual(Read<const void*>(record, kInfo, "audioEncoders"),
                     static_cast<const void*>(host.Data(row.m_AudioList)), what + "audioEncoders");
        const void* const video = row.m_VideoList != nullptr ? host.Data(row.m_VideoList) : nullptr;
        RequireEqual(Read<const void*>(record, kInfo, "videoEncoders"), video, what + "videoEncoders");
    }
    const struct {
        const char* m_List;
        std::vector<std::string> m_Codes;
    } lists[] = {
        {"MKVAudioEncoders", {"AAC ", "AC3 ", "MP3 "}},
        {"MKVVideoEncoders", {"I264", "A264", "H264", "Xvid"}},
        {"HMKVAudioEncoders", {"AC3 "}},
        {"HMKVVideoEncoders", {"I264", "A264", "havc"}},
        {"WEBMAudioEncoders", {"VBIS"}},
        {"WEBMVideoEncoders", {"VP8 "}},
    };
    for (const auto& list : lists) {
        const auto* entry = static_cast<const unsigned char*>(host.Data(list.m_List));
        const std::string what = std::string(list.m_List) + ": ";
        for (const std::string& code : list.m_Codes) {
            RequireEqual(CodeText(Read<FourCC>(entry, "EncoderEntry", "fourCC")), code, what + "a code");
            entry += Interface::SizeOf("EncoderEntry");
        }
        RequireEqual(Read<FourCC>(entry, "EncoderEntry", "fourCC"), 0U, what + "the terminator");
    }
}

void Encoders(Host& host) {
    const void* const table = host.GetEncoders();
    RequireEqual(table, static_cast<const void*>(host.Data("EncoderArray")), "what GetEncoders returns");
    FourCC code;
    std::memcpy(&code, table, sizeof code);
    RequireEqual(code, 0U, "the terminator, which comes first");
}

void AtLoad(Host& host) {
    const auto* const options = static_cast<const unsigned char*>(host.Data("m_MuxParam"));
    RequireEqual(Octets(options, options + Interface::SizeOf("MuxParam")), Zeros(24), "m_MuxParam");
    RequireEqual(*host.IsWebm(), 0U, "IsWebm");
}

} // namespace

std::vector<Check> TableChecks() {
    return {
        {"tables.formats", "four formats and the terminator, with their texts", Formats},
        {"tables.functions", "each format's functions are the exported ones, or null", Functions},
        {"tables.codecs", "the codecs that each format lists", Codecs},
        {"tables.encoders", "no encoder is on offer", Encoders},
        {"tables.at-load", "options and flag are zero when the library has been loaded", AtLoad},
    };
}
