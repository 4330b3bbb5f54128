// SPDX-License-Identifier: Apache-2.0
// Local quadratic regression of a weekly series: a parabola through the nearest measurements of
// every week, its normal equations solved for all weeks in one array call.
#include "output.hpp"
#include "picture.hpp"
#include "regression.hpp"
#include "series.hpp"

#include <CLI/CLI.hpp>

#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

namespace
{

constexpr auto about =
    R"(Finds the trend and the growth per year of a weekly series by local quadratic
regression with tricube weights.)";

constexpr auto notes = R"(Why the abscissa is scaled:
  The 3x3 normal equations of all weeks go through the library in one call. It
  refuses a matrix only if a pivot's magnitude is strictly below
  4.450147717014403e-308. That limit is absolute, not scaled by the matrix, so a
  merely near-singular fit passes. Each fit therefore uses t = (x - x0) / bandwidth
  and weights that sum to 1: its first pivot is 1, and the others tell how good the
  fit is in any unit of time. A week whose smallest pivot is below 1e-8 is not used.

Weeks that cannot be fitted:
  A week with fewer than three measured weeks of positive weight is passed on as a
  zero matrix, which the library reports as singular; a reach shorter than a gap
  in the series makes such weeks. The array call stops there, and the program goes
  on behind it. These weeks are listed by date and stay empty in the table.)";

struct Options {
    std::filesystem::path input;
    std::filesystem::path table = "trend.csv";
    std::filesystem::path picture = "trend.png";
    double span = trend::defaultSpan;
    std::optional<int> reachWeeks;
    bool noPicture = false;
};

void protectInput(const Options &options)
{
    for (const auto &output : {options.table, options.picture})
        if (std::filesystem::exists(output) && std::filesystem::equivalent(output, options.input))
            throw std::runtime_error("'" + output.string() +
                                     "' is the input; choose another place for the output");
}

void run(const Options &options)
{
    const auto series = trend::readSeries(options.input);
    const auto regression = trend::fitLocalQuadratics(series, options.span, options.reachWeeks);
    protectInput(options);
    trend::writeTable(options.table, series, regression);
    trend::printSummary(std::cout, series, regression);
    std::cout << "table              " << options.table.string() << std::endl;
    if (options.noPicture)
        return;
    trend::drawPicture(options.picture, series, regression);
    std::cout << "picture            " << options.picture.string() << std::endl;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app(about, "trend");
    app.footer(notes);
    app.add_option("input", options.input, "CSV file: date (YYYYMMDD), co2 (may be empty)")
        ->required()
        ->type_name("FILE");
    app.add_option("--span", options.span, "fraction of the measured weeks that one fit looks at")
        ->capture_default_str()
        ->type_name("FRACTION");
    app.add_option("--reach", options.reachWeeks, "ignore measurements this far away or farther")
        ->check(CLI::Range(1, 1'000'000).description(""))
        ->type_name("WEEKS");
    app.add_option("--out-csv", options.table, "the table to write")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_option("--out-png", options.picture, "the picture to draw, with gnuplot")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_flag("--no-picture", options.noPicture, "draw no picture");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 1;
    }

    try {
        run(options);
    } catch (const std::exception &error) {
        std::cerr << "trend: " << error.what() << '\n';
        return 1;
    }
}
