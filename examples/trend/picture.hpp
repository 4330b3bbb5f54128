// SPDX-License-Identifier: Apache-2.0
// The series and its trend as a PNG.
#pragma once

#include "regression.hpp"
#include "series.hpp"

#include <filesystem>

namespace trend
{

// Runs gnuplot on a script of its own. Throws std::runtime_error if there is none or it fails.
void drawPicture(const std::filesystem::path &path, const Series &series,
                 const Regression &regression);

} // namespace trend
