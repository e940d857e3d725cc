// SPDX-License-Identifier: MIT
#include "SameOctets.h"

#include <algorithm>
#include <sstream>

namespace {

// Up to 24 octets, 8 of them in front of `middle`.
std::string Around(const Octets& octets, std::size_t middle) {
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

testing::AssertionResult SameOctets(const Octets& actual, const Octets& expected) {
    if (actual == expected) return testing::AssertionSuccess();
    const auto shorter = static_cast<std::ptrdiff_t>(std::min(actual.size(), expected.size()));
    const auto first = std::mismatch(actual.begin(), actual.begin() + shorter, expected.begin()).first;
    const auto offset = static_cast<std::size_t>(first - actual.begin());
    return testing::AssertionFailure() << "octets differ at " << offset << " (" << actual.size() << " octets, expected "
                                       << expected.size() << ")\n  actual   " << Around(actual, offset)
                                       << "\n  expected " << Around(expected, offset) << "\n";
}

std::size_t EqualUpTo(const Octets& actual, const Octets& expected, std::size_t from) {
    if (from >= actual.size()) return actual.size();
    const auto begin = actual.begin() + static_cast<std::ptrdiff_t>(from);
    const auto differs = std::mismatch(begin, actual.end(), expected.begin() + static_cast<std::ptrdiff_t>(from));
    return static_cast<std::size_t>(differs.first - actual.begin());
}
