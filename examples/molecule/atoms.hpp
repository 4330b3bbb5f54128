// SPDX-License-Identifier: Apache-2.0
// The atoms of a molecule as they stand in a CSV file with the header
// `atom,element,residue,name,x,y,z`.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace molecule
{

struct Element {
    const char *symbol, *name;
    float radius;    // van der Waals, in angstrom
    float colour[3]; // red, green, blue from 0 to 1
};

struct Atom {
    const Element *element;
    std::string label;   // its name within the residue
    std::string residue; // three letters
    int number;          // of the residue in the chain
    float position[3];   // in angstrom
};

// Throws std::runtime_error, with file and line, for anything but a list of one atom or more.
std::vector<Atom> readAtoms(const std::filesystem::path &path);

// Those that occur, in the order of the table, with their numbers.
struct Occurrence {
    const Element *element;
    int atoms;
};
std::vector<Occurrence> elementsOf(const std::vector<Atom> &atoms);

std::string describe(const Atom &atom); // atom CA (carbon) of residue LYS 48

} // namespace molecule
