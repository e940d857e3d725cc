// SPDX-License-Identifier: MIT
// A property or stream of the source that the file will not have.
#pragma once

#include <string>

enum class LossWeight {
    AsAsked, // requested by an option
    Note,    // picture and sound are unchanged
    Warning  // picture, sound or a whole stream is lost or changed; the run ends with exit code 1
};

struct Loss {
    std::string m_Kind; // for programs: "chapters", "colour", ...
    std::string m_Text; // one line for people
    LossWeight m_Weight;
};
