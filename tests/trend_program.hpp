// SPDX-License-Identifier: Apache-2.0
// The example program `trend`, run from the outside.
#pragma once

#include "support/example.hpp"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>

namespace trend_program
{

using namespace example;

struct Row {
    std::chrono::sys_days date;
    std::optional<double> measured;
    std::optional<double> trend;
    std::optional<double> slope;
};

inline constexpr double weekDays = 7;

inline std::string compact(std::chrono::sys_days date, const char *pattern = "%04d%02u%02u")
{
    const std::chrono::year_month_day ymd(date);
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), pattern, static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
    return text.data();
}

inline std::string iso(std::chrono::sys_days date) { return compact(date, "%04d-%02u-%02u"); }

inline std::optional<double> optionalNumber(const std::string &text)
{
    if (text.empty())
        return std::nullopt;
    return std::stod(text);
}

inline std::vector<Row> parseTable(const std::string &text)
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
inline double summaryFigure(const std::string &summary, const std::string &label)
{
    std::istringstream lines(summary);
    for (std::string line; std::getline(lines, line);)
        if (line.rfind(label, 0) == 0)
            return std::atof(line.c_str() + label.size());
    ADD_FAILURE() << "no line '" << label << "' in:\n" << summary;
    return std::nan("");
}

// A bent line with a swing of a year, 400 weeks; weeks in [gapBegin, gapEnd) are not measured.
inline std::string syntheticSeries(int gapBegin, int gapEnd)
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

class TrendTest : public ExampleTest
{
  protected:
    TrendTest() : ExampleTest(ZONM_TREND_PROGRAM) {}

    fs::path table() const { return directory / "trend.csv"; }
    fs::path picture() const { return directory / "trend.png"; }

    Result runQuietly(const fs::path &input, const std::string &options = "") const
    {
        return run(quoted(input) + " --no-picture " + options);
    }
};

inline const fs::path realData = ZONM_EXAMPLE_DATA;

} // namespace trend_program
