// SPDX-License-Identifier: Apache-2.0
// Elements as bits, for families that move them: a signalling NaN does not travel as a double.
#pragma once

#include <cstring>

#include "support/operand.hpp"

namespace test
{

// Random bits, every third a signalling NaN with a random payload.
inline void drawBits(const Operand &o, int k, int i, int j, Random &random)
{
    std::uint64_t bits = random.bits();
    const bool signalling = random.oneIn(3);
    if (o.element == Element::f64) {
        if (signalling)
            bits = (bits & 0x8007ffffffffffffu) | 0x7ff0000000000001u;
        std::memcpy(o.at(k, i, j), &bits, sizeof bits);
    } else {
        auto half = std::uint32_t(bits);
        if (signalling)
            half = (half & 0x803fffffu) | 0x7f800001u;
        std::memcpy(o.at(k, i, j), &half, sizeof half);
    }
}

inline void drawBits(const Operand &o, Random &random)
{
    for (int k = 0; k < o.layout.objects; ++k)
        for (int i = 0; i < o.layout.shape.rows; ++i)
            for (int j = 0; j < o.layout.shape.columns; ++j)
                drawBits(o, k, i, j, random);
}

inline bool haveSameBits(const Operand &o, const std::byte *a, const std::byte *b)
{
    return std::memcmp(a, b, std::size_t(sizeOf(o.element))) == 0;
}

} // namespace test
