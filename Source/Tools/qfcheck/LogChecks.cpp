// SPDX-License-Identifier: MIT
// Every message of the plug-in, the log function that receives it, and the places where the plug-in looks for the log.
#include <dlfcn.h>

#include "Check.h"
#include "HeapMeter.h"
#include "LogReader.h"
#include "OutputFile.h"

namespace {

using Messages = std::vector<std::wstring>;

void RequireMessages(LogReader& log, const Messages& expected, const std::string& what) {
    const Messages actual = log.Take();
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i) {
        RequireEqual(actual[i], expected[i], what + ": the message");
    }
    if (actual.size() > expected.size()) throw Failure(what + ": a message too many, " + Text(actual[expected.size()]));
    if (actual.size() < expected.size()) throw Failure(what + ": no message " + Text(expected[actual.size()]));
}

const Messages kReturnFormats = {L"TWLogEx: qf_mkv.dll: Return file formats..."};

void FormatsAreLogged(Host& host) {
    LogReader log("TW_Log.so");
    host.GetFileFormats();
    RequireMessages(log, kReturnFormats, "GetFileFormats");
    host.GetFileFormats();
    RequireMessages(log, kReturnFormats, "GetFileFormats again");
}

void FirstName(Host& host) {
    LogReader log("TW_Log.so");
    host.GetFileFormats();
    RequireMessages(log, kReturnFormats, "GetFileFormats");
    Require(!LogReader::IsLoaded("libTW_Log.so"), "libTW_Log.so was loaded although TW_Log.so is there");
}

void SecondName(Host& host) {
    LogReader log("libTW_Log.so");
    host.GetFileFormats();
    RequireMessages(log, kReturnFormats, "GetFileFormats");
}

// A log in the current directory is not the host's.
void BesideTheProgramOnly(Host& host) {
    host.GetFileFormats();
    void* const other = dlopen((host.Directory() / "TW_Log.so").c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (other != nullptr) dlclose(other);
    Require(other == nullptr, "a TW_Log.so in the current directory was loaded");
    OutputFile output(host, MakeJob("MKV ", "Xvid", ""));
    output.TakeVideo(Hex("01 02"), 0);
    output.Finish();
}

void UnknownFormat(Host& host) {
    LogReader log("TW_Log.so");
    for (const wchar_t* code : {L"AVI ", L"mkv ", L"%s%d"}) {
        const std::wstring wide = code;
        const std::string format(wide.begin(), wide.end());
        const Record job = MakeJob(format, "H264", "AAC ");
        host.CreateMediaFile(host.PathOf("file").c_str(), &job);
        RequireMessages(log, {L"TWLogEx: qf_mkv.dll: Can't find the file format[" + wide + L"]."},
                        "CreateMediaFile of " + Text(format));
    }
    // The code's octets are read as UTF-8, up to the first invalid octet.
    const struct {
        const char* m_Code;
        const wchar_t* m_Wide;
    } rows[] = {{"\xC3\xA4\xC3\xB6", L"\u00E4\u00F6"},
                {"\xF0\x9F\x98\x80", L"\U0001F600"},
                {"a\xE4\xB8\x96", L"a\u4E16"},
                {"ab\xC3 ", L"ab"},
                {"\xFFxyz", L""},
                {"AB", L"AB"}};
    for (const auto& row : rows) {
        Record job = MakeJob("MKV ", "H264", "AAC ");
        job.Set("formatFourCC", Code(row.m_Code));
        host.CreateMediaFile(host.PathOf("file").c_str(), &job);
        RequireMessages(log, {L"TWLogEx: qf_mkv.dll: Can't find the file format[" + std::wstring(row.m_Wide) + L"]."},
                        "CreateMediaFile of a code beyond ASCII");
    }
}

void FileThatDoesNotOpen(Host& host) {
    LogReader log("TW_Log.so");
    for (const char* format : kFormats) {
        const Record job = MakeJob(format, "H264", "AAC ");
        for (const std::wstring& name : {std::wstring(L"none/a.mkv"), std::wstring(L"none/100%s%n%d%%.mkv"),
                                         std::wstring(L"nirgendwo \u00E4\u4E16\U0001F600/a.mkv")}) {
            const std::wstring path = host.PathOf("") + name;
            host.CreateMediaFile(path.c_str(), &job);
            RequireMessages(log, {L"TWLogEx: qf_mkv.dll: Create media file[" + path + L"] failed"},
                            std::string("CreateMediaFile of ") + format + " where it cannot be");
        }
    }
}

void NoMemory(Host& host) {
    LogReader log("TW_Log.so");
    host.GetFileFormats(); // the log is loaded
    log.Take();
    for (const char* format : kFormats) {
        const std::wstring path = host.PathOf("file");
        const Record job = MakeJob(format, "H264", "AAC ");
        HeapMeter::RefuseNothrow(true);
        void* const handle = host.CreateMediaFile(path.c_str(), &job);
        HeapMeter::RefuseNothrow(false);
        if (HeapMeter::Refused() == 0) throw CannotCheck("the plug-in has an operator new of its own");
        Require(handle == nullptr, "CreateMediaFile returned a handle without memory for one");
        RequireMessages(log, {L"TWLog: qf_mkv.dll: Not enough memory to create avi writer."},
                        std::string("CreateMediaFile of ") + format + " without memory");
    }
}

void NoOtherCall(Host& host) {
    LogReader log("TW_Log.so");
    host.FindFileFormat(Code("AVI "));
    host.GetEncoders();
    host.SetMuxParam(nullptr);
    const Record job = MakeJob("AVI ", "", "");
    const std::wstring path = host.PathOf("file");
    host.CreateMediaFile(nullptr, &job);
    host.CreateMediaFile(path.c_str(), nullptr);
    host.CreateMediaFile(nullptr, nullptr);
    const Record frame("MEDIA_FRAME");
    host.WriteVideoPacket(nullptr, &frame);
    host.WriteAudioPacket(nullptr, &frame, nullptr);
    host.CloseMediaFile(nullptr);
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "H264", "AAC "));
        host.WriteVideoPacket(output.Handle(), nullptr);
        output.TakeVideo(Hex("00 00 00 01 65"), 0);
        output.TakeAudio(Hex("01"), 0);
        output.Close();
    }
    RequireMessages(log, {}, "calls that say nothing");
}

} // namespace

std::vector<Check> LogChecks() {
    return {
        {"log.formats", "GetFileFormats is logged", FormatsAreLogged, Log::FirstName},
        {"log.first-name", "TW_Log.so beside the program is taken before libTW_Log.so", FirstName, Log::BothNames},
        {"log.second-name", "libTW_Log.so is taken when it is alone", SecondName, Log::SecondName},
        {"log.beside-only", "without a log beside the program all calls work, and no other log is taken",
         BesideTheProgramOnly, Log::None},
        {"log.unknown-format", "a message names the format that is not in the table", UnknownFormat, Log::FirstName},
        {"log.not-opened", "a message names the file that does not open, whatever its name", FileThatDoesNotOpen,
         Log::FirstName},
        {"log.no-memory", "a message reports that there is no memory for a file", NoMemory, Log::FirstName},
        {"log.nothing-else", "no other call is logged", NoOtherCall, Log::FirstName},
    };
}
