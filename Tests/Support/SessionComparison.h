// SPDX-License-Identifier: MIT
// A host session played on the plug-in and on the reference model in step. Every return value, every frame buffer and
// every file has to be the same.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>

#include "Plugin.h"
#include "RandomSession.h"
#include "ReferenceModel.h"
#include "TempDirectory.h"

// The first place where two runs of octets part; nothing when they are the same.
std::string Difference(const Octets& plugin, const Octets& model);

// The part of the plug-in's answers that a self-test falsifies, to prove that the comparison notices it.
enum class Forgery { None, Result, Buffer, File, FileLength };

// Watches a session on the plug-in's side alone and judges it by rules of its own. Returns faults as text.
class SessionWatcher {
public:
    SessionWatcher() = default;
    SessionWatcher(const SessionWatcher&) = delete;
    SessionWatcher& operator=(const SessionWatcher&) = delete;
    virtual ~SessionWatcher() = default;

    virtual void Begin() = 0;
    virtual void Created(const HostCall& call, bool opened) = 0;
    virtual std::string Wrote(const HostCall& call, int result) = 0;
    // The file of that slot is finished; null for a disc image, of which there is none.
    virtual std::string Closed(int slot, const Octets* file) = 0;
};

class SessionComparison {
public:
    SessionComparison(const Plugin& plugin, const TempDirectory& directory, SessionWatcher* watcher = nullptr)
        : m_Plugin(plugin), m_Directory(directory), m_pWatcher(watcher) {}

    // Plays one session on both sides. Returns the first mismatch, or nothing.
    std::string Play(const RandomSession& session, Forgery forgery = Forgery::None);

    const std::map<std::string, std::uint64_t>& Reached() const { return m_Reached; }
    std::uint64_t Calls() const { return m_Calls; }
    std::uint64_t Files() const { return m_Files; }
    std::uint64_t FileOctets() const { return m_FileOctets; }

private:
    struct Slot {
        void* pluginHandle = nullptr;
        int modelHandle = 0;
        ReferenceModel::Path path = ReferenceModel::Path::Null;
    };

    void Report(const std::string& text);
    void Compare(const char* what, std::int64_t plugin, std::int64_t model);
    void CompareOctets(const char* what, const Octets& plugin, const Octets& model);
    std::filesystem::path PathOf(int slot, ReferenceModel::Path path) const;
    void Make(const HostCall& call);
    void Create(const HostCall& call, Slot& slot);
    void Write(const HostCall& call, const Slot& slot);
    void Close(Slot& slot, int number);

    const Plugin& m_Plugin;
    const TempDirectory& m_Directory;
    SessionWatcher* const m_pWatcher;
    ReferenceModel* m_pModel = nullptr;
    std::array<Slot, RandomSession::kSlots + 1> m_Slots{};
    Forgery m_Forgery = Forgery::None;
    std::size_t m_Where = 0;
    const char* m_What = "";
    std::string m_Mismatch;
    std::map<std::string, std::uint64_t> m_Reached;
    std::uint64_t m_Calls = 0;
    std::uint64_t m_Files = 0;
    std::uint64_t m_FileOctets = 0;
};
