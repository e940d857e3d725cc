// SPDX-License-Identifier: MIT
#include "KnownDifferences.h"

#include <fnmatch.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace {

std::vector<std::string> Split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + separator.size()) {
        parts.push_back(text.substr(begin, end - begin));
    }
    parts.push_back(text.substr(begin));
    return parts;
}

// Without the blanks and the marks of code around it.
std::string Trimmed(const std::string& cell) {
    const std::size_t first = cell.find_first_not_of(" `");
    return first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(" `") - first + 1);
}

} // namespace

bool Difference::Concerns(const Tags& tags) const {
    for (const std::string& alternative : Split(m_Files, " or ")) {
        bool all = true;
        for (const std::string& term : Split(alternative, " and ")) {
            const bool negated = term.rfind("not ", 0) == 0;
            all = all && (tags.count(negated ? term.substr(4) : term) != 0) != negated;
        }
        if (all) return true;
    }
    return false;
}

bool Difference::Covers(const std::string& reader, const std::string& property, const std::string& says,
                        const std::map<std::string, std::string>& values) const {
    if (m_Readers.count(reader) == 0 || m_Property != property) return false;
    const auto value = values.find(m_Says);
    if (value != values.end()) return SameValue(property, value->second, says);
    return fnmatch(m_Says.c_str(), says.c_str(), 0) == 0;
}

std::vector<Difference> ReadKnownDifferences(const std::string& document) {
    std::ifstream file(document);
    std::vector<Difference> rows;
    bool inTable = false;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.rfind("| reader | property | files | says | why |", 0) == 0) {
            inTable = true;
        } else if (line.empty() || line[0] != '|') {
            inTable = false;
        } else if (inTable && line.rfind("|---", 0) != 0) {
            const std::vector<std::string> cells = Split(line, "|");
            if (cells.size() != 7) throw std::runtime_error(document + ": line " + std::to_string(number));
            Difference row{{}, Trimmed(cells[2]), Trimmed(cells[3]), Trimmed(cells[4]), number};
            for (const std::string& reader : Split(cells[1], ",")) row.m_Readers.insert(Trimmed(reader));
            if (Trimmed(cells[5]).empty()) {
                throw std::runtime_error(document + ": line " + std::to_string(number) + " gives no reason");
            }
            rows.push_back(std::move(row));
        }
    }
    if (rows.empty()) throw std::runtime_error(document + " has no table of known differences");
    return rows;
}

bool SameValue(const std::string& property, const std::string& left, const std::string& right) {
    const bool isDuration = property == "duration"; // ms
    if (!isDuration && property != "frame rate") return left == right;
    if (left.empty() || right.empty()) return left == right;
    const double difference = std::fabs(std::strtod(left.c_str(), nullptr) - std::strtod(right.c_str(), nullptr));
    return difference <= (isDuration ? 2 : 0.01);
}
