// SPDX-License-Identifier: Apache-2.0
#include "common/csv.hpp"

#include <csv.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace common
{
namespace
{

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

bool isBlank(std::string_view line)
{
    return line.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

std::string joined(const Record &record)
{
    std::string text;
    for (const auto &field : record)
        text += (text.empty() ? "" : ",") + field;
    return text;
}

} // namespace

void readCsv(const std::filesystem::path &path, const Record &header,
             const std::function<std::string(const Record &)> &take)
{
    const std::string name = path.string();
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot open '" + name + "': " + std::strerror(errno) +
                                 "; give the path of a CSV file with the header '" +
                                 joined(header) + "'");

    Parser parser;
    bool headerSeen = false;
    const auto judge = [&](const Record &record) -> std::string {
        if (!std::exchange(headerSeen, true))
            return record == header ? "" : "the header must be '" + joined(header) + "'";
        if (record.size() != header.size())
            return std::to_string(record.size()) + (record.size() == 1 ? " field" : " fields") +
                   " instead of the " + std::to_string(header.size()) + " of '" + joined(header) +
                   "'; an empty field keeps its comma";
        return take(record);
    };

    std::size_t lineNumber = 0;
    std::size_t recordStart = 1; // a quoted field may run over several lines
    const auto fail = [&](const std::string &what) {
        throw std::runtime_error(name + ", line " + std::to_string(recordStart) + ": " + what);
    };
    bool open = false;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        if (lineNumber == 1 && line.starts_with("\xEF\xBB\xBF")) // the byte order mark of UTF-8
            line.erase(0, 3);
        if (!open)
            recordStart = lineNumber;
        line += '\n';
        const auto records = parser.feed(line);
        if (!records)
            fail("a quotation mark stands where none may be; quote whole fields or nothing");
        for (const auto &record : *records)
            if (const auto fault = judge(record); !fault.empty())
                fail(fault);
        open = records->empty() && (open || !isBlank(line));
    }
    if (file.bad())
        throw std::runtime_error("cannot read '" + name + "'; is it a regular file?");
    if (!parser.finish())
        fail("a quoted field opens here and never ends; close the quotation mark");
}

std::optional<double> parseNumber(std::string_view text)
{
    double number = 0;
    const auto end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end || !std::isfinite(number))
        return std::nullopt;
    return number;
}

std::string shortest(double value)
{
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    return {text, end};
}

} // namespace common
