// SPDX-License-Identifier: MIT
#include "Surroundings.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

std::string Clean(const std::string& text) {
    std::string clean;
    for (std::size_t i = 0; i < text.size();) {
        const auto octet = [&](std::size_t at) { return static_cast<unsigned char>(at < text.size() ? text[at] : 0); };
        const unsigned char first = octet(i);
        const std::size_t size = first < 0x80                    ? 1
                                 : first >= 0xC2 && first < 0xE0 ? 2
                                 : first >= 0xE0 && first < 0xF0 ? 3
                                 : first >= 0xF0 && first < 0xF5 ? 4
                                                                 : 0;
        bool isGood = size > 0 && first >= 0x20 && first != 0x7F;
        for (std::size_t k = 1; isGood && k < size; ++k) isGood = (octet(i + k) & 0xC0) == 0x80;
        // RFC 3629: nothing longer than needed, no surrogates, nothing above 10FFFF; and XML leaves out FFFE and FFFF.
        // The control characters of two octets lie below C2 A0.
        if (isGood && size == 2) isGood = first != 0xC2 || octet(i + 1) >= 0xA0;
        if (isGood && size == 3) {
            isGood = (first != 0xE0 || octet(i + 1) >= 0xA0) && (first != 0xED || octet(i + 1) < 0xA0) &&
                     (first != 0xEF || octet(i + 1) != 0xBF || octet(i + 2) < 0xBE);
        }
        if (isGood && size == 4) {
            isGood = (first != 0xF0 || octet(i + 1) >= 0x90) && (first != 0xF4 || octet(i + 1) < 0x90);
        }
        clean += isGood ? text.substr(i, size) : "\uFFFD";
        i += isGood ? size : 1;
    }
    return clean;
}

void OpenStandardStreams() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR); // takes the lowest number that is free
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor >= 0) close(descriptor);
}

void NeedRegularFile(const std::string& path) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (fs::is_regular_file(status)) return;
    throw std::runtime_error("cannot read '" + path + "': " + (error ? error.message() : "it is no regular file"));
}

bool IsSameFile(const std::string& one, const std::string& other) {
    std::error_code error;
    if (fs::equivalent(one, other, error)) return true;
    const fs::path first = fs::weakly_canonical(fs::absolute(one, error), error);
    return !error && first == fs::weakly_canonical(fs::absolute(other, error), error) && !error;
}
