// SPDX-License-Identifier: MIT
// The three header packets of Vorbis.
#pragma once

#include <cstdint>
#include <vector>

namespace QfHost {

// The packets in set-up data, either laced (a 2, two sizes, the packets) or each behind its size in two octets. Empty
// when there are not three.
std::vector<std::vector<std::uint8_t>> SplitVorbisHeaders(const std::vector<std::uint8_t>& setup);

// Laces three packets for Matroska (RFC 9559, Xiph lacing). Empty when there are none.
std::vector<std::uint8_t> LaceVorbisHeaders(const std::vector<std::vector<std::uint8_t>>& headers);

// Whether the packet is the header of that number, from 0 on.
bool IsVorbisHeader(const std::uint8_t* data, std::size_t size, std::size_t number);

} // namespace QfHost
