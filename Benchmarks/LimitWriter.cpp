// SPDX-License-Identifier: MIT
// The limit: the least work of any muxer that lets its host reuse the frame's buffer.
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include "Output.h"
#include "Writer.h"

namespace {

class LimitWriter : public Writer {
public:
    explicit LimitWriter(const std::string& path) : m_Output(path) {}

    void Write(const Frame& frame) override {
        void* const copy = std::malloc(frame.m_Size);
        if (copy == nullptr) throw std::bad_alloc();
        std::memcpy(copy, frame.m_pData, frame.m_Size);
        m_Output.Write(copy, frame.m_Size);
        std::free(copy);
    }

    std::uint64_t Close() override {
        m_Output.Flush();
        return m_Output.Written();
    }

private:
    BufferedOutput m_Output;
};

// The same and one pass over each picture to find its start codes.
class SearchLimitWriter final : public LimitWriter {
public:
    using LimitWriter::LimitWriter;

    void Write(const Frame& frame) override {
        if (frame.m_IsVideo) m_Found += CountStartCodes(frame);
        LimitWriter::Write(frame);
    }

    std::uint64_t Close() override {
        if (m_Found == 0) throw std::logic_error("frames in start-code form have start codes");
        return LimitWriter::Close();
    }

private:
    static unsigned CountStartCodes(const Frame& frame) {
        constexpr unsigned char kStartCode[] = {0, 0, 0, 1};
        const unsigned char* const end = frame.m_pData + frame.m_Size;
        unsigned count = 0;
        for (const unsigned char* at = frame.m_pData + 3; at < end; ++at) {
            at = static_cast<const unsigned char*>(std::memchr(at, 1, static_cast<std::size_t>(end - at)));
            if (at == nullptr) break;
            if (std::memcmp(at - 3, kStartCode, sizeof kStartCode) == 0) ++count;
        }
        return count;
    }

    std::uint64_t m_Found = 0;
};

} // namespace

std::unique_ptr<Writer> OpenLimit(const WorkloadKind&, const std::string& path) {
    return std::make_unique<LimitWriter>(path);
}

std::unique_ptr<Writer> OpenSearchLimit(const WorkloadKind&, const std::string& path) {
    return std::make_unique<SearchLimitWriter>(path);
}
