// SPDX-License-Identifier: MIT
#include "MapPlot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "MapSummary.h"
#include "Words.h"

namespace {

using Layout = PictureLayout;

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

class Plot {
public:
    Plot(SvgPage& page, const FileMap& map, const PictureLayout& layout)
        : m_Page(page), m_Map(map), m_Layout(layout), m_Tracks(layout.Tracks()) {}

    // What comes later lies over what was before.
    void Draw() {
        DrawGrid();
        DrawClusters();
        DrawGapBands();
        DrawLags();
        DrawTracks();
        DrawLanes();
        DrawCoverage();
        DrawLabels();
    }

private:
    // Below the plot.
    static constexpr double kKeys = 602;
    static constexpr double kCues = 622;
    static constexpr double kAxis = 642;

    double X(std::uint64_t position) const { return m_Layout.X(position); }
    double Y(double time) const { return m_Layout.Y(time); }

    void DrawGrid() {
        const double step = TickStep(m_Layout.TimeTo() - m_Layout.TimeFrom(), 9, true);
        std::string lines;
        const double first = std::ceil(m_Layout.TimeFrom() / step);
        for (int i = 0; (first + i) * step <= m_Layout.TimeTo() + step / 1000; ++i) {
            const double tick = (first + i) * step;
            lines += "M" + SvgPage::At(Layout::kLeft, Y(tick)) + "H" + Number(Layout::kRight, 1);
            m_Page.Text("end soft small", Layout::kLeft - 10, Y(tick) + 4, TimeText(tick, step));
        }
        const Unit unit = UnitFor(m_Map.m_Octets);
        const double whole = static_cast<double>(m_Map.m_Octets) / unit.m_Octets;
        const double xStep = std::max(TickStep(whole, 10, false), unit.m_Octets == 1 ? 1.0 : 0.0);
        for (int i = 0; i * xStep <= whole; ++i) {
            const double tick = i * xStep;
            const double x = Layout::kLeft + (Layout::kRight - Layout::kLeft) * tick / whole;
            lines += "M" + SvgPage::At(x, Layout::kTop) + "V" + Number(kAxis + 4, 1);
            m_Page.Text("mid soft small", x, kAxis + 18, Number(tick, 6));
        }
        m_Page.Path("grid", lines);
        m_Page.Path("axis", "M" + SvgPage::At(Layout::kLeft, Layout::kTop) + "V" + Number(kAxis, 1) + "H" +
                                Number(Layout::kRight, 1));
        m_Page.Text("mid soft", (Layout::kLeft + Layout::kRight) / 2, kAxis + 38,
                    unit.m_Octets == 1 ? "bytes from the start of the file →"
                                       : std::string("place in the file, ") + unit.m_Name + " from its start →");
        m_Page.Text("mid soft", 24, (Layout::kTop + Layout::kBottom) / 2,
                    m_Layout.TimeTo() >= 3600 ? "time in the film, h:min:s →" : "time in the film, min:s →",
                    " transform=\"rotate(-90 24 " + Number((Layout::kTop + Layout::kBottom) / 2, 1) + ")\"");
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
            (isOdd ? odd : even) += "M" + x + " " + Number(Layout::kBar, 1) + "h" + width + "v20h-" + width + "z";
            isOdd = !isOdd;
            steps += "M" + x + " " + Number(Y(from), 1) + "h" + width + "V" + Number(Y(to) - 1, 1) + "h-" + width + "z";
        }
        m_Page.Path("even", even);
        m_Page.Path("odd", odd);
        m_Page.Path("step", steps);
    }

    void DrawGapBands() {
        std::size_t drawn = 0;
        for (const MapTrack* const track : m_Tracks) {
            for (const MapGap& gap : track->m_Gaps) {
                if (++drawn > 200) return;
                const double top = Y(gap.m_To);
                m_Page.Rect("gap", Layout::kLeft, top, Layout::kRight - Layout::kLeft,
                            std::max(2.0, Y(gap.m_From) - top),
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
                    ahead += (ahead.empty() ? "M" : "L") + SvgPage::At(x, Y(piece.m_First.m_Time + piece.m_Lag));
                    behind.push_back("L" + SvgPage::At(x, Y(piece.m_First.m_Time)));
                }
                behind.push_back("L" + SvgPage::At(X(lag.m_Last.m_Position), Y(lag.m_Last.m_Time)));
                area += ahead;
                for (auto point = behind.rbegin(); point != behind.rend() && !ahead.empty(); ++point) area += *point;
                if (!ahead.empty()) area += "Z";
            }
            m_Page.Path("lag", area);
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
                if (std::fabs(x1 - lastX) > 1 || std::fabs(y1 - lastY) > 1) line += "M" + SvgPage::At(x1, y1);
                line += "L" + SvgPage::At(std::max(x2, x1 + shortest), y2);
                lastX = x2;
                lastY = y2;
            }
            for (const MapPiece& piece : m_Tracks[i]->m_Pieces) {
                if (!piece.m_KeyFrame || m_Tracks[i]->m_Kind != "video" || !hasFewKeys) continue;
                const double x = X(piece.m_KeyFrame->m_Position);
                if (x - lastKey < 6) continue;
                lastKey = x;
                keys += "M" + SvgPage::At(x, Y(piece.m_KeyFrame->m_Time) - 5) + "l5 5-5 5-5-5z";
            }
            const double width = i == 0 ? 7 : 3;
            m_Page.Path(Layout::Colour("line s", i), line, " stroke-width=\"" + Number(width, 1) + "\"");
            m_Page.Path(Layout::Colour("key s", i), keys);
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
                keys += "M" + SvgPage::At(last, kKeys) + "v14";
            }
            m_Page.Path(Layout::Colour("line s", i), keys, " stroke-width=\"1.4\"");
        }
        m_Page.Text("end soft small", Layout::kLeft - 10, kKeys + 11, "key frames");

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
            cues += "M" + SvgPage::At(last, kCues) + "l3.5 13h-7z";
        }
        m_Page.Path("cues", cues);
        m_Page.Text("end soft small", Layout::kLeft - 10, kCues + 11, "cues");
    }

    // Beside the plot: when each track has something.
    void DrawCoverage() {
        double x = Layout::kRight + 22;
        for (std::size_t i = 0; i < m_Tracks.size(); ++i, x += 12) {
            const MapTrack& track = *m_Tracks[i];
            const double top = Y(track.m_LastTime);
            m_Page.Rect(Layout::Colour("f", i), x, top, 8, std::max(1.5, Y(track.m_FirstTime) - top),
                        TrackName(track, m_Map) + ": from " + TimeText(track.m_FirstTime, 0.1) + " to " +
                            TimeText(track.m_LastTime, 0.1));
            std::size_t drawn = 0;
            for (const MapGap& gap : track.m_Gaps) {
                if (++drawn > 200) break;
                m_Page.Rect("bg", x, Y(gap.m_To), 8, std::max(2.0, Y(gap.m_From) - Y(gap.m_To)));
                m_Page.Rect("hole", x + 3, Y(gap.m_To), 2, std::max(2.0, Y(gap.m_From) - Y(gap.m_To)));
            }
        }
        m_Page.Text("soft small mid", x + 12, (Layout::kTop + Layout::kBottom) / 2, "when each track has blocks",
                    " transform=\"rotate(-90 " + Number(x + 12, 1) + " " +
                        Number((Layout::kTop + Layout::kBottom) / 2, 1) + ")\"");
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
                if (X(gap.m_Position) < (Layout::kLeft + Layout::kRight) / 2) {
                    m_Page.Text("end strong bad halo", Layout::kRight - 8, y, words);
                } else {
                    m_Page.Text("strong bad halo", Layout::kLeft + 8, y, words);
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
            m_Page.Path("bad", "M" + SvgPage::At(x - 1, low) + "V" + Number(high, 1) + "h2V" + Number(low, 1) + "z");
            const std::string words = TrackName(*track, m_Map) + " is " + SpanText(worst->m_Lag) + " behind";
            double y = std::min(Layout::kBottom - 6, low + 18);
            while (!isFree(y) && y > Layout::kTop) y -= 15;
            taken.push_back(y);
            if (x < Layout::kRight - 180) {
                m_Page.Text("strong bad halo", x + 8, y, words);
            } else {
                m_Page.Text("end strong bad halo", x - 8, y, words);
            }
        }
    }

    SvgPage& m_Page;
    const FileMap& m_Map;
    const PictureLayout& m_Layout;
    const std::vector<const MapTrack*>& m_Tracks;
};

} // namespace

void DrawPlot(SvgPage& page, const FileMap& map, const PictureLayout& layout) { Plot(page, map, layout).Draw(); }
