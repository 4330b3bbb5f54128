// SPDX-License-Identifier: Apache-2.0
// The caller's memory, element by element: misaligned addresses and foreign types are all the same
// to these accessors, and cost nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// Results are the same to the last bit on every platform; these modes would change them. In
// __GCC_IEC_559 GCC tells of all at once, and of -fsingle-precision-constant.
#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__) ||     \
    defined(__NO_SIGNED_ZEROS__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__) ||     \
    (defined(__GCC_IEC_559) && !__GCC_IEC_559) || (defined(_MSC_VER) && defined(_M_FP_FAST))
#error "zonm must not be compiled with fast-math or a part of it: results would change"
#endif
#if defined(__FLT_EVAL_METHOD__) && __FLT_EVAL_METHOD__ != 0
#error "zonm needs FLT_EVAL_METHOD 0: on 32-bit x86 compile with -msse2 -mfpmath=sse"
#endif

namespace zonm
{

using std::int32_t;
using std::ptrdiff_t;

// The bytes under an operand of elements `T`: read-only where `T` is const.
template <class T>
using Bytes = std::conditional_t<std::is_const_v<T>, const std::byte, std::byte> *;

template <class T> inline Bytes<T> bytes(T *p) { return reinterpret_cast<Bytes<T>>(p); }

template <class T> inline std::remove_const_t<T> load(const std::byte *p)
{
    std::remove_const_t<T> value;
    std::memcpy(&value, p, sizeof value);
    return value;
}

template <class T> inline void store(std::byte *p, T value)
{
    std::memcpy(p, &value, sizeof value);
}

} // namespace zonm
