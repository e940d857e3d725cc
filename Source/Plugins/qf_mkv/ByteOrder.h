// SPDX-License-Identifier: MIT
// Conversions between octets and integers, the plug-in's only shifts, and the arithmetic that wraps by design.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <vector>

using Bytes = std::vector<unsigned char>;

// Octets that somebody else owns.
struct ByteView {
    const unsigned char* m_pData = nullptr;
    std::size_t m_Size = 0;
};

// Octets handed over by a host: a null pointer or a size below 1 means none.
inline ByteView HostBytes(const unsigned char* data, std::int32_t size) {
    return data != nullptr && size > 0 ? ByteView{data, static_cast<std::size_t>(size)} : ByteView{};
}

// 2 to the power of `exponent`, 0 to 63.
constexpr std::uint64_t PowerOfTwo(unsigned exponent) { return std::uint64_t{1} << exponent; }

// Octets up to and including the most significant one that is not zero; 0 for 0.
constexpr unsigned SignificantOctets(std::uint64_t value) {
    for (unsigned count = 0; count < 8; ++count) {
        if (value < PowerOfTwo(8 * count)) return count;
    }
    return 8;
}

// Stores the `width` low-order octets of value, 0 to 8, the most significant first.
inline void StoreBigEndian(unsigned char* target, std::uint64_t value, unsigned width) {
    for (; width > 0; value >>= 8) target[--width] = static_cast<unsigned char>(value & 0xFF);
}

inline void AppendBigEndian(Bytes& target, std::uint64_t value, unsigned width) {
    target.resize(target.size() + width);
    StoreBigEndian(target.data() + target.size() - width, value, width);
}

inline void AppendLittleEndian(Bytes& target, std::uint64_t value, unsigned width) {
    for (unsigned i = 0; i < width; ++i, value >>= 8) target.push_back(static_cast<unsigned char>(value & 0xFF));
}

inline void Append(Bytes& target, ByteView source) {
    target.insert(target.end(), source.m_pData, source.m_pData + source.m_Size);
}

// Signed arithmetic as the processor does it: overflow wraps, computed without sign so that it is defined.
template <class Int>
constexpr Int WrappingAdd(Int a, Int b) {
    using Unsigned = std::make_unsigned_t<Int>;
    return static_cast<Int>(static_cast<Unsigned>(a) + static_cast<Unsigned>(b));
}

template <class Int>
constexpr Int WrappingSubtract(Int a, Int b) {
    using Unsigned = std::make_unsigned_t<Int>;
    return static_cast<Int>(static_cast<Unsigned>(a) - static_cast<Unsigned>(b));
}

template <class Int>
constexpr Int WrappingMultiply(Int a, Int b) {
    using Unsigned = std::make_unsigned_t<Int>;
    return static_cast<Int>(static_cast<Unsigned>(a) * static_cast<Unsigned>(b));
}

// a / b and a % b for any b but 0. The most negative a by -1, on which the processor traps, gives a and 0.
template <class Int>
constexpr Int WrappingDivide(Int a, Int b) {
    return b == -1 ? WrappingSubtract(Int{0}, a) : static_cast<Int>(a / b);
}

template <class Int>
constexpr Int WrappingRemainder(Int a, Int b) {
    return b == -1 ? Int{0} : static_cast<Int>(a % b);
}
