// SPDX-License-Identifier: Apache-2.0
// The paths of the matrix product as its table prescribes them, and what each computes.
#pragma once

#include "support/manifest.hpp"
#include "support/values.hpp"

namespace test
{

struct ProductShape {
    int rows, columns, inner; // as used
};

enum class Path { sizes, block, loop, sumInDst };

// The path of an export by description and group; `contiguous`: all elements of stored rows
// adjacent.
inline Path pathOf(const Export &e, ProductShape s, bool contiguous)
{
    std::string kind; // the group without its transpositions
    for (const char letter : e.group)
        kind += letter == 't' ? 'm' : letter;
    const bool square = s.rows == s.columns && s.rows == s.inner && s.rows >= 3 && s.rows <= 6;
    if (e.description == "P")
        return square ? Path::sizes : Path::sumInDst;
    if (!contiguous)
        return square ? Path::sizes : Path::loop;
    if (e.description == "L")
        return square && kind == "mam" ? Path::sizes : Path::block;
    if (square)
        return Path::sizes;
    if (kind == "mam" || (e.group == "mata" && e.element == "64f"))
        return Path::loop;
    return Path::block;
}

// Two exports take the 3×3 path, past the ends of their tables, for sizes whose bitwise OR is 3.
inline bool readsPastItsTables(const Export &e, ProductShape s)
{
    return (e.name == "zonmMul_mm_32f_P" || e.name == "zonmMul_tt_64f_P") &&
           (s.rows | s.columns | s.inner) == 3 && (s.rows & s.columns & s.inner) != 3;
}

// The sum of product(0) to product(inner - 1), the products as doubles.
template <class Product> double chain(Path path, Element type, int inner, Product product)
{
    double sum = 0.0;
    if (path == Path::sizes) {
        sum = product(0);
        for (int p = 1; p < inner; ++p)
            sum = sum + product(p);
        return rounded(type, sum);
    }
    for (int p = 0; p < inner; ++p) {
        sum = sum + product(p);
        if (path == Path::sumInDst)
            sum = rounded(type, sum);
    }
    return rounded(type, sum);
}

} // namespace test
