// SPDX-License-Identifier: Apache-2.0
// Combinations of two vectors, to the last bit and in place: the tests of the families `lcomb` and
// `saxpy`. The file that includes this names its `family` before.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

struct Factors {
    double first, second;
};

// Sets the constants, and returns the value of an element.
template <class C> auto setFactors(C &call, const Export &e, Factors f)
{
    const Element type = e.element == "32f" ? Element::f32 : Element::f64;
    f = {rounded(type, f.first), rounded(type, f.second)};
    const bool both = e.operation == "zonmLComb";
    call.set(both ? "val1" : "val", f.first);
    if (both)
        call.set("val2", f.second);
    return [=](double x, double y) { return x * f.first + (both ? y * f.second : y); };
}

void checkOnce(const Export &e, std::uint64_t seed, int len, int count, Values values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", {len}, values), &b = call.source("src2", {len}, values);
    call.output("dst", {len});
    call.set("len", len);
    const auto value = setFactors(
        call, e, {draw(values, a.element, call.random()), draw(values, a.element, call.random())});
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int) { return value(a(k, i), b(k, i)); });
}

TEST(Combinations, OfEveryLength)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const int len : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 33})
            for (const int count : {1, 2, 3, 8, 9})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, len, count, values);
}

TEST(Combinations, OfEveryLayout)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int len = 1; len <= 19; ++len)
                for (const int count : {1, 2, 5})
                    checkOnce(*e, seed++, len, count, Values::manyExponents, spread);
}

TEST(Combinations, InPlace)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const char *place : {"src1", "src2"})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                for (const int len : {1, 2, 3, 4, 5, 6, 7, 9, 17}) {
                    if (e->operand(place)->array != e->operand("dst")->array)
                        continue;
                    Call call(*e, seed++, e->argument("count") ? 5 : 1, spread);
                    const Operand &a = call.source("src1", {len}, Values::uniform);
                    const Operand &b = call.source("src2", {len}, Values::uniform);
                    call.outputInPlaceOf(place, "dst");
                    call.set("len", len);
                    const auto value = setFactors(call, *e, {0.3, -1.7});
                    ASSERT_EQ(call.run(), zonStsOk) << call;
                    call.expect("dst", [&](int k, int i, int) {
                        return value(a.before(k, i), b.before(k, i));
                    });
                }
}

// A 64f product and its sum are two roundings; 32f rounds once, from double.
TEST(Combinations, RoundAsTheFormulaSays)
{
    for (const Export *e : exportsOf(family)) {
        Call call(*e, 1, e->argument("count") ? 3 : 1);
        const bool narrow = e->element == "32f";
        const double x = narrow ? 1 + 0x1p-12 : 1 + 0x1p-30;
        call.source("src1", {7}, [&](int, int, int) { return x; });
        call.source("src2", {7}, [&](int, int, int) { return -1.0; });
        const Operand &d = call.output("dst", {7});
        call.set("len", 7);
        setFactors(call, *e, {x, 1});
        ASSERT_EQ(call.run(), zonStsOk) << call;
        const double wanted = narrow ? 0x1p-11 + 0x1p-24 : 0x1p-29;
        for (int k = 0; k < call.count(); ++k)
            for (int i = 0; i < 7; ++i)
                ASSERT_EQ(d(k, i), wanted) << call;
    }
}

// However operands meet: each element is read when it is needed, and written at once.
TEST(Combinations, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const int len : {1, 3, 4, 6, 7, 18})
            for (const int objects : {1, 3, 9}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src1", {len}, Values::uniform);
                const Operand &b = call.source("src2", {len}, Values::uniform);
                const Operand &d = call.output("dst", {len});
                call.set("len", len);
                const auto value = setFactors(call, *e, {0.3, -1.7});
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k)
                        for (int i = 0; i < len; ++i)
                            d.set(k, i, 0, value(a(k, i), b(k, i)));
                    return zonStsOk;
                };
                call.check(Meeting::any, reference);
                call.checkThreads(reference);
            }
}

} // namespace
