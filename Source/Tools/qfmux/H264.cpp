#include "H264.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr unsigned kSequenceSet = 7;
constexpr unsigned kPictureSet = 8;

// Calls take(begin, end) for each NAL unit of data in start-code form (ISO/IEC 14496-10, Annex B).
template <class Take>
void ForEachUnit(const std::uint8_t* data, std::size_t size, Take take) {
    static constexpr std::uint8_t kStartCode[] = {0, 0, 1};
    const std::uint8_t* const end = data + size;
    const std::uint8_t* begin = std::search(data, end, kStartCode, kStartCode + 3);
    while (begin != end) {
        begin += 3;
        const std::uint8_t* const next = std::search(begin, end, kStartCode, kStartCode + 3);
        // Zeros in front of a start code belong to it or are padding: no unit ends in one.
        const std::uint8_t* last = next;
        while (last > begin && last[-1] == 0) --last;
        if (last > begin) take(begin, last);
        begin = next;
    }
}

void TakeSet(H264Setup& setup, const std::uint8_t* begin, const std::uint8_t* end) {
    const unsigned type = *begin % 32U;
    if (type == kSequenceSet && setup.m_SequenceSets++ == 0) setup.m_Sequence.assign(begin, end);
    if (type == kPictureSet && setup.m_PictureSets++ == 0) setup.m_Picture.assign(begin, end);
}

} // namespace

H264Setup ReadH264Setup(const std::vector<std::uint8_t>& setupData) {
    H264Setup setup;
    if (setupData.size() < 7 || setupData[0] != 1) {
        ForEachUnit(setupData.data(), setupData.size(),
                    [&](const std::uint8_t* begin, const std::uint8_t* end) { TakeSet(setup, begin, end); });
        return setup;
    }
    setup.m_StartCodes = false;
    setup.m_LengthSize = setupData[4] % 4U + 1;
    std::size_t position = 5;
    for (const unsigned mask : {32U, 256U}) { // 5 bits of count for sequence sets, 8 for picture sets
        if (position >= setupData.size()) break;
        for (unsigned count = setupData[position++] % mask; count > 0 && position + 2 <= setupData.size(); --count) {
            const std::size_t length = setupData[position] * 256U + setupData[position + 1];
            position += 2;
            if (length == 0 || length > setupData.size() - position) return setup;
            TakeSet(setup, &setupData[position], &setupData[position] + length);
            position += length;
        }
    }
    return setup;
}

std::vector<std::uint8_t> WithLongStartCodes(const std::uint8_t* data, std::size_t size) {
    std::vector<std::uint8_t> frame;
    frame.reserve(size + size / 8 + 16);
    ForEachUnit(data, size, [&](const std::uint8_t* begin, const std::uint8_t* end) {
        frame.insert(frame.end(), {0, 0, 0, 1});
        frame.insert(frame.end(), begin, end);
    });
    return frame;
}
