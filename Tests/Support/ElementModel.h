// SPDX-License-Identifier: MIT
// A second implementation of what elements write: each element is a string of octets inside a string of octets. The
// order of children is the elements' own; everything else is implemented anew.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "MatroskaFile.h"
#include "Octets.h"
#include "TextModel.h"

// The rule of widths, step by step.
inline Octets ModelIntPayload(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    unsigned width = 1;
    if (value != 0) {
        const std::uint64_t magnitude = value < 0 ? ~bits + 1 : bits;
        unsigned n = 0;
        for (unsigned octet = 0; octet < 8; ++octet) {
            if (((magnitude >> (8 * octet)) & 0xFF) != 0) n = octet + 1;
        }
        width = n;
        if (value < 0 && ((bits >> (n + 6)) & 1) == 0) width = n + 1;
        if (width > 8) width = 8;
    }
    Octets payload;
    for (unsigned octet = width; octet-- > 0;)
        payload.push_back(static_cast<unsigned char>((bits >> (8 * octet)) & 0xFF));
    return payload;
}

inline Octets ModelUnsigned(std::uint64_t value) {
    Octets payload;
    for (int shift = 56; shift >= 0; shift -= 8) {
        const auto octet = static_cast<unsigned char>((value >> shift) & 0xFF);
        if (octet != 0 || !payload.empty() || shift == 0) payload.push_back(octet);
    }
    return payload;
}

// A number that carries its own width: as many octets as it takes for its bits not to be all ones.
inline Octets ModelVariableSize(std::uint64_t value) {
    unsigned width = 1;
    while (value >= (std::uint64_t{1} << (7 * width)) - 1) ++width;
    return ModelUnsigned(value | std::uint64_t{1} << (7 * width));
}

// A visitor of elements that collects what they write, and on the way every value: its identifier and its payload.
class ElementModel {
public:
    using Leaves = std::vector<std::pair<std::uint32_t, Octets>>;

    explicit ElementModel(Octets& octets, Leaves& leaves) : m_Octets(octets), m_Leaves(leaves) {}

    void operator()(const MatroskaWriter::CUInt& value) const {
        if (value.m_IsSet) Add(value, ModelUnsigned(value.m_Value));
    }
    void operator()(const MatroskaWriter::CInt& value) const {
        if (value.m_IsSet) Add(value, ModelIntPayload(value.m_Value));
    }
    void operator()(const MatroskaWriter::CFloat& value) const {
        if (!value.m_IsSet) return;
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value.m_Value, sizeof bits);
        Octets payload;
        for (int shift = 24; shift >= 0; shift -= 8)
            payload.push_back(static_cast<unsigned char>((bits >> shift) & 0xFF));
        Add(value, payload);
    }
    void operator()(const MatroskaWriter::CBinary& value) const {
        if (!value.m_Data.empty()) Add(value, value.m_Data);
    }
    void operator()(const MatroskaWriter::CANSI& value) const {
        if (!value.m_Value.empty()) Add(value, {value.m_Value.begin(), value.m_Value.end()});
    }
    void operator()(const MatroskaWriter::CUTF8& value) const {
        if (!value.m_Value.empty()) Add(value, ModelUtf8Text(value.m_Value));
    }
    void operator()(const MatroskaWriter::SeekID& value) const { Add(value, ModelUnsigned(value.m_SeekedID.m_ID)); }
    void operator()(const MatroskaWriter::CBlock& block) const {
        Octets payload = BlockStart(block, block.m_Frames.size() > 1 ? 0x02 : 0x00);
        if (block.m_Frames.size() > 1) {
            payload.push_back(static_cast<unsigned char>(block.m_Frames.size() % 256));
            std::size_t left = block.m_Frames.size() - 1; // the last one's size is what remains
            for (const MatroskaWriter::CBinary& frame : block.m_Frames) {
                if (left-- == 0) break;
                std::size_t size = frame.m_Data.size();
                for (; size >= 255; size -= 255) payload.push_back(255);
                payload.push_back(static_cast<unsigned char>(size));
            }
        }
        for (const MatroskaWriter::CBinary& frame : block.m_Frames) payload = payload + frame.m_Data;
        Add(block, payload);
    }
    void operator()(const MatroskaWriter::SimpleBlock& block) const {
        Octets payload = BlockStart(block, block.m_Keyframe != 0 ? 0x80 : 0x00);
        for (const MatroskaWriter::CBinary& frame : block.m_Frames) payload = payload + frame.m_Data;
        Add(block, payload);
    }
    template <class Child>
    void operator()(const Child& child) const {
        if constexpr (std::is_base_of_v<MatroskaWriter::CID, Child>) {
            Octets payload;
            Child::Children(child, ElementModel(payload, m_Leaves));
            m_Octets = m_Octets + Element(child.m_ID, payload);
        } else { // a list
            for (const auto& element : child) (*this)(element);
        }
    }

private:
    static Octets BlockStart(const MatroskaWriter::BlockBase& block, unsigned char flags) {
        const auto time = static_cast<std::uint64_t>(block.m_Timecode);
        return ModelVariableSize(block.m_TrackNumber.m_Length) +
               Octets{static_cast<unsigned char>((time >> 8) & 0xFF), static_cast<unsigned char>(time & 0xFF), flags};
    }
    void Add(const MatroskaWriter::CID& value, const Octets& payload) const {
        m_Octets = m_Octets + Element(value.m_ID, payload);
        m_Leaves.emplace_back(value.m_ID, payload);
    }

    Octets& m_Octets;
    Leaves& m_Leaves;
};
