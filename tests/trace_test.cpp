// SPDX-License-Identifier: Apache-2.0
// Traces, to the last bit, in the order of each form.
#include <gtest/gtest.h>

#include <cmath>

#include "support/call.hpp"
#include "support/one_memory.hpp"
#include "support/sums.hpp"

using namespace test;

namespace
{

const std::vector<Order> ascendingOrders = {
    {0, 1, 2}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}};
const std::vector<Order> otherOrders = {
    {1, 2, 0}, {2, 3, 1, 0}, {3, 4, 2, 0, 1}, {4, 5, 3, 0, 1, 2}};

Order orderOf(const Export &e, int width)
{
    if (width < 3 || width > 6)
        return {};
    return (e.description == "P" ? ascendingOrders : otherOrders)[std::size_t(width - 3)];
}

template <class Fill>
void checkOnce(const Export &e, std::uint64_t seed, int width, int count, Fill values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src", {width, width}, values);
    call.plainOutput("dst", call.count());
    call.set("width", width);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int, int k, int) {
        Numbers diagonal;
        for (int i = 0; i < width; ++i)
            diagonal.push_back(a(k, i, i));
        return sumOf(diagonal, orderOf(e, width));
    });
}

TEST(Trace, OfEverySize)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("trace"))
        for (const int width : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 33})
            for (const int count : {1, 2, 3, 5, 8, 9})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, width, count, values);
}

TEST(Trace, OfEveryLayout)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("trace"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int width = 1; width <= 9; ++width)
                for (const Values values : {Values::manyExponents, Values::signedZeros})
                    checkOnce(*e, seed++, width, 9, values, spread);
}

TEST(Trace, TellsItsOrderFromTheOthers)
{
    for (const Export *e : exportsOf("trace"))
        for (std::size_t n = 3; n <= 6; ++n) {
            const Order order = orderOf(*e, int(n));
            std::vector<Order> others = neighboursOf(order);
            others.push_back((e->description == "P" ? otherOrders : ascendingOrders)[n - 3]);
            for (const Order &other : others)
                for (const Spread spread : {Spread::dense, Spread::strided}) {
                    const Element type = e->element == "32f" ? Element::f32 : Element::f64;
                    const Numbers diagonal =
                        searchTelling(type,
                                      {[&](const Numbers &d) { return sumOf(d, order); },
                                       [&](const Numbers &d) { return sumOf(d, other); }},
                                      [&](Random &r) { return drawCancelling(type, n, r); });
                    checkOnce(
                        *e, n, int(n), 5,
                        [&](int, int i, int j) { return i == j ? diagonal[std::size_t(i)] : 1e9; },
                        spread);
                }
        }
}

// From 0.0 a sum of -0.0 only is +0.0; from its first term it stays -0.0.
TEST(Trace, OfNegativeZerosTellsWhereTheSumStarts)
{
    for (const Export *e : exportsOf("trace"))
        for (int width = 1; width <= 8; ++width) {
            Call call(*e, 1, e->argument("count") ? 3 : 1);
            call.source("src", {width, width}, [](int, int, int) { return -0.0; });
            const Operand &d = call.plainOutput("dst", call.count());
            call.set("width", width);
            ASSERT_EQ(call.run(), zonStsOk) << call;
            for (int k = 0; k < call.count(); ++k) {
                ASSERT_EQ(d(0, k), 0.0) << call;
                ASSERT_EQ(std::signbit(d(0, k)), width >= 3 && width <= 6) << call;
            }
        }
}

// However the source lies: shifts, shuffled tables, offsets of many GiB.
TEST(Trace, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("trace"))
        for (int width = 1; width <= 7; ++width)
            for (const int objects : {1, 3}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src", {width, width}, Values::uniform);
                const Operand &d = call.plainOutput("dst", call.count());
                call.set("width", width);
                call.check(Meeting::none, [&] {
                    for (int k = 0; k < call.count(); ++k) {
                        Numbers diagonal;
                        for (int i = 0; i < width; ++i)
                            diagonal.push_back(a(k, i, i));
                        d.set(0, k, 0, sumOf(diagonal, orderOf(*e, width)));
                    }
                    return zonStsOk;
                });
            }
}

} // namespace
