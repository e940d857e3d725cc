// SPDX-License-Identifier: MIT
#include <cstring>

#include "MKVInterface.h"

int GetMultiVersion(char* buffer) {
    if (buffer == nullptr) return 0;
    std::memcpy(buffer, QF_VERSION, sizeof QF_VERSION);
    return static_cast<int>(sizeof QF_VERSION - 1);
}
