// SPDX-License-Identifier: MIT
// Records a host's calls to the plug-in, and replays them.
//
// A session is a text file with one JSON object in each line, and a second file beside it with the payloads.
// Docs/SessionFormat.md describes both. The host's own parts of records are not recorded: the plug-in does not read
// them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "Plugin.h"
#include "ToolError.h"

// Errors of sessions are std::runtime_error with a line for the user.

class RecordError : public ToolError {
public:
    explicit RecordError(const std::string& message) : ToolError(kExitOutput, message) {}
};

// Throws RecordError, once, when the record cannot be written. Later calls are not recorded.
class SessionWriter {
public:
    // Creates the session's text at path and its payloads at path + ".payload". Existing files are replaced only with
    // overwrite.
    SessionWriter(const std::string& path, const std::string& pluginVersion, bool overwrite);

    // Stores octets and returns the reference that goes into the call's line. Null stays null.
    nlohmann::json Store(const void* data, std::int64_t size);
    void Write(const nlohmann::json& line);
    // Flushes both files.
    void Flush();

private:
    [[noreturn]] void Fail();
    using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;
    static File Create(const std::string& path, bool overwrite);

    File m_Text;
    File m_Payload;
    std::uint64_t m_PayloadSize = 0;
    bool m_HasFailed = false;
};

// Passes calls on to one plug-in and, when there is a writer, records each call with its result.
class HostCalls {
public:
    explicit HostCalls(const Plugin& plugin, std::unique_ptr<SessionWriter> writer = nullptr)
        : m_Plugin(plugin), m_Writer(std::move(writer)) {}

    int SetMuxParam(MuxParam* param);
    void* CreateMediaFile(const std::wstring& path, const EncodeParam& param);
    int WriteVideoPacket(void* handle, const MEDIA_FRAME& frame);
    int WriteAudioPacket(void* handle, const MEDIA_FRAME& frame, int* frameSizes);
    void WriteVosData(void* handle, std::vector<std::uint8_t> data);
    void WritezXPSData(void* handle, std::vector<std::uint8_t> pictureSet, std::vector<std::uint8_t> sequenceSet);
    void CloseMediaFile(void* handle);

private:
    void Record(const nlohmann::json& line);
    int FileNumber(void* handle) const;

    const Plugin& m_Plugin;
    std::unique_ptr<SessionWriter> m_Writer;
    std::map<void*, int> m_Files; // the numbers of open handles, in the order of creation
    int m_FileCount = 0;
};

// Makes the calls of the session at path. Files are created at output, those after the first at output + ".2", ...
// overwrite: existing files are replaced; without it an existing file is a ToolError.
// onResult, if given, gets each line, the line's number from 1 and the result of the call (null when the call has
// none). When it returns false the replay closes the open files and ends.
void ReplaySession(
    const Plugin& plugin, const std::string& path, const std::string& output, bool overwrite,
    const std::function<bool(const nlohmann::json& line, int number, const nlohmann::json& result)>& onResult);
