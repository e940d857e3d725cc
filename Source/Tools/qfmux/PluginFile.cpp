// SPDX-License-Identifier: MIT
#include "PluginFile.h"

#include <exception>
#include <filesystem>
#include <string>
#include <utility>

#include "ToolError.h"

namespace {

std::wstring WideName(const std::filesystem::path& path) {
    try {
        return path.wstring();
    } catch (const std::exception&) {
        throw ToolError(kExitOutput, "cannot write to '" + path.parent_path().parent_path().string() +
                                         "': its name is not UTF-8, which the plug-in requires");
    }
}

} // namespace

PluginFile::PluginFile(HostCalls& host, const StagedFile& output, const EncodeParam& param)
    : m_Host(host), m_pHandle(host.CreateMediaFile(WideName(output.Path()), param)) {
    if (m_pHandle == nullptr) throw ToolError(kExitOutput, "the plug-in cannot create its file");
}

PluginFile::~PluginFile() {
    try {
        Close();
    } catch (const RecordError&) { // another error is on its way
    }
}

void PluginFile::Close() {
    if (m_pHandle != nullptr) m_Host.CloseMediaFile(std::exchange(m_pHandle, nullptr));
}
