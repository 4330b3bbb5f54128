// SPDX-License-Identifier: Apache-2.0
// Frobenius norms, to the last bit, in the order of each form.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "support/call.hpp"
#include "support/one_memory.hpp"
#include "support/sums.hpp"

using namespace test;

namespace
{

const Order arrayOrder3x3 = {0, 1, 2, 4, 3, 5, 8, 6, 7};
const Order rowOrder3x3 = {0, 1, 2, 3, 4, 5, 6, 7, 8};

double pairedSum(const Numbers &t)
{
    double sum = 0.0;
    for (std::size_t p = 0; p + 1 < t.size(); p += 2)
        sum = sum + (t[p] + t[p + 1]);
    return t.size() % 2 ? sum + t.back() : sum;
}

// `squares` in row order.
double norm(const Export &e, int rows, int columns, const Numbers &squares)
{
    const bool array = e.group == "ma", three = rows == 3 && columns == 3;
    double sum;
    if (e.description == "P")
        sum = array && three ? sumOf(squares, rowOrder3x3) : pairedSum(squares);
    else if (array && three)
        sum = sumOf(squares, arrayOrder3x3);
    else
        sum = sumOf(squares, {});
    return std::sqrt(sum);
}

template <class Fill>
void checkOnce(const Export &e, std::uint64_t seed, int rows, int columns, int count, Fill values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src", {rows, columns}, values);
    call.plainOutput("dst", call.count());
    call.set("width", columns).set("height", rows);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int, int k, int) {
        Numbers squares;
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < columns; ++j)
                squares.push_back(a(k, i, j) * a(k, i, j));
        return norm(e, rows, columns, squares);
    });
}

TEST(FrobNorm, OfSquareMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("frob_norm"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 17})
            for (const int count : {1, 2, 3, 5, 8, 9, 19})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, n, n, count, values);
}

TEST(FrobNorm, OfAnyShape)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("frob_norm"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int rows = 1; rows <= 9; ++rows)
                for (int columns = 1; columns <= 9; ++columns)
                    checkOnce(*e, seed++, rows, columns, 11, Values::uniform, spread);
}

TEST(FrobNorm, OfLargeMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("frob_norm"))
        for (const Spread spread : {Spread::dense, Spread::strided}) {
            checkOnce(*e, seed++, 33, 15, 9, Values::uniform, spread);
            checkOnce(*e, seed++, 1, 130, 9, Values::uniform, spread);
            checkOnce(*e, seed++, 65, 1, 9, Values::uniform, spread);
        }
}

TEST(FrobNorm, TellsItsOrderFromTheOthers)
{
    for (const Export *e : exportsOf("frob_norm"))
        for (const Spread spread : {Spread::dense, Spread::strided}) {
            const Element type = e->element == "32f" ? Element::f32 : Element::f64;
            const auto squaresOf = [](const Numbers &x) {
                Numbers s;
                for (const double v : x)
                    s.push_back(v * v);
                return s;
            };
            const auto in = [&](Order order) {
                return [=](const Numbers &x) { return std::sqrt(sumOf(squaresOf(x), order)); };
            };
            // A single number has the three orders at two different results at most, halfway.
            const auto check = [&](const std::vector<Candidate> &orders) {
                const Numbers x = searchTelling(
                    type, orders, [&](Random &r) { return drawNearHalfway(type, 9, r); });
                checkOnce(
                    *e, 1, 3, 3, 5, [&](int, int i, int j) { return x[std::size_t(3 * i + j)]; },
                    spread);
            };
            const Candidate paired = [&](const Numbers &x) {
                return std::sqrt(pairedSum(squaresOf(x)));
            };
            check({in(rowOrder3x3), in(arrayOrder3x3)});
            check({in(rowOrder3x3), paired});
            check({in(arrayOrder3x3), paired});
            check({in(rowOrder3x3), in({8, 7, 6, 5, 4, 3, 2, 1, 0})});
        }
}

TEST(FrobNorm, IsNotScaled)
{
    for (const Export *e : exportsOf("frob_norm")) {
        Call call(*e, 1, e->argument("count") ? 3 : 1);
        const bool narrow = e->element == "32f";
        call.source("src", {2, 2}, [&](int, int, int) { return narrow ? 1e30f : 1e200; });
        const Operand &d = call.plainOutput("dst", call.count());
        call.set("width", 2).set("height", 2);
        ASSERT_EQ(call.run(), zonStsOk) << call;
        for (int k = 0; k < call.count(); ++k)
            ASSERT_EQ(std::isinf(d(0, k)), !narrow) << call;
    }
}

// However the source lies: shifts, shuffled tables, offsets of many GiB.
TEST(FrobNorm, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("frob_norm"))
        for (const auto &[rows, columns] : {std::pair(3, 3), {4, 4}, {2, 3}, {3, 5}, {7, 1}})
            for (const int objects : {1, 3, 9}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src", {rows, columns}, Values::uniform);
                const Operand &d = call.plainOutput("dst", call.count());
                call.set("width", columns).set("height", rows);
                call.check(Meeting::none, [&, rows = rows, columns = columns] {
                    for (int k = 0; k < call.count(); ++k) {
                        Numbers squares;
                        for (int i = 0; i < rows; ++i)
                            for (int j = 0; j < columns; ++j)
                                squares.push_back(a(k, i, j) * a(k, i, j));
                        d.set(0, k, 0, norm(*e, rows, columns, squares));
                    }
                    return zonStsOk;
                });
            }
}

} // namespace
