// SPDX-License-Identifier: MIT
// The octets in which the tests state what is expected.
#include "Octets.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "SameOctets.h"

namespace {

TEST(OctetsText, HasTwoDigitsForEachOctet) {
    EXPECT_EQ(Hex("00 1a FF9 0"), (Octets{0x00, 0x1A, 0xFF, 0x90}));
    EXPECT_EQ(Hex(""), Octets());
    EXPECT_THROW(Hex("123"), std::invalid_argument);
    EXPECT_THROW(Hex("0x"), std::invalid_argument);
}

TEST(FillWith, RepeatsTheOctets) {
    const struct {
        const char* m_Octets;
        std::size_t m_Size;
        const char* m_Filled;
    } rows[] = {
        {"", 3, "000000"},     {"AB", 5, "ABABABABAB"}, {"010203", 0, ""},
        {"010203", 2, "0102"}, {"010203", 3, "010203"}, {"010203", 11, "0102030102030102030102"},
    };
    for (const auto& row : rows) {
        Octets memory(row.m_Size + 1, 0x77);
        FillWith(Hex(row.m_Octets), memory.data(), row.m_Size);
        EXPECT_TRUE(SameOctets(memory, Hex(row.m_Filled) + Hex("77"))) << row.m_Octets << ", " << row.m_Size;
    }
}

TEST(EqualUpTo, IsTheFirstDifferenceOrTheEnd) {
    const Octets expected = Hex("0102030405");
    EXPECT_EQ(EqualUpTo(Hex("0102030405"), expected, 0), 5U);
    EXPECT_EQ(EqualUpTo(Hex("010203"), expected, 0), 3U);
    EXPECT_EQ(EqualUpTo(Hex("0102FF04"), expected, 0), 2U);
    EXPECT_EQ(EqualUpTo(Hex("0102FF04"), expected, 3), 4U);
    EXPECT_EQ(EqualUpTo(Hex("FF"), expected, 4), 1U);
}

} // namespace
