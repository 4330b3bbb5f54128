// SPDX-License-Identifier: Apache-2.0
#include "series.hpp"

#include <csv.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace trend
{
namespace
{

using Record = std::vector<std::string>;

// libcsv is C: its callbacks only collect, and all judging and throwing happens outside of them.
struct Collector {
    std::vector<Record> complete;
    Record current;

    static void onField(void *text, std::size_t size, void *self) noexcept
    {
        static_cast<Collector *>(self)->current.emplace_back(static_cast<const char *>(text), size);
    }
    static void onRecord(int, void *self) noexcept
    {
        auto &collector = *static_cast<Collector *>(self);
        collector.complete.push_back(std::move(collector.current));
        collector.current.clear();
    }
};

class Parser
{
  public:
    Parser()
    {
        if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0)
            throw std::runtime_error("the CSV parser does not start");
    }
    ~Parser() { csv_free(&parser); }
    Parser(const Parser &) = delete;
    Parser &operator=(const Parser &) = delete;

    // The records that end within `text`; nothing if the quoting in it is broken.
    std::optional<std::vector<Record>> feed(std::string_view text)
    {
        const auto taken = csv_parse(&parser, text.data(), text.size(), Collector::onField,
                                     Collector::onRecord, &collector);
        if (taken != text.size())
            return std::nullopt;
        return std::exchange(collector.complete, {});
    }
    bool finish()
    {
        return csv_fini(&parser, Collector::onField, Collector::onRecord, &collector) == 0;
    }

  private:
    csv_parser parser{};
    Collector collector;
};

template <typename Number> bool parseWhole(std::string_view text, Number &number)
{
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end;
}

std::optional<std::chrono::sys_days> parseDate(std::string_view text)
{
    unsigned number = 0;
    const bool digits =
        std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (text.size() != 8 || !digits || !parseWhole(text, number))
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(number / 10000)),
                                           std::chrono::month(number / 100 % 100),
                                           std::chrono::day(number % 100)};
    if (!date.ok())
        return std::nullopt;
    return std::chrono::sys_days(date);
}

class SeriesBuilder
{
  public:
    // Returns what is wrong with the record, or an empty text.
    std::string take(const Record &record)
    {
        if (!headerSeen) {
            headerSeen = true;
            if (record != Record{"date", "co2"})
                return "the header must be 'date,co2'";
            return {};
        }
        if (record.size() != 2)
            return std::to_string(record.size()) + (record.size() == 1 ? " field" : " fields") +
                   " instead of the two, date and value; leave the value empty if there is none, "
                   "but keep the comma";
        const auto date = parseDate(record[0]);
        if (!date)
            return "'" + record[0] + "' is not a date; write it as YYYYMMDD";
        if (!series.empty() && *date <= series.back().date)
            return "the date " + record[0] + " does not come after " +
                   compactDate(series.back().date) + "; sort the rows by date, one row per week";
        Week week{*date, std::nullopt};
        if (!record[1].empty()) {
            double value = 0;
            if (!parseWhole(record[1], value) || !std::isfinite(value))
                return "'" + record[1] +
                       "' is not a number; write it like 316.1, or leave it empty if there is none";
            week.measured = value;
        }
        series.push_back(week);
        return {};
    }

    bool headerSeen = false;
    Series series;
};

std::string formatDate(std::chrono::sys_days date, const char *pattern)
{
    const std::chrono::year_month_day ymd(date);
    char text[32];
    std::snprintf(text, sizeof text, pattern, static_cast<int>(ymd.year()),
                  static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
    return text;
}

bool isBlank(std::string_view line)
{
    return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

} // namespace

Series readSeries(const std::filesystem::path &path)
{
    const std::string name = path.string();
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot open '" + name + "': " + std::strerror(errno) +
                                 "; give the path of a CSV file with the header 'date,co2'");

    Parser parser;
    SeriesBuilder builder;
    std::size_t lineNumber = 0;
    std::size_t recordStart = 1; // a quoted field may run over several lines
    const auto fail = [&](const std::string &what) {
        throw std::runtime_error(name + ", line " + std::to_string(recordStart) + ": " + what);
    };

    bool open = false;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        if (!open)
            recordStart = lineNumber;
        line += '\n';
        const auto records = parser.feed(line);
        if (!records)
            fail("a quotation mark stands where none may be; quote whole fields or nothing");
        for (const auto &record : *records)
            if (const auto fault = builder.take(record); !fault.empty())
                fail(fault);
        open = records->empty() && (open || !isBlank(line));
    }
    if (file.bad())
        throw std::runtime_error("cannot read '" + name + "'; is it a regular file?");
    if (!parser.finish())
        fail("a quoted field opens here and never ends; close the quotation mark");

    const auto &series = builder.series;
    if (series.empty())
        throw std::runtime_error(name + " holds no weeks; it needs the header 'date,co2' and a row "
                                        "per week");
    if (std::none_of(series.begin(), series.end(), [](const Week &w) { return w.measured; }))
        throw std::runtime_error(name + " holds no measurement: the value of every week is empty");
    return series;
}

std::string compactDate(std::chrono::sys_days date) { return formatDate(date, "%04d%02u%02u"); }
std::string isoDate(std::chrono::sys_days date) { return formatDate(date, "%04d-%02u-%02u"); }

std::string shortest(double value)
{
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return {text, end};
}

} // namespace trend
