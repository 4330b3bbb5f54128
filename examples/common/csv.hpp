// SPDX-License-Identifier: Apache-2.0
// Tables in, as CSV with a header.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace common
{

using Record = std::vector<std::string>;

// Hands each record behind the header to `take`, which returns what is wrong with it or "". Throws
// std::runtime_error with file and line for that, for another header, another number of fields,
// broken quoting or a file that cannot be read. Blank lines and a byte order mark are passed over.
void readCsv(const std::filesystem::path &path, const Record &header,
             const std::function<std::string(const Record &)> &take);

// A finite number that fills the whole text.
std::optional<double> parseNumber(std::string_view text);

// The fewest digits that read back as the same number.
std::string shortest(double value);

} // namespace common
