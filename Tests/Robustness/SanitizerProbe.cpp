// SPDX-License-Identifier: MIT
// Commits one fault, named on the command line, that the sanitizers of this build must catch: a build in which one of
// them is silently missing would pass every other test.
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

// Out of the optimiser's sight.
template <class Type>
Type Opaque(Type value) {
    volatile Type hidden = value;
    return hidden;
}

void Commit(const std::string& fault) {
    if (fault == "leak") {
        static_cast<void>(Opaque(std::malloc(16)));
        // A copy of the pointer left on the stack would keep the memory reachable.
        unsigned char rest[4096];
        std::memset(rest, 0, Opaque(sizeof rest));
        static_cast<void>(Opaque(rest[17]));
    } else if (fault == "heap") {
        auto* const octets = static_cast<unsigned char*>(std::malloc(16));
        octets[Opaque(16)] = 1;
        std::free(octets);
    } else if (fault == "signed") {
        static_cast<void>(Opaque(Opaque(INT_MAX) + 1));
    } else if (fault == "unsigned") {
        static_cast<void>(Opaque(Opaque(0U) - 1));
    } else if (fault == "conversion") {
        // Indirect, because the compilers' own warnings would catch a plain fault.
        unsigned char octet = static_cast<unsigned char>(Opaque(255));
        octet += static_cast<unsigned char>(Opaque(1));
        static_cast<void>(Opaque(octet));
    }
}

} // namespace

int main(int, char** arguments) {
    const std::string fault = arguments[1];
    Commit(fault);
    // A leak is found when the process ends, all else before this.
    if (fault != "leak") std::puts("nothing was caught");
    return 0;
}
