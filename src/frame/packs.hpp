// SPDX-License-Identifier: Apache-2.0
// Short vectors of elements. `Pack<T, W>` has the element-wise operators of the language and
// nothing else is assumed of the processor; without vectors it is the same in scalars. `Doubles<W>`
// are W numbers in the working type, whatever the element type: elements are widened as they are
// loaded and narrowed as they are stored.
#pragma once

#include "frame/memory.hpp"
#include "frame/sizes.hpp"

#include <functional>

// ZONM_VECTORS: packs are vectors of the compiler. On 32-bit ARM they are not, since its vector
// unit flushes denormal floats. ZONM_SSE2: some of their operations are called by name. ZONM_SCALAR
// does without either.
#if defined(__GNUC__) && !defined(__arm__) && !defined(ZONM_SCALAR)
#define ZONM_VECTORS
#if defined(__SSE2__)
#define ZONM_SSE2
#include <emmintrin.h>
#endif
#endif

namespace zonm
{

// The widest register that the target surely has. Wider vectors on a narrower target are split by
// the compiler at a loss, so kernels never use more.
#if defined(__AVX__)
inline constexpr int registerBytes = 32;
#else
inline constexpr int registerBytes = 16;
#endif

#if defined(ZONM_VECTORS)

template <class T, int W> struct PackOf {
    typedef T type __attribute__((vector_size(sizeof(T) * W)));
};
template <class T, int W> using Pack = typename PackOf<T, W>::type;

#else

template <class T, int W> struct Pack {
    T lane[W];

    T &operator[](int i) { return lane[i]; }
    const T &operator[](int i) const { return lane[i]; }

    friend Pack operator+(Pack a, const Pack &b) { return each(a, b, std::plus<T>()); }
    friend Pack operator-(Pack a, const Pack &b) { return each(a, b, std::minus<T>()); }
    friend Pack operator*(Pack a, const Pack &b) { return each(a, b, std::multiplies<T>()); }
    friend Pack operator/(Pack a, const Pack &b) { return each(a, b, std::divides<T>()); }
    friend Pack operator&(Pack a, const Pack &b) { return each(a, b, std::bit_and<T>()); }
    friend Pack operator|(Pack a, const Pack &b) { return each(a, b, std::bit_or<T>()); }
    friend Pack operator^(Pack a, const Pack &b) { return each(a, b, std::bit_xor<T>()); }
    friend Pack operator-(Pack a)
    {
        return each(a, a, [](T x, T) { return -x; });
    }
    friend Pack operator~(Pack a)
    {
        return each(a, a, [](T x, T) { return ~x; });
    }
    friend Pack operator-(T x, const Pack &b)
    {
        return each(b, b, [x](T y, T) { return x - y; });
    }

    // All ones where it is true, all zeros elsewhere.
    using Mask = Pack<std::int64_t, W>;
    friend Mask operator>(const Pack &a, const Pack &b) { return mask(a, b, std::greater<T>()); }
    friend Mask operator<=(const Pack &a, const Pack &b)
    {
        return mask(a, b, std::less_equal<T>());
    }

  private:
    template <class F> static Pack each(Pack a, const Pack &b, F f)
    {
        for (int i = 0; i < W; ++i)
            a.lane[i] = f(a.lane[i], b.lane[i]);
        return a;
    }
    template <class F> static Mask mask(const Pack &a, const Pack &b, F f)
    {
        Mask m{};
        for (int i = 0; i < W; ++i)
            m.lane[i] = -std::int64_t(f(a.lane[i], b.lane[i]));
        return m;
    }
};

#endif

template <class T, int W> ZONM_INLINED inline Pack<T, W> loadPack(const std::byte *p)
{
    Pack<T, W> v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class V> ZONM_INLINED inline void storePack(std::byte *p, V v)
{
    std::memcpy(p, &v, sizeof v);
}

// Numbers in the working type ------------------------------------------------------------------

template <int W> struct DoublesOf {
    using type = Pack<double, W>;
};
template <> struct DoublesOf<1> {
    using type = double;
};
template <int W> using Doubles = typename DoublesOf<W>::type;

// The number of doubles that fill a register.
inline constexpr int doublesPerRegister = registerBytes / int(sizeof(double));

template <int W> ZONM_INLINED inline Doubles<W> inAllLanes(double x)
{
    if constexpr (W == 1)
        return x;
    else
        return [&]<int... I>(std::integer_sequence<int, I...>) ZONM_INLINED
        {
            return Doubles<W>{((void)I, x)...};
        }
    (std::make_integer_sequence<int, W>{});
}

// Conversions between float and double are those of whole packs. Converted lane by lane they would
// not survive GCC 12, whose straight-line vectoriser takes a pack of doubles that were rounded to
// float for the pack that they came from.
template <class To, class From> ZONM_INLINED inline To converted(const From &from)
{
#if defined(ZONM_VECTORS)
    return __builtin_convertvector(from, To);
#else
    To to;
    for (int i = 0; i < int(sizeof to / sizeof to[0]); ++i)
        to[i] = static_cast<std::remove_reference_t<decltype(to[0])>>(from[i]);
    return to;
#endif
}

// W doubles as elements of type T, in the low lanes of what is returned.
template <class T, int W> ZONM_INLINED inline auto narrowed(Doubles<W> v)
{
    if constexpr (sizeof(T) == sizeof(double))
        return v;
    else if constexpr (W == 1)
        return float(v);
#if defined(ZONM_SSE2)
    else if constexpr (W == 2) // compilers know the conversion of a single pair by name only
        return Pack<float, 4>(_mm_cvtpd_ps(__m128d(v)));
#endif
    else
        return converted<Pack<float, W>>(v);
}

// What elements of type T hold after `v` is stored to them.
template <class T, int W> ZONM_INLINED inline Doubles<W> rounded(Doubles<W> v)
{
    if constexpr (sizeof(T) == sizeof(double))
        return v;
    else if constexpr (W == 1)
        return double(float(v));
#if defined(ZONM_SSE2)
    else if constexpr (W == 2)
        return Doubles<2>(_mm_cvtps_pd(_mm_cvtpd_ps(__m128d(v))));
#endif
    else
        return converted<Doubles<W>>(converted<Pack<float, W>>(v));
}

// W neighbouring elements.
template <class T, int W> ZONM_INLINED inline Doubles<W> loadDoubles(const std::byte *p)
{
    if constexpr (W == 1)
        return double(load<T>(p));
    else if constexpr (sizeof(T) == sizeof(double))
        return loadPack<double, W>(p);
#if defined(ZONM_SSE2)
    else if constexpr (W == 2) {
#if defined(__clang__)
        return Doubles<2>(
            _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p)))));
#else
        // From memory the conversion costs a shuffle less than from a register, where GCC would
        // load the pair first.
        struct TwoFloats {
            std::byte each[8];
        };
        Doubles<2> v;
        __asm__("%vcvtps2pd %1, %0" : "=x"(v) : "m"(*reinterpret_cast<const TwoFloats *>(p)));
        return v;
#endif
    }
#endif
    else
        return converted<Doubles<W>>(loadPack<float, W>(p));
}

template <class T, int W> ZONM_INLINED inline void storeDoubles(std::byte *p, Doubles<W> v)
{
    if constexpr (W == 1)
        store<T>(p, T(v));
    else if constexpr (sizeof(T) == sizeof(double))
        storePack(p, v);
    else {
        const auto floats = narrowed<float, W>(v);
        std::memcpy(p, &floats, W * sizeof(float));
    }
}

} // namespace zonm
