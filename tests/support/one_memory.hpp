// SPDX-License-Identifier: Apache-2.0
// A call whose operands lie in one memory and meet there in every way that the family promises
// something about. The reference is the literal loop: it reads and writes the elements through the
// operands in the stated order, on the very memory on which the export then runs; afterwards every
// byte has to be the same.
//
//     OneMemory call(e, seed, count);
//     const Operand &a = call.source("src", {n, n}, Values::uniform);
//     const Operand &d = call.output("dst", {n, n});
//     call.set("size", n);
//     call.check(Meeting::any, [&] {
//         for (int k = 0; k < call.count(); ++k)
//             ... d.set(k, i, j, 2 * a(k, i, j)); // rounds to the element type
//         return zonStsOk;
//     });
#pragma once

#include <deque>
#include <map>

#include "support/operand.hpp"

namespace test
{

// What may meet what, as the family promises it.
enum class Meeting {
    none,  // operands apart: layouts, shifts, shuffled tables, sources that a table names twice,
           // strides of a GiB
    ofDst, // also elements of an output with one another: the last store remains
    any,   // also an output with a source, the integers and scalars of plain outputs among them
    anyButWithinObjects, // but no two elements of the same object of an output
};

class OneMemory
{
  public:
    using Reference = std::function<ZonStatus()>;

    OneMemory(const Export &, std::uint64_t seed, int count = 1);

    // As those of `Call`. An output begins with random numbers.
    const Operand &source(std::string_view name, Shape, Values);
    const Operand &source(std::string_view name, Shape, Generator);
    const Operand &output(std::string_view name, Shape);
    const Operand &plainSource(std::string_view name, int elements, Generator);
    const Operand &plainOutput(std::string_view name, int elements);
    void scratch(std::string_view name, std::size_t bytes);
    OneMemory &set(const std::string &argument, Argument value);

    // All arrangements, or those up to the stated meeting.
    void check(Meeting, const Reference &);
    // One output and one source that meet in every way, apart from all other operands.
    void checkMeeting(std::string_view output, std::string_view source, const Reference &);
    // One arrangement, with a place for each operand in the order in which they were named. Returns
    // whether the bytes were compared: not where the reference stored a NaN, whose bits are
    // nobody's promise.
    bool checkAt(const std::vector<Place> &, const std::string &what, const Reference &);
    // Two calls at once, on elements, rows and objects that alternate in memory: neither writes
    // what lies between its own, not even with the value that is there.
    void checkThreads(const Reference &);
    // The export itself, on the operands where they lie: what `checkThreads` takes as a reference
    // where only the disturbance is of interest.
    ZonStatus run() const;

    int count() const { return objects; }
    Random &random() { return generator; }

  private:
    struct Part {
        std::string name;
        OperandForm form;
        Shape shape; // as used
        int objects;
        bool output, described;
        Generator value;
        Operand operand;

        // As stored; a vector is one row.
        int rows() const;
        int columns() const;
        std::ptrdiff_t size() const { return sizeOf(form.element); }
        // From the first element of the first object to the last of the last.
        std::ptrdiff_t lastElement(const Place &) const;
    };
    enum class Alternating { elements, rows, objects };
    void checkThreads(Alternating, const Reference &);
    enum class Style { dense, rowsApart, elementsApart, sideBySide, byColumns };

    const Operand &add(std::string_view name, Shape, bool output, bool described, Generator);
    Place placeOf(const Part &, Style) const;
    std::vector<Place> apart(Style);
    std::vector<Place> anywhere(int kind);
    std::vector<Place> vast(bool rows);
    void try_(const std::vector<Place> &, const std::string &what, const Reference &);
    void meetAll(Style, bool rowsToo, const Reference &);
    void meet(std::size_t output, std::size_t source, bool alone, Style, bool rowsToo,
              const Reference &);
    std::int32_t drawShift(const Part &);

    // The memory for operands at these places; they are laid in it one set after the other.
    struct Room {
        std::shared_ptr<Memory> memory;
        std::byte *origin;
    };
    Room roomFor(const std::vector<std::vector<Place>> &) const;
    void lay(const Room &, const std::vector<Place> &);
    std::vector<Argument> arguments() const;
    std::string describe(const std::vector<Place> &, const std::string &what) const;

    const Export &callee;
    std::uint64_t seed;
    int objects;
    Random generator;
    std::deque<Part> parts;
    std::map<std::string, Argument> given;
    std::map<std::string, std::size_t> scratches;
    std::vector<std::shared_ptr<Memory>> buffers;
    int tried = 0, compared = 0;
};

} // namespace test
