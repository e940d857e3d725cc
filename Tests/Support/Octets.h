// Octets as a test writes them down, and compares them.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "ByteOrder.h"

// Octets in hexadecimal, two digits each; blanks separate as the reader likes: Hex("1A45DFA3 80").
// Throws std::invalid_argument for anything else.
Bytes Hex(const std::string& digits);

// The characters of an ASCII text, without a terminator.
Bytes Ascii(const std::string& text);

Bytes Repeated(std::size_t count, unsigned char octet);
Bytes Join(std::initializer_list<Bytes> parts);

// A length field for up to 2,097,150 octets, written down independently of the plug-in.
Bytes LengthOctets(std::size_t length);
// An element: identifier, length, payload.
Bytes ElementOctets(const std::string& idDigits, const Bytes& payload);

// Fails with the first difference and its surroundings.
testing::AssertionResult SameOctets(const Bytes& actual, const Bytes& expected);
