// SPDX-License-Identifier: Apache-2.0
// The harness itself: its layouts are legal, and it notices what it is there to notice.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "support/call.hpp"
#include "support/one_memory.hpp"

using namespace test;

namespace
{

const Block blocks[] = {
    {.stride1 = true, .stride2 = true},
    {.stride1 = true, .stride2 = true, .transposed = true},
    {.stride0 = true, .stride1 = true, .stride2 = true},
    {.table = true, .shift = true, .stride1 = true, .stride2 = true, .transposed = true},
    {.table = true, .shift = true, .stride0 = true},
    {.table = true, .shift = true, .transposed = true},
    {.stride0 = true, .stride2 = true},
    {.table = true, .shift = true, .stride2 = true},
    {.stride0 = true, .constant = true},
    {.table = true, .shift = true, .constant = true},
    {},
};

TEST(Support, LayoutsAreLegalAndTheirElementsApart)
{
    std::uint64_t seed = 1;
    for (const Block &block : blocks)
        for (const Element type : {Element::f32, Element::f64})
            for (const Spread spread :
                 {Spread::dense, Spread::denseRows, Spread::strided, Spread::fenced, Spread::vast})
                for (int repeat = 0; repeat < 200; ++repeat, ++seed) {
                    if (spread == Spread::vast && !hasVastSpace)
                        continue;
                    Random random(seed);
                    const bool many =
                        block.stride0 || (block.table && block.stride2) || block.constant;
                    const bool matrix = block.stride1 || (block.table && !block.stride2);
                    const Shape shape{block.constant ? 1 : random.between(1, 6),
                                      matrix && !block.constant ? random.between(1, 6) : 1};
                    const Layout l =
                        layOut(block, type, many ? random.between(1, 5) : 1, shape, spread, random);
                    const int size = sizeOf(type);
                    for (const std::int32_t stride : {l.stride0, l.stride1, l.stride2}) {
                        EXPECT_GE(stride, 0) << seed;
                        EXPECT_EQ(stride % size, 0) << seed;
                    }
                    EXPECT_GE(l.shift, 0) << seed;
                    EXPECT_EQ(l.shift % size, 0) << seed;
                    if ((spread == Spread::dense || spread == Spread::denseRows) && block.stride2) {
                        EXPECT_EQ(l.stride2, size) << seed;
                    }
                    std::set<std::ptrdiff_t> bytes;
                    for (const std::ptrdiff_t offset : l.elements)
                        for (int b = 0; b < size; ++b)
                            EXPECT_TRUE(bytes.insert(offset + b).second)
                                << "overlap, seed " << seed;
                    EXPECT_GE(*bytes.begin(), 0) << seed;
                    EXPECT_EQ(*bytes.rbegin() + 1, l.extent) << seed;
                }
}

// A call that went well, and what the harness says of its result.
struct Sum {
    Call call{exportNamed("zonmAdd_mama_32f"), 5, 2};
    const Operand &a = call.source("src1", {2, 3}, Values::smallIntegers);
    const Operand &b = call.source("src2", {2, 3}, Values::smallIntegers);
    Operand &dst = call.output("dst", {2, 3});

    Sum() { call.set("width", 3).set("height", 2); }
    void expect() const
    {
        call.expect("dst", [&](int k, int i, int j) { return a(k, i, j) + b(k, i, j); });
    }
};

TEST(Support, NoticesAWrongResult)
{
    Sum sum;
    ASSERT_EQ(sum.call.run(), zonStsOk);
    sum.expect();
    sum.dst.set(1, 0, 2, sum.dst(1, 0, 2) + 1);
    EXPECT_NONFATAL_FAILURE(sum.expect(), "dst[1](0, 2)");
}

// Every row ends, or begins, at a page that cannot be accessed.
TEST(Support, FencedRowsAreBetweenForbiddenPages)
{
    for (const char *name : {"zonmAdd_mama_32f", "zonmAdd_mama_32f_L", "zonmAdd_mama_64f_P"})
        for (std::uint64_t seed = 1; seed < 20; ++seed) {
            Call call(exportNamed(name), seed, 2, Spread::fenced);
            const Operand &a = call.source("src1", {2, 3}, Values::smallIntegers);
            const std::ptrdiff_t page = Memory::pageBytes(), size = sizeOf(a.element);
            const auto inPage = [&](const std::byte *p) {
                return std::ptrdiff_t(reinterpret_cast<std::uintptr_t>(p)) & (page - 1);
            };
            for (int k = 0; k < 2; ++k)
                for (int i = 0; i < 2; ++i)
                    EXPECT_TRUE(inPage(a.at(k, i, 0)) == 0 || inPage(a.at(k, i, 2) + size) == 0)
                        << call;
        }
}

TEST(SupportDeathTest, ReadingBehindAFencedRowFaults)
{
    // The export is told of three columns where two have been laid out.
    Call call(exportNamed("zonmAdd_mama_32f"), 1, 2, Spread::fenced);
    call.source("src1", {2, 2}, Values::uniform);
    call.source("src2", {2, 2}, Values::uniform);
    call.output("dst", {2, 2});
    call.set("width", 2048).set("height", 2);
    EXPECT_DEATH(static_cast<void>(call.run()), "fault in zonmAdd_mama_32f");
}

// The literal loop of a sum, right and wrong, in one memory.
struct SumInOneMemory {
    OneMemory call{exportNamed("zonmAdd_mama_64f_L"), 3, 3};
    const Operand &a = call.source("src1", {2, 2}, Values::uniform);
    const Operand &b = call.source("src2", {2, 2}, Values::uniform);
    const Operand &dst = call.output("dst", {2, 2});

    SumInOneMemory() { call.set("width", 2).set("height", 2); }
    // `first` and `step`: the order in which the objects are taken.
    ZonStatus add(int first, int step) const
    {
        for (int k = first; k >= 0 && k < 3; k += step)
            for (int i = 0; i < 2; ++i)
                for (int j = 0; j < 2; ++j)
                    dst.set(k, i, j, a(k, i, j) + b(k, i, j));
        return zonStsOk;
    }
};

TEST(Support, OneMemoryTellsTheOrderOfObjects)
{
    SumInOneMemory sum;
    sum.call.check(Meeting::any, [&] { return sum.add(0, 1); });
    sum.call.checkThreads([&] { return sum.add(0, 1); });
    // Objects of 32 bytes: the second reads what the first has written.
    const std::vector<Place> chain = {{0, 32, 16, 8}, {1024, 32, 16, 8}, {32, 32, 16, 8}};
    EXPECT_TRUE(sum.call.checkAt(chain, "chain", [&] { return sum.add(0, 1); }));
    EXPECT_NONFATAL_FAILURE(sum.call.checkAt(chain, "chain", [&] { return sum.add(2, -1); }),
                            "chain");
}

// A NaN is expected and a NaN stands there, but not one that the export has written.
TEST(Support, NoticesAnElementThatWasNotWritten)
{
    Call call(exportNamed("zonmAdd_mm_64f"), 1);
    const Operand &dst = call.output("dst", {1, 1});
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(sameBits(dst(0, 0, 0), nan));
    EXPECT_NONFATAL_FAILURE(call.expect("dst", [&](int, int, int) { return nan; }), "not written");
}

TEST(Support, NoticesAByteBesideTheElements)
{
    // The export is told of three columns where two have been laid out.
    Call call(exportNamed("zonmAdd_mm_64f"), 1, 1, Spread::strided);
    call.source("src1", {1, 3}, Values::uniform);
    call.source("src2", {1, 3}, Values::uniform);
    Operand &dst = call.output("dst", {1, 2});
    dst.base = dst.memory->begin();
    call.set("width", 3).set("height", 1);
    EXPECT_NONFATAL_FAILURE(static_cast<void>(call.run()), "no element of an output");
}

TEST(Support, BitsTellZerosApartAndNoNaNs)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(sameBits(nan, -nan));
    EXPECT_FALSE(sameBits(0.0, -0.0));
    EXPECT_FALSE(sameBits(nan, 1.0));
    EXPECT_FALSE(sameBits(1.0, nan));
    EXPECT_FALSE(sameBits(1.0, std::nextafter(1.0, 2.0)));
    EXPECT_EQ(show(Element::f32, 1.0), "1 (0x3f800000)");
}

TEST(Support, ArgumentsOfAnotherKindAreRefused)
{
    EXPECT_THROW(invoke("zonmAdd_mm_32f", std::vector<Argument>(11, Argument(1))),
                 std::bad_variant_access);
    EXPECT_THROW(invoke("zonmAdd_mm_32f", std::vector<Argument>(10, Argument(1))),
                 std::invalid_argument);
    EXPECT_THROW(invoke("zonmNoSuchExport", {}), std::invalid_argument);
    EXPECT_THROW(exportNamed("zonmNoSuchExport"), std::invalid_argument);
}

} // namespace
