// SPDX-License-Identifier: Apache-2.0
// The fits of the example program `trend`, beside an independent naive one.
#include "trend_program.hpp"

#include <algorithm>

namespace
{

using namespace trend_program;

struct NaiveFit {
    std::optional<double> trend; // nothing if the neighbourhood is too poor
    double slope = 0;
    double tolerance = 0; // rounding grows with the reciprocal of the smallest pivot
    double slopeTolerance = 0;
};

long double tricube(long double u)
{
    const long double rest = 1 - u * u * u;
    return u < 1 ? rest * rest * rest : 0;
}

// Every neighbourhood from a full sort by distance, the parabola by orthogonal polynomials in
// long double: nothing in common with the program but the formula.
NaiveFit naiveFit(const std::vector<Row> &rows, std::chrono::sys_days week, std::size_t neighbours,
                  std::optional<int> reachWeeks)
{
    struct Point {
        long double x;
        long double y;
        long double weight;
    };
    std::vector<Point> points;
    for (const auto &row : rows)
        if (row.measured)
            points.push_back(
                {static_cast<long double>((row.date - week).count()), *row.measured, 0});
    std::sort(points.begin(), points.end(),
              [](const Point &a, const Point &b) { return std::abs(a.x) < std::abs(b.x); });
    points.resize(neighbours);
    long double bandwidth = std::abs(points.back().x);
    if (reachWeeks)
        bandwidth = std::min(bandwidth, static_cast<long double>(weekDays * *reachWeeks));
    for (auto &point : points)
        point.weight = tricube(std::abs(point.x) / bandwidth);
    std::erase_if(points, [](const Point &point) { return !(point.weight > 0); });
    if (points.size() < 3)
        return {};

    const auto mean = [&](auto value) {
        long double sum = 0;
        long double weights = 0;
        for (const auto &point : points) {
            sum += point.weight * value(point);
            weights += point.weight;
        }
        return sum / weights;
    };
    // p1 = t - a and p2 = (t - b) p1 - c are orthogonal to the constant and to each other.
    const auto t = [&](const Point &p) { return p.x / bandwidth; };
    const long double a = mean(t);
    const auto p1 = [&](const Point &p) { return t(p) - a; };
    const long double norm1 = mean([&](const Point &p) { return p1(p) * p1(p); });
    const long double b = mean([&](const Point &p) { return t(p) * p1(p) * p1(p); }) / norm1;
    const long double c = norm1;
    const auto p2 = [&](const Point &p) { return (t(p) - b) * p1(p) - c; };
    const long double norm2 = mean([&](const Point &p) { return p2(p) * p2(p); });
    // The pivots of elimination with row exchange are 1 and these two.
    const long double exchange = std::max(1.0L, std::abs(a + b));
    const long double smallestPivot = std::min(norm1 * exchange, norm2 / exchange);
    if (smallestPivot < 1e-8L)
        return {};
    const long double c0 = mean([](const Point &p) { return p.y; });
    const long double c1 = mean([&](const Point &p) { return p.y * p1(p); }) / norm1;
    const long double c2 = mean([&](const Point &p) { return p.y * p2(p); }) / norm2;
    // The parabola and its derivative at t = 0.
    const long double trend = c0 - c1 * a + c2 * (a * b - c);
    const long double slope = (c1 - c2 * (a + b)) / bandwidth * 365.2425L;
    const long double tolerance = 1e-12L / smallestPivot;
    return {static_cast<double>(trend), static_cast<double>(slope), static_cast<double>(tolerance),
            static_cast<double>(tolerance / bandwidth * 365.2425L)};
}

// Rows against the naive fit; returns the dates of the weeks that have none.
std::vector<std::string> compareWithNaive(const std::vector<Row> &rows, std::size_t neighbours,
                                          std::optional<int> reachWeeks)
{
    std::vector<std::string> failed;
    for (const auto &row : rows) {
        const auto naive = naiveFit(rows, row.date, neighbours, reachWeeks);
        EXPECT_EQ(row.trend.has_value(), naive.trend.has_value()) << iso(row.date);
        EXPECT_EQ(row.slope.has_value(), row.trend.has_value()) << iso(row.date);
        if (row.trend && row.slope && naive.trend) {
            EXPECT_NEAR(*row.trend, *naive.trend, naive.tolerance) << iso(row.date);
            EXPECT_NEAR(*row.slope, naive.slope, naive.slopeTolerance) << iso(row.date);
        }
        if (!naive.trend)
            failed.push_back(iso(row.date));
    }
    return failed;
}

TEST_F(TrendTest, RealDataSummary)
{
    const auto result = runQuietly(realData);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(summaryFigure(result.out, "weeks"), 2284);
    EXPECT_EQ(summaryFigure(result.out, "measured"), 2225);
    EXPECT_EQ(summaryFigure(result.out, "neighbours"), 556);
    EXPECT_EQ(summaryFigure(result.out, "fitted"), 2284);
    EXPECT_EQ(summaryFigure(result.out, "failed"), 0);
    EXPECT_EQ(summaryFigure(result.out, "growth at start"), 0.60);
    EXPECT_EQ(summaryFigure(result.out, "growth at end"), 1.56);
    EXPECT_EQ(occurrences(result.out, " ppmv per year ("), 2U);
    EXPECT_EQ(summaryFigure(result.out, "span"), 0.25);
    EXPECT_GT(summaryFigure(result.out, "solve"), 0);
    EXPECT_NE(result.out.find("1 for LU decomposition, 1 for back substitution"),
              std::string::npos);
    EXPECT_NE(result.out.find("trend.csv"), std::string::npos);
    EXPECT_EQ(result.out.find("trend.png"), std::string::npos);
    EXPECT_FALSE(fs::exists(picture()));
}

TEST_F(TrendTest, RealDataAgreesWithTheNaiveFit)
{
    ASSERT_EQ(runQuietly(realData).exitCode, 0);
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 2284U);
    EXPECT_EQ(std::count_if(rows.begin(), rows.end(), [](const Row &r) { return r.measured; }),
              2225);
    EXPECT_TRUE(compareWithNaive(rows, 556, std::nullopt).empty());
}

TEST_F(TrendTest, RealGapBeyondTheReachIsReported)
{
    const auto result = runQuietly(realData, "--reach 8");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 2284U);
    const auto failed = compareWithNaive(rows, 556, 8);
    EXPECT_EQ(summaryFigure(result.out, "failed"), static_cast<double>(failed.size()));
    EXPECT_EQ(summaryFigure(result.out, "fitted"), static_cast<double>(2284 - failed.size()));
    EXPECT_NE(std::find(failed.begin(), failed.end(), "1964-03-28"), failed.end());
    for (const auto &date : failed)
        EXPECT_EQ(occurrences(result.out, "\n    " + date + "  "), 1U) << date;
}

TEST_F(TrendTest, LongGapFailsAndTheRestIsSolved)
{
    constexpr int gapBegin = 150;
    constexpr int gapEnd = 230;
    constexpr int reach = 20;
    const auto input = write(syntheticSeries(gapBegin, gapEnd));
    const auto result = runQuietly(input, "--span 0.1 --reach 20");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 400U);
    const auto failed = compareWithNaive(rows, 32, reach);

    // Weight is positive below the reach only. Weeks gapBegin-1 and gapEnd are the last and the
    // first measured ones, so three of them carry weight up to 17 weeks away from either.
    const int firstSingular = gapBegin + 17;
    const int lastSingular = gapEnd - 18;
    std::size_t singular = 0;
    for (int k = 0; k < 400; ++k) {
        const auto date = iso(rows[static_cast<std::size_t>(k)].date);
        const bool listed = result.out.find("    " + date + "  singular") != std::string::npos;
        EXPECT_EQ(listed, k >= firstSingular && k <= lastSingular) << date;
        singular += listed;
    }
    EXPECT_EQ(occurrences(result.out, "  singular:"), singular);
    EXPECT_EQ(occurrences(result.out, "  ill-conditioned:"), failed.size() - singular);
    EXPECT_NE(result.out.find(std::to_string(singular + 1) + " for LU decomposition"),
              std::string::npos)
        << result.out;
    for (const auto &date : failed)
        EXPECT_EQ(occurrences(result.out, "\n    " + date + "  "), 1U) << date;
}

TEST_F(TrendTest, WeeksFarFromAllTroubleKeepTheirBits)
{
    const auto input = write(syntheticSeries(150, 230));
    ASSERT_EQ(runQuietly(input, "--span 0.1").exitCode, 0);
    const auto free = parseTable(readFile(table()));
    ASSERT_EQ(runQuietly(input, "--span 0.1 --reach 20").exitCode, 0);
    const auto limited = parseTable(readFile(table()));
    ASSERT_EQ(free.size(), 400U);
    ASSERT_EQ(limited.size(), 400U);
    // 32 neighbours reach 16 weeks to either side, so the reach changes nothing away from the gap
    // and from the ends.
    for (std::size_t k = 20; k < 380; ++k) {
        if (k >= 130 && k < 250)
            continue;
        EXPECT_EQ(free[k].trend, limited[k].trend) << iso(free[k].date);
        EXPECT_EQ(free[k].slope, limited[k].slope) << iso(free[k].date);
    }
}

TEST_F(TrendTest, GapAtEitherEndFails)
{
    for (const auto &[begin, end] : {std::pair{0, 40}, std::pair{360, 400}}) {
        const auto result =
            runQuietly(write(syntheticSeries(begin, end)), "--span 0.05 --reach 10");
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const auto rows = parseTable(readFile(table()));
        ASSERT_EQ(rows.size(), 400U);
        const auto failed = compareWithNaive(rows, 18, 10);
        EXPECT_GE(failed.size(), 30U);
        EXPECT_EQ(summaryFigure(result.out, "failed"), static_cast<double>(failed.size()));
    }
}

// Ten measured weeks, and one without a measurement that looks at them from afar: regular for the
// library, since its limit is absolute, and hopeless all the same.
TEST_F(TrendTest, FarClusterIsIllConditioned)
{
    std::string text = "date,co2\n";
    const auto start = std::chrono::sys_days(std::chrono::year(1980) / 1 / 5);
    for (int k = 0; k < 10; ++k)
        text += compact(start + std::chrono::days(7 * k)) + "," + std::to_string(300 + k) + "\n";
    text += compact(start + std::chrono::days(7 * 500)) + ",\n";
    const auto result = runQuietly(write(text), "--span 1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(summaryFigure(result.out, "fitted"), 10);
    EXPECT_NE(result.out.find("    1989-08-05  ill-conditioned"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("1 for LU decomposition"), std::string::npos);
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 11U);
    EXPECT_EQ(compareWithNaive(rows, 10, std::nullopt), std::vector<std::string>{"1989-08-05"});
}

TEST_F(TrendTest, NoWeekCanBeFitted)
{
    expectRefusal(runQuietly(write(syntheticSeries(0, 0)), "--reach 1"),
                  {"not one of the 400 weeks can be fitted", "--reach"});
}

// At both ends of the real series, where a fit sees one side only, a season that was left in would
// show as a slope far from any growth there was.
TEST_F(TrendTest, DefaultSpanLeavesNoSeasonInTheTrend)
{
    ASSERT_EQ(runQuietly(realData).exitCode, 0);
    for (const auto &row : parseTable(readFile(table()))) {
        ASSERT_TRUE(row.slope);
        EXPECT_GT(*row.slope, 0.3) << iso(row.date);
        EXPECT_LT(*row.slope, 2.2) << iso(row.date);
    }
}

TEST_F(TrendTest, PeriodWithoutFittedWeeks)
{
    const auto result = runQuietly(write(syntheticSeries(20, 400)), "--span 1 --reach 4");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("growth at end      unknown: no fitted week in this period"),
              std::string::npos)
        << result.out;
}

TEST_F(TrendTest, ParabolaIsReproduced)
{
    std::string text = "date,co2\n";
    const auto start = std::chrono::sys_days(std::chrono::year(2000) / 1 / 1);
    for (int k = 0; k < 30; ++k)
        text += compact(start + std::chrono::days(7 * k)) + "," + std::to_string(k * k) + "\n";
    ASSERT_EQ(runQuietly(write(text), "--span 0.5").exitCode, 0);
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 30U);
    for (std::size_t k = 0; k < rows.size(); ++k) {
        const auto x = static_cast<double>(k);
        ASSERT_TRUE(rows[k].trend && rows[k].slope);
        EXPECT_NEAR(*rows[k].trend, x * x, 1e-9);
        EXPECT_NEAR(*rows[k].slope, 2 * x / weekDays * 365.2425, 1e-8);
    }
}

TEST_F(TrendTest, FewestNeighboursAreEnoughForEveryWeek)
{
    const auto result = runQuietly(realData, "--span 0.0023");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(summaryFigure(result.out, "neighbours"), 5);
    EXPECT_EQ(result.out.find("singular"), std::string::npos);
}

} // namespace
