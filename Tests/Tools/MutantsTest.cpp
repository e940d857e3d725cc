// SPDX-License-Identifier: MIT
// Spoiled plug-ins: qfcheck catches each with the check for the spoiled property, and reports it in plain words.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "Command.h"
#include "Octets.h"
#include "TempDirectory.h"

namespace {

using nlohmann::json;

struct CheckRun {
    int m_ExitCode;
    json m_Report;
};

CheckRun Qfcheck(const std::filesystem::path& plugin, const std::string& options) {
    const CommandResult result =
        RunCommand(Quoted(QF_QFCHECK) + " --json " + options + " " + Quoted(plugin.string()) + " 2>/dev/null");
    return {result.m_ExitCode, json::parse(result.m_Output, nullptr, false)};
}

class Mutants : public ::testing::Test {
protected:
    // The mutant must fail `check`, with words that hold `words`.
    void ExpectCaught(const std::filesystem::path& plugin, const std::string& check, const std::string& words,
                      const std::string& options = "") {
        SCOPED_TRACE(plugin.filename().string());
        const CheckRun run = Qfcheck(plugin, "--only " + check + " " + options);
        EXPECT_EQ(run.m_ExitCode, 5);
        ASSERT_EQ(run.m_Report.value("failed", 0), 1) << run.m_Report;
        EXPECT_EQ(run.m_Report["checks"].size(), 1U);
        EXPECT_EQ(run.m_Report["checks"][0]["name"], check);
        const std::string message = run.m_Report["checks"][0]["message"];
        EXPECT_NE(message.find(words), std::string::npos) << message;
        ++m_Caught;
    }

    // The spoiler under the name that says what it spoils.
    std::filesystem::path Spoiled(const std::string& what) const {
        const auto path = m_Directory / (what + ".so");
        std::filesystem::copy_file(QF_SPOILER, path, std::filesystem::copy_options::skip_existing);
        return path;
    }

    TempDirectory m_Directory;
    int m_Caught = 0;
};

TEST_F(Mutants, TheSpoilerThatSpoilsNothingPasses) {
    const CheckRun run = Qfcheck(Spoiled("nothing"), "");
    EXPECT_EQ(run.m_ExitCode, 0) << run.m_Report;
}

TEST_F(Mutants, SpoiledCallsAreCaught) {
    const struct {
        const char* m_What;
        const char* m_Check;
        const char* m_Words;
    } rows[] = {
        // Tables.
        {"table-entry-swapped", "tables.functions", "format MKV : CloseMediaFile is 0x"},
        {"audio-format-with-video", "tables.functions", "format MKA : WriteVideoPacket is 0x"},
        {"wrong-format-code", "tables.formats", R"(format HMKV: the code is "HMKW", expected "HMKV")"},
        {"wrong-extension", "tables.formats", R"(the extension is ".vebm", expected ".webm")"},
        {"records-too-long", "tables.formats", "format HMKV: the extension"},
        {"table-of-another", "tables.formats", "what GetFileFormats returns"},
        {"wrong-codec", "tables.codecs", R"(MKVVideoEncoders: a code is "h264", expected "H264")"},
        {"codec-list-of-another", "tables.codecs", "format HMKV: audioEncoders"},
        {"offers-an-encoder", "tables.encoders", "the terminator"},
        {"flag-set-at-load", "tables.at-load", "IsWebm is 1, expected 0"},
        // Calls.
        {"wrong-version", "calls.version", "the version \"5,0,0,14\""},
        {"version-past-its-buffer", "calls.version", "crashes: SIGSEGV (Segmentation fault) in GetMultiVersion"},
        {"version-not-counted", "calls.version", "the result of GetMultiVersion is 1, expected 8"},
        {"finds-any-format", "calls.find-format", R"("AVI " is 1, expected 0)"},
        {"encode-touches-out", "calls.encoders", "Encode touched an out-argument"},
        {"audio-revised", "calls.revise-audio", "ReviseAudioParam wrote into the host's AudioParam at octet 4"},
        {"aspect-not-reduced", "options.aspect", "displayAspectX of 1920 by 1080 is 1920, expected 16"},
        {"aspect-of-another-sign", "options.aspect", "expected -1"},
        {"result-of-options", "options.aspect", "the result of SetMuxParam of 1920 by 1080 is 16, expected 9"},
        {"options-half-copied", "options.copied", "m_MuxParam is 24 octets"},
        {"host-options-changed", "options.aspect", "SetMuxParam wrote into the host's MuxParam at octet 12"},
        {"no-display-size", "options.display-size", "DisplayWidth in MKV  with flags 1 and 1920 by 1080 is 0"},
        {"logs-twice", "log.formats", "a message too many"},
        // Null and absurd.
        {"no-null-check-of-handles", "null.handle", "crashes: SIGSEGV (Segmentation fault) in WriteVideoPacket"},
        {"no-null-check-of-frames", "null.frame", "crashes: SIGSEGV (Segmentation fault) in WriteVideoPacket"},
        {"negative-size-taken", "null.data", "WriteAudioPacket of -"},
        {"throws-at-null", "null.set-up", "WriteVosData threw an exception: no data"},
        {"crash-at-null-path", "create.null", "crashes: SIGSEGV (Segmentation fault) in CreateMediaFile"},
        // Creation and closing.
        {"a-handle-for-nothing", "create.not-opened", "CreateMediaFile of a path without its directory is 0x"},
        {"records-one-word-longer", "session.mkv", "crashes: SIGSEGV (Segmentation fault) in CreateMediaFile"},
        {"past-the-host-record", "session.mkv", "crashes: SIGSEGV (Segmentation fault) in CreateMediaFile"},
        {"empty-file-gets-a-header", "close.at-once", "a file without frames is not empty"},
        {"never-closes", "close.releases", "still open after closing"},
        {"crash-in-close", "close.queued", "crashes: SIGSEGV (Segmentation fault) in CloseMediaFile"},
        {"abort-in-close", "close.at-once", "crashes: SIGABRT (Aborted) in CloseMediaFile"},
        {"exit-in-close", "close.at-once", "ends the process with exit code 0 in CloseMediaFile"},
        {"calls-back", "close.no-callback", "CloseMediaFile called its callback"},
        {"leaves-it-open", "close.releases", "still open after closing"},
        {"flag-never-set", "flag.last-created", "IsWebm after creating WEBM is 0, expected 1"},
        {"flag-cleared-by-close", "flag.last-created", "IsWebm after closing is 0, expected 1"},
        {"wrong-kind-is-taken", "flag.refuses", "WriteVideoPacket is"},
        // Frames.
        {"frame-not-rewritten", "frames.start-codes", "the host's buffer is"},
        {"frame-not-rewritten", "frames.slices", "the slices in the host's buffer"},
        {"every-frame-rewritten", "frames.untouched", "H264 in MKV : the host's buffer is"},
        {"packed-frames-as-one", "frames.packed-audio", "one of two is 2, expected 1"},
        {"times-cut", "frames.rounding", "the time of block 2"},
        {"late-set-up-ignored", "set-up.late", "the audio track's CodecPrivate"},
        {"sets-swapped", "set-up.again", "the video track's CodecPrivate"},
        {"audio-changed", "session.mka", "WriteAudioPacket wrote into the host's frame"},
        {"sizes-changed", "frames.packed-audio", "WriteAudioPacket wrote into the host's table of sizes"},
        {"frame-record-changed", "session.mkv", "WriteVideoPacket wrote into the host's MEDIA_FRAME at octet"},
        {"reads-past-the-frame", "session.webm", "crashes: SIGSEGV (Segmentation fault) in WriteVideoPacket"},
        {"keeps-a-pointer", "session.hmkv", "crashes: SIGSEGV (Segmentation fault) in CloseMediaFile"},
        {"frame-lost", "session.mkv", "the number of blocks is 149, expected 150"},
        {"video-result", "session.mkv", "the result of WriteVideoPacket is 1, expected"},
        {"second-file-spoiled", "files.one-by-one", "block 2: "},
        {"other-files-frame", "files.side-by-side", "block 4: the frame is"},
        {"tenth-frame-spoiled", "session.webm", "block 18: the frame is"},
        // The finished file.
        {"header-octet-changed", "session.mkv", "EBML/DocTypeReadVersion is 4 octets: 42 85 81 02, expected"},
        {"segment-length-off", "session.hmkv", "the file is not sound"},
        {"no-duration", "session.mka", "the Duration in ms is"},
        {"date-of-1904", "session.mkv", "DateUTC is not of today"},
        {"muxing-app-changed", "session.hmkv", "the MuxingApp is"},
        {"codec-id-changed", "session.webm", "TrackEntry[0]/CodecID is"},
        {"track-size-swapped", "session.mkv", "TrackEntry[0]/Video is"},
        {"cue-position-off", "session.mkv", "has no cue point in its turn"},
        {"no-cues", "session.webm", "Segment/Void: stands twice in its parent"},
        {"seek-entry-off", "session.mka", "is not the start of an element"},
        {"key-flag-lost", "session.webm", "the flags is 0, expected 128"},
        {"block-time-off", "session.mka", "the time in ms is"},
    };
    for (const auto& row : rows) ExpectCaught(Spoiled(row.m_What), row.m_Check, row.m_Words);
    EXPECT_EQ(m_Caught, static_cast<int>(std::size(rows)));
    EXPECT_GE(m_Caught, 60);
}

// Faults that show only in certain jobs, large frames or long files, and faults in the host's process.
TEST_F(Mutants, HiddenSpoilsAreCaught) {
    const struct {
        const char* m_What;
        const char* m_Check;
        const char* m_Words;
    } rows[] = {
        {"changes-the-umask", "process.untouched", "CreateMediaFile changed the umask from"},
        {"changes-the-directory", "process.untouched", "CreateMediaFile changed the current directory from"},
        {"changes-the-locale", "process.untouched", R"(CreateMediaFile changed the locale from "C" to "C.UTF-8")"},
        {"changes-the-environment", "process.untouched", "CreateMediaFile changed the environment from"},
        {"ignores-a-signal", "process.untouched", "CreateMediaFile changed the handlers of signals from"},
        {"blocks-signals", "process.untouched", "CreateMediaFile changed the blocked signals from"},
        {"starts-a-thread", "process.untouched", "CreateMediaFile changed the number of threads started from"},
        {"seeds-chance", "process.untouched", "CreateMediaFile changed the number of calls of srand from"},
        {"rounds-up", "process.untouched", "CreateMediaFile changed the rounding of floating-point numbers"},
        {"prints", "process.silent", R"(the plug-in wrote to stdout: "spoiled)"},
        {"prints-at-the-end", "process.silent", R"(the plug-in wrote to stderr: "spoiled)"},
        {"leaves-a-descriptor", "process.descriptors", "(/dev/null) stays open"},
        {"changes-its-table", "process.tables", "CreateMediaFile changed FormatArray"},
        {"changes-the-locale-at-load", "process.loading", "loading the library changed the locale"},
        {"stays-loaded", "process.unloading", "the library stays in memory when it is unloaded"},
        {"aborts-at-the-end", "process.ending", "a program that has closed its files does not end well"},
        {"thread-of-the-creator", "process.any-thread", "the result of WriteVideoPacket is 0"},
        {"leaks-each-file", "memory.leaks", "octets of memory stay behind after each"},
        {"leaks-each-frame", "memory.leaks", "octets of memory stay behind after each file"},
        {"holds-each-frame", "memory.bounded", "KiB more of memory"},
        {"frame-lost-without-memory", "memory.exhausted", "no memory for allocation"},
        {"needs-memory-to-close", "memory.exhausted", "CloseMediaFile threw std::bad_alloc"},
        {"written-at-the-end", "disk.as-it-goes", "the file on the disk has 0 clusters, expected at least 5"},
        {"flag-of-one-only", "flag.any-number", "the result of WriteVideoPacket is 0"},
        {"sixteen-files", "files.many", "CreateMediaFile returned null"},
        {"name-cut", "create.name", "the file's name is"},
        {"nobody-may-read", "create.mode", "the permissions of the file"},
        {"uid-of-zeros", "jobs.video-codes", "TrackEntry[0]/TrackUID"},
        {"video-row-swapped", "jobs.video-codes", "TrackEntry[0]/CodecID"},
        {"audio-row-swapped", "jobs.audio-codes", "CodecID"},
        {"channels-cut", "jobs.numbers", "Audio/Channels"},
        {"height-without-sign", "jobs.numbers", "TrackEntry[0]/CodecPrivate"},
        {"doc-type-of-sound", "jobs.doc-type", "in EBML, length"},
        {"options-for-one-file", "jobs.options", "m_MuxParam is"},
        {"large-frame-spoiled", "octets.large", "Block, payload octet 65540"},
        {"every-frame-rewritten", "octets.h264-forms", "WriteVideoPacket of 102 octets, timestamp 0: "},
        {"late-set-up-cut", "octets.set-up", "in Segment/Tracks, length"},
        {"packed-frames-as-one", "octets.packed", "the result is"},
        {"late-cue-off", "times.hours", "Segment/Cues/CuePoint[2999]/CueTrackPositions[0]/CueClusterPosition"},
        {"late-cluster-off", "times.minutes", "Segment/Cluster[70]/Timestamp"},
        {"times-of-32-bits", "times.far", "Cluster"},
        {"times-of-a-day", "times.hours", "Cluster[2879]"},
        {"times-below-zero-cut", "times.negative", "times below zero"},
        {"no-duration", "times.duration", "Segment/Info/Duration"},
        {"frame-lost", "order.queues", "one kind of media first"},
        {"tenth-frame-spoiled", "random.1", "random session 1,"},
    };
    for (const auto& row : rows) ExpectCaught(Spoiled(row.m_What), row.m_Check, row.m_Words);
    EXPECT_EQ(m_Caught, static_cast<int>(std::size(rows)));
}

TEST_F(Mutants, HangsAreCaught) {
    const struct {
        const char* m_What;
        const char* m_Check;
        const char* m_Words;
    } rows[] = {
        {"hang-in-close", "close.at-once", "hangs: not done after 2 s in CloseMediaFile"},
        {"spin-in-close", "session.mka", "hangs: not done after 2 s in CloseMediaFile"},
        {"hang-at-load", "load", "hangs: not done after 2 s in dlopen"},
    };
    for (const auto& row : rows) ExpectCaught(Spoiled(row.m_What), row.m_Check, row.m_Words, "--timeout 2");
    EXPECT_EQ(m_Caught, static_cast<int>(std::size(rows)));
    // Three of them are enough.
    const CheckRun run = Qfcheck(Spoiled("hang-in-close"), "--only load --only 'close.*' --only 'log.*' --timeout 0.5");
    EXPECT_EQ(run.m_ExitCode, 5);
    EXPECT_EQ(run.m_Report.value("failed", 0), 3);
    EXPECT_GT(run.m_Report.value("skipped", 0), 3);
    EXPECT_EQ(run.m_Report["checks"].back()["message"], "left out: three checks have hung");
}

TEST_F(Mutants, OtherExportsAreCaught) {
    const struct {
        const char* m_What;
        const char* m_Check;
        const char* m_Words;
    } rows[] = {
        {"export-missing", "exports.names", "not exported: _Z11SetMuxParamP8MuxParam"},
        {"export-missing", "options.aspect", "the plug-in does not export _Z11SetMuxParamP8MuxParam"},
        {"list-missing", "exports.names", "not exported: HMKVAudioEncoders"},
        {"export-too-many", "exports.nothing-else", "exported besides: IsWebmToo"},
        {"export-undecorated", "exports.names", "not exported: _Z14FindFileFormatm"},
        {"function-as-data", "exports.names", "_Z14DestroyEncoderPv is data, expected a function"},
    };
    const std::filesystem::path folder = QF_MUTANTS;
    for (const auto& row : rows) {
        ExpectCaught(folder / (std::string(row.m_What) + ".so"), row.m_Check, row.m_Words);
    }
    EXPECT_EQ(m_Caught, static_cast<int>(std::size(rows)));
    // A library without the names is asked for nothing but its exports.
    const CheckRun run = Qfcheck(QF_FOREIGN, "");
    EXPECT_EQ(run.m_ExitCode, 5);
    EXPECT_EQ(run.m_Report.value("passed", 0), 1);
    EXPECT_EQ(run.m_Report.value("failed", 0), 2);
    EXPECT_EQ(run.m_Report["checks"].back()["message"], "left out: exports.names failed");
    // Checks that do not need the missing name still work.
    EXPECT_EQ(Qfcheck(folder / "export-missing.so", "--only 'session.*' --only 'log.f*'").m_ExitCode, 0);
}

TEST_F(Mutants, ChecksThatCannotBeMadeAreSkippedAndNotPassed) {
    const CheckRun run = Qfcheck(std::filesystem::path(QF_MUTANTS) / "own-operator-new.so",
                                 "--only load --only 'log.*' --only 'memory.*' --only 'process.*'");
    EXPECT_EQ(run.m_ExitCode, 0) << run.m_Report;
    EXPECT_EQ(run.m_Report.value("skipped", 0), 2);
    for (const json& check : run.m_Report["checks"]) {
        if (check["name"] != "log.no-memory" && check["name"] != "memory.exhausted") continue;
        EXPECT_EQ(check["outcome"], "skipped");
        EXPECT_EQ(check["message"], "the plug-in has an operator new of its own");
    }
}

// The shipped library with a text in it changed, wide or not.
template <class Character>
Octets OctetsOf(const std::basic_string<Character>& text) {
    const auto* const octets = reinterpret_cast<const unsigned char*>(text.data());
    return {octets, octets + text.size() * sizeof(Character)};
}

TEST_F(Mutants, PatchedCopiesAreCaught) {
    const struct {
        const char* m_What;
        Octets m_From;
        Octets m_To;
        const char* m_Check;
        const char* m_Words;
    } rows[] = {
        {"formats-message", OctetsOf<wchar_t>(L"Return file formats..."), OctetsOf<wchar_t>(L"Return file formats!.."),
         "log.formats", R"(the message is "TWLogEx: qf_mkv.dll: Return file formats!..", expected)"},
        {"unknown-format-message", OctetsOf<wchar_t>(L"Can't find"), OctetsOf<wchar_t>(L"Cannot fin"),
         "log.unknown-format", "Cannot fin the file format[AVI ]."},
        {"not-opened-message", OctetsOf<wchar_t>(L"Create media file[%s]"), OctetsOf<wchar_t>(L"Create media file(%s)"),
         "log.not-opened", "Create media file("},
        {"no-memory-message", OctetsOf<wchar_t>(L"avi writer"), OctetsOf<wchar_t>(L"mkv writer"), "log.no-memory",
         "Not enough memory to create mkv writer."},
        {"first-log-name", OctetsOf<char>("TW_Log.so"), OctetsOf<char>("TW_LOG.so"), "log.first-name", "no message"},
        {"second-log-name", OctetsOf<char>("libTW_Log.so"), OctetsOf<char>("LIBTW_Log.so"), "log.second-name",
         "no message"},
        {"description", OctetsOf<wchar_t>(L"WEBM File"), OctetsOf<wchar_t>(L"WebM File"), "tables.formats",
         R"(the description is "WebM File", expected "WEBM File")"},
        {"codec-id", OctetsOf<char>("A_VORBIS"), OctetsOf<char>("A_VORBOS"), "session.webm", "CodecID is"},
    };
    for (const auto& row : rows) {
        Octets library = ReadFile(QF_PLUGIN);
        ASSERT_EQ(row.m_From.size(), row.m_To.size()) << row.m_What;
        int changed = 0;
        for (auto at = library.begin();; ++changed) {
            at = std::search(at, library.end(), row.m_From.begin(), row.m_From.end());
            if (at == library.end()) break;
            at = std::copy(row.m_To.begin(), row.m_To.end(), at);
        }
        ASSERT_GT(changed, 0) << row.m_What;
        const auto path = m_Directory / (std::string(row.m_What) + ".so");
        WriteFile(path, library);
        ExpectCaught(path, row.m_Check, row.m_Words);
    }
    EXPECT_EQ(m_Caught, static_cast<int>(std::size(rows)));
}

TEST_F(Mutants, DamagedLibrariesAreCaught) {
    Octets library = ReadFile(QF_PLUGIN);
    library.resize(200);
    WriteFile(m_Directory / "cut-off.so", library);
    ExpectCaught(m_Directory / "cut-off.so", "load", "the loader says: ");
    ExpectCaught(m_Directory / "cut-off.so", "tables.codecs", "the plug-in does not load: the loader says: ");

    library = ReadFile(QF_PLUGIN);
    const std::size_t sections = sizeof(void*) == 4 ? 48 : 60; // e_shnum
    library.at(sections) = library.at(sections + 1) = 0;
    WriteFile(m_Directory / "no-sections.so", library);
    ExpectCaught(m_Directory / "no-sections.so", "exports.names", "its section headers are missing");
}

TEST_F(Mutants, ACrashIsNeverTheEndOfQfcheck) {
    for (const char* what : {"exit-in-close", "abort-in-close", "crash-in-close", "past-the-host-record"}) {
        const CheckRun run = Qfcheck(Spoiled(what), "--only 'c*' --only 'null.*' --only 'session.*' --only 'tables.*'");
        EXPECT_EQ(run.m_ExitCode, 5);
        EXPECT_GT(run.m_Report.value("checks", json::array()).size(), 30U) << what;
        EXPECT_GT(run.m_Report.value("failed", 0), 5) << what;
        EXPECT_GE(run.m_Report.value("passed", 0), 10) << what;
    }
}

} // namespace
