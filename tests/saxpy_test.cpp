// SPDX-License-Identifier: Apache-2.0
// Scaled vectors plus vectors, to the last bit; where dst begins within what is read, as one
// element after the other.
#include <string_view>

namespace
{
constexpr std::string_view family = "saxpy";
}

#include "support/combination_tests.hpp"

namespace
{

// Any distance between dst and a source.
TEST(Combinations, OfOverlappingRunsAreOneElementAfterTheOther)
{
    Random random(1);
    for (const int len : {1, 3, 4, 6, 11})
        for (const int gap : {0, 1})
            for (int distance = -30; distance <= 30; ++distance) {
                double memory[200], model[200];
                for (int n = 0; n < 200; ++n)
                    memory[n] = model[n] = random.unit();
                const int count = 4, x = 50, y = 120, d = 50 + distance, step = len + gap;
                for (int k = 0; k < count; ++k)
                    for (int i = 0; i < len; ++i)
                        model[d + k * step + i] =
                            model[x + k * step + i] * 0.75 + model[y + k * step + i];
                ASSERT_EQ(zonmSaxpy_vava_64f(memory + x, step * 8, 8, 0.75, memory + y, step * 8, 8,
                                             memory + d, step * 8, 8, len, count),
                          zonStsOk);
                ASSERT_EQ(std::memcmp(memory, model, sizeof memory), 0)
                    << "len " << len << ", distance " << distance << ", gap " << gap;
            }
}

// The last objects overlap otherwise than the first.
TEST(Combinations, OfRunsThatDriftApart)
{
    Random random(1);
    for (int start = -12; start <= 12; ++start)
        for (const int dstStep : {1, 4, 5, 6}) {
            double memory[200], model[200];
            for (int n = 0; n < 200; ++n)
                memory[n] = model[n] = random.unit();
            const int count = 6, x = 50, y = 120, d = 50 + start, step = 5, len = 5;
            for (int k = 0; k < count; ++k)
                for (int i = 0; i < len; ++i)
                    model[d + k * dstStep + i] =
                        model[x + k * step + i] * 0.75 + model[y + k * step + i];
            ASSERT_EQ(zonmSaxpy_vava_64f(memory + x, step * 8, 8, 0.75, memory + y, step * 8, 8,
                                         memory + d, dstStep * 8, 8, len, count),
                      zonStsOk);
            ASSERT_EQ(std::memcmp(memory, model, sizeof memory), 0)
                << "start " << start << ", step " << dstStep;
        }
}

} // namespace
