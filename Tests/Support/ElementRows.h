// SPDX-License-Identifier: MIT
// Tables for the elements of a file: each row names a member that is set and the octets that it makes.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "MatroskaFile.h"
#include "MemoryStream.h"
#include "SameOctets.h"

// The octets that an element writes to a stream that takes everything.
inline Octets Written(const MatroskaWriter::CID& element) {
    MemoryStream stream;
    element.Write(&stream);
    return stream.m_Octets;
}

// How an owner fills a member of each class.
template <class Scalar, class Value>
void Put(Scalar& member, Value value) {
    member.m_Value = static_cast<decltype(member.m_Value)>(value);
    member.m_IsSet = true;
}
inline void Put(MatroskaWriter::CBinary& member, const char* digits) { member.m_Data = Hex(digits); }
inline void Put(MatroskaWriter::CANSI& member, const char* text) { member.Set(text); }
inline void Put(MatroskaWriter::CUTF8& member, const wchar_t* text) { member.Set(text); }

template <class Element>
struct MemberRow {
    template <class Member, class Value>
    MemberRow(const char* octets, Member Element::*member, Value value)
        : m_Octets(octets), m_Fill([member, value](Element& element) { Put(element.*member, value); }) {}

    const char* m_Octets;
    std::function<void(Element&)> m_Fill;
};

// Each row's member set alone, then all of them, which stand in the order of the rows whatever the order of setting.
// always: octets that the element writes behind its members even if none is set.
template <class Element>
void ExpectMembers(const Element& blank, const std::string& idDigits, const std::vector<MemberRow<Element>>& rows,
                   const Octets& always = {}) {
    EXPECT_TRUE(SameOctets(Written(blank), ::Element(idDigits, always))) << "nothing set";
    Octets all;
    for (const auto& row : rows) {
        Element element = blank;
        row.m_Fill(element);
        const Octets payload = Join({Hex(row.m_Octets), always});
        EXPECT_TRUE(SameOctets(Written(element), ::Element(idDigits, payload))) << row.m_Octets;
        EXPECT_EQ(element.Size(false), payload.size()) << row.m_Octets;
        all = Join({all, Hex(row.m_Octets)});
    }
    Element full = blank;
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) row->m_Fill(full);
    EXPECT_TRUE(SameOctets(Written(full), ::Element(idDigits, Join({all, always})))) << "all set";
    const Element copy = full;
    Element assigned = blank;
    assigned = full;
    EXPECT_TRUE(SameOctets(Written(copy), Written(full))) << "copied";
    EXPECT_TRUE(SameOctets(Written(assigned), Written(full))) << "assigned";
}
