// SPDX-License-Identifier: MIT
// Reads the messages that a log double beside the running program received.
#pragma once

#include <string>
#include <vector>

class LogReader {
public:
    // name: of the double's file, in the directory of the running program. Throws std::runtime_error.
    explicit LogReader(const char* name);
    ~LogReader();
    LogReader(const LogReader&) = delete;
    LogReader& operator=(const LogReader&) = delete;

    // The messages since the last call, oldest first, each behind the name of the function that logged it.
    std::vector<std::wstring> Take();

    // Whether a library of this name in the directory of the running program is loaded.
    static bool IsLoaded(const char* name);

private:
    void* m_pLibrary;
    bool (*m_pTake)(wchar_t*, std::size_t);
};
