// SPDX-License-Identifier: Apache-2.0
// Weighted least squares with three unknowns, thousands of systems at once, in each of the three
// ways that the library has.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <vector>

namespace trend
{

using Vector = std::array<double, 3>;
using Matrix = std::array<Vector, 3>; // rows

enum class Method {
    lu,       // of the normal equations
    cholesky, // of the same, which are symmetric and positive definite
    qr,       // of the weighted equations themselves, one for each measurement
};
inline constexpr std::array methods{Method::lu, Method::cholesky, Method::qr};
const char *name(Method);

// System k is object k of every array. One with too few equations is zero throughout.
struct Systems {
    std::vector<Matrix> normalMatrices;
    std::vector<Vector> normalSides;
    std::size_t height;            // equations of each system
    std::vector<double> equations; // rows of three
    std::vector<double> sides;
};

struct Solutions {
    std::vector<Vector> x; // valid where smallestPivot is above 0
    // In the measure of the normal equations; 0 for a system that the library refused.
    std::vector<double> smallestPivot;
    std::size_t decompositions; // calls: 1, and 1 more behind every refused system
    std::chrono::duration<double> time;
};

Solutions solve(const Systems &, Method);

} // namespace trend
