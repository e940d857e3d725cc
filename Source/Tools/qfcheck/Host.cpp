// SPDX-License-Identifier: MIT
#include "Host.h"

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <type_traits>

#include "PluginLibrary.h"

void Require(bool condition, const std::string& text) {
    if (!condition) throw Failure(text);
}

std::string Text(long long value) { return std::to_string(value); }
std::string Text(unsigned long long value) { return std::to_string(value); }

std::string Text(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string Text(const void* value) {
    std::ostringstream text;
    if (value == nullptr) return "null";
    text << value;
    return text.str();
}

std::string Text(const std::string& value) { return '"' + value + '"'; }

// UTF-8, whatever the locale and whatever the text.
std::string Text(const std::wstring& value) {
    std::u32string text;
    for (const wchar_t c : value) {
        const auto code = static_cast<char32_t>(c);
        text += code > 0x10FFFF || (code >= 0xD800 && code < 0xE000) ? U'\uFFFD' : code;
    }
    return Text(std::filesystem::path(text).string());
}

std::string Text(const Octets& value) {
    constexpr std::size_t kShown = 32;
    std::string text = Text(value.size()) + " octets";
    for (std::size_t i = 0; i < std::min(value.size(), kShown); ++i) {
        char digits[8];
        std::snprintf(digits, sizeof digits, "%s%02X", i == 0 ? ": " : " ", value[i]);
        text += digits;
    }
    return value.size() > kShown ? text + " ..." : text;
}

FourCC Code(const std::string& text) {
    FourCC code = 0;
    for (std::size_t i = text.size(); i > 0; --i) code = code << 8 | static_cast<unsigned char>(text[i - 1]);
    return code;
}

std::string CodeText(FourCC code) {
    std::string text;
    for (FourCC rest = code; text.size() < 4; rest /= 256) text += static_cast<char>(rest % 256);
    return text;
}

Trail::Trail(int descriptor) {
    void* const memory = mmap(nullptr, sizeof(Marks), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED) throw std::runtime_error(std::string("mmap: ") + std::strerror(errno));
    m_pMarks = static_cast<Marks*>(memory); // zeros
}

int Trail::MakeFile() {
    const int descriptor = memfd_create("qfcheck-trail", MFD_CLOEXEC);
    if (descriptor < 0 || ftruncate(descriptor, sizeof(Marks)) != 0) {
        throw std::runtime_error(std::string("cannot watch a process: ") + std::strerror(errno));
    }
    return descriptor;
}

void Trail::Clear() const {
    m_pMarks->m_Count = 0;
    Leave();
}

void Trail::Enter(const std::string& function) const {
    ++m_pMarks->m_Count;
    std::snprintf(m_pMarks->m_Name, sizeof m_pMarks->m_Name, "%s", function.c_str());
}

void Trail::Leave() const { m_pMarks->m_Name[0] = '\0'; }

std::string Trail::Function() const { return {m_pMarks->m_Name, strnlen(m_pMarks->m_Name, sizeof m_pMarks->m_Name)}; }

unsigned Trail::Count() const { return m_pMarks->m_Count; }

void Host::Load() {
    if (m_pLibrary != nullptr) return;
    m_Trail.Enter("dlopen");
    try {
        m_pLibrary = QfHost::LoadLibrary(QfHost::PluginFile(m_Plugin));
    } catch (const std::runtime_error& error) {
        m_Trail.Leave();
        throw Failure(std::string("the loader says: ") + error.what());
    }
    m_Trail.Leave();
}

void Host::Unload() {
    m_Trail.Enter("dlclose");
    const int result = dlclose(m_pLibrary);
    m_Trail.Leave();
    m_pLibrary = nullptr;
    m_Functions.clear();
    if (result != 0) throw Failure(std::string("the loader says: ") + dlerror());
}

void* Host::Data(const char* name) {
    Load();
    void* const address = dlsym(m_pLibrary, name);
    if (address == nullptr) throw Failure(std::string("the plug-in does not export ") + name);
    return address;
}

void* Host::Function(const char* function) {
    void*& address = m_Functions[function];
    if (address == nullptr) address = Data(Interface::ExportOf(function));
    return address;
}

template <class Result, class... Arguments>
Result Host::Call(const char* function, Arguments... arguments) {
    auto* const entry = reinterpret_cast<Result (*)(Arguments...)>(Function(function));
    struct Mark {
        const Trail& m_Trail;
        ~Mark() { m_Trail.Leave(); }
    };
    m_Trail.Enter(function);
    const Mark mark{m_Trail};
    try {
        if (!m_Manner) return entry(arguments...);
        if constexpr (std::is_void_v<Result>) {
            m_Manner(function, [&] { entry(arguments...); });
        } else {
            Result result{};
            m_Manner(function, [&] { result = entry(arguments...); });
            return result;
        }
    } catch (const Failure&) {
        throw;
    } catch (const std::exception& error) {
        throw Failure(std::string(function) + " threw an exception: " + error.what());
    } catch (...) {
        throw Failure(std::string(function) + " threw an exception");
    }
}

template <class Result, class... Arguments>
Result Host::CallReading(const Record* record, const char* function, Arguments... arguments) {
    const Octets before = record != nullptr ? record->Copy() : Octets{};
    const Result result = Call<Result>(function, arguments...);
    if (record != nullptr) {
        const Octets after = record->Copy();
        const auto at = std::mismatch(before.begin(), before.end(), after.begin()).first - before.begin();
        Require(before == after, std::string(function) + " wrote into the host's " + record->Type() + " at octet " +
                                     Text(static_cast<long long>(at)));
    }
    return result;
}

namespace {

// What a function of the interface sees of a record.
const void* Seen(const Record* record) { return record != nullptr ? record->Data() : nullptr; }

} // namespace

void* Host::GetFileFormats() { return Call<void*>("GetFileFormats"); }
void* Host::GetEncoders() { return Call<void*>("GetEncoders"); }
int Host::GetMultiVersion(char* buffer) { return Call<int>("GetMultiVersion", buffer); }
int Host::FindFileFormat(unsigned long format) { return Call<int>("FindFileFormat", format); }

void* Host::CreateEncoder(unsigned long code, const Record* job) {
    return CallReading<void*>(job, "CreateEncoder", code, Seen(job));
}
int Host::Encode(void* encoder, const Record* frame, void** outFrame, int** outSizes) {
    return CallReading<int>(frame, "Encode", encoder, Seen(frame), outFrame, outSizes);
}
void Host::DestroyEncoder(void* encoder) { Call<void>("DestroyEncoder", encoder); }
int Host::ReviseAudioParam(const Record* param) { return CallReading<int>(param, "ReviseAudioParam", Seen(param)); }
int Host::SetMuxParam(const Record* param) { return CallReading<int>(param, "SetMuxParam", Seen(param)); }

void* Host::CreateMediaFile(const wchar_t* path, const Record* job) {
    return CallReading<void*>(job, "CreateMediaFile", path, Seen(job));
}
int Host::WriteVideoPacket(void* handle, const Record* frame) {
    return CallReading<int>(frame, "WriteVideoPacket", handle, Seen(frame));
}
int Host::WriteAudioPacket(void* handle, const Record* frame, int* frameSizes) {
    return CallReading<int>(frame, "WriteAudioPacket", handle, Seen(frame), frameSizes);
}
void Host::WriteVosData(void* handle, unsigned char* data, int length) {
    Call<void>("WriteVosData", handle, data, length);
}
void Host::WritezXPSData(void* handle, unsigned char* picture, int pictureLength, unsigned char* sequence,
                         int sequenceLength) {
    Call<void>("WritezXPSData", handle, picture, pictureLength, sequence, sequenceLength);
}
void Host::CloseMediaFile(void* handle, ProgressFunction* progress, void* argument) {
    Call<void>("CloseMediaFile", handle, progress, argument);
}
