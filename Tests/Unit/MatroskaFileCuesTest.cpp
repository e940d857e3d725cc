// SPDX-License-Identifier: MIT
// The cue index.
#include <gtest/gtest.h>

#include "ElementRows.h"

using namespace MatroskaWriter;

namespace {

TEST(CueTrackPosition, Members) {
    ExpectMembers<CueTrackPosition>(CueTrackPosition(0xB7), "B7",
                                    {{"F7 81 01", &CueTrackPosition::m_CueTrack, 1},
                                     {"F1 82 1028", &CueTrackPosition::m_CueClusterPosition, 4136},
                                     {"5387 81 01", &CueTrackPosition::m_CueBlockNumber, 1},
                                     {"EA 81 00", &CueTrackPosition::m_CueCodecState, 0}});
}

TEST(CueTrackPosition, OfATrackInACluster) {
    CueTrackPosition position(0xB7);
    Put(position.m_CueTrack, 1);
    Put(position.m_CueClusterPosition, 4136);
    EXPECT_TRUE(SameOctets(Written(position), Hex("B7 87 F7 81 01 F1 82 1028")));
}

TEST(CuePoint, IsATimeAndItsPositions) {
    CuePoint point(0xBB);
    EXPECT_TRUE(SameOctets(Written(point), Hex("BB 80")));
    Put(point.m_CueTime, 0);
    EXPECT_TRUE(SameOctets(Written(point), Hex("BB 83 B3 81 00")));
    for (const unsigned track : {2U, 1U}) Put(point.m_CueTrackPositions.emplace_back(0xB7).m_CueTrack, track);
    EXPECT_TRUE(SameOctets(Written(point), Hex("BB 8D B3 81 00 B7 83 F7 81 02 B7 83 F7 81 01")));
    point.m_CueTime.m_IsSet = false;
    EXPECT_TRUE(SameOctets(Written(point), Hex("BB 8A B7 83 F7 81 02 B7 83 F7 81 01")));
}

TEST(Cue, IsItsPointsInTheirOrder) {
    Cue cues(0x1C53BB6B);
    EXPECT_TRUE(SameOctets(Written(cues), Hex("1C53BB6B 80")));
    for (const unsigned time : {1000U, 0U}) Put(cues.m_CuePoints.emplace_back(0xBB).m_CueTime, time);
    EXPECT_TRUE(SameOctets(Written(cues), Hex("1C53BB6B 8B BB 84 B3 82 03E8 BB 83 B3 81 00")));
}

} // namespace
