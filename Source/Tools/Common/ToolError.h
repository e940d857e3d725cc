// SPDX-License-Identifier: MIT
// An error that ends a tool: one line for the user and an exit code.
#pragma once

#include <stdexcept>
#include <string>

#include "ExitCode.h"

class ToolError : public std::runtime_error {
public:
    ToolError(ExitCode code, const std::string& message) : std::runtime_error(message), m_Code(code) {}

    ExitCode m_Code;
};
