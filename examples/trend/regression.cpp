// SPDX-License-Identifier: Apache-2.0
#include "regression.hpp"

#include <zonm.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace trend
{
namespace
{

using Vector = std::array<double, 3>;
using Matrix = std::array<Vector, 3>; // rows
using Pivots = std::array<std::int32_t, 3>;

constexpr std::int32_t size = 3;
constexpr std::int32_t elementStride = sizeof(double);
constexpr std::int32_t vectorStride = sizeof(Vector);
constexpr std::int32_t matrixStride = sizeof(Matrix);
constexpr std::int32_t untouched = -1;

constexpr double daysPerYear = 365.2425;

// All weeks' normal equations, object k belonging to week k.
struct NormalEquations {
    std::vector<Matrix> matrices;
    std::vector<Vector> sides;
    std::vector<double> bandwidths; // in days
};

struct Points {
    std::vector<double> days;
    std::vector<double> values;
};

double toDays(std::chrono::sys_days date)
{
    return static_cast<double>(date.time_since_epoch().count());
}

Points measuredPoints(const Series &series)
{
    Points points;
    for (const auto &week : series) {
        if (!week.measured)
            continue;
        points.days.push_back(toDays(week.date));
        points.values.push_back(*week.measured);
    }
    return points;
}

std::size_t neighboursOf(double span, std::size_t measured)
{
    // The outermost neighbour carries no weight, and neither does a second one at the same
    // distance: five are needed for three that do.
    constexpr std::size_t fewest = 5;

    if (!(span > 0 && span <= 1)) // also catches NaN
        throw std::runtime_error("the span must be above 0 and at most 1, the fraction of the "
                                 "measured weeks that one fit looks at; try --span 0.25");
    if (measured < fewest)
        throw std::runtime_error("the series has only " + std::to_string(measured) +
                                 " measured weeks; a local quadratic needs at least " +
                                 std::to_string(fewest));
    const auto neighbours =
        static_cast<std::size_t>(std::lround(span * static_cast<double>(measured)));
    if (neighbours < fewest) {
        const double enough = std::ceil(1e4 * fewest / static_cast<double>(measured)) / 1e4;
        std::string suggestion = std::to_string(std::min(enough, 1.0));
        suggestion.erase(suggestion.find_last_not_of('0') + 1);
        throw std::runtime_error("the span takes in " + std::to_string(neighbours) + " of the " +
                                 std::to_string(measured) + " measured weeks; a local quadratic " +
                                 "needs at least " + std::to_string(fewest) +
                                 ", so give a --span of " + suggestion + " or more");
    }
    return neighbours;
}

// The library's test for singularity is absolute: at this size a pivot fails only if its magnitude
// is below 4.45e-308, however large the matrix is. In days or years the pivots of a good fit and of
// a hopeless one both depend on the unit; so the abscissa is scaled to t = (x - x0) / bandwidth and
// the weights to the sum 1. Then the first pivot is exactly 1, and the others are a measure of how
// good the neighbourhood is.
//
// A neighbourhood with fewer than three weighted weeks is singular in theory, yet elimination would
// leave a residue of rounding, about 1e-17, in place of the zero pivot, and the library would take
// it. The weeks are counted instead, which no rounding can blur, and the matrix of a poor week
// stays zero: that one the library refuses.
void addNormalEquations(NormalEquations &equations, const Points &points, std::size_t first,
                        std::size_t last, double x0, double bandwidth)
{
    Matrix matrix{};
    Vector side{};
    std::array<double, 5> moments{};
    int weighted = 0;
    for (std::size_t i = first; i < last; ++i) {
        const double t = (points.days[i] - x0) / bandwidth;
        if (std::abs(t) >= 1)
            continue;
        const double cube = std::abs(t * t * t);
        const double weight = (1 - cube) * (1 - cube) * (1 - cube);
        double term = weight;
        for (std::size_t power = 0; power < moments.size(); ++power, term *= t) {
            moments[power] += term;
            if (power < side.size())
                side[power] += term * points.values[i];
        }
        ++weighted;
    }
    if (weighted >= size) {
        for (std::size_t i = 0; i < matrix.size(); ++i)
            for (std::size_t j = 0; j < matrix.size(); ++j)
                matrix[i][j] = moments[i + j] / moments[0];
        for (auto &element : side)
            element /= moments[0];
    } else {
        side = {};
    }
    equations.matrices.push_back(matrix);
    equations.sides.push_back(side);
    equations.bandwidths.push_back(bandwidth);
}

NormalEquations formNormalEquations(const Series &series, const Points &points,
                                    std::size_t neighbours, std::optional<int> reachWeeks)
{
    const double reach = reachWeeks ? 7.0 * *reachWeeks : std::numeric_limits<double>::infinity();
    const auto &days = points.days;
    NormalEquations equations;
    std::size_t first = 0; // of the nearest neighbours; never goes back as the weeks go on
    for (const auto &week : series) {
        const double x0 = toDays(week.date);
        while (first + neighbours < days.size() && days[first + neighbours] - x0 < x0 - days[first])
            ++first;
        const std::size_t last = first + neighbours;
        const double farthest = std::max(x0 - days[first], days[last - 1] - x0);
        addNormalEquations(equations, points, first, last, x0, std::min(farthest, reach));
    }
    return equations;
}

struct Factors {
    std::vector<Matrix> matrices;
    std::vector<Pivots> pivots;
    std::vector<bool> singular;
    std::size_t calls = 0;
};

// An array call ends at the first object that fails. Those before it are complete and those behind
// it untouched, but the call does not say which one it was: the mark in `pivots` does. The failing
// object has its pivots written, so it is the last one that lost the mark, and the next call starts
// behind it.
void decompose(const std::vector<Matrix> &matrices, Factors &factors)
{
    for (std::size_t start = 0; start < matrices.size();) {
        const ZonStatus status = zonmLUDecomp_ma_64f(
            matrices[start][0].data(), matrixStride, vectorStride, elementStride,
            factors.pivots[start].data(), factors.matrices[start][0].data(), matrixStride,
            vectorStride, elementStride, size, static_cast<std::int32_t>(matrices.size() - start));
        ++factors.calls;
        if (status == zonStsOk)
            return;
        if (status != zonStsSingular)
            throw std::runtime_error("the decomposition returned status " + std::to_string(status));
        const auto begin = factors.pivots.begin();
        const auto behind =
            std::partition_point(begin + static_cast<std::ptrdiff_t>(start), factors.pivots.end(),
                                 [](const Pivots &pivots) { return pivots[0] != untouched; });
        start = static_cast<std::size_t>(behind - begin);
        factors.singular[start - 1] = true;
    }
}

double smallestPivotOf(const Matrix &factors, const Pivots &pivots)
{
    double smallest = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < pivots.size(); ++i)
        smallest = std::min(smallest, std::abs(factors[static_cast<std::size_t>(pivots[i])][i]));
    return smallest;
}

} // namespace

Regression fitLocalQuadratics(const Series &series, double span, std::optional<int> reachWeeks)
{
    const Points points = measuredPoints(series);
    const std::size_t neighbours = neighboursOf(span, points.days.size());
    const auto equations = formNormalEquations(series, points, neighbours, reachWeeks);

    const std::size_t count = series.size();
    Factors factors{std::vector<Matrix>(count), std::vector<Pivots>(count),
                    std::vector<bool>(count)};
    for (auto &pivots : factors.pivots)
        pivots.fill(untouched);
    std::vector<Vector> solutions(count);

    const auto begin = std::chrono::steady_clock::now();
    decompose(equations.matrices, factors);
    // It goes through all objects and tests none: a singular week gets NaN and still status 0.
    const ZonStatus status = zonmLUBackSubst_mava_64f(
        factors.matrices[0][0].data(), matrixStride, vectorStride, elementStride,
        factors.pivots[0].data(), equations.sides[0].data(), vectorStride, elementStride,
        solutions[0].data(), vectorStride, elementStride, size, static_cast<std::int32_t>(count));
    const auto end = std::chrono::steady_clock::now();
    if (status != zonStsOk)
        throw std::runtime_error("the back substitution returned status " + std::to_string(status));

    Regression regression{{}, neighbours, factors.calls, end - begin};
    for (std::size_t k = 0; k < count; ++k) {
        Outcome outcome = Outcome::fitted;
        if (factors.singular[k])
            outcome = Outcome::singular;
        else if (smallestPivotOf(factors.matrices[k], factors.pivots[k]) < smallestPivot)
            outcome = Outcome::illConditioned;
        regression.fits.push_back(
            {outcome, solutions[k][0], solutions[k][1] / equations.bandwidths[k] * daysPerYear});
    }
    return regression;
}

} // namespace trend
