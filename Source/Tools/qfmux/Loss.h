// SPDX-License-Identifier: MIT
// Something that a source has and its file will not.
#pragma once

#include <string>

enum class LossWeight {
    AsAsked, // the user wants it so
    Note,    // picture and sound are as they were
    Warning  // picture, sound or a whole stream is lost or changed; the run ends with exit code 1
};

struct Loss {
    std::string m_Kind; // a word for programs: "chapters", "colour", ...
    std::string m_Text; // a line for people
    LossWeight m_Weight;
};
