// SPDX-License-Identifier: MIT
// Checks that a file is complete.
#pragma once

#include <cstdint>

namespace QfHost {

// Whether the file behind the descriptor is whole: an EBML header and a Segment of known size, which is the rest of the
// file, and whose elements follow each other up to its end (RFC 8794, RFC 9559). least: the octets of its frames.
bool IsWholeFile(int descriptor, std::uint64_t least);

} // namespace QfHost
