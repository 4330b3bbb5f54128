// SPDX-License-Identifier: Apache-2.0
// The results as a table and as a summary.
#pragma once

#include "regression.hpp"
#include "series.hpp"

#include <filesystem>
#include <iosfwd>

namespace trend
{

void writeTable(const std::filesystem::path &path, const Series &series,
                const Regression &regression);

void printSummary(std::ostream &out, const Series &series, const Regression &regression);

} // namespace trend
