// SPDX-License-Identifier: Apache-2.0
// Straight-line code: the sizes 3 to 6 as constants, and loops over constants, unrolled by the
// front end: far quicker to compile than unrolling by the optimizer, and the same with every
// compiler.
#pragma once

#include <type_traits>
#include <utility>

// Straight-line kernels stand on everything in them being inlined, lambdas too. Without
// optimisation, or with every access instrumented, that would only take minutes to compile.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZONM_INSTRUMENTED
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ZONM_INSTRUMENTED
#endif
#if defined(__GNUC__) && defined(__OPTIMIZE__) && !defined(ZONM_INSTRUMENTED)
#define ZONM_INLINED __attribute__((always_inline))
#else
#define ZONM_INLINED
#endif

namespace zonm
{

template <int From, int Step, int... I, class F>
ZONM_INLINED inline void unrolledOver(std::integer_sequence<int, I...>, F &body)
{
    (body(std::integral_constant<int, From + Step * I>{}), ...);
}

// body(From), ..., body(To - 1), each index a constant.
template <int From, int To, class F> ZONM_INLINED inline void unrolled(F body)
{
    if constexpr (From < To)
        unrolledOver<From, 1>(std::make_integer_sequence<int, To - From>{}, body);
}

// body(From - 1), ..., body(To).
template <int From, int To, class F> ZONM_INLINED inline void unrolledDown(F body)
{
    if constexpr (From > To)
        unrolledOver<From - 1, -1>(std::make_integer_sequence<int, From - To>{}, body);
}

// The sizes that have straight-line code.
inline constexpr int smallestUnrolled = 3, largestUnrolled = 6;
constexpr bool isUnrolled(int size) { return smallestUnrolled <= size && size <= largestUnrolled; }

// f(size) with a size of 3 to 6 as a constant, and with the constant 0 for any other.
template <class F> ZONM_INLINED inline auto withSize(int size, F f)
{
    switch (size) {
    case 3: return f(std::integral_constant<int, 3>{});
    case 4: return f(std::integral_constant<int, 4>{});
    case 5: return f(std::integral_constant<int, 5>{});
    case 6: return f(std::integral_constant<int, 6>{});
    default: return f(std::integral_constant<int, 0>{});
    }
}

} // namespace zonm
