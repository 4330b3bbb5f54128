// SPDX-License-Identifier: Apache-2.0
// Products of a matrix and a vector plus a vector, to the last bit, in the order of each form.
#include <gtest/gtest.h>

#include <cmath>

#include "support/call.hpp"
#include "support/one_memory.hpp"
#include "support/sums.hpp"

using namespace test;

namespace
{

// The terms of a row are its products, and behind them y(i).
Order orderOf(const Export &e, int n, int row)
{
    Order order;
    const auto products = [&](int from, int to) {
        for (int p = from; p < to; ++p)
            order.push_back(p);
    };
    if (n == 3) {
        if (e.group == "mvav")
            return {0, 3, 1, 2};
        return {0, 1, 2, 3};
    }
    order = {n - 1};
    if (e.group != "mvav" && row < n - 1) {
        products(0, n - 1);
        order.push_back(n);
    } else {
        order.push_back(n);
        products(0, n - 1);
    }
    return order;
}

double expected(const Export &e, Element type, int rows, int inner, int i, const Numbers &products,
                double y)
{
    if (rows == inner && rows >= 3 && rows <= 6) {
        Numbers terms = products;
        terms.push_back(y);
        return sumOf(terms, orderOf(e, rows, i));
    }
    double sum = 0.0;
    for (const double p : products) {
        sum = sum + p;
        if (e.description == "P")
            sum = rounded(type, sum);
    }
    return rounded(type, sum) + y;
}

template <class C> void setSizes(C &call, int rows, int inner)
{
    call.set("src1Width", inner).set("src1Height", rows).set("src2Len", inner).set("src3Len", rows);
}

template <class M, class V, class W>
void checkOnce(const Export &e, std::uint64_t seed, int rows, int inner, int count, M matrix,
               V vector, W added, Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", {rows, inner}, matrix);
    const Operand &x = call.source("src2", {inner}, vector);
    const Operand &y = call.source("src3", {rows}, added);
    call.output("dst", {rows});
    setSizes(call, rows, inner);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int) {
        Numbers products;
        for (int p = 0; p < inner; ++p)
            products.push_back(a(k, i, p) * x(k, p));
        return expected(e, a.element, rows, inner, i, products, y(k, i));
    });
}

TEST(Gaxpy, OfSquareMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("gaxpy"))
        for (int n = 1; n <= 9; ++n)
            for (const int count : {1, 2, 3, 5, 8, 9})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, n, n, count, values, values, values);
}

TEST(Gaxpy, OfAnyShape)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("gaxpy"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int rows = 1; rows <= 17; ++rows)
                for (int inner = 1; inner <= 9; ++inner, ++seed)
                    checkOnce(*e, seed, rows, inner, 1 + int(seed % 4), Values::uniform,
                              Values::uniform, Values::uniform, spread);
}

TEST(Gaxpy, OfLargerMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("gaxpy"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (const int n : {15, 16, 17, 33})
                checkOnce(*e, seed++, n, 40 - n, 3, Values::uniform, Values::uniform,
                          Values::uniform, spread);
}

TEST(Gaxpy, TellsItsOrderFromEveryOther)
{
    const Export &rowsOf = exportNamed("zonmGaxpy_mva_64f"),
                 &one = exportNamed("zonmGaxpy_mvav_64f");
    for (const Element type : {Element::f32, Element::f64})
        for (int n = 3; n <= 6; ++n) {
            const auto m = std::size_t(n);
            // The terms: n products with 1, and y.
            const auto in = [](Order order) {
                return [=](const Numbers &t) { return sumOf(t, order); };
            };
            Order up;
            for (int p = 0; p <= n; ++p)
                up.push_back(p);
            std::vector<Candidate> sums = {in(up), in(orderOf(one, n, 0)), [=](const Numbers &t) {
                                               Numbers products(t.begin(), t.end() - 1);
                                               return rounded(type, sumOf(products, {})) +
                                                      t.back() + (type == Element::f64 ? 1 : 0);
                                           }};
            if (n > 3)
                sums.push_back(in(orderOf(rowsOf, n, 0)));
            const Numbers t = searchTelling(
                type, sums, [&](Random &r) { return drawCancelling(type, m + 1, r); });
            for (const Export *e : exportsOf("gaxpy"))
                if ((e->element == "32f") == (type == Element::f32))
                    for (const Spread spread : {Spread::dense, Spread::strided})
                        for (const int count : {1, 2, 5})
                            checkOnce(
                                *e, m, n, n, count,
                                [&](int, int, int p) { return t[std::size_t(p)]; },
                                [](int, int, int) { return 1.0; },
                                [&](int, int, int) { return t[m]; }, spread);
        }
}

// The sum of products is stored, and so narrowed, before y(i) is added.
TEST(Gaxpy, RoundsTwiceAtOtherSizes)
{
    for (const Export *e : exportsOf("gaxpy")) {
        if (e->element != "32f")
            continue;
        Call call(*e, 1, e->argument("count") ? 3 : 1);
        call.source("src1", {2, 2}, [](int, int, int p) { return p ? 0x1p-30 : 1.0; });
        call.source("src2", {2}, [](int, int, int) { return 1.0; });
        call.source("src3", {2}, [](int, int, int) { return -1.0; });
        const Operand &d = call.output("dst", {2});
        setSizes(call, 2, 2);
        ASSERT_EQ(call.run(), zonStsOk) << call;
        for (int k = 0; k < call.count(); ++k)
            for (int i = 0; i < 2; ++i)
                ASSERT_EQ(d(k, i), 0.0) << call;
    }
}

// dst = src3: at other sizes the sum is added to itself; at 3 to 6 y(i) is what it was.
TEST(Gaxpy, InPlaceOfTheAddedVector)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("gaxpy"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int rows = 1; rows <= 11; ++rows)
                for (const int inner : {2, 3, 4, 5, 6, 8}) {
                    if (e->operand("src3")->array != e->operand("dst")->array)
                        continue;
                    Call call(*e, seed++, e->argument("count") ? 5 : 1, spread);
                    const Operand &a = call.source("src1", {rows, inner}, Values::uniform);
                    const Operand &x = call.source("src2", {inner}, Values::uniform);
                    const Operand &y = call.source("src3", {rows}, Values::uniform);
                    call.outputInPlaceOf("src3", "dst");
                    setSizes(call, rows, inner);
                    ASSERT_EQ(call.run(), zonStsOk) << call;
                    const bool sizes = rows == inner && rows >= 3 && rows <= 6;
                    call.expect("dst", [&](int k, int i, int) {
                        Numbers products;
                        for (int p = 0; p < inner; ++p)
                            products.push_back(a(k, i, p) * x(k, p));
                        if (sizes)
                            return expected(*e, a.element, rows, inner, i, products,
                                            y.before(k, i));
                        const double sum = rounded(
                            a.element, expected(*e, a.element, rows, inner, i, products, 0.0));
                        return sum + sum;
                    });
                }
}

// dst is apart from src1 and src2; it may meet itself and src3 in any way, as one row after the
// other does: the sizes 3 to 6 read y(i) before they store, others read it behind the stored sum.
TEST(Gaxpy, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("gaxpy"))
        for (const auto &[rows, inner] : {std::pair(3, 3), {4, 4}, {5, 5}, {6, 6}, {3, 4}, {9, 2}})
            for (const int objects : {1, 3, 8}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src1", {rows, inner}, Values::uniform);
                const Operand &x = call.source("src2", {inner}, Values::uniform);
                const Operand &y = call.source("src3", {rows}, Values::uniform);
                const Operand &d = call.output("dst", {rows});
                setSizes(call, rows, inner);
                const auto reference = [&, rows = rows, inner = inner] {
                    const bool sizes = rows == inner && rows >= 3 && rows <= 6;
                    for (int k = 0; k < call.count(); ++k)
                        for (int i = 0; i < rows; ++i) {
                            Numbers products;
                            for (int p = 0; p < inner; ++p)
                                products.push_back(a(k, i, p) * x(k, p));
                            if (!sizes)
                                d.set(k, i, 0,
                                      expected(*e, a.element, rows, inner, i, products, 0.0));
                            d.set(k, i, 0,
                                  sizes ? expected(*e, a.element, rows, inner, i, products, y(k, i))
                                        : d(k, i) + y(k, i));
                        }
                    return zonStsOk;
                };
                call.check(Meeting::ofDst, reference);
                call.checkMeeting("dst", "src3", reference);
                call.checkThreads(reference);
            }
}

} // namespace
