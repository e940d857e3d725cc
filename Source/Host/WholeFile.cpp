// SPDX-License-Identifier: MIT
#include "WholeFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>

namespace QfHost {

namespace {

constexpr std::uint32_t kEbml = 0x1A45DFA3;
constexpr std::uint32_t kSegment = 0x18538067;
constexpr std::uint32_t kSegmentChildren[] = {0x114D9B74, 0xEC, 0x1549A966, 0x1654AE6B, 0x1F43B675, 0x1C53BB6B};

struct Element {
    std::uint32_t m_ID = 0;
    std::uint64_t m_Data = 0; // position
    std::uint64_t m_End = 0;
};

// False when there is no element at that position, or it reaches beyond end or has no size.
bool ReadElement(int descriptor, std::uint64_t position, std::uint64_t end, Element& element) {
    unsigned char head[12] = {};
    const ssize_t count = pread(descriptor, head, sizeof head, static_cast<off_t>(position));
    if (count < 2 || head[0] < 0x10) return false;
    const auto idSize = static_cast<std::size_t>(__builtin_clz(head[0]) - 23);
    std::uint32_t id = 0;
    for (std::size_t i = 0; i < idSize; ++i) id = id << 8 | head[i];
    const unsigned first = head[idSize];
    if (first == 0) return false;
    const auto sizeSize = static_cast<std::size_t>(__builtin_clz(first) - 23);
    if (idSize + sizeSize > static_cast<std::size_t>(count)) return false;
    const unsigned mask = 0xFFU >> sizeSize;
    std::uint64_t size = first & mask;
    bool isUnknown = size == mask;
    for (std::size_t i = 1; i < sizeSize; ++i) {
        isUnknown = isUnknown && head[idSize + i] == 0xFF;
        size = size << 8 | head[idSize + i];
    }
    element = {id, position + idSize + sizeSize, position + idSize + sizeSize + size};
    return !isUnknown && element.m_Data <= end && size <= end - element.m_Data;
}

bool IsSegmentChild(std::uint32_t id) {
    for (const std::uint32_t child : kSegmentChildren) {
        if (child == id) return true;
    }
    return false;
}

} // namespace

bool IsWholeFile(int descriptor, std::uint64_t least) {
    struct stat status {};
    if (fstat(descriptor, &status) != 0) return false;
    const auto end = static_cast<std::uint64_t>(status.st_size);
    Element element;
    if (end < least || !ReadElement(descriptor, 0, end, element) || element.m_ID != kEbml) return false;
    if (!ReadElement(descriptor, element.m_End, end, element) || element.m_ID != kSegment || element.m_End != end) {
        return false;
    }
    for (std::uint64_t position = element.m_Data; position < end; position = element.m_End) {
        if (!ReadElement(descriptor, position, end, element) || !IsSegmentChild(element.m_ID)) return false;
    }
    return true;
}

} // namespace QfHost
