// SPDX-License-Identifier: Apache-2.0
// The models of one molecule: the same atoms in the same order.
#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <vector>

namespace superpose
{

using Point = std::array<double, 3>;
using Shape = std::vector<Point>;

struct Residue {
    int number;
    std::string name;
};

struct Model {
    std::string name;
    Shape atoms;
};

struct Ensemble {
    std::vector<Residue> residues;
    std::vector<Model> models;
    std::vector<std::string> passedOver; // models that have other residues than the first
};

// CSV with the columns model, residue, name, x, y, z. Throws std::runtime_error.
Ensemble readEnsemble(const std::filesystem::path &path);

} // namespace superpose
