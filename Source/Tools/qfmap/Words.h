// SPDX-License-Identifier: MIT
// Words and numbers as people read them: text in UTF-8, octets, times, shares.
#pragma once

#include <cstdint>
#include <string>

std::size_t Length(const std::string& text); // in characters
// With an ellipsis as the last of so many characters when there are more.
std::string Shortened(const std::string& text, std::size_t most);

// Without zeros that say nothing: 2.50 is "2.5".
std::string Number(double value, int decimals);
std::string Grouped(std::uint64_t value);                       // "1,234,567"
std::string Many(std::uint64_t count, const std::string& what); // "1 cue", "2 cues"
std::string ShareText(std::uint64_t part, std::uint64_t whole); // "12.5 %"

// In what so many octets are counted.
struct Unit {
    double m_Octets;
    const char* m_Name;
};
Unit UnitFor(std::uint64_t octets);
std::string OctetsText(std::uint64_t octets);

// A point in time, as precisely as `step` asks for; both in s.
std::string TimeText(double seconds, double step);
// A length of time.
std::string SpanText(double seconds);
