// SPDX-License-Identifier: Apache-2.0
// One operand of a call as it lies in memory, whatever its description.
#pragma once

#include <functional>
#include <memory>

#include "support/invoke.hpp"
#include "support/layout.hpp"
#include "support/manifest.hpp"
#include "support/memory.hpp"

namespace test
{

// The value of an element of object k.
using Generator = std::function<double(int k, int i, int j)>;

// A single operand beside arrays is the same for every object k.
class Operand
{
  public:
    Element element;
    bool output;
    Layout layout;
    std::byte *base;

    std::byte *at(int k, int i, int j = 0) const
    {
        return base + layout.at(layout.objects == 1 ? 0 : k, i, j);
    }
    double operator()(int k, int i, int j = 0) const { return load(element, at(k, i, j)); }
    // The element as it was before the call.
    double before(int k, int i, int j = 0) const
    {
        return load(element, memory->remembered(at(k, i, j)));
    }
    // A vector, or a plain operand, has one index inside an object.
    void set(int k, int i, int j, double value) const
    {
        store(element, at(k, i, j), value);
        storedNaN |= value != value;
    }
    // `value` as it would be after a store to this operand.
    double round(double value) const { return rounded(element, value); }

    // Whether the element still has the bytes that it had before the call.
    bool isUntouched(int k, int i, int j = 0) const;

    std::shared_ptr<Memory> memory, tableMemory;
    mutable bool storedNaN = false; // by `set`
};

// The arguments that stand for an operand, and its element type; throws if there is no such
// operand.
struct OperandForm {
    Block block;
    Element element;

    OperandForm(const Export &, std::string_view operand);
};

// An operand at `base` in `memory`, with its table, if it has one, flush with a forbidden page.
Operand placed(const OperandForm &, bool output, Layout, std::shared_ptr<Memory>, std::byte *base);

// What the call passes for an argument of the operand: pointer, table, shift or stride.
Argument argumentOf(const Operand &, const ArgumentInfo &);

} // namespace test
