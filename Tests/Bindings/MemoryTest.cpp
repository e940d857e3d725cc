// SPDX-License-Identifier: MIT
// Every allocation of a session fails once: the call returns a code, and the same call succeeds afterwards as if
// nothing had happened.
#include <functional>

#include "LibraryTest.h"
#include "MallocMeter.h"
#include "PinnedEnvironment.h"

namespace {

const Octets kRecord = Hex("01 64001F FF E1 0006 67 64001F AC D9 01 0003 68 EB E3");
const Octets kPicture = Hex("00000005 65 88 84 00 11");
const Octets kSound = Hex("FFF1 4C 80 01 7F FC 21 1B 80 21"); // with an ADTS header

// The calls of a session, one after the other. A call that returns QF_ERROR_MEMORY is made again.
class Session {
public:
    Session(const std::filesystem::path& path, long failing) : m_Path(path), m_Failing(failing) {}

    void Run() {
        std::filesystem::remove(m_Path);
        PinnedEnvironment::PinTime(1000000000);
        PinnedEnvironment::PinRand(std::vector<int>(100, 7)); // a failed try draws numbers, too
        qf_plugin* plugin = nullptr;
        qf_job* job = nullptr;
        qf_file* file = nullptr;
        Call([&] { return qf_plugin_open(QF_PLUGIN, &plugin); });
        Call([&] { return qf_job_new(&job); });
        Call([&] { return qf_job_set_video(job, "h264", 320, 180, 25); });
        Call([&] { return qf_job_set_audio(job, "aac", 48000, 2, 16); });
        Call([&] { return qf_job_set_setup(job, QF_VIDEO, kRecord.data(), kRecord.size()); });
        for (const int track : {QF_VIDEO, QF_AUDIO}) Call([&] { return qf_job_set_time_base(job, track, 1, 1000); });
        Call([&] { return qf_file_open(plugin, m_Path.c_str(), job, &file); });
        for (int i = 0; i < 40 && file != nullptr; ++i) {
            qf_packet packet = PacketOf(QF_VIDEO, kPicture, i * 40, i * 40, 40, i % 10 == 0);
            Call([&] { return qf_file_write(file, &packet); });
            packet = PacketOf(QF_AUDIO, kSound, i * 40, i * 40, 40);
            Call([&] { return qf_file_write(file, &packet); });
        }
        Call([&] { return qf_file_end_track(file, QF_AUDIO); });
        Call([&] { return qf_file_end_track(file, QF_VIDEO); });
        // The one call that cannot be made again.
        MallocMeter::FailAfter(m_Failing > m_Seen ? m_Failing - m_Seen : 0);
        m_Closed = qf_file_close(file);
        m_Seen += MallocMeter::Allocations();
        MallocMeter::FailAfter(0);
        qf_job_free(job);
        qf_plugin_close(plugin);
    }

    const std::filesystem::path m_Path;
    const long m_Failing; // the number of the allocation that fails; 0 for none
    long m_Seen = 0;
    int m_Errors = 0;
    int m_Closed = QF_OK;

private:
    void Call(const std::function<int()>& call) {
        MallocMeter::FailAfter(m_Failing > m_Seen ? m_Failing - m_Seen : 0);
        const int error = call();
        m_Seen += MallocMeter::Allocations();
        MallocMeter::FailAfter(0);
        if (error == QF_OK) return;
        ++m_Errors;
        ASSERT_EQ(error, QF_ERROR_MEMORY) << "allocation " << m_Failing << ": " << qf_error_text();
        ASSERT_EQ(call(), QF_OK) << "allocation " << m_Failing << ": " << qf_error_text();
    }
};

TEST_F(LibraryTest, TakesTheFailureOfAnyAllocation) {
    Session whole(Path("whole.mkv"), 0);
    whole.Run();
    whole.m_Seen = 0;
    whole.Run(); // nothing is new to the process now
    ASSERT_EQ(whole.m_Closed, QF_OK) << qf_error_text();
    const Octets expected = ReadFile(Path("whole.mkv"));
    ASSERT_GT(whole.m_Seen, 400);
    int errors = 0;
    for (long failing = 1; failing <= whole.m_Seen; ++failing) {
        Session session(Path(), failing);
        session.Run();
        if (HasFatalFailure()) return;
        errors += session.m_Errors;
        const Octets octets = ReadFile(Path());
        if (session.m_Closed == QF_OK) {
            ASSERT_TRUE(SameOctets(octets, expected)) << "allocation " << failing;
        }
    }
    EXPECT_GT(errors, 200);
}

} // namespace
