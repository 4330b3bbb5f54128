// SPDX-License-Identifier: Apache-2.0
// Where the atoms of a turned molecule stand before a camera, and on the screen.
#pragma once

#include "atoms.hpp"

#include <optional>
#include <vector>

namespace molecule
{

struct Angles {
    float yaw, pitch, roll; // radians
};

struct Screen {
    int width, height;
    float fieldOfView; // top to bottom, radians
};

struct Point {
    float x, y, z;
};

enum class Framing {
    fitted,    // to the atoms as they are seen
    wholeTurn, // so that nothing leaves the picture, whatever the angles
};

class View
{
  public:
    View(const std::vector<Atom> &atoms, const Angles &angles, const Screen &screen,
         Framing framing);

    // Pixels from the upper left corner, and a depth from 0 to 1: all atoms in one call.
    std::vector<Point> onScreen(const std::vector<Atom> &atoms) const;
    // With the camera at the origin: x to the right, y up, -z ahead.
    std::vector<Point> beforeCamera(const std::vector<Atom> &atoms) const;
    // The point at distance 1 ahead of the camera that a place on the screen shows.
    Point ahead(float x, float y) const;
    // How many pixels something of length 1 is high at a distance.
    float pixelsPerLength(float distance) const;

    float nearest() const { return near; } // distances between which the molecule lies
    float farthest() const { return far; }
    int width() const { return static_cast<int>(screenWidth); }
    int height() const { return static_cast<int>(screenHeight); }

    // The nearest atom whose sphere covers the place, by the way back from the screen.
    std::optional<std::size_t> atomAt(const std::vector<Atom> &atoms, float x, float y) const;

  private:
    Point unprojected(float x, float y, float depth) const;

    float screenWidth, screenHeight;
    float near, far;
    float world[16], view[16], proj[16];
};

} // namespace molecule
