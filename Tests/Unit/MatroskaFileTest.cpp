// SPDX-License-Identifier: MIT
// Rules of every element: the size promised is the size written, nothing but writing is asked of the stream.
#include "MatroskaFile.h"

#include <gtest/gtest.h>

#include "ClassNames.h"
#include "ElementRows.h"
#include "VirtualSlot.h"

using namespace MatroskaWriter;

namespace {

// Fills an element and all its children, lists with two of each.
struct Filler {
    void operator()(CID& id) const { id.m_ID = 0x1549A966; }
    void operator()(CLength& length) const { length.m_Length = 300; }
    void operator()(CUInt& value) const { Put(value, 0x123456789AU); }
    void operator()(CInt& value) const { Put(value, -33000); }
    void operator()(CFloat& value) const { Put(value, 25.0F); }
    void operator()(CBinary& value) const { value.m_Data = Repeated(200, 0xAB); }
    void operator()(CANSI& value) const { value.Set("matroska"); }
    void operator()(CUTF8& value) const { value.Set(L"a\u00E9\u20AC\U0001F600"); }
    void operator()(Void& value) const { value.m_Size = 1000; }
    void operator()(SimpleBlock& block) const {
        block.m_TrackNumber.m_Length = 1;
        block.m_Frames.emplace_back(0).m_Data = Repeated(300, 0xCD);
    }
    void operator()(CBlock& block) const {
        block.m_TrackNumber.m_Length = 127;
        for (const std::size_t size : {0U, 254U, 255U, 20000U}) {
            block.m_Frames.emplace_back(0).m_Data = Repeated(size, 0xCD);
        }
    }
    void operator()(TrackEntry& entry) const {
        entry.m_MediaKind = 1;
        TrackEntry::Children(entry, *this);
    }
    template <class Child>
    void operator()(Child& child) const {
        if constexpr (std::is_base_of_v<CID, Child>) {
            Child::Children(child, *this);
        } else { // a list
            for (int i = 0; i < 2; ++i) (*this)(child.emplace_back(0xA0));
        }
    }
};

// Not inlined, for a compiler's sake: there are many elements, and sanitizers add to each.
template <class Element>
[[gnu::noinline]] Element Empty() {
    return Element(0xA0);
}
template <>
CLength Empty() {
    return CLength(0);
}
template <>
Void Empty() {
    return Void(0, 0xEC);
}

template <class Element>
[[gnu::noinline]] Element Filled() {
    Element element = Empty<Element>();
    Filler()(element);
    return element;
}

template <class Element>
constexpr bool kIsCompound = std::is_base_of_v<Compound<Element>, Element>;
template <class Element>
constexpr bool kIsScalar =
    std::is_same_v<Element, CUInt> || std::is_same_v<Element, CInt> || std::is_same_v<Element, CFloat>;
// Bare octets without identifier and length.
template <class Element>
constexpr bool kIsBare = std::is_same_v<Element, CID> || std::is_same_v<Element, CLength>;

template <class Element>
class AnyElement : public testing::Test {};

// Segment is not among them, by design: it counts contents that its muxer writes.
using Elements = testing::Types<CID, CLength, CUInt, CInt, CFloat, CBinary, CANSI, CUTF8, EBML, Info, SeekID, SeekHead,
                                Seek, Void, Tags, Video, Audio, TrackEntry, Track, CBlock, SimpleBlock, BlockGroup,
                                Cluster, CueTrackPosition, CuePoint, Cue>;
TYPED_TEST_SUITE(AnyElement, Elements, ClassNames);

void ExpectPromisedSize(const CID& element, bool isBare) {
    MemoryStream stream;
    EXPECT_EQ(element.Write(&stream), 0);
    EXPECT_EQ(stream.m_Octets.size(), element.Size(true));
    EXPECT_TRUE(stream.m_OnlyWritten);
    const std::uint64_t payload = element.Size(false);
    if (isBare || element.Size(true) == 0) {
        EXPECT_EQ(element.Size(true), payload);
    } else {
        EXPECT_EQ(element.Size(true), payload + element.HeaderSize(payload));
    }
}

TYPED_TEST(AnyElement, WritesTheSizeItPromises) {
    ExpectPromisedSize(Empty<TypeParam>(), kIsBare<TypeParam>);
    const TypeParam filled = Filled<TypeParam>();
    ExpectPromisedSize(filled, kIsBare<TypeParam>);
    EXPECT_GE(filled.Size(true), 2U) << "there is something to compare";
}

void ExpectSame(const CID& copy, const CID& element) { EXPECT_TRUE(SameOctets(Written(copy), Written(element))); }

TYPED_TEST(AnyElement, IsTheSameWhenCopied) {
    const TypeParam element = Filled<TypeParam>();
    const TypeParam copy = element;
    ExpectSame(copy, element);
    TypeParam assigned = Empty<TypeParam>();
    assigned = element;
    ExpectSame(assigned, element);
}

std::int32_t WriteToAFailingStream(const CID& element) {
    MemoryStream stream;
    stream.m_FailFrom = 0;
    return element.Write(&stream);
}

// A value passes the failure of its last write up, a compound element none at all.
TYPED_TEST(AnyElement, ReportsAFailureOnlyIfItIsAValue) {
    const std::int32_t status = WriteToAFailingStream(Filled<TypeParam>());
    if (std::is_base_of_v<CRun, TypeParam> || kIsScalar<TypeParam> || kIsBare<TypeParam>) {
        EXPECT_EQ(status, -1);
    } else if (kIsCompound<TypeParam>) {
        EXPECT_EQ(status, 0);
    }
}

TEST(CID, SlotsStandInTheirOrder) {
    EXPECT_EQ(VirtualSlot(&CID::Size), 0U);
    EXPECT_EQ(VirtualSlot(static_cast<std::int32_t (CID::*)(IStream*) const>(&CID::Write)), 1U);
}

// ---- compound elements, by one of the test's own

// Writes one octet and reports what it is told to.
class Child final : public CID {
public:
    Child(unsigned char octet, std::int32_t status) : CID(0), m_Octet(octet), m_Status(status) {}
    std::uint64_t Size(bool) const override { return 1; }
    std::int32_t Write(IStream* stream) const override {
        stream->Write(&m_Octet, 1, nullptr);
        return m_Status;
    }

private:
    unsigned char m_Octet;
    std::int32_t m_Status;
};

class Parent final : public Compound<Parent> {
public:
    using Compound::Compound;
    std::list<Child> m_First;
    std::list<Child> m_Second;

    template <class Self, class Visit>
    static void Children(Self& self, Visit visit) {
        VisitEach(visit, self.m_First, self.m_Second);
    }
};

TEST(Compound, ListsEndAtAChildThatFailsAndAreCountedWhole) {
    Parent parent(0xA0);
    parent.m_First = {{0x01, 0}, {0x02, 1}, {0x03, -1}, {0x04, 0}};
    parent.m_Second = {{0x05, 0}, {0x06, -5}, {0x07, 0}};
    EXPECT_EQ(parent.Size(false), 7U);
    EXPECT_EQ(parent.Size(true), 9U);
    MemoryStream stream;
    EXPECT_EQ(parent.Write(&stream), 0);
    EXPECT_TRUE(SameOctets(stream.m_Octets, Hex("A0 87 01 02 03 05 06")));
}

TEST(Compound, SizesFollowTheContents) {
    Seek seek(0x114D9B74);
    EXPECT_EQ(seek.Size(true), 5U);
    SeekHead& entry = seek.m_Seeks.emplace_back(0x4DBB);
    EXPECT_EQ(seek.Size(true), 5U + 2 + 1 + 3) << "an entry whose SeekID is empty";
    Put(entry.m_SeekPosition, 0x100);
    EXPECT_EQ(seek.Size(true), 5U + 2 + 1 + 3 + 5);
    entry.m_SeekPosition.m_IsSet = false;
    EXPECT_EQ(seek.Size(true), 5U + 2 + 1 + 3);
}

} // namespace
