// SPDX-License-Identifier: Apache-2.0
#include "atoms.hpp"

#include "common/csv.hpp"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace molecule
{
namespace
{

constexpr Element elements[] = {
    {"C", "carbon", 1.70f, {0.74f, 0.75f, 0.76f}},
    {"N", "nitrogen", 1.55f, {0.27f, 0.47f, 0.86f}},
    {"O", "oxygen", 1.52f, {0.86f, 0.26f, 0.22f}},
    {"S", "sulphur", 1.80f, {0.95f, 0.77f, 0.22f}},
    {"P", "phosphorus", 1.80f, {0.93f, 0.53f, 0.18f}},
    {"H", "hydrogen", 1.10f, {0.93f, 0.94f, 0.95f}},
};

const Element *elementOf(const std::string &symbol)
{
    const auto found = std::find_if(std::begin(elements), std::end(elements),
                                    [&](const Element &e) { return symbol == e.symbol; });
    return found == std::end(elements) ? nullptr : found;
}

} // namespace

std::vector<Atom> readAtoms(const std::filesystem::path &path)
{
    std::vector<Atom> atoms;
    common::readCsv(
        path, {"atom", "element", "residue", "name", "x", "y", "z"},
        [&](const common::Record &record) -> std::string {
            Atom atom{elementOf(record[1]), record[0], record[3], 0, {}};
            if (!atom.element)
                return "'" + record[1] + "' is no element that can be drawn (C, N, O, S, P, H)";
            const std::string &number = record[2];
            const auto [end, error] =
                std::from_chars(number.data(), number.data() + number.size(), atom.number);
            if (error != std::errc() || end != number.data() + number.size())
                return "'" + number + "' is no number of a residue";
            for (std::size_t i = 0; i < 3; ++i) {
                const auto coordinate = common::parseNumber(record[4 + i]);
                if (!coordinate || !(std::abs(*coordinate) < 1e5))
                    return "'" + record[4 + i] + "' is no coordinate in angstrom";
                atom.position[i] = static_cast<float>(*coordinate);
            }
            atoms.push_back(atom);
            return "";
        });
    if (atoms.empty())
        throw std::runtime_error("there is no atom in '" + path.string() + "'");
    return atoms;
}

std::vector<Occurrence> elementsOf(const std::vector<Atom> &atoms)
{
    std::vector<Occurrence> occurring;
    for (const Element &e : elements) {
        const auto n = std::count_if(atoms.begin(), atoms.end(),
                                     [&](const Atom &a) { return a.element == &e; });
        if (n > 0)
            occurring.push_back({&e, static_cast<int>(n)});
    }
    return occurring;
}

std::string describe(const Atom &atom)
{
    return "atom " + atom.label + " (" + atom.element->name + ") of residue " + atom.residue + ' ' +
           std::to_string(atom.number);
}

} // namespace molecule
