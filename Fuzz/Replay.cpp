// SPDX-License-Identifier: MIT
// Feeds files to a fuzz target, in builds without a fuzzer: the corpus, which includes inputs that once broke a
// promise. Takes files and folders of files.
#include <algorithm>
#include <filesystem>
#include <vector>

#include "FuzzTarget.h"
#include "TempDirectory.h"

int main(int argumentCount, char** arguments) {
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argumentCount; ++i) {
        if (!std::filesystem::is_directory(arguments[i])) files.emplace_back(arguments[i]);
        if (!std::filesystem::is_directory(arguments[i])) continue;
        for (const auto& entry : std::filesystem::directory_iterator(arguments[i])) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    LLVMFuzzerTestOneInput(nullptr, 0);
    for (const std::filesystem::path& file : files) {
        // Printed before the run, so that the output of a replay that dies ends with the file's name.
        std::printf("%s\n", file.c_str());
        std::fflush(stdout);
        const Octets octets = ReadFile(file);
        LLVMFuzzerTestOneInput(octets.data(), octets.size());
    }
    std::printf("%zu files\n", files.size());
    return files.empty() ? 1 : 0;
}
