// SPDX-License-Identifier: Apache-2.0
#include "support/call.hpp"
#include "support/digest.hpp"

#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>

#include "support/posix.hpp"

namespace test
{
namespace
{

// What stands in an output before the call: a NaN (or an integer) that no arithmetic yields.
constexpr std::uint32_t unwritten32 = 0x7fe5c3a1u;
constexpr std::uint64_t unwritten64 = 0x7ffe5c3a1b2d4f69u;

void markUnwritten(Element e, std::byte *p)
{
    if (e == Element::f64)
        std::memcpy(p, &unwritten64, sizeof unwritten64);
    else
        std::memcpy(p, &unwritten32, sizeof unwritten32);
}

bool isMarkedUnwritten(Element e, const std::byte *p)
{
    return e == Element::f64 ? std::memcmp(p, &unwritten64, sizeof unwritten64) == 0
                             : std::memcmp(p, &unwritten32, sizeof unwritten32) == 0;
}

} // namespace

Call::Call(const Export &e, std::uint64_t s, int count, Spread wanted)
    : callee(e), seed(s), objects(count), generator(s),
      spread(wanted == Spread::any ? generator.pick({Spread::dense, Spread::denseRows,
                                                     Spread::strided, Spread::interleaved})
                                   : wanted)
{
    if (e.argument("count"))
        set("count", count);
}

Operand &Call::add(std::string_view name, Shape shape, int number, bool output, Spread how)
{
    const OperandForm form(callee, name);
    Layout layout = layOut(form.block, form.element, number, shape, how, generator);
    const auto extent = std::size_t(layout.extent), lead = std::size_t(layout.lead);
    std::shared_ptr<Memory> memory;
    std::byte *base;
    if (how == Spread::fenced || how == Spread::vast) {
        auto offsets = layout.elements;
        for (std::ptrdiff_t &offset : offsets)
            offset += layout.lead;
        memory = std::make_shared<Memory>(lead + extent, offsets, sizeOf(form.element));
        base = memory->begin() + lead;
    } else {
        const auto place =
            generator.pick({Memory::Place::start, Memory::Place::end, Memory::Place::anywhere});
        const std::size_t slack = 192;
        memory = std::make_shared<Memory>(extent + (place == Memory::Place::anywhere ? slack : 0));
        base = place == Memory::Place::start ? memory->begin()
               : place == Memory::Place::end ? memory->end() - extent
                                             : memory->begin() + generator.below(slack);
    }
    Operand o = placed(form, output, std::move(layout), std::move(memory), base);
    return operands.insert_or_assign(std::string(name), std::move(o)).first->second;
}

Operand &Call::addDescribed(std::string_view name, Shape shape, bool output)
{
    const OperandInfo *o = callee.operand(name);
    if (!o)
        throw std::invalid_argument(callee.name + " describes no operand " + std::string(name));
    return add(name, shape, o->array ? objects : 1, output, spread);
}

void Call::fill(Operand &o, const Generator &value)
{
    for (int k = 0; k < o.layout.objects; ++k)
        for (int i = 0; i < o.layout.shape.rows; ++i)
            for (int j = 0; j < o.layout.shape.columns; ++j) {
                if (value)
                    o.set(k, i, j, value(k, i, j));
                else
                    markUnwritten(o.element, o.at(k, i, j));
            }
}

Operand &Call::source(std::string_view name, Shape shape, Generator value)
{
    Operand &o = addDescribed(name, shape, false);
    fill(o, value);
    return o;
}

Operand &Call::source(std::string_view name, Shape shape, Values values)
{
    Operand &o = addDescribed(name, shape, false);
    fill(o, [&](int, int, int) { return draw(values, o.element, generator); });
    return o;
}

Operand &Call::output(std::string_view name, Shape shape)
{
    Operand &o = addDescribed(name, shape, true);
    fill(o, nullptr);
    return o;
}

Operand &Call::outputInPlaceOf(std::string_view source, std::string_view name)
{
    const OperandInfo *from = callee.operand(source), *to = callee.operand(name);
    if (!from || !to || from->array != to->array || from->transposed)
        throw std::invalid_argument(callee.name + ": not in the same place: " + std::string(name));
    Operand &o = operands.insert_or_assign(std::string(name), find(source)).first->second;
    o.output = true;
    return o;
}

Operand &Call::plainSource(std::string_view name, int elements, Generator value)
{
    Operand &o = add(name, {elements}, 1, false, plainSpread());
    fill(o, value);
    return o;
}

Operand &Call::plainOutput(std::string_view name, int elements)
{
    Operand &o = add(name, {elements}, 1, true, plainSpread());
    fill(o, nullptr);
    return o;
}

void Call::scratch(std::string_view name, std::size_t bytes)
{
    buffers.push_back(std::make_shared<Memory>(bytes));
    set(std::string(name), buffers.back()->end() - bytes);
}

Call &Call::set(const std::string &argument, Argument value)
{
    given[argument] = value;
    return *this;
}

Operand &Call::operator[](std::string_view name) { return const_cast<Operand &>(find(name)); }

const Operand &Call::find(std::string_view name) const
{
    const auto it = operands.find(name);
    if (it == operands.end())
        throw std::invalid_argument(callee.name + ": operand not laid out: " + std::string(name));
    return it->second;
}

Argument Call::valueOf(const ArgumentInfo &a) const
{
    if (const auto it = given.find(a.name); it != given.end())
        return it->second;
    const auto it = operands.find(a.operand);
    if (it == operands.end())
        throw std::invalid_argument(callee.name + ": argument not given: " + a.name);
    return argumentOf(it->second, a);
}

ZonStatus Call::run()
{
    std::vector<Argument> arguments;
    for (const ArgumentInfo &a : callee.arguments)
        arguments.push_back(valueOf(a));
    for (auto &[name, o] : operands) {
        o.memory->remember();
        o.memory->protect(PROT_READ);
        if (o.tableMemory)
            o.tableMemory->protect(PROT_READ);
    }
    for (auto &[name, o] : operands) {
        if (!o.output)
            continue;
        o.memory->protect(PROT_READ | PROT_WRITE);
        for (const std::ptrdiff_t offset : o.layout.elements)
            o.memory->release(o.base + offset, std::size_t(sizeOf(o.element)));
    }
    const ZonStatus status = invoke(callee.name, arguments, describe());
    for (auto &[name, o] : operands)
        o.memory->protect(PROT_READ | PROT_WRITE);
    expectSurroundingsUntouched();
    if (spread == Spread::vast)
        return status; // not every platform has room for such a call
    for (const auto &[name, o] : operands)
        if (o.output)
            for (const std::ptrdiff_t offset : o.layout.elements)
                addToDigest(callee.name, load(o.element, o.base + offset));
    addToDigest(callee.name, status);
    return status;
}

void Call::expect(std::string_view output, const Generator &reference) const
{
    const Operand &o = find(output);
    int different = 0;
    for (int k = 0; k < o.layout.objects; ++k)
        for (int i = 0; i < o.layout.shape.rows; ++i)
            for (int j = 0; j < o.layout.shape.columns; ++j) {
                const double wanted = o.round(reference(k, i, j)), got = o(k, i, j);
                const bool unwritten = isMarkedUnwritten(o.element, o.at(k, i, j));
                if ((sameBits(wanted, got) && !unwritten) || ++different > 3)
                    continue;
                ADD_FAILURE() << *this << ": " << output << '[' << k << "](" << i << ", " << j
                              << ")\n  expected " << show(o.element, wanted) << "\n  is       "
                              << (unwritten ? "not written" : show(o.element, got));
            }
    if (different > 3)
        ADD_FAILURE() << *this << ": " << different << " elements of " << output << " differ";
}

void Call::expectSurroundingsUntouched() const
{
    for (const auto &[name, o] : operands)
        if (const std::byte *p = o.memory->firstTouched())
            ADD_FAILURE() << *this << ": byte " << p - o.base << " from the base of " << name
                          << " has changed, which is no element of an output";
}

void Call::expectNothingTouched() const
{
    for (const auto &[name, o] : operands)
        if (!o.memory->isUntouched())
            ADD_FAILURE() << *this << ": memory of " << name << " has changed";
}

std::string Call::describe() const
{
    static const char *const spreads[] = {"dense", "dense rows", "strided", "interleaved",
                                          "any",   "fenced",     "vast"};
    std::string text = callee.name + " (seed " + std::to_string(seed) + ", " + spreads[int(spread)];
    for (const ArgumentInfo &a : callee.arguments) {
        const auto it = given.find(a.name);
        if (it != given.end() && a.type == "int32_t")
            text += ", " + a.name + ' ' + std::to_string(it->second.as<std::int32_t>());
    }
    return text + ')';
}

} // namespace test
