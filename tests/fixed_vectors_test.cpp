// SPDX-License-Identifier: Apache-2.0
// Vectors of 2, 3 and 4 elements against the plain reference, and against what is known of them.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "graphics_reference.hpp"

using namespace test;

namespace
{

#define ZONM_BY_LENGTH(name, function)                                                             \
    ZONM_REFERENCE(name##_v2_32f, &reference::function<2>),                                        \
        ZONM_REFERENCE(name##_v3_32f, &reference::function<3>),                                    \
        ZONM_REFERENCE(name##_v4_32f, &reference::function<4>)

const References references = {
    ZONM_BY_LENGTH(zonmAdd, add),
    ZONM_BY_LENGTH(zonmSub, sub),
    ZONM_BY_LENGTH(zonmMulC, mulC),
    ZONM_BY_LENGTH(zonmMin, min),
    ZONM_BY_LENGTH(zonmMax, max),
    ZONM_BY_LENGTH(zonmDotProduct, dotProduct),
    ZONM_REFERENCE(zonmCrossProduct_v2_32f, &reference::cross2),
    ZONM_REFERENCE(zonmCrossProduct_v3_32f, &reference::cross3),
    ZONM_REFERENCE(zonmCrossProduct_v4_32f, &reference::cross4),
    ZONM_BY_LENGTH(zonmLen, len),
    ZONM_BY_LENGTH(zonmLenSqr, lenSqr),
    ZONM_BY_LENGTH(zonmNormalize, normalize),
    ZONM_BY_LENGTH(zonmInterpolationLinear, linear),
    ZONM_BY_LENGTH(zonmBaryCentric, baryCentric),
    ZONM_BY_LENGTH(zonmHermite, hermite),
    ZONM_BY_LENGTH(zonmInterpolationCatmullRom, catmullRom),
};

TEST(FixedVectors, AreAllThere)
{
    EXPECT_EQ(exportsOf("fixed_vectors").size(), 42u);
    EXPECT_EQ(references.size(), 42u);
}

TEST(FixedVectors, AgreeWithTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("fixed_vectors"))
        for (const Values values : allValues())
            for (int repeat = 0; repeat < 60; ++repeat)
                EXPECT_EQ(KitCall(e->name, seed++).apart().fill(values).compareWith(references),
                          zonStsOk);
}

// A result that a rounding on the way, or a product fused with its sum, would change.
TEST(FixedVectors, RoundOnlyWhatTheyStore)
{
    const float e = 0x1p-13f;
    KitCall dot("zonmDotProduct_v2_32f", 1);
    dot.apart().setElement("src1", 0, 0, 1 + e).setElement("src1", 0, 1, -1);
    dot.setElement("src2", 0, 0, 1 - e).setElement("src2", 0, 1, 1);
    dot.compareWith(references);
    EXPECT_EQ(dot.element("dst", 0), -0x1p-26f); // 1 - 2^-26 is no float
}

// Near the end of a curve the weights nearly cancel, so that another order of their terms shows;
// the more so where the curve arrives without speed.
TEST(FixedVectors, WeightsNearTheEndOfACurve)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("fixed_vectors"))
        for (int repeat = 0; e->argument("s") && repeat < 300; ++repeat) {
            KitCall call(e->name, seed++);
            const bool arrives = repeat % 2;
            call.apart().fill([&](std::string_view name, int, int i) {
                if (name == "pos2" || name == "src3" || (arrives && name == "tan2"))
                    return 0.0;
                if (arrives && (name == "src2" || name == "src4"))
                    return double(1 + i);
                return 2 * call.random().unit() - 1;
            });
            const double distance =
                std::ldexp(1 + call.random().unit(), -call.random().between(8, 22));
            call.set("s", double(float(1 - distance))).compareWith(references);
        }
}

TEST(FixedVectors, MayBeWrittenOverAnySource)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("fixed_vectors")) {
        if (e->operation == "zonmCrossProduct")
            continue;
        for (const ArgumentInfo &a : e->arguments)
            for (int repeat = 0; a.role == "pointer" && a.name != "dst" && repeat < 20; ++repeat)
                KitCall(e->name, seed++)
                    .together({{"dst", 0}, {a.name, 0}})
                    .fill(repeat % 2 ? Values::manyExponents : Values::uniform)
                    .compareWith(references);
    }
}

// Each element of a cross product is stored before the sources are read for the next.
TEST(FixedVectors, CrossProductsStoreInOrder)
{
    std::uint64_t seed = 1;
    for (const char *name : {"zonmCrossProduct_v3_32f", "zonmCrossProduct_v4_32f"})
        for (const ArgumentInfo &a : exportNamed(name).arguments)
            for (std::ptrdiff_t offset = -20; a.name != "dst" && offset <= 20; ++offset)
                KitCall(name, seed++)
                    .together({{"dst", 0}, {a.name, offset}})
                    .fill(Values::uniform)
                    .compareWith(references);

    KitCall call("zonmCrossProduct_v3_32f", 1);
    call.together({{"dst", 0}, {"src1", 0}});
    for (int i = 0; i < 3; ++i)
        call.setElement("src1", 0, i, float(i + 1)).setElement("src2", 0, i, float(4 + i * i));
    call.compareWith(references);
    // (1, 2, 3) x (4, 5, 8), with 2*8 - 3*5 = 1 in place of the 1, 3*4 - 1*8 = 4 of the 2
    EXPECT_EQ(call.element("dst", 0), 1);
    EXPECT_EQ(call.element("dst", 1), 4);
    EXPECT_EQ(call.element("dst", 2), 1 * 5 - 4 * 4);
}

// Ties and NaNs give the element of src2, with its very bits.
TEST(FixedVectors, MinimumAndMaximumCopyBits)
{
    constexpr std::uint32_t quiet = 0x7fc12345u, signalling = 0xff812345u, one = 0x3f800000u,
                            two = 0x40000000u, zero = 0, minusZero = 0x80000000u;
    struct Case {
        std::uint32_t a, b, min, max;
    };
    const Case cases[] = {
        {one, two, one, two},
        {two, one, one, two},
        {quiet, two, two, two},
        {one, quiet, quiet, quiet},
        {one, signalling, signalling, signalling},
        {signalling, one, one, one},
        {zero, minusZero, minusZero, minusZero},
        {minusZero, zero, zero, zero},
        {quiet, signalling, signalling, signalling},
    };
    for (const char *length : {"_v2_32f", "_v3_32f", "_v4_32f"})
        for (const Case &c : cases)
            for (int i = 0; i < length[2] - '0'; ++i)
                for (const bool largest : {false, true}) {
                    KitCall call(std::string(largest ? "zonmMax" : "zonmMin") + length, 1);
                    call.apart().fill(Values::uniform);
                    call.setBits("src1", i, c.a).setBits("src2", i, c.b).run();
                    EXPECT_EQ(call.bits("dst", i), largest ? c.max : c.min)
                        << length << ' ' << c.a << ' ' << c.b;
                }
}

TEST(FixedVectors, ZeroHasNoDirection)
{
    for (const char *name :
         {"zonmNormalize_v2_32f", "zonmNormalize_v3_32f", "zonmNormalize_v4_32f"}) {
        KitCall call(name, 1);
        call.apart().fill([](std::string_view, int, int) { return 0; });
        EXPECT_EQ(call.compareWith(references), zonStsOk);
        for (int i = 0; i < name[15] - '0'; ++i)
            EXPECT_TRUE(std::isnan(call.element("dst", i)));
    }
}

// The elements of a call whose sources are given by hand.
std::vector<float> results(const std::string &name,
                           const std::map<std::string, std::vector<float>> &sources,
                           const std::map<std::string, double> &values = {})
{
    KitCall call(name, 1);
    call.apart().fill([&](std::string_view source, int, int i) {
        return sources.at(std::string(source)).at(std::size_t(i));
    });
    for (const auto &[argument, value] : values)
        call.set(argument, value);
    EXPECT_EQ(call.compareWith(references), zonStsOk);
    std::vector<float> dst;
    for (int i = 0; i < elementsOf(exportNamed(name), "dst"); ++i)
        dst.push_back(call.element("dst", i));
    return dst;
}
using Elements = std::vector<float>;

TEST(FixedVectors, KnownResults)
{
    EXPECT_EQ(results("zonmNormalize_v2_32f", {{"src", {3, 4}}}), (Elements{0.6f, 0.8f}));
    EXPECT_EQ(results("zonmLen_v4_32f", {{"src", {1, 1, 1, 1}}}), Elements{2});
    EXPECT_EQ(results("zonmLenSqr_v3_32f", {{"src", {2, 3, 6}}}), Elements{49});
    EXPECT_EQ(results("zonmCrossProduct_v2_32f", {{"src1", {1, 2}}, {"src2", {3, 4}}}),
              Elements{-2});
    EXPECT_EQ(results("zonmCrossProduct_v3_32f", {{"src1", {1, 0, 0}}, {"src2", {0, 1, 0}}}),
              (Elements{0, 0, 1}));
    EXPECT_EQ(results("zonmCrossProduct_v4_32f",
                      {{"src1", {1, 0, 0, 0}}, {"src2", {0, 1, 0, 0}}, {"src3", {0, 0, 1, 0}}}),
              (Elements{0, 0, 0, -1}));
    EXPECT_EQ(results("zonmInterpolationLinear_v4_32f",
                      {{"src1", {0, 1, 2, 3}}, {"src2", {1, 3, 2, 0}}}, {{"s", 2}}),
              (Elements{2, 5, 2, -3}));
    const std::map<std::string, Elements> triangle = {
        {"src1", {1, 2, 3}}, {"src2", {4, 6, 8}}, {"src3", {-1, 0, 5}}};
    EXPECT_EQ(results("zonmBaryCentric_v3_32f", triangle, {{"f", 0}, {"g", 0}}),
              triangle.at("src1"));
    EXPECT_EQ(results("zonmBaryCentric_v3_32f", triangle, {{"f", 1}, {"g", 0}}),
              triangle.at("src2"));
    EXPECT_EQ(results("zonmBaryCentric_v3_32f", triangle, {{"f", 0}, {"g", 1}}),
              triangle.at("src3"));
}

// A curve begins and ends where it should, and leaves in the direction of its tangent.
TEST(FixedVectors, CurvesPassTheirPoints)
{
    const std::map<std::string, Elements> ends = {
        {"pos1", {1, 2}}, {"tan1", {3, -1}}, {"pos2", {5, 8}}, {"tan2", {0, 2}}};
    EXPECT_EQ(results("zonmHermite_v2_32f", ends, {{"s", 0}}), ends.at("pos1"));
    EXPECT_EQ(results("zonmHermite_v2_32f", ends, {{"s", 1}}), ends.at("pos2"));
    // The middle is the mean of the ends plus an eighth of the difference of the tangents.
    EXPECT_EQ(results("zonmHermite_v2_32f", ends, {{"s", 0.5}}),
              (Elements{3 + 3.f / 8, 5 - 3.f / 8}));
    const std::map<std::string, Elements> points = {
        {"src1", {0, 4}}, {"src2", {1, 2}}, {"src3", {5, 8}}, {"src4", {6, 6}}};
    EXPECT_EQ(results("zonmInterpolationCatmullRom_v2_32f", points, {{"s", 0}}), points.at("src2"));
    EXPECT_EQ(results("zonmInterpolationCatmullRom_v2_32f", points, {{"s", 1}}), points.at("src3"));
    EXPECT_EQ(results("zonmInterpolationCatmullRom_v2_32f", points, {{"s", 0.5}}),
              (Elements{3, 5})); // both tangents are (2.5, 2)
}

} // namespace
