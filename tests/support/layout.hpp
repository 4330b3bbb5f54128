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
    dense,     // objects, rows and elements without gaps
    denseRows, // the elements of a stored row without gaps, the rest as it comes
    strided,   // gaps everywhere, dimensions nested in any order
    any,       // one of these, drawn for each call
};

struct Layout {
    int objects;
    Shape shape;
    std::int32_t shift = 0, stride0 = 0, stride1 = 0, stride2 = 0;
    std::vector<std::ptrdiff_t> elements; // [k][i][j] as used
    std::vector<std::ptrdiff_t> table;    // before the shift is taken off; empty without table
    std::ptrdiff_t extent = 0;            // bytes from the base to behind the last element

    std::ptrdiff_t at(int k, int i, int j) const
    {
        return elements[std::size_t((k * shape.rows + i) * shape.columns + j)];
    }
};

// A random legal layout in which no two elements overlap.
Layout layOut(Block, Element, int objects, Shape, Spread, Random &);

} // namespace test
