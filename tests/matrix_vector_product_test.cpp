// SPDX-License-Identifier: Apache-2.0
// Products of a matrix and a vector: every export equals, to the last bit, the chain that its path
// prescribes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "support/call.hpp"
#include "support/one_memory.hpp"
#include "support/sums.hpp"

using namespace test;

namespace
{

enum class Path { sizes, wide, inDst };

Path pathOf(const Export &e, bool contiguous, int rows, int inner)
{
    const bool square = rows == inner && rows >= 3 && rows <= 6;
    if (e.description == "P")
        return square ? Path::sizes : Path::inDst;
    return square && !(e.description == "L" && contiguous) ? Path::sizes : Path::wide;
}

double chain(Path path, Element type, const Numbers &products)
{
    double sum = path == Path::sizes ? products[0] : 0.0;
    for (std::size_t p = path == Path::sizes; p < products.size(); ++p) {
        sum = sum + products[p];
        if (path == Path::inDst)
            sum = rounded(type, sum);
    }
    return sum;
}

template <class C> void setSizes(C &call, const Export &e, int rows, int inner)
{
    const bool t = e.operand("src1")->transposed;
    call.set("src1Width", t ? rows : inner)
        .set("src1Height", t ? inner : rows)
        .set("src2Len", inner);
}

bool isContiguous(const Operand &o) { return o.layout.stride2 == sizeOf(o.element); }

template <class M, class V>
void checkOnce(const Export &e, std::uint64_t seed, int rows, int inner, int count, M matrix,
               V vector, Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", {rows, inner}, matrix);
    const Operand &x = call.source("src2", {inner}, vector);
    const Operand &d = call.output("dst", {rows});
    setSizes(call, e, rows, inner);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    const Path path = pathOf(e, isContiguous(a) && isContiguous(x) && isContiguous(d), rows, inner);
    call.expect("dst", [&](int k, int i, int) {
        Numbers products;
        for (int p = 0; p < inner; ++p)
            products.push_back(a(k, i, p) * x(k, p));
        return chain(path, a.element, products);
    });
}

TEST(MatrixVectorProduct, OfSquareMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_vector_product"))
        for (int n = 1; n <= 9; ++n)
            for (const int count : {1, 2, 3, 8, 9})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, n, n, count, values, values);
}

TEST(MatrixVectorProduct, OfAnyShape)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_vector_product"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (int rows = 1; rows <= 17; ++rows)
                for (int inner = 1; inner <= 9; ++inner, ++seed)
                    checkOnce(*e, seed, rows, inner, 1 + int(seed % 4), Values::manyExponents,
                              Values::manyExponents, spread);
}

TEST(MatrixVectorProduct, OfLargerMatrices)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_vector_product"))
        for (const Spread spread : {Spread::dense, Spread::strided})
            for (const int n : {15, 16, 17, 33}) {
                checkOnce(*e, seed++, n, n, 3, Values::uniform, Values::uniform, spread);
                checkOnce(*e, seed++, n, 40 - n, 2, Values::uniform, Values::uniform, spread);
            }
}

// From 0.0 a chain of -0.0 only is +0.0; from its first product it stays -0.0.
TEST(MatrixVectorProduct, OfNegativeZerosTellsWhereTheChainStarts)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_vector_product"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const int rows : {2, 3, 4, 5, 6, 7})
                for (const int inner : {2, 3, 4, 5, 6, 7})
                    for (const int count : {1, 2, 3})
                        checkOnce(
                            *e, seed++, rows, inner, count, [](int, int, int) { return -0.0; },
                            [](int, int, int) { return 3.0; }, spread);
}

// In every row the chain, not another sum of the same products.
TEST(MatrixVectorProduct, IsOneChainInAscendingOrder)
{
    for (const Element type : {Element::f32, Element::f64})
        for (const int inner : {3, 4, 5, 6, 7, 8, 11}) {
            const auto n = std::size_t(inner);
            const auto productsOf = [n](const Numbers &xy) {
                Numbers p;
                for (std::size_t i = 0; i < n; ++i)
                    p.push_back(xy[i] * xy[n + i]);
                return p;
            };
            std::vector<Candidate> sums = {
                [=](const Numbers &xy) { return sumOf(productsOf(xy), {}); },
                [=](const Numbers &xy) {
                    const Numbers p = productsOf(xy);
                    return sumOf(Numbers(p.rbegin(), p.rend()), {});
                },
                [=](const Numbers &xy) { // two partial sums
                    const Numbers p = productsOf(xy);
                    double even = 0, odd = 0;
                    for (std::size_t i = 0; i < n; ++i)
                        (i % 2 ? odd : even) += p[i];
                    return even + odd;
                },
                [=](const Numbers &xy) {
                    if (type == Element::f32)
                        return chain(Path::inDst, type, productsOf(xy));
                    double fused = 0;
                    for (std::size_t i = 0; i < n; ++i)
                        fused = fusedStep(xy[i], xy[n + i], fused);
                    return fused;
                }};
            const Numbers xy = searchTelling(type, sums, [&](Random &r) {
                Numbers x = drawCancelling(type, n, r);
                for (std::size_t i = 0; i < n; ++i)
                    x.push_back(type == Element::f32 ? 1 : 1 + r.unit());
                return x;
            });
            for (const Export *e : exportsOf("matrix_vector_product"))
                if ((e->element == "32f") == (type == Element::f32))
                    for (const Spread spread : {Spread::dense, Spread::strided})
                        for (const int rows : {inner, 13})
                            checkOnce(
                                *e, n, rows, inner, 3,
                                [&](int, int, int p) { return xy[std::size_t(p)]; },
                                [&](int, int p, int) { return xy[n + std::size_t(p)]; }, spread);
        }
}

// Objects of dst that overlap one another show the order in which they are stored.
TEST(MatrixVectorProduct, StoresPairsOfObjectsFourRowsInTurn)
{
    Random random(1);
    for (int rows = 1; rows <= 13; ++rows)
        for (const int inner : {2, 4})
            for (int step = 1; step <= rows; ++step)
                for (const int count : {1, 2, 3, 4, 5}) {
                    std::vector<double> a(std::size_t(rows * inner)), x(std::size_t(inner * count));
                    for (double &v : a)
                        v = random.unit();
                    for (double &v : x)
                        v = random.unit();
                    std::vector<double> dst(100, -1.0), pairs = dst, inOrder = dst;
                    const auto put = [&](std::vector<double> &to, int k, int i) {
                        double sum = 0;
                        for (int p = 0; p < inner; ++p)
                            sum =
                                sum + a[std::size_t(i * inner + p)] * x[std::size_t(k * inner + p)];
                        to[std::size_t(k * step + i)] = sum;
                    };
                    for (int k = 0; k < count; ++k)
                        for (int i = 0; i < rows; ++i)
                            put(inOrder, k, i);
                    const int rows4 = rows / 4 * 4;
                    for (int k = 0; k + 1 < count; k += 2) {
                        for (int i = 0; i < rows4; i += 4)
                            for (int o = 0; o < 2; ++o)
                                for (int r = 0; r < 4; ++r)
                                    put(pairs, k + o, i + r);
                        for (int o = 0; o < 2; ++o)
                            for (int i = rows4; i < rows; ++i)
                                put(pairs, k + o, i);
                    }
                    if (count % 2)
                        for (int i = 0; i < rows; ++i)
                            put(pairs, count - 1, i);
                    ASSERT_EQ(zonmMul_mva_64f(a.data(), inner * 8, 8, inner, rows, x.data(),
                                              inner * 8, 8, inner, dst.data(), step * 8, 8, count),
                              zonStsOk);
                    ASSERT_EQ(dst, rows == 4 && inner == 4 ? inOrder : pairs)
                        << rows << " rows, step " << step << ", count " << count;
                }
}

// The elements of dst in the order in which they are stored: contiguous arrays take objects in
// pairs, four rows of each in turn.
std::vector<std::pair<int, int>> storesOf(const Export &e, bool contiguous, int rows, int inner,
                                          int count)
{
    const bool loop = !contiguous || e.description == "P" ||
                      pathOf(e, contiguous, rows, inner) == Path::sizes ||
                      (e.group == "mva" && e.element == "32f" && e.description.empty());
    std::vector<std::pair<int, int>> stores;
    const auto object = [&](int k, int from, int to) {
        for (int i = from; i < to; ++i)
            stores.emplace_back(k, i);
    };
    int k = 0;
    for (; !loop && k + 1 < count; k += 2)
        for (int i = 0; i < rows; i += 4)
            for (const int o : {k, k + 1})
                object(o, i, std::min(i + 4, rows));
    for (; k < count; ++k)
        object(k, 0, rows);
    return stores;
}

TEST(MatrixVectorProduct, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_vector_product"))
        for (const auto &[rows, inner] : {std::pair(3, 3), {4, 4}, {5, 5}, {6, 6}, {3, 4}, {9, 2}})
            for (const int objects : {1, 4, 5}) {
                if (objects > 1 && !e->argument("count"))
                    continue;
                OneMemory call(*e, seed++, objects);
                const Operand &a = call.source("src1", {rows, inner}, Values::uniform);
                const Operand &x = call.source("src2", {inner}, Values::uniform);
                const Operand &d = call.output("dst", {rows});
                setSizes(call, *e, rows, inner);
                const auto reference = [&, rows = rows, inner = inner] {
                    const bool contiguous = isContiguous(a) && isContiguous(x) && isContiguous(d);
                    const Path path = pathOf(*e, contiguous, rows, inner);
                    for (const auto &[k, i] : storesOf(*e, contiguous, rows, inner, call.count())) {
                        Numbers products;
                        for (int p = 0; p < inner; ++p)
                            products.push_back(a(k, i, p) * x(k, p));
                        d.set(k, i, 0, chain(path, a.element, products));
                    }
                    return zonStsOk;
                };
                call.check(Meeting::ofDst, reference);
                call.checkThreads(reference);
            }
}

} // namespace
