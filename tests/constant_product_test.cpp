// SPDX-License-Identifier: Apache-2.0
// Products with constants: every export against the naive formula, and against the literal order of
// reads and writes where operands meet.
#include <cmath>
#include <gtest/gtest.h>

#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

bool isMatrix(const Export &e) { return e.operands[0].kind == "matrix"; }

// A matrix of the shape, or a vector as long as it is wide.
Shape shapeOf(const Export &e, Shape s) { return isMatrix(e) ? s : Shape{s.columns}; }

template <class C> void setSizes(C &call, const Export &e, Shape s)
{
    if (isMatrix(e))
        call.set("width", s.columns).set("height", s.rows);
    else
        call.set("len", s.rows);
}

struct Factors {
    const Operand *many = nullptr;
    double one = 0;

    template <class C> Factors(C &call, const Export &e, Values values)
    {
        if (e.argument("vals")) {
            many = &call.source("vals", {1}, values);
        } else {
            one = draw(values, e.element == "32f" ? Element::f32 : Element::f64, call.random());
            call.set("val", one);
        }
    }
    double operator()(int k) const { return many ? (*many)(k, 0) : one; }
};

void checkOnce(const Export &e, std::uint64_t seed, Shape any, int count, Values values,
               Spread spread = Spread::any)
{
    const Shape shape = shapeOf(e, any);
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src", shape, values);
    const Factors factor(call, e, values);
    call.output("dst", shape);
    setSizes(call, e, shape);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int j) { return a(k, i, j) * factor(k); });
}

TEST(ConstantProduct, IsTheNaiveProduct)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("constant_product"))
        for (int width = 1; width <= 9; ++width)
            for (const int height : {width, 10 - width, width % 3 + 1})
                for (const int count : {1, 2, 5})
                    for (const Values values : allValues())
                        checkOnce(*e, seed++, {height, width}, count, values);
}

TEST(ConstantProduct, IsTheNaiveProductForLongRunsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("constant_product"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const Shape shape :
                 {Shape{1, 67}, {2, 33}, {67, 1}, {12, 11}, {3, 3}, {6, 6}, {8, 8}, {5, 6}})
                for (const int count : {1, 7, 25})
                    checkOnce(*e, seed++, shape, count, Values::manyExponents, spread);
}

// Every row, or element, flush with a page that cannot be accessed.
TEST(ConstantProduct, TouchesElementsOnly)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("constant_product"))
        for (const Shape shape : {Shape{1, 1}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {3, 7}, {9, 2}})
            for (const int count : {1, 3})
                checkOnce(*e, seed++, shape, count, Values::uniform, Spread::fenced);
}

TEST(ConstantProduct, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("constant_product"))
        for (const Shape any : {Shape{3, 3}, {2, 5}, {7, 7}, {1, 4}, {4, 18}, {6, 1}})
            for (const int objects : {1, 3, 9}) {
                const Shape shape = shapeOf(*e, any);
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src", shape, Values::uniform);
                const Factors factor(call, *e, Values::uniform);
                const Operand &dst = call.output("dst", shape);
                setSizes(call, *e, shape);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k) {
                        const double held = factor(k);
                        for (int i = 0; i < shape.rows; ++i)
                            for (int j = 0; j < shape.columns; ++j)
                                dst.set(k, i, j, a(k, i, j) * held);
                    }
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

TEST(ConstantProduct, InPlaceIsThePlainResult)
{
    std::uint64_t seed = 1;
    int compared = 0;
    for (const Export *e : exportsOf("constant_product"))
        for (const Shape any : {Shape{1, 1}, {3, 3}, {6, 6}, {7, 3}, {2, 40}}) {
            const OperandInfo &o = *e->operand("src");
            if (o.transposed || o.array != e->operand("dst")->array)
                continue;
            const Shape shape = shapeOf(*e, any);
            Call call(*e, seed++, e->argument("count") ? 9 : 1);
            const Operand &a = call.source("src", shape, Values::uniform);
            const Factors factor(call, *e, Values::uniform);
            call.outputInPlaceOf("src", "dst");
            setSizes(call, *e, shape);
            ASSERT_EQ(call.run(), zonStsOk) << call;
            call.expect("dst", [&](int k, int i, int j) { return a.before(k, i, j) * factor(k); });
            ++compared;
        }
    EXPECT_GT(compared, 50);
}

// Zero is no special case.
TEST(ConstantProduct, OfZero)
{
    const double x[] = {INFINITY, -1, NAN, -0.0};
    double y[4];
    ASSERT_EQ(zonmMul_vc_64f(x, 8, 0, y, 8, 4), zonStsOk);
    EXPECT_TRUE(std::isnan(y[0]));
    EXPECT_TRUE(sameBits(y[1], -0.0));
    EXPECT_TRUE(std::isnan(y[2]));
    EXPECT_TRUE(sameBits(y[3], -0.0));
}

} // namespace
