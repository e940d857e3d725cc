// SPDX-License-Identifier: MIT
// Plays a session on the plug-in and on the model of it in step: every result, every buffer of the host's, the exported
// data and every file must be the same, to the octet. Time and chance are pinned for both.
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <string>

#include "Host.h"
#include "RandomSession.h"
#include "ReferenceModel.h"

class SessionPlayer {
public:
    explicit SessionPlayer(Host& host);

    // Throws a Failure that begins with `name` at the first difference. Files are removed.
    void Play(const RandomSession& session, const std::string& name);

    // Looks at a file that the session has open, before each call but the first of it.
    void (*m_pWatch)(const std::filesystem::path& file, const HostCall& call) = nullptr;

private:
    // Host memory for one object at a time. It ends where inaccessible memory begins. The next object overwrites it.
    class Memory {
    public:
        // Stores the octets and returns their address. Returns the end of the memory when there are none.
        unsigned char* Place(const Octets& octets, bool isNull);
        Octets Copy() const;

    private:
        std::unique_ptr<GuardedOctets> m_pOctets;
        std::size_t m_Room = 0;
        std::size_t m_Used = 0;
    };

    struct Slot {
        void* m_pHandle = nullptr;
        int m_ModelHandle = 0;
        bool m_HasFile = false;
        std::filesystem::path m_File;
        std::string m_Job;
    };

    void Make(const HostCall& call);
    void Create(const HostCall& call, Slot& slot);
    void WriteFrame(const HostCall& call, const Slot& slot);
    void Close(Slot& slot);
    Slot& SlotOf(const HostCall& call) { return m_Slots.at(static_cast<std::size_t>(call.slot)); }

    Host& m_Host;
    std::unique_ptr<ReferenceModel> m_pModel; // of the session that is played
    std::array<Slot, RandomSession::kSlots + 1> m_Slots;
    Memory m_Data;
    Memory m_MoreData;
    Record m_Job{"EncodeParam"};
    Record m_Frame{"MEDIA_FRAME"};
};
