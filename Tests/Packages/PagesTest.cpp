// SPDX-License-Identifier: MIT
// The pages are up to date: paths of the tree, links, the installed plug-in, the exemptions of the sanitizers.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "Octets.h"
#include "TempDirectory.h"

namespace {

namespace fs = std::filesystem;

const fs::path kTree = QF_SOURCE;

std::string Text(const fs::path& path) {
    const Octets octets = ReadFile(path);
    return {octets.begin(), octets.end()};
}

std::vector<fs::path> Pages() {
    std::vector<fs::path> pages;
    for (const fs::path& folder : {kTree, kTree / "Docs", kTree / "Docs/man"}) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            const std::string kind = entry.path().extension().string();
            if (kind == ".md" || kind == ".1") pages.push_back(entry.path());
        }
    }
    return pages;
}

// What the expression's first group is at each place where it matches.
std::vector<std::string> Found(const std::string& text, const char* expression) {
    const std::regex regex(expression);
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match) {
        found.push_back((*match)[1]);
    }
    return found;
}

TEST(Pages, NamePathsThatExist) {
    int count = 0;
    for (const fs::path& page : Pages()) {
        for (const std::string& path :
             Found(Text(page), "[`\\s(\"]((?:Source|Tests|Fuzz|Benchmarks|Samples|Docs|cmake|scripts)/"
                               "[A-Za-z0-9_/.-]*[A-Za-z0-9_])")) {
            // Written by a run, or a placeholder.
            if (path.find("NAME") != std::string::npos || path.find("TARGET") != std::string::npos) continue;
            EXPECT_TRUE(fs::exists(kTree / path)) << page.filename() << " names " << path;
            ++count;
        }
    }
    EXPECT_GT(count, 40);
}

TEST(Pages, LinkToWhatExists) {
    int count = 0;
    for (const fs::path& page : Pages()) {
        for (const std::string& link : Found(Text(page), "\\]\\(([^)#:]+)(?:#[^)]*)?\\)")) {
            EXPECT_TRUE(fs::exists(page.parent_path() / link)) << page.filename() << " links to " << link;
            ++count;
        }
    }
    EXPECT_GT(count, 10);
}

TEST(Pages, NameEachPresetThatTheyUse) {
    const std::string presets = Text(kTree / "CMakePresets.json");
    for (const fs::path& page : Pages()) {
        for (const std::string& preset : Found(Text(page), "build/((?:i386|x86_64)[A-Za-z0-9_-]*)/")) {
            EXPECT_NE(presets.find("\"name\": \"" + preset + "\""), std::string::npos)
                << page.filename() << " names " << preset;
        }
    }
}

TEST(Pages, NameEachTestProgramThatTheyRun) {
    int count = 0;
    std::string lists;
    for (const auto& entry : fs::recursive_directory_iterator(kTree / "Tests")) {
        if (entry.path().filename() == "CMakeLists.txt") lists += Text(entry.path());
    }
    for (const fs::path& page : Pages()) {
        for (const std::string& program : Found(Text(page), "build/[a-z0-9_-]+/Tests/[A-Za-z]+/(qf_[a-z_]+)")) {
            EXPECT_NE(lists.find("(" + program), std::string::npos) << page.filename() << " runs " << program;
            ++count;
        }
    }
    EXPECT_GT(count, 3);
}

// scripts/bench writes both; ns in the table, microseconds in the sentence.
TEST(Pages, QuoteTheFiguresThatWereMeasured) {
    const std::string readme = Text(kTree / "README.md");
    const std::string table = Text(kTree / "Docs/Performance.md");
    const auto measured = [&table](const std::string& workload, const std::string& writer) {
        const std::size_t section = table.find("\n### " + workload);
        const std::vector<std::string> cells =
            Found(table.substr(section), ("\n\\| " + writer + " \\| ([0-9,]+) \\(").c_str());
        return std::stod(std::regex_replace(cells.at(0), std::regex(","), ""));
    };
    const auto quoted = [&readme](const char* expression) { return 1000 * std::stod(Found(readme, expression).at(0)); };
    EXPECT_NEAR(quoted("a movie costs ([0-9.]+)"), measured("movie", "qf_mkv"), 6);
    EXPECT_NEAR(quoted("a frame of sound ([0-9.]+)"), measured("audio", "qf_mkv"), 6);
    EXPECT_NEAR(quoted("writing it costs ([0-9.]+)"), measured("movie", "limit"), 6);
    EXPECT_NEAR(quoted("writing it costs [0-9.]+ and ([0-9.]+)"), measured("audio", "limit"), 6);
}

TEST(Pages, OfQfmuxSayWhereThePluginIsInstalled) {
    EXPECT_NE(Text(kTree / "Docs/man/qfmux.1").find(QF_PLUGIN_FROM_TOOLS), std::string::npos) << QF_PLUGIN_FROM_TOOLS;
}

TEST(Pages, NameTheExemptionsOfTheIntegerChecks) {
    const std::string page = Text(kTree / "Docs/Robustness.md");
    const std::vector<std::string> functions =
        Found(Text(kTree / "cmake/sanitize.ignorelist"), "\nfun:\\*([A-Za-z]+)\\*");
    EXPECT_FALSE(functions.empty());
    for (const std::string& function : functions)
        EXPECT_NE(page.find("`" + function + "`"), std::string::npos) << function;
}

} // namespace
