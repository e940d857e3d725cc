// SPDX-License-Identifier: MIT
#include "PluginPool.h"

#include "MKVInterface.h"

namespace QfHost {

PluginPool::Copy::Copy(const PluginFile& file) : m_Library(file, PluginLibrary::Private{}) {
    decltype(&GetFileFormats) getFileFormats = nullptr;
    m_Library.Find(getFileFormats, "GetFileFormats");
    m_pFormats = getFileFormats();
}

const FileFormatInfo* PluginPool::Copy::Format(FourCC fourCC) const {
    for (const FileFormatInfo* format = m_pFormats; format->fourCC != 0; ++format) {
        if (format->fourCC == fourCC) return format;
    }
    return nullptr;
}

PluginPool::PluginPool(const std::string& path) : m_File(path) {
    m_Idle.emplace_back(m_File);
    m_pFirst = &m_Idle.front();
    decltype(&GetMultiVersion) getVersion = nullptr;
    m_pFirst->m_Library.Find(getVersion, "GetMultiVersion");
    char version[64] = "";
    getVersion(version);
    m_Version = version;
}

PluginPool::Loan PluginPool::Take() {
    Loan loan;
    {
        const std::lock_guard lock(m_Mutex);
        if (!m_Idle.empty()) loan.splice(loan.end(), m_Idle, m_Idle.begin());
    }
    if (loan.empty()) loan.emplace_back(m_File);
    return loan;
}

void PluginPool::GiveBack(Loan& loan) noexcept {
    const std::lock_guard lock(m_Mutex);
    m_Idle.splice(m_Idle.begin(), loan);
}

} // namespace QfHost
