// SPDX-License-Identifier: Apache-2.0
// The series with its trend, and the growth per year below, as a PNG.
#pragma once

#include "regression.hpp"
#include "series.hpp"

#include <string>

namespace trend
{

std::string drawPicture(const Series &series, const Regression &regression, double span);

} // namespace trend
