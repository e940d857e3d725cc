// SPDX-License-Identifier: MIT
// The scanners of video and the splitter of NAL units against a model that takes each documented step.
#include <cstdint>

#include "CodecPrivate.h"
#include "FuzzTarget.h"
#include "VideoModels.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint64_t kept = input.Bits(4); // one bit for each type of NAL unit
    const int length = input.Number32();
    const Octets octets = input.Rest();
    const auto end = static_cast<int>(octets.size());
    const HostFrame frame(octets);
    unsigned char* const octet = frame.m_pData.get();

    // The whole frame, and a length that the input chooses.
    for (const int told : {end, length > end ? length % (end + 1) : length}) {
        const unsigned char* const found = FindStartCode(octet, told);
        Require((found != nullptr ? found - octet : -1) == ModelFindStartCode(octets, 0, told), "FindStartCode");
    }
    Require(FindStartCode(nullptr, length) == nullptr, "FindStartCode of nothing");

    const ByteView header = FindSequenceHeader({octet, octets.size()});
    Require(header.m_Size == 0 || (header.m_pData >= octet && header.m_pData + header.m_Size <= octet + end),
            "FindSequenceHeader: within the video");
    Require(Octets(header.m_pData, header.m_pData + header.m_Size) == ModelSequenceHeader(octets),
            "FindSequenceHeader");
    Require(frame.Content() == octets, "scanners only read");

    const Keep keep = [kept](unsigned type) { return (kept >> type & 1) != 0; };
    Require(SplitBy(keep, octets) == ModelSplit(keep, octets), "SplitNalUnits");
    const auto take = [](unsigned, const unsigned char*, int) { Require(false, "SplitNalUnits of nothing"); };
    Require(SplitNalUnits(nullptr, length, keep, take) == 0, "SplitNalUnits of no frame");
    Require(SplitNalUnits(octet, std::min(length, 0), keep, take) == 0, "SplitNalUnits of no octets");
    return 0;
}
