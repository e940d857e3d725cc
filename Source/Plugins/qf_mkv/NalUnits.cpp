// SPDX-License-Identifier: MIT
#include "NalUnits.h"

#include <cstring>

unsigned char* FindStartCode(unsigned char* data, int length) {
    if (data == nullptr || length < 4) return nullptr;
    unsigned char* const end = data + length;
    // The last octet of a start code is the rare one: find it, then check the octets before it.
    for (unsigned char* last = data + 3; last < end; ++last) {
        last = static_cast<unsigned char*>(std::memchr(last, 0x01, static_cast<std::size_t>(end - last)));
        if (last == nullptr) return nullptr;
        if (last[-1] == 0 && last[-2] == 0 && last[-3] == 0) return last - 3;
    }
    return nullptr;
}
