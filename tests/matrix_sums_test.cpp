// SPDX-License-Identifier: Apache-2.0
// Matrix sums on operands that do not overlap: every export equals the naive sum to the last bit.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include "support/call.hpp"

using namespace test;

namespace
{

double combine(const Export &e, double a, double b)
{
    return e.operation == "zonmAdd" ? a + b : a - b;
}

void checkOnce(const Export &e, std::uint64_t seed, Shape shape, int count, Values values,
               Spread spread = Spread::any)
{
    Call call(e, seed, e.argument("count") ? count : 1, spread);
    const Operand &a = call.source("src1", shape, values);
    const Operand &b = call.source("src2", shape, values);
    call.output("dst", shape);
    call.set("width", shape.columns).set("height", shape.rows);
    ASSERT_EQ(call.run(), zonStsOk) << call;
    call.expect("dst", [&](int k, int i, int j) { return combine(e, a(k, i, j), b(k, i, j)); });
}

TEST(MatrixSums, AreTheNaiveSums)
{
    std::uint64_t seed = 1;
    for (const Export *e : builtExports("matrix_sums"))
        for (int width = 1; width <= 9; ++width)
            for (const int height : {width, 10 - width, width % 3 + 1})
                for (const int count : {1, 2, 3, 5})
                    for (const Values values : allValues())
                        checkOnce(*e, seed++, {height, width}, count, values);
}

// Long rows, long columns and many objects, where runs of elements are taken several at a time.
TEST(MatrixSums, AreTheNaiveSumsForLongRunsAndManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : builtExports("matrix_sums"))
        for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
            for (const Shape shape :
                 {Shape{1, 67}, {2, 33}, {67, 1}, {12, 11}, {3, 3}, {4, 4}, {8, 8}, {9, 8}})
                for (const int count : {1, 7, 8, 9, 25})
                    checkOnce(*e, seed++, shape, count, Values::manyExponents, spread);
}

// Objects and rows more than 4 GiB apart: addresses are formed in the width of a pointer.
TEST(MatrixSums, ReachAllOfTheAddressSpace)
{
    if (sizeof(void *) < 8)
        GTEST_SKIP() << "needs a 64-bit address space";
    constexpr std::int32_t object = 1 << 30, row = (1 << 30) + 4096, n = 3, count = 3;
    constexpr std::size_t reach = std::size_t{8} << 30;
    void *p = mmap(nullptr, reach, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED)
        GTEST_SKIP() << "no 8 GiB of address space";
    const auto memory = static_cast<std::byte *>(p);
    for (const Export *e : builtExports("matrix_sums")) {
        if (e->description == "L")
            continue;
        const Element type = e->element == "32f" ? Element::f32 : Element::f64;
        const int many = e->argument("count") ? count : 1;
        // The operands lie 1 KiB apart in the same pages.
        auto at = [&](const OperandInfo &o, int k, int i, int j) {
            if (o.transposed)
                std::swap(i, j);
            return memory + (&o - e->operands.data()) * 1024 +
                   std::size_t(o.array ? k : 0) * object + std::size_t(i) * row +
                   std::size_t(j) * 8;
        };
        std::vector<std::vector<std::byte *>> tables(3);
        std::vector<Argument> arguments;
        for (const ArgumentInfo &a : e->arguments) {
            const OperandInfo *o = e->operand(a.operand);
            if (a.role == "pointer")
                arguments.push_back(at(*o, 0, 0, 0));
            else if (a.role == "table") {
                auto &table = tables[std::size_t(o - e->operands.data())];
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j < n; ++j)
                        table.push_back(o->transposed ? at(*o, 0, j, i) : at(*o, 0, i, j));
                arguments.push_back(table.data());
            } else
                arguments.push_back(a.role == "shift"     ? 0
                                    : a.role == "stride0" ? object
                                    : a.role == "stride1" ? row
                                    : a.role == "stride2" ? 8
                                    : a.role == "count"   ? count
                                                          : n);
        }
        auto forEach = [&](auto visit) {
            for (int k = 0; k < many; ++k)
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j < n; ++j)
                        visit(k, i, j);
        };
        forEach([&](int k, int i, int j) {
            store(type, at(e->operands[0], k, i, j), 100 * k + 10 * i + j);
            store(type, at(e->operands[1], k, i, j), 7 * k - 3 * i + 2 * j);
        });
        ASSERT_EQ(invoke(e->name, arguments), zonStsOk) << e->name;
        forEach([&](int k, int i, int j) {
            const double a = load(type, at(e->operands[0], k, i, j)),
                         b = load(type, at(e->operands[1], k, i, j));
            ASSERT_EQ(load(type, at(e->operands[2], k, i, j)), combine(*e, a, b))
                << e->name << " object " << k << " (" << i << ", " << j << ')';
        });
    }
    munmap(p, reach);
}

// The memory that a test lays out by itself, and pointers into it under each description.
class OneMemory
{
  public:
    OneMemory(Element type, int elements, std::uint64_t seed)
        : element(type), bytes(elements * sizeOf(type))
    {
        Random random(seed);
        for (int i = 0; i < elements; ++i)
            store(type, at(i), draw(Values::manyExponents, type, random));
    }
    std::byte *at(int i) { return bytes.data() + i * sizeOf(element); }
    bool operator==(const OneMemory &other) const { return bytes == other.bytes; }

    const Element element;

  private:
    std::vector<std::byte> bytes;
};

// Three matrices or arrays of 5 in one memory: strides in elements, the same for every operand.
struct Problem {
    int width, height, count, stride0, stride1, stride2;

    int operandSize() const { return count * stride0 + 64 * 12; }

    // A call of `name` on objects `first` to `first + number - 1`.
    void run(const std::string &name, OneMemory &memory, int first, int number) const
    {
        const Export &e = exportNamed(name);
        const int size = sizeOf(memory.element);
        std::vector<Argument> arguments;
        std::vector<std::vector<std::byte *>> tables(3);
        for (const ArgumentInfo &a : e.arguments) {
            const OperandInfo *o = e.operand(a.operand);
            const int number0 = o && o->array ? first : 0;
            const int base =
                !o ? 0 : operandSize() * (o->output ? 2 : o->name == "src2") + number0 * stride0;
            if (a.role == "pointer") {
                arguments.push_back(memory.at(base));
            } else if (a.role == "table") {
                auto &table = tables[std::size_t(o->output ? 2 : o->name == "src2")];
                if (e.description == "L") {
                    for (int k = 0; k < number; ++k)
                        table.push_back(memory.at(base + k * stride0));
                } else {
                    const int rows = o->transposed ? width : height;
                    const int columns = o->transposed ? height : width;
                    for (int i = 0; i < rows; ++i)
                        for (int j = 0; j < columns; ++j)
                            table.push_back(memory.at(base + i * stride1 + j * stride2));
                }
                arguments.push_back(table.data());
            } else {
                arguments.push_back(a.role == "shift"     ? 0
                                    : a.role == "stride0" ? stride0 * size
                                    : a.role == "stride1" ? stride1 * size
                                    : a.role == "stride2" ? stride2 * size
                                    : a.name == "width"   ? width
                                    : a.name == "height"  ? height
                                                          : number);
            }
        }
        ASSERT_EQ(invoke(name, arguments), zonStsOk) << name;
    }
};

const Problem problems[] = {
    {3, 3, 5, 9, 3, 1},  {4, 4, 5, 16, 4, 1}, {5, 5, 5, 27, 5, 1}, {6, 6, 5, 85, 14, 2},
    {7, 7, 5, 60, 8, 1}, {3, 4, 5, 70, 1, 5}, {8, 2, 5, 1, 5, 40}, {1, 1, 5, 3, 1, 1},
};

std::string arrayForm(const Export &e) { return e.name.substr(0, e.name.size() - 2); }

TEST(MatrixSums, AreTheSameUnderEachDescription)
{
    int compared = 0;
    for (const Export *e : builtExports("matrix_sums")) {
        if (e->description.empty())
            continue;
        const Element type = e->element == "32f" ? Element::f32 : Element::f64;
        for (const Problem &p : problems) {
            OneMemory plain(type, 3 * p.operandSize(), 7), tables = plain;
            p.run(arrayForm(*e), plain, 0, p.count);
            p.run(e->name, tables, 0, p.count);
            EXPECT_TRUE(plain == tables) << e->name << ' ' << p.width << 'x' << p.height;
            ++compared;
        }
    }
    EXPECT_GT(compared, 0);
}

TEST(MatrixSums, OfArraysAreTheSumsOfTheirObjects)
{
    int compared = 0;
    for (const Export *e : builtExports("matrix_sums")) {
        std::string single;
        for (const char letter : e->group)
            if (letter != 'a')
                single += letter;
        if (single == e->group || e->description == "L" ||
            (single == "mt" && e->operation == "zonmAdd"))
            continue;
        const std::string tail = '_' + e->element + (e->description == "P" ? "_P" : "");
        const Element type = e->element == "32f" ? Element::f32 : Element::f64;
        for (const Problem &p : problems) {
            OneMemory array(type, 3 * p.operandSize(), 8), singles = array, one = array;
            p.run(e->name, array, 0, p.count);
            // The array export on one object at a time, and the single one on object 0.
            for (int k = 0; k < p.count; ++k)
                p.run(e->name, singles, k, 1);
            EXPECT_TRUE(array == singles) << e->name << ' ' << p.width << 'x' << p.height;
            OneMemory first = one;
            p.run(e->operation + '_' + single + tail, one, 0, 1);
            p.run(e->name, first, 0, 1);
            EXPECT_TRUE(one == first) << e->name << ' ' << p.width << 'x' << p.height;
            ++compared;
        }
    }
    EXPECT_GT(compared, 0);
}

} // namespace
