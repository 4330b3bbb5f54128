// SPDX-License-Identifier: Apache-2.0
#include "support/kit.hpp"
#include "support/digest.hpp"

#include <algorithm>
#include <bit>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>

#include "support/posix.hpp"

namespace test
{
namespace
{

// A NaN that no arithmetic yields.
constexpr std::uint32_t unwritten = 0x7fe5c3a1u;

std::uint32_t bitsAt(const std::byte *p)
{
    std::uint32_t bits;
    std::memcpy(&bits, p, sizeof bits);
    return bits;
}

bool isNaN(std::uint32_t bits) { return (bits & 0x7fffffffu) > 0x7f800000u; }

} // namespace

KitCall::KitCall(std::string_view name, std::uint64_t s)
    : callee(exportNamed(name)), seed(s), generator(s)
{
}

int elementsOf(const Export &e, std::string_view argument)
{
    const bool one = e.operation == "zonmDotProduct" || e.operation == "zonmLen" ||
                     e.operation == "zonmLenSqr" || e.operation == "zonmDet" ||
                     e.operation == "zonmIsIdentity" || e.name == "zonmCrossProduct_v2_32f";
    const auto v = e.group.rfind('v');
    const int length = v == std::string::npos ? 16 : e.group[v + 1] - '0';
    if (argument == "det" || (argument == "dst" && one))
        return 1;
    if (argument == "axis" || e.operation.starts_with("zonmLookAt"))
        return argument == "dst" ? 16 : 3;
    if (argument == "proj" || argument == "view" || argument == "world" || e.group == "v3m4")
        return 16;
    if (e.family == "transforms" && argument == "src1")
        return 16;
    return e.operation == "zonmAffineTransform" && argument == "dst" ? 4 : length;
}

KitCall &KitCall::arrays(int n, int sources, int dst)
{
    count = n, sourceStride = sources, dstStride = dst;
    return *this;
}

KitCall::Operand &KitCall::add(const ArgumentInfo &a)
{
    const bool array = callee.argument(a.name + "Stride0");
    const bool output = !a.type.starts_with("const");
    operands.emplace_back(a.name, Operand{elementsOf(callee, a.name),
                                          !array   ? 0
                                          : output ? dstStride
                                                   : sourceStride,
                                          array ? count : 1, output, nullptr, 0});
    return operands.back().second;
}

KitCall &KitCall::apart()
{
    for (const ArgumentInfo &a : callee.arguments) {
        if (a.role != "pointer")
            continue;
        Operand &o = add(a);
        const std::ptrdiff_t step = std::ptrdiff_t(o.stride) * std::max(o.count - 1, 0);
        const std::ptrdiff_t below = std::max<std::ptrdiff_t>(-step, 0);
        const auto extent = below + std::max<std::ptrdiff_t>(step, 0) + 4 * o.elements;
        const int place = generator.below(3); // flush with the end, with the start, or neither
        const std::size_t bytes = std::size_t(extent) + (place == 2 ? 64 : 0);
        twins.push_back(std::make_unique<Twin>(
            Twin{std::make_unique<Memory>(bytes), std::make_unique<Memory>(bytes)}));
        o.twin = twins.back().get();
        const Memory &m = *o.twin->real;
        o.offset = below + (place == 0   ? m.end() - m.begin() - extent
                            : place == 1 ? 0
                                         : generator.below(64));
    }
    markOutputs();
    return *this;
}

KitCall &KitCall::together(const std::map<std::string, std::ptrdiff_t> &offsets)
{
    constexpr std::ptrdiff_t room = 2048;
    std::ptrdiff_t next = room;
    twins.push_back(std::make_unique<Twin>(
        Twin{std::make_unique<Memory>(8 * room), std::make_unique<Memory>(8 * room)}));
    for (const ArgumentInfo &a : callee.arguments) {
        if (a.role != "pointer")
            continue;
        Operand &o = add(a);
        o.twin = twins.back().get();
        const auto chosen = offsets.find(a.name);
        o.offset = room / 2 + (chosen == offsets.end() ? next : chosen->second);
        if (chosen == offsets.end())
            next += room;
    }
    markOutputs();
    return *this;
}

void KitCall::markOutputs()
{
    for (const auto &[name, o] : operands)
        for (int k = 0; o.output && k < o.count; ++k)
            for (int i = 0; i < o.elements; ++i)
                std::memcpy(o.twin->real->begin() + o.at(k, i), &unwritten, sizeof unwritten);
}

KitCall &KitCall::fill(Values values)
{
    for (const ArgumentInfo &a : callee.arguments)
        if (a.type == "float")
            set(a.name, draw(values, Element::f32, generator));
    return fill([&](std::string_view, int, int) { return draw(values, Element::f32, generator); });
}

KitCall &KitCall::fill(const std::function<double(std::string_view, int, int)> &of)
{
    for (const auto &[name, o] : operands)
        if (!o.output)
            for (int k = 0; k < o.count; ++k)
                for (int i = 0; i < o.elements; ++i)
                    setElement(name, k, i, float(of(name, k, i)));
    return *this;
}

KitCall &KitCall::set(const std::string &argument, Argument value)
{
    given[argument] = value;
    return *this;
}

KitCall &KitCall::setElement(std::string_view name, int k, int i, float value)
{
    const Operand &o = find(name);
    std::memcpy(o.twin->real->begin() + o.at(k, i), &value, sizeof value);
    return *this;
}

KitCall &KitCall::setBits(std::string_view name, int i, std::uint32_t bits)
{
    const Operand &o = find(name);
    std::memcpy(o.twin->real->begin() + o.at(0, i), &bits, sizeof bits);
    return *this;
}

const KitCall::Operand &KitCall::find(std::string_view name) const
{
    for (const auto &[n, o] : operands)
        if (n == name)
            return o;
    throw std::invalid_argument(callee.name + ": operand not laid out: " + std::string(name));
}

float KitCall::element(std::string_view name, int k, int i) const
{
    const Operand &o = find(name);
    float value;
    std::memcpy(&value, o.twin->real->begin() + o.at(k, i), sizeof value);
    return value;
}

std::uint32_t KitCall::bits(std::string_view name, int i) const
{
    const Operand &o = find(name);
    return bitsAt(o.twin->real->begin() + o.at(0, i));
}

std::vector<Argument> KitCall::arguments(bool model) const
{
    std::vector<Argument> list;
    for (const ArgumentInfo &a : callee.arguments) {
        if (const auto it = given.find(a.name); it != given.end()) {
            list.push_back(it->second);
        } else if (a.role == "count") {
            list.push_back(count);
        } else {
            const Operand &o = find(a.operand);
            if (a.role == "stride0")
                list.push_back(o.stride);
            else
                list.push_back((model ? o.twin->model : o.twin->real)->begin() + o.offset);
        }
    }
    return list;
}

ZonStatus KitCall::run()
{
    for (const auto &t : twins) {
        std::memcpy(t->model->begin(), t->real->begin(),
                    std::size_t(t->real->end() - t->real->begin()));
        t->real->remember();
        t->real->protect(PROT_READ);
    }
    for (const auto &[name, o] : operands)
        if (o.output)
            o.twin->real->protect(PROT_READ | PROT_WRITE);
    const ZonStatus status = invoke(callee.name, arguments(false), describe());
    for (const auto &t : twins)
        t->real->protect(PROT_READ | PROT_WRITE);
    for (const auto &[name, o] : operands)
        for (int k = 0; o.output && k < o.count; ++k)
            for (int i = 0; i < o.elements; ++i)
                addToDigest(callee.name, element(name, k, i));
    addToDigest(callee.name, status);
    return status;
}

ZonStatus KitCall::compareWith(const References &references)
{
    const auto it = references.find(callee.name);
    if (it == references.end())
        throw std::invalid_argument("no reference: " + callee.name);
    const ZonStatus status = run();
    EXPECT_EQ(status, it->second(arguments(true))) << describe();
    compareBytes();
    return status;
}

// Bytes are equal, but those of two NaNs where the export and the reference both wrote one.
void KitCall::compareBytes() const
{
    for (const auto &t : twins) {
        const std::byte *real = t->real->begin(), *model = t->model->begin();
        const auto size = std::size_t(t->real->end() - real);
        std::vector<bool> same(size);
        for (std::size_t b = 0; b < size; ++b)
            same[b] = real[b] == model[b];
        for (const auto &[name, o] : operands)
            for (int k = 0; o.output && o.twin == t.get() && k < o.count; ++k)
                for (int i = 0; i < o.elements; ++i) {
                    const auto is = bitsAt(real + o.at(k, i)), wanted = bitsAt(model + o.at(k, i));
                    if (isNaN(is) && isNaN(wanted) && is != unwritten && wanted != unwritten)
                        std::fill_n(same.begin() + o.at(k, i), 4, true);
                    else if (is != wanted)
                        ADD_FAILURE()
                            << describe() << ": " << name << '[' << k << "](" << i
                            << ")\n  expected " << show(Element::f32, std::bit_cast<float>(wanted))
                            << "\n  is       " << show(Element::f32, std::bit_cast<float>(is));
                }
        const auto differs = std::find(same.begin(), same.end(), false);
        if (differs != same.end())
            ADD_FAILURE() << describe() << ": byte " << differs - same.begin()
                          << " of a memory differs from the reference's";
    }
}

bool KitCall::isUntouched() const
{
    return std::all_of(twins.begin(), twins.end(), [](const auto &t) {
        return t->real->isUntouched(t->real->begin(),
                                    std::size_t(t->real->end() - t->real->begin()));
    });
}

std::string KitCall::describe() const
{
    std::string text = callee.name + " (seed " + std::to_string(seed);
    for (const auto &[name, o] : operands)
        text += ", " + name + " at " + std::to_string(o.offset) + " by " +
                std::to_string(o.stride) + " x " + std::to_string(o.count);
    return text + ')';
}

} // namespace test
