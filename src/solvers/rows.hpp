// SPDX-License-Identifier: Apache-2.0
// Dense rows of a matrix in the course of an elimination.
#pragma once

#include "frame/packs.hpp"

namespace zonm
{

// row[j] -= factor * pivot[j] for j = 0 .. n-1, each rounded as it is stored.
template <class T>
inline void subtractRow(std::byte *__restrict row, double factor, const std::byte *__restrict pivot,
                        int32_t n)
{
    constexpr ptrdiff_t size = sizeof(T);
    constexpr int width = doublesPerRegister;
    const auto factors = inAllLanes<width>(factor);
    ptrdiff_t j = 0;
    for (; j <= n - width; j += width)
        storeDoubles<T, width>(row + j * size,
                               loadDoubles<T, width>(row + j * size) -
                                   factors * loadDoubles<T, width>(pivot + j * size));
    for (; j < n; ++j)
        store<T>(row + j * size,
                 T(load<T>(row + j * size) - factor * double(load<T>(pivot + j * size))));
}

} // namespace zonm
