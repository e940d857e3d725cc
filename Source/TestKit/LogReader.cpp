// SPDX-License-Identifier: MIT
#include "LogReader.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>

namespace {

std::string BesideTheProgram(const char* name) {
    return (std::filesystem::read_symlink("/proc/self/exe").parent_path() / name).string();
}

} // namespace

LogReader::LogReader(const char* name) : m_pLibrary(dlopen(BesideTheProgram(name).c_str(), RTLD_NOW)) {
    if (m_pLibrary == nullptr) throw std::runtime_error(dlerror());
    m_pTake = reinterpret_cast<decltype(m_pTake)>(dlsym(m_pLibrary, "TakeLogMessage"));
    if (m_pTake == nullptr) throw std::runtime_error("the log double has no TakeLogMessage");
    Take();
}

LogReader::~LogReader() { dlclose(m_pLibrary); }

std::vector<std::wstring> LogReader::Take() {
    std::vector<std::wstring> messages;
    std::wstring buffer(8192, L'\0');
    while (m_pTake(buffer.data(), buffer.size())) messages.emplace_back(buffer.c_str());
    return messages;
}

bool LogReader::IsLoaded(const char* name) {
    void* const library = dlopen(BesideTheProgram(name).c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (library == nullptr) return false;
    dlclose(library);
    return true;
}
