// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <exception>
#include <new>
#include <sstream>

#include "Messages.h"
#include "Surroundings.h"
#include "ToolError.h"

namespace {

// "--quality" of "-q,--quality".
std::string LastOf(const std::string& names) {
    const std::size_t comma = names.rfind(',');
    return comma == std::string::npos ? names : names.substr(comma + 1);
}

[[noreturn]] void Refuse(const std::string& names, const std::string& wanted, const std::string& text) {
    throw ToolError(kExitUsage, LastOf(names) + " takes " + wanted + ", not '" + text + "'");
}

// "a, b or c".
std::string AnyOf(const std::vector<std::string>& words) {
    std::string text = words.front();
    for (std::size_t i = 1; i < words.size(); ++i) text += (i + 1 < words.size() ? ", " : " or ") + words[i];
    return text;
}

template <class Value>
std::string RangeText(Value least, Value most) {
    if (least == std::numeric_limits<Value>::lowest() && most == std::numeric_limits<Value>::max()) return "";
    std::ostringstream text;
    text << " from " << least << " to " << most;
    return text.str();
}

// Throws ToolError unless the whole text is such a number.
template <class Value>
Value ReadNumber(const std::string& names, const std::string& kind, const std::string& text, Value least, Value most) {
    Value value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || !(value >= least && value <= most)) {
        Refuse(names, kind + RangeText(least, most), text);
    }
    return value;
}

} // namespace

CommandLine::CommandLine(const std::string& program, const std::string& description)
    : m_App(std::make_shared<CLI::App>(description, program)) {}

CommandLine::CommandLine(std::shared_ptr<CLI::App> app) : m_App(std::move(app)) {}

void CommandLine::Footer(const std::string& text) { m_App->footer(text); }

void CommandLine::Section(const std::string& title) { m_Section = title; }

void CommandLine::Version(const std::string& text) { m_App->set_version_flag("--version", text, "print the version"); }

CommandLine CommandLine::Subcommand(const std::string& name, const std::string& description) {
    m_App->require_subcommand(0, 1);
    CLI::App* const command = m_App->add_subcommand(name, description);
    command->footer("");
    return CommandLine(std::shared_ptr<CLI::App>(m_App, command)); // owned by the whole
}

void CommandLine::Argument(const std::string& name, std::string& value, const std::string& help) {
    m_App->add_option(name, value, help)->required()->type_name("");
}

void CommandLine::OptionalArgument(const std::string& name, std::string& value, const std::string& help) {
    m_App->add_option(name, value, help)->type_name("");
}

void CommandLine::Arguments(const std::string& name, std::vector<std::string>& values, const std::string& help) {
    m_App->add_option(name, values, help)->type_name("");
}

void CommandLine::Flag(const std::string& names, bool& value, const std::string& help) {
    m_App->add_flag(names, value, help)->group(m_Section);
}

void CommandLine::Option(const std::string& names, const std::string& word, const Reader& read,
                         const std::string& help) {
    m_App->add_option_function<std::string>(names, read, help)->type_name(word)->group(m_Section);
}

void CommandLine::Option(const std::string& names, const std::string& word, std::string& value,
                         const std::string& help) {
    m_App->add_option(names, value, help)->type_name(word)->group(m_Section);
}

void CommandLine::Repeatable(const std::string& names, const std::string& word, std::vector<std::string>& values,
                             const std::string& help) {
    m_App->add_option(names, values, help)->type_name(word)->group(m_Section)->allow_extra_args(false);
}

void CommandLine::Number(const std::string& names, const std::string& word, const std::function<void(double)>& write,
                         const std::string& help, double least, double most) {
    Option(
        names, word, [=](const std::string& text) { write(ReadNumber(names, "a number", text, least, most)); }, help);
}

void CommandLine::Whole(const std::string& names, const std::string& word, std::optional<std::int64_t>& value,
                        const std::string& help, std::int64_t least, std::int64_t most) {
    const auto read = [=, &value](const std::string& text) {
        value = ReadNumber(names, "a whole number", text, least, most);
    };
    Option(names, word, read, help);
}

void CommandLine::Choice(const std::string& names, const std::string& word, std::string& value,
                         const std::vector<std::string>& words, const std::string& help) {
    ChoiceOf(names, word, words, help, [&value, words](std::size_t index) { value = words[index]; });
}

void CommandLine::ChoiceOf(const std::string& names, const std::string& word, const std::vector<std::string>& words,
                           const std::string& help, const std::function<void(std::size_t)>& choose) {
    const auto read = [=](const std::string& text) {
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (CLI::detail::to_lower(words[i]) == CLI::detail::to_lower(text)) return choose(i);
        }
        Refuse(names, AnyOf(words), text);
    };
    Option(names, word, read, help);
}

bool CommandLine::Parse(int argc, char** argv) {
    try {
        m_App->parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp&) {
        PutResult(m_App->help());
        return false;
    } catch (const CLI::CallForVersion& version) {
        PutResult(std::string(version.what()) + "\n");
        return false;
    } catch (const CLI::ParseError& error) {
        throw ToolError(kExitUsage, error.what());
    }
}

bool CommandLine::IsGiven() const { return m_App->parsed(); }

int RunTool(const std::function<int()>& run, const std::function<void(int, const std::string&)>& onError) {
    OpenStandardStreams();
    const auto fail = [&](int exitCode, const char* reason) {
        Say(reason);
        try {
            if (onError) onError(exitCode, reason);
        } catch (const ToolError&) { // the first error is the one that counts
        }
        return exitCode;
    };
    try {
        return run();
    } catch (const ToolError& error) {
        return fail(error.m_Code, error.what());
    } catch (const std::bad_alloc&) {
        return fail(kExitError, "out of memory");
    } catch (const std::exception& error) {
        return fail(kExitError, error.what());
    }
}
