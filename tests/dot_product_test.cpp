// SPDX-License-Identifier: Apache-2.0
// Scalar products, to the last bit, in the order of each form.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "support/call.hpp"
#include "support/one_memory.hpp"
#include "support/sums.hpp"

using namespace test;

namespace
{

// One list for each of the lengths 3 to 6.
using Table = std::vector<Order>;
const Table up = {{0, 1, 2}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}};
const Table lastFirst = {{0, 1, 2}, {3, 0, 1, 2}, {4, 0, 1, 2, 3}, {5, 0, 1, 2, 3, 4}};
const Table vvGeneral = {{1, 2, 0}, {1, 3, 2, 0}, {2, 4, 3, 0, 1}, {3, 5, 4, 0, 1, 2}};
const Table vavGeneral = {{0, 1, 2}, {3, 0, 1, 2}, {3, 4, 0, 1, 2}, {4, 5, 0, 1, 2, 3}};
const Table vavTables = {{1, 2, 0}, {2, 3, 1, 0}, {3, 4, 2, 0, 1}, {4, 5, 3, 0, 1, 2}};

const Table &tableOf(const Export &e, bool contiguous, int k)
{
    if (e.description == "P")
        return up;
    const bool tables = e.description == "L";
    if (contiguous)
        return e.group == "vav" && !tables && k == 0 ? lastFirst : up;
    if (e.group == "vv")
        return vvGeneral;
    if (e.group == "vava")
        return lastFirst;
    return tables ? vavTables : vavGeneral;
}

bool isContiguous(const Operand &o) { return o.layout.stride2 == sizeOf(o.element); }

double expected(const Export &e, bool contiguous, int k, const Numbers &products)
{
    const std::size_t n = products.size();
    return sumOf(products, n >= 3 && n <= 6 ? tableOf(e, contiguous, k)[n - 3] : Order{});
}

template <class X, class Y>
void checkOnce(const Export &e, std::uint64_t seed, int len, int count, X x, Y y,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", {len}, x), &b = call.source("src2", {len}, y);
    call.plainOutput("dst", call.count());
    call.set("len", len);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    const bool contiguous = isContiguous(a) && isContiguous(b);
    call.expect("dst", [&](int, int k, int) {
        Numbers products;
        for (int i = 0; i < len; ++i)
            products.push_back(a(k, i) * b(k, i));
        return expected(e, contiguous, k, products);
    });
}

TEST(DotProduct, OfEveryLength)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("dot_product"))
        for (const int len : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 33})
            for (const int count : {1, 2, 3, 5, 8, 9, 19})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, len, count, values, values);
}

TEST(DotProduct, OfEveryLayout)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("dot_product"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int len = 1; len <= 9; ++len)
                for (const int count : {1, 2, 9, 10, 11})
                    for (const Values values : {Values::manyExponents, Values::uniform})
                        checkOnce(*e, seed++, len, count, values, values, spread);
}

TEST(DotProduct, TellsItsOrderFromEveryOther)
{
    for (const Element type : {Element::f32, Element::f64})
        for (std::size_t n = 3; n <= 6; ++n) {
            const auto productsOf = [n](const Numbers &xy) {
                Numbers p;
                for (std::size_t i = 0; i < n; ++i)
                    p.push_back(xy[i] * xy[n + i]);
                return p;
            };
            // The orders once each; the first two terms may change places.
            std::set<Order> orders;
            for (const Table *t : {&up, &lastFirst, &vvGeneral, &vavGeneral, &vavTables}) {
                Order o = (*t)[n - 3];
                std::sort(o.begin(), o.begin() + 2);
                orders.insert(o);
            }
            std::vector<Candidate> sums;
            for (const Order &o : orders)
                sums.push_back([=](const Numbers &xy) { return sumOf(productsOf(xy), o); });
            if (type == Element::f64)
                sums.push_back([=](const Numbers &xy) {
                    double fused = xy[0] * xy[n];
                    for (std::size_t i = 1; i < n; ++i)
                        fused = fusedStep(xy[i], xy[n + i], fused);
                    return fused;
                });
            else
                sums.push_back([=](const Numbers &xy) {
                    double narrow = 0;
                    for (const double p : productsOf(xy))
                        narrow = rounded(type, narrow + p);
                    return narrow;
                });
            const Numbers xy = searchTelling(type, sums, [&](Random &r) {
                Numbers x = drawCancelling(type, n, r);
                for (std::size_t i = 0; i < n; ++i)
                    x.push_back(std::fabs(x[i]) > 0x1p40
                                    ? 1
                                    : rounded(type, 1 + r.unit() * (type == Element::f64)));
                return x;
            });
            for (const Export *e : exportsOf("dot_product"))
                if ((e->element == "32f") == (type == Element::f32))
                    for (const Spread spread : {Spread::dense, Spread::strided})
                        for (const int count : {1, 2, 5, 9})
                            checkOnce(
                                *e, n, int(n), count,
                                [&](int, int i, int) { return xy[std::size_t(i)]; },
                                [&](int, int i, int) { return xy[n + std::size_t(i)]; }, spread);
        }
}

// From 0.0 a sum of -0.0 only is +0.0; from its first product it stays -0.0.
TEST(DotProduct, OfNegativeZerosTellsWhereTheSumStarts)
{
    for (const Export *e : exportsOf("dot_product"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (int len = 1; len <= 8; ++len) {
                Call call(*e, 1, e->argument("count") ? 11 : 1, spread);
                call.source("src1", {len}, [](int, int, int) { return -0.0; });
                call.source("src2", {len}, [](int, int, int) { return 2.0; });
                const Operand &d = call.plainOutput("dst", call.count());
                call.set("len", len);
                ASSERT_EQ(call.run(), zonStsOk) << call;
                for (int k = 0; k < call.count(); ++k) {
                    ASSERT_EQ(d(0, k), 0.0) << call;
                    ASSERT_EQ(std::signbit(d(0, k)), len >= 3 && len <= 6) << call;
                }
            }
}

// The sum of 32f is a double: an overflow on the way does not stay.
TEST(DotProduct, SumsIn64Bits)
{
    for (const Export *e : exportsOf("dot_product"))
        for (const int len : {2, 4, 9}) {
            const bool narrow = e->element == "32f";
            const double large = narrow ? 1e30f : 1e200;
            Call call(*e, 1, e->argument("count") ? 11 : 1);
            call.source("src1", {len}, [&](int, int i, int) { return i % 2 ? -large : large; });
            call.source("src2", {len}, [&](int, int i, int) { return i < 2 ? large : 0; });
            const Operand &d = call.plainOutput("dst", call.count());
            call.set("len", len);
            ASSERT_EQ(call.run(), zonStsOk) << call;
            for (int k = 0; k < call.count(); ++k) {
                if (narrow)
                    ASSERT_EQ(d(0, k), 0.0) << call;
                else
                    ASSERT_TRUE(std::isnan(d(0, k))) << call;
            }
        }
}

// However the sources lie: shifts, shuffled tables, offsets of many GiB.
TEST(DotProduct, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("dot_product"))
        for (const int len : {1, 3, 4, 6, 7, 18})
            for (const int objects : {1, 3, 9}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src1", {len}, Values::uniform);
                const Operand &b = call.source("src2", {len}, Values::uniform);
                const Operand &d = call.plainOutput("dst", call.count());
                call.set("len", len);
                call.check(Meeting::none, [&] {
                    for (int k = 0; k < call.count(); ++k) {
                        Numbers products;
                        for (int i = 0; i < len; ++i)
                            products.push_back(a(k, i) * b(k, i));
                        d.set(0, k, 0,
                              expected(*e, isContiguous(a) && isContiguous(b), k, products));
                    }
                    return zonStsOk;
                });
            }
}

} // namespace
