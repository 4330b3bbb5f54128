// SPDX-License-Identifier: Apache-2.0
// 4x4 matrices against the plain reference, and against what is known of them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

#include "graphics_reference.hpp"

using namespace test;

namespace
{

const References references = {
    ZONM_REFERENCE(zonmIdentity_m4_32f, &reference::identity),
    ZONM_REFERENCE(zonmIsIdentity_m4_32f, &reference::isIdentity),
    ZONM_REFERENCE(zonmTranspose_m4_32f, &reference::transpose),
    ZONM_REFERENCE(zonmDet_m4_32f, &reference::det),
    ZONM_REFERENCE(zonmInvert_m4_32f, &reference::invert),
    ZONM_REFERENCE(zonmMul_mm4x4_32f, &reference::product),
    ZONM_REFERENCE(zonmMulTranspose_m4_32f, &reference::productTransposed),
    ZONM_REFERENCE(zonmScaling_m4_32f, &reference::scaling),
    ZONM_REFERENCE(zonmTranslation_m4_32f, &reference::translation),
    ZONM_REFERENCE(zonmRotationX_m4_32f, &reference::rotationX),
    ZONM_REFERENCE(zonmRotationY_m4_32f, &reference::rotationY),
    ZONM_REFERENCE(zonmRotationZ_m4_32f, &reference::rotationZ),
    ZONM_REFERENCE(zonmRotationAxis_v3m4_32f, &reference::rotationAxis),
    ZONM_REFERENCE(zonmRotationYawPitchRoll_m4_32f, &reference::yawPitchRoll),
};

using Matrix = std::array<float, 16>;
constexpr Matrix unit = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

void fill(KitCall &call, const char *name, const Matrix &m)
{
    for (int i = 0; i < 16; ++i)
        call.setElement(name, 0, i, m[std::size_t(i)]);
}

Matrix result(const KitCall &call)
{
    Matrix m;
    for (int i = 0; i < 16; ++i)
        m[std::size_t(i)] = call.element("dst", i);
    return m;
}

TEST(FixedMatrices, AreAllThere)
{
    EXPECT_EQ(exportsOf("fixed_matrices").size(), 14u);
    EXPECT_EQ(references.size(), 14u);
}

TEST(FixedMatrices, AgreeWithTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("fixed_matrices"))
        for (const Values values : allValues())
            for (int repeat = 0; repeat < 100; ++repeat)
                KitCall(e->name, seed++).apart().fill(values).compareWith(references);
}

// sin and cos are those that a program gets, at every angle and each to its last bit.
TEST(FixedMatrices, RotateByThePlatformsFunctions)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("fixed_matrices")) {
        if (!e->operation.starts_with("zonmRotation"))
            continue;
        for (int repeat = 0; repeat < 3000; ++repeat) {
            KitCall call(e->name, seed++);
            call.apart().fill(Values::uniform);
            const double reach = std::ldexp(1.0, call.random().between(-12, 30));
            for (const char *angle : {"angle", "yaw", "pitch", "roll"})
                call.set(angle, double(float(reach * (2 * call.random().unit() - 1))));
            call.compareWith(references);
        }
    }
}

// Where the two terms of an element nearly cancel, another order of their factors shows.
TEST(FixedMatrices, RotationsWhoseTermsNearlyCancel)
{
    std::uint64_t seed = 1;
    for (int repeat = 0; repeat < 800; ++repeat) {
        KitCall call("zonmRotationYawPitchRoll_m4_32f", seed++);
        call.apart();
        const auto angle = [&] { return double(float(0.1 + 1.3 * call.random().unit())); };
        const double yaw = angle(), pitch = angle(), t = std::tan(yaw), sp = std::sin(pitch);
        const double ratios[] = {-1 / (t * sp), t / sp, t * sp, -sp / t};
        call.set("yaw", yaw).set("pitch", pitch);
        call.set("roll", double(float(std::atan(ratios[repeat % 4])))).compareWith(references);
    }
    for (int repeat = 0; repeat < 1800; ++repeat) {
        KitCall call("zonmRotationAxis_v3m4_32f", seed++);
        call.apart().fill(Values::uniform);
        double a[3], sum = 0;
        for (int i = 0; i < 3; ++i) {
            a[i] = call.element("axis", i);
            sum += a[i] * a[i];
        }
        for (double &x : a)
            x /= std::sqrt(sum);
        const int i = repeat % 3, j = (i + 1) % 3, k = (i + 2) % 3;
        const double c = -a[i] * a[i] / (1 - a[i] * a[i]);
        const double half = a[k] / (a[i] * a[j]);
        const double angles[] = {std::acos(std::max(c, -1.0)), 2 * std::atan(half),
                                 2 * std::atan(-half)};
        call.set("angle", double(float(angles[repeat / 3 % 3]))).compareWith(references);
    }
}

// Where dst meets a source, the stores of one element can be seen by the next.
TEST(FixedMatrices, StoreInOrder)
{
    std::uint64_t seed = 1;
    for (const char *name :
         {"zonmMul_mm4x4_32f", "zonmMulTranspose_m4_32f", "zonmTranspose_m4_32f"})
        for (const ArgumentInfo &a : exportNamed(name).arguments)
            for (int offset = -70; a.name != "dst" && offset <= 70; ++offset)
                KitCall(name, seed++)
                    .together({{"dst", 0}, {a.name, offset}})
                    .fill(Values::uniform)
                    .compareWith(references);
    for (const char *name : {"zonmMul_mm4x4_32f", "zonmMulTranspose_m4_32f"})
        KitCall(name, seed++)
            .together({{"dst", 0}, {"src1", 0}, {"src2", 0}})
            .fill(Values::uniform)
            .compareWith(references);
}

TEST(FixedMatrices, TransposeCopiesBits)
{
    KitCall call("zonmTranspose_m4_32f", 1);
    call.apart();
    for (int i = 0; i < 16; ++i)
        call.setBits("src", i, 0x7f800001u + std::uint32_t(i)); // signalling
    call.run();
    for (int i = 0; i < 16; ++i)
        EXPECT_EQ(call.bits("dst", i), 0x7f800001u + std::uint32_t(i % 4 * 4 + i / 4));
}

TEST(FixedMatrices, OnlyTheIdentityIsOne)
{
    const auto isIdentity = [](const Matrix &m) {
        KitCall call("zonmIsIdentity_m4_32f", 1);
        call.apart();
        fill(call, "src", m);
        EXPECT_EQ(call.compareWith(references), zonStsOk);
        return call.bits("dst", 0);
    };
    EXPECT_EQ(isIdentity(unit), 1u);
    for (std::size_t i = 0; i < 16; ++i) {
        Matrix m = unit;
        m[i] = std::nextafter(unit[i], 2.f);
        EXPECT_EQ(isIdentity(m), 0u) << i;
        m[i] = std::nextafter(unit[i], -2.f);
        EXPECT_EQ(isIdentity(m), 0u) << i;
        m[i] = NAN;
        EXPECT_EQ(isIdentity(m), 0u) << i;
        m[i] = -unit[i];
        EXPECT_EQ(isIdentity(m), unsigned(unit[i] == 0)) << i;
    }
}

TEST(FixedMatrices, ProductJudgesItsPointers)
{
    float m[16] = {};
    EXPECT_EQ(zonmMul_mm4x4_32f(nullptr, m, m), zonStsNullPointer);
    EXPECT_EQ(zonmMul_mm4x4_32f(m, nullptr, m), zonStsNullPointer);
    EXPECT_EQ(zonmMul_mm4x4_32f(m, m, nullptr), zonStsNullPointer);
}

// Integers: sums, minors and products are exact, and the order of the terms does not matter.
TEST(FixedMatrices, ProductsAndDeterminantsOfIntegers)
{
    Random random(1);
    for (int repeat = 0; repeat < 200; ++repeat) {
        Matrix a, b;
        for (std::size_t i = 0; i < 16; ++i)
            a[i] = float(random.between(-9, 9)), b[i] = float(random.between(-9, 9));
        const auto det = [](const Matrix &m) {
            float d;
            EXPECT_EQ(zonmDet_m4_32f(m.data(), &d), zonStsOk);
            return double(d);
        };
        // By permutations.
        int p[4] = {0, 1, 2, 3};
        double sum = 0;
        do {
            int inversions = 0;
            double term = 1;
            for (int i = 0; i < 4; ++i) {
                term *= a[std::size_t(4 * i + p[i])];
                for (int j = 0; j < i; ++j)
                    inversions += p[j] > p[i];
            }
            sum += inversions % 2 ? -term : term;
        } while (std::next_permutation(p, p + 4));
        EXPECT_EQ(det(a), sum);

        Matrix ab, transposed;
        EXPECT_EQ(zonmMul_mm4x4_32f(a.data(), b.data(), ab.data()), zonStsOk);
        EXPECT_EQ(zonmMulTranspose_m4_32f(a.data(), b.data(), transposed.data()), zonStsOk);
        for (std::size_t r = 0; r < 4; ++r)
            for (std::size_t c = 0; c < 4; ++c) {
                float element = 0;
                for (std::size_t k = 0; k < 4; ++k)
                    element += a[4 * r + k] * b[4 * k + c];
                EXPECT_EQ(ab[4 * r + c], element);
                EXPECT_EQ(transposed[4 * c + r], element);
            }
    }
}

// Inverse --------------------------------------------------------------------------------------

// Rows of every size, so that the pivots take every order.
Matrix drawn(Random &random)
{
    Matrix m;
    for (float &x : m)
        x = float(std::ldexp(2 * random.unit() - 1, random.between(-3, 3)));
    return m;
}

ZonStatus invert(KitCall &call, const Matrix &m, bool withDet)
{
    call.apart();
    fill(call, "src", m);
    if (!withDet)
        call.set("det", nullptr);
    return call.compareWith(references);
}

TEST(FixedMatrices, InverseAgreesWithTheReference)
{
    Random random(1);
    for (std::uint64_t seed = 1; seed <= 20000; ++seed) {
        KitCall call("zonmInvert_m4_32f", seed);
        EXPECT_EQ(invert(call, drawn(random), seed % 2), zonStsOk);
    }
}

// The last element of row 0 nearly takes back what the others come to.
TEST(FixedMatrices, DeterminantWhoseTermsNearlyCancel)
{
    Random random(3);
    for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
        Matrix m;
        for (float &x : m)
            x = float(2 * random.unit() - 1);
        const auto minor = [&](std::size_t a, std::size_t b, std::size_t c) { // of rows 1 to 3
            const auto lower = [&](std::size_t i, std::size_t j) {
                return double(m[8 + i]) * m[12 + j] - double(m[8 + j]) * m[12 + i];
            };
            return (m[4 + a] * lower(b, c) - m[4 + b] * lower(a, c)) + m[4 + c] * lower(a, b);
        };
        m[3] = float((m[0] * minor(1, 2, 3) - m[1] * minor(0, 2, 3) + m[2] * minor(0, 1, 3)) /
                     minor(0, 1, 2));
        KitCall call("zonmDet_m4_32f", seed);
        call.apart();
        fill(call, "src", m);
        call.compareWith(references);
    }
}

// Pivots whose product rounds to another float if it is formed in another order.
TEST(FixedMatrices, DeterminantInTheOrderOfThePivots)
{
    const float diagonals[][4] = {
        {0x1.de25a4p+0f, 0x1.e2f02cp+0f, 0x1.8ee88ep+0f, 0x1.288f54p+0f},
        {0x1.ff45fp+0f, 0x1.f0356ep+0f, 0x1.26ed2ep+0f, 0x1.73db2ep+0f},
        {0x1.e055aep+0f, 0x1.bb07eep+0f, 0x1.8e6a3cp+0f, 0x1.f8940ep+0f},
    };
    std::uint64_t seed = 1;
    for (const auto &diagonal : diagonals) {
        Matrix m = unit;
        for (int i = 0; i < 4; ++i)
            m[std::size_t(5 * i)] = diagonal[i];
        KitCall call("zonmInvert_m4_32f", seed++);
        EXPECT_EQ(invert(call, m, true), zonStsOk);
    }
}

// Few different values make ties between candidates, zeros of both signs and singular matrices.
TEST(FixedMatrices, InverseOfFewValues)
{
    Random random(2);
    int singular = 0;
    for (std::uint64_t seed = 1; seed <= 20000; ++seed) {
        Matrix m;
        for (float &x : m)
            x = random.pick({0.f, -0.f, 1.f, -1.f, 2.f});
        KitCall call("zonmInvert_m4_32f", seed);
        singular += invert(call, m, seed % 2) == zonStsSingular;
    }
    EXPECT_GT(singular, 1000);
    EXPECT_LT(singular, 19000);
}

TEST(FixedMatrices, InverseWithInfinitiesAndNaNs)
{
    Random random(3);
    for (std::uint64_t seed = 1; seed <= 20000; ++seed) {
        Matrix m = drawn(random);
        for (int n = random.between(1, 3); n > 0; --n)
            m[std::size_t(random.below(16))] =
                random.pick({NAN, INFINITY, -INFINITY, 0.f, 3e38f, -3e38f, 1e-40f});
        KitCall call("zonmInvert_m4_32f", seed);
        invert(call, m, true);
    }
}

// A NaN in front stands against all candidates and is not below the limit; behind them it never
// wins, and the zeros in front of it are below the limit.
TEST(FixedMatrices, NaNAsCandidate)
{
    Matrix m = unit;
    m[0] = NAN;
    KitCall front("zonmInvert_m4_32f", 1);
    EXPECT_EQ(invert(front, m, true), zonStsOk);
    EXPECT_TRUE(std::isnan(front.element("det", 0)));
    for (std::size_t c = 1; c < 4; ++c) {
        m = unit;
        m[0] = 0;
        m[c] = NAN;
        KitCall behind("zonmInvert_m4_32f", 1);
        EXPECT_EQ(invert(behind, m, true), zonStsSingular);
        EXPECT_EQ(behind.bits("det", 0), 0u);
    }
}

TEST(FixedMatrices, InverseInPlace)
{
    Random random(4);
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        KitCall call("zonmInvert_m4_32f", seed);
        const Matrix m = drawn(random);
        call.together({{"src", 0}, {"dst", 0}});
        fill(call, "src", m);
        EXPECT_EQ(call.compareWith(references), zonStsOk);
        Matrix apart;
        EXPECT_EQ(zonmInvert_m4_32f(m.data(), nullptr, apart.data()), zonStsOk);
        EXPECT_EQ(result(call), apart);
    }
}

TEST(FixedMatrices, InverseOfPermutations)
{
    int p[4] = {0, 1, 2, 3};
    do {
        Matrix m = {}, transposed = {};
        int inversions = 0;
        for (int i = 0; i < 4; ++i) {
            m[std::size_t(4 * i + p[i])] = transposed[std::size_t(4 * p[i] + i)] = 1;
            for (int j = 0; j < i; ++j)
                inversions += p[j] > p[i];
        }
        KitCall call("zonmInvert_m4_32f", 1);
        EXPECT_EQ(invert(call, m, true), zonStsOk);
        EXPECT_EQ(result(call), transposed);
        EXPECT_EQ(call.element("det", 0), inversions % 2 ? -1 : 1);
    } while (std::next_permutation(p, p + 4));
}

// The limit is absolute: below it stands singular what has a perfect inverse.
TEST(FixedMatrices, LimitOfSingularity)
{
    const float limit = 1.430511474609375e-06f;
    for (const bool withDet : {false, true})
        for (int step = 0; step < 4; ++step)
            for (const float sign : {1.f, -1.f}) {
                Matrix m = unit;
                m[std::size_t(5 * step)] = sign * limit;
                KitCall at("zonmInvert_m4_32f", 1);
                EXPECT_EQ(invert(at, m, withDet), zonStsOk);
                m[std::size_t(5 * step)] = sign * std::nextafter(limit, 0.f);
                KitCall below("zonmInvert_m4_32f", 1);
                EXPECT_EQ(invert(below, m, withDet), zonStsSingular);
                if (withDet)
                    EXPECT_EQ(below.bits("det", 0), 0u);
                else
                    EXPECT_TRUE(below.isUntouched());
                for (int i = 0; i < 16; ++i)
                    EXPECT_EQ(below.bits("dst", i), below.bits("dst", 0)); // the mark
            }
    Matrix diagonal = {};
    for (const auto &[x, status] : {std::pair(1e-6f, zonStsSingular), std::pair(2e-6f, zonStsOk)}) {
        for (std::size_t i = 0; i < 4; ++i)
            diagonal[5 * i] = x;
        KitCall call("zonmInvert_m4_32f", 1);
        EXPECT_EQ(invert(call, diagonal, true), ZonStatus(status));
    }
}

// A row that depends on those above it ends the call at its step, whichever that is.
TEST(FixedMatrices, DependentRows)
{
    Random random(5);
    for (int step = 0; step < 4; ++step)
        for (std::uint64_t seed = 1; seed <= 50; ++seed) {
            Matrix m;
            for (float &x : m)
                x = float(random.pick({1, 2, 4, 8}));
            for (std::size_t c = 0; c < 4; ++c)
                m[std::size_t(4 * step) + c] = step == 0 ? 0 : 2 * m[std::size_t(4 * step - 4) + c];
            KitCall call("zonmInvert_m4_32f", seed);
            EXPECT_EQ(invert(call, m, true), zonStsSingular);
        }
}

// Rotations ------------------------------------------------------------------------------------

TEST(FixedMatrices, NoTurnIsTheIdentity)
{
    Matrix m;
    std::int32_t same;
    const float axis[3] = {3, -4, 12};
    zonmRotationX_m4_32f(0, m.data());
    zonmIsIdentity_m4_32f(m.data(), &same);
    EXPECT_TRUE(same);
    zonmRotationY_m4_32f(0, m.data());
    zonmIsIdentity_m4_32f(m.data(), &same);
    EXPECT_TRUE(same);
    zonmRotationZ_m4_32f(0, m.data());
    zonmIsIdentity_m4_32f(m.data(), &same);
    EXPECT_TRUE(same);
    zonmRotationAxis_v3m4_32f(axis, 0, m.data());
    zonmIsIdentity_m4_32f(m.data(), &same);
    EXPECT_TRUE(same);
    zonmRotationYawPitchRoll_m4_32f(0, 0, 0, m.data());
    zonmIsIdentity_m4_32f(m.data(), &same);
    EXPECT_TRUE(same);
}

// Row vectors: y turns to z, z to x, x to y.
TEST(FixedMatrices, DirectionsOfTheTurns)
{
    const auto quarter = float(std::numbers::pi / 2);
    const auto turned = [](const Matrix &m, int from) { // the row that unit vector `from` becomes
        return std::array{std::round(m[std::size_t(4 * from)]),
                          std::round(m[std::size_t(4 * from + 1)]),
                          std::round(m[std::size_t(4 * from + 2)])};
    };
    const std::array x = {1.f, 0.f, 0.f}, y = {0.f, 1.f, 0.f}, z = {0.f, 0.f, 1.f};
    Matrix m, n;
    zonmRotationX_m4_32f(quarter, m.data());
    EXPECT_EQ(turned(m, 1), z);
    zonmRotationY_m4_32f(quarter, m.data());
    EXPECT_EQ(turned(m, 2), x);
    zonmRotationZ_m4_32f(quarter, m.data());
    EXPECT_EQ(turned(m, 0), y);

    const float axis[3] = {5, 0, 0};
    zonmRotationAxis_v3m4_32f(axis, 0.7f, m.data());
    zonmRotationX_m4_32f(0.7f, n.data());
    for (std::size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(m[i], n[i], 1e-7);
}

// Roll first, then pitch, then yaw.
TEST(FixedMatrices, YawPitchRollIsAProduct)
{
    Matrix roll, pitch, yaw, all, product;
    zonmRotationZ_m4_32f(0.3f, roll.data());
    zonmRotationX_m4_32f(-1.1f, pitch.data());
    zonmRotationY_m4_32f(2.4f, yaw.data());
    EXPECT_EQ(zonmMul_mm4x4_32f(roll.data(), pitch.data(), product.data()), zonStsOk);
    EXPECT_EQ(zonmMul_mm4x4_32f(Matrix(product).data(), yaw.data(), product.data()), zonStsOk);
    zonmRotationYawPitchRoll_m4_32f(2.4f, -1.1f, 0.3f, all.data());
    for (std::size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(all[i], product[i], 2e-7);
}

TEST(FixedMatrices, NoAxisNoRotation)
{
    KitCall call("zonmRotationAxis_v3m4_32f", 1);
    call.apart().fill([](std::string_view, int, int) { return 0; }).set("angle", 1.0);
    EXPECT_EQ(call.compareWith(references), zonStsOk);
    for (int i = 0; i < 16; ++i)
        if (i / 4 < 3 && i % 4 < 3)
            EXPECT_TRUE(std::isnan(call.element("dst", i)));
        else
            EXPECT_EQ(call.element("dst", i), unit[std::size_t(i)]);
}

} // namespace
