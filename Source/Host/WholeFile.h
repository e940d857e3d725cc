// SPDX-License-Identifier: MIT
// Whether all of a file arrived.
#pragma once

#include <cstdint>

namespace QfHost {

// Whether the file behind that descriptor is whole: an EBML header and a Segment that says its size, which is the rest
// of the file, and whose elements lie one behind the other up to its end (RFC 8794, RFC 9559). least: octets that its
// frames have.
bool IsWholeFile(int descriptor, std::uint64_t least);

} // namespace QfHost
