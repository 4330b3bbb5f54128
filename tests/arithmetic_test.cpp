// SPDX-License-Identifier: Apache-2.0
// The library's own options keep every rounding, whatever a user adds to the compiler's flags. Here
// each operation stands alone between volatile numbers, which no option can change.
#include <bit>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include "arithmetic/patterns.hpp"

#include "support/posix.hpp"

namespace
{

const Operands operands = {
    .narrow = {1.1f, 3.3f, 0.7f, 5.9f},
    .otherNarrow = {1.7f, 0.9f, 2.3f, 4.1f},
    .wide = {1.1, 2.3, 3.7, 4.9, 5.3, 6.1, 7.7, 8.9e-16},
    .minusProduct = -2.53, // 1.1 * 2.3, rounded
    .divisor = 5.7,
    .notANumber = std::numeric_limits<double>::quiet_NaN(),
    .minusZero = -0.0,
    .limit = 1e15,
};

// One operation that no option can change.
template <class F> double alone(F operation, double first, double second)
{
    volatile double a = first, b = second, result = operation(double(a), double(b));
    return result;
}

double plus(double a, double b) { return alone(std::plus(), a, b); }
double minus(double a, double b) { return alone(std::minus(), a, b); }
double times(double a, double b) { return alone(std::multiplies(), a, b); }
double over(double a, double b) { return alone(std::divides(), a, b); }
double narrowed(double a)
{
    volatile float f = float(a);
    return f;
}

Results stepByStep()
{
    const auto &x = operands;
    Results r = {};
    for (int i = 0; i < 2; ++i) {
        const double f = narrowed(plus(times(x.narrow[i], x.otherNarrow[i]), 1));
        r.rounded[i] = times(f, f);
        r.rounded[2 + i] = times(narrowed(times(x.wide[i], x.wide[2 + i])), x.wide[4 + i]);
        r.cancelled[i] = minus(plus(x.limit, x.wide[i]), x.limit);
    }
    for (const double element : x.wide)
        r.sum = plus(r.sum, element);
    r.quotients = over(x.wide[0], x.divisor);
    for (int i = 1; i < 4; ++i)
        r.quotients = plus(r.quotients, over(i % 2 != 0 ? -x.wide[i] : x.wide[i], x.divisor));
    r.aboveLimit = 1;
    r.chain = 0;
    r.residue = 0;
    r.tenth = times(x.wide[0], 0.1);
    return r;
}

// Calls f(name, value, expected) for every number.
template <class F> void compare(const Results &found, const Results &expected, F f)
{
    for (int i = 0; i < 4; ++i)
        f("rounded", found.rounded[i], expected.rounded[i]);
    f("sum", found.sum, expected.sum);
    for (int i = 0; i < 2; ++i)
        f("cancelled", found.cancelled[i], expected.cancelled[i]);
    f("quotients", found.quotients, expected.quotients);
    f("aboveLimit", found.aboveLimit, expected.aboveLimit);
    f("chain", found.chain, expected.chain);
    f("residue", found.residue, expected.residue);
    f("tenth", found.tenth, expected.tenth);
}

bool sameBits(double a, double b)
{
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

bool denormalsLive() { return times(std::numeric_limits<double>::min(), 0.5) != 0; }

Results evaluated(const std::string &module)
{
    Results results = {};
    void *handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        ADD_FAILURE() << dlerror();
        return results;
    }
    reinterpret_cast<Patterns *>(dlsym(handle, "evaluate"))(&operands, &results);
    return results;
}

struct UserFlags : testing::TestWithParam<const char *> {
};

TEST_P(UserFlags, ChangeNoBit)
{
    const std::string name = GetParam(), directory = ZONM_ARITHMETIC_DIRECTORY "/arithmetic_";
    ASSERT_TRUE(denormalsLive());
    const Results results = evaluated(directory + "library_" + name + ZONM_MODULE_SUFFIX);
    EXPECT_TRUE(denormalsLive()) << "loading the library turned denormals off";
    compare(results, stepByStep(), [](const char *what, double found, double expected) {
        EXPECT_PRED2(sameBits, found, expected) << what;
    });
}

// Says what the library's options prevent with this compiler; it is no requirement that it errs.
TEST_P(UserFlags, AloneMay)
{
    const std::string name = GetParam(), directory = ZONM_ARITHMETIC_DIRECTORY "/arithmetic_";
    const std::string module = directory + "alone_" + name + ZONM_MODULE_SUFFIX;
    ASSERT_TRUE(std::ifstream(module).good());
    std::string changed;
    EXPECT_EXIT(
        {
            compare(evaluated(module), stepByStep(),
                    [&](const char *what, double found, double expected) {
                        if (!sameBits(found, expected) && changed.find(what) == changed.npos)
                            changed += std::string(" ") + what;
                    });
            if (!denormalsLive())
                changed += " denormals";
            std::printf("%s alone changes:%s\n", name.c_str(),
                        changed.empty() ? " nothing" : changed.c_str());
            std::fflush(stdout);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

const char *const names[] = {ZONM_ARITHMETIC_NAMES};
INSTANTIATE_TEST_SUITE_P(Arithmetic, UserFlags, testing::ValuesIn(names),
                         [](const auto &flags) { return std::string(flags.param); });

} // namespace
