// SPDX-License-Identifier: Apache-2.0
// Linear combinations, to the last bit; where dst begins within what is read, as one element
// after the other.
#include <string_view>

namespace
{
constexpr std::string_view family = "lcomb";
}

#include "support/combination_tests.hpp"

namespace
{

// Any distance between dst and a source.
TEST(Combinations, OfOverlappingVectorsAreOneElementAfterTheOther)
{
    Random random(1);
    for (const int len : {1, 2, 3, 4, 5, 6, 11, 19})
        for (const bool second : {false, true})
            for (int distance = -12; distance <= 12; ++distance) {
                double memory[160], model[160];
                for (int n = 0; n < 160; ++n)
                    memory[n] = model[n] = random.unit();
                const int x = 40, y = 100, d = (second ? y : x) + distance;
                for (int i = 0; i < len; ++i)
                    model[d + i] = model[x + i] * 0.5 + model[y + i] * 3.0;
                ASSERT_EQ(
                    zonmLComb_vv_64f(memory + x, 8, 0.5, memory + y, 8, 3.0, memory + d, 8, len),
                    zonStsOk);
                ASSERT_EQ(std::memcmp(memory, model, sizeof memory), 0)
                    << "len " << len << ", distance " << distance;
            }
}

// Tables whose objects overlap in different ways.
TEST(Combinations, OfOverlappingTablesAreOneElementAfterTheOther)
{
    Random random(2);
    for (int round = 0; round < 300; ++round) {
        double memory[100], model[100];
        for (int n = 0; n < 100; ++n)
            memory[n] = model[n] = random.unit();
        constexpr int count = 5;
        const int len = 1 + round % 9;
        const double *x[count];
        double *d[count];
        for (int k = 0; k < count; ++k) {
            const int at = random.below(30), to = at + random.between(-3, 3) + 3;
            x[k] = memory + at;
            d[k] = memory + to;
            for (int i = 0; i < len; ++i)
                model[to + i] = model[at + i] * 0.5 + model[80 + i] * 3.0;
        }
        ASSERT_EQ(zonmLComb_vav_64f_L(x, 0, 8, 0.5, memory + 80, 8, 3.0, d, 0, 8, len, count),
                  zonStsOk);
        ASSERT_EQ(std::memcmp(memory, model, sizeof memory), 0) << "round " << round;
    }
}

} // namespace
