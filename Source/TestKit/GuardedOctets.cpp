// SPDX-License-Identifier: MIT
#include "GuardedOctets.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <new>

GuardedOctets::GuardedOctets(const Octets& octets) : m_Size(static_cast<std::int32_t>(octets.size())) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t room = (octets.size() + page - 1) / page * page;
    m_MappingSize = room + 2 * page;
    // cppcheck-suppress invalidFunctionArg ; -1 is what an anonymous mapping takes
    m_pMapping = mmap(nullptr, m_MappingSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m_pMapping == MAP_FAILED) throw std::bad_alloc();
    unsigned char* const end = static_cast<unsigned char*>(m_pMapping) + page + room;
    if (room > 0 && mprotect(end - room, room, PROT_READ | PROT_WRITE) != 0) throw std::bad_alloc();
    if (octets.empty()) return;
    m_pData = end - octets.size();
    std::memcpy(m_pData, octets.data(), octets.size());
}

GuardedOctets::~GuardedOctets() { munmap(m_pMapping, m_MappingSize); }
