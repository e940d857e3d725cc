// SPDX-License-Identifier: MIT
// One output file whose storage fails at the n-th call of a kind, or at every call from there on. Faults strike on two
// levels: in the calls of stdio that the plug-in makes, or below stdio, where its buffers are written out.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <ostream>

enum class Level { Stdio, Disk };
enum class Operation { Open, Write, Seek, Flush, Close };
enum class Effect { Fail, Shorten, Delay };

struct Fault {
    Level m_Level = Level::Stdio;
    Operation m_Operation = Operation::Open;
    Effect m_Effect = Effect::Fail;
    int m_Error = 0;      // errno
    bool m_Lasts = false; // whether all calls of that kind from m_Number on do so
    long m_Number = 0;    // of the call, from 1 on; 0 for no fault at all

    friend std::ostream& operator<<(std::ostream& out, const Fault& fault);
};

class FaultyFile {
public:
    // From now until its end writing to path is such a file, in this whole program. Others stay as they are.
    FaultyFile(std::filesystem::path path, const Fault& fault);
    ~FaultyFile();
    FaultyFile(const FaultyFile&) = delete;
    FaultyFile& operator=(const FaultyFile&) = delete;

    // Calls of that kind so far, on the fault's level.
    long Calls(Operation operation) const { return m_Calls[static_cast<std::size_t>(operation)]; }
    bool Struck() const { return m_Struck; }
    // The end of what had been written when the fault struck first.
    off_t End() const { return m_End; }
    // Calls that have written octets since.
    long LaterWrites() const { return m_LaterWrites; }

private:
    struct Cookie; // the C library's view of a disk

    bool Strikes(Operation operation);
    void NoteWrite(bool strikes, std::size_t octets, off_t position);
    void InstallStdio();
    void InstallDisk();
    std::size_t Write(const void* octets, std::size_t size, std::size_t count, std::FILE* stream);

    const std::filesystem::path m_Path;
    const Fault m_Fault;
    std::array<long, 5> m_Calls{};
    bool m_Struck = false;
    long m_LaterWrites = 0;
    off_t m_End = 0;      // until the fault strikes
    off_t m_Position = 0; // of the disk
    int m_Descriptor = -1;
    std::FILE* m_pStream = nullptr;
};
