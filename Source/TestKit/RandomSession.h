// SPDX-License-Identifier: MIT
// Host sessions made from a seed, from the ordinary to the absurd. Half of the sessions look like real jobs; the others
// vary every value, order and buffer that a host may get wrong, but never state more octets than there are.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "ModelRecords.h"
#include "ReferenceModel.h"

// A host's buffer and the length that the host states, never more than the octets there are.
struct HostBuffer {
    Octets octets;
    bool isNull = false;
    std::int32_t length = 0;
};

struct HostCall {
    enum class Kind {
        SetClock,
        SetMuxParam,
        CreateMediaFile,
        WriteVideoPacket,
        WriteAudioPacket,
        WriteVosData,
        WritezXPSData,
        CloseMediaFile
    };

    Kind kind = Kind::SetClock;
    int slot = 0;            // which of the host's handles; one that is empty holds null
    bool nullRecord = false; // null instead of the record
    std::int64_t clock = 0;
    Model::MuxParam muxParam;
    ReferenceModel::Path path = ReferenceModel::Path::Opens;
    std::shared_ptr<const Model::EncodeParam> encodeParam;
    Model::Frame frame;   // without its pointer and size, which `data` gives
    Octets hostOctets;    // the host's own in the record, over and over; zeros when empty
    HostBuffer data;      // of the frame; of WriteVosData; the picture set of WritezXPSData
    HostBuffer sequence;  // the sequence set
    bool isSplit = false; // frameSizes is given
    std::vector<int> frameSizes;
};

struct RandomSession {
    static constexpr int kSlots = 3;

    std::uint64_t seed = 0;
    bool isOrdinary = false;
    std::int64_t clock = 0;
    std::vector<int> randValues;
    std::vector<HostCall> calls; // every file that is created is closed
};

const char* NameOf(HostCall::Kind kind);

// The plug-in relies on the table of a frame without a size, so the table must not promise more octets than there are.
void KeepTableWithin(HostCall& call);

// The same session for the same seed, in every build.
RandomSession MakeRandomSession(std::uint64_t seed);
