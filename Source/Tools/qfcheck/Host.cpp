#include "Host.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

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

void Trail::Enter(const std::string& function) const {
    const std::string line = ">" + function + "\n";
    if (write(m_Descriptor, line.data(), line.size()) < 0) return; // nobody watches
}

void Trail::Leave() const {
    if (write(m_Descriptor, "<\n", 2) < 0) return;
}

void Host::Load() {
    if (m_pLibrary != nullptr) return;
    m_Trail.Enter("dlopen");
    m_pLibrary = dlopen(m_Plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    m_Trail.Leave();
    if (m_pLibrary == nullptr) throw Failure(std::string("the loader says: ") + dlerror());
}

void* Host::Data(const char* name) {
    Load();
    void* const address = dlsym(m_pLibrary, name);
    if (address == nullptr) throw Failure(std::string("the plug-in does not export ") + name);
    return address;
}

void* Host::Function(const char* function) { return Data(Interface::ExportOf(function)); }

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
        return entry(arguments...);
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
