// SPDX-License-Identifier: MIT
// Files whose writer is killed: a child process muxes real media and sends itself SIGKILL after a number of the host's
// calls or at a step of closing. The walker then reads the file on disk. In one build ffmpeg plays it too; the others
// write the same octets.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>

#include "Command.h"
#include "ElementaryStreams.h"
#include "FakeEnvironment.h"
#include "HostSession.h"
#include "StdioHook.h"

namespace {

constexpr std::size_t kPoints = 50;
constexpr std::int64_t kNever = -1;

// One host's work: the calls that it makes between CreateMediaFile and CloseMediaFile.
struct Packet {
    std::int64_t m_Time; // 100 ns units, as m_Duration
    std::int32_t m_Duration;
    bool m_Video;
    bool m_Key;
    Octets m_Octets;
};

struct Work {
    explicit Work(const EncodeParam& job) : m_Job(job) {}

    EncodeParam m_Job;
    Octets m_PictureSet;
    Octets m_SequenceSet;
    std::vector<Packet> m_Packets;

    void Add(bool video, std::int32_t duration, bool key, Octets octets) {
        std::int64_t& time = video ? m_VideoTime : m_AudioTime;
        m_Packets.push_back({time, duration, video, key, std::move(octets)});
        time += duration;
    }
    // As a host hands two streams over: in the order of their times.
    void Sort() {
        std::stable_sort(m_Packets.begin(), m_Packets.end(),
                         [](const Packet& left, const Packet& right) { return left.m_Time < right.m_Time; });
    }

private:
    std::int64_t m_VideoTime = 0;
    std::int64_t m_AudioTime = 0;
};

Octets Stream(const char* name) { return ReadFile(std::string(QF_STREAMS "/") + name); }

constexpr std::int32_t kPicture = 40 * kMillisecond;  // at 25 pictures a second
constexpr std::int32_t kAc3Frame = 32 * kMillisecond; // 1,536 samples at 48 kHz

EncodeParam WithSize(EncodeParam job) {
    job.videoParam.width = 160;
    job.videoParam.height = 90;
    job.audioParam.sampleRate = 48000;
    return job;
}

Work PictureAndSound() {
    Work work(WithSize(MakeJob(MakeFourCC("MKV "), MakeFourCC("H264"), MakeFourCC("AC3 "))));
    const AvcStream picture(Stream("picture.h264"));
    work.m_PictureSet = picture.m_PictureSet;
    work.m_SequenceSet = picture.m_SequenceSet;
    for (const AvcStream::AccessUnit& unit : picture.m_AccessUnits) {
        work.Add(true, kPicture, unit.m_Key, unit.m_Octets);
    }
    for (const Octets& frame : Ac3Frames(Stream("sound.ac3"), 768)) work.Add(false, kAc3Frame, true, frame);
    work.Sort();
    return work;
}

Work Webm() {
    Work work(WithSize(MakeVideoJob(MakeFourCC("WEBM"), MakeFourCC("VP8 "))));
    for (const IvfStream::Frame& frame : IvfStream(Stream("picture.ivf")).m_Frames) {
        work.Add(true, kPicture, frame.m_Key, frame.m_Octets);
    }
    return work;
}

// So few octets that many clusters lie in the file's buffer.
Work NarrowSound() {
    Work work(WithSize(MakeAudioJob(MakeFourCC("MKA "), MakeFourCC("AC3 "))));
    for (const Octets& frame : Ac3Frames(Stream("narrow.ac3"), 128)) work.Add(false, kAc3Frame, true, frame);
    return work;
}

// Where the writer is stopped: after a number of frames, or, when all are in, at a seek of CloseMediaFile.
struct Stop {
    std::int64_t m_AfterFrames = kNever;
    std::int64_t m_AtSeek = kNever; // counted from 0
};

struct Outcome {
    bool m_Killed;
    Octets m_Disk;
};

[[noreturn]] void Die() {
    kill(getpid(), SIGKILL);
    abort();
}

// The whole life of a writing process.
void Write(const Work& work, const std::filesystem::path& path, const Stop& stop) {
    FakeEnvironment::SetRand({});
    const Plugin plugin(QF_PLUGIN);
    void* const handle = plugin.CreateMediaFile(path.wstring().c_str(), &work.m_Job);
    Octets pictureSet = work.m_PictureSet;
    Octets sequenceSet = work.m_SequenceSet;
    if (!pictureSet.empty()) {
        plugin.WritezXPSData(handle, pictureSet.data(), static_cast<int>(pictureSet.size()), sequenceSet.data(),
                             static_cast<int>(sequenceSet.size()));
    }
    std::int64_t frames = 0;
    for (const Packet& packet : work.m_Packets) {
        MEDIA_FRAME frame{};
        Octets octets = packet.m_Octets;
        frame.timestamp = packet.m_Time;
        frame.duration = packet.m_Duration;
        frame.frameFlags = packet.m_Key ? kKey : kDelta;
        (packet.m_Video ? frame.videoData : frame.audioData) = octets.data();
        (packet.m_Video ? frame.videoSize : frame.audioSize) = static_cast<std::int32_t>(octets.size());
        const int taken =
            packet.m_Video ? plugin.WriteVideoPacket(handle, &frame) : plugin.WriteAudioPacket(handle, &frame, nullptr);
        if (taken <= 0) abort();
        if (++frames == stop.m_AfterFrames) Die();
    }
    std::int64_t seeks = 0;
    StdioHook::SetSeek([&](std::FILE* stream, off_t offset, int origin) {
        if (seeks++ == stop.m_AtSeek) Die();
        return StdioHook::Seek(stream, offset, origin);
    });
    plugin.CloseMediaFile(handle, nullptr, nullptr);
}

Outcome WriteAndStop(const Work& work, const Stop& stop) {
    const TempDirectory directory;
    const std::filesystem::path path = directory / "file";
    const pid_t child = fork();
    if (child == 0) {
        Write(work, path, stop);
        _exit(0);
    }
    Outcome outcome{};
    int status = 0;
    waitpid(child, &status, 0);
    outcome.m_Killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    EXPECT_TRUE(outcome.m_Killed || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << "the writer failed: " << status;
    outcome.m_Disk = ReadFile(path);
    return outcome;
}

// ---- players

// Messages of ffmpeg about a file that ends early. A line with one of these is no complaint.
constexpr const char* kKnownMessages[] = {
    "File ended prematurely",             // at the cut itself
    "Estimating duration from bitrate, ", // sound alone: the Duration is not there yet
};

struct Decoded {
    std::map<int, std::vector<std::string>> m_Frames; // of each stream: time, size and hash
    std::string m_Complaints;
};

// All files in one start of ffmpeg, which loads 200 libraries. Their streams are counted on from file to file.
Decoded Decode(const std::vector<Octets>& files) {
    const TempDirectory directory;
    const std::filesystem::path messages = directory / "messages";
    std::string inputs;
    std::string maps;
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::filesystem::path file = directory / std::to_string(i);
        WriteFile(file, files[i]);
        inputs += " -threads 1 -i " + Quoted(file.string());
        maps += " -map " + std::to_string(i);
    }
    const CommandResult result =
        RunCommand("ffmpeg -nostdin -hide_banner -v warning" + inputs + maps +
                   " -threads 1 -fps_mode passthrough -f framehash -hash md5 - 2> " + Quoted(messages.string()));
    Decoded decoded;
    std::istringstream lines(result.m_Output);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line[0] == '#') continue;
        // stream, dts, pts, duration, size, hash: a last frame's duration may be guessed.
        std::istringstream fields(line);
        std::vector<std::string> field;
        for (std::string text; std::getline(fields, text, ',');) field.push_back(text);
        if (field.size() != 6) throw std::runtime_error("not a line of hashes: " + line);
        decoded.m_Frames[std::stoi(field[0])].push_back(field[2] + field[4] + field[5]);
    }
    const Octets said = ReadFile(messages);
    std::istringstream sentences(std::string(said.begin(), said.end()));
    for (std::string line; std::getline(sentences, line);) {
        const bool known = std::any_of(std::begin(kKnownMessages), std::end(kKnownMessages),
                                       [&](const char* message) { return line.find(message) != std::string::npos; });
        if (!known) decoded.m_Complaints += line + "\n";
    }
    if (result.m_ExitCode != 0) decoded.m_Complaints += "ffmpeg ended with " + std::to_string(result.m_ExitCode) + "\n";
    return decoded;
}

// ---- the finished file and its earlier states

class Finished {
public:
    explicit Finished(const Work& work) : m_Octets(WriteAndStop(work, {}).m_Disk), m_File(m_Octets) {
        EXPECT_EQ(Ebml::Describe(Ebml::Check(m_File)), "");
        for (const Ebml::Element* cluster : m_File.Children("Segment", "Cluster")) m_Ends.push_back(cluster->End());
        m_Blocks = m_File.Blocks();
        m_Decoded = Decode({m_Octets});
        EXPECT_EQ(m_Decoded.m_Complaints, "");
        m_Unclosed = m_Octets;
        // Closing writes over these: the Segment's size, the reserved room and the Duration.
        const Ebml::Element& segment = m_File.At("Segment");
        Put(segment.m_Offset + 4, Hex("01 FF FF FF FF FF FF FF"));
        Put(segment.PayloadOffset(), Hex("EC 50 00") + Zeros(4096));
        Put(m_File.At("Segment/Info/Duration").PayloadOffset(), Zeros(4));
    }

    void Put(std::size_t at, const Octets& octets) {
        std::copy(octets.begin(), octets.end(), m_Unclosed.begin() + static_cast<std::ptrdiff_t>(at));
    }

    std::size_t ClustersWithin(std::size_t octets) const {
        return static_cast<std::size_t>(
            std::count_if(m_Ends.begin(), m_Ends.end(), [&](std::size_t end) { return end <= octets; }));
    }

    Octets m_Octets;
    Ebml::File m_File;
    Octets m_Unclosed;               // the octets as they are before closing
    std::vector<std::size_t> m_Ends; // of the clusters
    std::vector<Ebml::Block> m_Blocks;
    Decoded m_Decoded;
};

// ffmpeg plays the same pictures and sound as from the finished file, at least up to the last whole cluster.
void ExpectPlay(const std::vector<Octets>& disks, const Finished& finished) {
    const Decoded decoded = Decode(disks);
    EXPECT_EQ(decoded.m_Complaints, "");
    const std::size_t tracks = finished.m_File.Children("Segment/Tracks", "TrackEntry").size();
    const std::uint64_t firstTrack = finished.m_File.Unsigned("Segment/Tracks/TrackEntry[0]/TrackNumber");
    for (std::size_t stream = 0; stream < disks.size() * tracks; ++stream) {
        const std::size_t track = stream % tracks;
        const std::size_t wholeClusters = finished.ClustersWithin(disks[stream / tracks].size());
        const auto whole = std::count_if(finished.m_Blocks.begin(), finished.m_Blocks.end(), [&](const Ebml::Block& b) {
            return b.m_Track == firstTrack + track && b.m_Cluster < wholeClusters;
        });
        const std::vector<std::string>& all = finished.m_Decoded.m_Frames.at(static_cast<int>(track));
        const auto found = decoded.m_Frames.find(static_cast<int>(stream));
        const std::vector<std::string> played =
            found != decoded.m_Frames.end() ? found->second : decltype(found->second){};
        EXPECT_GE(played.size(), static_cast<std::size_t>(whole)) << "stream " << stream;
        ASSERT_LE(played.size(), all.size());
        EXPECT_EQ(std::mismatch(played.begin(), played.end(), all.begin()).first - played.begin(),
                  static_cast<std::ptrdiff_t>(played.size()))
            << "stream " << stream << " plays something else";
    }
}

struct Case {
    const char* m_Name;
    Work (*m_Work)();
    // How far the last whole cluster may lie behind the last frame that the host handed over, in seconds: the second
    // that is being collected, those that are not flushed yet, and frames that wait for the other track.
    double m_MostLost;
    std::size_t m_PlayedEach; // ffmpeg takes its time: it plays one point of so many
};

void PrintTo(const Case& row, std::ostream* out) { *out << row.m_Name; }

class Unfinished : public testing::TestWithParam<Case> {
protected:
    const Work m_Work = GetParam().m_Work();
    const Finished m_Finished{m_Work};
};

TEST_P(Unfinished, KeepsEveryWholeClusterThatWasWritten) {
    const auto frames = static_cast<std::int64_t>(m_Work.m_Packets.size());
    ASSERT_GT(m_Finished.m_Ends.size(), 35U) << "40 seconds";
    double mostLost = 0;
    std::vector<Octets> played;
    for (std::size_t point = 1; point <= kPoints; ++point) {
        const std::int64_t after = frames * static_cast<std::int64_t>(point) / static_cast<std::int64_t>(kPoints);
        SCOPED_TRACE("killed after frame " + std::to_string(after) + " of " + std::to_string(frames));
        const Outcome outcome = WriteAndStop(m_Work, {after, kNever});
        ASSERT_TRUE(outcome.m_Killed);
        // Every octet equals the finished file's, except those that closing fills in.
        EXPECT_EQ(Ebml::CompareFiles(
                      Octets(m_Finished.m_Unclosed.begin(),
                             m_Finished.m_Unclosed.begin() + static_cast<std::ptrdiff_t>(outcome.m_Disk.size())),
                      outcome.m_Disk),
                  "");
        const Ebml::File file(outcome.m_Disk, Ebml::Ending::CutOff);
        EXPECT_EQ(Ebml::Describe(Ebml::CheckUnfinished(file)), "");
        const std::size_t whole = file.WholeClusters();
        EXPECT_EQ(whole, m_Finished.ClustersWithin(outcome.m_Disk.size()));

        const Packet& last = m_Work.m_Packets[static_cast<std::size_t>(after) - 1];
        const double given = static_cast<double>(last.m_Time) / kSecond;
        const double kept = static_cast<double>(whole);
        mostLost = std::max(mostLost, given - kept);
        std::printf("killed at %6.2f s: %7zu octets on disk, %2zu whole clusters\n", given, outcome.m_Disk.size(),
                    whole);
        if (whole > 0 && point % GetParam().m_PlayedEach == 0) played.push_back(outcome.m_Disk);
    }
    ExpectPlay(played, m_Finished);
    std::printf("at most %.2f s lost\n", mostLost);
    EXPECT_LT(mostLost, GetParam().m_MostLost);
}

TEST(UnfinishedStart, IsEmptyUntilBothKindsOfMediaCame) {
    const Work work = PictureAndSound();
    ASSERT_TRUE(work.m_Packets[0].m_Video);
    const Outcome outcome = WriteAndStop(work, {1, kNever});
    EXPECT_TRUE(outcome.m_Killed);
    EXPECT_TRUE(outcome.m_Disk.empty());
}

// Closing seeks back five times and writes out its buffer before each seek.
TEST_P(Unfinished, ClosingLosesNothingThatWasThere) {
    constexpr std::int64_t kSeeks = 5;
    const std::size_t clusters = m_Finished.m_Ends.size();
    std::vector<Octets> played;
    for (std::int64_t seek = 0; seek < kSeeks; ++seek) {
        SCOPED_TRACE("killed at seek " + std::to_string(seek));
        const Outcome outcome = WriteAndStop(m_Work, {kNever, seek});
        ASSERT_TRUE(outcome.m_Killed);
        const Ebml::File file(outcome.m_Disk, Ebml::Ending::CutOff);
        EXPECT_EQ(Ebml::Describe(Ebml::CheckUnfinished(file)), "");
        // Seek 0 goes back for the Duration, 1 to the end, 2 to the Duration, 3 to the reserved room, 4 to the
        // Segment's size.
        const bool complete = seek >= 2; // the clusters, the cues and the index are on disk
        const std::size_t whole = file.WholeClusters();
        EXPECT_EQ(whole, m_Finished.ClustersWithin(outcome.m_Disk.size()));
        EXPECT_GE(whole, complete ? clusters : clusters - 1);
        EXPECT_EQ(complete, outcome.m_Disk.size() == m_Finished.m_Octets.size());
        ASSERT_LE(outcome.m_Disk.size(), m_Finished.m_Octets.size());
        for (std::size_t i = 0; i < outcome.m_Disk.size(); ++i) {
            if (outcome.m_Disk[i] == m_Finished.m_Octets[i] || outcome.m_Disk[i] == m_Finished.m_Unclosed[i]) continue;
            FAIL() << "octet " << i << " is neither the one before closing nor the one after";
        }
        EXPECT_TRUE(file.At("Segment").m_UnknownSize) << "its size is written last";
        EXPECT_EQ(file.Float("Segment/Info/Duration") > 0, seek >= (m_Work.m_Job.disableAudio == 0 ? 1 : 3))
            << "the sum of the sound's durations comes first, what the last block says when the end is written";
        EXPECT_EQ(file.Has("Segment/SeekHead[0]") && file.At("Segment/SeekHead[0]").m_Offset < 100, seek >= 4);
        played.push_back(outcome.m_Disk);
    }
    ExpectPlay(played, m_Finished);
    const Outcome closed = WriteAndStop(m_Work, {kNever, kSeeks});
    EXPECT_FALSE(closed.m_Killed) << "closing seeks more than five times";
    EXPECT_EQ(Ebml::CompareFiles(m_Finished.m_Octets, closed.m_Disk), "");
}

INSTANTIATE_TEST_SUITE_P(All, Unfinished,
                         testing::Values(Case{"PictureAndSound", PictureAndSound, 5, 5}, Case{"Webm", Webm, 5, 5},
                                         Case{"NarrowSound", NarrowSound, 5, 5}),
                         [](const auto& row) { return std::string(row.param.m_Name); });

} // namespace
