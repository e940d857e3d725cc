// Octets written down by hand: the vocabulary in which tests say what a file must hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

using Octets = std::vector<unsigned char>;

// "1A 45 DF A3": two hexadecimal digits for each octet, blanks between them as one likes.
Octets Hex(const char* text);

// The characters as octets, without a terminator.
Octets Ascii(const std::string& text);

Octets Zeros(std::size_t count);

// One after another.
Octets Join(std::initializer_list<Octets> parts);
Octets operator+(Octets left, const Octets& right);

// One EBML element (RFC 8794): the identifier as it stands in a file, the shortest length, the payload.
Octets Element(std::uint32_t id, const Octets& payload);
