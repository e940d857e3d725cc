// The C library's calls for opening and seeking, as a plug-in that the test program loads makes them: a test may take
// their place. Until it does they are the C library's.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

namespace StdioHook {

// The C library's own fopen.
std::FILE* Open(const char* path, const char* mode);

// What fopen does from now on, in the whole program; empty for the C library's.
void SetOpen(std::function<std::FILE*(const std::string& path, const char* mode)> open);

// Called before and after each fseeko from now on; empty for nothing.
void SetSeek(std::function<void(bool done)> seek);

} // namespace StdioHook
