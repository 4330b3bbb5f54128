// SPDX-License-Identifier: Apache-2.0
// Points and normals through matrices and viewports, against the plain reference and against what
// is known of them.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "graphics_reference.hpp"
#include "support/call.hpp"
#include "support/posix.hpp"

using namespace test;

namespace
{

const References references = {
    ZONM_REFERENCE(zonmAffineTransform_m4v2_32f, &reference::affine<2>),
    ZONM_REFERENCE(zonmAffineTransform_m4v3_32f, &reference::affine<3>),
    ZONM_REFERENCE(zonmAffineTransform_m4v4_32f, &reference::affine<4>),
    ZONM_REFERENCE(zonmAffineTransform_m4v2a_32f, &reference::affineArray<2>),
    ZONM_REFERENCE(zonmAffineTransform_m4v3a_32f, &reference::affineArray<3>),
    ZONM_REFERENCE(zonmAffineTransform_m4v4a_32f, &reference::affineArray<4>),
    ZONM_REFERENCE(zonmAffineTransformCoord_m4v2_32f, &reference::coord<2>),
    ZONM_REFERENCE(zonmAffineTransformCoord_m4v3_32f, &reference::coord<3>),
    ZONM_REFERENCE(zonmAffineTransformCoord_m4v2a_32f, &reference::coordArray<2>),
    ZONM_REFERENCE(zonmAffineTransformCoord_m4v3a_32f, &reference::coordArray<3>),
    ZONM_REFERENCE(zonmAffineTransformNormal_m4v2_32f, &reference::normal<2>),
    ZONM_REFERENCE(zonmAffineTransformNormal_m4v3_32f, &reference::normal<3>),
    ZONM_REFERENCE(zonmAffineTransformNormal_m4v2a_32f, &reference::normalArray<2>),
    ZONM_REFERENCE(zonmAffineTransformNormal_m4v3a_32f, &reference::normalArray<3>),
    ZONM_REFERENCE(zonmProject_m4v3_32f, &reference::project),
    ZONM_REFERENCE(zonmProject_m4v3a_32f, &reference::projectArray),
    ZONM_REFERENCE(zonmUnproject_m4v3_32f, &reference::unproject),
    ZONM_REFERENCE(zonmUnproject_m4v3a_32f, &reference::unprojectArray),
};

std::vector<const Export *> kitExports()
{
    auto list = exportsOf("transforms");
    std::erase_if(list, [](const Export *e) { return !e->operands.empty(); });
    return list;
}

bool isArray(const Export *e) { return e->argument("count"); }
std::string sourceOf(const Export *e) { return e->argument("src") ? "src" : "src2"; }

TEST(Transforms, AreAllThere)
{
    EXPECT_EQ(exportsOf("transforms").size(), 19u);
    EXPECT_EQ(references.size(), 18u); // and the general one
    EXPECT_EQ(kitExports().size(), 18u);
}

TEST(Transforms, AgreeWithTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : kitExports())
        for (const Values values : allValues())
            for (int repeat = 0; repeat < 60; ++repeat)
                KitCall(e->name, seed++)
                    .arrays(1 + repeat % 5, 16, 16)
                    .apart()
                    .fill(values)
                    .compareWith(references);
}

// Strides are taken as they are: zero, negative, no multiple of an element, less than a vector.
TEST(Transforms, AnyStride)
{
    std::uint64_t seed = 1;
    for (const Export *e : kitExports()) {
        if (!isArray(e))
            continue;
        const int source = 4 * elementsOf(*e, sourceOf(e)), dst = 4 * elementsOf(*e, "dst");
        for (const int sourceStride : {0, source, source + 4, -source, 37, -29, 4, -8, 160})
            for (const int dstStride : {dst, 0, dst + 8, -dst, 41, -35, 4, -4, 1, 160})
                for (const int count : {1, 2, 3, 4, 7})
                    for (int repeat = 0; repeat < 2; ++repeat)
                        KitCall(e->name, seed++)
                            .arrays(count, sourceStride, dstStride)
                            .apart()
                            .fill(Values::uniform)
                            .compareWith(references);
    }
}

TEST(Transforms, LongArrays)
{
    std::uint64_t seed = 1;
    for (const Export *e : kitExports())
        if (isArray(e))
            for (const int count : {8, 31, 64, 255})
                KitCall(e->name, seed++)
                    .arrays(count, 4 * elementsOf(*e, sourceOf(e)), 4 * elementsOf(*e, "dst"))
                    .apart()
                    .fill(Values::uniform)
                    .compareWith(references);
}

// No vectors, no access; but the way back inverts its matrices first, and says so.
TEST(Transforms, NothingToDo)
{
    const Memory forbidden(64);
    forbidden.protect(PROT_NONE);
    for (const Export *e : kitExports()) {
        if (!isArray(e))
            continue;
        for (const std::int32_t count : {0, -1, std::numeric_limits<std::int32_t>::min()}) {
            std::vector<Argument> arguments;
            const float zeros[16] = {};
            const float unit[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
            const bool inverts = e->operation == "zonmUnproject";
            for (const bool singular : {false, true}) {
                arguments.clear();
                for (const ArgumentInfo &a : e->arguments) {
                    const bool matrix = a.role == "pointer" && elementsOf(*e, a.name) == 16;
                    if (a.name == "count")
                        arguments.push_back(count);
                    else if (matrix && inverts)
                        arguments.push_back(singular && a.name == "proj" ? zeros : unit);
                    else if (a.role == "pointer")
                        arguments.push_back(forbidden.begin());
                    else if (a.role == "value")
                        arguments.push_back(1.0);
                    else
                        arguments.push_back(16);
                }
                EXPECT_EQ(invoke(e->name, arguments),
                          inverts && singular ? zonStsSingular : zonStsOk)
                    << e->name;
            }
        }
    }
}

// Where operands meet, each element stored counts for what is read afterwards.
bool ordersItsStores(const Export *e)
{
    return e->operation != "zonmAffineTransform" &&
           (isArray(e) || e->operation == "zonmAffineTransformNormal");
}

TEST(Transforms, StoreInOrder)
{
    std::uint64_t seed = 1;
    for (const Export *e : kitExports()) {
        if (!ordersItsStores(e))
            continue;
        const bool whole = e->operation == "zonmProject" || e->operation == "zonmUnproject";
        const int dstStride = 4 * elementsOf(*e, "dst");
        for (const ArgumentInfo &a : e->arguments) {
            if (a.role != "pointer" || a.name == "dst")
                continue;
            for (std::ptrdiff_t offset = -96; offset <= 96; offset += whole ? 12 : 4)
                for (const int stride : {dstStride, -dstStride, dstStride + 4, 0})
                    for (const int count : {1, 2, 5})
                        KitCall(e->name, seed++)
                            .arrays(count, stride, dstStride)
                            .together({{"dst", 0}, {a.name, offset}})
                            .fill(Values::uniform)
                            .compareWith(references);
        }
    }
}

TEST(Transforms, InPlace)
{
    std::uint64_t seed = 1;
    for (const char *name :
         {"zonmAffineTransformCoord_m4v2_32f", "zonmAffineTransformCoord_m4v3_32f",
          "zonmProject_m4v3_32f", "zonmUnproject_m4v3_32f"})
        for (int repeat = 0; repeat < 100; ++repeat)
            KitCall(name, seed++)
                .together({{"dst", 0}, {sourceOf(&exportNamed(name)), 0}})
                .fill(Values::uniform)
                .compareWith(references);
}

// Known results --------------------------------------------------------------------------------

using Matrix = std::array<float, 16>;
using Point = std::array<float, 3>;
constexpr Matrix unit = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

TEST(Transforms, TheIdentityCompletesThePoint)
{
    const float v[4] = {2, 3, 5, 7};
    std::array<float, 4> t;
    zonmAffineTransform_m4v2_32f(unit.data(), v, t.data());
    EXPECT_EQ(t, (std::array{2.f, 3.f, 0.f, 1.f}));
    zonmAffineTransform_m4v3_32f(unit.data(), v, t.data());
    EXPECT_EQ(t, (std::array{2.f, 3.f, 5.f, 1.f}));
    zonmAffineTransform_m4v4_32f(unit.data(), v, t.data());
    EXPECT_EQ(t, (std::array{2.f, 3.f, 5.f, 7.f}));
}

TEST(Transforms, NormalsIgnoreTheRest)
{
    Matrix m = unit;
    for (const std::size_t e : {3, 7, 11, 12, 13, 14, 15})
        m[e] = NAN;
    const float v[3] = {1, 2, 3};
    Point t;
    zonmAffineTransformNormal_m4v3_32f(m.data(), v, t.data());
    EXPECT_EQ(t, (Point{1, 2, 3}));
}

TEST(Transforms, NoDivisorIsJudged)
{
    Matrix m = unit;
    m[15] = 0;
    const float v[3] = {1, -2, 0};
    Point t;
    EXPECT_EQ(zonmAffineTransformCoord_m4v3_32f(m.data(), v, t.data()), zonStsOk);
    EXPECT_EQ(t[0], INFINITY);
    EXPECT_EQ(t[1], -INFINITY);
    EXPECT_TRUE(std::isnan(t[2]));
}

TEST(Transforms, TheMiddleOfTheViewport)
{
    Point p = {0, 0, 0};
    zonmProject_m4v3_32f(unit.data(), unit.data(), unit.data(), p.data(), 640, 480, 0, 1, p.data());
    EXPECT_EQ(p, (Point{320, 240, 0}));
    EXPECT_EQ(zonmUnproject_m4v3_32f(unit.data(), unit.data(), unit.data(), p.data(), 640, 480, 0,
                                     1, p.data()),
              zonStsOk);
    EXPECT_EQ(p, (Point{0, 0, 0}));
}

struct Scene {
    Matrix proj, view, world;

    Scene()
    {
        const Point eye = {3, 4, 12}, at = {0.5f, -0.5f, 1}, up = {0, 1, 0};
        zonmLookAtRH_m4_32f(eye.data(), at.data(), up.data(), view.data());
        zonmPerspectiveFovRH_m4_32f(0.8f, 1.5f, 1, 40, proj.data());
        zonmRotationYawPitchRoll_m4_32f(0.4f, -0.2f, 0.9f, world.data());
        world[12] = 0.5f, world[13] = -0.25f;
    }
};

TEST(Transforms, ThereAndBack)
{
    const Scene s;
    Random random(1);
    for (int repeat = 0; repeat < 500; ++repeat) {
        Point p, screen, back, backOfArray;
        for (float &x : p)
            x = float(4 * random.unit() - 2);
        zonmProject_m4v3_32f(s.proj.data(), s.view.data(), s.world.data(), p.data(), 900, 600, 0.2f,
                             0.7f, screen.data());
        EXPECT_GT(screen[2], 0.2f);
        EXPECT_LT(screen[2], 0.7f);
        EXPECT_EQ(zonmUnproject_m4v3_32f(s.proj.data(), s.view.data(), s.world.data(),
                                         screen.data(), 900, 600, 0.2f, 0.7f, back.data()),
                  zonStsOk);
        EXPECT_EQ(zonmUnproject_m4v3a_32f(s.proj.data(), s.view.data(), s.world.data(),
                                          screen.data(), 12, 900, 600, 0.2f, 0.7f,
                                          backOfArray.data(), 12, 1),
                  zonStsOk);
        for (std::size_t i = 0; i < 3; ++i) {
            EXPECT_NEAR(back[i], p[i], 2e-4);
            EXPECT_NEAR(backOfArray[i], p[i], 2e-4);
        }
    }
}

// A singular scene leaves normalised coordinates in the single form and nothing in the array form.
TEST(Transforms, SingularScenes)
{
    for (const char *zero : {"proj", "view", "world"})
        for (const char *name : {"zonmUnproject_m4v3_32f", "zonmUnproject_m4v3a_32f"}) {
            KitCall call(name, 1);
            call.arrays(3, 12, 12).apart().fill([&](std::string_view operand, int k, int i) {
                return operand == zero    ? 0
                       : operand == "src" ? 100 * (k + 1) + i
                                          : unit[std::size_t(i)];
            });
            call.set("width", 400.0).set("height", 200.0).set("zMin", 2.0).set("zMax", 4.0);
            EXPECT_EQ(call.compareWith(references), zonStsSingular);
            if (isArray(&exportNamed(name))) {
                EXPECT_TRUE(call.isUntouched());
                continue;
            }
            EXPECT_EQ(call.element("dst", 0), -0.5f);
            EXPECT_EQ(call.element("dst", 1), float(1 - 2 * 101 / 200.0));
            EXPECT_EQ(call.element("dst", 2), 50);
        }
}

// The array form rounds the length of the depth range, the single form does not.
TEST(Transforms, DepthRangeOfTheArrayForm)
{
    const Point p = {0, 0, 1};
    Point single, array;
    const float zMin = -0x1p-24f, zMax = 1; // zMax - zMin is no float
    EXPECT_EQ(zonmUnproject_m4v3_32f(unit.data(), unit.data(), unit.data(), p.data(), 1, 1, zMin,
                                     zMax, single.data()),
              zonStsOk);
    EXPECT_EQ(zonmUnproject_m4v3a_32f(unit.data(), unit.data(), unit.data(), p.data(), 0, 1, 1,
                                      zMin, zMax, array.data(), 0, 1),
              zonStsOk);
    EXPECT_EQ(single[2], 1);
    EXPECT_EQ(array[2], float((1 + 0x1p-24) / float(1 + 0x1p-24)));
}

// The general transformation of columns ----------------------------------------------------------

constexpr const char *general = "zonmAffineTransform3DH_mva_32f";

// Lays out the call, runs it and compares it with the formula.
void checkGeneral(Call &call, const Operand &m, const Operand &v, const Operand &d)
{
    const float smallest = std::numeric_limits<float>::min();
    const auto w = [&](int k) {
        return m.before(0, 3, 2) * v.before(k, 2) +
               ((m.before(0, 3, 0) * v.before(k, 0) + m.before(0, 3, 3)) +
                m.before(0, 3, 1) * v.before(k, 1));
    };
    const ZonStatus status = call.run();
    bool lost = false;
    for (int k = 0; k < call.count(); ++k)
        lost |= !(std::fabs(w(k)) > smallest);
    EXPECT_EQ(status, lost ? zonStsDivByZero : zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int) -> double {
        if (std::fabs(w(k)) <= smallest || std::isnan(w(k)))
            return std::numeric_limits<float>::max();
        const double r = 1 / w(k);
        return ((m.before(0, i, 1) * v.before(k, 1) +
                 (m.before(0, i, 0) * v.before(k, 0) + m.before(0, i, 3))) +
                m.before(0, i, 2) * v.before(k, 2)) *
               r;
    });
    (void)d;
}

TEST(Transforms, ColumnsAgreeWithTheFormula)
{
    std::uint64_t seed = 1;
    for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
        for (const Values values : allValues())
            for (const int count : {1, 2, 3, 4, 5, 8, 9})
                for (int repeat = 0; repeat < 20; ++repeat) {
                    Call call(exportNamed(general), seed++, count, spread);
                    const Operand &m = call.source("src1", {4, 4}, values);
                    const Operand &v = call.source("src2", {3}, values);
                    checkGeneral(call, m, v, call.output("dst", {3}));
                }
}

// Around the limit, and on it.
TEST(Transforms, ColumnsWithoutDivisor)
{
    const float limit = std::numeric_limits<float>::min();
    const double divisors[] = {limit,
                               -limit,
                               std::nextafter(limit, 1.f),
                               -std::nextafter(limit, 1.f),
                               std::nextafter(limit, 0.f),
                               0.0,
                               -0.0,
                               NAN,
                               INFINITY,
                               2};
    for (std::uint64_t seed = 1; seed <= 40; ++seed) {
        Call call(exportNamed(general), seed, 10);
        const Operand &m = call.source("src1", {4, 4}, [&](int, int i, int j) {
            return i < 3 ? double(i == j) : double(j == 0); // the fourth component is x
        });
        const Operand &v = call.source("src2", {3}, [&](int k, int i, int) {
            return i == 0 ? divisors[(std::size_t(k) + seed) % 10] : 1.0 + k;
        });
        const Operand &d = call.output("dst", {3});
        checkGeneral(call, m, v, d);
        for (int k = 0; k < 10; ++k) {
            const double x = divisors[(std::size_t(k) + seed) % 10];
            const bool lost = !(std::fabs(x) > limit);
            EXPECT_EQ(d(k, 1) == double(std::numeric_limits<float>::max()),
                      lost)
                << x; // the good ones among them are transformed all the same
        }
    }
}

TEST(Transforms, ColumnsThroughTheIdentity)
{
    Call call(exportNamed(general), 1, 5);
    call.source("src1", {4, 4}, [](int, int i, int j) { return i == j; });
    const Operand &v = call.source("src2", {3}, Values::uniform);
    const Operand &d = call.output("dst", {3});
    EXPECT_EQ(call.run(), zonStsOk);
    for (int k = 0; k < 5; ++k)
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(d(k, i), v(k, i));
}

// The matrix is used as stored, from the left: translation stands in its last column.
TEST(Transforms, ColumnsStandOnTheRight)
{
    const float m[16] = {1, 0, 0, 10, 0, 2, 0, 20, 0, 0, 3, 30, 0, 0, 0, 2};
    const float v[3] = {1, 1, 1};
    float t[3];
    EXPECT_EQ(zonmAffineTransform3DH_mva_32f(m, 16, 4, v, 12, 4, t, 12, 4, 1), zonStsOk);
    EXPECT_EQ(t[0], 5.5f);
    EXPECT_EQ(t[1], 11);
    EXPECT_EQ(t[2], 16.5f);
}

} // namespace
