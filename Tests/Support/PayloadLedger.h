// SPDX-License-Identifier: MIT
// Records the octets of payload that each file of a session took in, block by block. The file must hold exactly these
// octets, each once and in order. The ledger models how frames become blocks and leaves the layout to the walker.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "SessionComparison.h"

class PayloadLedger final : public SessionWatcher {
public:
    void Begin() override {
        m_Books = {};
        m_IsWebm = false;
    }
    void Created(const HostCall& call, bool opened) override;
    // The result has to be the number of octets that the call's blocks take.
    std::string Wrote(const HostCall& call, int result) override;
    // The file has to parse, to add up, and to hold the payload that its track took in, except for blocks that came
    // more than 32,768 ms before its first.
    std::string Closed(int slot, const Octets* file) override;

private:
    struct Block {
        Octets m_Octets;
        std::int64_t m_Time; // ms
    };
    struct Book {
        bool m_IsOpen = false;
        bool m_IsWebm = false;
        bool m_HasVideo = false;
        bool m_HasAudio = false;
        Model::FourCC m_VideoCode = 0;
        bool m_FirstVideoFrame = true;
        bool m_StartCodes = false;                 // an H264 job whose first frame had one
        std::array<std::vector<Block>, 2> m_Taken; // video, audio
    };

    std::vector<Block> BlocksOf(const HostCall& call, Book& book) const;

    std::array<Book, RandomSession::kSlots + 1> m_Books{};
    bool m_IsWebm = false; // the kind of the last file that was asked for
};
