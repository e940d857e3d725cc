#include <cstdio>

#include "MKVInterface.h"

int GetMultiVersion(char* buffer) {
    if (buffer == nullptr) return 0;
    return std::snprintf(buffer, sizeof "5,0,0,14", "%d,%d,%d,%d", 5, 0, 0, 14);
}
