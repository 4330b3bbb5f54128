// SPDX-License-Identifier: Apache-2.0
// Matrix sums whose operands overlap in every way, against the stated order of reads and writes.
#include <algorithm>
#include <array>
#include <gtest/gtest.h>

#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

struct Sizes {
    int width, height, count;
};

// The path for sizes 3 to 6 of the element tables reads all of an object before it writes, and a
// single operand before all objects.
bool readsWholeObjects(const Export &e, Sizes s)
{
    return e.description == "P" && s.width == s.height && s.width >= 3 && s.width <= 6 &&
           e.group != "mat" && e.group != "mata";
}

double combine(const Export &e, double a, double b)
{
    return e.operation == "zonmAdd" ? a + b : a - b;
}

void addAll(const Export &e, Sizes s, const Operand &a, const Operand &b, const Operand &dst)
{
    const auto forEach = [&](auto visit) {
        for (int i = 0; i < s.height; ++i)
            for (int j = 0; j < s.width; ++j)
                visit(i, j, std::size_t(i * s.width + j));
    };
    const auto elements = std::size_t(s.width * s.height);
    std::vector<double> heldA(elements), heldB(elements);
    for (int k = 0; k < s.count; ++k) {
        if (!readsWholeObjects(e, s)) {
            forEach([&](int i, int j, std::size_t) {
                dst.set(k, i, j, combine(e, a(k, i, j), b(k, i, j)));
            });
            continue;
        }
        if (k == 0 || e.operands[0].array)
            forEach([&](int i, int j, std::size_t n) { heldA[n] = a(k, i, j); });
        if (k == 0 || e.operands[1].array)
            forEach([&](int i, int j, std::size_t n) { heldB[n] = b(k, i, j); });
        forEach(
            [&](int i, int j, std::size_t n) { dst.set(k, i, j, combine(e, heldA[n], heldB[n])); });
    }
}

TEST(MatrixSums, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("matrix_sums")) {
        Random random(seed);
        const int n = random.between(3, 6), m = random.between(7, 9);
        for (const Sizes tried :
             {Sizes{n, n, random.pick({1, 2, 9})}, Sizes{m, m, random.pick({2, 3})},
              Sizes{random.between(1, 20), random.between(1, 9), 3},
              Sizes{random.between(1, 3), random.between(1, 9), 17}}) {
            OneMemory call(*e, seed++, tried.count);
            const Sizes s{tried.width, tried.height, call.count()};
            const Operand &a = call.source("src1", {s.height, s.width}, Values::uniform);
            const Operand &b = call.source("src2", {s.height, s.width}, Values::uniform);
            const Operand &dst = call.output("dst", {s.height, s.width});
            call.set("width", s.width).set("height", s.height);
            const auto reference = [&] {
                addAll(*e, s, a, b, dst);
                return zonStsOk;
            };
            call.check(Meeting::any, reference);
            call.checkThreads(reference);
        }
    }
}

// dst = src1 - src2 with dst on src1, element by element: the plain difference in every path.
TEST(MatrixSums, InPlaceIsThePlainResult)
{
    std::uint64_t seed = 1;
    int compared = 0;
    for (const Export *e : exportsOf("matrix_sums"))
        for (const Sizes s :
             {Sizes{3, 3, 4}, {4, 4, 1}, {6, 6, 9}, {7, 7, 2}, {5, 3, 3}, {19, 1, 2}})
            for (const char *name : {"src1", "src2"}) {
                const OperandInfo &o = *e->operand(name);
                if (o.transposed || o.array != e->operand("dst")->array)
                    continue;
                Call call(*e, seed++, e->argument("count") ? s.count : 1);
                const Operand &a = call.source("src1", {s.height, s.width}, Values::uniform);
                const Operand &b = call.source("src2", {s.height, s.width}, Values::uniform);
                call.outputInPlaceOf(name, "dst");
                call.set("width", s.width).set("height", s.height);
                ASSERT_EQ(call.run(), zonStsOk) << call;
                call.expect("dst", [&](int k, int i, int j) {
                    return combine(*e, a.before(k, i, j), b.before(k, i, j));
                });
                ++compared;
            }
    EXPECT_GT(compared, 0);
}

// The single matrix is src1, and object 0's result lies on it: held by the path for size 4, read
// anew in the loop for size 7.
TEST(MatrixSumsOverlap, SingleMatrixHeldOrReadAnew)
{
    for (const int n : {4, 7}) {
        std::vector<float> memory(std::size_t(3 * n * n)), array(std::size_t(3 * n * n));
        for (int i = 0; i < n * n; ++i)
            memory[std::size_t(i)] = float(100 + i);
        std::ranges::fill(array, 1.0f);
        std::vector<float *> single, many;
        for (int i = 0; i < n * n; ++i) {
            single.push_back(&memory[std::size_t(i)]);
            many.push_back(&array[std::size_t(i)]);
        }
        const std::int32_t object = n * n * std::int32_t(sizeof(float));
        ASSERT_EQ(zonmSub_mma_32f_P(single.data(), 0, many.data(), 0, object, single.data(), 0,
                                    object, n, n, 3),
                  zonStsOk);
        for (int i = 0; i < n * n; ++i) {
            EXPECT_EQ(memory[std::size_t(i)], float(99 + i));
            EXPECT_EQ(memory[std::size_t(n * n + i)], float(n == 4 ? 99 + i : 98 + i))
                << "size " << n;
        }
    }
}

// In place on a transposed operand: the element-table path of size 3 sees the old values, the
// strided path the ones that it has already written.
TEST(MatrixSumsOverlap, TransposedInPlace)
{
    const std::array<double, 9> zero = {};
    std::array<double, 9> strided = {1, 2, 3, 4, 5, 6, 7, 8, 9}, tabled = strided;
    ASSERT_EQ(
        zonmAdd_tm_64f(strided.data(), 24, 8, zero.data(), 24, 8, strided.data(), 24, 8, 3, 3),
        zonStsOk);
    EXPECT_EQ(strided, (std::array<double, 9>{1, 4, 7, 4, 5, 8, 7, 8, 9}));
    std::array<double *, 9> table;
    std::array<const double *, 9> zeros;
    for (std::size_t i = 0; i < 9; ++i)
        table[i] = &tabled[i], zeros[i] = &zero[i];
    ASSERT_EQ(zonmAdd_tm_64f_P(table.data(), 0, zeros.data(), 0, table.data(), 0, 3, 3), zonStsOk);
    EXPECT_EQ(tabled, (std::array<double, 9>{1, 4, 7, 2, 5, 8, 3, 6, 9}));
}

} // namespace
