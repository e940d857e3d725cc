// SPDX-License-Identifier: MIT
#include "PayloadLedger.h"

#include <utility>

#include "EbmlWalker.h"
#include "VideoModels.h"

namespace {

constexpr std::int64_t kEarliest = -32768; // ms from the first block

std::int64_t Plus(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

// The octets that the plug-in may look at.
Octets Visible(const HostBuffer& data) {
    if (data.isNull || data.length <= 0) return {};
    return {data.octets.begin(), data.octets.begin() + data.length};
}

bool IsSlice(unsigned type) { return type == 1 || type == 5; }
bool IsLossless(unsigned type) { return IsSlice(type) || (type >= 7 && type <= 9); }

} // namespace

void PayloadLedger::Created(const HostCall& call, bool opened) {
    const Model::EncodeParam& job = *call.encodeParam;
    m_IsWebm =
        !call.nullRecord && call.path != ReferenceModel::Path::Null && job.formatFourCC == Model::MakeFourCC("WEBM");
    Book& book = m_Books.at(static_cast<std::size_t>(call.slot));
    book = {};
    book.m_IsOpen = opened;
    book.m_IsWebm = m_IsWebm;
    book.m_HasVideo = job.disableVideo == 0;
    book.m_HasAudio = job.disableAudio == 0;
    book.m_VideoCode = job.videoParam.fourCC;
}

std::vector<PayloadLedger::Block> PayloadLedger::BlocksOf(const HostCall& call, Book& book) const {
    std::vector<Block> blocks;
    if (call.nullRecord || !book.m_IsOpen || book.m_IsWebm != m_IsWebm) return blocks;
    const auto add = [&](const Octets& octets, std::int64_t start) {
        if (!octets.empty()) blocks.push_back({octets, Plus(start, 5000) / 10000});
    };
    const std::int64_t timestamp = call.frame.timestamp;
    const Octets frame = Visible(call.data);
    if (call.kind == HostCall::Kind::WriteVideoPacket) {
        if (!book.m_HasVideo) return blocks;
        const Model::FourCC code = book.m_VideoCode;
        if (book.m_FirstVideoFrame && !book.m_IsWebm && code == Model::MakeFourCC("H264")) {
            book.m_StartCodes = ModelFindStartCode(frame, 0, static_cast<int>(frame.size())) >= 0;
        }
        book.m_FirstVideoFrame = false;
        if (code == Model::MakeFourCC("N264") || code == Model::MakeFourCC("A264") ||
            (code == Model::MakeFourCC("I264") && !book.m_IsWebm)) {
            for (const Octets& unit : ModelSplit(IsSlice, frame).m_Units) add(unit, timestamp);
        } else if (book.m_StartCodes) {
            Octets kept;
            for (const Octets& unit : ModelSplit(IsLossless, frame).m_Units) {
                kept.insert(kept.end(), unit.begin(), unit.end());
            }
            add(kept, timestamp);
        } else {
            add(frame, timestamp);
        }
        return blocks;
    }
    if (!book.m_HasAudio || call.data.isNull) return blocks;
    if (!call.isSplit) {
        add(frame, timestamp);
        return blocks;
    }
    // Without a size of its own the record trusts its table.
    const std::size_t end = call.data.length > 0 ? frame.size() : call.data.octets.size();
    const std::int32_t count = call.frameSizes.at(0);
    std::size_t at = 0;
    for (std::int32_t i = 0; i < count; ++i) {
        const int size = call.frameSizes.at(static_cast<std::size_t>(i) + 1);
        if (size <= 0) continue;
        if (static_cast<std::size_t>(size) > end - at) break;
        const auto begin = call.data.octets.begin() + static_cast<std::ptrdiff_t>(at);
        const auto product =
            static_cast<std::int32_t>(static_cast<std::uint32_t>(call.frame.duration) * static_cast<std::uint32_t>(i));
        add({begin, begin + size}, Plus(timestamp, product / count));
        at += static_cast<std::size_t>(size);
    }
    return blocks;
}

std::string PayloadLedger::Wrote(const HostCall& call, int result) {
    Book& book = m_Books.at(static_cast<std::size_t>(call.slot));
    std::vector<Block>& taken = book.m_Taken[call.kind == HostCall::Kind::WriteVideoPacket ? 0 : 1];
    std::size_t octets = 0;
    for (Block& block : BlocksOf(call, book)) {
        octets += block.m_Octets.size();
        taken.push_back(std::move(block));
    }
    if (static_cast<std::int64_t>(octets) == result) return "";
    return "ledger: took " + std::to_string(result) + " octets instead of " + std::to_string(octets);
}

std::string PayloadLedger::Closed(int slot, const Octets* file) {
    const Book book = std::exchange(m_Books.at(static_cast<std::size_t>(slot)), {});
    if (file == nullptr) return "";
    if (file->empty()) {
        return book.m_Taken[0].empty() && book.m_Taken[1].empty() ? "" : "ledger: payload, and an empty file";
    }
    const Ebml::File tree(*file);
    const std::vector<Ebml::Problem> problems = Ebml::Check(tree, Ebml::Times::Lagging);
    if (!problems.empty()) return "walker: " + Ebml::Describe(problems);

    const std::vector<Ebml::Block> blocks = tree.Blocks();
    if (blocks.empty()) return "ledger: a file without a block";
    // The first block of the file is the first that its track took in, and times count from it.
    const std::vector<Block>& first = book.m_Taken.at(static_cast<std::size_t>(blocks[0].m_Track) - 1);
    if (first.empty()) return "ledger: a block of a track that took nothing in";
    const std::int64_t base = first[0].m_Time;
    std::array<std::size_t, 2> next{};
    const auto skipDropped = [&](std::size_t track) {
        const std::vector<Block>& taken = book.m_Taken[track];
        while (next[track] < taken.size() && taken[next[track]].m_Time - base < kEarliest) ++next[track];
        return next[track] < taken.size();
    };
    for (const Ebml::Block& block : blocks) {
        const std::size_t track = static_cast<std::size_t>(block.m_Track) - 1;
        const std::string name = "ledger: track " + std::to_string(block.m_Track);
        if (!skipDropped(track)) return name + " has a block too many";
        const std::size_t index = next[track]++;
        const Octets& expected = book.m_Taken[track][index].m_Octets;
        if (block.m_Frame != expected) {
            return name + ", block " + std::to_string(index) + ": " + Difference(block.m_Frame, expected);
        }
    }
    for (const std::size_t track : {0U, 1U}) {
        if (skipDropped(track)) return "ledger: track " + std::to_string(track + 1) + " lacks a block";
    }
    return "";
}
