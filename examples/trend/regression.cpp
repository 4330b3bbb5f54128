// SPDX-License-Identifier: Apache-2.0
#include "regression.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace trend
{
namespace
{

constexpr double daysPerYear = 365.2425;

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

// All weeks' systems, and the bandwidth in days by which the abscissa of each is scaled.
struct Neighbourhoods {
    Systems systems;
    std::vector<double> bandwidths;
};

// The library's tests for singularity are absolute: at this size an LU pivot fails only if its
// magnitude is below 4.45e-308, however large the matrix is. In days or years the pivots of a good
// fit and of a hopeless one both depend on the unit; so the abscissa is scaled to
// t = (x - x0) / bandwidth and the weights to the sum 1. Then the first pivot is exactly 1, and the
// others are a measure of how good the neighbourhood is.
//
// A neighbourhood with fewer than three weighted weeks is singular in theory, yet elimination would
// leave a residue of rounding, about 1e-17, in place of the zero pivot, and the library would take
// it. The weeks are counted instead, which no rounding can blur, and the system of a poor week
// stays zero: that one the library refuses.
void addSystem(Neighbourhoods &all, const Points &points, std::size_t first, std::size_t last,
               double x0, double bandwidth)
{
    Matrix matrix{};
    Vector side{};
    std::array<double, 5> moments{};
    std::vector<double> abscissae, weights;
    int weighted = 0;
    for (std::size_t i = first; i < last; ++i) {
        const double t = (points.days[i] - x0) / bandwidth;
        const double cube = std::min(std::abs(t * t * t), 1.0);
        const double weight = (1 - cube) * (1 - cube) * (1 - cube);
        abscissae.push_back(t);
        weights.push_back(weight);
        if (std::abs(t) >= 1)
            continue;
        double term = weight;
        for (std::size_t power = 0; power < moments.size(); ++power, term *= t) {
            moments[power] += term;
            if (power < side.size())
                side[power] += term * points.values[i];
        }
        ++weighted;
    }
    const bool isPoor = weighted < 3;
    if (isPoor) {
        side = {};
    } else {
        for (std::size_t i = 0; i < matrix.size(); ++i)
            for (std::size_t j = 0; j < matrix.size(); ++j)
                matrix[i][j] = moments[i + j] / moments[0];
        for (auto &element : side)
            element /= moments[0];
    }
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const double root = isPoor ? 0 : std::sqrt(weights[i] / moments[0]);
        const double t = abscissae[i];
        for (const double power : {1.0, t, t * t})
            all.systems.equations.push_back(root * power);
        all.systems.sides.push_back(root * points.values[first + i]);
    }
    all.systems.normalMatrices.push_back(matrix);
    all.systems.normalSides.push_back(side);
    all.bandwidths.push_back(bandwidth);
}

Neighbourhoods formSystems(const Series &series, const Points &points, std::size_t neighbours,
                           std::optional<int> reachWeeks)
{
    const double reach = reachWeeks ? 7.0 * *reachWeeks : std::numeric_limits<double>::infinity();
    const auto &days = points.days;
    Neighbourhoods all;
    all.systems.height = neighbours;
    std::size_t first = 0; // of the nearest neighbours; never goes back as the weeks go on
    for (const auto &week : series) {
        const double x0 = toDays(week.date);
        while (first + neighbours < days.size() && days[first + neighbours] - x0 < x0 - days[first])
            ++first;
        const std::size_t last = first + neighbours;
        const double farthest = std::max(x0 - days[first], days[last - 1] - x0);
        addSystem(all, points, first, last, x0, std::min(farthest, reach));
    }
    return all;
}

std::vector<LocalFit> fitsOf(const Neighbourhoods &all, const Solutions &solutions)
{
    std::vector<LocalFit> fits;
    for (std::size_t k = 0; k < solutions.x.size(); ++k) {
        Outcome outcome = Outcome::fitted;
        if (all.systems.normalMatrices[k][0][0] == 0)
            outcome = Outcome::singular;
        else if (solutions.smallestPivot[k] < smallestPivot)
            outcome = Outcome::illConditioned;
        const Vector &x = solutions.x[k];
        fits.push_back({outcome, x[0], x[1] / all.bandwidths[k] * daysPerYear});
    }
    return fits;
}

Comparison compare(Method method, const std::vector<LocalFit> &a, const std::vector<LocalFit> &b,
                   std::chrono::duration<double> time)
{
    Comparison comparison{method, 0, 0, time};
    for (std::size_t k = 0; k < a.size(); ++k) {
        if (a[k].outcome != Outcome::fitted || b[k].outcome != Outcome::fitted)
            continue;
        comparison.trend = std::max(comparison.trend, std::abs(a[k].trend - b[k].trend));
        comparison.slopePerYear =
            std::max(comparison.slopePerYear, std::abs(a[k].slopePerYear - b[k].slopePerYear));
    }
    return comparison;
}

} // namespace

Regression fitLocalQuadratics(const Series &series, double span, std::optional<int> reachWeeks,
                              Method method)
{
    const Points points = measuredPoints(series);
    const std::size_t neighbours = neighboursOf(span, points.days.size());
    const auto all = formSystems(series, points, neighbours, reachWeeks);

    const Solutions solutions = solve(all.systems, method);
    Regression regression{
        method, fitsOf(all, solutions), neighbours, solutions.decompositions, solutions.time, {}};
    for (const Method other : methods) {
        if (other == method)
            continue;
        const Solutions its = solve(all.systems, other);
        regression.others.push_back(compare(other, regression.fits, fitsOf(all, its), its.time));
    }
    return regression;
}

} // namespace trend
