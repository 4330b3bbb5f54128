// SPDX-License-Identifier: Apache-2.0
// The graphics kit beside GLM, whose matrices are the same 16 numbers in memory: equal within
// rounding wherever the conventions agree. GLM computes in double here.
#include <gtest/gtest.h>

#include <glm/glm.hpp>
#include <glm/gtc/matrix_transform.hpp>
#include <glm/gtc/type_ptr.hpp>

#include <array>
#include <cmath>

#include "support/values.hpp"
#include "zonm.h"

using namespace test;

namespace
{

using Matrix = std::array<float, 16>;

glm::dmat4 wide(const Matrix &m) { return glm::dmat4(glm::make_mat4(m.data())); }

template <class Wanted>
void expectNear(const float *is, const Wanted &wanted, int elements, double tolerance,
                const char *what)
{
    const double *const w = glm::value_ptr(wanted);
    double scale = 1;
    for (int i = 0; i < elements; ++i)
        scale = std::max(scale, std::fabs(w[i]));
    for (int i = 0; i < elements; ++i)
        EXPECT_NEAR(is[i], w[i], tolerance * scale) << what << ", element " << i;
}
void expectMatrix(const Matrix &is, const glm::dmat4 &wanted, double tolerance, const char *what)
{
    expectNear(is.data(), wanted, 16, tolerance, what);
}

class GraphicsWitness : public testing::Test
{
  protected:
    Random random{1};

    float number(double low, double high) { return float(low + (high - low) * random.unit()); }
    Matrix matrix() // with an inverse that rounding cannot spoil
    {
        Matrix m;
        for (int i = 0; i < 16; ++i)
            m[std::size_t(i)] = number(-1, 1) + (i % 5 == 0 ? 3.f : 0.f);
        return m;
    }
    std::array<float, 3> vector() { return {number(-2, 2), number(-2, 2), number(-2, 2)}; }
};

glm::dvec3 wide(const std::array<float, 3> &v) { return {v[0], v[1], v[2]}; }

TEST_F(GraphicsWitness, Matrices)
{
    for (int repeat = 0; repeat < 300; ++repeat) {
        const Matrix a = matrix(), b = matrix();
        Matrix m;
        float det;
        ASSERT_EQ(zonmMul_mm4x4_32f(a.data(), b.data(), m.data()), zonStsOk);
        expectMatrix(m, wide(b) * wide(a), 1e-7, "product");
        zonmMulTranspose_m4_32f(a.data(), b.data(), m.data());
        expectMatrix(m, glm::transpose(wide(b) * wide(a)), 1e-7, "transposed product");
        ASSERT_EQ(zonmInvert_m4_32f(a.data(), &det, m.data()), zonStsOk);
        expectMatrix(m, glm::inverse(wide(a)), 2e-6, "inverse");
        EXPECT_NEAR(det, glm::determinant(wide(a)), 2e-4);
        zonmDet_m4_32f(a.data(), &det);
        EXPECT_NEAR(det, glm::determinant(wide(a)), 5e-5);
    }
}

TEST_F(GraphicsWitness, Rotations)
{
    for (int repeat = 0; repeat < 300; ++repeat) {
        const auto axis = vector();
        const float yaw = number(-4, 4), pitch = number(-4, 4), roll = number(-4, 4);
        const glm::dmat4 none(1);
        Matrix m;
        zonmRotationAxis_v3m4_32f(axis.data(), yaw, m.data());
        expectMatrix(m, glm::rotate(none, double(yaw), wide(axis)), 1e-7, "axis");
        zonmRotationYawPitchRoll_m4_32f(yaw, pitch, roll, m.data());
        const glm::dmat4 y = glm::rotate(none, double(yaw), {0, 1, 0});
        const glm::dmat4 x = glm::rotate(none, double(pitch), {1, 0, 0});
        const glm::dmat4 z = glm::rotate(none, double(roll), {0, 0, 1});
        expectMatrix(m, y * x * z, 1e-7, "yaw, pitch, roll");
    }
}

TEST_F(GraphicsWitness, Cameras)
{
    for (int repeat = 0; repeat < 300; ++repeat) {
        const auto eye = vector(), at = vector(), up = vector();
        if (glm::length(glm::cross(wide(up), wide(at) - wide(eye))) < 0.3)
            continue;
        const float l = number(-3, -1), r = number(1, 3), b = number(-2, -1), t = number(1, 2);
        const float n = number(0.5, 2), f = number(10, 50), fov = number(0.2, 2), aspect = 1.5;
        Matrix m;
        zonmLookAtRH_m4_32f(eye.data(), at.data(), up.data(), m.data());
        expectMatrix(m, glm::lookAtRH(wide(eye), wide(at), wide(up)), 3e-6, "look at, RH");
        zonmLookAtLH_m4_32f(eye.data(), at.data(), up.data(), m.data());
        expectMatrix(m, glm::lookAtLH(wide(eye), wide(at), wide(up)), 3e-6, "look at, LH");
        const auto d = [](float x) { return double(x); };
        zonmOrthoOffCenterRH_m4_32f(l, r, b, t, n, f, m.data());
        expectMatrix(m, glm::orthoRH_ZO(d(l), d(r), d(b), d(t), d(n), d(f)), 1e-7, "ortho, RH");
        zonmOrthoOffCenterLH_m4_32f(l, r, b, t, n, f, m.data());
        expectMatrix(m, glm::orthoLH_ZO(d(l), d(r), d(b), d(t), d(n), d(f)), 1e-7, "ortho, LH");
        zonmPerspectiveOffCenterRH_m4_32f(l, r, b, t, n, f, m.data());
        expectMatrix(m, glm::frustumRH_ZO(d(l), d(r), d(b), d(t), d(n), d(f)), 1e-7, "frustum, RH");
        zonmPerspectiveFovRH_m4_32f(fov, aspect, n, f, m.data());
        expectMatrix(m, glm::perspectiveRH_ZO(d(fov), d(aspect), d(n), d(f)), 1e-7, "fov, RH");
        zonmPerspectiveFovLH_m4_32f(fov, aspect, n, f, m.data());
        expectMatrix(m, glm::perspectiveLH_ZO(d(fov), d(aspect), d(n), d(f)), 1e-7, "fov, LH");
    }
}

// GLM's viewport begins at the bottom.
TEST_F(GraphicsWitness, Projection)
{
    const float eye[3] = {1, 2, 9}, at[3] = {0, 0, 0}, up[3] = {0, 1, 0};
    Matrix proj, view, world;
    zonmLookAtRH_m4_32f(eye, at, up, view.data());
    zonmPerspectiveFovRH_m4_32f(0.9f, 1.25f, 1, 30, proj.data());
    zonmRotationYawPitchRoll_m4_32f(0.3f, 0.2f, 0.1f, world.data());
    const glm::dvec4 viewport(0, 0, 1000, 800);
    for (int repeat = 0; repeat < 300; ++repeat) {
        const auto p = vector();
        std::array<float, 3> screen, back;
        zonmProject_m4v3_32f(proj.data(), view.data(), world.data(), p.data(), 1000, 800, 0, 1,
                             screen.data());
        auto wanted = glm::projectZO(wide(p), wide(view) * wide(world), wide(proj), viewport);
        wanted.y = 800 - wanted.y;
        expectNear(screen.data(), wanted, 3, 1e-6, "project");
        ASSERT_EQ(zonmUnproject_m4v3_32f(proj.data(), view.data(), world.data(), screen.data(),
                                         1000, 800, 0, 1, back.data()),
                  zonStsOk);
        expectNear(back.data(), wide(p), 3, 1e-4, "unproject");
    }
}

} // namespace
