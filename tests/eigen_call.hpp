// SPDX-License-Identifier: Apache-2.0
// What the calls of all eigenproblems share: a buffer of any alignment and contents, and matrices
// to try them on.
#pragma once

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

#include "support/call.hpp"

namespace test::eigen
{

inline Element elementOf(const Export &e)
{
    return e.element == "32f" ? Element::f32 : Element::f64;
}
inline bool isArray(const Export &e) { return e.argument("count") != nullptr; }

// The caller's work memory: of exactly the stated size, in front of a page without access, at any
// address, with anything in it.
class Buffer
{
  public:
    enum class Contents { notANumber, bits, zeros, numbers };

    Buffer(Element e, std::size_t bytes, Random &random)
        : memory(bytes + 7), base(memory.end() - bytes - (random.oneIn(2) ? 0 : random.below(8)))
    {
        const Contents contents =
            random.pick({Contents::notANumber, Contents::bits, Contents::zeros, Contents::numbers});
        for (std::size_t i = 0; i < bytes; ++i)
            base[i] = contents == Contents::notANumber ? std::byte(0xff)
                      : contents == Contents::zeros    ? std::byte(0)
                                                       : std::byte(random.bits());
        if (contents == Contents::numbers)
            for (std::size_t i = 0; i + sizeof(double) <= bytes; i += std::size_t(sizeOf(e)))
                store(e, base + i, random.unit());
        memory.remember();
        memory.release(base, bytes);
    }
    std::byte *address() const { return base; }
    void expectSurroundingsUntouched() const { EXPECT_EQ(memory.firstTouched(), nullptr); }

  private:
    Memory memory;
    std::byte *base;
};

inline double randomScale(Random &random, int low, int high)
{
    return std::ldexp(1 + random.unit(), random.between(low, high)) * (random.oneIn(2) ? 1 : -1);
}

using Matrix = std::vector<double>; // row by row

// One element of an output, or its old bytes where nothing was to be written.
inline void expectElement(const Call &call, const Operand &o, int k, int i, int j,
                          std::optional<double> wanted, const char *name)
{
    if (!wanted)
        EXPECT_TRUE(o.isUntouched(k, i, j))
            << call << ": " << name << '[' << k << "](" << i << ", " << j << ") was written";
    else
        // An unwritten element is a NaN.
        EXPECT_TRUE(sameBits(o(k, i, j), *wanted) &&
                    !(std::isnan(*wanted) && o.isUntouched(k, i, j)))
            << call << ": " << name << '[' << k << "](" << i << ", " << j << ") is "
            << show(o.element, o(k, i, j)) << ", expected " << show(o.element, *wanted);
}

} // namespace test::eigen
