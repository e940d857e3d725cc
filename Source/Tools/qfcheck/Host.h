// SPDX-License-Identifier: MIT
// The host of a check: loads the library, calls its functions by their documented names and notices forbidden side
// effects at once.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Interface.h"

// What is wrong with the plug-in, in words for its developer.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Why a check cannot be made with this plug-in.
class CannotCheck : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

void Require(bool condition, const std::string& text);

std::string Text(long long value);
std::string Text(unsigned long long value);
inline std::string Text(int value) { return Text(static_cast<long long>(value)); }
inline std::string Text(long value) { return Text(static_cast<long long>(value)); }
inline std::string Text(unsigned value) { return Text(static_cast<unsigned long long>(value)); }
inline std::string Text(unsigned long value) { return Text(static_cast<unsigned long long>(value)); }
std::string Text(double value);
std::string Text(const void* value);
std::string Text(const std::string& value);
std::string Text(const std::wstring& value);
std::string Text(const Octets& value); // up to 32 octets

template <class Actual, class Expected>
void RequireEqual(const Actual& actual, const Expected& expected, const std::string& what) {
    const Actual wanted(expected);
    if (!(actual == wanted)) throw Failure(what + " is " + Text(actual) + ", expected " + Text(wanted));
}

using FourCC = std::uint32_t;

// "MKV ": the first character in the lowest octet.
FourCC Code(const std::string& text);
std::string CodeText(FourCC code);

// Records which function of the plug-in is running. The record outlives the process: it lies in a file that the
// watching process has opened.
class Trail {
public:
    // descriptor: of that file. Throws std::runtime_error when it cannot be mapped.
    explicit Trail(int descriptor);
    // A new file without a name. Throws std::runtime_error.
    static int MakeFile();

    void Clear() const;
    void Enter(const std::string& function) const;
    void Leave() const;

    // The function that is running, or was when the process ended; empty for none.
    std::string Function() const;
    // The number of functions entered so far.
    unsigned Count() const;

private:
    struct Marks {
        std::atomic<unsigned> m_Count;
        char m_Name[252];
    };

    Marks* m_pMarks;
};

using Interface::Record;
using ProgressFunction = unsigned int(void*, unsigned int, unsigned int, unsigned int);

class Host {
public:
    Host(std::string plugin, std::filesystem::path directory, Trail trail)
        : m_Plugin(std::move(plugin)), m_Directory(std::move(directory)), m_Trail(trail) {}

    const std::string& PluginPath() const { return m_Plugin; }
    // The check's own directory: empty at first, removed after the check.
    const std::filesystem::path& Directory() const { return m_Directory; }
    std::wstring PathOf(const std::string& name) const { return (m_Directory / name).wstring(); }

    const Trail& Marks() const { return m_Trail; }

    // Calls functions of the plug-in from now on: gets the plain name and the call, and must make the call. An empty
    // Manner calls directly. May throw a Failure.
    using Manner = std::function<void(const std::string& function, const std::function<void()>& call)>;
    void CallBy(Manner manner) { m_Manner = std::move(manner); }

    // Loads the plug-in unless it is loaded. Throws a Failure with the loader's message.
    void Load();
    // Gives the library back to the loader.
    void Unload();

    // The address of an exported name. Throws a Failure if there is none. function: the plain name.
    void* Data(const char* name);
    void* Function(const char* function);

    FourCC* IsWebm() { return static_cast<FourCC*>(Data("IsWebm")); }

    // The functions. None may change a record or a table that it only reads, and none may throw.
    void* GetFileFormats();
    void* GetEncoders();
    int GetMultiVersion(char* buffer);
    int FindFileFormat(unsigned long format);
    void* CreateEncoder(unsigned long code, const Record* job);
    int Encode(void* encoder, const Record* frame, void** outFrame, int** outSizes);
    void DestroyEncoder(void* encoder);
    int ReviseAudioParam(const Record* param);
    int SetMuxParam(const Record* param);
    void* CreateMediaFile(const wchar_t* path, const Record* job);
    int WriteVideoPacket(void* handle, const Record* frame);
    int WriteAudioPacket(void* handle, const Record* frame, int* frameSizes);
    void WriteVosData(void* handle, unsigned char* data, int length);
    void WritezXPSData(void* handle, unsigned char* picture, int pictureLength, unsigned char* sequence,
                       int sequenceLength);
    void CloseMediaFile(void* handle, ProgressFunction* progress = nullptr, void* argument = nullptr);

private:
    template <class Result, class... Arguments>
    Result Call(const char* function, Arguments... arguments);
    template <class Result, class... Arguments>
    Result CallReading(const Record* record, const char* function, Arguments... arguments);

    std::string m_Plugin;
    std::filesystem::path m_Directory;
    Trail m_Trail;
    Manner m_Manner;
    void* m_pLibrary = nullptr;
    std::map<const char*, void*> m_Functions; // by the place of their plain names
};
