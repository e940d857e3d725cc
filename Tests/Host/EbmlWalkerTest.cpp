// SPDX-License-Identifier: MIT
// The walker itself: it must accept a whole file, and find and name each kind of fault.
#include "EbmlWalker.h"

#include <gtest/gtest.h>

#include <functional>

namespace {

using Ebml::Check;
using Ebml::CompareFiles;
using Ebml::Describe;
using Ebml::File;

Octets Position(std::size_t position) {
    return {static_cast<unsigned char>(position >> 8), static_cast<unsigned char>(position & 0xFF)};
}

Octets Seek(const char* id, std::size_t position) {
    return Element(0x4DBB, Element(0x53AB, Hex(id)) + Element(0x53AC, Position(position)));
}

// The parts of a small file: two clusters of one audio and one video track.
struct Parts {
    Octets m_Ebml = Element(0x1A45DFA3, Element(0x4282, Ascii("matroska")) + Hex("42 87 81 01 42 85 81 01"));
    Octets m_Info = Element(0x1549A966, Hex("2A D7 B1 83 0F 42 40 44 89 84 00 00 00 00 44 61 81 01 4D 80 81 61"));
    Octets m_Tracks = Element(0x1654AE6B, Element(0xAE, Hex("D7 81 01 73 C5 81 05 83 81 01 86 82 61 00 E0 80")) +
                                              Element(0xAE, Hex("D7 81 02 73 C5 81 06 83 81 02 86 82 61 00 E1 80")));
    std::vector<Octets> m_Clusters = {
        Element(0x1F43B675, Hex("E7 81 00 A0 87 A1 85 82 00 00 00 11 A0 87 A1 85 81 00 0A 00 12")),
        Element(0x1F43B675, Hex("E7 82 03 E8 A0 87 A1 85 81 00 01 00 13 A0 8A FB 81 FF A1 85 81 00 02 00 14")),
    };
    Octets m_Cues; // made by Build when empty

    Octets Build() const {
        const std::size_t tracks = 4099 + m_Info.size();
        std::vector<std::size_t> clusters;
        std::size_t at = tracks + m_Tracks.size();
        Octets body = m_Info + m_Tracks;
        Octets index;
        for (const Octets& cluster : m_Clusters) {
            clusters.push_back(at);
            index = index + Seek("1F 43 B6 75", at);
            at += cluster.size();
            body = body + cluster;
        }
        const Octets cues =
            !m_Cues.empty()
                ? m_Cues
                : Element(0x1C53BB6B, CuePoint("0A", clusters[0], "53 87 81 01") + CuePoint("03 E9", clusters[1], ""));
        const Octets head = Element(0x114D9B74, Seek("15 49 A9 66", 4099) + Seek("16 54 AE 6B", tracks) +
                                                    Seek("1C 53 BB 6B", at) + Seek("11 4D 9B 74", at + cues.size()));
        body = head + Element(0xEC, Zeros(4099 - head.size() - 3)) + body + cues + Element(0x114D9B74, index);
        return m_Ebml + Hex("18 53 80 67 01 00 00 00 00 00") + Position(body.size()) + body;
    }

    static Octets CuePoint(const char* time, std::size_t cluster, const char* number) {
        return Element(0xBB, Element(0xB3, Hex(time)) +
                                 Element(0xB7, Hex("F7 81 01") + Element(0xF1, Position(cluster)) + Hex(number)));
    }
};

TEST(EbmlWalker, AcceptsAWholeFileAndTakesItApart) {
    const File file(Parts().Build());
    EXPECT_EQ(Describe(Check(file)), "");
    EXPECT_EQ(file.Text("EBML/DocType"), "matroska");
    EXPECT_EQ(file.Text("Segment/Tracks/TrackEntry[1]/CodecID"), "a");
    EXPECT_EQ(file.Signed("Segment/Cluster[1]/BlockGroup[1]/ReferenceBlock"), -1);
    EXPECT_EQ(file.ClusterTimes(), (std::vector<std::uint64_t>{0, 1000}));
    ASSERT_EQ(file.Blocks().size(), 4U);
    EXPECT_EQ(file.Blocks()[3].Time(), 1002);
    EXPECT_EQ(file.Blocks()[3].m_Frame, Hex("14"));
    ASSERT_EQ(file.Cues().size(), 2U);
    EXPECT_EQ(file.Cues()[0].m_BlockNumber, 1U);
    EXPECT_FALSE(file.Cues()[1].m_BlockNumber.has_value());
    EXPECT_THROW(file.At("Segment/Cluster[2]"), std::out_of_range);
}

TEST(EbmlWalker, NamesTheElementOfAnOctet) {
    const File file(Parts().Build());
    EXPECT_EQ(file.PathAt(0), "EBML, identifier");
    EXPECT_EQ(file.PathAt(4), "EBML, length");
    EXPECT_EQ(file.PathAt(8), "EBML/DocType, payload octet 0");
    const std::size_t block = file.At("Segment/Cluster[1]/BlockGroup[0]/Block").m_Offset;
    EXPECT_EQ(file.PathAt(block), "Segment/Cluster[1]/BlockGroup[0]/Block, identifier");
    EXPECT_EQ(file.PathAt(block + 1), "Segment/Cluster[1]/BlockGroup[0]/Block, length");
    EXPECT_EQ(file.PathAt(block + 6), "Segment/Cluster[1]/BlockGroup[0]/Block, payload octet 4");
    EXPECT_EQ(file.PathAt(file.Data().size()), "past the end of the file");
}

TEST(EbmlWalker, ComparesFiles) {
    const Octets expected = Parts().Build();
    EXPECT_EQ(CompareFiles(expected, expected), "");
    Octets actual = expected;
    const std::size_t at = File(expected).At("Segment/Info/Duration").PayloadOffset() + 1;
    actual[at] = 0x99;
    const std::string difference = CompareFiles(expected, actual);
    EXPECT_NE(difference.find("octet " + std::to_string(at)), std::string::npos) << difference;
    EXPECT_NE(difference.find("Segment/Info/Duration, payload octet 1"), std::string::npos) << difference;
    EXPECT_NE(difference.find("[99]"), std::string::npos) << difference;
    actual = expected;
    actual.pop_back();
    EXPECT_NE(CompareFiles(expected, actual).find("past the end of the file"), std::string::npos);
    EXPECT_NE(CompareFiles(actual, expected).find("past the end of the file"), std::string::npos);
}

struct Fault {
    const char* m_What;
    std::function<Octets()> m_File;
    const char* m_Path; // both must stand in one line of the description
    const char* m_Text;
};

// The good file with one octet of an element's header or payload replaced.
std::function<Octets()> Patched(const char* path, std::size_t fromItsStart, unsigned char octet) {
    return [=] {
        Octets octets = Parts().Build();
        octets[File(octets).At(path).m_Offset + fromItsStart] = octet;
        return octets;
    };
}

std::function<Octets()> With(const std::function<void(Parts&)>& change) {
    return [=] {
        Parts parts;
        change(parts);
        return parts.Build();
    };
}

TEST(EbmlWalker, FindsAndNamesEveryFault) {
    const Fault faults[] = {
        {"no octets", [] { return Octets(); }, "the file", "no element at all"},
        {"trailing octets", [] { return Parts().Build() + Hex("EC 80"); }, "the file", "2 trailing octets"},
        {"cut off",
         [] {
             Octets o = Parts().Build();
             o.pop_back();
             return o;
         },
         "Segment", "ends 1 octets past"},
        {"unknown identifier", Patched("Segment/Info/DateUTC", 0, 0x43), "Segment/Info:", "unknown identifier 0x4361"},
        {"CueBlockNumber as in the standard",
         With([](Parts& p) { p.m_Cues = Element(0x1C53BB6B, Parts::CuePoint("0A", 4167, "53 78 81 01")); }),
         "Segment/Cues/CuePoint[0]/CueTrackPositions[0]", "unknown identifier 0x5378"},
        {"no identifier", Patched("Segment/Tracks", 0, 0x08), "Segment:", "no identifier begins with 0x8"},
        {"no length", Patched("Segment/Tracks", 4, 0x00), "Segment/Tracks", "bad length"},
        {"unknown size of a child", Patched("Segment/Tracks", 4, 0xFF), "Segment/Tracks", "unknown size"},
        {"unknown size of the Segment",
         [] {
             Octets octets = Parts().Build();
             const std::size_t at = File(octets).At("Segment").m_Offset;
             for (std::size_t i = 5; i < 12; ++i) octets[at + i] = 0xFF;
             return octets;
         },
         "Segment", "never filled in"},
        {"longer length than needed", With([](Parts& p) {
             p.m_Info = Hex("15 49 A9 66 40 00") + Hex("16");
             p.m_Info.back() = 0x16;
         }),
         "Segment/Info", "2 octets for a size of 0"},
        {"child past its parent", Patched("Segment/Info/MuxingApp", 2, 0x82), "Segment/Info/MuxingApp",
         "ends 1 octets past the end of Segment/Info"},
        {"child of another parent", With([](Parts& p) { p.m_Info = Element(0x1549A966, Hex("D7 81 01")); }),
         "Segment/Info/TrackNumber", "is no child of Info"},
        {"child that stands twice",
         With([](Parts& p) { p.m_Info = Element(0x1549A966, Hex("44 89 84 00 00 00 00 44 89 84 00 00 00 00")); }),
         "Segment/Info/Duration", "stands twice"},
        {"leading zero", Patched("Segment/Cluster[1]/Timestamp", 2, 0), "Segment/Cluster[1]/Timestamp",
         "leading zero octet"},
        {"a double", With([](Parts& p) { p.m_Info = Element(0x1549A966, Hex("44 89 88") + Zeros(8)); }),
         "Segment/Info/Duration", "a float of 8 octets"},
        {"CodecID without its zero", Patched("Segment/Tracks/TrackEntry[0]/CodecID", 3, 0x62),
         "Segment/Tracks/TrackEntry[0]/CodecID", "one zero octet at its end"},
        {"another text with a zero", Patched("EBML/DocType", 10, 0), "EBML/DocType", "a zero octet in a text"},
        {"filler that is not zero", Patched("Segment/Void", 9, 1), "Segment/Void", "a filler octet that is not zero"},
        {"block without a header", With([](Parts& p) { p.m_Clusters[0] = Element(0x1F43B675, Hex("E7 81 00 A3 80")); }),
         "Segment/Cluster[0]/SimpleBlock[0]", "shorter than its header"},
        {"Block that is not last", With([](Parts& p) {
             p.m_Clusters[0] = Element(0x1F43B675, Hex("E7 81 00 A0 8A A1 85 81 00 00 00 11 FB 81 FF"));
         }),
         "Segment/Cluster[0]/BlockGroup[0]", "its last child is not its Block"},
        {"cluster off its span", Patched("Segment/Cluster[1]/Timestamp", 3, 0xE9), "Segment/Cluster[1]",
         "not on a span"},
        {"cluster times that stand still", With([](Parts& p) { p.m_Clusters[1] = p.m_Clusters[0]; }),
         "Segment/Cluster[1]", "not after the last"},
        {"cluster without a block", With([](Parts& p) { p.m_Clusters[1] = Element(0x1F43B675, Hex("E7 82 03 E8")); }),
         "Segment/Cluster[1]", "holds no block"},
        {"block after its span", Patched("Segment/Cluster[0]/BlockGroup[0]", 5, 0x04), "Segment/Cluster[0]",
         "a block at 1024 ms, outside its span"},
        {"block before its span", Patched("Segment/Cluster[1]/BlockGroup[0]", 5, 0xFF), "Segment/Cluster[1]",
         "a block at -255 ms, outside its span"},
        {"block of no track", Patched("Segment/Cluster[0]/BlockGroup[0]", 4, 0x83), "Segment/Cluster[0]",
         "a track that there is not"},
        {"laced block", Patched("Segment/Cluster[0]/BlockGroup[0]", 7, 0x02), "Segment/Cluster[0]", "odd block flags"},
        {"seek entry a little off", Patched("Segment/SeekHead[0]/Seek[2]/SeekPosition", 4, 0x00),
         "Segment/SeekHead[0]/Seek[2]", "is not the start of an element"},
        {"seek entry of another name", Patched("Segment/SeekHead[0]/Seek[0]/SeekID", 3, 0x16),
         "Segment/SeekHead[0]/Seek[0]", "names 0x1649A966, but at its position stands Info"},
        {"cluster index that lacks one", Patched("Segment/SeekHead[1]/Seek[0]/SeekPosition", 4, 0x00),
         "Segment/SeekHead[1]", "does not list every cluster once"},
        {"cue that points elsewhere",
         Patched("Segment/Cues/CuePoint[0]/CueTrackPositions[0]/CueClusterPosition", 3, 0x00), "Segment/Cluster[0]",
         "has no cue point in its turn"},
        {"cue of another time", Patched("Segment/Cues/CuePoint[0]/CueTime", 2, 0x0B), "Segment/Cluster[0]",
         "at 10 ms, has no cue point in its turn"},
        {"cue with another number", Patched("Segment/Cues/CuePoint[0]/CueTrackPositions[0]/CueBlockNumber5387", 3, 2),
         "Segment/Cluster[0]", "has no cue point in its turn"},
        {"one cue too many",
         [] {
             Parts parts;
             const File good(parts.Build());
             parts.m_Cues = good.OctetsOf(good.At("Segment/Cues"));
             parts.m_Cues[4] = static_cast<unsigned char>(parts.m_Cues[4] + 15);
             parts.m_Cues = parts.m_Cues + Parts::CuePoint("03 EA", 4193, "");
             return parts.Build();
         },
         "Segment/Cues/CuePoint[2]", "names no key frame"},
        {"SimpleBlock beside BlockGroup",
         With([](Parts& p) { p.m_Clusters[1] = Element(0x1F43B675, Hex("E7 82 03 E8 A3 85 81 00 01 80 13")); }),
         "Segment", "SimpleBlocks and BlockGroups in one file"},
    };
    for (const Fault& fault : faults) {
        const std::string description = Describe(Check(File(fault.m_File())));
        bool found = false;
        for (std::size_t begin = 0; begin < description.size(); begin = description.find('\n', begin) + 1) {
            const std::string line = description.substr(begin, description.find('\n', begin) - begin);
            found =
                found || (line.find(fault.m_Path) != std::string::npos && line.find(fault.m_Text) != std::string::npos);
        }
        EXPECT_TRUE(found) << fault.m_What << " was described as:\n" << description;
    }
}

TEST(EbmlWalker, AcceptsAFillerOneOctetShortAndNoOther) {
    for (std::size_t payload = 122; payload <= 128; ++payload) {
        const Octets body = Element(0xEC, Zeros(payload)) + Hex("00") + Element(0x1549A966, {});
        const File file(Hex("18 53 80 67 01 00 00 00 00 00") + Position(body.size()) + body);
        const bool accepted = payload >= 124 && payload <= 126;
        EXPECT_EQ(Describe(file.Problems()).empty(), accepted) << payload;
        EXPECT_EQ(file.Has("Segment/Info"), accepted) << payload;
    }
}

TEST(EbmlWalker, ReadsNothingOutsideAndTrustsNothing) {
    const Octets good = Parts().Build();
    for (std::size_t size = 0; size < good.size(); ++size) {
        const File file(Octets(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size)));
        ASSERT_FALSE(Check(file).empty()) << size;
    }
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (const unsigned char value : std::initializer_list<unsigned char>{0x00, 0x01, 0x7F, 0x80, 0xFF}) {
            Octets damaged = good;
            damaged[at] = value;
            const File file(damaged);
            Check(file);
            Check(file, Ebml::Times::Lagging);
            ASSERT_NE(file.PathAt(at), "");
            if (at == 200) at = good.size() - 700; // zeros of the filler all alike
        }
    }
}

// The good file as it was before it was closed: no seek head, no cues, no index, the Segment's size unknown.
Octets Unclosed() {
    const Octets good = Parts().Build();
    const File file(good);
    const std::size_t start = file.At("Segment").PayloadOffset();
    const std::size_t info = file.At("Segment/Info").m_Offset;
    const std::size_t end = file.At("Segment/Cluster[1]").End();
    return Octets(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(start) - 8) +
           Hex("01 FF FF FF FF FF FF FF") + Element(0xEC, Zeros(4096)) +
           Octets(good.begin() + static_cast<std::ptrdiff_t>(info), good.begin() + static_cast<std::ptrdiff_t>(end));
}

File CutAt(const Octets& octets, std::size_t size) {
    return File(Octets(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(size)), Ebml::Ending::CutOff);
}

TEST(EbmlWalker, ReadsAnUnfinishedFileUpToEveryOctet) {
    const Octets unclosed = Unclosed();
    const File whole(unclosed, Ebml::Ending::CutOff);
    ASSERT_EQ(whole.WholeClusters(), 2U);
    const std::size_t first = whole.At("Segment/Cluster[0]").End();
    // What is whole at each octet, counted by hand: the ends of the two clusters and of the blocks in them.
    const auto blockEnd = [&](const char* path) { return whole.At(path).End(); };
    for (std::size_t size = 0; size <= unclosed.size(); ++size) {
        const File file = CutAt(unclosed, size);
        ASSERT_EQ(Describe(CheckUnfinished(file)), "") << size;
        EXPECT_EQ(file.WholeClusters(), size == unclosed.size() ? 2U : size >= first ? 1U : 0U) << size;
        std::size_t blocks = 0;
        for (const char* path : {"Segment/Cluster[0]/BlockGroup[0]", "Segment/Cluster[0]/BlockGroup[1]",
                                 "Segment/Cluster[1]/BlockGroup[0]", "Segment/Cluster[1]/BlockGroup[1]"}) {
            if (size >= blockEnd(path)) ++blocks;
        }
        EXPECT_EQ(file.Blocks().size(), blocks) << size;
        EXPECT_FALSE(Check(file).empty()) << size << " octets pass for a finished file";
    }
    const File partial = CutAt(unclosed, unclosed.size() - 1);
    EXPECT_TRUE(partial.At("Segment/Cluster[1]").m_Cut);
    EXPECT_TRUE(partial.At("Segment/Cluster[1]/BlockGroup[1]").m_Cut);
    EXPECT_FALSE(partial.At("Segment/Cluster[1]/BlockGroup[0]").m_Cut);
    EXPECT_EQ(partial.At("Segment/Cluster[1]").End(), partial.Data().size());
}

TEST(EbmlWalker, TakesAFinishedFileForACompleteUnfinishedOne) {
    EXPECT_EQ(Describe(CheckUnfinished(File(Parts().Build(), Ebml::Ending::CutOff))), "");
}

TEST(EbmlWalker, FindsFaultsInUnfinishedFiles) {
    const Octets unclosed = Unclosed();
    const File good(unclosed);
    const auto at = [&](const char* path) { return good.At(path).m_Offset; };
    const auto part = [&](std::size_t begin, std::size_t end) {
        return Octets(unclosed.begin() + static_cast<std::ptrdiff_t>(begin),
                      unclosed.begin() + static_cast<std::ptrdiff_t>(end));
    };
    const auto patched = [&](std::size_t offset, unsigned char octet) {
        Octets octets = unclosed;
        octets[offset] = octet;
        return octets;
    };
    const Octets finished = Parts().Build();
    const std::size_t info = at("Segment/Info");
    const std::size_t tracks = at("Segment/Tracks");
    const std::size_t cluster = at("Segment/Cluster[0]");
    const struct {
        const char* m_What;
        Octets m_File;
        const char* m_Text;
    } faults[] = {
        {"a size that was filled in too early", Octets(finished.begin(), finished.end() - 1),
         "filled in before it is whole"},
        {"a child of a whole element that runs past it", patched(at("Segment/Info/MuxingApp") + 2, 0x82),
         "ends 1 octets past the end of Segment/Info"},
        {"a lost octet in the middle", part(0, cluster + 30) + part(cluster + 31, unclosed.size()), "Segment"},
        {"no reserved room", part(0, at("Segment/Void")) + part(info, unclosed.size()), "out of its order"},
        {"clusters before the Tracks", part(0, tracks) + part(cluster, unclosed.size()) + part(tracks, cluster),
         "out of its order"},
        {"a cluster behind the Cues", unclosed + Element(0x1C53BB6B, {}) + part(cluster, at("Segment/Cluster[1]")),
         "out of its order"},
        {"a cluster off its span", patched(at("Segment/Cluster[1]/Timestamp") + 3, 0xE9), "not on a span"},
        {"no EBML header", part(at("Segment"), unclosed.size()), "stands where the EBML header should"},
        {"zeros at the end", unclosed + Zeros(3), "no identifier begins with 0x0"},
    };
    for (const auto& fault : faults) {
        const std::string description = Describe(CheckUnfinished(File(fault.m_File, Ebml::Ending::CutOff)));
        EXPECT_NE(description.find(fault.m_Text), std::string::npos) << fault.m_What << " was described as:\n"
                                                                     << description;
    }
}

} // namespace
