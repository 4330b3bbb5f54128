// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "support/call.hpp"

using namespace test;

namespace
{

double combine(const Export &e, double a, double b)
{
    return e.operation == "zonmAdd" ? a + b : a - b;
}

void checkOnce(const Export &e, std::uint64_t seed, int width, int height, int count, Values values)
{
    Call call(e, seed, count);
    const Operand &a = call.source("src1", {height, width}, values);
    const Operand &b = call.source("src2", {height, width}, values);
    call.output("dst", {height, width});
    call.set("width", width).set("height", height);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int j) { return combine(e, a(k, i, j), b(k, i, j)); });
}

TEST(MatrixSums, EqualTheNaiveSum)
{
    std::uint64_t seed = 1;
    for (const Export *e : builtExports("matrix_sums"))
        for (int width = 1; width <= 9; ++width)
            for (const int height : {width, 10 - width, width % 3 + 1})
                for (const int count : {1, 2, 3, 5})
                    for (const Values values : allValues())
                        checkOnce(*e, seed++, width, height, e->argument("count") ? count : 1,
                                  values);
}

} // namespace
