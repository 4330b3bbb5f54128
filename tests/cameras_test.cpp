// SPDX-License-Identifier: Apache-2.0
// View and projection matrices against the plain reference, and by what they do to points.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "graphics_reference.hpp"

using namespace test;

namespace
{

#define ZONM_BY_HAND(name, function)                                                               \
    ZONM_REFERENCE(name##LH_m4_32f, &reference::function<true>),                                   \
        ZONM_REFERENCE(name##RH_m4_32f, &reference::function<false>)

const References references = {
    ZONM_BY_HAND(zonmLookAt, lookAt),
    ZONM_BY_HAND(zonmOrtho, ortho),
    ZONM_BY_HAND(zonmOrthoOffCenter, orthoOffCenter),
    ZONM_BY_HAND(zonmPerspective, perspective),
    ZONM_BY_HAND(zonmPerspectiveOffCenter, perspectiveOffCenter),
    ZONM_BY_HAND(zonmPerspectiveFov, perspectiveFov),
};

using Matrix = std::array<float, 16>;
using Point = std::array<float, 3>;

Point through(const Matrix &m, Point p)
{
    Point t;
    EXPECT_EQ(zonmAffineTransformCoord_m4v3_32f(m.data(), p.data(), t.data()), zonStsOk);
    return t;
}

TEST(Cameras, AreAllThere)
{
    EXPECT_EQ(exportsOf("cameras").size(), 12u);
    EXPECT_EQ(references.size(), 12u);
}

TEST(Cameras, AgreeWithTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cameras"))
        for (const Values values : allValues())
            for (int repeat = 0; repeat < 200; ++repeat)
                EXPECT_EQ(KitCall(e->name, seed++).apart().fill(values).compareWith(references),
                          zonStsOk);
}

// Equal arguments: lengths of zero, of both signs.
TEST(Cameras, EmptyViewVolumes)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cameras"))
        for (const double value : {0.0, -0.0, 1.0, -2.0})
            for (int repeat = 0; repeat < 50; ++repeat) {
                KitCall call(e->name, seed++);
                call.apart().fill(Values::smallIntegers);
                for (const ArgumentInfo &a : e->arguments)
                    if (a.role == "value" && !call.random().oneIn(3))
                        call.set(a.name, value);
                EXPECT_EQ(call.compareWith(references), zonStsOk);
            }
    Matrix m;
    zonmOrthoLH_m4_32f(1, 1, 2, 2, m.data());
    EXPECT_EQ(m[10], INFINITY);
    EXPECT_EQ(m[14], -INFINITY);
    zonmOrthoRH_m4_32f(1, 1, 2, 2, m.data()); // 2 - 2 is +0 whichever stands first
    EXPECT_EQ(m[14], INFINITY);
    zonmOrthoLH_m4_32f(1, 1, 0, 0, m.data());
    EXPECT_TRUE(std::isnan(m[14]));
    zonmPerspectiveFovLH_m4_32f(0, 1, 1, 2, m.data());
    EXPECT_EQ(m[5], INFINITY);
}

TEST(Cameras, LookingAtOneself)
{
    const auto look = [](Point eye, Point at, Point up) {
        KitCall call("zonmLookAtLH_m4_32f", 1);
        call.apart().fill([&](std::string_view name, int, int i) {
            return (name == "eye" ? eye : name == "at" ? at : up)[std::size_t(i)];
        });
        EXPECT_EQ(call.compareWith(references), zonStsOk);
        Matrix m;
        for (int i = 0; i < 16; ++i)
            m[std::size_t(i)] = call.element("dst", i);
        return m;
    };
    const Matrix nowhere = look({1, 2, 3}, {1, 2, 3}, {0, 1, 0});
    const Matrix along = look({1, 2, 3}, {1, 7, 3}, {0, 1, 0});
    for (std::size_t r = 0; r < 4; ++r) {
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_TRUE(std::isnan(nowhere[4 * r + c]));
            EXPECT_EQ(std::isnan(along[4 * r + c]), c < 2) << r << c;
        }
        EXPECT_EQ(nowhere[4 * r + 3], r == 3);
        EXPECT_EQ(along[4 * r + 3], r == 3);
    }
    EXPECT_EQ(along[6], 1); // z looks along y
}

TEST(Cameras, TheViewThatChangesNothing)
{
    const Point eye = {0, 0, 0}, ahead = {0, 0, 1}, back = {0, 0, -1}, up = {0, 1, 0};
    Matrix left, right;
    zonmLookAtLH_m4_32f(eye.data(), ahead.data(), up.data(), left.data());
    zonmLookAtRH_m4_32f(eye.data(), back.data(), up.data(), right.data());
    for (const Matrix &m : {left, right}) {
        std::int32_t same = 0;
        zonmIsIdentity_m4_32f(m.data(), &same);
        EXPECT_TRUE(same);
    }
}

// What stands before the camera is at +z of a left-handed and at -z of a right-handed view, with x
// to the right and y up in both.
TEST(Cameras, Handedness)
{
    const Point eye = {10, 0, 0}, at = {0, 0, 0}, up = {0, 0, 1};
    Matrix left, right;
    zonmLookAtLH_m4_32f(eye.data(), at.data(), up.data(), left.data());
    zonmLookAtRH_m4_32f(eye.data(), at.data(), up.data(), right.data());
    EXPECT_EQ(through(left, at), (Point{0, 0, 10}));
    EXPECT_EQ(through(right, at), (Point{0, 0, -10}));
    // Looking along -x with z up, +y is to the right.
    EXPECT_EQ(through(left, {0, 1, 2}), (Point{-1, 2, 10}));
    EXPECT_EQ(through(right, {0, 1, 2}), (Point{1, 2, -10}));
}

// Corners of the view volume become corners of the cube from (-1, -1, 0) to (1, 1, 1).
TEST(Cameras, ViewVolumes)
{
    constexpr float l = -3, r = 5, b = -1, t = 2, n = 2, f = 8;
    const auto expectCorners = [&](const Matrix &m, bool leftHanded, bool perspective, float left,
                                   float right, float bottom, float top) {
        for (int corner = 0; corner < 8; ++corner) {
            const bool far = corner & 4;
            const float depth = far ? f : n, widening = perspective ? depth / n : 1;
            const Point p = {widening * (corner & 1 ? right : left),
                             widening * (corner & 2 ? top : bottom), leftHanded ? depth : -depth};
            const Point q = through(m, p);
            EXPECT_NEAR(q[0], corner & 1 ? 1 : -1, 1e-6);
            EXPECT_NEAR(q[1], corner & 2 ? 1 : -1, 1e-6);
            EXPECT_NEAR(q[2], far ? 1 : 0, 1e-6);
        }
    };
    Matrix m;
    zonmOrthoOffCenterLH_m4_32f(l, r, b, t, n, f, m.data());
    expectCorners(m, true, false, l, r, b, t);
    zonmOrthoOffCenterRH_m4_32f(l, r, b, t, n, f, m.data());
    expectCorners(m, false, false, l, r, b, t);
    zonmPerspectiveOffCenterLH_m4_32f(l, r, b, t, n, f, m.data());
    expectCorners(m, true, true, l, r, b, t);
    zonmPerspectiveOffCenterRH_m4_32f(l, r, b, t, n, f, m.data());
    expectCorners(m, false, true, l, r, b, t);
    zonmOrthoLH_m4_32f(8, 6, n, f, m.data());
    expectCorners(m, true, false, -4, 4, -3, 3);
    zonmOrthoRH_m4_32f(8, 6, n, f, m.data());
    expectCorners(m, false, false, -4, 4, -3, 3);
    zonmPerspectiveLH_m4_32f(8, 6, n, f, m.data());
    expectCorners(m, true, true, -4, 4, -3, 3);
    EXPECT_EQ(m[15], 0);
    zonmPerspectiveRH_m4_32f(8, 6, n, f, m.data());
    expectCorners(m, false, true, -4, 4, -3, 3);
    const auto fov = float(2 * std::atan(3 / 2.0)); // 3 up at the near plane, 2 away
    zonmPerspectiveFovLH_m4_32f(fov, 4.f / 3, n, f, m.data());
    expectCorners(m, true, true, -4, 4, -3, 3);
    zonmPerspectiveFovRH_m4_32f(fov, 4.f / 3, n, f, m.data());
    expectCorners(m, false, true, -4, 4, -3, 3);
}

} // namespace
