// SPDX-License-Identifier: MIT
// The three header packets of Vorbis.
#pragma once

#include <cstdint>
#include <vector>

namespace QfHost {

// The packets out of set-up data: laced (a 2, two sizes, the packets), or each behind its size in two octets. Empty
// when there are no three.
std::vector<std::vector<std::uint8_t>> SplitVorbisHeaders(const std::vector<std::uint8_t>& setup);

// As Matroska wants them (RFC 9559, Xiph lacing). Of three packets.
std::vector<std::uint8_t> LaceVorbisHeaders(const std::vector<std::vector<std::uint8_t>>& headers);

// Whether the packet is the header of that number, from 0 on.
bool IsVorbisHeader(const std::uint8_t* data, std::size_t size, std::size_t number);

} // namespace QfHost
