// Words in XML.
#pragma once

#include <string>

// Any text as text or as an attribute of XML 1.0. Lines stay lines; what is no UTF-8, and control characters, become
// U+FFFD.
std::string XmlText(const std::string& text);
