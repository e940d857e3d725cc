// SPDX-License-Identifier: MIT
// The file being written: in a folder of its own beside the target until it is whole.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// Returns why no file may be written to target, or an empty string. Changes nothing.
std::string WhyNotWritable(const std::string& target, bool overwrite);

class StagedFile {
public:
    // Checks that a file may be written to target and makes the folder beside it. Throws ToolError when it may not.
    // Symbolic links are followed. inputs are never overwritten.
    StagedFile(const std::string& target, bool overwrite, const std::vector<std::string>& inputs);
    // Removes the file unless it was kept.
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;

    // The file to write.
    const std::filesystem::path& Path() const { return m_Part; }

    // Throws ToolError when the disk has room for fewer octets.
    void NeedRoom(std::uint64_t octets) const;
    // Throws ToolError when the disk is full.
    void CheckRoom() const;
    // Returns why writing fails; "write error" when it works again.
    std::string WriteFailure() const;

    // Gives the complete file its name and the mode bits of the file that it replaces. Removes the partial file of an
    // earlier run. sync: flush it to the disk first.
    void Keep(bool sync);
    // Keeps a partial file beside the target as NAME.partial.EXT, replacing an older one. Returns its name.
    std::filesystem::path KeepPartial();

private:
    std::filesystem::path m_Target; // no link
    std::filesystem::path m_Partial;
    std::filesystem::path m_Part;
    bool m_Overwrite;
};
