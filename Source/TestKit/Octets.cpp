// SPDX-License-Identifier: MIT
#include "Octets.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

unsigned Value(char digit) {
    return std::isdigit(static_cast<unsigned char>(digit)) != 0
               ? static_cast<unsigned>(digit - '0')
               : static_cast<unsigned>(std::toupper(static_cast<unsigned char>(digit)) - 'A' + 10);
}

} // namespace

Octets Hex(const std::string& digits) {
    std::string packed;
    for (const char digit : digits) {
        if (digit == ' ') continue;
        if (std::isxdigit(static_cast<unsigned char>(digit)) == 0) throw std::invalid_argument("not hex: " + digits);
        packed += digit;
    }
    if (packed.size() % 2 != 0) throw std::invalid_argument("half an octet: " + digits);
    Octets octets;
    for (std::size_t i = 0; i < packed.size(); i += 2) {
        octets.push_back(static_cast<unsigned char>(Value(packed[i]) * 16 + Value(packed[i + 1])));
    }
    return octets;
}

Octets Ascii(const std::string& text) { return {text.begin(), text.end()}; }

Octets Repeated(std::size_t count, unsigned char octet) { return Octets(count, octet); }

Octets Zeros(std::size_t count) { return Repeated(count, 0); }

Octets Join(std::initializer_list<Octets> parts) {
    Octets joined;
    for (const Octets& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

Octets operator+(Octets left, const Octets& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

void FillWith(const Octets& octets, void* memory, std::size_t size) {
    auto* const begin = static_cast<unsigned char*>(memory);
    std::size_t done = std::min(octets.size(), size);
    if (done == 0) {
        std::memset(begin, 0, size);
    } else {
        std::memcpy(begin, octets.data(), done);
    }
    while (done > 0 && done < size) { // what is there once more
        const std::size_t more = std::min(done, size - done);
        std::memcpy(begin + done, begin, more);
        done += more;
    }
}

Octets LengthOctets(std::size_t length) {
    const auto low = [length](std::size_t divisor) { return static_cast<unsigned char>(length / divisor % 256); };
    if (length <= 126) return {static_cast<unsigned char>(0x80 + length)};
    if (length <= 16382) return {static_cast<unsigned char>(0x40 + length / 256), low(1)};
    if (length <= 2097150) return {static_cast<unsigned char>(0x20 + length / 65536), low(256), low(1)};
    throw std::invalid_argument("a longer length than a test needs");
}

Octets Element(const std::string& idDigits, const Octets& payload) {
    return Hex(idDigits) + LengthOctets(payload.size()) + payload;
}

Octets Element(std::uint32_t id, const Octets& payload) {
    char digits[16];
    std::snprintf(digits, sizeof digits,
                  id > 0xFFFFFF ? "%08X"
                  : id > 0xFFFF ? "%06X"
                  : id > 0xFF   ? "%04X"
                                : "%02X",
                  id);
    return Element(std::string(digits), payload);
}
