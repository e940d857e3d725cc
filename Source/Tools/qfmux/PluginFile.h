// SPDX-License-Identifier: MIT
// Owns the plug-in's handle of the file and closes it.
#pragma once

#include "Session.h"
#include "StagedFile.h"

class PluginFile {
public:
    // Throws ToolError when the plug-in does not create its file.
    PluginFile(HostCalls& host, const StagedFile& output, const EncodeParam& param);
    ~PluginFile();
    PluginFile(const PluginFile&) = delete;
    PluginFile& operator=(const PluginFile&) = delete;

    void* Handle() const { return m_pHandle; }
    void Close();

private:
    HostCalls& m_Host;
    void* m_pHandle;
};
