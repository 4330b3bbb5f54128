// SPDX-License-Identifier: Apache-2.0
#include "series.hpp"

#include "common/csv.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace trend
{
namespace
{

std::optional<std::chrono::sys_days> parseDate(std::string_view text)
{
    unsigned number = 0;
    const bool digits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (text.size() != 8 || !digits)
        return std::nullopt;
    std::from_chars(text.data(), text.data() + text.size(), number);
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(number / 10000)),
                                           std::chrono::month(number / 100 % 100),
                                           std::chrono::day(number % 100)};
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days(date);
}

// Appends the week of a record; returns what is wrong with it, or an empty text.
std::string append(Series &series, const common::Record &record)
{
    const auto date = parseDate(record[0]);
    if (!date)
        return "'" + record[0] + "' is not a date; write it as YYYYMMDD";
    if (!series.empty() && *date <= series.back().date)
        return "the date " + record[0] + " does not come after " + compactDate(series.back().date) +
               "; sort the rows by date, one row per week";
    Week week{*date, std::nullopt};
    if (!record[1].empty()) {
        week.measured = common::parseNumber(record[1]);
        if (!week.measured)
            return "'" + record[1] +
                   "' is not a number; write it like 316.1, or leave it empty if there is none";
        if (std::abs(*week.measured) > largestValue)
            return "'" + record[1] + "' is too large; leave it empty if it is a mark for no value";
    }
    series.push_back(week);
    return {};
}

std::string formatDate(std::chrono::sys_days date, const char *pattern)
{
    const std::chrono::year_month_day ymd(date);
    char text[32];
    std::snprintf(text, sizeof text, pattern, static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
    return text;
}

} // namespace

Series readSeries(const std::filesystem::path &path)
{
    Series series;
    common::readCsv(path, {"date", "co2"},
                    [&](const common::Record &record) { return append(series, record); });
    const std::string name = path.string();
    if (series.empty())
        throw std::runtime_error(name + " holds no weeks; it needs the header 'date,co2' and a row "
                                        "per week");
    if (std::none_of(series.begin(), series.end(), [](const Week &w) { return w.measured; }))
        throw std::runtime_error(name + " holds no measurement: the value of every week is empty");
    return series;
}

std::string compactDate(std::chrono::sys_days date) { return formatDate(date, "%04d%02u%02u"); }
std::string isoDate(std::chrono::sys_days date) { return formatDate(date, "%04d-%02u-%02u"); }

} // namespace trend
