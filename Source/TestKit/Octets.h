// SPDX-License-Identifier: MIT
// Octets written down by hand, in which tests and qfcheck state what must be written. This code shares nothing with the
// plug-in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

using Octets = std::vector<unsigned char>;

// Parses two hexadecimal digits for each octet, with optional blanks between octets: "1A 45 DFA3".
// Throws std::invalid_argument for anything else.
Octets Hex(const std::string& digits);

// The characters of an ASCII text, without a terminator.
Octets Ascii(const std::string& text);

Octets Repeated(std::size_t count, unsigned char octet);
Octets Zeros(std::size_t count);

// One after another.
Octets Join(std::initializer_list<Octets> parts);
Octets operator+(Octets left, const Octets& right);

// Writes the octets over and over into `size` octets of memory, zeros if there are none.
void FillWith(const Octets& octets, void* memory, std::size_t size);

// A length field (RFC 8794), the shortest for up to 2,097,150 octets.
Octets LengthOctets(std::size_t length);
// An element: the identifier as it stands in a file, the length, the payload.
Octets Element(const std::string& idDigits, const Octets& payload);
Octets Element(std::uint32_t id, const Octets& payload);
