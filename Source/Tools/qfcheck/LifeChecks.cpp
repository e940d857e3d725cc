// SPDX-License-Identifier: MIT
// Files from creation to closing: failures, closing in every state, and the flag for the kind created last.
#include <sys/stat.h>

#include <set>

#include "Check.h"
#include "TempDirectory.h"
#include "Trial.h"

namespace {

namespace fs = std::filesystem;

void RequireRefused(Host& host, const wchar_t* path, const Record* job, const std::string& what) {
    RequireEqual(static_cast<const void*>(host.CreateMediaFile(path, job)), nullptr, "CreateMediaFile of " + what);
    Require(fs::is_empty(host.Directory()), "CreateMediaFile of " + what + " left a file");
}

void NullArguments(Host& host) {
    for (const char* format : kFormats) {
        const Record job = MakeJob(format, "H264", "AAC ");
        RequireRefused(host, nullptr, &job, "a null path");
        RequireRefused(host, host.PathOf("file").c_str(), nullptr, "a null job");
        RequireRefused(host, nullptr, nullptr, "nothing but null");
    }
    Trial(host, "MKV ").Run();
}

void UnknownFormats(Host& host) {
    for (const char* format : {"AVI ", "mkv ", "MKV", "", "%s%n"}) {
        const Record job = MakeJob(format, "H264", "AAC ");
        RequireRefused(host, host.PathOf("file").c_str(), &job, "format " + Text(std::string(format)));
    }
    Trial(host, "WEBM").Run();
}

void NotOpened(Host& host) {
    for (const char* format : kFormats) {
        const Record job = MakeJob(format, "H264", "AAC ");
        RequireRefused(host, host.PathOf("none/file").c_str(), &job, "a path without its directory");
        RequireRefused(host, host.Directory().wstring().c_str(), &job, "a directory");
        RequireRefused(host, L"", &job, "an empty path");
        RequireRefused(host, host.PathOf(std::string(3000, 'x')).c_str(), &job, "a name of 3000 characters");
    }
    Trial(host, "MKA ").Run();
}

// Creates and closes a file of this name in the check's directory, and returns the names that are there then.
std::set<std::string> NamesAfter(Host& host, const fs::path& directory, const std::wstring& name) {
    const Record job = MakeJob("MKV ", "Xvid", "");
    const std::wstring path = host.PathOf("") + name;
    void* const handle = host.CreateMediaFile(path.c_str(), &job);
    Require(handle != nullptr, "CreateMediaFile of " + Text(name) + " returned null");
    host.CloseMediaFile(handle);
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) {
        names.insert(entry.path().filename().string());
        fs::remove(entry.path());
    }
    return names;
}

void RequireName(const std::set<std::string>& names, const std::string& expected) {
    Require(names == std::set<std::string>{expected}, "the file's name is " +
                                                          Text(names.empty() ? "" : *names.begin()) +
                                                          ", expected the path in UTF-8, " + Text(expected));
}

void Names(Host& host) {
    const struct {
        std::wstring m_Name;
        const char* m_Utf8;
    } rows[] = {
        {L"\u00E4 \u4E16 \U0001F600.mkv", "\xC3\xA4 \xE4\xB8\x96 \xF0\x9F\x98\x80.mkv"},
        {{0x7F, 0x80, 0xFF, 0x100}, "\x7F\xC2\x80\xC3\xBF\xC4\x80"},
        {{0x7FF, 0x800, 0xFFFD, 0xFFFF}, "\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBD\xEF\xBF\xBF"},
        {{0x10000, 0x10FFFF}, "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        // Single surrogates are taken as they are; what is no character becomes U+FFFD.
        {{'a', 0xD800, 0xDFFF}, "a\xED\xA0\x80\xED\xBF\xBF"},
        {{'a', 0x110000, 'b'}, "a\xEF\xBF\xBD\x62"},
        {{'a', static_cast<wchar_t>(0x80000000U), 'b'}, "a\xEF\xBF\xBD\x62"},
        {L"%s%n 100% \\ \"'", "%s%n 100% \\ \"'"},
        {L"no extension", "no extension"},
        // Not the last extension, or not quite the one of a disc.
        {L"a.iso:b.mkv", "a.iso:b.mkv"},
        {L"a.iso", "a.iso"},
        {L"a.is:", "a.is:"},
        {L"a.isoo:", "a.isoo:"},
        {L"aiso:", "aiso:"},
    };
    for (const auto& row : rows) RequireName(NamesAfter(host, host.Directory(), row.m_Name), row.m_Utf8);
    for (const wchar_t* name : {L"a.iso:", L"a.ISO:", L"a.mkv.iSo:/b", L".iso:x"}) {
        Require(NamesAfter(host, host.Directory(), name).empty(), "a path with .iso: left a file");
    }

    // Paths are cut at 2047 octets, in front of the character that does not fit.
    fs::path directory = host.Directory();
    while (directory.string().size() < 2030) {
        const std::size_t rest = 2037 - directory.string().size();
        directory /= std::string(rest > 250 ? 200 : rest, 'd');
        fs::create_directory(directory);
    }
    const std::string deep = directory.string().substr(host.Directory().string().size() + 1) + "/";
    const std::size_t room = 2047 - directory.string().size() - 1;
    const std::wstring prefix(deep.begin(), deep.end());
    RequireName(NamesAfter(host, directory, prefix + std::wstring(room, L'x')), std::string(room, 'x'));
    RequireName(NamesAfter(host, directory, prefix + std::wstring(room, L'x') + L"yz"), std::string(room, 'x'));
    RequireName(NamesAfter(host, directory, prefix + std::wstring(room - 2, L'x') + L"\u4E16z"),
                std::string(room - 2, 'x'));
}

// The umask alone limits who may read the file.
void Mode(Host& host) {
    for (const mode_t mask : {0U, 022U, 077U}) {
        const mode_t before = umask(mask);
        const Record job = MakeJob("MKV ", "Xvid", "");
        void* const handle = host.CreateMediaFile(host.PathOf("file").c_str(), &job);
        umask(before);
        host.CloseMediaFile(handle);
        const auto mode = static_cast<unsigned>(fs::status(host.Directory() / "file").permissions());
        RequireEqual(mode, 0666U & ~mask, "the permissions of the file, as a decimal number,");
        fs::remove(host.Directory() / "file");
    }
}

// A changed name or current directory does not disturb an open file.
void Moves(Host& host) {
    const fs::path other = host.Directory() / "other";
    fs::create_directory(other);
    for (const char* format : kFormats) {
        Trial trial(host, format);
        trial.SetUp();
        trial.Feed(0, 40);
        fs::rename(host.Directory() / "file", other / "moved");
        WriteFile(host.Directory() / "file", Hex("01"));
        fs::current_path(other);
        trial.Feed(40);
        host.CloseMediaFile(trial.Output().Handle());
        fs::current_path(host.Directory());
        RequireEqual(ReadFile(host.Directory() / "file"), Hex("01"), "another file that has taken the name");
        Ebml::File file(ReadFile(other / "moved"));
        const std::vector<Ebml::Problem> problems = Ebml::Check(file);
        Require(problems.empty(), "a file that was renamed while it was open: " + Ebml::Describe(problems));
    }
    const Record job = MakeJob("MKV ", "Xvid", "");
    void* const handle = host.CreateMediaFile(L"other/./relative.mkv", &job);
    Require(handle != nullptr, "CreateMediaFile of a relative path returned null");
    host.CloseMediaFile(handle);
    Require(fs::exists(other / "relative.mkv"), "a relative path does not start from the current directory");
}

void Replaces(Host& host) {
    WriteFile(host.Directory() / "file", Repeated(100000, 0x5A));
    Trial(host, "MKV ").Run();
}

void PseudoFile(Host& host) {
    for (const char* format : kFormats) {
        const Record job = MakeJob(format, "", "MP3 ");
        void* const handle = host.CreateMediaFile(host.PathOf("disc.ISO:").c_str(), &job);
        Require(handle != nullptr, "CreateMediaFile of a path with .iso: returned null");
        Octets data = Hex("01 02");
        Record frame("MEDIA_FRAME");
        frame.Set("audioData", data.data());
        frame.Set("audioSize", 2);
        for (std::int64_t time = 0; time < 30; ++time) {
            frame.Set("timestamp", time * 1000 * kMillisecond);
            RequireEqual(host.WriteAudioPacket(handle, &frame, nullptr), 2, "the result of WriteAudioPacket");
        }
        host.CloseMediaFile(handle);
        Require(fs::is_empty(host.Directory()), "a path with .iso: left a file");
    }
}

void NoStreams(Host& host) {
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "", ""));
        RequireEqual(output.Video(Hex("01 02"), 0), 0, "WriteVideoPacket without a video stream");
        RequireEqual(output.Audio(Hex("01 02"), 0), 0, "WriteAudioPacket without an audio stream");
        Require(output.Close().empty(), "a job without streams wrote something");
    }
    OutputFile audio(host, MakeJob("MKV ", "", "MP3 "));
    RequireEqual(audio.Video(Hex("01 02"), 0), 0, "WriteVideoPacket without a video stream");
    OutputFile video(host, MakeJob("MKV ", "Xvid", ""), "other");
    RequireEqual(video.Audio(Hex("01 02"), 0), 0, "WriteAudioPacket without an audio stream");
    Require(audio.Close().empty() && video.Close().empty(), "a stream that there is not was written");
}

// ---- closing

unsigned int NeverCalled(void* argument, unsigned int, unsigned int, unsigned int) {
    *static_cast<bool*>(argument) = true;
    return 0;
}

void CloseAtOnce(Host& host) {
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "H264", "AAC "));
        Require(output.Close().empty(), std::string(format) + ": a file without frames is not empty");
    }
}

void CloseAfterSetUp(Host& host) {
    for (const char* format : kFormats) {
        Trial trial(host, format);
        trial.SetUp();
        Require(trial.Output().Close().empty(), std::string(format) + ": a file without frames is not empty");
    }
}

void CloseQueued(Host& host) {
    for (const char* format : kFormats) {
        Trial trial(host, format);
        trial.SetUp();
        trial.Feed(0, 2);
        trial.Finish(2);
    }
}

void CloseInTheMiddle(Host& host) {
    for (const char* format : kFormats) {
        for (const int frames : {5, 6, 26, 27}) {
            Trial trial(host, format);
            trial.SetUp();
            trial.Feed(0, frames);
            trial.Finish(frames);
        }
    }
}

void CloseWithoutOneKind(Host& host) {
    for (const char* format : kFormats) {
        for (const bool hasVideo : {true, false}) {
            OutputFile output(host, MakeJob(format, "Xvid", "MP3 "));
            for (int i = 0; i < 40; ++i) {
                const std::int64_t time = std::int64_t{i} * kFrameTime;
                if (hasVideo) {
                    output.TakeVideo(Hex("01 02"), time);
                } else {
                    output.TakeAudio(Hex("03"), time);
                }
            }
            RequireEqual(output.Finish().Blocks().size(), 40U, std::string(format) + ": the number of blocks");
        }
    }
}

void NoCallback(Host& host) {
    for (const char* format : kFormats) {
        OutputFile output(host, MakeJob(format, "", "MP3 "));
        output.TakeAudio(Hex("01"), 0);
        bool wasCalled = false;
        host.CloseMediaFile(output.Handle(), NeverCalled, &wasCalled);
        Require(!wasCalled, "CloseMediaFile called its callback");
    }
}

std::set<std::string> OpenFiles(Host& host) {
    std::set<std::string> files;
    std::error_code gone; // the descriptor of the directory itself
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        const std::string file = fs::read_symlink(entry.path(), gone).string();
        if (file.find(host.Directory().string() + "/") == 0) files.insert(file);
    }
    return files;
}

void ReleasesTheFile(Host& host) {
    for (const char* format : kFormats) {
        Trial trial(host, format);
        trial.Feed(0, 8);
        trial.Output().Close();
        for (const std::string& file : OpenFiles(host)) throw Failure("still open after closing: " + file);
    }
    const Record job = MakeJob("MKV ", "", "");
    for (const char* path : {"none/a", "", "disc.iso:"}) {
        host.CloseMediaFile(host.CreateMediaFile(host.PathOf(path).c_str(), &job));
    }
    Require(OpenFiles(host).empty(), "a file that was not created is open");
}

// ---- the flag

void FlagOfTheLast(Host& host) {
    const auto create = [&host](const std::string& name, const char* format) {
        const Record job = MakeJob(format, "VP8 ", "VBIS");
        void* const handle = host.CreateMediaFile(host.PathOf(name).c_str(), &job);
        const FourCC flag = *host.IsWebm();
        host.CloseMediaFile(handle);
        RequireEqual(*host.IsWebm(), flag, "IsWebm after closing");
        return flag;
    };
    for (const char* format : {"MKV ", "WEBM", "HMKV", "WEBM", "MKA ", "WEBM", "WEBM", "MKV "}) {
        RequireEqual(create("file", format), std::string(format) == "WEBM" ? 1U : 0U,
                     std::string("IsWebm after creating ") + format);
    }
    for (const char* format : kFormats) {
        *host.IsWebm() = 1;
        RequireEqual(create("none/file", format), std::string(format) == "WEBM" ? 1U : 0U,
                     std::string("IsWebm after a file that does not open, of ") + format);
    }
    *host.IsWebm() = 1;
    RequireEqual(create("file", "AVI "), 0U, "IsWebm after an unknown format");
    *host.IsWebm() = 1;
    host.CreateMediaFile(nullptr, nullptr);
    RequireEqual(*host.IsWebm(), 0U, "IsWebm after null");
}

// Any number but 0 means WebM.
void FlagOfAnyNumber(Host& host) {
    for (const FourCC flag : {1U, 2U, 0x80000000U, 0xFFFFFFFFU}) {
        Trial webm(host, "WEBM");
        *host.IsWebm() = flag;
        webm.Run();
        Trial matroska(host, "MKV ");
        *host.IsWebm() = flag;
        const std::string what = " of an MKV file while IsWebm is " + Text(flag);
        RequireEqual(matroska.Output().Audio(Hex("01"), 0), 0, "WriteAudioPacket" + what);
        RequireEqual(matroska.Output().Video(Hex("01"), 0), 0, "WriteVideoPacket" + what);
        *host.IsWebm() = 0;
        matroska.Run();
    }
}

// A handle that the flag does not name: every call is refused, and closing finishes the file.
void WrongKindIsRefused(Host& host) {
    for (const char* format : kFormats) {
        const std::string what = std::string(format) + " while the other kind was created last: ";
        const char* const other = std::string(format) == "WEBM" ? "MKV " : "WEBM";
        Trial older(host, format, "older");
        older.SetUp();
        older.Feed(0, 40);
        Trial newer(host, other, "newer");
        newer.SetUp();
        newer.Feed(0, 10);
        const Octets frame = Hex("00 00 00 01 65 77 00 00 00 01 41 78");
        OutputFile& output = older.Output();
        RequireEqual(output.Video(frame, 5000 * kMillisecond), 0, what + "WriteVideoPacket");
        Require(output.m_HostBuffer == frame, what + "a refused frame was rewritten");
        RequireEqual(output.Audio(Hex("BB CC"), 5000 * kMillisecond), 0, what + "WriteAudioPacket");
        RequireEqual(output.PackedAudio(Hex("BB CC"), 5000 * kMillisecond, kFrameTime, {2, 1, 1}), 0,
                     what + "WriteAudioPacket");
        output.VosData(Hex("DE AD BE EF"));
        output.XpsData(Hex("68 DE AD"), Hex("67 DE AD BE EF"));
        older.Finish(40);
        newer.Feed(10);
        newer.Finish();
    }
}

} // namespace

std::vector<Check> LifeChecks() {
    return {
        {"create.null", "no file without a path or a job", NullArguments},
        {"create.unknown-format", "no file of a format that is not in the table", UnknownFormats},
        {"create.not-opened", "no handle for a path at which no file can be created", NotOpened},
        {"create.name", "the path is UTF-32 and the name UTF-8, of 2047 octets at most", Names},
        {"create.mode", "the umask alone decides who may read a file", Mode},
        {"create.moves", "a file that is renamed while it is open is finished where it is", Moves},
        {"create.replaces", "an existing file is replaced", Replaces},
        {"create.iso", "a path with .iso: takes everything and writes nothing", PseudoFile},
        {"create.no-streams", "disabled streams take no frames", NoStreams},
        {"close.at-once", "a file closed at once is empty", CloseAtOnce},
        {"close.after-set-up", "a file closed after set-up data alone is empty", CloseAfterSetUp},
        {"close.queued", "a file closed with all frames still queued is whole", CloseQueued},
        {"close.in-the-middle", "a file closed while frames are being written is whole", CloseInTheMiddle},
        {"close.one-kind", "a file closed before one kind of media has come is whole", CloseWithoutOneKind},
        {"close.no-callback", "closing never calls the callback", NoCallback},
        {"close.releases", "closing releases the file's descriptor", ReleasesTheFile},
        {"flag.last-created", "IsWebm holds the kind of the last file created", FlagOfTheLast},
        {"flag.any-number", "any flag but 0 means WebM", FlagOfAnyNumber},
        {"flag.refuses", "a handle of the other kind is refused and finished all the same", WrongKindIsRefused},
    };
}
