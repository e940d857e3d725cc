// SPDX-License-Identifier: MIT
// qfcheck from the command line: the plug-in as it ships passes, reports are what programs expect, errors are one line.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "Command.h"
#include "Octets.h"
#include "TempDirectory.h"

namespace {

using nlohmann::json;

const std::string kPlugin = Quoted(QF_PLUGIN);

CommandResult Qfcheck(const std::string& arguments) {
    return RunCommand(Quoted(QF_QFCHECK) + " " + arguments + " 2>&1");
}

std::ptrdiff_t Lines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

std::string WordsOf(const std::string& path) {
    const auto octets = ReadFile(path);
    return {octets.begin(), octets.end()};
}

class Checker : public ::testing::Test {
protected:
    std::string Path(const std::string& name) const { return (m_Directory / name).string(); }

    TempDirectory m_Directory;
};

TEST_F(Checker, ThePlugInPasses) {
    const std::string report = Path("report.xml");
    const CommandResult result = Qfcheck("--json --junit " + Quoted(report) + " " + kPlugin);
    ASSERT_EQ(result.m_ExitCode, 0) << result.m_Output;
    const json found = json::parse(result.m_Output);
    EXPECT_EQ(found["plugin"], QF_PLUGIN);
    EXPECT_EQ(found["wordSize"], sizeof(void*) * 8);
    EXPECT_EQ(found["failed"], 0);
    EXPECT_EQ(found["skipped"], 0);
    EXPECT_EQ(found["passed"], found["checks"].size());
    EXPECT_GE(found["checks"].size(), 105U);
    std::set<std::string> names;
    for (const json& check : found["checks"]) {
        names.insert(check["name"]);
        EXPECT_EQ(check["outcome"], "passed");
        EXPECT_GE(check["seconds"], 0.0);
        EXPECT_FALSE(check.contains("message"));
    }
    EXPECT_EQ(names.size(), found["checks"].size()) << "names are taken once";

    EXPECT_EQ(RunCommand("xmllint --noout " + Quoted(report)).m_ExitCode, 0);
    const auto count = [&report](const std::string& expression) {
        return std::stoul(RunCommand("xmllint --xpath " + Quoted(expression) + " " + Quoted(report)).m_Output);
    };
    EXPECT_EQ(count("count(//testcase)"), names.size());
    EXPECT_EQ(count("string(//testsuite/@tests)"), names.size());
    EXPECT_EQ(count("string(//testsuite/@failures)"), 0U);
    EXPECT_EQ(count("count(//testcase[@classname='qfcheck.session'])"), 5U);
}

TEST_F(Checker, LinesForPeople) {
    const CommandResult result = Qfcheck("--only 'tables.*' --only load " + kPlugin);
    EXPECT_EQ(result.m_ExitCode, 0);
    EXPECT_EQ(result.m_Output, "passed   load\npassed   tables.formats\npassed   tables.functions\n"
                               "passed   tables.codecs\npassed   tables.encoders\npassed   tables.at-load\n"
                               "6 passed, 0 failed, 0 skipped\n");
}

TEST_F(Checker, AFailureInEveryReport) {
    // Another library is no such plug-in: its exports fail. The name needs escaping in XML.
    const std::string plugin = Path("a<&\"b.so");
    std::filesystem::copy_file(QF_LOG_LIBRARY, plugin);
    const std::string report = Path("report.xml");
    const CommandResult text = Qfcheck("--only exports.names --junit " + Quoted(report) + " " + Quoted(plugin));
    EXPECT_EQ(text.m_ExitCode, 5);
    EXPECT_EQ(text.m_Output.find("FAILED   exports.names: not exported: FormatArray, "), 0U) << text.m_Output;
    EXPECT_NE(text.m_Output.find("\n0 passed, 1 failed, 0 skipped\n"), std::string::npos);
    const std::string failure =
        RunCommand("xmllint --xpath 'string(//failure/@message)' " + Quoted(report) + " 2>&1").m_Output;
    EXPECT_EQ(failure.find("not exported: FormatArray, "), 0U) << failure;
    EXPECT_EQ(RunCommand("xmllint --xpath 'string(//testsuite/@package)' " + Quoted(report)).m_Output, plugin + "\n");

    const CommandResult asJson = Qfcheck("--only exports.names --json " + Quoted(plugin));
    EXPECT_EQ(asJson.m_ExitCode, 5);
    EXPECT_EQ(json::parse(asJson.m_Output)["checks"][0]["outcome"], "failed");
}

TEST_F(Checker, FilesThatCannotBeCheckedAreNamedInOneLine) {
    const bool narrow = sizeof(void*) == 4;
    Octets other = ReadFile(QF_PLUGIN);
    other.at(4) = narrow ? 2 : 1; // ELFCLASS
    other.at(18) = narrow ? 62 : 3;
    WriteFile(m_Directory / "other.so", other);
    other.at(18) = 40;
    WriteFile(m_Directory / "arm.so", other);
    Octets program = ReadFile(QF_PLUGIN);
    program.at(16) = 2;
    WriteFile(m_Directory / "program.so", program);
    WriteFile(m_Directory / "text.so", Ascii("not a library, whatever its name may say"));
    WriteFile(m_Directory / "short.so", Hex("7F 45 4C 46"));
    WriteFile(m_Directory / "empty.so", {});
    const struct {
        const char* m_File;
        std::string m_Words;
    } rows[] = {
        {"none.so", "cannot read '%': No such file or directory"},
        {"", "cannot read '%': Is a directory"},
        {"text.so", "'%' is not a shared library: it is no ELF file"},
        {"short.so", "'%' is not a shared library: it is too short"},
        {"empty.so", "'%' is not a shared library: it is too short"},
        {"program.so", "'%' is not a shared library: it is a program or an object file"},
        {"arm.so", "'%' is for another machine (ELF machine 40)"},
        {"other.so", narrow ? "'%' is a 64-bit library and this is the 32-bit qfcheck: use the qfcheck of the x86_64 "
                              "build"
                            : "'%' is a 32-bit library and this is the 64-bit qfcheck: use the qfcheck of the i386 "
                              "build"},
    };
    for (const auto& row : rows) {
        std::string words = row.m_Words;
        words.replace(words.find('%'), 1, Path(row.m_File));
        const CommandResult result = Qfcheck(Quoted(Path(row.m_File)));
        EXPECT_EQ(result.m_ExitCode, 2) << row.m_File;
        EXPECT_EQ(result.m_Output, "qfcheck: " + words + "\n");
    }
}

TEST_F(Checker, UsageIsOneLine) {
    const std::string rows[] = {
        "",
        "--only 'sesion.*' " + kPlugin,
        "--timeout 0 " + kPlugin,
        "--timeout long " + kPlugin,
        "--nonsense " + kPlugin,
        kPlugin + " " + kPlugin,
    };
    for (const std::string& row : rows) {
        const CommandResult result = Qfcheck(row);
        EXPECT_EQ(result.m_ExitCode, 3) << row;
        EXPECT_EQ(result.m_Output.find("qfcheck: "), 0U) << result.m_Output;
        EXPECT_EQ(Lines(result.m_Output), 1) << result.m_Output;
    }
    const CommandResult report = Qfcheck("--only load --junit " + Quoted(Path("none/report.xml")) + " " + kPlugin);
    EXPECT_EQ(report.m_ExitCode, 4);
    EXPECT_NE(report.m_Output.find("qfcheck: cannot write '" + Path("none/report.xml") + "': No such file"),
              std::string::npos)
        << report.m_Output;
}

TEST_F(Checker, ListsTheChecks) {
    const CommandResult all = Qfcheck("--list");
    EXPECT_EQ(all.m_ExitCode, 0);
    EXPECT_GE(Lines(all.m_Output), 105);
    EXPECT_NE(all.m_Output.find("\nsession.webm "), std::string::npos);
    EXPECT_NE(all.m_Output.find(" WEBM of VP8 and Vorbis: every element"), std::string::npos);
    EXPECT_EQ(Lines(Qfcheck("--list --only 'session.?k?'").m_Output), 2); // mkv, mka
}

TEST_F(Checker, LeavesNothingBehind) {
    const std::string line = "TMPDIR=" + Quoted(Path("")) + " " + Quoted(QF_QFCHECK) + " " + kPlugin;
    EXPECT_EQ(RunCommand(line + " --only 'l*' --only 'c*' --only 'disk.*' >/dev/null").m_ExitCode, 0);
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));
    const CommandResult ended = RunCommand("timeout --preserve-status -s INT 0.1 env " + line + " >/dev/null");
    EXPECT_EQ(ended.m_ExitCode, 130);
    EXPECT_TRUE(std::filesystem::is_empty(Path("")));
}

TEST_F(Checker, ManualAndCompletionKnowEveryOption) {
    const CommandResult help = Qfcheck("--help");
    EXPECT_EQ(help.m_ExitCode, 0);
    EXPECT_NE(help.m_Output.find("Examples:\n  qfcheck ./qf_mkv.so "), std::string::npos);
    std::string manual = WordsOf(QF_SOURCE "/Docs/man/qfcheck.1");
    manual.erase(std::remove(manual.begin(), manual.end(), '\\'), manual.end());
    const std::string completion = QF_SOURCE "/Source/Tools/qfcheck/qfcheck.bash";
    const auto complete = [&completion](const std::string& words) {
        return RunCommand("bash -c " +
                          Quoted("source " + Quoted(completion) + "; compopt() { :; }; COMP_WORDS=(" + words +
                                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qfcheck; "
                                 "printf '%s\\n' \"${COMPREPLY[@]}\""))
            .m_Output;
    };
    const std::string offered = complete(Quoted(QF_QFCHECK) + " --");
    std::set<std::string> options;
    for (std::size_t at = 0; (at = help.m_Output.find("--", at)) != std::string::npos;) {
        const std::size_t end = help.m_Output.find_first_not_of("abcdefghijklmnopqrstuvwxyz", at + 2);
        options.insert(help.m_Output.substr(at, end - at));
        at = end;
    }
    EXPECT_GE(options.size(), 7U);
    for (const std::string& name : options) {
        EXPECT_NE(manual.find(name), std::string::npos) << name;
        EXPECT_NE(offered.find(name + "\n"), std::string::npos) << name << " in " << offered;
    }
    EXPECT_EQ(complete(Quoted(QF_QFCHECK) + " --only log.f"), "log.formats\nlog.first-name\n");
}

} // namespace
