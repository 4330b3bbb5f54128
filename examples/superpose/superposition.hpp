// SPDX-License-Identifier: Apache-2.0
// Superposition by Horn's quaternion method: the rotation that brings a shape closest to a
// reference is the eigenvector of the largest eigenvalue of a symmetric 4x4 matrix.
#pragma once

#include "ensemble.hpp"

#include <optional>

namespace superpose
{

struct Fit {
    double rmsd;
    Shape atoms; // of the model, moved onto the reference
};

struct Superposition {
    Shape reference;                      // about its centre
    std::vector<std::optional<Fit>> fits; // one for each model; none where the library refused it
};

Superposition superposeOn(const Shape &reference, const std::vector<Model> &models);

// The mean of what was fitted becomes the reference, until it settles.
Superposition superposeOnMean(const std::vector<Model> &models, int &rounds);

// Root mean square distance of each atom from its mean place.
std::vector<double> fluctuationsOf(const Superposition &superposition);

} // namespace superpose
