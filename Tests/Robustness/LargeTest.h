// SPDX-License-Identifier: MIT
// The fixture of tests of large files: a host that writes the same octets over and over into a virtual file.
#pragma once

#include <gtest/gtest.h>

#include "FakeEnvironment.h"
#include "HostSession.h"
#include "Plugin.h"
#include "SegmentScan.h"
#include "VirtualFile.h"

class LargeTest : public ::testing::Test {
protected:
    LargeTest() {
        FakeEnvironment::SetRand({});
        m_Plugin.SetMuxParam(nullptr);
    }

    void Create(const EncodeParam& job) {
        m_pHandle = m_Plugin.CreateMediaFile(m_File.Path().wstring().c_str(), &job);
        ASSERT_NE(m_pHandle, nullptr);
        ASSERT_TRUE(m_File.WasOpened());
    }

    void Video(Octets& octets, std::int64_t milliseconds, std::uint32_t flags = kKey) {
        MEDIA_FRAME frame{};
        frame.timestamp = milliseconds * kMillisecond;
        frame.duration = kMillisecond;
        frame.frameFlags = flags;
        frame.videoData = octets.data();
        frame.videoSize = static_cast<std::int32_t>(octets.size());
        ASSERT_EQ(m_Plugin.WriteVideoPacket(m_pHandle, &frame), frame.videoSize);
    }

    void Audio(Octets& octets, std::int64_t milliseconds, std::int32_t duration) {
        MEDIA_FRAME frame{};
        frame.timestamp = milliseconds * kMillisecond;
        frame.duration = duration;
        frame.audioData = octets.data();
        frame.audioSize = static_cast<std::int32_t>(octets.size());
        ASSERT_EQ(m_Plugin.WriteAudioPacket(m_pHandle, &frame, nullptr), frame.audioSize);
    }

    void Close() { m_Plugin.CloseMediaFile(m_pHandle, nullptr, nullptr); }

    Plugin m_Plugin{QF_PLUGIN};
    VirtualFile m_File;
    void* m_pHandle = nullptr;
};
