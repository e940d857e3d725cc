// SPDX-License-Identifier: MIT
// The parameter sets that a stream of H.264 has needed so far.
#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "H264Units.h"

// The file's set-up data hold one set of each kind. Other sets go into the frames, before each picture at which
// decoding can begin, so that players can start at any of these pictures.
class KnownSets {
public:
    using Octets = std::vector<std::uint8_t>;

    // The file's set-up data will hold the first sets of setupData.
    explicit KnownSets(const Octets& setupData);

    // For the file's set-up data; empty when there is none.
    const Octets& Sequence() const { return m_FirstSequence; }
    const Octets& Picture() const { return m_FirstPicture; }

    // The source has new set-up data: changed sets go into the next frame.
    void Change(const Octets& setupData);
    // Notes the sets in a frame's units. The first set of a kind goes into the file's set-up data if these have none.
    void Note(const std::vector<NalUnit>& units);
    // The sets that have to go into a frame of these units, which have been noted. They point into this object until
    // the next note or change.
    std::vector<NalUnit> Missing(const std::vector<NalUnit>& units, bool isEntryPoint) const;
    // The missing sets were written.
    void SetsWereGiven() { m_IsPending = false; }

private:
    // Sequence sets before the picture sets that name them, then their numbers.
    using Key = std::pair<int, int>;
    static Key KeyOf(const NalUnit& unit);
    bool Keep(const NalUnit& unit);

    Octets m_FirstSequence;
    Octets m_FirstPicture;
    std::map<Key, Octets> m_Current;
    bool m_IsChanged = false; // some frames need other sets than the file's set-up data
    bool m_IsPending = false; // the next frame needs all sets
};
