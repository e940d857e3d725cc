#include "HostLog.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <string>

namespace {

// The directory of the running executable, with its last slash; empty when the system does not tell.
std::string ExecutableDirectory() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return {};
    const std::string text(path, static_cast<std::size_t>(length));
    return text.substr(0, text.rfind('/') + 1);
}

void* LoadLogLibrary() {
    const std::string directory = ExecutableDirectory();
    if (directory.empty()) return nullptr;
    for (const char* name : {"TW_Log.so", "libTW_Log.so"}) {
        if (void* const library = dlopen((directory + name).c_str(), RTLD_NOW | RTLD_LOCAL)) return library;
    }
    return nullptr;
}

void Silent(const wchar_t*) {}
void SilentEx(const wchar_t*, ...) {}

HostLog Load() {
    HostLog log{Silent, SilentEx};
    if (void* const library = LoadLogLibrary()) {
        if (void* const function = dlsym(library, "TWLog")) log.TWLog = reinterpret_cast<decltype(log.TWLog)>(function);
        if (void* const function = dlsym(library, "TWLogEx")) {
            log.TWLogEx = reinterpret_cast<decltype(log.TWLogEx)>(function);
        }
    }
    return log;
}

} // namespace

const HostLog& HostLog::Get() {
    static const HostLog log = Load();
    return log;
}
