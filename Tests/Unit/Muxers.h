// SPDX-License-Identifier: MIT
// Both muxers under the same calls and the same checks.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "MKVMuxer.h"
#include "WebmMuxer1.h"

using Muxers = testing::Types<MKVMuxer, WebmMuxer1>;

inline std::uint32_t Create(MKVMuxer& muxer, const std::wstring& path, const EncodeParam& param) {
    return muxer.CreateMediaFile(path.c_str(), &param, nullptr);
}
inline std::uint32_t Create(WebmMuxer1& muxer, const std::wstring& path, const EncodeParam& param) {
    return muxer.CreateMediaFile(path.c_str(), &param);
}

// The values that every file starts with. A file's job determines its tracks, and so m_VideoStarted and m_AudioStarted.
template <class Muxer>
void ExpectFirstValues(const Muxer& muxer) {
    EXPECT_EQ(muxer.m_HeaderWritten, 0U);
    EXPECT_EQ(muxer.m_TracksWritten, 0U);
    EXPECT_EQ(muxer.m_NoBlockYet, 1U);
    EXPECT_EQ(muxer.m_FirstBlockTime, 0);
    EXPECT_EQ(muxer.m_LastWriteTime, 0);
    EXPECT_EQ(muxer.m_CueTrack, 0);
    EXPECT_EQ(muxer.m_LastCueClusterPos, -1);
    EXPECT_EQ(muxer.m_LastCueTime, -1);
    EXPECT_EQ(muxer.m_CueBlockNumber, 0);
    EXPECT_EQ(muxer.m_SegmentPos, 0);
    EXPECT_EQ(muxer.m_SegmentDataPos, 0);
    EXPECT_EQ(muxer.m_InfoPos, 0);
    EXPECT_EQ(muxer.m_TracksPos, 0);
    EXPECT_EQ(muxer.m_ReservedSize, 0);
}
