// SPDX-License-Identifier: Apache-2.0
#include "support/one_memory.hpp"
#include "support/digest.hpp"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <gtest/gtest.h>
#include <numeric>
#include <stdexcept>
#include <thread>

namespace test
{
namespace
{

// Beside the operands on both sides.
constexpr std::ptrdiff_t margin = 64;
// A memory larger than this has pages where there are elements, and nowhere else.
constexpr std::ptrdiff_t largestWhole = 1 << 20;

std::vector<int> shuffled(int n, Random &random)
{
    std::vector<int> order(static_cast<std::size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    random.shuffle(order);
    return order;
}

std::vector<int> repeated(int n, Random &random)
{
    std::vector<int> order(static_cast<std::size_t>(n));
    for (int &entry : order)
        entry = random.below(n);
    return order;
}

} // namespace

int OneMemory::Part::rows() const
{
    const int r = form.block.transposed ? shape.columns : shape.rows;
    const int c = form.block.transposed ? shape.rows : shape.columns;
    return c == 1 && !form.block.stride1 ? 1 : r;
}

int OneMemory::Part::columns() const { return shape.rows * shape.columns / rows(); }

std::ptrdiff_t OneMemory::Part::lastElement(const Place &p) const
{
    return (objects - 1) * p.step0 + (rows() - 1) * p.step1 + (columns() - 1) * p.step2;
}

OneMemory::OneMemory(const Export &e, std::uint64_t s, int count)
    : callee(e), seed(s), objects(e.argument("count") ? count : 1), generator(s)
{
    if (e.argument("count"))
        set("count", count);
}

const Operand &OneMemory::add(std::string_view name, Shape shape, bool output, bool described,
                              Generator value)
{
    const OperandInfo *o = callee.operand(name);
    if (described != (o != nullptr))
        throw std::invalid_argument(callee.name +
                                    " describes no such operand: " + std::string(name));
    const int many = o && o->array ? objects : 1;
    parts.push_back({std::string(name),
                     OperandForm(callee, name),
                     shape,
                     many,
                     output,
                     described,
                     std::move(value),
                     {}});
    return parts.back().operand;
}

const Operand &OneMemory::source(std::string_view name, Shape shape, Generator value)
{
    return add(name, shape, false, true, std::move(value));
}

const Operand &OneMemory::source(std::string_view name, Shape shape, Values values)
{
    const Element type = OperandForm(callee, name).element;
    return source(name, shape,
                  [this, values, type](int, int, int) { return draw(values, type, generator); });
}

const Operand &OneMemory::output(std::string_view name, Shape shape)
{
    return add(name, shape, true, true, nullptr);
}

const Operand &OneMemory::plainSource(std::string_view name, int elements, Generator value)
{
    return add(name, {elements}, false, false, std::move(value));
}

const Operand &OneMemory::plainOutput(std::string_view name, int elements)
{
    return add(name, {elements}, true, false, nullptr);
}

void OneMemory::scratch(std::string_view name, std::size_t bytes)
{
    scratches[std::string(name)] = bytes;
    buffers.push_back(std::make_shared<Memory>(bytes));
    set(std::string(name), buffers.back()->end() - bytes);
}

OneMemory &OneMemory::set(const std::string &argument, Argument value)
{
    given[argument] = value;
    return *this;
}

// Places -----------------------------------------------------------------------------------------

Place OneMemory::placeOf(const Part &p, Style style) const
{
    const std::ptrdiff_t size = p.size(), rows = p.rows(), columns = p.columns();
    if (!p.described)
        style = Style::dense;
    switch (style) {
    case Style::dense: return {0, rows * columns * size, columns * size, size};
    case Style::rowsApart:
        return {0, rows * (columns + 2) * size + 3 * size, (columns + 2) * size, size};
    case Style::elementsApart:
        return {0, rows * (2 * columns + 1) * size + size, (2 * columns + 1) * size, 2 * size};
    case Style::sideBySide: return {0, size, columns * p.objects * size, p.objects * size};
    case Style::byColumns: return {0, rows * columns * size, size, rows * size};
    }
    return {};
}

// Pages apart from one another, so that a shift that is forgotten leads into another operand.
std::int32_t OneMemory::drawShift(const Part &p)
{
    return std::int32_t(p.size()) * generator.pick({0, 1, 5, 512, 1024, 2048});
}

// The plain operands lie out of reach of a described one that is displaced: what meets row numbers
// is no promise.
std::vector<Place> OneMemory::apart(Style style)
{
    std::vector<Place> places(parts.size());
    std::ptrdiff_t end = 0, reach = 0;
    for (const bool described : {true, false}) {
        for (std::size_t n = 0; n < parts.size(); ++n) {
            const Part &p = parts[n];
            if (p.described != described)
                continue;
            places[n] = placeOf(p, style);
            places[n].base = end;
            places[n].shift = drawShift(p);
            const std::ptrdiff_t extent = p.lastElement(places[n]) + p.size();
            end += extent + margin;
            reach = std::max(reach, extent + 4 * places[n].step0 + margin * p.objects);
        }
        end += 2 * reach;
    }
    return places;
}

// The described operands anywhere in one another, and the plain ones behind them.
std::vector<Place> OneMemory::anywhere(int kind)
{
    std::vector<Place> places = apart(Style::dense);
    const std::ptrdiff_t room = generator.pick({6, 40, 200});
    std::ptrdiff_t end = 0;
    for (std::size_t n = 0; n < parts.size(); ++n) {
        const Part &p = parts[n];
        const std::ptrdiff_t size = p.size(), row = p.columns() * size, object = p.rows() * row;
        if (!p.described)
            continue;
        Place &at = places[n];
        switch (kind) {
        case 0: // without gaps
            at.base = generator.pick<std::ptrdiff_t>(
                {0, size, 2 * size, 3 * size, 1, 15, 16, 17, 32, row, row + size, object,
                 object - size, generator.below(600), generator.below(100) * size});
            break;
        case 1: // dense rows at any distance
            at.base = generator.below(20) * generator.pick<std::ptrdiff_t>({1, size});
            at.step0 = size * generator.between(1, 3 * p.rows() * p.columns());
            at.step1 = size * generator.between(1, 2 * p.columns() + 2);
            break;
        default: // rows, elements and objects overlap within an operand as well
            at.base = size * generator.below(int(room));
            at.step0 = size * generator.between(1, 40);
            at.step1 = size * generator.between(1, 20);
            at.step2 = size * generator.between(1, 9);
            if (kind == 3 && p.form.block.table)
                at.order =
                    repeated(p.form.block.stride2 || p.form.block.constant ? p.objects
                                                                           : p.rows() * p.columns(),
                             generator);
        }
        end = std::max(end, at.base + p.lastElement(at) + size);
    }
    for (std::size_t n = 0; n < parts.size(); ++n)
        if (!parts[n].described) {
            places[n].base = end + margin;
            end = places[n].base + parts[n].lastElement(places[n]) + parts[n].size();
        }
    return places;
}

// Objects, or rows, a GiB apart; the operands beside one another in the same pages.
std::vector<Place> OneMemory::vast(bool rows)
{
    std::vector<Place> places = apart(Style::dense);
    for (std::size_t n = 0; n < parts.size(); ++n)
        if (parts[n].described)
            (rows ? places[n].step1 : places[n].step0) = 1 << 30;
    return places;
}

// Arrangements -----------------------------------------------------------------------------------

void OneMemory::check(Meeting meeting, const Reference &reference)
{
    tried = compared = 0;
    const bool meetsSources = meeting == Meeting::any || meeting == Meeting::anyButWithinObjects;
    const bool meetsItself = meeting == Meeting::any || meeting == Meeting::ofDst;
    for (const Style style : {Style::dense, Style::rowsApart, Style::elementsApart,
                              Style::sideBySide, Style::byColumns}) {
        try_(apart(style), "apart", reference);
        if (meetsSources)
            meetAll(style, meetsItself, reference);
        if (meeting == Meeting::none)
            continue;
        for (std::size_t o = 0; o < parts.size(); ++o) {
            if (!parts[o].output || !parts[o].described)
                continue;
            auto places = apart(style);
            places[o].step0 = parts[o].size();
            try_(places, "all objects of " + parts[o].name + " in one place", reference);
            if (!meetsItself)
                continue;
            places = apart(style);
            places[o].step1 = std::max(places[o].step1 - parts[o].size(), parts[o].size());
            try_(places, "rows of " + parts[o].name + " overlap", reference);
            for (int n = 0; n < 6; ++n) {
                const Part &p = parts[o];
                places = apart(style);
                Place &at = places[o];
                at.base = std::ranges::max(places, {}, &Place::base).base + 4096; // behind all
                at.step0 = generator.pick({p.size(), 3 * p.size(), at.step0});
                at.step1 = p.size() * generator.between(1, p.columns() + 1);
                at.step2 = p.size() * generator.pick({1, 1, 2, 3, p.rows()});
                try_(places, "elements of " + p.name + " overlap", reference);
            }
        }
    }
    for (const bool again : {false, true}) {
        auto places = apart(again ? Style::dense : Style::elementsApart);
        bool tables = false;
        for (std::size_t n = 0; n < parts.size(); ++n) {
            const Part &p = parts[n];
            if (!p.form.block.table)
                continue;
            tables = true;
            const bool ofObjects = p.form.block.stride2 || p.form.block.constant;
            const int entries = ofObjects ? p.objects : p.rows() * p.columns();
            places[n].order = again && (!p.output || meetsItself) ? repeated(entries, generator)
                                                                  : shuffled(entries, generator);
        }
        if (tables)
            try_(places, again ? "tables with entries twice" : "shuffled tables", reference);
    }
    if (hasVastSpace) {
        const NoDigest notEverywhere;
        const Random before = generator;
        for (const bool rows : {false, true}) {
            auto places = vast(rows);
            try_(places, "vast", reference);
            for (std::size_t o = 0; o < parts.size() && meetsSources; ++o)
                for (std::size_t s = 0; s < parts.size(); ++s)
                    if (parts[o].output && parts[o].described && !parts[s].output &&
                        parts[s].described)
                        for (const std::ptrdiff_t ahead :
                             {std::ptrdiff_t(0), parts[o].size(), places[s].step0,
                              parts[s].lastElement(places[s]), -parts[o].lastElement(places[o])}) {
                            auto met = places;
                            met[o].base = met[s].base + ahead;
                            try_(met, "vast, " + parts[o].name + " on " + parts[s].name, reference);
                        }
        }
        generator = before;
    }
    for (int n = 0; n < 12 && meetsSources; ++n)
        try_(anywhere(meetsItself ? n % 4 : 0), "anywhere", reference);
    EXPECT_GT(compared * 2, tried) << callee.name << ": too many NaN to compare";
}

void OneMemory::meetAll(Style style, bool rowsToo, const Reference &reference)
{
    for (std::size_t o = 0; o < parts.size(); ++o)
        for (std::size_t s = 0; s < parts.size(); ++s)
            if (parts[o].output && !parts[s].output && parts[s].described)
                meet(o, s, !parts[o].described, style, rowsToo, reference);
}

void OneMemory::checkMeeting(std::string_view output, std::string_view source,
                             const Reference &reference)
{
    const auto named = [&](std::string_view name) {
        const auto part = std::ranges::find(parts, name, &Part::name);
        if (part == parts.end())
            throw std::invalid_argument(callee.name + ": no such operand: " + std::string(name));
        return std::size_t(part - parts.begin());
    };
    for (const Style style : {Style::dense, Style::rowsApart, Style::elementsApart,
                              Style::sideBySide, Style::byColumns})
        meet(named(output), named(source), true, style, true, reference);
}

// `output` displaced against `source`, and with rows that overlap if `rowsToo`; alone: no other
// operand is within its reach.
void OneMemory::meet(std::size_t output, std::size_t source, bool alone, Style style, bool rowsToo,
                     const Reference &reference)
{
    const Part &o = parts[output], &s = parts[source];
    const auto places = apart(style);
    const Place &at = places[source];
    const std::ptrdiff_t size = s.size(), row = at.step1, object = at.step0;
    const std::pair<const char *, std::ptrdiff_t> displacements[] = {
        {"in the place of", 0},
        {"an element ahead of", size},
        {"an element behind", -size},
        {"a row ahead of", row},
        {"half an object ahead of", object / 2 / size * size},
        {"an object ahead of", object},
        {"an object behind", -object},
        {"three objects ahead of", 3 * object},
        {"a byte ahead of", 1},
        {"15 bytes behind", -15},
        {"with its first element on the last of", s.lastElement(at)},
        {"with its last element on the first of", -o.lastElement(places[output])},
        {"with its first element on the first of the last object of", (s.objects - 1) * object},
    };
    for (const auto &[where, ahead] : displacements) {
        auto met = places;
        for (std::size_t n = 0; n < parts.size() && alone; ++n)
            if (n != source)
                met[n].base += at.base + 3 * object + 2 * o.lastElement(places[output]) +
                               margin * (o.objects + 1);
        met[output].base = at.base + ahead;
        const std::string what = o.name + ' ' + where + ' ' + s.name;
        try_(met, what, reference);
        if (!o.described)
            continue;
        met[output].step0 += 2 * o.size();
        try_(met, what + ", in steps of its own", reference);
        if (!rowsToo)
            continue;
        met[output] = places[output];
        met[output].base = at.base + ahead;
        met[output].step1 = std::max(met[output].step1 - o.size(), o.size());
        try_(met, what + ", its rows overlap", reference);
        if (!alone || s.objects == 1)
            continue;
        met[output] = places[output];
        met[output].base = at.base + ahead;
        met[output].step0 = met[source].step0 = o.size();
        try_(met, what + ", and so do the objects of both", reference);
    }
}

void OneMemory::try_(const std::vector<Place> &places, const std::string &what,
                     const Reference &reference)
{
    ++tried;
    compared += checkAt(places, what, reference);
}

// One arrangement --------------------------------------------------------------------------------

OneMemory::Room OneMemory::roomFor(const std::vector<std::vector<Place>> &sets) const
{
    std::vector<std::ptrdiff_t> elements;
    for (const auto &places : sets)
        for (std::size_t n = 0; n < parts.size(); ++n) {
            const Part &p = parts[n];
            for (const std::ptrdiff_t offset :
                 layOut(p.form.block, p.form.element, p.objects, p.shape, places[n]).elements)
                elements.push_back(places[n].base + offset);
        }
    const auto [low, high] = std::ranges::minmax(elements);
    const std::ptrdiff_t bytes = high - low + 8;
    if (bytes <= largestWhole) {
        // As often flush with the forbidden page behind as not.
        auto memory = std::make_shared<Memory>(std::size_t(bytes + 2 * margin));
        std::byte *first = seed % 2 ? memory->begin() + margin : memory->end() - bytes;
        return {std::move(memory), first - low};
    }
    for (std::ptrdiff_t &offset : elements)
        offset -= low;
    auto memory = std::make_shared<Memory>(std::size_t(bytes), elements, 8);
    std::byte *first = memory->begin();
    return {std::move(memory), first - low};
}

void OneMemory::lay(const Room &room, const std::vector<Place> &places)
{
    for (std::size_t n = 0; n < parts.size(); ++n) {
        Part &p = parts[n];
        p.operand = placed(p.form, p.output,
                           layOut(p.form.block, p.form.element, p.objects, p.shape, places[n]),
                           room.memory, room.origin + places[n].base);
    }
    const auto fill = [&](const Part &p, const Generator &value) {
        for (int k = 0; k < p.objects; ++k)
            for (int i = 0; i < p.shape.rows; ++i)
                for (int j = 0; j < p.shape.columns; ++j)
                    p.operand.set(k, i, j, value(k, i, j));
    };
    for (const bool outputs : {true, false})
        for (const Part &p : parts)
            if (p.output == outputs)
                fill(
                    p, p.value ? p.value : [&](int, int, int) {
                        return draw(Values::uniform, p.form.element, generator);
                    });
    for (Part &p : parts)
        p.operand.storedNaN = false;
}

std::vector<Argument> OneMemory::arguments() const
{
    std::vector<Argument> all;
    for (const ArgumentInfo &a : callee.arguments) {
        const auto part = std::ranges::find(parts, a.operand, &Part::name);
        if (const auto it = given.find(a.name); it != given.end())
            all.push_back(it->second);
        else if (part != parts.end())
            all.push_back(argumentOf(part->operand, a));
        else
            throw std::invalid_argument(callee.name + ": argument not given: " + a.name);
    }
    return all;
}

ZonStatus OneMemory::run() const { return invoke(callee.name, arguments(), callee.name); }

bool OneMemory::checkAt(const std::vector<Place> &places, const std::string &what,
                        const Reference &reference)
{
    const Room room = roomFor({places});
    lay(room, places);
    const std::vector<std::byte> initial = room.memory->contents();
    const ZonStatus wanted = reference();
    const bool hasNaN =
        std::ranges::any_of(parts, [](const Part &p) { return p.operand.storedNaN; });
    room.memory->remember();
    room.memory->restore(initial);

    const std::string text = describe(places, what);
    const ZonStatus status = invoke(callee.name, arguments(), text);
    if (hasNaN)
        return false;
    EXPECT_EQ(status, wanted) << text;
    if (const std::byte *p = room.memory->firstTouched())
        ADD_FAILURE() << text << "\n  byte " << p - room.origin << " is "
                      << std::to_integer<int>(*p) << ", expected "
                      << std::to_integer<int>(*room.memory->remembered(p));
    for (const Part &p : parts)
        if (p.output)
            for (const std::ptrdiff_t offset : p.operand.layout.elements)
                addToDigest(callee.name, load(p.form.element, p.operand.base + offset));
    addToDigest(callee.name, status);
    return true;
}

std::string OneMemory::describe(const std::vector<Place> &places, const std::string &what) const
{
    std::string text = callee.name + " (seed " + std::to_string(seed);
    for (const ArgumentInfo &a : callee.arguments)
        if (const auto it = given.find(a.name); it != given.end() && a.type == "int32_t")
            text += ", " + a.name + ' ' + std::to_string(it->second.as<std::int32_t>());
    text += "): " + what;
    for (std::size_t n = 0; n < parts.size(); ++n)
        text += "\n  " + parts[n].name + " at " + std::to_string(places[n].base) + ", steps " +
                std::to_string(places[n].step0) + ' ' + std::to_string(places[n].step1) + ' ' +
                std::to_string(places[n].step2) + ", shift " + std::to_string(places[n].shift);
    return text;
}

// Two threads ------------------------------------------------------------------------------------

void OneMemory::checkThreads(const Reference &reference)
{
    for (const Alternating what : {Alternating::elements, Alternating::rows, Alternating::objects})
        checkThreads(what, reference);
}

void OneMemory::checkThreads(Alternating what, const Reference &reference)
{
    constexpr int rounds = 100;
    std::vector<std::vector<Place>> sets(2, apart(Style::dense));
    std::ptrdiff_t end = 0;
    for (std::size_t n = 0; n < parts.size(); ++n) {
        const Part &p = parts[n];
        Place &first = sets[0][n];
        // What one call has before the other has the same.
        std::ptrdiff_t piece = p.lastElement(first) + p.size();
        if (p.described) {
            piece = what == Alternating::elements ? p.size()
                    : what == Alternating::rows   ? p.columns() * p.size()
                                                  : p.rows() * p.columns() * p.size();
            first.step0 *= 2;
            first.step1 *= what == Alternating::objects ? 1 : 2;
            first.step2 *= what == Alternating::elements ? 2 : 1;
        }
        first.base = end;
        sets[1][n] = first;
        sets[1][n].base += piece;
        end += p.lastElement(first) + p.size() + piece;
    }

    // Elements of outputs, before and after the call.
    using Numbers = std::vector<double>;
    struct Side {
        std::vector<Operand> operands;
        std::vector<Argument> arguments;
        std::vector<Numbers> before, after; // of each operand; empty for a source
        ZonStatus wanted;
    } sides[2];
    const Room room = roomFor(sets);
    const auto givenFirst = given;
    for (int t = 0; t < 2; ++t) {
        for (const auto &[name, bytes] : scratches)
            if (t == 1)
                scratch(name, bytes);
        lay(room, sets[std::size_t(t)]);
        Side &side = sides[t];
        side.arguments = arguments();
        const auto values = [&] {
            std::vector<Numbers> all(parts.size());
            for (std::size_t n = 0; n < parts.size(); ++n)
                if (const Operand &o = parts[n].operand; o.output)
                    for (const std::ptrdiff_t offset : o.layout.elements)
                        all[n].push_back(load(o.element, o.base + offset));
            return all;
        };
        for (const Part &p : parts)
            side.operands.push_back(p.operand);
        side.before = values();
        side.wanted = reference();
        side.after = values();
    }
    given = givenFirst;

    std::atomic<int> wrong = 0, running = 2;
    const auto run = [&](const Side &side) {
        --running;
        while (running > 0)
            std::this_thread::yield();
        for (int round = 0; round < rounds; ++round) {
            for (std::size_t n = 0; n < side.operands.size(); ++n)
                for (std::size_t i = 0; i < side.before[n].size(); ++i)
                    store(side.operands[n].element,
                          side.operands[n].base + side.operands[n].layout.elements[i],
                          side.before[n][i]);
            if (invoke(callee.name, side.arguments, callee.name) != side.wanted)
                ++wrong;
            for (std::size_t n = 0; n < side.operands.size(); ++n)
                for (std::size_t i = 0; i < side.after[n].size(); ++i)
                    wrong +=
                        !sameBits(load(side.operands[n].element,
                                       side.operands[n].base + side.operands[n].layout.elements[i]),
                                  side.after[n][i]);
        }
    };
    std::thread other([&] { run(sides[1]); });
    run(sides[0]);
    other.join();
    EXPECT_EQ(wrong, 0) << callee.name << " (seed " << seed
                        << "): two calls at once on alternating "
                        << (what == Alternating::elements ? "elements"
                            : what == Alternating::rows   ? "rows"
                                                          : "objects")
                        << " disturb each other";
}

} // namespace test
