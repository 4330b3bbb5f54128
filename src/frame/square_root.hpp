// SPDX-License-Identifier: Apache-2.0
// The correctly rounded square root. Without optimisation the compilers would call the C library,
// which on 32-bit Windows is the x87 and rounds twice.
#pragma once

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#elif !defined(__GNUC__)
#include <cmath>
#endif

namespace zonm
{

inline double squareRoot(double x)
{
#if defined(__SSE2__) || defined(_M_X64)
    const __m128d v = _mm_set_sd(x);
    return _mm_cvtsd_f64(_mm_sqrt_sd(v, v));
#elif defined(__GNUC__)
    return __builtin_sqrt(x);
#else
    return std::sqrt(x);
#endif
}

} // namespace zonm
