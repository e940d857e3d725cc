#include "Octets.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <stdexcept>

namespace {

// Up to 24 octets, 8 of them in front of `middle`.
std::string Around(const Bytes& octets, std::size_t middle) {
    const std::size_t begin = middle > 8 ? middle - 8 : 0;
    const std::size_t end = std::min(octets.size(), begin + 24);
    std::ostringstream text;
    if (begin > 0) text << "... ";
    for (std::size_t i = begin; i < end; ++i) {
        constexpr char kDigits[] = "0123456789ABCDEF";
        text << (i == middle ? '>' : ' ') << kDigits[octets[i] / 16] << kDigits[octets[i] % 16];
    }
    if (end < octets.size()) text << " ...";
    return text.str();
}

} // namespace

Bytes Hex(const std::string& digits) {
    std::string packed;
    for (const char digit : digits) {
        if (digit == ' ') continue;
        if (std::isxdigit(static_cast<unsigned char>(digit)) == 0) throw std::invalid_argument("not hex: " + digits);
        packed += digit;
    }
    if (packed.size() % 2 != 0) throw std::invalid_argument("half an octet: " + digits);
    Bytes octets;
    for (std::size_t i = 0; i < packed.size(); i += 2) {
        octets.push_back(static_cast<unsigned char>(std::stoul(packed.substr(i, 2), nullptr, 16)));
    }
    return octets;
}

Bytes Ascii(const std::string& text) { return {text.begin(), text.end()}; }

Bytes Repeated(std::size_t count, unsigned char octet) { return Bytes(count, octet); }

Bytes Join(std::initializer_list<Bytes> parts) {
    Bytes joined;
    for (const Bytes& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
}

Bytes LengthOctets(std::size_t length) {
    const auto low = [length](std::size_t divisor) { return static_cast<unsigned char>(length / divisor % 256); };
    if (length <= 126) return {static_cast<unsigned char>(0x80 + length)};
    if (length <= 16382) return {static_cast<unsigned char>(0x40 + length / 256), low(1)};
    if (length <= 2097150) return {static_cast<unsigned char>(0x20 + length / 65536), low(256), low(1)};
    throw std::invalid_argument("a longer length than a test needs");
}

Bytes ElementOctets(const std::string& idDigits, const Bytes& payload) {
    return Join({Hex(idDigits), LengthOctets(payload.size()), payload});
}

testing::AssertionResult SameOctets(const Bytes& actual, const Bytes& expected) {
    if (actual == expected) return testing::AssertionSuccess();
    const auto shorter = static_cast<std::ptrdiff_t>(std::min(actual.size(), expected.size()));
    const auto first = std::mismatch(actual.begin(), actual.begin() + shorter, expected.begin()).first;
    const auto offset = static_cast<std::size_t>(first - actual.begin());
    return testing::AssertionFailure() << "octets differ at " << offset << " (" << actual.size() << " octets, expected "
                                       << expected.size() << ")\n  actual   " << Around(actual, offset)
                                       << "\n  expected " << Around(expected, offset) << "\n";
}
