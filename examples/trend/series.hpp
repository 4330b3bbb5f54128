// SPDX-License-Identifier: Apache-2.0
// A weekly series as it stands in a CSV file with the header `date,co2`.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace trend
{

struct Week {
    std::chrono::sys_days date;
    std::optional<double> measured;
};

using Series = std::vector<Week>; // dates strictly ascending

// Sums of powers and slopes stay far from overflow below this magnitude.
inline constexpr double largestValue = 1e100;

// Throws std::runtime_error, with file and line, for anything but a well-formed series.
Series readSeries(const std::filesystem::path &path);

std::string compactDate(std::chrono::sys_days date); // 19580329, the form of the files
std::string isoDate(std::chrono::sys_days date);     // 1958-03-29, the form for reading

} // namespace trend
