// SPDX-License-Identifier: MIT
// The C library's calls for output files, made by a plug-in that the test program loads. A test may replace them; until
// then they are the C library's own.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

namespace StdioHook {

// The C library's own.
std::FILE* Open(const char* path, const char* mode);
std::size_t Write(const void* octets, std::size_t size, std::size_t count, std::FILE* stream);
int Seek(std::FILE* stream, off_t offset, int origin);
int Flush(std::FILE* stream);
int Close(std::FILE* stream);

// Replaces fopen, fwrite, fseeko, fflush and fclose from now on, in the whole program; empty for the C library's.
// Octets that a caller puts into the stream's buffer by itself (putc_unlocked) pass SetWrite by.
void SetOpen(std::function<std::FILE*(const std::string& path, const char* mode)> open);
void SetWrite(std::function<std::size_t(const void*, std::size_t size, std::size_t count, std::FILE*)> write);
void SetSeek(std::function<int(std::FILE*, off_t offset, int origin)> seek);
void SetFlush(std::function<int(std::FILE*)> flush);
void SetClose(std::function<int(std::FILE*)> close);

} // namespace StdioHook
