// SPDX-License-Identifier: Apache-2.0
#include "view.hpp"

#include <zonm.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace molecule
{
namespace
{

// Vectors lie in the records of their owners: a stride leads from one to the next.
constexpr std::int32_t fromAtomToAtom = sizeof(Atom), fromPointToPoint = sizeof(Point);

// Nothing can go wrong with pointers that are not null.
void multiply(const float *a, const float *b, float *product)
{
    if (zonmMul_mm4x4_32f(a, b, product) != zonStsOk)
        throw std::logic_error("a matrix is missing");
}

// The atom that reaches farthest from a place, and how far.
std::pair<const Atom &, float> farthestFrom(const Point &place, const std::vector<Atom> &atoms)
{
    const Atom *farthest = nullptr;
    float most = -1;
    for (const Atom &atom : atoms) {
        Point way;
        float length;
        zonmSub_v3_32f(atom.position, &place.x, &way.x);
        zonmLen_v3_32f(&way.x, &length);
        if (length + atom.element->radius > most) {
            most = length + atom.element->radius;
            farthest = &atom;
        }
    }
    return {*farthest, most};
}

// Where a ray enters a sphere: at start + t * direction.
std::optional<float> firstMeeting(const Point &start, const Point &direction, const Point &centre,
                                  float radius)
{
    Point toCentre;
    float along, lengthSquared, distanceSquared;
    zonmSub_v3_32f(&centre.x, &start.x, &toCentre.x);
    zonmDotProduct_v3_32f(&toCentre.x, &direction.x, &along);
    zonmLenSqr_v3_32f(&direction.x, &lengthSquared);
    zonmLenSqr_v3_32f(&toCentre.x, &distanceSquared);
    const float root = along * along - lengthSquared * (distanceSquared - radius * radius);
    if (!(root >= 0))
        return std::nullopt;
    return (along - std::sqrt(root)) / lengthSquared;
}

} // namespace

View::View(const std::vector<Atom> &atoms, const Angles &angles, const Screen &screen,
           Framing framing)
    : screenWidth(static_cast<float>(screen.width)), screenHeight(static_cast<float>(screen.height))
{
    // The middle of the smallest sphere around the atoms becomes the origin, about which the
    // molecule turns: a place that moves towards the farthest atom by ever smaller steps ends
    // there.
    Point middle{atoms[0].position[0], atoms[0].position[1], atoms[0].position[2]};
    for (int step = 1; step <= 1000; ++step)
        zonmInterpolationLinear_v3_32f(&middle.x, farthestFrom(middle, atoms).first.position,
                                       1 / static_cast<float>(step + 1), &middle.x);
    const float radius = farthestFrom(middle, atoms).second;
    float toOrigin[16], turn[16];
    zonmTranslation_m4_32f(-middle.x, -middle.y, -middle.z, toOrigin);
    zonmRotationYawPitchRoll_m4_32f(angles.yaw, angles.pitch, angles.roll, turn);
    multiply(toOrigin, turn, world); // row vectors: first to the origin, then the turn

    const float aspect = screenWidth / screenHeight, half = screen.fieldOfView / 2;
    const float halfAcross = std::atan(std::tan(half) * aspect);
    Point at{0, 0, 0};
    float distance, front = radius, back = -radius;
    if (framing == Framing::wholeTurn) {
        distance = 1.02f * radius / std::sin(std::min(half, halfAcross));
    } else { // as near as the atoms allow, straight before the middle of what is seen of them
        std::vector<Point> turned(atoms.size());
        zonmAffineTransformCoord_m4v3a_32f(world, atoms.front().position, fromAtomToAtom,
                                           &turned.front().x, fromPointToPoint,
                                           static_cast<std::int32_t>(atoms.size()));
        Point low = turned[0], high = turned[0];
        for (std::size_t k = 0; k < atoms.size(); ++k) {
            const float r = atoms[k].element->radius;
            const Point around{r, r, r};
            Point lower, upper;
            zonmSub_v3_32f(&turned[k].x, &around.x, &lower.x);
            zonmAdd_v3_32f(&turned[k].x, &around.x, &upper.x);
            zonmMin_v3_32f(&low.x, &lower.x, &low.x);
            zonmMax_v3_32f(&high.x, &upper.x, &high.x);
        }
        zonmInterpolationLinear_v3_32f(&low.x, &high.x, 0.5f, &at.x);
        front = high.z;
        back = low.z;
        distance = front + 0.05f * radius;
        const float margin = 0.88f; // of the picture, for the legend below
        for (std::size_t k = 0; k < atoms.size(); ++k) {
            const float r = atoms[k].element->radius;
            const auto needed = [&](float aside, float angle) {
                return (aside + r / std::cos(angle)) / (margin * std::tan(angle)) + turned[k].z;
            };
            distance = std::max({distance, needed(std::abs(turned[k].x - at.x), halfAcross),
                                 needed(std::abs(turned[k].y - at.y), half)});
        }
    }
    at.z = 0;
    const Point eye{at.x, at.y, distance}, up{0, 1, 0};
    near = distance - front;
    far = distance - back;
    zonmLookAtRH_m4_32f(&eye.x, &at.x, &up.x, view);
    zonmPerspectiveFovRH_m4_32f(screen.fieldOfView, aspect, near, far, proj);
}

std::vector<Point> View::onScreen(const std::vector<Atom> &atoms) const
{
    std::vector<Point> points(atoms.size());
    zonmProject_m4v3a_32f(proj, view, world, atoms.front().position, fromAtomToAtom, screenWidth,
                          screenHeight, 0, 1, &points.front().x, fromPointToPoint,
                          static_cast<std::int32_t>(atoms.size()));
    return points;
}

std::vector<Point> View::beforeCamera(const std::vector<Atom> &atoms) const
{
    std::vector<Point> points(atoms.size());
    float toCamera[16];
    multiply(world, view, toCamera);
    zonmAffineTransformCoord_m4v3a_32f(toCamera, atoms.front().position, fromAtomToAtom,
                                       &points.front().x, fromPointToPoint,
                                       static_cast<std::int32_t>(atoms.size()));
    return points;
}

Point View::ahead(float x, float y) const
{
    return {(2 * x / screenWidth - 1) / proj[0], (1 - 2 * y / screenHeight) / proj[5], -1};
}

float View::pixelsPerLength(float away) const { return proj[5] * screenHeight / (2 * away); }

Point View::unprojected(float x, float y, float depth) const
{
    const Point place{x, y, depth};
    Point point;
    if (zonmUnproject_m4v3_32f(proj, view, world, &place.x, screenWidth, screenHeight, 0, 1,
                               &point.x) != zonStsOk)
        throw std::runtime_error("the view cannot be inverted; choose another field of view");
    return point;
}

std::optional<std::size_t> View::atomAt(const std::vector<Atom> &atoms, float x, float y) const
{
    const Point from = unprojected(x, y, 0), to = unprojected(x, y, 1);
    Point direction;
    zonmSub_v3_32f(&to.x, &from.x, &direction.x);
    std::optional<std::size_t> atom;
    float first = 0;
    for (std::size_t k = 0; k < atoms.size(); ++k) {
        const auto &p = atoms[k].position;
        const auto t = firstMeeting(from, direction, {p[0], p[1], p[2]}, atoms[k].element->radius);
        if (t && (!atom || *t < first)) {
            atom = k;
            first = *t;
        }
    }
    return atom;
}

} // namespace molecule
