// SPDX-License-Identifier: Apache-2.0
#include "picture.hpp"

#include "common/csv.hpp"
#include "common/plot.hpp"

#include <limits>
#include <vector>

namespace trend
{
namespace
{

double axisPosition(std::chrono::sys_days date)
{
    return static_cast<double>(date.time_since_epoch().count());
}

// The first of January of each year, every so many labelled; days for a short series.
std::vector<common::Tick> calendarTicks(std::chrono::sys_days first, std::chrono::sys_days last)
{
    using namespace std::chrono;
    std::vector<common::Tick> ticks;
    const int from = static_cast<int>(year_month_day(first).year());
    const int to = static_cast<int>(year_month_day(last).year());
    const int years = to - from;
    if (years < 4) {
        for (int i = 0; i <= 5; ++i) {
            const auto date = first + (last - first) * i / 5;
            ticks.push_back({axisPosition(date), isoDate(date)});
        }
        return ticks;
    }
    const int step = years > 120 ? 20 : years > 60 ? 10 : years > 12 ? 5 : 1;
    for (int y = from; y <= to; ++y)
        ticks.push_back({axisPosition(sys_days(year(y) / January / 1)),
                         y % step == 0 ? std::to_string(y) : ""});
    return ticks;
}

} // namespace

std::string drawPicture(const Series &series, const Regression &regression, double span)
{
    using common::Curve;
    constexpr double nothing = std::numeric_limits<double>::quiet_NaN();
    std::vector<double> dates, measured, trend, growth;
    for (std::size_t k = 0; k < series.size(); ++k) {
        const auto &fit = regression.fits[k];
        const bool fitted = fit.outcome == Outcome::fitted;
        dates.push_back(axisPosition(series[k].date));
        measured.push_back(series[k].measured.value_or(nothing));
        trend.push_back(fitted ? fit.trend : nothing);
        growth.push_back(fitted ? fit.slopePerYear : nothing);
    }
    const std::string label = "trend, span " + common::shortest(span) + " (" +
                              std::to_string(regression.neighbours) + " measurements in each fit)";
    const common::Axis time{"", dates.front(), dates.back(),
                            calendarTicks(series.front().date, series.back().date)};

    common::Panel concentration{
        time,
        {"CO₂ (ppmv)"},
        {{Curve::points, "measured, week by week", common::measuredBlue, 4, dates, measured},
         {Curve::line, label, common::resultRed, 3, dates, trend}},
        2.2};
    common::Panel change{
        time,
        {"ppmv per year"},
        {{Curve::line, "growth: the slope of the trend", common::resultRed, 3, dates, growth}}};
    return common::drawPlot("Weekly atmospheric CO₂ and its local quadratic trend",
                            {concentration, change})
        .png();
}

} // namespace trend
