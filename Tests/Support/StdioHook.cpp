#include "StdioHook.h"

#include <dlfcn.h>

#include <utility>

namespace {

// With 64-bit offsets on a 32-bit machine the C library's header makes fopen and fseeko these symbols.
#ifdef __USE_FILE_OFFSET64
constexpr const char* kOpen = "fopen64";
constexpr const char* kSeek = "fseeko64";
#else
constexpr const char* kOpen = "fopen";
constexpr const char* kSeek = "fseeko";
#endif

// Never destroyed: files are opened before main and after it too.
std::function<std::FILE*(const std::string&, const char*)>* g_Open = nullptr;
std::function<void(bool)>* g_Seek = nullptr;

} // namespace

std::FILE* StdioHook::Open(const char* path, const char* mode) {
    static const auto hidden = reinterpret_cast<decltype(&std::fopen)>(dlsym(RTLD_NEXT, kOpen));
    return hidden(path, mode);
}

void StdioHook::SetOpen(std::function<std::FILE*(const std::string&, const char*)> open) {
    delete std::exchange(g_Open, open ? new auto(std::move(open)) : nullptr);
}

void StdioHook::SetSeek(std::function<void(bool)> seek) {
    delete std::exchange(g_Seek, seek ? new auto(std::move(seek)) : nullptr);
}

extern "C" {

std::FILE* fopen(const char* path, const char* mode) {
    return g_Open != nullptr ? (*g_Open)(path, mode) : StdioHook::Open(path, mode);
}

int fseeko(std::FILE* stream, off_t offset, int origin) {
    static const auto hidden = reinterpret_cast<decltype(&::fseeko)>(dlsym(RTLD_NEXT, kSeek));
    if (g_Seek != nullptr) (*g_Seek)(false);
    const int result = hidden(stream, offset, origin);
    if (g_Seek != nullptr) (*g_Seek)(true);
    return result;
}
}
