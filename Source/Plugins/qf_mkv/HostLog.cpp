// SPDX-License-Identifier: MIT
#include "HostLog.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>

namespace {

// No heap here: memory may be short when a message is logged.
void* LoadLogLibrary() {
    char path[PATH_MAX + 32];
    const ssize_t length = readlink("/proc/self/exe", path, PATH_MAX);
    char* name = path + std::max<ssize_t>(length, 0);
    while (name != path && name[-1] != '/') --name;
    if (name == path) return nullptr;
    for (const char* candidate : {"TW_Log.so", "libTW_Log.so"}) {
        std::snprintf(name, sizeof path - static_cast<std::size_t>(name - path), "%s", candidate);
        if (void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL)) return library;
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
