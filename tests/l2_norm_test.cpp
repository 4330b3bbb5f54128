// SPDX-License-Identifier: Apache-2.0
// Euclidean lengths, to the last bit, in the order of each form.
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
const std::vector<Order> lastSecond = {
    {0, 1, 2}, {0, 3, 1, 2}, {0, 4, 1, 2, 3}, {0, 5, 1, 2, 3, 4}};

double norm(const Export &e, bool contiguous, int k, const Numbers &x)
{
    Numbers squares;
    for (const double v : x)
        squares.push_back(v * v);
    const std::size_t n = x.size();
    if (n < 3 || n > 6)
        return std::sqrt(sumOf(squares, {}));
    const bool first = k == 0 && contiguous && e.group == "va" && e.description != "P" &&
                       (n == 4 || (n == 5 && e.description == "L"));
    return std::sqrt(sumOf(squares, (first ? ascendingOrders : lastSecond)[n - 3]));
}

template <class Fill>
void checkOnce(const Export &e, std::uint64_t seed, int len, int count, Fill values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src", {len}, values);
    call.plainOutput("dst", call.count());
    call.set("len", len);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    const bool contiguous = a.layout.stride2 == sizeOf(a.element);
    call.expect("dst", [&](int, int k, int) {
        Numbers x;
        for (int i = 0; i < len; ++i)
            x.push_back(a(k, i));
        return norm(e, contiguous, k, x);
    });
}

TEST(L2Norm, OfEveryLength)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("l2_norm"))
        for (const int len : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 33})
            for (const int count : {1, 2, 3, 5, 8, 9, 19})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, len, count, values);
}

TEST(L2Norm, OfEveryLayout)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("l2_norm"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int len = 1; len <= 9; ++len)
                for (const int count : {1, 2, 9, 10, 11})
                    checkOnce(*e, seed++, len, count, Values::uniform, spread);
}

TEST(L2Norm, TellsItsOrderFromTheOther)
{
    for (const Element type : {Element::f32, Element::f64})
        for (std::size_t n = 4; n <= 6; ++n) {
            const auto in = [](Order order) {
                return [=](const Numbers &x) {
                    Numbers squares;
                    for (const double v : x)
                        squares.push_back(v * v);
                    return std::sqrt(sumOf(squares, order));
                };
            };
            const Numbers x =
                searchTelling(type, {in(ascendingOrders[n - 3]), in(lastSecond[n - 3])},
                              [&](Random &r) { return drawNearHalfway(type, n, r); });
            for (const Export *e : exportsOf("l2_norm"))
                if ((e->element == "32f") == (type == Element::f32))
                    for (const Spread spread : {Spread::dense, Spread::strided})
                        for (const int count : {1, 2, 5, 9})
                            checkOnce(
                                *e, n, int(n), count,
                                [&](int, int i, int) { return x[std::size_t(i)]; }, spread);
        }
}

TEST(L2Norm, IsNotScaled)
{
    for (const Export *e : exportsOf("l2_norm"))
        for (const int len : {2, 3, 9}) {
            Call call(*e, 1, e->argument("count") ? 11 : 1);
            const bool narrow = e->element == "32f";
            call.source("src", {len}, [&](int, int, int) { return narrow ? 1e30f : 1e200; });
            const Operand &d = call.plainOutput("dst", call.count());
            call.set("len", len);
            ASSERT_EQ(call.run(), zonStsOk) << call;
            for (int k = 0; k < call.count(); ++k)
                ASSERT_EQ(std::isinf(d(0, k)), !narrow) << call;
        }
}

// However the source lies: shifts, shuffled tables, offsets of many GiB.
TEST(L2Norm, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("l2_norm"))
        for (const int len : {1, 3, 4, 5, 6, 7, 18})
            for (const int objects : {1, 3, 9}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src", {len}, Values::uniform);
                const Operand &d = call.plainOutput("dst", call.count());
                call.set("len", len);
                call.check(Meeting::none, [&] {
                    for (int k = 0; k < call.count(); ++k) {
                        Numbers x;
                        for (int i = 0; i < len; ++i)
                            x.push_back(a(k, i));
                        d.set(0, k, 0, norm(*e, a.layout.stride2 == sizeOf(a.element), k, x));
                    }
                    return zonStsOk;
                });
            }
}

} // namespace
