// SPDX-License-Identifier: Apache-2.0
// A molecule as shaded spheres: turned, put before a camera and brought to the screen with the
// graphics kit.
#include "atoms.hpp"
#include "picture.hpp"
#include "view.hpp"

#include "common/output.hpp"
#include "common/program.hpp"

#include <zonm.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <string>

namespace
{

namespace fs = std::filesystem;

constexpr auto about = R"(Draws the atoms of a molecule as shaded spheres, coloured by element.)";

struct Options {
    fs::path input;
    fs::path picture = "molecule.png";
    int width = 1200, height = 900;
    double yaw = 0, pitch = 0, roll = 0, fieldOfView = 30; // degrees
    int frames = 1;
    std::optional<std::array<double, 2>> pick;
};

float radians(double degrees) { return static_cast<float>(degrees * std::numbers::pi / 180); }

molecule::Angles anglesOf(const Options &options, int frame)
{
    return {radians(options.yaw + 360.0 * frame / options.frames), radians(options.pitch),
            radians(options.roll)};
}

molecule::Framing framingOf(const Options &options)
{
    return options.frames == 1 ? molecule::Framing::fitted : molecule::Framing::wholeTurn;
}

// molecule.png, or molecule-001.png, molecule-002.png, ... of a turn.
fs::path pictureOf(const Options &options, int frame)
{
    if (options.frames == 1)
        return options.picture;
    char number[16];
    std::snprintf(number, sizeof number, "-%03d", frame + 1);
    auto path = options.picture;
    path.replace_filename(path.stem().string() + number + path.extension().string());
    return path;
}

void nameAtom(const Options &options, const std::vector<molecule::Atom> &atoms,
              const molecule::Screen &screen)
{
    const auto [x, y] = *options.pick;
    if (!(0 <= x && x < screen.width && 0 <= y && y < screen.height))
        throw std::runtime_error("--pick: there is no such place in a picture of " +
                                 std::to_string(screen.width) + " by " +
                                 std::to_string(screen.height));
    const molecule::View view(atoms, anglesOf(options, 0), screen, framingOf(options));
    const auto atom = view.atomAt(atoms, static_cast<float>(x), static_cast<float>(y));
    std::cout << (atom ? molecule::describe(atoms[*atom]) : "no atom there") << '\n';
}

void run(const Options &options)
{
    const auto atoms = molecule::readAtoms(options.input);
    const molecule::Screen screen{options.width, options.height, radians(options.fieldOfView)};
    if (options.pick)
        return nameAtom(options, atoms, screen);

    std::vector<fs::path> files{options.input};
    for (int frame = 0; frame < options.frames; ++frame)
        files.push_back(pictureOf(options, frame));
    common::requireDistinct(files);
    std::cout << "atoms     " << atoms.size() << '\n';
    for (int frame = 0; frame < options.frames; ++frame) {
        const auto canvas =
            molecule::drawSpheres(atoms, anglesOf(options, frame), screen, framingOf(options));
        common::OutputFile file(pictureOf(options, frame), canvas.png(), "--out-png");
        file.commit();
        std::cout << "picture   " << pictureOf(options, frame).string() << '\n';
    }
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app(about, "molecule");
    app.add_option("input", options.input, "CSV file: atom, element, residue, name, x, y, z")
        ->required()
        ->type_name("FILE");
    app.add_option("--out-png", options.picture, "the picture to draw")
        ->capture_default_str()
        ->type_name("FILE");
    const auto size = CLI::Range(16, 8192).description("");
    app.add_option("--width", options.width, "of the picture, 16 to 8192")
        ->check(size)
        ->capture_default_str()
        ->type_name("PIXELS");
    app.add_option("--height", options.height, "of the picture, 16 to 8192")
        ->check(size)
        ->capture_default_str()
        ->type_name("PIXELS");
    for (auto [name, angle, what] :
         {std::tuple("--yaw", &options.yaw, "turn about the upright axis, the last of the three"),
          std::tuple("--pitch", &options.pitch, "turn about the axis to the right"),
          std::tuple("--roll", &options.roll, "turn about the line of sight, the first")})
        app.add_option(name, *angle, what)
            ->check(CLI::Range(-36000.0, 36000.0).description(""))
            ->capture_default_str()
            ->type_name("DEGREES");
    app.add_option("--fov", options.fieldOfView, "field of view from top to bottom, 1 to 150")
        ->check(CLI::Range(1.0, 150.0).description(""))
        ->capture_default_str()
        ->type_name("DEGREES");
    app.add_option("--frames", options.frames, "draw a whole turn in so many pictures, 1 to 999")
        ->check(CLI::Range(1, 999).description(""))
        ->capture_default_str()
        ->type_name("N");
    app.add_option("--pick", options.pick, "draw nothing; name the atom at this place")
        ->delimiter(',')
        ->type_name("X,Y");
    return common::runProgram(app, argc, argv, [&] { run(options); });
}
