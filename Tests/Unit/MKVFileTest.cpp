// SPDX-License-Identifier: MIT
#include "MKVFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "SameOctets.h"
#include "TextModel.h"

namespace {

const char* Mode(bool strict) { return strict ? "strict" : "lenient"; }

// Below `limit`.
std::uint32_t Random(std::mt19937& engine, std::uint32_t limit) { return static_cast<std::uint32_t>(engine() % limit); }

// ---- UTF-32 to UTF-8

struct ToUtf8Row {
    const char* m_Reason;
    Characters m_Source;
    bool m_Strict;
    std::size_t m_Room;
    ConversionResult m_Result;
    const char* m_Octets;
};

const ToUtf8Row kToUtf8Rows[] = {
    {"nothing", {}, true, 0, kConverted, ""},
    {"largest of one octet", {0x7F}, true, 1, kConverted, "7F"},
    {"smallest of two", {0x80}, true, 2, kConverted, "C2 80"},
    {"largest of two", {0x7FF}, true, 2, kConverted, "DF BF"},
    {"smallest of three", {0x800}, true, 3, kConverted, "E0 A0 80"},
    {"largest of three", {0xFFFF}, true, 3, kConverted, "EF BF BF"},
    {"smallest of four", {0x10000}, true, 4, kConverted, "F0 90 80 80"},
    {"largest of four", {0x10FFFF}, true, 4, kConverted, "F4 8F BF BF"},
    {"a zero is a character", {0x61, 0, 0x62}, true, 3, kConverted, "61 00 62"},
    {"below the surrogates", {0xD7FF}, true, 3, kConverted, "ED 9F BF"},
    {"first surrogate, strict", {0x61, 0xD800, 0x62}, true, 9, kSourceIllegal, "61"},
    {"last surrogate, strict", {0xDFFF}, true, 9, kSourceIllegal, ""},
    {"first surrogate, lenient", {0xD800}, false, 3, kConverted, "ED A0 80"},
    {"last surrogate, lenient", {0xDFFF}, false, 3, kConverted, "ED BF BF"},
    {"above the surrogates", {0xE000}, true, 3, kConverted, "EE 80 80"},
    {"above U+10FFFF, strict: replaced, and on it goes", {0x110000, 0x61}, true, 4, kSourceIllegal, "EF BF BD 61"},
    {"above U+10FFFF, lenient", {0x110000, 0x61}, false, 4, kSourceIllegal, "EF BF BD 61"},
    {"all bits set is no negative number", {0xFFFFFFFF}, false, 3, kSourceIllegal, "EF BF BD"},
    {"no room for the second", {0x61, 0xE9}, true, 2, kTargetExhausted, "61"},
    {"what would fit again is not tried", {0xE9, 0x61}, true, 1, kTargetExhausted, ""},
    {"no room for the replacement", {0x110000}, true, 2, kTargetExhausted, ""},
    {"no room ends a replaced text, too", {0x110000, 0xE9}, true, 4, kTargetExhausted, "EF BF BD"},
    {"a strict surrogate is found before the room is asked for", {0xD800}, true, 0, kSourceIllegal, ""},
};

TEST(ConvertUTF32toUTF8, Rows) {
    for (const ToUtf8Row& row : kToUtf8Rows) {
        const auto outcome = ToUtf8(row.m_Source, row.m_Room, row.m_Strict);
        Octets expected = Hex(row.m_Octets);
        expected.resize(row.m_Room + kBehind, kOctetCanary);
        EXPECT_EQ(outcome.m_Result, row.m_Result) << row.m_Reason;
        EXPECT_TRUE(SameOctets(outcome.m_Target, expected)) << row.m_Reason;
    }
}

const Characters kBoundaries = {0,       0x61,     0x7F,     0x80,       0x7FF,      0x800,     0xD7FF,
                                0xD800,  0xDBFF,   0xDC00,   0xDFFF,     0xE000,     0xFFFD,    0xFFFF,
                                0x10000, 0x10FFFF, 0x110000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};

void CompareToUtf8(const Characters& source) {
    for (const bool strict : {true, false}) {
        for (std::size_t room = 0; room <= 4 * source.size(); ++room) {
            if (ToUtf8(source, room, strict) == ModelToUtf8(source, room, strict)) continue;
            ADD_FAILURE() << Mode(strict) << ", room " << room << ", characters " << testing::PrintToString(source);
        }
    }
}

TEST(ConvertUTF32toUTF8, IsTheModelForPairsOfBoundariesAndEveryRoom) {
    for (const std::uint32_t first : kBoundaries) {
        CompareToUtf8({first});
        for (const std::uint32_t second : kBoundaries) CompareToUtf8({first, second});
    }
}

TEST(ConvertUTF32toUTF8, IsTheModelForRandomTextsAndEveryRoom) {
    std::mt19937 random(1);
    for (int i = 0; i < 3000; ++i) {
        Characters source(random() % 7);
        for (std::uint32_t& c : source) {
            c = random() % 2 == 0 ? kBoundaries[random() % kBoundaries.size()] : Random(random, 0x120000);
        }
        CompareToUtf8(source);
    }
}

// ---- UTF-8 to UTF-32

struct ToUtf32Row {
    const char* m_Reason;
    const char* m_Source;
    bool m_Strict;
    std::size_t m_Room;
    ConversionResult m_Result;
    Characters m_Characters;
};

const ToUtf32Row kToUtf32Rows[] = {
    {"nothing", "", true, 0, kConverted, {}},
    {"one to four octets", "61 C3A9 E282AC F09F9880", true, 4, kConverted, {0x61, 0xE9, 0x20AC, 0x1F600}},
    {"a zero is a character", "61 00 62", true, 3, kConverted, {0x61, 0, 0x62}},
    {"smallest of two", "C280", true, 1, kConverted, {0x80}},
    {"overlong zero", "C080", true, 1, kSourceIllegal, {}},
    {"largest overlong in two", "C1BF", true, 1, kSourceIllegal, {}},
    {"smallest of three", "E0A080", true, 1, kConverted, {0x800}},
    {"overlong in three", "E09FBF", true, 1, kSourceIllegal, {}},
    {"smallest of four", "F0908080", true, 1, kConverted, {0x10000}},
    {"overlong in four", "F08FBFBF", true, 1, kSourceIllegal, {}},
    {"largest character", "F48FBFBF", true, 1, kConverted, {0x10FFFF}},
    {"above U+10FFFF", "F4908080", false, 1, kSourceIllegal, {}},
    {"F5 leads nothing", "F5808080", false, 1, kSourceIllegal, {}},
    {"F8 announces five", "F888808080", false, 1, kSourceIllegal, {}},
    {"FC announces six", "FC8480808080", false, 1, kSourceIllegal, {}},
    {"FF announces six", "FF", false, 1, kSourceExhausted, {}},
    {"a trail octet leads nothing", "61 80", true, 2, kSourceIllegal, {0x61}},
    {"nor does the last of them", "BF", true, 1, kSourceIllegal, {}},
    {"second octet below the trail octets", "C37F", true, 1, kSourceIllegal, {}},
    {"second octet above them", "C3C0", true, 1, kSourceIllegal, {}},
    {"third octet", "E28261", true, 1, kSourceIllegal, {}},
    {"fourth octet", "F09F9861", true, 1, kSourceIllegal, {}},
    {"the source ends inside", "61 E282", true, 2, kSourceExhausted, {0x61}},
    {"that is asked before legality", "C0", true, 1, kSourceExhausted, {}},
    {"and before it of an illegal second octet", "E200", true, 1, kSourceExhausted, {}},
    {"legality is asked before room", "C080", true, 0, kSourceIllegal, {}},
    {"no room", "61 C3A9", true, 1, kTargetExhausted, {0x61}},
    {"the source's end is asked before room", "C3", true, 0, kSourceExhausted, {}},
    {"surrogate, strict", "61 EDA080", true, 2, kSourceIllegal, {0x61}},
    {"last surrogate, strict", "EDBFBF", true, 1, kSourceIllegal, {}},
    {"surrogate, lenient: replaced", "EDA080 61", false, 2, kConverted, {0xFFFD, 0x61}},
    {"below the surrogates", "ED9FBF", true, 1, kConverted, {0xD7FF}},
    {"above the surrogates", "EE8080", true, 1, kConverted, {0xE000}},
};

TEST(ConvertUTF8toUTF32, Rows) {
    for (const ToUtf32Row& row : kToUtf32Rows) {
        const auto outcome = ToUtf32(Hex(row.m_Source), row.m_Room, row.m_Strict);
        Wide expected = ToWide(row.m_Characters);
        expected.resize(row.m_Room + kBehind, kWideCanary);
        EXPECT_EQ(outcome.m_Result, row.m_Result) << row.m_Reason;
        EXPECT_EQ(outcome.m_Target, expected) << row.m_Reason;
    }
}

// The ends of every class of lead and trail octets.
const Octets kClasses =
    Hex("00 7F 80 8F 90 9F A0 BF C0 C1 C2 DF E0 E1 EC ED EE EF F0 F1 F3 F4 F5 F7 F8 FB FC FD FE FF");

void CompareToUtf32(const Octets& source, std::size_t room) {
    for (const bool strict : {true, false}) {
        if (ToUtf32(source, room, strict) == ModelToUtf32(source, room, strict)) continue;
        ADD_FAILURE() << Mode(strict) << ", room " << room << ", octets " << testing::PrintToString(source);
    }
}

TEST(ConvertUTF8toUTF32, IsTheModelForAllPairsOfOctets) {
    for (unsigned first = 0; first <= 0xFF; ++first) {
        CompareToUtf32({static_cast<unsigned char>(first)}, 1);
        for (unsigned second = 0; second <= 0xFF; ++second) {
            CompareToUtf32({static_cast<unsigned char>(first), static_cast<unsigned char>(second)}, 2);
        }
    }
}

TEST(ConvertUTF8toUTF32, IsTheModelForAllTriplesOfClasses) {
    for (const unsigned char first : kClasses) {
        for (const unsigned char second : kClasses) {
            for (const unsigned char third : kClasses) CompareToUtf32({first, second, third}, 3);
        }
    }
}

// Random texts, mostly well-formed sequences: some cut off, some with an octet changed; each with every room.
TEST(ConvertUTF8toUTF32, IsTheModelForRandomTextsAndEveryRoom) {
    std::mt19937 random(2);
    for (int i = 0; i < 8000; ++i) {
        Octets source;
        for (std::size_t k = random() % 5; k > 0; --k) {
            Octets sequence = random() % 4 == 0 ? Octets{kClasses[random() % kClasses.size()]}
                                                : Encoded(Random(random, random() % 2 == 0 ? 0x110000 : 0x900));
            if (random() % 8 == 0) sequence[random() % sequence.size()] = kClasses[random() % kClasses.size()];
            if (random() % 8 == 0) sequence.pop_back();
            source.insert(source.end(), sequence.begin(), sequence.end());
        }
        for (std::size_t room = 0; room <= source.size(); ++room) CompareToUtf32(source, room);
    }
}

TEST(ConvertUTF8toUTF32, IsTheModelWhereverAWellFormedTextIsCutOff) {
    const Octets text = Hex("61 C3A9 E282AC F09F9880 EDA080 F48FBFBF 00 EFBFBD");
    for (std::size_t size = 0; size <= text.size(); ++size) {
        const Octets source(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size));
        for (std::size_t room = 0; room <= 9; ++room) CompareToUtf32(source, room);
    }
}

TEST(Converters, BringEveryCharacterThereAndBack) {
    Wide characters;
    for (std::uint32_t c = 0; c <= 0x10FFFF; ++c) {
        if (!IsSurrogate(c)) characters.push_back(static_cast<wchar_t>(c));
    }
    Octets octets(4 * characters.size());
    ASSERT_EQ(ConvertUTF32toUTF8(characters.data(), characters.data() + characters.size(), octets.data(),
                                 octets.data() + octets.size(), kStrictConversion),
              kConverted);
    // 2^7 of one octet, up to 2^11 of two, 2^16 without the surrogates of three, 16 * 2^16 of four
    octets.resize(0x80 + 2 * (0x800 - 0x80) + 3 * (0x10000 - 0x800 - 0x800) + 4 * 0x100000);
    Wide back(characters.size());
    ASSERT_EQ(ConvertUTF8toUTF32(octets.data(), octets.data() + octets.size(), back.data(), back.data() + back.size(),
                                 kStrictConversion),
              kConverted);
    EXPECT_EQ(back, characters);
}

// ---- the wrappers

struct WtoUtf8Row {
    const char* m_Reason;
    const wchar_t* m_Source;
    int m_SourceLength;
    int m_TargetLength;
    bool m_Strict;
    ConversionResult m_Result;
    const char* m_Octets;
};

const WtoUtf8Row kWtoUtf8Rows[] = {
    {"all, with its terminator", L"a\u00E9", -1, 8, false, kConverted, "61 C3A9 00"},
    {"without", L"a\u00E9", 2, 8, false, kConverted, "61 C3A9"},
    {"the first characters", L"a\u00E9", 1, 8, false, kConverted, "61"},
    {"past a zero", L"a\0b", 3, 8, false, kConverted, "61 00 62"},
    {"an empty text is its terminator", L"", -1, 8, false, kConverted, "00"},
    {"room for the text alone", L"a\u00E9", -1, 3, false, kTargetExhausted, "61 C3A9"},
    {"room in the midst of a character", L"a\u00E9", -1, 2, false, kTargetExhausted, "61"},
    {"true is strict", L"\xD800", 1, 8, true, kSourceIllegal, ""},
    {"false is lenient", L"\xD800", 1, 8, false, kConverted, "EDA080"},
    {"above U+10FFFF", L"\x110000", -1, 8, false, kSourceIllegal, "EFBFBD 00"},
    {"no characters", L"a", 0, 8, false, kConverted, ""},
    {"a negative length other than -1", L"a", -2, 8, false, kConverted, ""},
    {"no source", nullptr, -1, 8, false, kConverted, ""},
    {"no source, whatever its length", nullptr, 5, 8, false, kConverted, ""},
    {"no room", L"a", -1, 0, false, kTargetExhausted, ""},
    {"a negative room", L"a", -1, -1, false, kTargetExhausted, ""},
};

TEST(WtoUTF8, Rows) {
    for (const WtoUtf8Row& row : kWtoUtf8Rows) {
        std::string target(16, '\xEE');
        EXPECT_EQ(WtoUTF8(row.m_Source, row.m_SourceLength, target.data(), row.m_TargetLength, row.m_Strict),
                  row.m_Result)
            << row.m_Reason;
        Octets expected = Hex(row.m_Octets);
        expected.resize(target.size(), kOctetCanary);
        EXPECT_TRUE(SameOctets(Ascii(target), expected)) << row.m_Reason;
    }
    EXPECT_EQ(WtoUTF8(L"a", -1, nullptr, 8, false), kTargetExhausted) << "no target";
}

struct Utf8ToWRow {
    const char* m_Reason;
    const char* m_Source;
    int m_SourceLength;
    int m_TargetLength;
    bool m_Strict;
    ConversionResult m_Result;
    Characters m_Characters;
};

const Utf8ToWRow kUtf8ToWRows[] = {
    {"all, with its terminator", "a\xC3\xA9", -1, 8, false, kConverted, {0x61, 0xE9, 0}},
    {"without", "a\xC3\xA9", 3, 8, false, kConverted, {0x61, 0xE9}},
    {"a length inside a character", "a\xC3\xA9", 2, 8, false, kSourceExhausted, {0x61}},
    {"the terminator is no trail octet", "\xC3", -1, 8, false, kSourceIllegal, {}},
    {"and does not end the source early", "\xE2\x82", -1, 8, false, kSourceIllegal, {}},
    {"past a zero", "a\0b", 3, 8, false, kConverted, {0x61, 0, 0x62}},
    {"overlong", "\xC0\x80", -1, 8, false, kSourceIllegal, {}},
    {"overlong, strict", "\xC0\x80", 2, 8, true, kSourceIllegal, {}},
    {"true is strict", "\xED\xA0\x80", 3, 8, true, kSourceIllegal, {}},
    {"false is lenient", "\xED\xA0\x80", 3, 8, false, kConverted, {0xFFFD}},
    {"room counts characters", "\xC3\xA9\xC3\xA9", 4, 1, false, kTargetExhausted, {0xE9}},
    {"no octets", "a", 0, 8, false, kConverted, {}},
    {"a negative length other than -1", "a", -2, 8, false, kConverted, {}},
    {"no source", nullptr, -1, 8, false, kConverted, {}},
    {"no room", "a", -1, 0, false, kTargetExhausted, {}},
    {"a negative room", "a", -1, -1, false, kTargetExhausted, {}},
};

TEST(UTF8toW, Rows) {
    for (const Utf8ToWRow& row : kUtf8ToWRows) {
        Wide target(16, kWideCanary);
        EXPECT_EQ(UTF8toW(row.m_Source, row.m_SourceLength, target.data(), row.m_TargetLength, row.m_Strict),
                  row.m_Result)
            << row.m_Reason;
        Wide expected = ToWide(row.m_Characters);
        expected.resize(target.size(), kWideCanary);
        EXPECT_EQ(target, expected) << row.m_Reason;
    }
    EXPECT_EQ(UTF8toW("a", -1, nullptr, 8, false), kTargetExhausted) << "no target";
}

struct Utf16To8Row {
    const char* m_Reason;
    std::wstring m_Text;
    std::string m_Expected;
};

const Utf16To8Row kUtf16To8Rows[] = {
    {"empty", L"", ""},
    {"one to four octets", L"a\u00E9\u20AC\U0001F600", "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
    {"lenient", L"\xD800", "\xED\xA0\x80"},
    {"above U+10FFFF, and on it goes", L"a\x110000z", "a\xEF\xBF\xBDz"},
    {"as long as there is room", std::wstring(2047, L'a'), std::string(2047, 'a')},
    {"one longer", std::wstring(2048, L'a'), std::string(2047, 'a')},
    {"much longer", std::wstring(3000, L'a'), std::string(2047, 'a')},
    {"the last character fits", std::wstring(2045, L'a') + L"\u00E9", std::string(2045, 'a') + "\xC3\xA9"},
    {"it does not, nor does what is behind it", std::wstring(2046, L'a') + L"\u00E9z", std::string(2046, 'a')},
    {"three octets in the place of two", std::wstring(2045, L'a') + L"\u20ACz", std::string(2045, 'a')},
};

// Callers outside this library compare with the numbers.
TEST(ConversionResult, HasTheNumbersOfTheReferenceRoutines) {
    EXPECT_EQ(static_cast<int>(kConverted), 0);
    EXPECT_EQ(static_cast<int>(kSourceExhausted), 1);
    EXPECT_EQ(static_cast<int>(kTargetExhausted), 2);
    EXPECT_EQ(static_cast<int>(kSourceIllegal), 3);
    EXPECT_EQ(static_cast<int>(kStrictConversion), 0);
    EXPECT_EQ(static_cast<int>(kLenientConversion), 1);
}

TEST(UTF16To8, Rows) {
    for (const Utf16To8Row& row : kUtf16To8Rows) {
        EXPECT_EQ(UTF16To8(row.m_Text.c_str()), row.m_Expected) << row.m_Reason;
    }
    EXPECT_EQ(UTF16To8(nullptr), "") << "no text";
}

} // namespace
