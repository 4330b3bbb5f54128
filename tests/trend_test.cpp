// SPDX-License-Identifier: Apache-2.0
// The example program `trend`, run from the outside and judged by what it prints and writes.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

struct Result {
    int exitCode = -1;
    std::string out;
    std::string err;
};

struct Row {
    std::chrono::sys_days date;
    std::optional<double> measured;
    std::optional<double> trend;
    std::optional<double> slope;
};

struct NaiveFit {
    std::optional<double> trend; // nothing if the neighbourhood is too poor
    double slope = 0;
    double tolerance = 0; // rounding grows with the reciprocal of the smallest pivot
    double slopeTolerance = 0;
};

constexpr double weekDays = 7;

std::string quoted(const fs::path &path)
{
    std::string text(1, '\'');
    text += path.string();
    text += '\'';
    return text;
}

std::string readFile(const fs::path &path)
{
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string compact(std::chrono::sys_days date, const char *pattern = "%04d%02u%02u")
{
    const std::chrono::year_month_day ymd(date);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), pattern, static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
    return text.data();
}

std::string iso(std::chrono::sys_days date) { return compact(date, "%04d-%02u-%02u"); }

std::optional<double> optionalNumber(const std::string &text)
{
    if (text.empty())
        return std::nullopt;
    return std::stod(text);
}

std::vector<Row> parseTable(const std::string &text)
{
    std::istringstream lines(text);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "date,measured,trend,slope_per_year");
    std::vector<Row> rows;
    while (std::getline(lines, line)) {
        std::vector<std::string> fields(1);
        for (const char c : line) {
            if (c == ',')
                fields.emplace_back();
            else
                fields.back() += c;
        }
        if (fields.size() != 4 || fields[0].size() != 8) {
            ADD_FAILURE() << "odd row: " << line;
            continue;
        }
        const int date = std::stoi(fields[0]);
        const std::chrono::year_month_day ymd{
            std::chrono::year(date / 10000),
            std::chrono::month(static_cast<unsigned>(date / 100 % 100)),
            std::chrono::day(static_cast<unsigned>(date % 100))};
        rows.push_back({std::chrono::sys_days(ymd), optionalNumber(fields[1]),
                        optionalNumber(fields[2]), optionalNumber(fields[3])});
    }
    return rows;
}

// The figure behind `label` in the summary.
double summaryFigure(const std::string &summary, const std::string &label)
{
    std::istringstream lines(summary);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(label, 0) == 0)
            return std::atof(line.c_str() + label.size());
    ADD_FAILURE() << "no line '" << label << "' in:\n" << summary;
    return std::nan("");
}

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

class TrendTest : public testing::Test
{
  protected:
    void SetUp() override
    {
        std::string name = (fs::temp_directory_path() / "trend-test-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory = name;
    }
    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }

    fs::path write(const std::string &text) const
    {
        const auto path = directory / "input.csv";
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    fs::path table() const { return directory / "trend.csv"; }
    fs::path picture() const { return directory / "trend.png"; }

    Result run(const std::string &arguments, const std::string &environment = "") const
    {
        const auto out = directory / "stdout";
        const auto err = directory / "stderr";
        std::string command = "cd " + quoted(directory);
        command += " && " + environment + " " + quoted(ZONM_TREND_PROGRAM) + " " + arguments;
        command += " >" + quoted(out) + " 2>" + quoted(err);
        const int status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
    }
    Result runQuietly(const fs::path &input, const std::string &options = "") const
    {
        return run(quoted(input) + " --no-picture " + options);
    }

    void expectRefusal(const Result &result, const std::vector<std::string> &words) const
    {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_FALSE(fs::exists(table()));
        for (const auto &word : words)
            EXPECT_NE(result.err.find(word), std::string::npos)
                << "no '" << word << "' in: " << result.err;
    }

    // Rows against the naive fit; returns the dates of the weeks that have none.
    std::vector<std::string> compareWithNaive(const std::vector<Row> &rows, std::size_t neighbours,
                                              std::optional<int> reachWeeks) const
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

    fs::path directory;
};

const fs::path realData = ZONM_EXAMPLE_DATA;

// A bent line with a swing of a year, 400 weeks; weeks in [gapBegin, gapEnd) are not measured.
std::string syntheticSeries(int gapBegin, int gapEnd)
{
    std::string text = "date,co2\n";
    const auto start = std::chrono::sys_days(std::chrono::year(1980) / 1 / 5);
    for (int k = 0; k < 400; ++k) {
        text += compact(start + std::chrono::days(7 * k)) + ",";
        if (k < gapBegin || k >= gapEnd)
            text += std::to_string(300 + 0.03 * k + 1e-5 * k * k + 3 * std::sin(0.12 * k));
        text += "\n";
    }
    return text;
}

std::size_t occurrences(const std::string &text, const std::string &word)
{
    std::size_t count = 0;
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
        ++count;
    return count;
}

TEST_F(TrendTest, RealDataSummary)
{
    const auto result = runQuietly(realData);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(summaryFigure(result.out, "weeks"), 2284);
    EXPECT_EQ(summaryFigure(result.out, "measured"), 2225);
    EXPECT_EQ(summaryFigure(result.out, "neighbours"), 111);
    EXPECT_EQ(summaryFigure(result.out, "fitted"), 2284);
    EXPECT_EQ(summaryFigure(result.out, "failed"), 0);
    EXPECT_EQ(summaryFigure(result.out, "growth at start"), 0.68);
    EXPECT_EQ(summaryFigure(result.out, "growth at end"), 1.52);
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
    EXPECT_TRUE(compareWithNaive(rows, 111, std::nullopt).empty());
}

TEST_F(TrendTest, RealGapBeyondTheReachIsReported)
{
    const auto result = runQuietly(realData, "--reach 8");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 2284U);
    const auto failed = compareWithNaive(rows, 111, 8);
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
        const auto result = runQuietly(write(syntheticSeries(begin, end)), "--reach 10");
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
    const auto result = runQuietly(write(syntheticSeries(0, 0)), "--reach 1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(summaryFigure(result.out, "fitted"), 0);
    EXPECT_EQ(summaryFigure(result.out, "failed"), 400);
    EXPECT_NE(result.out.find("growth at start    unknown"), std::string::npos);
    EXPECT_NE(result.out.find("400 for LU decomposition"), std::string::npos);
    for (const auto &row : parseTable(readFile(table()))) {
        EXPECT_TRUE(row.measured);
        EXPECT_FALSE(row.trend);
        EXPECT_FALSE(row.slope);
    }
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

TEST_F(TrendTest, QuotesAndForeignLineEndsAreRead)
{
    std::string text = "\"date\",\"co2\"\r\n";
    for (int day = 1; day <= 9; ++day)
        text += "\"2000010" + std::to_string(day) + "\", 31" + std::to_string(day) + ".5 \r\n\r\n";
    const auto result = runQuietly(write(text), "--span 1");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto rows = parseTable(readFile(table()));
    ASSERT_EQ(rows.size(), 9U);
    EXPECT_EQ(rows[8].measured, 319.5);
}

TEST_F(TrendTest, PictureIsDrawn)
{
    if (std::system("gnuplot --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "gnuplot is not installed";
    const std::string name = "it's a picture.png";
    const auto result =
        run(quoted(realData) + " --reach 8 --out-csv other.csv --out-png \"" + name + "\"");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(readFile(directory / name).substr(0, 8), "\x89PNG\r\n\x1a\n");
    EXPECT_GT(fs::file_size(directory / name), 10000U);
    EXPECT_TRUE(fs::exists(directory / "other.csv"));
    EXPECT_NE(result.out.find(name), std::string::npos);
}

TEST_F(TrendTest, PictureWithoutGnuplot)
{
    const auto result = run(quoted(realData), "PATH=/nonexistent");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("gnuplot is not installed"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("--no-picture"), std::string::npos) << result.err;
    EXPECT_TRUE(fs::exists(table()));
    EXPECT_FALSE(fs::exists(picture()));
    EXPECT_EQ(run(quoted(realData) + " --no-picture", "PATH=/nonexistent").exitCode, 0);
}

TEST_F(TrendTest, OutputThatCannotBeWritten)
{
    expectRefusal(runQuietly(realData, "--out-csv nowhere/trend.csv"),
                  {"cannot write 'nowhere/trend.csv'", "--out-csv"});
    const auto input = write(syntheticSeries(0, 0));
    expectRefusal(runQuietly(input, "--out-csv input.csv"), {"is the input"});
    EXPECT_EQ(readFile(input), syntheticSeries(0, 0));
}

TEST_F(TrendTest, MissingFile)
{
    expectRefusal(runQuietly(directory / "none.csv"),
                  {"cannot open", "none.csv", "No such file", "header 'date,co2'"});
    expectRefusal(runQuietly(directory), {"regular file"});
}

TEST_F(TrendTest, MalformedLinesAreNamed)
{
    const std::string good = "date,co2\n20000101,1\n20000108,\n";
    const std::map<std::string, std::vector<std::string>> cases{
        {"day,value\n", {"line 1:", "header must be 'date,co2'"}},
        {"20000101,1\n", {"line 1:", "header"}},
        {good + "20000115\n", {"line 4:", "1 field instead"}},
        {good + "20000115,1,2\n", {"line 4:", "3 fields instead"}},
        {good + "\n\n20000115;1\n", {"line 6:", "1 field instead"}},
        {good + "20000230,1\n", {"line 4:", "'20000230' is not a date", "YYYYMMDD"}},
        {good + "20001301,1\n", {"line 4:", "'20001301' is not a date"}},
        {good + "2000-01-15,1\n", {"line 4:", "'2000-01-15' is not a date"}},
        {good + "200001150,1\n", {"line 4:", "is not a date"}},
        {good + "-2000115,1\n", {"line 4:", "is not a date"}},
        {good + ",1\n", {"line 4:", "'' is not a date"}},
        {good + "20000115,abc\n", {"line 4:", "'abc' is not a number"}},
        {good + "20000115,1.5x\n", {"line 4:", "'1.5x' is not a number"}},
        {good + "20000115,nan\n", {"line 4:", "'nan' is not a number"}},
        {good + "20000115,inf\n", {"line 4:", "'inf' is not a number"}},
        {good + "20000115,1e999\n", {"line 4:", "'1e999' is not a number"}},
        {good + "20000108,1\n", {"line 4:", "20000108 does not come after 20000108"}},
        {good + "19991231,1\n", {"line 4:", "19991231 does not come after 20000108", "sort"}},
        {good + "20000115,1\"2\n", {"line 4:", "quotation mark"}},
        {good + "20000115,\"1\n\n20000122,2\n", {"line 4:", "never ends"}},
    };
    for (const auto &[text, words] : cases) {
        SCOPED_TRACE(text);
        expectRefusal(runQuietly(write(text)), words);
    }
}

TEST_F(TrendTest, EmptySeries)
{
    expectRefusal(runQuietly(write("")), {"holds no weeks"});
    expectRefusal(runQuietly(write("date,co2\n")), {"holds no weeks"});
    expectRefusal(runQuietly(write("date,co2\n20000101,\n20000108,\n")), {"holds no measurement"});
    expectRefusal(runQuietly(write("date,co2\n20000101,1\n20000108,2\n")),
                  {"only 2 measured weeks", "at least 5"});
}

TEST_F(TrendTest, SillySpan)
{
    for (const auto *span : {"0", "-0.1", "1.01", "nan", "inf", "-inf"}) {
        SCOPED_TRACE(span);
        expectRefusal(runQuietly(realData, std::string("--span=") + span),
                      {"the span must be above 0 and at most 1"});
    }
    expectRefusal(runQuietly(realData, "--span 0.001"),
                  {"takes in 2 of the 2225", "at least 5", "--span of 0.0023 or more"});
    expectRefusal(runQuietly(realData, "--span wide"), {"--span"});
}

TEST_F(TrendTest, SillyArguments)
{
    for (const auto *reach : {"0", "-3", "2.5", "far"}) {
        SCOPED_TRACE(reach);
        expectRefusal(runQuietly(realData, std::string("--reach=") + reach), {"--reach"});
    }
    expectRefusal(run(""), {"input is required"});
    expectRefusal(runQuietly(realData, "--colour red"), {"--colour"});
}

TEST_F(TrendTest, HelpTellsTheLimit)
{
    const auto result = run("--help");
    EXPECT_EQ(result.exitCode, 0);
    for (const auto *word : {"--span", "--reach", "--out-csv", "--out-png", "--no-picture",
                             "4.450147717014403e-308", "absolute"})
        EXPECT_NE(result.out.find(word), std::string::npos) << word;
}

} // namespace
