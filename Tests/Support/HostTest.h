// SPDX-License-Identifier: MIT
// The fixture of every host test: a freshly loaded plug-in, known random numbers and a known time.
#pragma once

#include "FakeEnvironment.h"
#include "HostSession.h"
#include "Plugin.h"

#include <gtest/gtest.h>

#include <string>

// Paths of the first track and its set-up data.
inline const std::string kTrack = "Segment/Tracks/TrackEntry[0]/";
inline const std::string kPrivate = kTrack + "CodecPrivate";

class HostTest : public ::testing::Test {
protected:
    HostTest() {
        FakeEnvironment::SetRand({});
        FakeEnvironment::SetTime(1704067200); // 2024-01-01 00:00:00 UTC
        *m_Plugin.m_pIsWebm = 0;
        m_Plugin.SetMuxParam(nullptr);
    }

    Plugin m_Plugin{QF_PLUGIN};
};
