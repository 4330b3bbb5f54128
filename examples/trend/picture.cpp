// SPDX-License-Identifier: Apache-2.0
#include "picture.hpp"

#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>

extern char **environ;

namespace trend
{
namespace
{

class TemporaryFile
{
  public:
    TemporaryFile() : name((std::filesystem::temp_directory_path() / "trend-XXXXXX").string())
    {
        const int descriptor = mkstemp(name.data());
        if (descriptor < 0)
            throw std::runtime_error("cannot create '" + name + "': " + std::strerror(errno));
        close(descriptor);
    }
    ~TemporaryFile() { unlink(name.c_str()); }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    std::string name;
};

std::string quotedForGnuplot(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? "''" : std::string(1, c);
    return quoted + "'";
}

// gnuplot steps time in seconds and so drifts off the first of January; the years are given here.
std::string timeTics(std::chrono::sys_days first, std::chrono::sys_days last)
{
    const auto from = static_cast<int>(std::chrono::year_month_day(first).year());
    const auto to = static_cast<int>(std::chrono::year_month_day(last).year());
    const int years = to - from;
    if (years < 4)
        return "set format x '%d %b %Y'\n";
    const int step = years > 120 ? 20 : years > 60 ? 10 : years > 12 ? 5 : 1;
    std::string tics;
    for (int year = from + 1; year <= to; ++year) {
        const auto number = std::to_string(year);
        const bool labelled = year % step == 0;
        tics += (tics.empty() ? "" : ", ");
        tics += "'" + (labelled ? number : "") + "' '" + number + "0101' " + (labelled ? "0" : "1");
    }
    return "set xtics (" + tics + ")\n";
}

constexpr auto style = R"(set terminal pngcairo size 1600,900 enhanced font 'DejaVu Sans,16'
set encoding utf8
set title 'Weekly atmospheric CO₂ and its local quadratic trend' font ',22' offset 0,0.3
set title tc rgb '#222222'
set ylabel 'CO₂ concentration (ppmv)' tc rgb '#444444'
set border 3 lc rgb '#888888'
set tics nomirror out tc rgb '#444444'
set grid y lt 1 lw 1 lc rgb '#e6e6e6'
set key top left Left reverse samplen 2 spacing 1.3 tc rgb '#222222'
set offsets 0, 0, graph 0.02, graph 0.02
set rmargin 4
set xdata time
set timefmt '%Y%m%d'
)";

constexpr auto plot = R"(
plot $weeks using 1:2 with points pt 7 ps 0.45 lc rgb '#7fa8cc' notitle, \
    keyentry with points pt 7 ps 1 lc rgb '#7fa8cc' title 'measured, week by week', \
    $weeks using 1:3 with lines lw 3 lc rgb '#c0392b' title 'trend'
)";

void writeScript(std::ostream &script, const std::filesystem::path &picture, const Series &series,
                 const Regression &regression)
{
    script << "$weeks << END\n";
    for (std::size_t k = 0; k < series.size(); ++k) {
        const auto &[date, measured] = series[k];
        const auto &fit = regression.fits[k];
        script << compactDate(date) << ' ' << (measured ? shortest(*measured) : "NaN") << ' '
               << (fit.outcome == Outcome::fitted ? shortest(fit.trend) : "NaN") << '\n';
    }
    const auto first = series.front().date;
    const auto last = series.back().date;
    script << "END\n" << style << timeTics(first, last);
    script << "set xrange ['" << compactDate(first) << "':'" << compactDate(last) << "']\n";
    script << "set output " << quotedForGnuplot(picture.string()) << plot;
}

} // namespace

void drawPicture(const std::filesystem::path &path, const Series &series,
                 const Regression &regression)
{
    TemporaryFile script;
    {
        std::ofstream file(script.name);
        writeScript(file, path, series, regression);
        if (!file.flush())
            throw std::runtime_error("cannot write '" + script.name + "'");
    }
    char program[] = "gnuplot";
    char *arguments[] = {program, script.name.data(), nullptr};
    pid_t child = 0;
    const int error = posix_spawnp(&child, program, nullptr, nullptr, arguments, environ);
    if (error == ENOENT)
        throw std::runtime_error("gnuplot is not installed, so there is no picture; install it "
                                 "(Debian: gnuplot-nox) or give --no-picture");
    if (error != 0)
        throw std::runtime_error(std::string("cannot run gnuplot: ") + std::strerror(error));
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            throw std::runtime_error(std::string("cannot wait for gnuplot: ") +
                                     std::strerror(errno));
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("gnuplot failed to draw '" + path.string() +
                                 "', see its message; choose another place with --out-png or give "
                                 "--no-picture");
}

} // namespace trend
