// SPDX-License-Identifier: MIT
#include "Turn.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

extern "C" {
#include <libavutil/display.h>
}

namespace {

using Matrix = std::array<std::int32_t, 9>;

std::optional<Matrix> DisplayMatrix(const AVStream* stream) {
    std::size_t size = 0;
    const std::uint8_t* const data = av_stream_get_side_data(stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    Matrix matrix{};
    if (data == nullptr || size < sizeof matrix) return std::nullopt;
    std::memcpy(matrix.data(), data, sizeof matrix);
    return matrix;
}

} // namespace

std::string TurnText(const AVStream* stream) {
    const std::optional<Matrix> matrix = DisplayMatrix(stream);
    if (!matrix) return "";
    const Matrix& m = *matrix;
    const double area = static_cast<double>(m[0]) * m[4] - static_cast<double>(m[1]) * m[3];
    if (area < 0) return "mirroring";
    const double degrees = av_display_rotation_get(m.data());
    const long turn = std::isnan(degrees) ? 0 : std::labs(std::lround(degrees));
    return turn == 0 ? "" : "rotation by " + std::to_string(turn) + " degrees";
}

std::string TurnFilter(const AVStream* stream) {
    const std::optional<Matrix> matrix = DisplayMatrix(stream);
    if (!matrix) return "";
    const Matrix& m = *matrix;
    const double degrees = av_display_rotation_get(m.data());
    const long turn = std::isnan(degrees) ? 0 : (std::lround(-degrees) % 360 + 360) % 360; // clockwise
    switch (turn) {
    case 0:
        return m[4] < 0 ? "vflip" : "";
    case 90:
        return m[3] > 0 ? "transpose=cclock_flip" : "transpose=clock";
    case 180:
        return m[0] < 0 && m[4] < 0 ? "hflip,vflip" : m[0] < 0 ? "hflip" : m[4] < 0 ? "vflip" : "";
    case 270:
        return m[3] < 0 ? "transpose=clock_flip" : "transpose=cclock";
    default:
        return "rotate=" + std::to_string(turn) + "*PI/180";
    }
}
