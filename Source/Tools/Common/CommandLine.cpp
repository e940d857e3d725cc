#include "CommandLine.h"

#include <exception>
#include <new>
#include <string>

#include "Messages.h"
#include "Surroundings.h"
#include "ToolError.h"

namespace {

int Fail(int code, const std::string& message) {
    Say(message);
    return code;
}

} // namespace

bool Parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp&) {
        PutResult(app.help());
        return false;
    } catch (const CLI::ParseError& error) {
        throw ToolError(kExitUsage, error.what());
    }
}

int RunTool(int (*run)(int argc, char** argv), int argc, char** argv) {
    OpenStandardStreams();
    try {
        return run(argc, argv);
    } catch (const ToolError& error) {
        return Fail(error.m_Code, error.what());
    } catch (const std::bad_alloc&) {
        return Fail(kExitError, "out of memory");
    } catch (const std::exception& error) {
        return Fail(kExitError, error.what());
    }
}
