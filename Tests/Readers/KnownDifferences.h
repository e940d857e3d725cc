// SPDX-License-Identifier: MIT
// The table of known differences in Docs/Readers.md, in which readers report something else than was written. The tests
// read it from the page: a difference that it does not list fails, and so does a listed one that does not occur.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

using Tags = std::set<std::string>;

struct Difference {
    std::set<std::string> m_Readers;
    std::string m_Property;
    std::string m_Files; // "WEBM and not uneven or sound": tags, "and" before "or"
    std::string m_Says;  // may hold "*" for anything, and <names> of measured values
    int m_Line;          // of the document

    bool Concerns(const Tags& tags) const;
    // Whether this is what the row says. values: what each <name> stands for.
    bool Covers(const std::string& reader, const std::string& property, const std::string& says,
                const std::map<std::string, std::string>& values) const;
};

// Throws std::runtime_error when there is no such table or a row lacks a cell.
std::vector<Difference> ReadKnownDifferences(const std::string& document);

// Whether two values are the same as far as a reader can tell: numbers within a tolerance, all else as text.
bool SameValue(const std::string& property, const std::string& left, const std::string& right);
