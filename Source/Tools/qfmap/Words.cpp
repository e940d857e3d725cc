// SPDX-License-Identifier: MIT
#include "Words.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

std::size_t Length(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Shortened(const std::string& text, std::size_t most) {
    if (Length(text) <= most) return text;
    std::string part;
    std::size_t n = 0;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80 && ++n == most) break;
        part += c;
    }
    return part + "…";
}

std::string Number(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    std::string number = text;
    if (number.find('.') != std::string::npos) {
        number.erase(number.find_last_not_of('0') + 1);
        if (number.back() == '.') number.pop_back();
    }
    return number == "-0" ? "0" : number;
}

std::string Grouped(std::uint64_t value) {
    std::string text = std::to_string(value);
    for (std::size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
    return text;
}

Unit UnitFor(std::uint64_t octets) {
    if (octets >= 1000000000) return {1e9, "GB"};
    if (octets >= 1000000) return {1e6, "MB"};
    if (octets >= 10000) return {1e3, "kB"};
    return {1, "bytes"};
}

std::string OctetsText(std::uint64_t octets) {
    const Unit unit = UnitFor(octets);
    if (unit.m_Octets == 1) return Grouped(octets) + (octets == 1 ? " byte" : " bytes");
    const double value = static_cast<double>(octets) / unit.m_Octets;
    return Number(value, value < 100 ? 1 : 0) + " " + unit.m_Name;
}

std::string Many(std::uint64_t count, const std::string& what) {
    return Grouped(count) + " " + what + (count == 1 ? "" : "s");
}

std::string TimeText(double seconds, double step) {
    const std::string sign = seconds < 0 ? "−" : "";
    const double size = std::fabs(seconds);
    if (!(size < 1e12)) return sign + Number(size, 0) + " s";
    const int decimals = step >= 1 ? 0 : step >= 0.1 ? 1 : 2;
    const double rounded = std::round(size * std::pow(10, decimals)) / std::pow(10, decimals);
    const auto minutes = static_cast<long long>(rounded / 60);
    char text[64];
    if (minutes >= 60) {
        std::snprintf(text, sizeof text, "%lld:%02lld", minutes / 60, minutes % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld", minutes);
    }
    char rest[32];
    std::snprintf(rest, sizeof rest, ":%0*.*f", decimals == 0 ? 2 : decimals + 3, decimals,
                  rounded - static_cast<double>(minutes) * 60);
    return sign + text + rest;
}

std::string SpanText(double seconds) {
    if (seconds < 60) return Number(seconds, seconds < 10 ? 2 : 1) + " s";
    return TimeText(seconds, 1) + (seconds < 3600 ? " min" : " h");
}

std::string ShareText(std::uint64_t part, std::uint64_t whole) {
    const double percent = whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
    if (part > 0 && percent < 0.01) return "< 0.01 %";
    return Number(percent, percent < 1 ? 2 : 1) + " %";
}
