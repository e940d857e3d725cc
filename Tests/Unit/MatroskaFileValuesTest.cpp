// SPDX-License-Identifier: MIT
// Identifiers, lengths and values.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "ClassNames.h"
#include "ElementModel.h"
#include "ElementRows.h"

using namespace MatroskaWriter;

namespace {

// ---- identifiers

struct IdRow {
    const char* m_Reason;
    unsigned long m_Id;
    const char* m_Octets;
};

const IdRow kIdRows[] = {
    {"none", 0, ""},
    {"one octet", 0xAE, "AE"},
    {"two", 0x4286, "4286"},
    {"three", 0x2AD7B1, "2AD7B1"},
    {"four", 0x1A45DFA3, "1A45DFA3"},
    {"all ones are left alone", 0xFF, "FF"},
    {"one octet without its marker", 0x2E, "AE"},
    {"two without", 0x0286, "4286"},
    {"three without", 0x0AD7B1, "2AD7B1"},
    {"four without", 0x0A45DFA3, "1A45DFA3"},
    {"the smallest", 0x01, "81"},
    {"one octet less than meant", 0x86, "86"},
    {"the marker of fewer octets goes", 0x8286, "4286"},
    {"of all fewer", 0xFFFFFFFF, "1FFFFFFF"},
};

TEST(CID, Rows) {
    for (const IdRow& row : kIdRows) {
        const CID id(row.m_Id);
        EXPECT_EQ(id.m_ID, row.m_Id) << row.m_Reason;
        EXPECT_TRUE(SameOctets(Written(id), Hex(row.m_Octets))) << row.m_Reason;
        EXPECT_EQ(id.Size(false), Hex(row.m_Octets).size()) << row.m_Reason;
        EXPECT_EQ(id.Size(true), Hex(row.m_Octets).size()) << row.m_Reason;
    }
}

// ---- lengths

constexpr std::uint64_t kMostUnsigned = std::numeric_limits<std::uint64_t>::max();

struct LengthRow {
    const char* m_Reason;
    std::uint64_t m_Length;
    const char* m_Octets;
};

const LengthRow kLengthRows[] = {
    {"nothing", 0, "80"},
    {"5", 5, "85"},
    {"largest in one octet", 126, "FE"},
    {"127 would mean unknown in one", 127, "407F"},
    {"4096", 4096, "5000"},
    {"largest in two", 16382, "7FFE"},
    {"smallest in three", 16383, "203FFF"},
    {"largest in three", 2097150, "3FFFFE"},
    {"smallest in four", 2097151, "101FFFFF"},
    {"largest in four", 268435454, "1FFFFFFE"},
    {"smallest in five", 268435455, "080FFFFFFF"},
    {"largest in five", 34359738366, "0FFFFFFFFE"},
    {"smallest in six", 34359738367, "0407FFFFFFFF"},
    {"largest in six", 4398046511102, "07FFFFFFFFFE"},
    {"smallest in seven", 4398046511103, "0203FFFFFFFFFF"},
    {"largest in seven", 562949953421310, "03FFFFFFFFFFFE"},
    {"smallest in eight", 562949953421311, "0101FFFFFFFFFFFF"},
    {"largest in eight", 72057594037927934, "01FFFFFFFFFFFFFE"},
    {"unknown", 72057594037927935, "01FFFFFFFFFFFFFF"},
    {"more than eight octets hold", 72057594037927936, ""},
    {"the largest number", kMostUnsigned, ""},
};

TEST(CLength, Rows) {
    for (const LengthRow& row : kLengthRows) {
        const Octets octets = Hex(row.m_Octets);
        const CLength length(row.m_Length);
        EXPECT_TRUE(SameOctets(Written(length), octets)) << row.m_Reason;
        EXPECT_EQ(length.Size(false), octets.size()) << row.m_Reason;
        EXPECT_EQ(length.Size(true), octets.size()) << row.m_Reason;
        EXPECT_EQ(CID(0x4286).HeaderSize(row.m_Length), 2 + octets.size()) << row.m_Reason;
        EXPECT_EQ(CID(0).HeaderSize(row.m_Length), octets.size()) << row.m_Reason;
        // Void writes the header of a payload of any size; no zeros follow where its low 32 bits are negative or 0.
        if (row.m_Length % 0x100000000 == 0 || row.m_Length % 0x100000000 >= 0x80000000) {
            EXPECT_TRUE(SameOctets(Written(Void(row.m_Length, 0xEC)), Join({Hex("EC"), octets}))) << row.m_Reason;
        }
    }
}

TEST(CID, HeaderIsIdentifierAndLengthOfThePayload) {
    for (const std::size_t size : {0U, 1U, 126U, 127U, 16382U, 16383U}) {
        CBinary binary(0x63A2);
        binary.m_Data = Repeated(size, 0xAB);
        MemoryStream stream;
        EXPECT_EQ(binary.HeaderWrite(&stream), 0);
        EXPECT_TRUE(SameOctets(stream.m_Octets, Join({Hex("63A2"), LengthOctets(size)}))) << size;
    }
}

// ---- unsigned integers

struct UIntRow {
    const char* m_Reason;
    std::uint64_t m_Value;
    const char* m_Payload;
};

const UIntRow kUIntRows[] = {
    {"0 takes an octet", 0, "00"},
    {"1", 1, "01"},
    {"largest of one octet", 255, "FF"},
    {"smallest of two", 256, "0100"},
    {"largest of two", 0xFFFF, "FFFF"},
    {"smallest of three", 0x10000, "010000"},
    {"a million", 1000000, "0F4240"},
    {"smallest of four", 0x1000000, "01000000"},
    {"smallest of five", 0x100000000, "0100000000"},
    {"smallest of six", 0x10000000000, "010000000000"},
    {"smallest of seven", 0x1000000000000, "01000000000000"},
    {"largest of seven", 0xFFFFFFFFFFFFFF, "FFFFFFFFFFFFFF"},
    {"smallest of eight", 0x0100000000000000, "0100000000000000"},
    {"the largest", kMostUnsigned, "FFFFFFFFFFFFFFFF"},
};

TEST(CUInt, Rows) {
    for (const UIntRow& row : kUIntRows) {
        CUInt element(0x4286);
        Put(element, row.m_Value);
        EXPECT_TRUE(SameOctets(Written(element), Element("4286", Hex(row.m_Payload)))) << row.m_Reason;
        EXPECT_EQ(element.Size(false), Hex(row.m_Payload).size()) << row.m_Reason;
        EXPECT_EQ(element.Size(true), Hex(row.m_Payload).size() + 3) << row.m_Reason;
    }
}

// ---- signed integers

struct IntRow {
    const char* m_Reason;
    std::int64_t m_Value;
    const char* m_Payload;
};

const IntRow kIntRows[] = {
    {"0 takes an octet", 0, "00"},
    {"1", 1, "01"},
    {"-1", -1, "FF"},
    {"-40", -40, "D8"},
    {"127", 127, "7F"},
    {"a positive number gets no sign octet", 128, "80"},
    {"-127", -127, "81"},
    {"least of one octet", -128, "80"},
    {"-129: bit 7 is clear, so one more", -129, "FF7F"},
    {"-255: bit 7 is clear", -255, "FF01"},
    {"-256: n is 2, bit 8 is set", -256, "FF00"},
    {"-257: bit 8 is clear, a needless octet", -257, "FFFEFF"},
    {"255", 255, "FF"},
    {"256", 256, "0100"},
    {"reads back as negative", 40000, "9C40"},
    {"bit 8 is 1 in FF7F18: the sign is lost", -33000, "7F18"},
    {"-32768: 8000 has bit 8 clear", -32768, "FF8000"},
    {"-65536: n is 3, bit 9 of FF0000 is clear", -65536, "FFFF0000"},
    {"the largest", std::numeric_limits<std::int64_t>::max(), "7FFFFFFFFFFFFFFF"},
    {"never more than eight octets", std::numeric_limits<std::int64_t>::min(), "8000000000000000"},
    {"one above the least", std::numeric_limits<std::int64_t>::min() + 1, "8000000000000001"},
};

Octets IntOctets(std::int64_t value) {
    CInt element(0xFB);
    Put(element, value);
    EXPECT_EQ(element.Size(false) + 2, element.Size(true)) << value;
    return Written(element);
}

TEST(CInt, Rows) {
    for (const IntRow& row : kIntRows) {
        EXPECT_TRUE(SameOctets(IntOctets(row.m_Value), Element("FB", Hex(row.m_Payload)))) << row.m_Reason;
    }
}

// Against the rule of widths, step by step.
void CompareInt(std::int64_t value) {
    const Octets expected = Element("FB", ModelIntPayload(value));
    const Octets actual = IntOctets(value);
    if (actual != expected) ADD_FAILURE() << value << ": " << SameOctets(actual, expected).message();
}

TEST(CInt, FollowsTheRuleOfWidths) {
    for (std::int64_t value = -70000; value <= 70000; ++value) CompareInt(value);
    for (unsigned power = 16; power < 64; ++power) {
        for (std::uint64_t offset = 0; offset <= 600; ++offset) {
            const std::uint64_t near = (std::uint64_t{1} << power) + offset - 300;
            CompareInt(static_cast<std::int64_t>(near));
            CompareInt(static_cast<std::int64_t>(~near + 1));
        }
    }
    std::mt19937_64 random(3);
    for (int i = 0; i < 50000; ++i) CompareInt(static_cast<std::int64_t>(random() >> (random() % 64)));
    for (int i = 0; i < 50000; ++i) CompareInt(static_cast<std::int64_t>(~(random() >> (random() % 64))));
}

// ---- floats

struct FloatRow {
    const char* m_Reason;
    float m_Value;
    const char* m_Payload;
};

const FloatRow kFloatRows[] = {
    {"zero is written", 0.0F, "00000000"},
    {"with its sign", -0.0F, "80000000"},
    {"25", 25.0F, "41C80000"},
    {"44100", 44100.0F, "472C4400"},
    {"-1", -1.0F, "BF800000"},
    {"the smallest", std::numeric_limits<float>::denorm_min(), "00000001"},
    {"the largest", std::numeric_limits<float>::max(), "7F7FFFFF"},
    {"infinity", std::numeric_limits<float>::infinity(), "7F800000"},
};

TEST(CFloat, Rows) {
    for (const FloatRow& row : kFloatRows) {
        CFloat element(0x4489);
        Put(element, row.m_Value);
        EXPECT_TRUE(SameOctets(Written(element), Element("4489", Hex(row.m_Payload)))) << row.m_Reason;
        EXPECT_EQ(element.Size(false), 4U) << row.m_Reason;
        EXPECT_EQ(element.Size(true), 7U) << row.m_Reason;
    }
}

// ---- what is absent takes no octets

template <class Element>
void ExpectAbsent(const Element& element) {
    MemoryStream stream;
    EXPECT_EQ(element.Size(false), 0U);
    EXPECT_EQ(element.Size(true), 0U);
    EXPECT_EQ(element.Write(&stream), 0);
    EXPECT_TRUE(stream.m_WriteSizes.empty());
}

template <class Scalar>
class AnyScalar : public testing::Test {};
using Scalars = testing::Types<CUInt, CInt, CFloat>;
TYPED_TEST_SUITE(AnyScalar, Scalars, ClassNames);

TYPED_TEST(AnyScalar, IsAbsentUnlessSet) {
    TypeParam element(0x83);
    EXPECT_EQ(element.m_ID, 0x83U);
    EXPECT_EQ(element.m_Value, 0);
    EXPECT_FALSE(element.m_IsSet);
    ExpectAbsent(element);
    element.m_Value = 1;
    ExpectAbsent(element);
    element.m_IsSet = true;
    EXPECT_EQ(Written(element).size(), element.Size(true));
    EXPECT_GT(element.Size(true), 2U);
    element.m_IsSet = false;
    ExpectAbsent(element);
}

template <class Run>
class AnyRun : public testing::Test {};
using Runs = testing::Types<CBinary, CANSI, CUTF8>;
TYPED_TEST_SUITE(AnyRun, Runs, ClassNames);

TYPED_TEST(AnyRun, IsAbsentWhenEmpty) { ExpectAbsent(TypeParam(0x86)); }

// ---- octets and strings

TEST(CBinary, IsItsOctets) {
    for (const std::size_t size : {1U, 126U, 127U, 16382U, 16383U}) {
        CBinary element(0x63A2);
        element.m_Data = Repeated(size, 0xAB);
        MemoryStream stream;
        EXPECT_EQ(element.Write(&stream), 0);
        EXPECT_TRUE(SameOctets(stream.m_Octets, Element("63A2", Repeated(size, 0xAB)))) << size;
        EXPECT_EQ(stream.m_WriteSizes.back(), size) << "in one write";
        EXPECT_EQ(element.Size(false), size);
    }
}

TEST(CBinary, TakesATextWithItsTerminator) {
    CBinary element(0x86);
    EXPECT_EQ(&element.Set("A_AC3"), &element);
    EXPECT_TRUE(SameOctets(Written(element), Element("86", Hex("41 5F 41 43 33 00"))));
    EXPECT_EQ(element.ToString(), "A_AC3");
    element.Set("V_VP8");
    EXPECT_TRUE(SameOctets(element.m_Data, Hex("56 5F 56 50 38 00"))) << "replaced";
    element.Set("");
    EXPECT_TRUE(SameOctets(Written(element), Hex("86 81 00"))) << "the terminator alone is no emptiness";
    EXPECT_EQ(element.ToString(), "");
    element.Set(std::string("a\0b", 3));
    EXPECT_TRUE(SameOctets(element.m_Data, Hex("61 00 62 00")));
}

TEST(CBinary, ReadsAsTheTextUpToAZero) {
    CBinary element(0x86);
    EXPECT_EQ(element.ToString(), "");
    element.m_Data = Hex("61 62");
    EXPECT_EQ(element.ToString(), "ab") << "also without one";
    element.m_Data = Hex("61 00 62 00");
    EXPECT_EQ(element.ToString(), "a");
    element.m_Data = Hex("00 61");
    EXPECT_EQ(element.ToString(), "");
    EXPECT_TRUE(SameOctets(element.m_Data, Hex("00 61"))) << "reading changes nothing";
}

TEST(CANSI, IsItsOctetsAsTheyAre) {
    CANSI element(0x4282);
    EXPECT_EQ(&element.Set("webm"), &element);
    EXPECT_TRUE(SameOctets(Written(element), Hex("4282 84 77 65 62 6D")));
    element.Set("\xE9\x80");
    EXPECT_TRUE(SameOctets(Written(element), Hex("4282 82 E9 80"))) << "replaced, and not checked to be ASCII";
    element.Set(std::string(127, 'a'));
    EXPECT_TRUE(SameOctets(Written(element), Join({Hex("4282 407F"), Repeated(127, 'a')})));
    element.Set("");
    ExpectAbsent(element);
}

struct Utf8Row {
    const char* m_Reason;
    std::wstring m_Text;
    Octets m_Payload;
};

const Utf8Row kUtf8Rows[] = {
    {"one octet", L"a", Hex("61")},
    {"one to four octets", L"a\u00E9\u20AC\U0001F600", Hex("61 C3A9 E282AC F09F9880")},
    {"what is no character is replaced", L"\x110000", Hex("EFBFBD")},
    {"octets count, not characters", std::wstring(64, L'\u00E9'),
     [] {
         Octets octets;
         for (int i = 0; i < 64; ++i) octets = Join({octets, Hex("C3A9")});
         return octets;
     }()},
    {"cut", std::wstring(3000, L'a'), Repeated(2047, 'a')},
    {"empty only in UTF-8: an empty element", std::wstring(1, L'\0'), {}},
};

TEST(CUTF8, Rows) {
    for (const Utf8Row& row : kUtf8Rows) {
        CUTF8 element(0x7BA9);
        EXPECT_EQ(&element.Set(row.m_Text), &element);
        EXPECT_TRUE(SameOctets(Written(element), Element("7BA9", row.m_Payload))) << row.m_Reason;
        EXPECT_EQ(element.Size(false), row.m_Payload.size()) << row.m_Reason;
        EXPECT_EQ(element.Size(true), Element("7BA9", row.m_Payload).size()) << row.m_Reason;
        element.Set(L"b");
        EXPECT_TRUE(SameOctets(Written(element), Hex("7BA9 81 62"))) << "replaced";
        element.Set(L"");
        ExpectAbsent(element);
    }
}

// ---- what a value reports

template <class Element>
class AnyValue : public testing::Test {};
using Values = testing::Types<CUInt, CInt, CFloat, CBinary, CANSI, CUTF8>;
TYPED_TEST_SUITE(AnyValue, Values, ClassNames);

void Fill(CUInt& value) { Put(value, 1000); }
void Fill(CInt& value) { Put(value, -1000); }
void Fill(CFloat& value) { Put(value, 1.0F); }
void Fill(CBinary& value) { value.m_Data = Hex("01 02"); }
void Fill(CANSI& value) { value.Set("ab"); }
void Fill(CUTF8& value) { value.Set(L"ab"); }

TYPED_TEST(AnyValue, ReportsItsPayloadsWrite) {
    TypeParam element(0x83);
    Fill(element);
    MemoryStream positive;
    positive.m_Status = 7;
    EXPECT_EQ(element.Write(&positive), 7);
    const std::size_t payload = positive.m_WriteSizes.size() - 1;
    EXPECT_EQ(positive.m_WriteSizes[payload], element.Size(false)) << "in one write";
    // Whichever write the failures begin with, the payload's is among them.
    for (std::size_t first = 0; first <= payload; ++first) {
        MemoryStream failing;
        failing.m_FailFrom = first;
        EXPECT_EQ(element.Write(&failing), -1) << first;
    }
    MemoryStream headerFails;
    headerFails.m_FailFrom = 0;
    headerFails.m_FailTo = payload - 1;
    EXPECT_EQ(element.Write(&headerFails), 0) << "the header's failure is not asked for";
    EXPECT_EQ(headerFails.m_Octets.size(), element.Size(false));
}

TEST(CID, ReportsItsWrite) {
    MemoryStream stream;
    stream.m_Status = 7;
    EXPECT_EQ(CID(0xAE).Write(&stream), 7);
    EXPECT_EQ(CLength(300).Write(&stream), 7);
    EXPECT_EQ(CID(0xAE).HeaderWrite(&stream), 0);
}

TEST(Values, EmptyValuesAreNotWritten) {
    MemoryStream stream;
    stream.m_Status = 7;
    EXPECT_EQ(CLength(std::uint64_t{1} << 56).Write(&stream), 0);
    EXPECT_EQ(CID(0).Write(&stream), 0);
    EXPECT_TRUE(stream.m_WriteSizes.empty());
}

} // namespace
