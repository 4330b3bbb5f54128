// SPDX-License-Identifier: Apache-2.0
// Local quadratic regression of a weekly series: a parabola through the nearest measurements of
// every week, its normal equations solved for all weeks in one array call.
#include "output.hpp"
#include "picture.hpp"
#include "regression.hpp"
#include "series.hpp"

#include "common/output.hpp"
#include "common/program.hpp"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

The span:
  A fit that sees a year or two follows the season: with --span 0.05 the slope
  swings with it, and at the ends of the series, where a fit sees one side only, it
  is the season's. The default looks at about ten years at once.

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

void run(const Options &options)
{
    std::vector<std::filesystem::path> files{options.input, options.table};
    if (!options.noPicture)
        files.push_back(options.picture);
    common::requireDistinct(files);

    const auto series = trend::readSeries(options.input);
    const auto regression = trend::fitLocalQuadratics(series, options.span, options.reachWeeks);
    if (std::none_of(regression.fits.begin(), regression.fits.end(),
                     [](const auto &fit) { return fit.outcome == trend::Outcome::fitted; }))
        throw std::runtime_error("not one of the " + std::to_string(series.size()) +
                                 " weeks can be fitted: too few measured weeks lie near enough; "
                                 "give a larger --reach or none");

    common::OutputFile table(options.table, trend::tableOf(series, regression), "--out-csv");
    std::optional<common::OutputFile> picture;
    if (!options.noPicture)
        picture.emplace(options.picture, trend::drawPicture(series, regression, options.span),
                        "--out-png");
    table.commit();
    if (picture)
        picture->commit();

    trend::printSummary(std::cout, series, regression, options.span);
    std::cout << "table              " << options.table.string() << '\n';
    if (picture)
        std::cout << "picture            " << options.picture.string() << '\n';
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
    app.add_option("--out-png", options.picture, "the picture to draw")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_flag("--no-picture", options.noPicture, "draw no picture");
    return common::runProgram(app, argc, argv, [&] { run(options); });
}
