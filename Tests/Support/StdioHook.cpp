// SPDX-License-Identifier: MIT
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

// The C library's function of that name, which the one below hides.
template <class Function>
Function* Hidden(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Never destroyed: files are opened before main and after it too.
template <class Signature>
using Hook = std::function<Signature>*;
Hook<std::FILE*(const std::string&, const char*)> g_Open = nullptr;
Hook<std::size_t(const void*, std::size_t, std::size_t, std::FILE*)> g_Write = nullptr;
Hook<int(std::FILE*, off_t, int)> g_Seek = nullptr;
Hook<int(std::FILE*)> g_Flush = nullptr;
Hook<int(std::FILE*)> g_Close = nullptr;

template <class Signature>
void Replace(Hook<Signature>& hook, std::function<Signature> function) {
    delete std::exchange(hook, function ? new auto(std::move(function)) : nullptr);
}

} // namespace

std::FILE* StdioHook::Open(const char* path, const char* mode) {
    static const auto hidden = Hidden<std::FILE*(const char*, const char*)>(kOpen);
    return hidden(path, mode);
}

std::size_t StdioHook::Write(const void* octets, std::size_t size, std::size_t count, std::FILE* stream) {
    static const auto hidden = Hidden<std::size_t(const void*, std::size_t, std::size_t, std::FILE*)>("fwrite");
    return hidden(octets, size, count, stream);
}

int StdioHook::Seek(std::FILE* stream, off_t offset, int origin) {
    static const auto hidden = Hidden<int(std::FILE*, off_t, int)>(kSeek);
    return hidden(stream, offset, origin);
}

int StdioHook::Flush(std::FILE* stream) {
    static const auto hidden = Hidden<int(std::FILE*)>("fflush");
    return hidden(stream);
}

int StdioHook::Close(std::FILE* stream) {
    static const auto hidden = Hidden<int(std::FILE*)>("fclose");
    return hidden(stream);
}

void StdioHook::SetOpen(std::function<std::FILE*(const std::string&, const char*)> open) {
    Replace(g_Open, std::move(open));
}
void StdioHook::SetWrite(std::function<std::size_t(const void*, std::size_t, std::size_t, std::FILE*)> write) {
    Replace(g_Write, std::move(write));
}
void StdioHook::SetSeek(std::function<int(std::FILE*, off_t, int)> seek) { Replace(g_Seek, std::move(seek)); }
void StdioHook::SetFlush(std::function<int(std::FILE*)> flush) { Replace(g_Flush, std::move(flush)); }
void StdioHook::SetClose(std::function<int(std::FILE*)> close) { Replace(g_Close, std::move(close)); }

extern "C" {

std::FILE* fopen(const char* path, const char* mode) {
    return g_Open != nullptr ? (*g_Open)(path, mode) : StdioHook::Open(path, mode);
}

std::size_t fwrite(const void* octets, std::size_t size, std::size_t count, std::FILE* stream) {
    return g_Write != nullptr ? (*g_Write)(octets, size, count, stream) : StdioHook::Write(octets, size, count, stream);
}

int fseeko(std::FILE* stream, off_t offset, int origin) {
    return g_Seek != nullptr ? (*g_Seek)(stream, offset, origin) : StdioHook::Seek(stream, offset, origin);
}

int fflush(std::FILE* stream) { return g_Flush != nullptr ? (*g_Flush)(stream) : StdioHook::Flush(stream); }

int fclose(std::FILE* stream) { return g_Close != nullptr ? (*g_Close)(stream) : StdioHook::Close(stream); }
}
