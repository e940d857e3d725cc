// SPDX-License-Identifier: MIT
// The file that is being written, as the system sees it: the plug-in does not report write errors.
#pragma once

#include <cstdint>
#include <string>

#include "PluginLibrary.h"

namespace QfHost {

class TargetFile {
public:
    // Creates the file, or empties an existing file. Throws HostError.
    TargetFile(const char* path, bool mayOverwrite);

    const std::string& Path() const { return m_Path; }
    int Number() const { return m_File.Number(); }
    // A path by which the plug-in opens the very same file, even if it is renamed.
    std::wstring NameForPlugin() const;
    std::uint64_t Length() const;
    // The system's error when the file should grow; "" when it grows. Does not disturb the plug-in's writing.
    std::string WhyNotLonger() const;
    // Waits until the file is on the disk. Throws HostError.
    void Sync() const;
    // Removes the file, if it still has its name.
    void Remove() const noexcept;

private:
    std::string m_Path; // absolute
    Descriptor m_File;
};

} // namespace QfHost
