// SPDX-License-Identifier: MIT
// The file being written: in a folder of its own beside the target until it is whole.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Why no file may be written to target; empty when one may. Looks and changes nothing.
std::string WhyNotWritable(const std::string& target, bool overwrite);

class StagedFile {
public:
    // Checks that a file may be written to target and makes the folder beside it. Throws ToolError when it may not.
    // A symbolic link stands for the file that it points at. inputs are never overwritten.
    StagedFile(const std::string& target, bool overwrite, const std::vector<std::string>& inputs);
    // Removes what was not kept.
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    // Where to write.
    const std::filesystem::path& Path() const { return m_Part; }

    // Throws ToolError when the disk has less room than that many octets.
    void NeedRoom(std::uint64_t octets) const;
    // Throws ToolError when the disk is full.
    void CheckRoom() const;
    // Why the disk takes no more; "write error" when it does.
    std::string WriteFailure() const;

    // Gives the whole file its name and the mode bits of the file that it replaces; a cut-off file of an earlier run
    // goes. sync: have it on the disk first.
    void Keep(bool sync);
    // Keeps a cut-off file beside the target as NAME.partial.EXT, in the place of an older one. Returns that name.
    std::filesystem::path KeepPartial();

private:
    std::filesystem::path m_Target; // no link
    std::filesystem::path m_Partial;
    std::filesystem::path m_Part;
    bool m_Overwrite;
};
