// SPDX-License-Identifier: MIT
#include "VorbisHeaders.h"

#include <array>
#include <cstring>

namespace QfHost {

using Octets = std::vector<std::uint8_t>;

namespace {

constexpr std::size_t kHeaders = 3;

// Where each packet begins and ends. False when the sizes do not fit.
bool FindPackets(const Octets& setup, std::array<std::size_t, kHeaders>& sizes,
                 std::array<std::size_t, kHeaders>& places) {
    std::size_t position = 0;
    if (!setup.empty() && setup[0] == kHeaders - 1) {
        position = 1;
        for (std::size_t i = 0; i < kHeaders - 1; ++i) {
            std::uint8_t octet = 255;
            while (octet == 255) {
                if (position == setup.size()) return false;
                octet = setup[position++];
                sizes[i] += octet;
            }
        }
        places[0] = position;
        places[1] = places[0] + sizes[0];
        places[2] = places[1] + sizes[1];
        if (places[2] > setup.size()) return false;
        sizes[2] = setup.size() - places[2];
        return true;
    }
    for (std::size_t i = 0; i < kHeaders; ++i) {
        if (setup.size() - position < 2) return false;
        sizes[i] = setup[position] * 256U + setup[position + 1];
        places[i] = position + 2;
        if (setup.size() - places[i] < sizes[i]) return false;
        position = places[i] + sizes[i];
    }
    return true;
}

} // namespace

std::vector<Octets> SplitVorbisHeaders(const Octets& setup) {
    std::array<std::size_t, kHeaders> sizes{};
    std::array<std::size_t, kHeaders> places{};
    if (!FindPackets(setup, sizes, places)) return {};
    std::vector<Octets> headers;
    for (std::size_t i = 0; i < kHeaders; ++i) {
        const std::uint8_t* const data = setup.data() + places[i];
        if (!IsVorbisHeader(data, sizes[i], i)) return {};
        headers.emplace_back(data, data + sizes[i]);
    }
    return headers;
}

Octets LaceVorbisHeaders(const std::vector<Octets>& headers) {
    if (headers.empty()) return {};
    Octets laced{kHeaders - 1};
    for (std::size_t i = 0; i + 1 < headers.size(); ++i) {
        laced.insert(laced.end(), headers[i].size() / 255, 255);
        laced.push_back(static_cast<std::uint8_t>(headers[i].size() % 255));
    }
    for (const Octets& header : headers) laced.insert(laced.end(), header.begin(), header.end());
    return laced;
}

bool IsVorbisHeader(const std::uint8_t* data, std::size_t size, std::size_t number) {
    return size > 7 && data[0] == number * 2 + 1 && std::memcmp(data + 1, "vorbis", 6) == 0;
}

} // namespace QfHost
