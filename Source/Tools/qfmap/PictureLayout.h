// SPDX-License-Identifier: MIT
// The layout that all parts of a map's picture share: the place of an octet and of a time, the tracks that are drawn,
// and their colours.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Map.h"

class PictureLayout {
public:
    static constexpr double kLeft = 92; // of the file to scale, and of the plot
    static constexpr double kRight = 1076;
    static constexpr double kBar = 190; // the file to scale
    static constexpr double kTop = 222; // of the plot
    static constexpr double kBottom = 592;
    static constexpr double kWords = 710; // below the plot

    // The map must outlive the layout.
    explicit PictureLayout(const FileMap& map);

    double X(std::uint64_t position) const;
    double Y(double time) const; // times beyond the first or last are drawn there
    double TimeFrom() const { return m_TimeFrom; }
    double TimeTo() const { return m_TimeTo; }

    const std::vector<const MapTrack*>& Tracks() const { return m_Tracks; } // that are drawn
    // The class of a track's colour: of a shape ("f") or a line ("s"), other names before it.
    static std::string Colour(const char* prefix, std::size_t track);

private:
    double m_Octets;
    double m_TimeFrom;
    double m_TimeTo;
    std::vector<const MapTrack*> m_Tracks;
};
