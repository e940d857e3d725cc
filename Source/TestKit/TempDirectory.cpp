// SPDX-License-Identifier: MIT
#include "TempDirectory.h"

#include <stdlib.h>

#include <fstream>
#include <stdexcept>

TempDirectory::TempDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "qf_mkv.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary directory");
    m_Path = name;
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_Path, ignored);
}

std::vector<unsigned char> ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<unsigned char> octets(file ? static_cast<std::size_t>(std::filesystem::file_size(path)) : 0);
    file.read(reinterpret_cast<char*>(octets.data()), static_cast<std::streamsize>(octets.size()));
    if (!file) throw std::runtime_error("cannot read " + path.string());
    return octets;
}

void WriteFile(const std::filesystem::path& path, const std::vector<unsigned char>& octets) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(octets.data()), static_cast<std::streamsize>(octets.size()));
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path.string());
}
