// SPDX-License-Identifier: MIT
// The unit in which a caller counts times.
#pragma once

#include <cstdint>

namespace QfHost {

// 3,653 years in units of 100 ns: sums and differences of such times stay within 64 bits.
constexpr std::int64_t kFurthestTime = std::int64_t{1} << 60;

class TimeBase {
public:
    // numerator / denominator seconds, both above 0.
    explicit TimeBase(std::int32_t numerator = 1, std::int32_t denominator = 10000000);
    // To units of 100 ns, to the nearest. Throws HostError beyond kFurthestTime.
    std::int64_t ToHostTime(std::int64_t time) const;

private:
    std::int64_t m_Whole; // units of 100 ns
    std::int64_t m_Rest;  // and the rest, in m_Denominator-ths of a unit
    std::int64_t m_Denominator;
};

} // namespace QfHost
