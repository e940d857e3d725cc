// SPDX-License-Identifier: MIT
// The error of a library call, thrown to the C interface.
#pragma once

#include <stdexcept>
#include <string>

#include "qf_host.h"

namespace QfHost {

class HostError : public std::runtime_error {
public:
    HostError(qf_error code, const std::string& text) : std::runtime_error(text), m_Code(code) {}
    qf_error Code() const { return m_Code; }

private:
    qf_error m_Code;
};

} // namespace QfHost
