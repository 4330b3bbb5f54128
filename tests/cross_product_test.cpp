// SPDX-License-Identifier: Apache-2.0
// Vector products, to the last bit; where operands overlap, as one element after the other.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "support/call.hpp"
#include "support/invoke.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

template <class X, class Y> double crossElement(const X &x, const Y &y, int i)
{
    const int j = (i + 1) % 3, k = (i + 2) % 3;
    return x(j) * y(k) - x(k) * y(j);
}

void checkOnce(const Export &e, std::uint64_t seed, int count, Values values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", {3}, values), &b = call.source("src2", {3}, values);
    call.output("dst", {3});
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int) {
        return crossElement([&](int p) { return a(k, p); }, [&](int p) { return b(k, p); }, i);
    });
}

TEST(CrossProduct, OfEveryCount)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cross_product"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const int count : {1, 2, 3, 4, 5, 7, 8, 9, 17})
                for (const Values values : allValues())
                    checkOnce(*e, seed++, count, values, spread);
}

TEST(CrossProduct, InPlaceIsOneElementAfterTheOther)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cross_product"))
        for (const char *place : {"src1", "src2"})
            for (const Spread spread : {Spread::dense, Spread::strided})
                for (const int count : {1, 4, 9}) {
                    if (e->operand(place)->array != e->operand("dst")->array)
                        continue;
                    Call call(*e, seed++, e->argument("count") ? count : 1, spread);
                    const Operand &a = call.source("src1", {3}, Values::uniform);
                    const Operand &b = call.source("src2", {3}, Values::uniform);
                    const Operand &d = call.outputInPlaceOf(place, "dst");
                    std::vector<double> wanted;
                    for (int k = 0; k < call.count(); ++k) {
                        double x[3], y[3];
                        for (int i = 0; i < 3; ++i)
                            x[i] = a(k, i), y[i] = b(k, i);
                        double *written = place[3] == '1' ? x : y;
                        for (int i = 0; i < 3; ++i) {
                            written[i] = d.round(crossElement([&](int p) { return x[p]; },
                                                              [&](int p) { return y[p]; }, i));
                            wanted.push_back(written[i]);
                        }
                    }
                    ASSERT_EQ(call.run(), zonStsOk) << call;
                    call.expect("dst",
                                [&](int k, int i, int) { return wanted[std::size_t(3 * k + i)]; });
                }
}

// Objects of dst begin anywhere in what later objects read.
TEST(CrossProduct, OfOverlappingRunsIsOneObjectAfterTheOther)
{
    Random random(1);
    for (int shift = 0; shift <= 40; ++shift)
        for (const int count : {3, 4, 9}) {
            double memory[80], model[80];
            for (int n = 0; n < 80; ++n)
                memory[n] = model[n] = random.unit();
            const int x = 0, y = 33, d = shift;
            for (int k = 0; k < count; ++k)
                for (int i = 0; i < 3; ++i)
                    model[d + 3 * k + i] =
                        crossElement([&](int p) { return model[x + 3 * k + p]; },
                                     [&](int p) { return model[y + 3 * k + p]; }, i);
            ASSERT_EQ(zonmCrossProduct_vava_64f(memory + x, 24, 8, memory + y, 24, 8, memory + d,
                                                24, 8, count),
                      zonStsOk);
            ASSERT_EQ(std::memcmp(memory, model, sizeof memory), 0)
                << "shift " << shift << ", count " << count;
        }
}

// However operands meet: each element is read when it is needed, and written at once.
TEST(CrossProduct, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cross_product"))
        for (const int objects : {1, 3, 4, 9}) {
            if (objects > 1 && !e->argument("count"))
                continue;
            OneMemory call(*e, seed++, objects);
            const Operand &a = call.source("src1", {3}, Values::uniform);
            const Operand &b = call.source("src2", {3}, Values::uniform);
            const Operand &d = call.output("dst", {3});
            const auto reference = [&] {
                for (int k = 0; k < call.count(); ++k)
                    for (int i = 0; i < 3; ++i)
                        d.set(k, i, 0,
                              crossElement([&](int p) { return a(k, p); },
                                           [&](int p) { return b(k, p); }, i));
                return zonStsOk;
            };
            call.check(Meeting::any, reference);
            call.checkThreads(reference);
        }
}

} // namespace
