// SPDX-License-Identifier: MIT
#include "Report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "ElfFile.h"
#include "Messages.h"
#include "XmlText.h"

namespace {

const char* Word(Outcome outcome) {
    switch (outcome) {
    case Outcome::Passed:
        return "passed";
    case Outcome::Failed:
        return "failed";
    case Outcome::Skipped:
        break;
    }
    return "skipped";
}

std::ptrdiff_t Count(const std::vector<Result>& results, Outcome outcome) {
    return std::count_if(results.begin(), results.end(),
                         [outcome](const Result& result) { return result.m_Outcome == outcome; });
}

double Seconds(const std::vector<Result>& results) {
    double sum = 0;
    for (const Result& result : results) sum += result.m_Seconds;
    return sum;
}

std::string Fixed(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", seconds);
    return text;
}

} // namespace

std::string AsText(const Result& result) {
    std::string message = result.m_Message;
    for (std::size_t at = 0; (at = message.find('\n', at)) != std::string::npos; at += 2) message.replace(at, 1, "; ");
    const char* const word = result.m_Outcome == Outcome::Failed ? "FAILED" : Word(result.m_Outcome);
    std::string line = word + std::string(9 - std::string(word).size(), ' ') + result.m_pCheck->m_Name;
    if (!message.empty()) line += ": " + message;
    return line;
}

std::string Summary(const std::vector<Result>& results) {
    return std::to_string(Count(results, Outcome::Passed)) + " passed, " +
           std::to_string(Count(results, Outcome::Failed)) + " failed, " +
           std::to_string(Count(results, Outcome::Skipped)) + " skipped";
}

std::string AsJson(const std::string& plugin, const std::vector<Result>& results) {
    using nlohmann::json;
    json checks = json::array();
    for (const Result& result : results) {
        json check = {{"name", result.m_pCheck->m_Name},
                      {"summary", result.m_pCheck->m_Summary},
                      {"outcome", Word(result.m_Outcome)},
                      {"seconds", result.m_Seconds}};
        if (!result.m_Message.empty()) check["message"] = result.m_Message;
        checks.push_back(std::move(check));
    }
    const json report = {{"plugin", plugin},
                         {"wordSize", kWordSize},
                         {"passed", Count(results, Outcome::Passed)},
                         {"failed", Count(results, Outcome::Failed)},
                         {"skipped", Count(results, Outcome::Skipped)},
                         {"checks", std::move(checks)}};
    return AsText(report);
}

std::string AsJUnit(const std::string& plugin, const std::vector<Result>& results) {
    std::string xml =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites>\n<testsuite name=\"qfcheck\" package=\"" +
        XmlText(plugin) + "\" tests=\"" + std::to_string(results.size()) + "\" failures=\"" +
        std::to_string(Count(results, Outcome::Failed)) + "\" errors=\"0\" skipped=\"" +
        std::to_string(Count(results, Outcome::Skipped)) + "\" time=\"" + Fixed(Seconds(results)) + "\">\n";
    for (const Result& result : results) {
        const std::string name = result.m_pCheck->m_Name;
        const std::size_t dot = name.find('.');
        xml += "<testcase classname=\"qfcheck." + name.substr(0, dot) + "\" name=\"" +
               (dot != std::string::npos ? name.substr(dot + 1) : name) + "\" time=\"" + Fixed(result.m_Seconds) + "\"";
        if (result.m_Outcome == Outcome::Passed) {
            xml += "/>\n";
            continue;
        }
        const char* const element = result.m_Outcome == Outcome::Failed ? "failure" : "skipped";
        xml += std::string("><") + element + " message=\"" + XmlText(result.m_Message) + "\"/></testcase>\n";
    }
    return xml + "</testsuite>\n</testsuites>\n";
}
