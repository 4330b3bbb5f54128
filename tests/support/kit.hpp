// SPDX-License-Identifier: Apache-2.0
// The fixed-size kit: an export runs beside a reference of the same type, each on a memory of its
// own that begins with the same bytes and lies the same way. Afterwards all bytes are compared, so
// that order and extent of every store count wherever operands meet.
//
//     KitCall call("zonmAdd_v3_32f", seed);
//     call.apart().fill(Values::uniform).compareWith(references);
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "support/invoke.hpp"
#include "support/manifest.hpp"
#include "support/memory.hpp"
#include "support/values.hpp"

namespace test
{

using Reference = ZonStatus (*)(std::span<const Argument>);

template <auto> struct ReferenceOf;
template <class... P, ZonStatus (*F)(P...)> struct ReferenceOf<F> {
    static ZonStatus call(std::span<const Argument> arguments)
    {
        return [&]<std::size_t... I>(std::index_sequence<I...>)
        {
            return F(arguments[I].as<P>()...);
        }
        (std::index_sequence_for<P...>());
    }
};
// A reference has the very type of its export, or does not compile.
template <class> struct Plain;
template <class... P> struct Plain<ZonStatus (*)(P...) noexcept> {
    using Type = ZonStatus (*)(P...);
};
template <class Export, typename Plain<Export>::Type F>
std::pair<const std::string_view, Reference> namedReference(std::string_view name)
{
    return {name, &ReferenceOf<F>::call};
}
#define ZONM_REFERENCE(name, ...) test::namedReference<decltype(&::name), __VA_ARGS__>(#name)

// How many elements an object of the argument has.
int elementsOf(const Export &, std::string_view argument);

using References = std::map<std::string_view, Reference>;

class KitCall
{
  public:
    KitCall(std::string_view name, std::uint64_t seed);

    // What the array forms get; to be said before the operands are laid out.
    KitCall &arrays(int count, int sourceStride, int dstStride);
    // Each operand in memory of its own, flush with a page without access or at any address.
    KitCall &apart();
    // All operands in one memory, each at its byte offset or behind all that were given one.
    KitCall &together(const std::map<std::string, std::ptrdiff_t> &offsets);

    // All sources and values by value; the elements of a source by `of(name, k, i)`.
    KitCall &fill(Values);
    KitCall &fill(const std::function<double(std::string_view name, int k, int i)> &of);
    KitCall &set(const std::string &argument, Argument value);
    KitCall &setElement(std::string_view name, int k, int i, float value);
    KitCall &setBits(std::string_view name, int i, std::uint32_t bits);

    // The status, both runs having given it.
    ZonStatus compareWith(const References &);
    ZonStatus run(); // the export alone

    float element(std::string_view name, int i) const { return element(name, 0, i); }
    float element(std::string_view name, int k, int i) const;
    std::uint32_t bits(std::string_view name, int i) const;
    bool isUntouched() const; // nothing has changed in the run
    Random &random() { return generator; }

  private:
    struct Twin {
        std::unique_ptr<Memory> real, model;
    };
    struct Operand {
        int elements, stride, count;
        bool output;
        Twin *twin;
        std::ptrdiff_t offset; // of vector 0 in the memory

        std::ptrdiff_t at(int k, int i) const
        {
            return offset + std::ptrdiff_t(k) * stride + 4 * i;
        }
    };
    Operand &add(const ArgumentInfo &);
    void markOutputs();
    const Operand &find(std::string_view name) const;
    std::vector<Argument> arguments(bool model) const;
    void compareBytes() const;
    std::string describe() const;

    const Export &callee;
    std::uint64_t seed;
    Random generator;
    std::vector<std::unique_ptr<Twin>> twins;
    int count = 1, sourceStride = 16, dstStride = 16;
    std::vector<std::pair<std::string, Operand>> operands;
    std::map<std::string, Argument> given;
};

} // namespace test
