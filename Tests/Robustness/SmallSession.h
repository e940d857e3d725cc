// SPDX-License-Identifier: MIT
// A small host's work on one file, one call at a time, so that faults fall between any two of them and several files
// can be written side by side. Frames come in time order and in whole batches, so that closing has nothing left to
// drain.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>

#include "HostSession.h"
#include "Plugin.h"

struct SmallJob {
    const char* m_Name;
    FourCC m_Format;
    FourCC m_Video; // 0 for none
    FourCC m_Audio;

    friend std::ostream& operator<<(std::ostream& out, const SmallJob& job) { return out << job.m_Name; }
};

constexpr SmallJob kMatroskaJob = {"Matroska", MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AAC ")};
constexpr SmallJob kWebmJob = {"Webm", MakeFourCC("WEBM"), MakeFourCC("VP8 "), MakeFourCC("VBIS")};

class SmallSession {
public:
    // Frames: four a second of each kind. A multiple of 30 for whole batches in every job.
    SmallSession(const Plugin& plugin, const SmallJob& job, std::filesystem::path path, int frames = 30)
        : m_Plugin(plugin), m_Job(job), m_Path(std::move(path)), m_Frames(frames) {}
    ~SmallSession();
    SmallSession(const SmallSession&) = delete;
    SmallSession& operator=(const SmallSession&) = delete;

    // Creation; early set-up data, twice; video and audio in turn, late set-up data between them, twice; closing.
    int Calls() const { return 2 * m_Frames + 6; }
    // Makes call `number`, from 0 on. Returns what the plug-in returned, 1 where it returns nothing; for the creation
    // whether there is a handle. After a creation that failed all other calls are made with a null handle.
    int Call(int number) {
        Prepare(number);
        return Make();
    }
    // The same in two steps, of which only the second calls the plug-in, and allocates nothing itself.
    void Prepare(int number);
    int Make();
    // Whether the plug-in returns nothing from that call.
    bool ReturnsNothing(int number) const;
    // All of them.
    void Run();
    const std::filesystem::path& Path() const { return m_Path; }

private:
    enum class Kind { Create, SetUpVideo, SetUpAudio, Video, Audio, Close };

    Kind KindOf(int number) const;
    int FrameOf(int number) const;

    const Plugin& m_Plugin;
    const SmallJob m_Job;
    const std::filesystem::path m_Path;
    const int m_Frames;
    void* m_pHandle = nullptr;

    // The call that is prepared.
    Kind m_Kind = Kind::Create;
    EncodeParam m_Param{};
    std::wstring m_WidePath;
    MEDIA_FRAME m_Record{};
    Octets m_Octets;
    Octets m_SecondOctets;
};

// Another loaded library for each test, and a folder.
class RobustnessTest : public testing::Test {
protected:
    RobustnessTest();

    // What an undisturbed session writes.
    Octets Undisturbed(const SmallJob& job, int frames = 30);

    Plugin m_Plugin{QF_PLUGIN};
    TempDirectory m_Directory;
};

// Of this process.
std::size_t OpenDescriptors();
