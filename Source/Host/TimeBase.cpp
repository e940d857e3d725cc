// SPDX-License-Identifier: MIT
#include "TimeBase.h"

#include "HostError.h"

namespace QfHost {

namespace {

constexpr std::int64_t kUnitsPerSecond = 10000000;

} // namespace

TimeBase::TimeBase(std::int32_t numerator, std::int32_t denominator)
    : m_Whole(numerator * kUnitsPerSecond / denominator), m_Rest(numerator * kUnitsPerSecond % denominator),
      m_Denominator(denominator) {}

// time = large * denominator + rest, so that no product of two large numbers arises. rest is 0 or above.
std::int64_t TimeBase::ToHostTime(std::int64_t time) const {
    const bool isBelow = time % m_Denominator < 0;
    const std::int64_t large = time / m_Denominator - (isBelow ? 1 : 0);
    const std::int64_t rest = time % m_Denominator + (isBelow ? m_Denominator : 0);
    const std::int64_t small = (rest * m_Rest + m_Denominator / 2) / m_Denominator;
    std::int64_t whole = 0;
    std::int64_t part = 0;
    std::int64_t result = 0;
    if (__builtin_mul_overflow(time, m_Whole, &whole) || __builtin_mul_overflow(large, m_Rest, &part) ||
        __builtin_add_overflow(whole, part, &result) || __builtin_add_overflow(result, small, &result) ||
        result > kFurthestTime || result < -kFurthestTime) {
        throw HostError(QF_ERROR_TIME, "the time " + std::to_string(time) + " is too far away");
    }
    return result;
}

} // namespace QfHost
