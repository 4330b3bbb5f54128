// SPDX-License-Identifier: Apache-2.0
// Every export: which status comes back for which fault, in which order, and that a fault
// leaves all memory alone. The expected orders come from the derivation of the grammar.
#include <algorithm>
#include <gtest/gtest.h>
#include <limits>
#include <map>

#include "support/call.hpp"
#include "support/grammar.hpp"
#include "support/one_memory.hpp"
#include "support/posix.hpp"

using namespace test;

namespace
{

constexpr int commonSize = 3, commonCount = 2;
constexpr auto smallest = std::numeric_limits<std::int32_t>::min();

struct Fault {
    std::string argument;
    Argument value;
    std::string text;
};

Fault fault(const std::string &argument, std::int32_t value)
{
    return {argument, value, argument + ' ' + std::to_string(value)};
}

std::vector<Fault> faultsOf(const Signature &s, const Signature::Step &step)
{
    const std::int32_t element = s.name.find("_64f") != std::string::npos ? 8 : 4;
    std::vector<Fault> faults;
    if (step.name == "shapes") {
        for (const auto &[argument, change] : s.misfits)
            faults.push_back(fault(argument, commonSize + change));
        return faults;
    }
    for (const std::string &a : step.arguments) {
        if (step.name == "pointers") {
            faults.push_back({a, Argument(nullptr), a + " null"});
        } else if (step.name == "count" || step.name == "sizes") {
            for (const std::int32_t v : {0, -1, smallest})
                faults.push_back(fault(a, v));
        } else {
            for (const std::int32_t v :
                 {-element, -1, 1, 2, 3, 6, element + 1, 3 * element + 2, element / 2, smallest,
                  smallest + 4, smallest + element / 2})
                faults.push_back(fault(a, v));
            if (element == 8)
                faults.insert(faults.end(), {fault(a, 4), fault(a, 12)});
            if (step.name != "shifts")
                faults.push_back(fault(a, 0));
        }
    }
    return faults;
}

// Legal arguments whose pointers lead to pages without access: a call that returns has not
// followed them.
class Checking
{
  public:
    explicit Checking(const Export &e) : callee(e), signature(signatureOf(e.name)), forbidden(4096)
    {
        forbidden.protect(PROT_NONE);
        for (const ArgumentInfo &a : e.arguments) {
            position[a.name] = legal.size();
            legal.push_back(a.type.ends_with('*') ? Argument(forbidden.begin() + 1024)
                            : a.type != "int32_t" ? Argument(1.0)
                            : a.name == "count"   ? Argument(commonCount)
                            : a.role == "size"    ? Argument(commonSize)
                                                  : Argument(24));
        }
    }

    void expect(int status, const std::vector<Fault> &faults) const
    {
        auto arguments = legal;
        std::string text = callee.name;
        for (const Fault &f : faults) {
            arguments[position.at(f.argument)] = f.value;
            text += ", " + f.text;
        }
        EXPECT_EQ(invoke(callee.name, arguments, text), status) << text;
    }

    const Export &callee;
    const Signature &signature;

  private:
    Memory forbidden;
    std::vector<Argument> legal;
    std::map<std::string, std::size_t> position;
};

std::vector<const Export *> exportsWithChecks()
{
    std::vector<const Export *> list;
    for (const Export &e : allExports())
        if (!e.checks.empty())
            list.push_back(&e);
    return list;
}

// Operands on which every family succeeds: matrices that are symmetric, positive definite, well
// conditioned and of distinct eigenvalues; indices in range.
// Where no size is among the arguments, matrices are 4x4 and vectors have three elements.
template <class AnyCall> void laySound(AnyCall &call, const Export &e, int size)
{
    const bool fixed = std::none_of(e.arguments.begin(), e.arguments.end(),
                                    [](const ArgumentInfo &a) { return a.role == "size"; });
    const int length = fixed ? 3 : size;
    if (fixed)
        size = 4;
    for (const ArgumentInfo &a : e.arguments) {
        const bool head = a.role == "pointer" || a.role == "table";
        const OperandInfo *o = head ? e.operand(a.name) : nullptr;
        if (o) {
            const bool matrix = o->kind == "matrix";
            const Shape shape{o->kind == "constant" ? 1
                              : matrix              ? size
                                                    : length,
                              matrix ? size : 1};
            if (o->output)
                call.output(a.name, shape);
            else
                call.source(a.name, shape, [](int, int i, int j) { return i == j ? 4 + i : 1; });
        } else if (head && a.type.starts_with("const")) {
            call.plainSource(a.name, size * size * call.count(), [](int, int, int) { return 0; });
        } else if (head) {
            call.plainOutput(a.name, size * size * call.count());
        } else if (a.role == "scratch") {
            call.scratch(a.name, 1 << 14);
        } else if (a.role == "value") {
            call.set(a.name, 1.0);
        } else if (a.role == "size") {
            call.set(a.name, size);
        }
    }
}

TEST(Checks, SoundCallsSucceed)
{
    ASSERT_FALSE(exportsWithChecks().empty());
    std::uint64_t seed = 1;
    for (const Export *e : exportsWithChecks())
        for (const int count : {1, 3})
            for (const int size : {1, 2, 3, 7})
                for (int repeat = 0; repeat < 4; ++repeat) {
                    Call call(*e, seed++, e->argument("count") ? count : 1);
                    laySound(call, *e, size);
                    EXPECT_EQ(call.run(), zonStsOk) << call;
                }
}

// Rows that end, or begin, at pages without access, and strides of a GiB: what is read or written
// besides the elements ends the process.
TEST(Checks, SoundCallsStayWithTheirElements)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsWithChecks())
        for (const Spread spread : {Spread::fenced, Spread::vast})
            for (int size = 1; size <= 8; ++size) {
                if (spread == Spread::vast && !hasVastSpace)
                    continue;
                Call call(*e, seed++, e->argument("count") ? 5 : 1, spread);
                laySound(call, *e, size);
                EXPECT_EQ(call.run(), zonStsOk) << call;
            }
}

// Two calls at once give what each of them gives alone.
TEST(Checks, SoundCallsOnAlternatingElementsDoNotDisturbEachOther)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsWithChecks())
        for (const int size : {2, 3, 4, 6, 7}) {
            OneMemory call(*e, seed++, 5);
            laySound(call, *e, size);
            call.checkThreads([&] { return call.run(); });
        }
}

TEST(Checks, EachFaultHasItsStatus)
{
    for (const Export *e : exportsWithChecks()) {
        const Checking checking(*e);
        for (const auto &step : checking.signature.steps)
            for (const Fault &f : faultsOf(checking.signature, step))
                checking.expect(statusOf(step.name), {f});
    }
}

TEST(Checks, TheEarlierOfTwoFaultsIsReported)
{
    for (const Export *e : exportsWithChecks()) {
        const Checking checking(*e);
        const auto &steps = checking.signature.steps;
        for (std::size_t a = 0; a < steps.size(); ++a)
            for (std::size_t b = a + 1; b < steps.size(); ++b)
                for (const Fault &first : faultsOf(checking.signature, steps[a]))
                    for (const Fault &second : faultsOf(checking.signature, steps[b]))
                        if (first.argument != second.argument)
                            checking.expect(statusOf(steps[a].name), {first, second});
    }
}

TEST(Checks, AFaultInEveryLaterStepChangesNothing)
{
    for (const Export *e : exportsWithChecks()) {
        const Checking checking(*e);
        const auto &steps = checking.signature.steps;
        std::vector<Fault> faults;
        for (std::size_t a = steps.size(); a-- > 0;) {
            // The first fault of each argument; of two misfits the second would mend the first.
            const bool shapes = steps[a].name == "shapes";
            std::string previous;
            for (const Fault &f : faultsOf(checking.signature, steps[a])) {
                if (f.argument != previous && !(shapes && !previous.empty()))
                    faults.push_back(f);
                previous = f.argument;
            }
            checking.expect(statusOf(steps[a].name), faults);
        }
    }
}

// With readable and writable operands: nothing is written and nothing is read for its effect.
TEST(Checks, AFaultLeavesAllMemoryUntouched)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsWithChecks()) {
        const Signature &s = signatureOf(e->name);
        for (const auto &step : s.steps)
            for (const Fault &f : faultsOf(s, step)) {
                Call call(*e, seed++, e->argument("count") ? commonCount : 1);
                laySound(call, *e, commonSize);
                call.set(f.argument, f.value);
                EXPECT_EQ(call.run(), statusOf(step.name)) << call << f.text;
                call.expectNothingTouched();
            }
    }
}

// Strides are judged by their multiple alone, however large, and whether or not an element uses
// them.
TEST(Checks, StridesThatNoElementUsesMayBeHuge)
{
    constexpr std::int32_t huge = std::numeric_limits<std::int32_t>::max() & ~7;
    std::uint64_t seed = 1;
    for (const Export *e : exportsWithChecks()) {
        if (std::ranges::none_of(e->arguments, [](auto &a) { return a.role == "size"; }))
            continue;
        Call call(*e, seed++);
        laySound(call, *e, 1);
        for (const ArgumentInfo &a : e->arguments)
            if (a.role.starts_with("stride"))
                call.set(a.name, huge);
        EXPECT_EQ(call.run(), zonStsOk) << call;
    }
}

TEST(Checks, WithOneObjectAnyLegalStride0Passes)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsWithChecks()) {
        if (!e->argument("count"))
            continue;
        for (const std::int32_t stride0 :
             {8, 24, 1 << 20, std::numeric_limits<std::int32_t>::max() & ~7}) {
            Call call(*e, seed++);
            laySound(call, *e, commonSize);
            for (const ArgumentInfo &a : e->arguments)
                if (a.role == "stride0")
                    call.set(a.name, stride0);
            EXPECT_EQ(call.run(), zonStsOk) << call;
        }
    }
}

// The entries of a table are not judged: the fault comes where one is followed, and not before.
TEST(ChecksDeathTest, ANullEntryFaultsAtItsAccess)
{
    const float *sources[] = {nullptr};
    float sum, *results[] = {&sum};
    EXPECT_EQ(zonmAdd_mm_32f_P(sources, 0, sources, 0, results, 0, 1, 0), zonStsBadSize);
    EXPECT_EQ(zonmAdd_mm_32f_P(sources, 0, sources, 0, results, 2, 1, 1), zonStsBadShift);
    EXPECT_DEATH(zonmAdd_mm_32f_P(sources, 0, sources, 0, results, 0, 1, 1), "");
}

// The cases that the interface names itself.
TEST(Checks, NamedCases)
{
    auto expect = [](const char *name, int status, const std::vector<Fault> &faults) {
        Checking(exportNamed(name)).expect(status, faults);
    };
    const Fault nullDst{"dst", Argument(nullptr), "dst null"};
    expect("zonmAdd_mm_32f", zonStsNullPointer, {nullDst, fault("width", 0)});
    expect("zonmAdd_mm_32f", zonStsBadSize, {fault("width", 0), fault("src1Stride2", 6)});
    expect("zonmAdd_mam_32f", zonStsBadStride,
           {fault("count", 1), fault("width", 0), fault("src1Stride2", 6)});
    expect("zonmAdd_tam_32f", zonStsBadSize,
           {fault("count", 1), fault("width", 0), fault("src1Stride2", 6)});
    expect("zonmAdd_mama_32f", zonStsBadStride, {fault("count", 1), fault("src1Stride0", 0)});
    expect("zonmAdd_mm_64f", zonStsBadStride, {fault("dstStride1", 12)});
    expect("zonmAdd_mm_32f_P", zonStsBadShift, {fault("src2Shift", -4)});
}

} // namespace
