// SPDX-License-Identifier: Apache-2.0
#include "support/values.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <type_traits>

namespace test
{
namespace
{

template <class T> double loadAs(const std::byte *p)
{
    T value;
    std::memcpy(&value, p, sizeof value);
    return double(value);
}

template <class T> void storeAs(std::byte *p, double value)
{
    const T narrow = static_cast<T>(value);
    std::memcpy(p, &narrow, sizeof narrow);
}

template <class T> double drawAs(Values values, Random &random)
{
    using Limits = std::numeric_limits<T>;
    const T sign = random.oneIn(2) ? T(1) : T(-1);
    const T mantissa = T(1) + T(random.unit()); // 1 .. 2
    switch (values) {
    case Values::smallIntegers: return random.between(-9, 9);
    case Values::uniform: return sign * T(random.unit());
    case Values::manyExponents:
        return sign *
               std::ldexp(mantissa, random.between(Limits::min_exponent, Limits::max_exponent - 2));
    case Values::denormals: return sign * std::ldexp(T(random.unit()), Limits::min_exponent - 1);
    case Values::nearLimits: {
        const T limit = random.pick({Limits::max(), Limits::min(), Limits::denorm_min(),
                                     Limits::epsilon(), T(1), T(2) * Limits::min()});
        switch (random.below(3)) {
        case 0: return sign * std::nextafter(limit, T(0));
        case 1: return sign * limit;
        default: return sign * std::nextafter(limit, Limits::infinity());
        }
    }
    case Values::signedZeros: return random.oneIn(4) ? T(random.between(-2, 2)) : sign * T(0);
    case Values::infinities: return random.oneIn(3) ? sign * Limits::infinity() : sign * mantissa;
    case Values::notANumber: return random.oneIn(4) ? sign * Limits::quiet_NaN() : sign * mantissa;
    case Values::randomBits: {
        using Bits = std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>;
        return std::bit_cast<T>(Bits(random.bits()));
    }
    }
    return 0;
}

} // namespace

double load(Element e, const std::byte *p)
{
    return e == Element::f32   ? loadAs<float>(p)
           : e == Element::f64 ? loadAs<double>(p)
                               : loadAs<std::int32_t>(p);
}

void store(Element e, std::byte *p, double value)
{
    return e == Element::f32   ? storeAs<float>(p, value)
           : e == Element::f64 ? storeAs<double>(p, value)
                               : storeAs<std::int32_t>(p, value);
}

double rounded(Element e, double value) { return e == Element::f32 ? double(float(value)) : value; }

std::uint64_t Random::bits()
{
    // splitmix64
    std::uint64_t z = state += 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

std::span<const Values> allValues()
{
    static constexpr std::array all = {
        Values::smallIntegers, Values::uniform,    Values::manyExponents,
        Values::denormals,     Values::nearLimits, Values::signedZeros,
        Values::infinities,    Values::notANumber, Values::randomBits,
    };
    return all;
}

std::string name(Values values)
{
    static constexpr std::array names = {
        "small integers", "uniform",    "many exponents", "denormals",   "near the limits",
        "signed zeros",   "infinities", "not a number",   "random bits",
    };
    return names[std::size_t(values)];
}

double draw(Values values, Element e, Random &random)
{
    return e == Element::f32 ? drawAs<float>(values, random) : drawAs<double>(values, random);
}

double fusedStep(double a, double b, double c)
{
    const auto high = [](double x) {
        const double y = x * 0x8000001p0;
        return y - (y - x);
    };
    const double p = a * b, ah = high(a), bh = high(b), al = a - ah, bl = b - bh;
    const double low = al * bl - (((p - ah * bh) - al * bh) - ah * bl); // a*b - p, exactly
    const double s = p + c, v = s - p;
    return s + ((p - (s - v)) + (c - v) + low);
}

bool sameBits(double a, double b)
{
    return std::isnan(a) ? std::isnan(b)
                         : std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

std::string show(Element e, double value)
{
    char text[64];
    if (e == Element::i32)
        std::snprintf(text, sizeof text, "%.0f", value);
    else if (e == Element::f32)
        std::snprintf(text, sizeof text, "%.9g (0x%08x)", value,
                      unsigned(std::bit_cast<std::uint32_t>(float(value))));
    else
        std::snprintf(text, sizeof text, "%.17g (0x%016llx)", value,
                      static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(value)));
    return text;
}

} // namespace test
