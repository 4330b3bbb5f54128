// SPDX-License-Identifier: Apache-2.0
// The frame of an example's main function.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace common
{

// Parses the arguments, runs `body` and checks the standard output. The exit code: 0, or 1 with
// what went wrong on the standard error.
int runProgram(CLI::App &app, int argc, char **argv, const std::function<void()> &body);

} // namespace common
