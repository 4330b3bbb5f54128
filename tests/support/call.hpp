// SPDX-License-Identifier: Apache-2.0
// One call of an export: its operands laid out in guarded memory, its arguments, its result.
//
//     Call call(e, seed, count);
//     auto &a = call.source("src1", {height, width}, Values::uniform);
//     auto &b = call.source("src2", {height, width}, Values::uniform);
//     call.output("dst", {height, width});
//     call.set("width", width).set("height", height);
//     ASSERT_EQ(call.run(), zonStsOk) << call;
//     call.expect("dst", [&](int k, int i, int j) { return a(k, i, j) + b(k, i, j); });
//
// Every operand has memory of its own, often flush with a page without access; sources and tables
// are read-only while the export runs; outputs begin as NaN. The seed fixes all that is random.
// Operands that share memory: support/one_memory.hpp.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <ostream>

#include "support/operand.hpp"

namespace test
{

class Call
{
  public:
    using Generator = test::Generator;

    Call(const Export &, std::uint64_t seed, int count = 1, Spread = Spread::any);

    // Operands that the manifest describes: matrices, vectors, constants, one or an array. Rows and
    // columns are those of the operand as used; a vector or constant has rows only.
    Operand &source(std::string_view name, Shape, Values);
    Operand &source(std::string_view name, Shape, Generator);
    Operand &output(std::string_view name, Shape);
    // The output lies where the source lies, under the same strides or the same table.
    Operand &outputInPlaceOf(std::string_view source, std::string_view name);

    // Consecutive elements without strides: pivots, results of one number per object.
    Operand &plainSource(std::string_view name, int elements, Generator);
    Operand &plainOutput(std::string_view name, int elements);

    void scratch(std::string_view name, std::size_t bytes);

    // An argument that no operand gives, or one given otherwise than the operand would.
    Call &set(const std::string &argument, Argument value);

    ZonStatus run();

    // Every element of an output has the bits of `reference`; reports those that have not.
    void expect(std::string_view output, const Generator &reference) const;
    // No byte has changed but those of output elements. `run` calls it.
    void expectSurroundingsUntouched() const;
    // No byte has changed at all.
    void expectNothingTouched() const;

    Operand &operator[](std::string_view name);
    int count() const { return objects; }
    Random &random() { return generator; }
    // Export, seed and size arguments.
    std::string describe() const;
    friend std::ostream &operator<<(std::ostream &s, const Call &c) { return s << c.describe(); }

  private:
    Operand &add(std::string_view name, Shape, int objects, bool output, Spread);
    Operand &addDescribed(std::string_view name, Shape, bool output);
    Spread plainSpread() const { return spread == Spread::fenced ? spread : Spread::dense; }
    void fill(Operand &, const Generator &);
    const Operand &find(std::string_view name) const;
    Argument valueOf(const ArgumentInfo &) const;

    const Export &callee;
    std::uint64_t seed;
    int objects;
    Random generator;
    Spread spread;
    std::map<std::string, Operand, std::less<>> operands;
    std::map<std::string, Argument> given;
    std::vector<std::shared_ptr<Memory>> buffers;
};

} // namespace test
