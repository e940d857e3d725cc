// SPDX-License-Identifier: MIT
#include "CommandLine.h"

#include <exception>
#include <new>
#include <string>

#include "Messages.h"
#include "Surroundings.h"
#include "ToolError.h"

bool Parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp&) {
        PutResult(app.help());
        return false;
    } catch (const CLI::CallForVersion& version) {
        PutResult(std::string(version.what()) + "\n");
        return false;
    } catch (const CLI::ParseError& error) {
        throw ToolError(kExitUsage, error.what());
    }
}

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
