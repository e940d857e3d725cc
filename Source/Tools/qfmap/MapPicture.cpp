// SPDX-License-Identifier: MIT
#include "MapPicture.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "MapPlot.h"
#include "MapSummary.h"
#include "PictureLayout.h"
#include "Surroundings.h"
#include "SvgPage.h"
#include "Words.h"

namespace {

using Layout = PictureLayout;

// In lines of so many characters at most, broken at blanks; a word that is longer is cut.
std::vector<std::string> Wrapped(const std::string& text, std::size_t most) {
    std::vector<std::string> lines(1);
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!lines.back().empty() && Length(lines.back()) + 1 + Length(word) > most) lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : " ") + Shortened(word, most);
    }
    return lines;
}

// The class of a part's colour.
const char* ClassOf(MapKind kind) {
    switch (kind) {
    case MapKind::EbmlHeader:
        return "ebml";
    case MapKind::SegmentHeader:
        return "segment";
    case MapKind::SeekHead:
        return "seek";
    case MapKind::ClusterIndex:
        return "index";
    case MapKind::Void:
        return "void";
    case MapKind::Info:
        return "info";
    case MapKind::Tracks:
        return "tracks";
    case MapKind::Cluster:
        return "clusters";
    case MapKind::Cues:
        return "cues";
    case MapKind::Other:
        return "other";
    case MapKind::Junk:
        return "junk";
    }
    return "";
}

class Picture {
public:
    explicit Picture(const FileMap& map) : m_Map(map), m_Parts(PartsOf(map)), m_Layout(map) {}

    std::string Draw() {
        DrawParts();
        DrawPlot(m_Page, m_Map, m_Layout);
        DrawTitle();
        const double left = DrawLegend();
        const double right = DrawFindings();
        return m_Page.Finished(std::max(left, right) + 18, FileName(m_Map) + ": how the file is laid out",
                               Headline(m_Map));
    }

private:
    // The parts in a row that has room for their names, and from each a fan to its place in the file to scale.
    void DrawParts() {
        std::vector<double> widths;
        double sum = 0;
        double clusters = 0;
        for (const Part& part : m_Parts) {
            const std::size_t letters = std::max(Length(part.m_Name), Length(OctetsText(part.m_End - part.m_Begin)));
            widths.push_back(static_cast<double>(letters) * 8.4 + 14);
            sum += widths.back();
            if (part.m_Kind == MapKind::Cluster) ++clusters;
        }
        const double from = 24;
        const double to = SvgPage::kWidth - 24;
        const double room = to - from - 4 * static_cast<double>(m_Parts.size() - 1);
        double x = from;
        for (std::size_t i = 0; i < m_Parts.size(); ++i) {
            const Part& part = m_Parts[i];
            double width = widths[i];
            if (sum > room) {
                width *= room / sum;
            } else if (clusters > 0 && part.m_Kind == MapKind::Cluster) {
                width += (room - sum) / clusters;
            }
            const double begin = m_Layout.X(part.m_Begin);
            const double end = std::max(m_Layout.X(part.m_End), begin + 0.8);
            const std::string kind = ClassOf(part.m_Kind);
            m_Page.Path(kind + " fan", "M" + SvgPage::At(x, 164) + "L" + SvgPage::At(x + width, 164) + "L" +
                                           SvgPage::At(end, Layout::kBar) + "L" + SvgPage::At(begin, Layout::kBar) +
                                           "Z");
            const std::string share = ShareText(part.m_End - part.m_Begin, m_Map.m_Octets);
            const std::string size = OctetsText(part.m_End - part.m_Begin);
            m_Page.Rect("box", x, 112, width, 52,
                        part.m_Name + ", " + size + ", " + share + ", from byte " + Grouped(part.m_Begin));
            m_Page.Rect(kind, x, 112, width, 6);
            const auto fits = static_cast<std::size_t>(std::max(1.0, (width - 6) / 6.8));
            const bool isBad = part.m_Kind == MapKind::Junk;
            m_Page.Text(isBad ? "mid strong bad" : "mid strong", x + width / 2, 135, Shortened(part.m_Name, fits));
            m_Page.Text("mid soft small", x + width / 2, 153, Shortened(size, fits));
            x += width + 4;
        }
        m_Page.Rect("box", Layout::kLeft, Layout::kBar, Layout::kRight - Layout::kLeft, 20);
        for (const Part& part : m_Parts) {
            if (part.m_Kind == MapKind::Cluster) continue;
            m_Page.Rect(ClassOf(part.m_Kind), m_Layout.X(part.m_Begin), Layout::kBar,
                        std::max(0.8, m_Layout.X(part.m_End) - m_Layout.X(part.m_Begin)), 20,
                        part.m_Name + ", " + OctetsText(part.m_End - part.m_Begin));
        }
        m_Page.Text("end soft small", Layout::kLeft - 10, Layout::kBar + 14, "to scale");
    }

    void DrawTitle() {
        m_Page.Text("title", 24, 38, Shortened(FileName(m_Map), 80));
        std::string second = Headline(m_Map);
        if (!m_Map.m_WritingApp.empty()) second += " · written by " + Clean(m_Map.m_WritingApp);
        m_Page.Text("soft", 24, 62, Shortened(second, 155));
        m_Page.Text(
            "", 24, 96,
            "The parts of the file in their order, with room for their names; below them, to scale, and what lies "
            "where:");
    }

    // Below the plot, at the left. Where it ends.
    double DrawLegend() {
        constexpr double y = Layout::kWords;
        m_Page.Text("strong", 24, y, "How to read it");
        m_Page.Text(
            "soft small", 24, y + 20,
            "From left to right: the file. From bottom to top: the film. Each block stands at its place and its time;");
        m_Page.Text(
            "soft small", 24, y + 37,
            "tracks that are interleaved well lie on one rising line. A track below the others comes late in the "
            "file.");
        double row = y + 62;
        for (std::size_t i = 0; i < m_Layout.Tracks().size(); ++i, row += 20) {
            const MapTrack& track = *m_Layout.Tracks()[i];
            m_Page.Rect(Layout::Colour("f", i), 24, row - 10, 22, i == 0 ? 8 : 4);
            m_Page.Text("", 56, row,
                        Shortened("track " + std::to_string(track.m_Number) + ": " + track.m_Kind + ", " +
                                      Clean(track.m_CodecID) + ", " + Many(track.m_Blocks, "block") + ", " +
                                      OctetsText(track.m_Octets) + " (" + ShareText(track.m_Octets, m_Map.m_Octets) +
                                      ")",
                                  84));
        }
        if (m_Map.m_Tracks.size() > m_Layout.Tracks().size()) {
            m_Page.Text("soft", 56, row,
                        Many(m_Map.m_Tracks.size() - m_Layout.Tracks().size(), "more track") + ", empty or not drawn");
            row += 20;
        }
        m_Page.Path("key s0", "M35 " + Number(row - 10, 1) + "l5 5-5 5-5-5z");
        m_Page.Text("", 56, row, "key frame, where a player can begin");
        m_Page.Path("cues", "M240 " + Number(row - 11, 1) + "l3.5 13h-7z", " transform=\"translate(72)\"");
        m_Page.Text("", 326, row, "cue, names the cluster that begins there");
        row += 20;
        m_Page.Rect("step", 24, row - 11, 22, 12);
        m_Page.Text("", 56, row, "cluster, a stretch of blocks");
        m_Page.Rect("lag", 302, row - 11, 20, 12);
        m_Page.Text("", 326, row, "a track comes late in the file");
        row += 20;
        m_Page.Rect("gap", 302, row - 11, 20, 12);
        m_Page.Text("", 326, row, "a track has nothing at that time");
        return row;
    }

    // Beside the legend. Where they end.
    double DrawFindings() {
        m_Page.Text("strong", 680, Layout::kWords, "What stands out");
        double row = Layout::kWords + 20;
        const std::vector<Finding> findings = Findings(m_Map);
        constexpr std::size_t kMostFindings = 9;
        for (std::size_t i = 0; i < findings.size() && i < kMostFindings; ++i) {
            const char* const names = findings[i].m_IsBad ? "bad" : "";
            for (const std::string& line : Wrapped((findings[i].m_IsBad ? "! " : "") + findings[i].m_Text, 72)) {
                m_Page.Text(names, 680, row, line);
                row += 20;
            }
        }
        if (findings.size() > kMostFindings) {
            m_Page.Text("soft", 680, row, "and " + std::to_string(findings.size() - kMostFindings) + " more");
            row += 20;
        }
        return row;
    }

    const FileMap& m_Map;
    std::vector<Part> m_Parts;
    PictureLayout m_Layout;
    SvgPage m_Page;
};

} // namespace

std::string MapAsSvg(const FileMap& map) { return Picture(map).Draw(); }
