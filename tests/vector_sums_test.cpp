// SPDX-License-Identifier: Apache-2.0
// Sums and differences of vectors and constants: every export against the naive formula, and
// against the literal order of reads and writes where operands meet.
#include <gtest/gtest.h>

#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

// The operands of a call, by the letters of its group.
struct Sides {
    const Operand *vector, *other = nullptr; // other: the second vector, or the constants
    bool twoVectors, constantLeft, adds;
    double constant = 0;

    template <class C>
    Sides(C &call, const Export &e, int len, Values values)
        : twoVectors(e.operand("src2")), constantLeft(e.group[0] == 'c'),
          adds(e.operation == "zonmAdd")
    {
        vector = &call.source(twoVectors ? "src1" : "src", {len}, values);
        if (twoVectors) {
            other = &call.source("src2", {len}, values);
        } else if (e.argument("vals")) {
            other = &call.source("vals", {1}, values);
        } else {
            constant =
                draw(values, e.element == "32f" ? Element::f32 : Element::f64, call.random());
            call.set("val", constant);
        }
    }
    double second(int k, int i) const
    {
        return !other ? constant : twoVectors ? (*other)(k, i) : (*other)(k, 0);
    }
    double combine(double x, double y) const { return adds ? x + y : constantLeft ? y - x : x - y; }
    double operator()(int k, int i) const { return combine((*vector)(k, i), second(k, i)); }
};

void checkOnce(const Export &e, std::uint64_t seed, int len, int count, Values values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Sides sides(call, e, len, values);
    call.output("dst", {len});
    call.set("len", len);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int) { return sides(k, i); });
}

TEST(VectorSums, AreTheNaiveSums)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("vector_sums"))
        for (int len = 1; len <= 9; ++len)
            for (const int count : {1, 2, 5})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, len, count, values);
}

TEST(VectorSums, AreTheNaiveSumsForLongRunsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("vector_sums"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const int len : {1, 2, 3, 4, 5, 6, 9, 16, 25, 31, 36, 63, 64, 65, 67, 131})
                for (const int count : {1, 7, 8, 9, 25})
                    checkOnce(*e, seed++, len, count, Values::manyExponents, spread);
}

// vav and vva read their single vector before the first object at these lengths.
bool holdsSingle(const Export &e, int len)
{
    return e.description.empty() && 3 <= len && len <= 6 &&
           (e.group == "vav" || (e.group == "vva" && e.element == "32f"));
}

// Every row, or element, flush with a page that cannot be accessed.
TEST(VectorSums, TouchesElementsOnly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("vector_sums"))
        for (int len = 1; len <= 9; ++len)
            for (const int count : {1, 3})
                checkOnce(*e, seed++, len, count, Values::uniform, Spread::fenced);
}

TEST(VectorSums, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("vector_sums"))
        for (const int len : {1, 3, 4, 5, 6, 7, 18})
            for (const int objects : {1, 3, 9}) {
                OneMemory call(*e, seed++, objects);
                const Sides sides(call, *e, len, Values::uniform);
                const Operand &dst = call.output("dst", {len});
                call.set("len", len);
                const bool held = holdsSingle(*e, len);
                const auto reference = [&] {
                    const Operand *single = e->group == "vva" ? sides.vector : sides.other;
                    std::vector<double> before;
                    for (int i = 0; held && i < len; ++i)
                        before.push_back((*single)(0, i));
                    for (int k = 0; k < call.count(); ++k) {
                        const double constant = sides.twoVectors ? 0 : sides.second(k, 0);
                        for (int i = 0; i < len; ++i) {
                            const auto read = [&](const Operand *o) {
                                return held && o == single ? before[std::size_t(i)] : (*o)(k, i);
                            };
                            const double y = sides.twoVectors ? read(sides.other) : constant;
                            dst.set(k, i, 0, sides.combine(read(sides.vector), y));
                        }
                    }
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

TEST(VectorSums, InPlaceIsThePlainResult)
{
    std::uint64_t seed = 1;
    int compared = 0;
    for (const Export *e : exportsOf("vector_sums"))
        for (const int len : {1, 3, 6, 7, 40})
            for (const char *name : {"src", "src1", "src2"}) {
                const OperandInfo *o = e->operand(name);
                if (!o || o->array != e->operand("dst")->array)
                    continue;
                Call call(*e, seed++, e->argument("count") ? 9 : 1);
                const Sides sides(call, *e, len, Values::uniform);
                call.outputInPlaceOf(name, "dst");
                call.set("len", len);
                ASSERT_EQ(call.run(), zonStsOk) << call;
                call.expect("dst", [&](int k, int i, int) {
                    const double y =
                        sides.twoVectors ? sides.other->before(k, i) : sides.second(k, i);
                    return sides.combine(sides.vector->before(k, i), y);
                });
                ++compared;
            }
    EXPECT_GT(compared, 100);
}

// Values that the formulas' text gives.
TEST(VectorSums, OfSmallNumbers)
{
    const float x[] = {1, 2, 3, 4}, tens[] = {10, 20};
    float y[4];
    ASSERT_EQ(zonmSub_cv_32f(x, 4, 5, y, 4, 2), zonStsOk);
    EXPECT_EQ(y[0], 4);
    EXPECT_EQ(y[1], 3);
    ASSERT_EQ(zonmSub_vc_32f(x, 4, 5, y, 4, 2), zonStsOk);
    EXPECT_EQ(y[0], -4);
    EXPECT_EQ(y[1], -3);
    ASSERT_EQ(zonmSub_cava_32f(x, 8, 4, tens, 4, y, 8, 4, 2, 2), zonStsOk);
    EXPECT_EQ(y[0], 9);
    EXPECT_EQ(y[1], 8);
    EXPECT_EQ(y[2], 17);
    EXPECT_EQ(y[3], 16);
    const float one[] = {1, 2}, pairs[] = {1, 1, 2, 2};
    const float *objects[] = {pairs, pairs + 2};
    float *results[] = {y, y + 2};
    ASSERT_EQ(zonmSub_vva_32f_L(one, 4, objects, 0, 4, results, 0, 4, 2, 2), zonStsOk);
    EXPECT_EQ(y[0], 0);
    EXPECT_EQ(y[1], 1);
    EXPECT_EQ(y[2], -1);
    EXPECT_EQ(y[3], 0);
}

// The single vector is src2, and object 0's result lies on it: held at length 4, read anew at 7
// and in the other descriptions.
TEST(VectorSums, SingleVectorHeldOrReadAnew)
{
    for (const int len : {4, 7})
        for (const bool table : {false, true}) {
            std::vector<double> ones(std::size_t(2 * len), 1), single(std::size_t(2 * len), 10);
            const std::int32_t object = len * 8;
            const double *sources[] = {ones.data(), ones.data() + len};
            double *results[] = {single.data(), single.data() + len};
            ASSERT_EQ(
                table ? zonmAdd_vav_64f_L(sources, 0, 8, single.data(), 8, results, 0, 8, len, 2)
                      : zonmAdd_vav_64f(ones.data(), object, 8, single.data(), 8, single.data(),
                                        object, 8, len, 2),
                zonStsOk);
            const bool held = len == 4 && !table;
            for (int i = 0; i < len; ++i) {
                EXPECT_EQ(single[std::size_t(i)], 11);
                EXPECT_EQ(single[std::size_t(len + i)], held ? 11 : 12) << len << ' ' << table;
            }
        }
}

} // namespace
