// SPDX-License-Identifier: MIT
#include "KnownSets.h"

#include <set>

namespace {

constexpr int kMostSets = 256; // of a kind

} // namespace

KnownSets::KnownSets(const Octets& setupData) { Note(QfHost::ParameterSets(setupData)); }

void KnownSets::Change(const Octets& setupData) {
    bool isNew = false;
    for (const NalUnit& unit : QfHost::ParameterSets(setupData)) isNew = Keep(unit) || isNew;
    m_IsPending = m_IsPending || isNew;
}

void KnownSets::Note(const std::vector<NalUnit>& units) {
    for (const NalUnit& unit : units) {
        Octets* const first = unit.Type() == 7 ? &m_FirstSequence : unit.Type() == 8 ? &m_FirstPicture : nullptr;
        if (first != nullptr && first->empty()) first->assign(unit.m_pData, unit.m_pData + unit.m_Size);
        Keep(unit);
    }
}

std::vector<NalUnit> KnownSets::Missing(const std::vector<NalUnit>& units, bool isEntryPoint) const {
    std::vector<NalUnit> missing;
    if (!isEntryPoint && !m_IsPending) return missing;
    std::set<Key> present;
    for (const NalUnit& unit : units) present.insert(KeyOf(unit));
    for (const auto& [key, octets] : m_Current) {
        const bool isInSetup = !m_IsChanged && (octets == m_FirstSequence || octets == m_FirstPicture);
        if (!isInSetup && present.count(key) == 0) missing.push_back({octets.data(), octets.size()});
    }
    return missing;
}

KnownSets::Key KnownSets::KeyOf(const NalUnit& unit) {
    const int kind = unit.Type() == 8 ? 2 : unit.Type() == 15 ? 1 : 0;
    return {kind, ParameterSetId(unit)};
}

// Returns whether the set is new or has changed.
bool KnownSets::Keep(const NalUnit& unit) {
    const Key key = KeyOf(unit);
    if (key.second < 0 || key.second >= kMostSets) return false;
    const auto [place, isFirst] = m_Current.try_emplace(key);
    Octets set(unit.m_pData, unit.m_pData + unit.m_Size);
    if (place->second == set) return false;
    if (!isFirst) m_IsChanged = true;
    place->second = std::move(set);
    return true;
}
