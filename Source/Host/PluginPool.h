// SPDX-License-Identifier: MIT
// Copies of one plug-in: every open file has one to itself, since a plug-in's options and its flag of the kind of file
// are shared by all files that it writes. A copy that is given back serves the next file.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "HostRecords.h"
#include "PluginLibrary.h"

namespace QfHost {

class PluginPool {
public:
    class Copy {
    public:
        explicit Copy(const PluginFile& file);
        const FileFormatInfo* Formats() const { return m_pFormats; }
        // Null when it is not in the table.
        const FileFormatInfo* Format(FourCC fourCC) const;

    private:
        friend class PluginPool;
        PluginLibrary m_Library;
        FileFormatInfo* m_pFormats;
    };
    // A list of one copy, which belongs to the list's owner.
    using Loan = std::list<Copy>;

    // Throws std::runtime_error with a line for the user.
    explicit PluginPool(const std::string& path);

    const std::string& Path() const { return m_File.Path(); }
    const std::string& Version() const { return m_Version; }
    // Used only for its tables.
    const Copy& First() const { return *m_pFirst; }

    Loan Take();
    void GiveBack(Loan& loan) noexcept;

private:
    PluginFile m_File;
    std::mutex m_Mutex;
    Loan m_Idle;
    const Copy* m_pFirst;
    std::string m_Version;
};

} // namespace QfHost
