// SPDX-License-Identifier: Apache-2.0
// Element types, reproducible random numbers, classes of values, comparison by bits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace test
{

// Numbers travel through the harness as double: every float, double and int32_t is one exactly.
enum class Element { f32, f64, i32 };

constexpr int sizeOf(Element e) { return e == Element::f64 ? 8 : 4; }

double load(Element, const std::byte *);
void store(Element, std::byte *, double value); // rounds to the element type

// `value` as it would be after a store to an element.
double rounded(Element, double value);

// The same sequence on every platform (the standard distributions do not promise that).
class Random
{
  public:
    explicit Random(std::uint64_t seed) : state(seed) {}

    std::uint64_t bits();
    int below(int n) { return int(bits() % std::uint64_t(n)); }
    int between(int low, int high) { return low + below(high - low + 1); }
    bool oneIn(int n) { return below(n) == 0; }
    double unit() { return double(bits() >> 11) * 0x1p-53; } // in [0, 1)
    template <class T> T pick(std::initializer_list<T> choices)
    {
        return choices.begin()[below(int(choices.size()))];
    }
    template <class T> void shuffle(std::vector<T> &v)
    {
        for (std::size_t i = v.size(); i > 1; --i)
            std::swap(v[i - 1], v[std::size_t(below(int(i)))]);
    }

  private:
    std::uint64_t state;
};

enum class Values {
    smallIntegers, // -9 .. 9: sums and products are exact
    uniform,       // -1 .. 1
    manyExponents, // magnitudes over the whole range of the type
    denormals,
    nearLimits,  // around the largest, the smallest normal, the smallest number and the epsilon
    signedZeros, // +0 and -0 among a few small integers
    infinities,  // infinities among numbers
    notANumber,  // NaN among numbers
    randomBits,  // every bit pattern
};

// All of them, for loops over the classes.
std::span<const Values> allValues();
std::string name(Values);
double draw(Values, Element, Random &);

// What a fused operation makes of a*b + c, the same on every platform: std::fma of some is inexact.
// For numbers of moderate size.
double fusedStep(double a, double b, double c);

// Equal to the last bit; a NaN is the same as any other NaN.
[[nodiscard]] bool sameBits(double, double);

// The number in decimal and its bits in hexadecimal, as an element holds it.
std::string show(Element, double);

} // namespace test
