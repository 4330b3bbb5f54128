// SPDX-License-Identifier: Apache-2.0
// Operands that share one memory and may overlap in any way: what a reference does to it, element
// by element, and what an export does to a copy must come out the same.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "support/invoke.hpp"
#include "support/layout.hpp"
#include "support/manifest.hpp"

namespace test
{

// A matrix or a vector as a reference sees it.
struct MatrixIn {
    std::function<double(int i, int j)> get;
    std::function<void(int i, int j, double)> set;
};
struct VectorIn {
    std::function<double(int i)> get;
    std::function<void(int i, double)> set;
};

// Where an operand lies, in elements. A vector has one row of `columns` elements.
struct Placement {
    int base, stride0, stride1, stride2;
    Shape shape;
};
using Placements = std::map<std::string, Placement, std::less<>>;

class SharedMemory
{
  public:
    SharedMemory(Element e, int elements) : element(e), bytes(std::size_t(elements * sizeOf(e))) {}

    // Object k of an operand; of a single one, k = 0.
    MatrixIn matrix(const Placement &, int k);
    VectorIn vector(const Placement &, int k);
    std::byte *at(std::ptrdiff_t offset) { return bytes.data() + offset; }

    // Calls an export on the operands as placed. Integers that no operand gives are in `sizes`.
    ZonStatus run(const Export &, const Placements &, int count,
                  const std::map<std::string, int, std::less<>> &sizes, void *buffer = nullptr);

    friend bool operator==(const SharedMemory &a, const SharedMemory &b)
    {
        return a.bytes == b.bytes;
    }
    void fill(Values, std::uint64_t seed);

    Element element;

  private:
    std::vector<std::byte> bytes;
};

} // namespace test
