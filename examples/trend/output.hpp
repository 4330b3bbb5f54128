// SPDX-License-Identifier: Apache-2.0
// The results as a table and as a summary.
#pragma once

#include "regression.hpp"
#include "series.hpp"

#include <iosfwd>
#include <string>

namespace trend
{

// CSV: date, measured, trend, slope_per_year.
std::string tableOf(const Series &series, const Regression &regression);

void printSummary(std::ostream &out, const Series &series, const Regression &regression,
                  double span);

} // namespace trend
