// SPDX-License-Identifier: MIT
// The parser of the table of known differences.
#include "KnownDifferences.h"

#include <gtest/gtest.h>

#include <fstream>
#include <stdexcept>

#include "TempDirectory.h"

namespace {

constexpr const char* kHead = "| reader | property | files | says | why |\n|---|---|---|---|---|\n";

std::vector<Difference> Read(const std::string& text) {
    const TempDirectory directory;
    const std::string path = (directory / "table.md").string();
    std::ofstream(path) << text;
    return ReadKnownDifferences(path);
}

TEST(KnownDifferencesTest, RowsAreReadFromTheirTableAlone) {
    const std::vector<Difference> rows = Read("| a | b |\n|---|---|\n| c | d |\n\n" + std::string(kHead) +
                                              "| x, y | size | all | `0x0` | so |\n\n| e | f |\n");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].m_Readers, (std::set<std::string>{"x", "y"}));
    EXPECT_EQ(rows[0].m_Property, "size");
    EXPECT_EQ(rows[0].m_Says, "0x0");
    EXPECT_EQ(rows[0].m_Line, 7);
}

TEST(KnownDifferencesTest, ATableWithoutRowsOrReasonsIsRefused) {
    for (const char* body : {"", "| x | size | all | 0 | |\n", "| x | size | all | 0 |\n"}) {
        EXPECT_THROW(Read(std::string(kHead) + body), std::runtime_error) << body;
    }
    EXPECT_THROW(ReadKnownDifferences("/no/such/file"), std::runtime_error);
}

TEST(KnownDifferencesTest, FilesAreNamedByTags) {
    struct Row {
        const char* m_Files;
        bool m_Concerns;
    };
    for (const Row& row :
         {Row{"all", true}, Row{"webm", false}, Row{"mkv and VP8", true}, Row{"mkv and not VP8", false},
          Row{"webm or VP8", true}, Row{"webm and VP8 or mkv and sound", false}, Row{"not webm", true}}) {
        const Difference difference{{}, "", row.m_Files, "", 0};
        EXPECT_EQ(difference.Concerns({"all", "mkv", "VP8"}), row.m_Concerns) << row.m_Files;
    }
}

TEST(KnownDifferencesTest, ValuesAreTextPatternsOrMeasures) {
    const std::map<std::string, std::string> values = {{"<sum>", "2975"}};
    const auto covers = [&](const char* row, const char* property, const char* says) {
        return Difference{{"x"}, property, "all", row, 0}.Covers("x", property, says, values);
    };
    EXPECT_TRUE(covers("0x0", "size", "0x0"));
    EXPECT_FALSE(covers("0x0", "size", "0x01"));
    EXPECT_TRUE(covers("0 *", "key frames", "0 25"));
    EXPECT_FALSE(covers("0 *", "key frames", "1 25"));
    EXPECT_TRUE(covers("<sum>", "duration", "2976"));
    EXPECT_FALSE(covers("<sum>", "duration", "2978"));
    EXPECT_FALSE((Difference{{"x"}, "size", "all", "*", 0}.Covers("y", "size", "a", values)));
    EXPECT_FALSE((Difference{{"x"}, "size", "all", "*", 0}.Covers("x", "duration", "1", values)));
}

} // namespace
