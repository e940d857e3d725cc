#include "Octets.h"

#include <stdexcept>

namespace {

unsigned Digit(char c) {
    if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
    if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
    throw std::invalid_argument(std::string("not a hexadecimal digit: ") + c);
}

void AppendHighToLow(Octets& octets, std::uint64_t value, unsigned count) {
    while (count-- > 0) octets.push_back(static_cast<unsigned char>(value >> (8 * count)));
}

} // namespace

Octets Hex(const char* text) {
    Octets octets;
    for (; *text != '\0'; ++text) {
        if (*text == ' ') continue;
        const unsigned high = Digit(*text);
        octets.push_back(static_cast<unsigned char>(high * 16 + Digit(*++text)));
    }
    return octets;
}

Octets Ascii(const std::string& text) { return {text.begin(), text.end()}; }

Octets Zeros(std::size_t count) { return Octets(count, 0); }

Octets Join(std::initializer_list<Octets> parts) {
    Octets joined;
    for (const Octets& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

Octets operator+(Octets left, const Octets& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Octets Element(std::uint32_t id, const Octets& payload) {
    Octets octets;
    AppendHighToLow(octets, id, id > 0xFFFFFF ? 4 : id > 0xFFFF ? 3 : id > 0xFF ? 2 : 1);
    unsigned width = 1;
    // All ones of a width would mean an unknown size.
    while (payload.size() >= (std::uint64_t{1} << (7 * width)) - 1) ++width;
    AppendHighToLow(octets, payload.size() | (std::uint64_t{1} << (7 * width)), width);
    return octets + payload;
}
