// SPDX-License-Identifier: MIT
// Builds an SVG page. Shapes name the classes of its style sheet, which has a light and a dark form.
#pragma once

#include <string>

class SvgPage {
public:
    static constexpr int kWidth = 1200;

    // A point in the notation of path data.
    static std::string At(double x, double y);

    // Later shapes cover earlier ones. `tip` is the tooltip; `more` holds further attributes.
    void Rect(const std::string& names, double x, double y, double width, double height, const std::string& tip = "");
    void Text(const std::string& names, double x, double y, const std::string& text, const std::string& more = "");
    // Draws nothing when the path has no data.
    void Path(const std::string& names, const std::string& data, const std::string& more = "");

    // The whole page.
    std::string Finished(double height, const std::string& title, const std::string& description) const;

private:
    std::string m_Body;
};
