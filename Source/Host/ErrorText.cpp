// SPDX-License-Identifier: MIT
#include "ErrorText.h"

#include <pthread.h>

#include <cstdlib>
#include <cstring>

namespace QfHost {

namespace {

char g_NoMemory[] = "there is not enough memory, not even for the text of the error";

void FreeText(void* text) {
    if (text != g_NoMemory) std::free(text);
}

class TextKey {
public:
    TextKey() : m_IsMade(pthread_key_create(&m_Key, FreeText) == 0) {}
    const char* Get() const { return m_IsMade ? static_cast<const char*>(pthread_getspecific(m_Key)) : nullptr; }
    void Set(const char* text) const {
        if (!m_IsMade) return;
        FreeText(pthread_getspecific(m_Key));
        char* const copy = strdup(text);
        // cppcheck-suppress memleak ; the thread owns the text from here, and FreeText frees it
        if (pthread_setspecific(m_Key, copy != nullptr ? copy : g_NoMemory) == 0) return;
        std::free(copy);
        pthread_setspecific(m_Key, nullptr);
    }

private:
    pthread_key_t m_Key{};
    bool m_IsMade;
};

const TextKey& Key() {
    static const TextKey key;
    return key;
}

} // namespace

void SetErrorText(const char* text) noexcept { Key().Set(text); }

const char* GetErrorText() noexcept {
    const char* const text = Key().Get();
    return text != nullptr ? text : "";
}

} // namespace QfHost
