// The file being written: in a folder of its own beside the target until it is whole.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

class StagedFile {
public:
    // Checks that a file may be written to target and makes the folder beside it. Throws ToolError when it may not.
    // inputs are never overwritten.
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

    // Gives the whole file its name. sync: have it on the disk first.
    void Keep(bool sync);

private:
    std::filesystem::path m_Target;
    std::filesystem::path m_Part;
    bool m_Overwrite;
};
