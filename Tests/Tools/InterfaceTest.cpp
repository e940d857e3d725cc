// SPDX-License-Identifier: MIT
// qfcheck's layout equals the layout of the guide, in both word sizes, and that of the headers.
#include "Interface.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "HostRecords.h"
#include "TempDirectory.h"

namespace {

// Fields by "record.name" with the guide's columns: width, i386, x86_64.
struct Documented {
    std::string m_Width;
    std::size_t m_At32;
    std::size_t m_At64;
};

std::string Without(std::string text, const std::string& characters) {
    for (const char c : characters) text.erase(std::remove(text.begin(), text.end(), c), text.end());
    return text;
}

std::vector<std::string> Split(const std::string& text, char separator) {
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, separator);) {
        const std::size_t begin = word.find_first_not_of(' ');
        words.push_back(begin == std::string::npos ? "" : word.substr(begin, word.find_last_not_of(' ') - begin + 1));
    }
    return words;
}

// One of several numbers: thousands have a comma, several numbers a comma and a blank.
std::size_t Number(std::string cell, std::size_t index) {
    for (std::size_t at; (at = cell.find(", ")) != std::string::npos;) cell.replace(at, 2, ";");
    return std::stoul(Without(Split(cell, ';').at(index), ","));
}

struct Guide {
    std::map<std::string, Documented> m_Fields;
    std::map<std::string, std::pair<std::size_t, std::size_t>> m_Sizes;

    // Rows are: | `Record` (SIZE32, SIZE64 octets) | `field`, `field` | width | AT32, AT32 | AT64, AT64 |
    // A record's later rows leave the first column empty.
    Guide() {
        const auto octets = ReadFile(QF_SOURCE "/Docs/HostGuide.md");
        std::istringstream lines(std::string(octets.begin(), octets.end()));
        std::string record;
        for (std::string line; std::getline(lines, line);) {
            const std::vector<std::string> cells = Split(line, '|');
            if (cells.size() != 6 || cells[2].find('`') != 0) {
                if (cells.size() < 2) record.clear();
                continue;
            }
            const std::size_t open = cells[1].find(" (");
            if (open != std::string::npos && cells[1].find(" octets") != std::string::npos) {
                record = Without(cells[1].substr(0, open), "`");
                const std::string sizes = cells[1].substr(open + 2, cells[1].find(" octets") - open - 2);
                m_Sizes[record] = {Number(sizes, 0), Number(sizes, sizes.find(", ") == std::string::npos ? 0 : 1)};
            }
            if (record.empty()) continue;
            const std::string name = Split(cells[2], '(')[0];
            const std::vector<std::string> names = Split(Without(name, "`"), ',');
            for (std::size_t i = 0; i < names.size(); ++i) {
                m_Fields[record + "." + Split(names[i], ' ')[0]] = {cells[3], Number(cells[4], i), Number(cells[5], i)};
            }
        }
    }
};

TEST(Interface, PositionsAreTheGuides) {
    const Guide guide;
    for (const Interface::Field& field : Interface::kFields) {
        const std::string name = std::string(field.m_Record) + "." + field.m_Name;
        const auto row = guide.m_Fields.find(name);
        ASSERT_NE(row, guide.m_Fields.end()) << name;
        EXPECT_EQ(row->second.m_At32, field.m_At32) << name;
        EXPECT_EQ(row->second.m_At64, field.m_At64) << name;
        if (field.m_Width == Interface::kPointer) {
            EXPECT_EQ(row->second.m_Width.find("pointer"), 0U) << name;
        } else {
            EXPECT_EQ(std::stoul(Without(row->second.m_Width, ",")), field.m_Width) << name;
        }
    }
}

TEST(Interface, SizesAreTheGuides) {
    const Guide guide;
    for (const Interface::RecordSize& size : Interface::kSizes) {
        const auto row = guide.m_Sizes.find(size.m_Record);
        ASSERT_NE(row, guide.m_Sizes.end()) << size.m_Record;
        EXPECT_EQ(row->second.first, size.m_Size32) << size.m_Record;
        EXPECT_EQ(row->second.second, size.m_Size64) << size.m_Record;
    }
}

TEST(Interface, SizesAreTheHeaders) {
    const std::map<std::string, std::size_t> sizes = {
        {"EncodeParam", sizeof(EncodeParam)},   {"VideoParam", sizeof(VideoParam)},
        {"AudioParam", sizeof(AudioParam)},     {"MuxParam", sizeof(MuxParam)},
        {"MEDIA_FRAME", sizeof(MEDIA_FRAME)},   {"FileFormatInfo", sizeof(FileFormatInfo)},
        {"EncoderEntry", sizeof(EncoderEntry)},
    };
    for (const Interface::RecordSize& size : Interface::kSizes) EXPECT_EQ(sizes.at(size.m_Record), size.Size());
}

} // namespace
