// SPDX-License-Identifier: Apache-2.0
// Short vectors of elements. `Pack<T, W>` has the element-wise operators of the language and
// nothing else is assumed of the processor; a compiler without vector extensions gets the same in
// scalars.
#pragma once

#include "frame/memory.hpp"

namespace zonm
{

// The widest register that the target surely has. Wider vectors on a narrower target are split by
// the compiler at a loss, so kernels never use more.
#if defined(__AVX__)
inline constexpr int registerBytes = 32;
#else
inline constexpr int registerBytes = 16;
#endif

#if defined(__GNUC__)

template <class T, int W> struct PackOf {
    typedef T type __attribute__((vector_size(sizeof(T) * W)));
};
template <class T, int W> using Pack = typename PackOf<T, W>::type;

#else

template <class T, int W> struct Pack {
    T lane[W];
    T &operator[](int i) { return lane[i]; }
    const T &operator[](int i) const { return lane[i]; }
    friend Pack operator+(Pack a, const Pack &b)
    {
        return each(a, b, [](T x, T y) { return x + y; });
    }
    friend Pack operator-(Pack a, const Pack &b)
    {
        return each(a, b, [](T x, T y) { return x - y; });
    }
    friend Pack operator*(Pack a, const Pack &b)
    {
        return each(a, b, [](T x, T y) { return x * y; });
    }
    friend Pack operator/(Pack a, const Pack &b)
    {
        return each(a, b, [](T x, T y) { return x / y; });
    }

  private:
    template <class F> static Pack each(Pack a, const Pack &b, F f)
    {
        for (int i = 0; i < W; ++i)
            a.lane[i] = f(a.lane[i], b.lane[i]);
        return a;
    }
};

#endif

template <class T, int W> inline Pack<T, W> loadPack(const std::byte *p)
{
    Pack<T, W> v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class V> inline void storePack(std::byte *p, V v) { std::memcpy(p, &v, sizeof v); }

} // namespace zonm
