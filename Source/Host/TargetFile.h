// SPDX-License-Identifier: MIT
// The file that is being written, as the system sees it: the plug-in says nothing of write errors.
#pragma once

#include <cstdint>
#include <string>

#include "PluginLibrary.h"

namespace QfHost {

class TargetFile {
public:
    // Creates the file, empty, or empties the one that is there. Throws HostError.
    TargetFile(const char* path, bool mayOverwrite);

    const std::string& Path() const { return m_Path; }
    int Number() const { return m_File.Number(); }
    // By which the plug-in opens the very same file, whatever its name and whatever it is called meanwhile.
    std::wstring NameForPlugin() const;
    std::uint64_t Length() const;
    // What the system says when the file should grow; "" when it grows. The plug-in's writing is not disturbed.
    std::string WhyNotLonger() const;
    // Waits until it is on the disk. Throws HostError.
    void Sync() const;
    // Removes it, if it still has its name.
    void Remove() const noexcept;

private:
    std::string m_Path; // absolute
    Descriptor m_File;
};

} // namespace QfHost
