// SPDX-License-Identifier: Apache-2.0
// The atoms as shaded spheres.
#pragma once

#include "atoms.hpp"
#include "view.hpp"

#include "common/canvas.hpp"

namespace molecule
{

common::Canvas drawSpheres(const std::vector<Atom> &atoms, const Angles &angles,
                           const Screen &screen, Framing framing);

} // namespace molecule
