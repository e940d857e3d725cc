// SPDX-License-Identifier: MIT
// A file that is being written: takes packets in any order of tracks, and calls the plug-in in the order that it needs.
#pragma once

#include <cstdint>
#include <limits>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Job.h"
#include "Packetizer.h"
#include "PluginPool.h"
#include "TargetFile.h"
#include "WriteWatch.h"

namespace QfHost {

class FileWriter {
public:
    // Creates the file. Throws HostError.
    FileWriter(std::shared_ptr<PluginPool> pool, const char* path, const Job& job);
    // Closes an open file.
    ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Throw HostError, or std::bad_alloc when the packet was not taken.
    void Write(const qf_packet& packet);
    void EndTrack(int track);
    // Throws HostError when the file is not whole.
    void Close();
    void Discard() noexcept;
    std::uint64_t LeftOut() const;

private:
    // State for the times of the next packet, in units of 100 ns.
    struct Clock {
        bool m_HasTime = false;
        std::int64_t m_LastDecode = 0; // of the last packet, given or guessed
        std::int64_t m_LastTold = std::numeric_limits<std::int64_t>::min();
        std::int64_t m_NextTime = 0; // when a packet without times is due
        std::int64_t m_LastDuration = 0;
    };
    struct Track {
        TimeBase m_TimeBase;
        std::unique_ptr<Packetizer> m_pPacketizer;
        std::list<HeldFrame> m_Held;
        Clock m_Clock;
        bool m_HasEnded = false;
        bool m_IsInFile = false;   // the plug-in waits for its first frame
        bool m_HasStarted = false; // the plug-in has its first frame
    };

    static std::unique_ptr<Track> MakeTrack(const Job& job, const TrackJob& track);
    Track& TrackOf(int number);
    bool IsVideo(const Track& track) const { return &track == m_pVideo.get(); }
    std::list<HeldFrame> FramesOf(Track& track, const qf_packet& packet) const;
    void SetTimes(Track& track, const qf_packet& packet, std::list<HeldFrame>& frames) const;
    void Commit(Track& track, const std::list<HeldFrame>& frames);
    Track* NextTrack();
    bool MustWait(const Track& track) const;
    void HandOver();
    void Begin();
    void Hand(Track& track, HeldFrame& frame);
    void CloseHandle() noexcept;
    std::int64_t DurationOf(const Track& track, const HeldFrame& frame) const;

    mutable std::mutex m_Mutex;
    const std::shared_ptr<PluginPool> m_pPool;
    const Job m_Job;
    std::unique_ptr<Track> m_pVideo; // null: the file has none
    std::unique_ptr<Track> m_pAudio;
    PluginPool::Loan m_Plugin;
    const FileFormatInfo* m_pFormat;
    std::optional<TargetFile> m_Target;

    void* m_pHandle = nullptr; // the plug-in's, from the first frame on
    std::int64_t m_Shift = 0;  // of all times, 100 ns
    std::int64_t m_Zero = 0;   // the file's first block, ms
    std::int64_t m_Latest = 0; // the latest frame handed over, 100 ns
    std::uint64_t m_LeftOut = 0;
    WriteWatch m_Watch;
    bool m_HasFailed = false;
};

} // namespace QfHost
