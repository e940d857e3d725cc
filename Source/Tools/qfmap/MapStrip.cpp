// SPDX-License-Identifier: MIT
#include "MapStrip.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "MapSummary.h"
#include "Surroundings.h"
#include "Words.h"

namespace {

// How a part is shown: a sign, and a colour of ECMA-48.
struct Look {
    const char* m_Sign;
    const char* m_Colour;
};

Look LookOf(MapKind kind) {
    switch (kind) {
    case MapKind::EbmlHeader:
        return {"E", "7"};
    case MapKind::SegmentHeader:
        return {"S", "7"};
    case MapKind::SeekHead:
        return {"H", "45;97"};
    case MapKind::ClusterIndex:
        return {"X", "45;97"};
    case MapKind::Void:
        return {"·", "2"};
    case MapKind::Info:
        return {"I", "42;30"};
    case MapKind::Tracks:
        return {"T", "42;30"};
    case MapKind::Cluster:
        return {"█", "90"};
    case MapKind::Cues:
        return {"C", "45;97"};
    case MapKind::Other:
        return {"o", "43;30"};
    case MapKind::Junk:
        return {"?", "41;97"};
    }
    return {" ", "0"};
}

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
        std::string text = Painted("1", line("element", "count", "bytes", "share"));
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
