// SPDX-License-Identifier: Apache-2.0
// Local quadratic regression: one weighted least-squares parabola per week, all of them solved
// by one array call of the library.
#pragma once

#include "series.hpp"

#include <chrono>
#include <cstddef>
#include <optional>
#include <vector>

namespace trend
{

// Of the 43 years of the example about ten: a fit that sees a year or two follows the season, and
// at the ends of the series, where it sees one side only, takes it for the slope.
inline constexpr double defaultSpan = 0.25;

// Weights sum to 1 and abscissae lie within [-1, 1], so the first pivot is 1 and the others are
// measured against it. Below this one, half of a double's sixteen digits are lost.
inline constexpr double smallestPivot = 1e-8;

enum class Outcome {
    fitted,
    singular,       // fewer than three measured weeks with weight: reported by the library
    illConditioned, // a pivot below smallestPivot: for the caller to judge
};

struct LocalFit {
    Outcome outcome;
    double trend;        // valid if fitted
    double slopePerYear; // likewise
};

struct Regression {
    std::vector<LocalFit> fits; // one per week of the series
    std::size_t neighbours;     // measured weeks per neighbourhood, if no reach cuts it off
    std::size_t decompositions; // LU calls: 1, and 1 more behind every singular week
    std::chrono::duration<double> solveTime;
};

// `span` is the fraction of the measured weeks that one fit looks at; `reachWeeks` limits how far
// away they may be. Throws std::runtime_error for a span that makes no sense.
Regression fitLocalQuadratics(const Series &series, double span, std::optional<int> reachWeeks);

} // namespace trend
