// SPDX-License-Identifier: Apache-2.0
// Points and lines over axes.
#pragma once

#include "common/canvas.hpp"

#include <string>
#include <utility>
#include <vector>

namespace common
{

struct Curve {
    enum Kind { points, line } kind;
    std::string title; // in the legend; none if empty
    Colour colour;
    double size;              // diameter of a point, width of a line, in pixels
    std::vector<double> x, y; // a NaN leaves a gap
};

struct Tick {
    double at;
    std::string label; // a short mark if empty
};

struct Axis {
    std::string label;
    double from = 0, to = 0;      // of the data if equal
    std::vector<Tick> ticks = {}; // round numbers if empty
};

struct Panel {
    Axis x, y;
    std::vector<Curve> curves; // the first is drawn first
    double share = 1;          // of the picture's height, beside the other panels'
    bool zeroLine = false;
};

inline constexpr Colour measuredBlue{127, 168, 204}, resultRed{192, 57, 43},
    plainGrey{110, 110, 110};

// Panels below one another under one title.
Canvas drawPlot(const std::string &title, const std::vector<Panel> &panels, int width = 1600,
                int height = 900);

} // namespace common
