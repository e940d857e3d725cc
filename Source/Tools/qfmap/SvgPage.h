// A page of SVG in the making. The names that its shapes take are classes of its style, which has a light and a dark
// form.
#pragma once

#include <string>

class SvgPage {
public:
    static constexpr int kWidth = 1200;

    // A point, as the data of a path have it.
    static std::string At(double x, double y);

    // Each is drawn over those before it. `tip` is shown when a pointer rests there; `more` is further attributes.
    void Rect(const std::string& names, double x, double y, double width, double height, const std::string& tip = "");
    void Text(const std::string& names, double x, double y, const std::string& text, const std::string& more = "");
    // Nothing for no data.
    void Path(const std::string& names, const std::string& data, const std::string& more = "");

    // The whole page.
    std::string Finished(double height, const std::string& title, const std::string& description) const;

private:
    std::string m_Body;
};
