// SPDX-License-Identifier: MIT
// Text in XML.
#pragma once

#include <string>

// Escapes a text for XML 1.0 content and attributes. Line ends stay; control characters and octets that are not UTF-8
// become U+FFFD.
std::string XmlText(const std::string& text);
