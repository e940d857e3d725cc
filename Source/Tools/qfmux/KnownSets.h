// SPDX-License-Identifier: MIT
// The parameter sets that a stream of H.264 has needed so far.
#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "H264Units.h"

// The file's set-up data hold one set of each kind. Whatever else pictures need goes into the frames: in front of each
// picture with which decoding can begin, so that it does wherever a player begins.
class KnownSets {
public:
    using Octets = std::vector<std::uint8_t>;

    // The first sets of the set-up data are those that the file's will hold.
    explicit KnownSets(const Octets& setupData);

    // For the file's set-up data; empty when there is none.
    const Octets& Sequence() const { return m_FirstSequence; }
    const Octets& Picture() const { return m_FirstPicture; }

    // The source has new set-up data: what they change goes into the next frame.
    void Change(const Octets& setupData);
    // Notes the sets in a frame's units. Where the file's set-up data have none yet they take the first.
    void Note(const std::vector<NalUnit>& units);
    // The sets that have to go into a frame of these units, which have been noted. They point into this object until
    // the next note or change.
    std::vector<NalUnit> Missing(const std::vector<NalUnit>& units, bool isEntryPoint) const;
    // They have gone in.
    void SetsWereGiven() { m_IsPending = false; }

private:
    // Sequence sets before the picture sets that name them, then their numbers.
    using Key = std::pair<int, int>;
    static Key KeyOf(const NalUnit& unit);
    bool Keep(const NalUnit& unit);

    Octets m_FirstSequence;
    Octets m_FirstPicture;
    std::map<Key, Octets> m_Current;
    bool m_IsChanged = false; // the file's set-up data are no longer those of all its frames
    bool m_IsPending = false; // the next frame needs all sets
};
