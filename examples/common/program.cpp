// SPDX-License-Identifier: Apache-2.0
#include "common/program.hpp"

#include "common/output.hpp"

#include <exception>
#include <iostream>

namespace common
{

int runProgram(CLI::App &app, int argc, char **argv, const std::function<void()> &body)
{
    try {
        try {
            app.parse(argc, argv);
            body();
        } catch (const CLI::ParseError &error) { // asking for help is one as well
            if (app.exit(error) != 0)
                return 1;
        }
        finishStandardOutput();
        return 0;
    } catch (const std::exception &error) {
        std::cout.flush();
        std::cerr << app.get_name() << ": " << error.what() << '\n';
        return 1;
    }
}

} // namespace common
