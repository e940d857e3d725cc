// SPDX-License-Identifier: MIT
// A stream that collects written octets and fails on request.
#pragma once

#include <cstddef>
#include <limits>

#include "FileEx.h"
#include "Octets.h"

class MemoryStream final : public IStream {
public:
    static constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();

    // Elements only ever write.
    std::int32_t Read(void*, unsigned long, unsigned long*) override {
        m_OnlyWritten = false;
        return -1;
    }
    std::int32_t Seek(std::int64_t, unsigned long, std::int64_t*) override {
        m_OnlyWritten = false;
        return -1;
    }
    std::int32_t Write(const void* buffer, unsigned long count, unsigned long* written) override {
        const std::size_t index = m_WriteSizes.size();
        m_WriteSizes.push_back(count);
        if (written != nullptr) m_OnlyWritten = false;
        if (index >= m_FailFrom && index <= m_FailTo) return -1;
        Append(m_Octets, {static_cast<const unsigned char*>(buffer), count});
        return m_Status;
    }

    // The writes, counted from 0, that fail and leave no octets behind.
    std::size_t m_FailFrom = kNever;
    std::size_t m_FailTo = kNever;
    std::int32_t m_Status = 0; // what a write that does not fail returns

    Octets m_Octets;
    std::vector<unsigned long> m_WriteSizes; // of all writes asked for
    bool m_OnlyWritten = true;               // no reading, no seeking, no counts asked for
};
