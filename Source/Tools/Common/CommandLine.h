// SPDX-License-Identifier: MIT
// The command line of a tool: what it takes, its help, and one line that names the mistake in a wrong one.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

// CLI11 does the work. Its headers take longer to compile than a tool, so CommandLine.cpp alone includes them.
//
// Names are those of an option, like "-o,--output". `word` stands for its value in the help. What a function writes to
// has to live until Parse has returned.
class CommandLine {
public:
    using Reader = std::function<void(const std::string& text)>; // may throw ToolError

    CommandLine(const std::string& program, const std::string& description);

    void Footer(const std::string& text);
    // The section of the help for the options that follow; at first "Options".
    void Section(const std::string& title);
    void Version(const std::string& text);
    // A command of its own, with its own options.
    CommandLine Subcommand(const std::string& name, const std::string& description);

    void Argument(const std::string& name, std::string& value, const std::string& help); // required
    void OptionalArgument(const std::string& name, std::string& value, const std::string& help);
    void Arguments(const std::string& name, std::vector<std::string>& values, const std::string& help);

    void Flag(const std::string& names, bool& value, const std::string& help);
    void Option(const std::string& names, const std::string& word, const Reader& read, const std::string& help);
    void Option(const std::string& names, const std::string& word, std::string& value, const std::string& help);
    void Repeatable(const std::string& names, const std::string& word, std::vector<std::string>& values,
                    const std::string& help);
    void Number(const std::string& names, const std::string& word, const std::function<void(double)>& write,
                const std::string& help, double least = std::numeric_limits<double>::lowest(),
                double most = std::numeric_limits<double>::max());
    void Whole(const std::string& names, const std::string& word, std::optional<std::int64_t>& value,
               const std::string& help, std::int64_t least = std::numeric_limits<std::int64_t>::min(),
               std::int64_t most = std::numeric_limits<std::int64_t>::max());
    // One of these words, in any case; `value` becomes the word as it stands here.
    void Choice(const std::string& names, const std::string& word, std::string& value,
                const std::vector<std::string>& words, const std::string& help);
    template <class Value>
    void Choice(const std::string& names, Value& value, const std::vector<std::pair<std::string, Value>>& choices,
                const std::string& help) {
        std::vector<std::string> words;
        words.reserve(choices.size());
        for (const auto& choice : choices) words.push_back(choice.first);
        ChoiceOf(names, "WORD", words, help, [&value, choices](std::size_t index) { value = choices[index].second; });
    }

    // Prints the help or the version and returns false if the user asked for it. Throws ToolError for a wrong command
    // line.
    bool Parse(int argc, char** argv);
    // Whether the command line has this subcommand.
    bool IsGiven() const;

private:
    explicit CommandLine(std::shared_ptr<CLI::App> app);
    void ChoiceOf(const std::string& names, const std::string& word, const std::vector<std::string>& words,
                  const std::string& help, const std::function<void(std::size_t index)>& choose);

    std::shared_ptr<CLI::App> m_App;
    std::string m_Section = "Options";
};

// Calls run and returns its exit code. If run throws, prints the error in one line, passes the error's exit code and
// text to onError, and returns that code.
int RunTool(const std::function<int()>& run,
            const std::function<void(int exitCode, const std::string& reason)>& onError = nullptr);
