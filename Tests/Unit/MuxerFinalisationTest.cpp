// The last steps of a file, called out of turn: what is written back into its front.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "MKVMuxer.h"
#include "SameOctets.h"
#include "TempDirectory.h"

namespace {

// The octets at the start of the Segment's payload, of a file whose front has that much room.
Octets FrontWithRoom(std::int64_t room) {
    const TempDirectory directory;
    EncodeParam job{};
    job.disableVideo = job.disableAudio = 1;
    MKVMuxer muxer;
    EXPECT_EQ(muxer.CreateMediaFile((directory / "a").wstring().c_str(), &job, nullptr), 1U);
    muxer.WriteBeginInfo();
    const auto start = static_cast<std::size_t>(muxer.m_SegmentDataPos);
    muxer.m_ReservedSize = room;
    EXPECT_EQ(muxer.WriteEndInfo(), 1);
    muxer.CloseMediaFile();
    const Octets file = ReadFile(directory / "a");
    return Octets(file.begin() + static_cast<std::ptrdiff_t>(start),
                  file.begin() + static_cast<std::ptrdiff_t>(start) + 48);
}

// A seek head of 5 octets, of 20 with the entry for Info (at 4,099) and of 35 with that for Tracks too, and a filler
// over the rest of the room. Behind that lies what was there before: zeros.
TEST(MuxerFinalisation, TheSeekHeadKeepsWhatTheRoomHoldsAndAFillerTakesTheRest) {
    const char* const info = "4DBB 8C 53AB 84 1549A966 53AC 82 1003 ";
    const struct {
        std::int64_t m_Room;
        std::string m_Front;
    } rows[] = {
        {3, "114D9B74 80 00"},         // -2 are left: no filler
        {4, "114D9B74 80 EC 00"},      // -1: a filler without a length, deliberately
        {5, "114D9B74 80 EC 00"},      // 0, likewise
        {6, "114D9B74 80 EC 00"},      // 1, likewise
        {7, "114D9B74 80 EC 80 00"},   // 2: the smallest that is one
        {8, "114D9B74 80 EC 81 0000"}, // 3
        {21, "114D9B74 80 EC 8E"},     // an entry for Info would leave no room for a filler
        {22, std::string("114D9B74 8F ") + info + "EC 80 00"},
    };
    for (const auto& row : rows) {
        Octets expected = Hex(row.m_Front.c_str());
        Octets actual = FrontWithRoom(row.m_Room);
        actual.resize(expected.size());
        EXPECT_TRUE(SameOctets(actual, expected)) << row.m_Room;
    }
}

} // namespace
