// SPDX-License-Identifier: Apache-2.0
#include "output.hpp"

#include "common/csv.hpp"

#include <algorithm>
#include <iomanip>
#include <ostream>

namespace trend
{
namespace
{

constexpr std::chrono::days growthPeriod{5 * 36525 / 100};

// A mean of the slopes with weights that fade to zero at both ends of the period, which makes it
// the slope of a straight line through the trend. A plain mean depends on the first and the last
// trend value alone, and there, at the ends of the series, the fits see one side only and follow
// the season.
void printGrowth(std::ostream &out, const char *label, const Series &series,
                 const Regression &regression, std::chrono::sys_days from, std::chrono::sys_days to)
{
    double sum = 0;
    double weights = 0;
    for (std::size_t k = 0; k < series.size(); ++k) {
        const auto date = series[k].date;
        if (date <= from || date >= to || regression.fits[k].outcome != Outcome::fitted)
            continue;
        const double weight =
            static_cast<double>((date - from).count()) * static_cast<double>((to - date).count());
        sum += weight * regression.fits[k].slopePerYear;
        weights += weight;
    }
    out << label;
    if (weights == 0)
        out << "unknown: no fitted week in this period";
    else
        out << std::fixed << std::setprecision(2) << sum / weights << " ppmv per year";
    out << " (" << isoDate(from) << " to " << isoDate(to) << ")\n";
}

} // namespace

std::string tableOf(const Series &series, const Regression &regression)
{
    using common::shortest;
    std::string table = "date,measured,trend,slope_per_year\n";
    for (std::size_t k = 0; k < series.size(); ++k) {
        const auto &[date, measured] = series[k];
        const auto &fit = regression.fits[k];
        table += compactDate(date) + ',' + (measured ? shortest(*measured) : "") + ',';
        if (fit.outcome == Outcome::fitted)
            table += shortest(fit.trend) + ',' + shortest(fit.slopePerYear) + '\n';
        else
            table += ",\n";
    }
    return table;
}

void printSummary(std::ostream &out, const Series &series, const Regression &regression,
                  double span)
{
    const auto &fits = regression.fits;
    const auto measured = std::count_if(series.begin(), series.end(),
                                        [](const Week &week) { return week.measured.has_value(); });
    const auto fitted = std::count_if(fits.begin(), fits.end(), [](const LocalFit &fit) {
        return fit.outcome == Outcome::fitted;
    });
    out << "weeks              " << series.size() << "\nmeasured           " << measured
        << "\nspan               " << common::shortest(span) << " of the measured weeks"
        << "\nneighbours         " << regression.neighbours << " per fit\nfitted             "
        << fitted << "\nfailed             " << std::ssize(fits) - fitted << '\n';
    for (std::size_t k = 0; k < fits.size(); ++k) {
        if (fits[k].outcome == Outcome::singular)
            out << "    " << isoDate(series[k].date)
                << "  singular: fewer than three measured weeks with weight\n";
        else if (fits[k].outcome == Outcome::illConditioned)
            out << "    " << isoDate(series[k].date)
                << "  ill-conditioned: the measured weeks lie too close together or too far off\n";
    }

    const auto first = series.front().date;
    const auto last = series.back().date;
    const auto period = std::min<std::chrono::days>(growthPeriod, last - first);
    printGrowth(out, "growth at start    ", series, regression, first, first + period);
    printGrowth(out, "growth at end      ", series, regression, last - period, last);

    const double seconds = regression.solveTime.count();
    out << "library calls      " << regression.decompositions
        << " for LU decomposition, 1 for back substitution\n"
        << std::fixed << std::setprecision(1) << "solve              " << 1e6 * seconds
        << " microseconds, " << static_cast<double>(series.size()) / seconds / 1e6
        << " million systems per second\n";
}

} // namespace trend
