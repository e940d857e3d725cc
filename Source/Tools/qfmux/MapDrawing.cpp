#include "MapDrawing.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "Surroundings.h"

namespace {

constexpr std::size_t kMostTracks = 8; // drawn; a file may have any number

// ---- words and numbers

std::size_t Length(const std::string& text) { // in characters
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::string Shortened(const std::string& text, std::size_t most) {
    if (Length(text) <= most) return text;
    std::string part;
    std::size_t n = 0;
    for (const char c : text) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80 && ++n == most) break;
        part += c;
    }
    return part + "…";
}

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

std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
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
    return escaped;
}

std::string Number(double value, int decimals) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    std::string number = text;
    if (number.find('.') != std::string::npos) {
        number.erase(number.find_last_not_of('0') + 1);
        if (number.back() == '.') number.pop_back();
    }
    return number == "-0" ? "0" : number;
}

std::string Grouped(std::uint64_t value) {
    std::string text = std::to_string(value);
    for (std::size_t i = text.size(); i > 3; i -= 3) text.insert(i - 3, ",");
    return text;
}

struct Unit {
    double m_Octets;
    const char* m_Name;
};

Unit UnitFor(std::uint64_t octets) {
    if (octets >= 1000000000) return {1e9, "GB"};
    if (octets >= 1000000) return {1e6, "MB"};
    if (octets >= 10000) return {1e3, "kB"};
    return {1, "octets"};
}

std::string OctetsText(std::uint64_t octets) {
    const Unit unit = UnitFor(octets);
    if (unit.m_Octets == 1) return Grouped(octets) + (octets == 1 ? " octet" : " octets");
    const double value = static_cast<double>(octets) / unit.m_Octets;
    return Number(value, value < 100 ? 1 : 0) + " " + unit.m_Name;
}

std::string Many(std::uint64_t count, const std::string& what) {
    return Grouped(count) + " " + what + (count == 1 ? "" : "s");
}

// A point in time, as precisely as `step` asks for.
std::string TimeText(double seconds, double step) {
    const std::string sign = seconds < 0 ? "−" : "";
    const double size = std::fabs(seconds);
    if (!(size < 1e12)) return sign + Number(size, 0) + " s";
    const int decimals = step >= 1 ? 0 : step >= 0.1 ? 1 : 2;
    const double rounded = std::round(size * std::pow(10, decimals)) / std::pow(10, decimals);
    const auto minutes = static_cast<long long>(rounded / 60);
    char text[64];
    if (minutes >= 60) {
        std::snprintf(text, sizeof text, "%lld:%02lld", minutes / 60, minutes % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld", minutes);
    }
    char rest[32];
    std::snprintf(rest, sizeof rest, ":%0*.*f", decimals == 0 ? 2 : decimals + 3, decimals,
                  rounded - static_cast<double>(minutes) * 60);
    return sign + text + rest;
}

// A length of time.
std::string SpanText(double seconds) {
    if (seconds < 60) return Number(seconds, seconds < 10 ? 2 : 1) + " s";
    return TimeText(seconds, 1) + (seconds < 3600 ? " min" : " h");
}

std::string ShareText(std::uint64_t part, std::uint64_t whole) {
    const double percent = whole == 0 ? 0 : 100 * static_cast<double>(part) / static_cast<double>(whole);
    if (part > 0 && percent < 0.01) return "< 0.01 %";
    return Number(percent, percent < 1 ? 2 : 1) + " %";
}

std::string FileName(const FileMap& map) { return Clean(std::filesystem::path(map.m_Path).filename().string()); }

std::string Headline(const FileMap& map) {
    std::string text = map.m_DocType == "webm" ? "WebM" : "Matroska";
    text += " · " + OctetsText(map.m_Octets);
    if (UnitFor(map.m_Octets).m_Octets > 1) text += " (" + Grouped(map.m_Octets) + " octets)";
    text += " · " + SpanText(map.m_Duration.value_or(map.LastTime() - map.FirstTime()));
    text += " · " + Many(map.m_Tracks.size(), "track") + " · " + Many(map.m_Clusters.size(), "cluster");
    if (map.KeyFrames() > 0) text += " · " + Many(map.KeyFrames(), "key frame");
    text += " · " + Many(map.m_Cues.size(), "cue");
    return text;
}

std::string TrackName(const MapTrack& track, const FileMap& map) {
    const auto same = std::count_if(map.m_Tracks.begin(), map.m_Tracks.end(),
                                    [&](const MapTrack& other) { return other.m_Kind == track.m_Kind; });
    return same > 1 ? track.m_Kind + " " + std::to_string(track.m_Number) : track.m_Kind;
}

// What a person should notice, most important first.
struct Finding {
    bool m_IsBad;
    std::string m_Text;
};

std::vector<Finding> Findings(const FileMap& map) {
    std::vector<Finding> findings;
    for (const std::string& problem : map.m_Problems) findings.push_back({true, Clean(problem)});
    std::size_t continuous = 0;
    bool isClean = true;
    for (const MapTrack& track : map.m_Tracks) {
        const std::string name = TrackName(track, map);
        if (track.IsContinuous() && track.m_Blocks > 0) ++continuous;
        if (!track.m_Lags.empty()) {
            isClean = false;
            const auto largest =
                std::max_element(track.m_Lags.begin(), track.m_Lags.end(),
                                 [](const auto& a, const auto& b) { return a.m_Largest < b.m_Largest; });
            findings.push_back(
                {true, name + " lags: it lies up to " + SpanText(largest->m_Largest) + " behind in the file (" +
                           OctetsText(largest->m_First.m_Position) + " to " + OctetsText(largest->m_Last.m_Position) +
                           ")" +
                           (track.m_Lags.size() > 1 ? ", in " + Grouped(track.m_Lags.size()) + " stretches" : "")});
        }
        std::size_t told = 0;
        for (const MapGap& gap : track.m_Gaps) {
            isClean = false;
            const std::string length = SpanText(gap.m_To - gap.m_From);
            if (++told > 3) continue;
            if (gap.m_Where == MapGap::Where::Start) {
                findings.push_back({true, name + " starts " + length + " late"});
            } else if (gap.m_Where == MapGap::Where::End) {
                findings.push_back({true, name + " ends " + length + " early, at " + TimeText(gap.m_From, 0.1)});
            } else {
                findings.push_back({true, name + " has a gap of " + length + ", from " + TimeText(gap.m_From, 0.1) +
                                              " to " + TimeText(gap.m_To, 0.1)});
            }
        }
        if (told > 3) findings.push_back({true, name + " has " + Many(told - 3, "more gap")});
    }
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Kind == MapKind::SegmentHeader && !element.m_Declared) {
            findings.push_back({false, "the Segment's size is unknown: a live recording, or an unfinished file"});
        }
    }
    if (map.m_Cues.empty() && !map.m_Clusters.empty()) {
        findings.push_back({false, "no cues: players find places by searching"});
    }
    if (isClean && continuous > 1) {
        findings.push_back({false, "well interleaved: no track comes over a second late, no gaps"});
    } else if (isClean && continuous == 1) {
        findings.push_back({false, "no gaps"});
    }
    return findings;
}

// ---- the file as a row of parts: what is before the clusters, the clusters, what is behind them

struct Part {
    MapKind m_Kind;
    std::string m_Name;
    std::uint64_t m_Begin;
    std::uint64_t m_End;
};

std::string PartName(const MapElement& element) {
    if (element.m_Kind == MapKind::Void) return "reserved (Void)";
    return element.m_Kind == MapKind::Other ? Clean(element.m_Name) : MapKindName(element.m_Kind);
}

// How a part is shown: a class of the picture's style; a sign and a colour (of ECMA-48) of the strip.
struct Look {
    const char* m_Class;
    const char* m_Sign;
    const char* m_Colour;
};

Look LookOf(MapKind kind) {
    switch (kind) {
    case MapKind::EbmlHeader:
        return {"ebml", "E", "7"};
    case MapKind::SegmentHeader:
        return {"segment", "S", "7"};
    case MapKind::SeekHead:
        return {"seek", "H", "45;97"};
    case MapKind::ClusterIndex:
        return {"index", "X", "45;97"};
    case MapKind::Void:
        return {"void", "·", "2"};
    case MapKind::Info:
        return {"info", "I", "42;30"};
    case MapKind::Tracks:
        return {"tracks", "T", "42;30"};
    case MapKind::Cluster:
        return {"clusters", "█", "90"};
    case MapKind::Cues:
        return {"cues", "C", "45;97"};
    case MapKind::Other:
        return {"other", "o", "43;30"};
    case MapKind::Junk:
        return {"junk", "?", "41;97"};
    }
    return {"", " ", "0"};
}

std::vector<Part> PartsOf(const FileMap& map) {
    std::vector<Part> parts;
    const bool hasClusters = !map.m_Clusters.empty();
    const std::uint64_t from = hasClusters ? map.m_Clusters.front().m_Element.m_Position : map.m_Octets;
    const std::uint64_t to = hasClusters ? map.m_Clusters.back().m_Element.End() : map.m_Octets;
    const auto add = [&](const MapElement& element) {
        parts.push_back({element.m_Kind, PartName(element), element.m_Position, element.End()});
    };
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position < from) add(element);
    }
    if (hasClusters) parts.push_back({MapKind::Cluster, Many(map.m_Clusters.size(), "cluster"), from, to});
    for (const MapElement& element : map.m_Elements) {
        if (element.m_Position >= to) add(element);
    }
    constexpr std::size_t kMost = 14;
    if (parts.size() > kMost) { // those in the middle as one
        const std::size_t first = kMost / 2;
        const std::size_t last = parts.size() - kMost / 2;
        const Part middle{MapKind::Other, std::to_string(last - first) + " parts", parts[first].m_Begin,
                          parts[last - 1].m_End};
        parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(first),
                    parts.begin() + static_cast<std::ptrdiff_t>(last));
        parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(first), middle);
    }
    return parts;
}

// ---- SVG

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

// The distance between labelled ticks: 1, 2 or 5 of a power of ten, and for times minutes and hours as clocks have
// them.
double TickStep(double range, int most, bool isTime) {
    static constexpr std::array<double, 14> kClock = {10,  15,   30,   60,   120,   300,   600,
                                                      900, 1800, 3600, 7200, 14400, 28800, 86400};
    if (!(range > 0)) return 1;
    const double least = range / most;
    if (isTime && least > 5 && least <= kClock.back()) return *std::lower_bound(kClock.begin(), kClock.end(), least);
    const double power = std::pow(10, std::floor(std::log10(least)));
    for (const double factor : {1.0, 2.0, 5.0}) {
        if (least <= factor * power) return factor * power;
    }
    return 10 * power;
}

class Picture {
public:
    explicit Picture(const FileMap& map) : m_Map(map), m_Parts(PartsOf(map)) {
        m_TimeFrom = std::min(0.0, map.FirstTime());
        m_TimeTo = std::max(map.LastTime(), map.m_Duration.value_or(0));
        if (!std::isfinite(m_TimeTo)) m_TimeTo = m_TimeFrom;
        m_TimeTo = std::max(m_TimeTo, m_TimeFrom + 0.1);
        for (const MapTrack& track : map.m_Tracks) {
            if (m_Tracks.size() < kMostTracks && track.m_Blocks > 0) m_Tracks.push_back(&track);
        }
    }

    std::string Draw() {
        DrawParts();
        DrawGrid();
        DrawClusters();
        DrawGapBands();
        DrawLags();
        DrawTracks();
        DrawLanes();
        DrawCoverage();
        DrawLabels();
        const double bottom = DrawWords();

        std::string page = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"1200\" height=\"" + Number(bottom, 0) +
                           "\" viewBox=\"0 0 1200 " + Number(bottom, 0) + "\" role=\"img\">\n";
        page += "<title>" + Escaped(FileName(m_Map)) + ": how the file is laid out</title>\n<desc>" +
                Escaped(Headline(m_Map)) + "</desc>\n";
        page += kStyle;
        page += "<rect class=\"bg\" width=\"1200\" height=\"" + Number(bottom, 0) + "\"/>\n";
        return page + m_Body + "</svg>\n";
    }

private:
    static constexpr double kLeft = 92;
    static constexpr double kRight = 1076;
    static constexpr double kBar = 190; // the file to scale
    static constexpr double kTop = 222; // of the plot
    static constexpr double kBottom = 592;
    static constexpr double kKeys = 602;
    static constexpr double kCues = 622;
    static constexpr double kAxis = 642;

    double X(std::uint64_t position) const {
        return kLeft + (kRight - kLeft) * static_cast<double>(position) / static_cast<double>(m_Map.m_Octets);
    }
    double Y(double time) const {
        return kBottom -
               (kBottom - kTop) * (std::clamp(time, m_TimeFrom, m_TimeTo) - m_TimeFrom) / (m_TimeTo - m_TimeFrom);
    }

    static std::string At(double x, double y) { return Number(x, 1) + " " + Number(y, 1); }

    void Rect(const std::string& names, double x, double y, double width, double height, const std::string& tip = "") {
        m_Body += "<rect class=\"" + names + "\" x=\"" + Number(x, 1) + "\" y=\"" + Number(y, 1) + "\" width=\"" +
                  Number(width, 1) + "\" height=\"" + Number(height, 1) + "\"";
        m_Body += tip.empty() ? "/>\n" : "><title>" + Escaped(tip) + "</title></rect>\n";
    }
    void Text(const std::string& names, double x, double y, const std::string& text, const std::string& more = "") {
        m_Body += "<text" + (names.empty() ? "" : " class=\"" + names + "\"") + " x=\"" + Number(x, 1) + "\" y=\"" +
                  Number(y, 1) + "\"" + more + ">" + Escaped(text) + "</text>\n";
    }
    void Path(const std::string& names, const std::string& data, const std::string& more = "") {
        if (!data.empty()) m_Body += "<path class=\"" + names + "\"" + more + " d=\"" + data + "\"/>\n";
    }
    static std::string Colour(const char* prefix, std::size_t track) {
        return prefix + std::to_string(track % kMostTracks);
    }

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
        const double to = 1176;
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
            const double begin = X(part.m_Begin);
            const double end = std::max(X(part.m_End), begin + 0.8);
            const std::string kind = LookOf(part.m_Kind).m_Class;
            Path(kind + " fan",
                 "M" + At(x, 164) + "L" + At(x + width, 164) + "L" + At(end, kBar) + "L" + At(begin, kBar) + "Z");
            const std::string share = ShareText(part.m_End - part.m_Begin, m_Map.m_Octets);
            const std::string size = OctetsText(part.m_End - part.m_Begin);
            Rect("box", x, 112, width, 52,
                 part.m_Name + ", " + size + ", " + share + ", from octet " + Grouped(part.m_Begin));
            Rect(kind, x, 112, width, 6);
            const auto fits = static_cast<std::size_t>(std::max(1.0, (width - 6) / 6.8));
            const bool isBad = part.m_Kind == MapKind::Junk;
            Text(isBad ? "mid strong bad" : "mid strong", x + width / 2, 135, Shortened(part.m_Name, fits));
            Text("mid soft small", x + width / 2, 153, Shortened(size, fits));
            x += width + 4;
        }
        Rect("box", kLeft, kBar, kRight - kLeft, 20);
        for (const Part& part : m_Parts) {
            if (part.m_Kind == MapKind::Cluster) continue;
            Rect(LookOf(part.m_Kind).m_Class, X(part.m_Begin), kBar, std::max(0.8, X(part.m_End) - X(part.m_Begin)), 20,
                 part.m_Name + ", " + OctetsText(part.m_End - part.m_Begin));
        }
        Text("end soft small", kLeft - 10, kBar + 14, "to scale");
    }

    void DrawGrid() {
        const double step = TickStep(m_TimeTo - m_TimeFrom, 9, true);
        std::string lines;
        const double first = std::ceil(m_TimeFrom / step);
        for (int i = 0; (first + i) * step <= m_TimeTo + step / 1000; ++i) {
            const double tick = (first + i) * step;
            lines += "M" + At(kLeft, Y(tick)) + "H" + Number(kRight, 1);
            Text("end soft small", kLeft - 10, Y(tick) + 4, TimeText(tick, step));
        }
        const Unit unit = UnitFor(m_Map.m_Octets);
        const double whole = static_cast<double>(m_Map.m_Octets) / unit.m_Octets;
        const double xStep = std::max(TickStep(whole, 10, false), unit.m_Octets == 1 ? 1.0 : 0.0);
        for (int i = 0; i * xStep <= whole; ++i) {
            const double tick = i * xStep;
            const double x = kLeft + (kRight - kLeft) * tick / whole;
            lines += "M" + At(x, kTop) + "V" + Number(kAxis + 4, 1);
            Text("mid soft small", x, kAxis + 18, Number(tick, 6));
        }
        Path("grid", lines);
        Path("axis", "M" + At(kLeft, kTop) + "V" + Number(kAxis, 1) + "H" + Number(kRight, 1));
        Text("mid soft", (kLeft + kRight) / 2, kAxis + 38,
             unit.m_Octets == 1 ? "octets from the start of the file →"
                                : std::string("place in the file, ") + unit.m_Name + " from its start →");
        Text("mid soft", 24, (kTop + kBottom) / 2,
             m_TimeTo >= 3600 ? "time in the film, h:min:s →" : "time in the film, min:s →",
             " transform=\"rotate(-90 24 " + Number((kTop + kBottom) / 2, 1) + ")\"");
    }

    // In the bar and as steps of a staircase; neighbours that would be thinner than a pixel are drawn as one.
    void DrawClusters() {
        std::string even;
        std::string odd;
        std::string steps;
        bool isOdd = false;
        for (std::size_t i = 0; i < m_Map.m_Clusters.size();) {
            const MapElement& first = m_Map.m_Clusters[i].m_Element;
            double from = m_Map.m_Clusters[i].m_FirstTime;
            double to = m_Map.m_Clusters[i].m_LastTime;
            std::uint64_t end = first.End();
            for (++i; i < m_Map.m_Clusters.size() && X(end) - X(first.m_Position) < 1.5; ++i) {
                const MapCluster& next = m_Map.m_Clusters[i];
                from = std::min(from, next.m_FirstTime);
                to = std::max(to, next.m_LastTime);
                end = next.m_Element.End();
            }
            const std::string x = Number(X(first.m_Position), 1);
            const std::string width = Number(X(end) - X(first.m_Position), 1);
            (isOdd ? odd : even) += "M" + x + " " + Number(kBar, 1) + "h" + width + "v20h-" + width + "z";
            isOdd = !isOdd;
            steps += "M" + x + " " + Number(Y(from), 1) + "h" + width + "V" + Number(Y(to) - 1, 1) + "h-" + width + "z";
        }
        Path("even", even);
        Path("odd", odd);
        Path("step", steps);
    }

    void DrawGapBands() {
        std::size_t drawn = 0;
        for (const MapTrack* const track : m_Tracks) {
            for (const MapGap& gap : track->m_Gaps) {
                if (++drawn > 200) return;
                const double top = Y(gap.m_To);
                Rect("gap", kLeft, top, kRight - kLeft, std::max(2.0, Y(gap.m_From) - top),
                     TrackName(*track, m_Map) + ": nothing for " + SpanText(gap.m_To - gap.m_From));
            }
        }
    }

    // Between a late track and the one that is ahead of it.
    void DrawLags() {
        for (const MapTrack* const track : m_Tracks) {
            std::string area;
            for (const MapLag& lag : track->m_Lags) {
                std::string ahead;
                std::vector<std::string> behind;
                double last = -10;
                for (const MapPiece& piece : track->m_Pieces) {
                    if (piece.m_Last.m_Position < lag.m_First.m_Position) continue;
                    if (piece.m_First.m_Position > lag.m_Last.m_Position) break;
                    const double x = X(piece.m_First.m_Position);
                    if (x - last < 1 && !ahead.empty()) continue;
                    last = x;
                    ahead += (ahead.empty() ? "M" : "L") + At(x, Y(piece.m_First.m_Time + piece.m_Lag));
                    behind.push_back("L" + At(x, Y(piece.m_First.m_Time)));
                }
                behind.push_back("L" + At(X(lag.m_Last.m_Position), Y(lag.m_Last.m_Time)));
                area += ahead;
                for (auto point = behind.rbegin(); point != behind.rend() && !ahead.empty(); ++point) area += *point;
                if (!ahead.empty()) area += "Z";
            }
            Path("lag", area);
        }
    }

    void DrawTracks() {
        // The first is the widest, so that those over it leave its edges to be seen.
        for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
            std::string line;
            std::string keys;
            double lastX = -10;
            double lastY = -10;
            double lastKey = -10;
            const double shortest = i == 0 ? 0.6 : 3; // px
            const bool hasFewKeys = m_Tracks[i]->m_KeyFrames <= 120;
            for (const MapPiece& piece : m_Tracks[i]->m_Pieces) {
                const double x1 = X(piece.m_First.m_Position);
                const double y1 = Y(piece.m_First.m_Time);
                const double x2 = X(piece.m_Last.m_Position);
                const double y2 = Y(piece.m_Last.m_Time);
                if (std::fabs(x2 - lastX) < 0.7 && std::fabs(y2 - lastY) < 0.7) continue;
                if (std::fabs(x1 - lastX) > 1 || std::fabs(y1 - lastY) > 1) line += "M" + At(x1, y1);
                line += "L" + At(std::max(x2, x1 + shortest), y2);
                lastX = x2;
                lastY = y2;
            }
            for (const MapPiece& piece : m_Tracks[i]->m_Pieces) {
                if (!piece.m_KeyFrame || m_Tracks[i]->m_Kind != "video" || !hasFewKeys) continue;
                const double x = X(piece.m_KeyFrame->m_Position);
                if (x - lastKey < 6) continue;
                lastKey = x;
                keys += "M" + At(x, Y(piece.m_KeyFrame->m_Time) - 5) + "l5 5-5 5-5-5z";
            }
            const double width = i == 0 ? 7 : 3;
            Path(Colour("line s", i), line, " stroke-width=\"" + Number(width, 1) + "\"");
            Path(Colour("key s", i), keys);
        }
    }

    void DrawLanes() {
        std::string keys;
        double last = -10;
        for (std::size_t i = 0; i < m_Tracks.size(); ++i) {
            if (m_Tracks[i]->m_Kind != "video") continue;
            keys.clear();
            last = -10;
            for (const MapPiece& piece : m_Tracks[i]->m_Pieces) {
                if (!piece.m_KeyFrame || X(piece.m_KeyFrame->m_Position) - last < 1.5) continue;
                last = X(piece.m_KeyFrame->m_Position);
                keys += "M" + At(last, kKeys) + "v14";
            }
            Path(Colour("line s", i), keys, " stroke-width=\"1.4\"");
        }
        Text("end soft small", kLeft - 10, kKeys + 11, "key frames");

        std::vector<std::uint64_t> places;
        for (const MapCue& cue : m_Map.m_Cues) {
            if (cue.m_IsFound) places.push_back(cue.m_Cluster);
        }
        std::sort(places.begin(), places.end());
        std::string cues;
        last = -10;
        for (const std::uint64_t place : places) {
            if (X(place) - last < 2.5) continue;
            last = X(place);
            cues += "M" + At(last, kCues) + "l3.5 13h-7z";
        }
        Path("cues", cues);
        Text("end soft small", kLeft - 10, kCues + 11, "cues");
    }

    // Beside the plot: when each track has something.
    void DrawCoverage() {
        double x = kRight + 22;
        for (std::size_t i = 0; i < m_Tracks.size(); ++i, x += 12) {
            const MapTrack& track = *m_Tracks[i];
            const double top = Y(track.m_LastTime);
            Rect(Colour("f", i), x, top, 8, std::max(1.5, Y(track.m_FirstTime) - top),
                 TrackName(track, m_Map) + ": from " + TimeText(track.m_FirstTime, 0.1) + " to " +
                     TimeText(track.m_LastTime, 0.1));
            std::size_t drawn = 0;
            for (const MapGap& gap : track.m_Gaps) {
                if (++drawn > 200) break;
                Rect("bg", x, Y(gap.m_To), 8, std::max(2.0, Y(gap.m_From) - Y(gap.m_To)));
                Rect("hole", x + 3, Y(gap.m_To), 2, std::max(2.0, Y(gap.m_From) - Y(gap.m_To)));
            }
        }
        Text("soft small mid", x + 12, (kTop + kBottom) / 2, "when each track has blocks",
             " transform=\"rotate(-90 " + Number(x + 12, 1) + " " + Number((kTop + kBottom) / 2, 1) + ")\"");
    }

    // On lags and gaps, as long as there is room.
    void DrawLabels() {
        std::vector<double> taken;
        const auto isFree = [&](double y) {
            return std::none_of(taken.begin(), taken.end(), [&](double other) { return std::fabs(other - y) < 15; });
        };
        for (const MapTrack* const track : m_Tracks) {
            for (const MapGap& gap : track->m_Gaps) {
                const double y = (Y(gap.m_From) + Y(gap.m_To)) / 2 + 4;
                if (taken.size() > 12 || !isFree(y)) continue;
                taken.push_back(y);
                const std::string words = TrackName(*track, m_Map) + ": nothing for " + SpanText(gap.m_To - gap.m_From);
                // On the side that the staircase does not pass.
                if (X(gap.m_Position) < (kLeft + kRight) / 2) {
                    Text("end strong bad halo", kRight - 8, y, words);
                } else {
                    Text("strong bad halo", kLeft + 8, y, words);
                }
            }
            if (track->m_Lags.empty()) continue;
            const MapPiece* worst = &track->m_Pieces.front();
            for (const MapPiece& piece : track->m_Pieces) {
                if (piece.m_Lag > worst->m_Lag) worst = &piece;
            }
            const double x = X(worst->m_First.m_Position);
            const double low = Y(worst->m_First.m_Time);
            const double high = Y(worst->m_First.m_Time + worst->m_Lag);
            Path("bad", "M" + At(x - 1, low) + "V" + Number(high, 1) + "h2V" + Number(low, 1) + "z");
            const std::string words = TrackName(*track, m_Map) + " is " + SpanText(worst->m_Lag) + " behind";
            double y = std::min(kBottom - 6, low + 18);
            while (!isFree(y) && y > kTop) y -= 15;
            taken.push_back(y);
            if (x < kRight - 180) {
                Text("strong bad halo", x + 8, y, words);
            } else {
                Text("end strong bad halo", x - 8, y, words);
            }
        }
    }

    // Title, legend and findings. The height that all takes.
    double DrawWords() {
        Text("title", 24, 38, Shortened(FileName(m_Map), 80));
        std::string second = Headline(m_Map);
        if (!m_Map.m_WritingApp.empty()) second += " · written by " + Clean(m_Map.m_WritingApp);
        Text("soft", 24, 62, Shortened(second, 155));
        Text("", 24, 96,
             "The parts of the file in their order, with room for their names; below them, to scale, and what lies "
             "where:");

        double y = 710;
        Text("strong", 24, y, "How to read it");
        Text(
            "soft small", 24, y + 20,
            "From left to right: the file. From bottom to top: the film. Each block stands at its place and its time;");
        Text("soft small", 24, y + 37,
             "tracks that are interleaved well lie on one rising line. A track below the others comes late in the "
             "file.");
        double row = y + 62;
        for (std::size_t i = 0; i < m_Tracks.size(); ++i, row += 20) {
            const MapTrack& track = *m_Tracks[i];
            Rect(Colour("f", i), 24, row - 10, 22, i == 0 ? 8 : 4);
            Text("", 56, row,
                 Shortened("track " + std::to_string(track.m_Number) + ": " + track.m_Kind + ", " +
                               Clean(track.m_CodecID) + ", " + Many(track.m_Blocks, "block") + ", " +
                               OctetsText(track.m_Octets) + " (" + ShareText(track.m_Octets, m_Map.m_Octets) + ")",
                           84));
        }
        if (m_Map.m_Tracks.size() > m_Tracks.size()) {
            Text("soft", 56, row, Many(m_Map.m_Tracks.size() - m_Tracks.size(), "more track") + ", empty or not drawn");
            row += 20;
        }
        Path("key s0", "M35 " + Number(row - 10, 1) + "l5 5-5 5-5-5z");
        Text("", 56, row, "key frame, where a player can begin");
        Path("cues", "M240 " + Number(row - 11, 1) + "l3.5 13h-7z", " transform=\"translate(72)\"");
        Text("", 326, row, "cue, names the cluster that begins there");
        row += 20;
        Rect("step", 24, row - 11, 22, 12);
        Text("", 56, row, "cluster, a stretch of blocks");
        Rect("lag", 302, row - 11, 20, 12);
        Text("", 326, row, "a track comes late in the file");
        row += 20;
        Rect("gap", 302, row - 11, 20, 12);
        Text("", 326, row, "a track has nothing at that time");

        Text("strong", 680, y, "What stands out");
        double right = y + 20;
        const std::vector<Finding> findings = Findings(m_Map);
        constexpr std::size_t kMostFindings = 9;
        for (std::size_t i = 0; i < findings.size() && i < kMostFindings; ++i) {
            const char* const names = findings[i].m_IsBad ? "bad" : "";
            for (const std::string& line : Wrapped((findings[i].m_IsBad ? "! " : "") + findings[i].m_Text, 72)) {
                Text(names, 680, right, line);
                right += 20;
            }
        }
        if (findings.size() > kMostFindings) {
            Text("soft", 680, right, "and " + std::to_string(findings.size() - kMostFindings) + " more");
            right += 20;
        }
        return std::max(row, right) + 18;
    }

    const FileMap& m_Map;
    std::vector<Part> m_Parts;
    std::vector<const MapTrack*> m_Tracks; // that are drawn
    double m_TimeFrom;
    double m_TimeTo;
    std::string m_Body;
};

// ---- the strip

class Strip {
public:
    Strip(const FileMap& map, int columns, bool hasColour)
        : m_Map(map), m_HasColour(hasColour), m_Parts(PartsOf(map)),
          m_Cells(static_cast<std::size_t>(std::clamp(columns, 40, 160) - kMargin)) {
        // Every part has a cell at least; the clusters share what is left, to scale.
        std::size_t taken = 0;
        for (std::size_t i = 0; i < m_Parts.size(); ++i) {
            const double share =
                static_cast<double>(m_Parts[i].m_End - m_Parts[i].m_Begin) / static_cast<double>(map.m_Octets);
            m_Widths.push_back(
                std::max<std::size_t>(1, static_cast<std::size_t>(share * static_cast<double>(m_Cells))));
            taken += m_Widths.back();
        }
        while (taken > m_Cells) {
            --*std::max_element(m_Widths.begin(), m_Widths.end());
            --taken;
        }
        *std::max_element(m_Widths.begin(), m_Widths.end()) += m_Cells - taken;
    }

    std::string Draw() {
        std::string text = Painted("1", FileName(m_Map)) + "\n" + Headline(m_Map) + "\n\n";
        text += Row("layout", Layout());
        for (std::size_t i = 0; i < m_Map.m_Tracks.size() && i < kMostTracks; ++i) {
            if (m_Map.m_Tracks[i].m_Blocks > 0) text += TrackRow(m_Map.m_Tracks[i], i);
        }
        text += KeyRow() + CueRow() + TimeRow() + "\n" + Legend() + "\n";
        for (const Finding& finding : Findings(m_Map)) {
            text += finding.m_IsBad ? Painted("31", "! " + finding.m_Text) + "\n" : finding.m_Text + "\n";
        }
        return text + "\n" + Table();
    }

private:
    static constexpr int kMargin = 12;

    std::string Painted(const std::string& colour, const std::string& text) const {
        return m_HasColour ? "\033[" + colour + "m" + text + "\033[0m" : text;
    }
    static std::string Padded(const std::string& text, std::size_t width) {
        return text + std::string(width > Length(text) ? width - Length(text) : 0, ' ');
    }
    static std::string Row(const std::string& name, const std::string& cells) {
        return Padded(Shortened(name, kMargin - 1), kMargin) + cells + "\n";
    }

    std::size_t CellOf(std::uint64_t position) const {
        std::size_t cell = 0;
        for (std::size_t i = 0; i < m_Parts.size(); cell += m_Widths[i++]) {
            if (position >= m_Parts[i].m_End && i + 1 < m_Parts.size()) continue;
            const double share = static_cast<double>(position - std::min(position, m_Parts[i].m_Begin)) /
                                 static_cast<double>(std::max<std::uint64_t>(1, m_Parts[i].m_End - m_Parts[i].m_Begin));
            const double inside = share * static_cast<double>(m_Widths[i]);
            return std::min({cell + static_cast<std::size_t>(inside), cell + m_Widths[i] - 1, m_Cells - 1});
        }
        return m_Cells - 1;
    }

    std::string Layout() const {
        std::vector<int> shade(m_Cells, 0); // of clusters, by turns
        int turn = 0;
        for (const MapCluster& cluster : m_Map.m_Clusters) {
            const std::size_t last = CellOf(cluster.m_Element.End() - 1);
            for (std::size_t i = CellOf(cluster.m_Element.m_Position); i <= last; ++i) shade[i] = turn;
            turn = 1 - turn;
        }
        std::string cells;
        std::size_t cell = 0;
        for (std::size_t i = 0; i < m_Parts.size(); ++i) {
            const Look look = LookOf(m_Parts[i].m_Kind);
            for (std::size_t k = 0; k < m_Widths[i]; ++k, ++cell) {
                const bool isCluster = m_Parts[i].m_Kind == MapKind::Cluster;
                cells += Painted(look.m_Colour, isCluster && shade[cell] == 1 ? "▒" : look.m_Sign);
            }
        }
        return cells;
    }

    // How much of each place is the track's, as the height of a block; an exclamation mark where it lags.
    std::string TrackRow(const MapTrack& track, std::size_t index) const {
        static constexpr std::array<const char*, 9> kHeights = {" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        static constexpr std::array<const char*, 4> kColours = {"94", "33", "32", "35"};
        std::vector<double> octets(m_Cells, 0);
        std::vector<double> all(m_Cells, 0);
        std::vector<bool> isLate(m_Cells, false);
        for (const MapTrack& other : m_Map.m_Tracks) {
            for (const MapPiece& piece : other.m_Pieces) Spread(piece, &other == &track ? &octets : nullptr, all);
        }
        for (const MapLag& lag : track.m_Lags) {
            for (std::size_t i = CellOf(lag.m_First.m_Position); i <= CellOf(lag.m_Last.m_Position); ++i)
                isLate[i] = true;
        }
        std::string cells;
        for (std::size_t i = 0; i < m_Cells; ++i) {
            const double share = all[i] > 0 ? octets[i] / all[i] : 0;
            const auto height =
                share > 0 ? std::clamp<std::size_t>(static_cast<std::size_t>(std::lround(share * 8)), 1, 8) : 0;
            cells += isLate[i] ? Painted("31;1", "!") : Painted(kColours[index % kColours.size()], kHeights[height]);
        }
        return Row(TrackName(track, m_Map), cells);
    }

    void Spread(const MapPiece& piece, std::vector<double>* octets, std::vector<double>& all) const {
        const std::size_t first = CellOf(piece.m_First.m_Position);
        const std::size_t last = std::max(first, CellOf(piece.m_Last.m_Position - 1));
        const double each = static_cast<double>(piece.m_Octets) / static_cast<double>(last - first + 1);
        for (std::size_t i = first; i <= last; ++i) {
            all[i] += each;
            if (octets != nullptr) (*octets)[i] += each;
        }
    }

    std::string Marks(const std::string& name, const std::vector<bool>& marks, const char* sign,
                      const char* colour) const {
        if (std::find(marks.begin(), marks.end(), true) == marks.end()) return "";
        std::string cells;
        for (const bool mark : marks) cells += mark ? Painted(colour, sign) : " ";
        return Row(name, cells);
    }
    std::string KeyRow() const {
        std::vector<bool> marks(m_Cells, false);
        for (const MapTrack& track : m_Map.m_Tracks) {
            for (const MapPiece& piece : track.m_Pieces) {
                if (track.m_Kind == "video" && piece.m_KeyFrame) marks[CellOf(piece.m_KeyFrame->m_Position)] = true;
            }
        }
        return Marks("key frames", marks, "◆", "94");
    }
    std::string CueRow() const {
        std::vector<bool> marks(m_Cells, false);
        for (const MapCue& cue : m_Map.m_Cues) {
            if (cue.m_IsFound) marks[CellOf(cue.m_Cluster)] = true;
        }
        return Marks("cues", marks, "▲", "35");
    }

    // The time that the film has come to, at the clusters that have room for it.
    std::string TimeRow() const {
        std::string cells;
        for (const MapCluster& cluster : m_Map.m_Clusters) {
            const std::size_t cell = CellOf(cluster.m_Element.m_Position);
            const std::string time = "╵" + TimeText(cluster.m_Time, 1);
            if (!cells.empty() && cell < Length(cells) + 3) continue;
            if (cell + Length(time) > m_Cells) break;
            cells = Padded(cells, cell) + time;
        }
        return cells.empty() ? "" : Row("time", cells);
    }

    std::string Legend() const {
        std::string text;
        std::vector<MapKind> seen;
        for (const Part& part : m_Parts) {
            if (std::find(seen.begin(), seen.end(), part.m_Kind) != seen.end()) continue;
            seen.push_back(part.m_Kind);
            const Look look = LookOf(part.m_Kind);
            const std::string name = part.m_Kind == MapKind::Cluster ? "▒ clusters"
                                     : part.m_Kind == MapKind::Other ? " other"
                                                                     : " " + part.m_Name;
            text += (text.empty() ? "" : "   ") + Painted(look.m_Colour, look.m_Sign) + name;
        }
        return text + "\n";
    }

    std::string Table() const {
        const std::vector<MapShare> shares = MapShares(m_Map);
        std::size_t width = 7;
        for (const MapShare& share : shares) width = std::max(width, Length(Clean(share.m_What)));
        const auto line = [&](const std::string& what, const std::string& count, const std::string& octets,
                              const std::string& share) {
            const auto right = [](const std::string& text, std::size_t columns) {
                return std::string(columns > text.size() ? columns - text.size() : 0, ' ') + text;
            };
            return Padded(what, width) + right(count, 12) + right(octets, 18) + right(share, 11) + "\n";
        };
        std::string text = Painted("1", line("element", "count", "octets", "share"));
        for (const MapShare& share : shares) {
            text += line(Clean(share.m_What), Grouped(share.m_Count), Grouped(share.m_Octets),
                         ShareText(share.m_Octets, m_Map.m_Octets));
        }
        return text + line("file", "", Grouped(m_Map.m_Octets), "100 %");
    }

    const FileMap& m_Map;
    bool m_HasColour;
    std::vector<Part> m_Parts;
    std::size_t m_Cells;
    std::vector<std::size_t> m_Widths; // of the parts
};

} // namespace

std::string MapAsSvg(const FileMap& map) { return Picture(map).Draw(); }

std::string MapAsStrip(const FileMap& map, int columns, bool hasColour) {
    return Strip(map, columns, hasColour).Draw();
}

int TerminalWidth() {
    winsize size = {};
    if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
    return size.ws_col;
}

bool WantsColour() {
    const char* const noColour = std::getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0');
}
