// SPDX-License-Identifier: MIT
#include "XmlText.h"

#include <sstream>

#include "Surroundings.h"

std::string XmlText(const std::string& text) {
    std::string escaped;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!escaped.empty()) escaped += "&#10;";
        for (const char c : Clean(line)) {
            switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            case '"':
                escaped += "&quot;";
                break;
            default:
                escaped += c;
            }
        }
    }
    return escaped;
}
