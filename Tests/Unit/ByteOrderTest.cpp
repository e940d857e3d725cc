// SPDX-License-Identifier: MIT
#include "ByteOrder.h"

#include <gtest/gtest.h>

#include "Extremes.h"

namespace {

TEST(ByteOrder, CountsOctetsUpToTheMostSignificantOne) {
    EXPECT_EQ(SignificantOctets(0), 0U);
    EXPECT_EQ(SignificantOctets(0xFF), 1U);
    EXPECT_EQ(SignificantOctets(0x100), 2U);
    EXPECT_EQ(SignificantOctets(0x0100000000000000), 8U);
}

TEST(ByteOrder, AppendsTheLowOctets) {
    Bytes big;
    AppendBigEndian(big, 0x123456, 2);
    AppendBigEndian(big, 1, 4);
    EXPECT_EQ(big, (Bytes{0x34, 0x56, 0, 0, 0, 1}));
    Bytes little;
    AppendLittleEndian(little, 0x123456, 2);
    AppendLittleEndian(little, 1, 4);
    EXPECT_EQ(little, (Bytes{0x56, 0x34, 1, 0, 0, 0}));
}

TEST(ByteOrder, ArithmeticWraps) {
    EXPECT_EQ(WrappingAdd(kMost32, 1), kLeast32);
    EXPECT_EQ(WrappingSubtract(kLeast32, 1), kMost32);
    EXPECT_EQ(WrappingMultiply(kMost32, 2), -2);
    EXPECT_EQ(WrappingDivide(kLeast32, -1), kLeast32);
    EXPECT_EQ(WrappingRemainder(kLeast32, -1), 0);
    EXPECT_EQ(WrappingDivide(-7, 2), -3);
    EXPECT_EQ(WrappingRemainder(-7, 2), -1);
}

TEST(ByteOrder, HostBytesTakesNothingFromNullOrBelowOne) {
    const unsigned char octet = 0;
    EXPECT_EQ(HostBytes(nullptr, 5).m_Size, 0U);
    EXPECT_EQ(HostBytes(&octet, 0).m_Size, 0U);
    EXPECT_EQ(HostBytes(&octet, -1).m_Size, 0U);
    EXPECT_EQ(HostBytes(&octet, 1).m_Size, 1U);
}

} // namespace
