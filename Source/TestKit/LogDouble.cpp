// SPDX-License-Identifier: MIT
// A double of the host's log. It keeps messages for the test program beside which it lies.
#include <cstdarg>
#include <cwchar>
#include <string>
#include <vector>

namespace {

std::vector<std::wstring>& Messages() {
    static std::vector<std::wstring> messages;
    return messages;
}

// The host's %s takes a wide string, which the C library spells %ls.
std::wstring WithWideStrings(const wchar_t* format) {
    std::wstring text = format;
    for (std::size_t at = text.find(L"%s"); at != std::wstring::npos; at = text.find(L"%s", at + 3)) {
        text.replace(at, 2, L"%ls");
    }
    return text;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) void TWLog(const wchar_t* message) {
    Messages().push_back(std::wstring(L"TWLog: ") + message);
}

__attribute__((visibility("default"))) void TWLogEx(const wchar_t* format, ...) {
    wchar_t buffer[8192];
    std::va_list arguments;
    va_start(arguments, format);
    const int length =
        std::vswprintf(buffer, sizeof buffer / sizeof buffer[0], WithWideStrings(format).c_str(), arguments);
    va_end(arguments);
    Messages().push_back(L"TWLogEx: " + (length < 0 ? std::wstring(L"(unprintable)") : std::wstring(buffer)));
}

// Moves the oldest message, behind the name of the function that logged it, into the buffer. Returns false when there
// is none.
__attribute__((visibility("default"))) bool TakeLogMessage(wchar_t* buffer, std::size_t capacity) {
    if (Messages().empty()) return false;
    std::swprintf(buffer, capacity, L"%ls", Messages().front().c_str());
    Messages().erase(Messages().begin());
    return true;
}
}
