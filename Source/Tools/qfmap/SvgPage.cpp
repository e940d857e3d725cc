// SPDX-License-Identifier: MIT
#include "SvgPage.h"

#include "Words.h"
#include "XmlText.h"

namespace {

constexpr const char* kStyle = R"(<style>
text{font:13px system-ui,-apple-system,"Segoe UI","DejaVu Sans",sans-serif;fill:#1f2328}
.bg{fill:#fff}.title{font-size:22px;font-weight:600}.soft{fill:#59636e}.small{font-size:11.5px}.strong{font-weight:600}
.mid{text-anchor:middle}.end{text-anchor:end}.grid{stroke:#d8dee4;stroke-width:1;fill:none}.axis{stroke:#8c959f;fill:none}
.box{fill:#f6f8fa;stroke:#c4ccd4}.ebml{fill:#6e7781}.segment{fill:#a0a8b0}.seek{fill:#8250df}.index{fill:#b083f0}
.void{fill:#d0d7de}.info{fill:#1a7f5a}.tracks{fill:#4ac28f}.clusters,.even{fill:#8c9cb0}.odd{fill:#b6c2d1}.cues{fill:#bf3989}
.other{fill:#9a6700}.junk{fill:#cf222e}.fan{opacity:.22}.step{fill:#8c9cb0;fill-opacity:.2;stroke:#8c9cb0;stroke-opacity:.55}
.line{fill:none;stroke-linecap:butt;stroke-linejoin:round}.bad{fill:#cf222e}.lag{fill:#cf222e;fill-opacity:.3}
.gap{fill:#cf222e;fill-opacity:.13;stroke:#cf222e;stroke-opacity:.7;stroke-dasharray:5 3}.hole{fill:#cf222e}
.halo{stroke:#fff;stroke-width:3px;paint-order:stroke;stroke-linejoin:round}.key{fill:#fff;stroke-width:1.6}
.f0{fill:#0969da}.f1{fill:#e07b00}.f2{fill:#1a7f37}.f3{fill:#8250df}.f4{fill:#bf3989}.f5{fill:#0b7285}.f6{fill:#7d4e00}
.f7{fill:#57606a}.s0{stroke:#0969da}.s1{stroke:#e07b00}.s2{stroke:#1a7f37}.s3{stroke:#8250df}.s4{stroke:#bf3989}
.s5{stroke:#0b7285}.s6{stroke:#7d4e00}.s7{stroke:#57606a}
@media(prefers-color-scheme:dark){
text{fill:#e6edf3}.bg{fill:#0d1117}.soft{fill:#9aa4ae}.grid{stroke:#2a313a}.axis{stroke:#6e7681}
.box{fill:#161b22;stroke:#3d444d}.ebml{fill:#9198a1}.segment{fill:#656c76}.void{fill:#3d444d}.bad{fill:#ff7b72}.hole,.lag{fill:#f85149}
.gap{fill:#f85149;stroke:#f85149}.halo{stroke:#0d1117}.key{fill:#0d1117}.clusters,.even{fill:#5f6f84}.odd{fill:#3f4b5b}
.f0{fill:#4493f8}.f1{fill:#f0a040}.f2{fill:#3fb950}.f3{fill:#ab7df8}.f4{fill:#db61a2}.f5{fill:#39c5cf}.f6{fill:#d29922}
.f7{fill:#9198a1}.s0{stroke:#4493f8}.s1{stroke:#f0a040}.s2{stroke:#3fb950}.s3{stroke:#ab7df8}.s4{stroke:#db61a2}
.s5{stroke:#39c5cf}.s6{stroke:#d29922}.s7{stroke:#9198a1}}
</style>
)";

} // namespace

std::string SvgPage::At(double x, double y) { return Number(x, 1) + " " + Number(y, 1); }

void SvgPage::Rect(const std::string& names, double x, double y, double width, double height, const std::string& tip) {
    m_Body += "<rect class=\"" + names + "\" x=\"" + Number(x, 1) + "\" y=\"" + Number(y, 1) + "\" width=\"" +
              Number(width, 1) + "\" height=\"" + Number(height, 1) + "\"";
    m_Body += tip.empty() ? "/>\n" : "><title>" + XmlText(tip) + "</title></rect>\n";
}

void SvgPage::Text(const std::string& names, double x, double y, const std::string& text, const std::string& more) {
    m_Body += "<text" + (names.empty() ? "" : " class=\"" + names + "\"") + " x=\"" + Number(x, 1) + "\" y=\"" +
              Number(y, 1) + "\"" + more + ">" + XmlText(text) + "</text>\n";
}

void SvgPage::Path(const std::string& names, const std::string& data, const std::string& more) {
    if (!data.empty()) m_Body += "<path class=\"" + names + "\"" + more + " d=\"" + data + "\"/>\n";
}

std::string SvgPage::Finished(double height, const std::string& title, const std::string& description) const {
    const std::string size = std::to_string(kWidth) + "\" height=\"" + Number(height, 0);
    return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" viewBox=\"0 0 " + std::to_string(kWidth) +
           " " + Number(height, 0) + "\" role=\"img\">\n<title>" + XmlText(title) + "</title>\n<desc>" +
           XmlText(description) + "</desc>\n" + kStyle + "<rect class=\"bg\" width=\"" + size + "\"/>\n" + m_Body +
           "</svg>\n";
}
