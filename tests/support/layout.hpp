// SPDX-License-Identifier: Apache-2.0
// Where the elements of an operand lie, under each description, in bytes from a common base.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "support/values.hpp"

namespace test
{

// Rows and columns as used: of a transposed operand, those of the transpose. A vector has rows
// only.
struct Shape {
    int rows, columns = 1;
};

// The arguments that the operand's block takes.
struct Block {
    bool table = false; // pointer argument is a table: of objects, if there are strides inside one
    bool shift = false, stride0 = false, stride1 = false, stride2 = false;
    bool transposed = false;
    bool constant = false; // one number per object
};

enum class Spread {
    dense,       // objects, rows and elements without gaps
    denseRows,   // the elements of a stored row without gaps, the rest as it comes
    strided,     // gaps everywhere, dimensions nested in any order
    interleaved, // the elements of one place side by side for all objects, the rest as it comes
    any,         // one of these, drawn for each call
    // Not drawn by `any`, since they cost more:
    fenced, // every row, or every element of an element table, between two forbidden pages and
            // flush with one of them
    vast,   // strides of a GiB and more: offsets need more than 32 bits
};
inline constexpr bool hasVastSpace = sizeof(void *) > 4;

struct Layout {
    int objects;
    Shape shape;
    std::int32_t shift = 0, stride0 = 0, stride1 = 0, stride2 = 0;
    std::vector<std::ptrdiff_t> elements; // [k][i][j] as used
    std::vector<std::ptrdiff_t> table;    // before the shift is taken off; empty without table
    std::ptrdiff_t extent = 0;            // bytes from the base to behind the last element
    std::ptrdiff_t lead = 0;              // of a fenced layout: from a page's begin to the base

    std::ptrdiff_t at(int k, int i, int j) const
    {
        return elements[std::size_t((k * shape.rows + i) * shape.columns + j)];
    }
};

// A random legal layout in which no two elements overlap.
Layout layOut(Block, Element, int objects, Shape, Spread, Random &);

// A place that is chosen: bytes between objects, rows and elements, as stored. A table names the
// objects, or the elements, in `order`, which may leave some out and repeat others; empty: as they
// are. Elements may overlap.
struct Place {
    std::ptrdiff_t base = 0, step0 = 0, step1 = 0, step2 = 0;
    std::int32_t shift = 0;
    std::vector<int> order = {};
};
Layout layOut(Block, Element, int objects, Shape, const Place &); // offsets are from `base`

} // namespace test
