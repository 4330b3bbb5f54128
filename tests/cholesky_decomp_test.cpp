// SPDX-License-Identifier: Apache-2.0
// Cholesky decomposition: factors to the last bit, the limits of each form, what a failure leaves,
// and the upper triangle that nobody reads or writes.
#include <gtest/gtest.h>
#include <limits>

#include "cholesky_reference.hpp"
#include "support/call.hpp"
#include "support/posix.hpp"

using namespace test;

namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr int sizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12, 17, 20};

Element elementOf(const Export &e) { return e.element == "32f" ? Element::f32 : Element::f64; }
bool isArray(const Export &e) { return e.argument("count") != nullptr; }

double limitOf(const Export &e, int n, const Operand &src, const Operand &dst)
{
    const int size = sizeOf(dst.element);
    return cholesky::pivotLimit(e, n, src.layout.stride2 == size && dst.layout.stride2 == size);
}

// A call with random layout, judged by the reference object after object.
struct Decomposition {
    const Export &e;
    Call call;
    int n;
    Operand *src, *dst;

    template <class M>
    Decomposition(const Export &callee, std::uint64_t seed, int size, int count, M matrix,
                  Spread spread = Spread::any, bool inPlace = false)
        : e(callee), call(e, seed, isArray(e) ? count : 1, spread), n(size)
    {
        src = &call.source("src", {n, n}, matrix);
        dst = inPlace ? &call.outputInPlaceOf("src", "dst") : &call.output("dst", {n, n});
        call.set("size", n);
    }
    double limit() const { return limitOf(e, n, *src, *dst); }

    // The status, after all that the call left is compared.
    ZonStatus check()
    {
        const ZonStatus status = call.run();
        ZonStatus wanted = zonStsOk;
        for (int k = 0; k < call.count(); ++k) {
            std::vector<double> factor(std::size_t(n * n));
            std::vector<bool> written(std::size_t(n * n));
            const auto at = [&](int i, int j) { return std::size_t(i * n + j); };
            if (wanted == zonStsOk &&
                !cholesky::decompose(dst->element, limit(), cholesky::writesLate(e, n),
                                     {[&](int i, int j) { return src->before(k, i, j); }, nullptr},
                                     {[&](int i, int j) { return factor[at(i, j)]; },
                                      [&](int i, int j, double value) {
                                          factor[at(i, j)] = value;
                                          written[at(i, j)] = true;
                                      }},
                                     n))
                wanted = zonStsNotPositiveDefinite;
            for (int i = 0; i < n; ++i)
                for (int j = 0; j < n; ++j)
                    if (written[at(i, j)])
                        EXPECT_TRUE(sameBits((*dst)(k, i, j), factor[at(i, j)]))
                            << call << ": dst[" << k << "](" << i << ", " << j << ") is "
                            << show(dst->element, (*dst)(k, i, j)) << ", expected "
                            << show(dst->element, factor[at(i, j)]);
                    else
                        EXPECT_TRUE(dst->isUntouched(k, i, j))
                            << call << ": dst[" << k << "](" << i << ", " << j << ") was written";
        }
        EXPECT_EQ(status, wanted) << call;
        return status;
    }
};

// Diagonally dominant, with a NaN or another number everywhere above the diagonal.
Call::Generator dominant(int n, std::uint64_t seed, double above = nan)
{
    return [n, above, random = Random(seed)](int, int i, int j) mutable {
        return j > i ? above : random.unit() * 2 - 1 + (i == j ? n + 1 : 0);
    };
}

TEST(CholeskyDecomp, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 5, 8, 9}) {
                ++seed;
                EXPECT_EQ(Decomposition(*e, seed, n, count, dominant(n, seed)).check(), zonStsOk);
                for (const Values values : allValues())
                    Decomposition(*e, seed++, n, count, values).check();
                if (!isArray(*e) && count > 3)
                    break;
            }
}

TEST(CholeskyDecomp, IsTheReferenceForManyObjects)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (const int n : {1, 3, 4, 5, 6, 7, 8, 16, 17})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided}) {
                EXPECT_EQ(Decomposition(*e, seed, n, 150, dominant(n, seed), spread).check(),
                          zonStsOk);
                ++seed;
            }
}

TEST(CholeskyDecomp, InPlaceKeepsTheUpperTriangle)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (const int n : sizes)
            for (const int count : {1, 4, 7, 9}) {
                const auto matrix = dominant(n, seed);
                Decomposition whole(*e, seed++, n, count, matrix, Spread::any, true);
                EXPECT_EQ(whole.check(), zonStsOk);
                Decomposition(*e, seed++, n, count, Values::smallIntegers, Spread::any, true)
                    .check();
            }
}

// A diagonal pivot at the limit, one step below and one above.
TEST(CholeskyDecomp, TestsPivotsAgainstTheLimits)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (int n = 1; n <= 8; ++n)
            for (int step = 0; step < n; ++step)
                for (const int object : {0, 1, 4, 6})
                    for (const Spread spread : {Spread::dense, Spread::strided})
                        for (const int side : {-1, 0, 1}) {
                            if (!isArray(*e) && object > 0)
                                continue;
                            // The layout decides about the limit, and it depends on the seed.
                            double pivot = 0;
                            const auto matrix = [&](int k, int i, int j) {
                                return i != j ? 0 : k == object && i == step ? pivot : 1 + i;
                            };
                            const double limit =
                                Decomposition(*e, seed, n, 7, matrix, spread).limit();
                            pivot = elementOf(*e) == Element::f32
                                        ? double(std::nextafter(float(limit), float(side)))
                                        : std::nextafter(limit, double(side));
                            if (side == 0)
                                pivot = limit;
                            Decomposition d(*e, seed++, n, 7, matrix, spread);
                            EXPECT_EQ(d.check(), side > 0 ? zonStsOk : zonStsNotPositiveDefinite)
                                << d.call << " step " << step << " side " << side;
                        }
}

// The limit of this one export hangs on both distances between elements.
TEST(CholeskyDecomp, OfArraysOf64fHasALimitThatHangsOnStride2)
{
    for (int n = 1; n <= 8; ++n)
        for (const int srcStride2 : {8, 16})
            for (const int dstStride2 : {8, 24}) {
                std::vector<double> a(200, nan), l(400, nan);
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j <= i; ++j)
                        a[std::size_t(i * 16 + j * srcStride2 / 8)] = i == j ? 1e-20 : 0;
                const bool fails = (srcStride2 != 8 || dstStride2 != 8) && (n <= 2 || n >= 6);
                EXPECT_EQ(zonmCholeskyDecomp_ma_64f(a.data(), 1024, 128, srcStride2, l.data(), 2048,
                                                    256, dstStride2, n, 1),
                          fails ? zonStsNotPositiveDefinite : zonStsOk)
                    << n << ' ' << srcStride2 << ' ' << dstStride2;
                EXPECT_EQ(zonmCholeskyDecomp_m_64f(a.data(), 128, srcStride2, l.data(), 256,
                                                   dstStride2, n),
                          zonStsOk);
                const double *objects[] = {a.data()};
                double *factors[] = {l.data()};
                EXPECT_EQ(zonmCholeskyDecomp_ma_64f_L(objects, 0, 128, srcStride2, factors, 0, 256,
                                                      dstStride2, n, 1),
                          zonStsOk);
            }
}

// A failing object at each place of an array, at each row: whole before it, the stated state in it,
// nothing behind it.
TEST(CholeskyDecomp, EndsAtTheFirstFailingObject)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp")) {
        if (!isArray(*e))
            continue;
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8, 17})
            for (int count = 1; count <= 9; ++count)
                for (int failing = 0; failing < count; ++failing) {
                    Random random(seed);
                    const int row = random.below(n);
                    const double pivot = random.pick({-3., -0., 0.});
                    Decomposition d(*e, seed++, n, count, [&](int k, int i, int j) {
                        const double below = random.between(-1, 1);
                        return i != j ? below : k == failing && i == row ? pivot : 64 + below;
                    });
                    EXPECT_EQ(d.check(), zonStsNotPositiveDefinite) << d.call;
                    const bool late = cholesky::writesLate(*e, n) && row < 2;
                    EXPECT_EQ(d.dst->isUntouched(failing, 0, 0), row == 0 || late) << d.call;
                    EXPECT_TRUE(failing + 1 == count || d.dst->isUntouched(failing + 1, 0, 0));
                }
    }
}

TEST(CholeskyDecomp, OfElementPointersAtSize3WritesLate)
{
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (int row = 0; row < 3; ++row) {
            Decomposition d(*e, 7, 3, 1, [&](int, int i, int j) {
                return i != j ? 1. : i == row ? -1. : 9.;
            });
            EXPECT_EQ(d.call.run(), zonStsNotPositiveDefinite);
            const bool late = e->description == "P";
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) {
                    const bool isWritten = late ? row == 2 && j <= i && i < 2
                                                : j <= i && (i < row || (i == row && j < i));
                    EXPECT_EQ(d.dst->isUntouched(0, i, j), !isWritten)
                        << d.call << " fails at row " << row << ": (" << i << ", " << j << ')';
                }
        }
}

TEST(CholeskyDecomp, TakesNotANumberAndInfinitiesAtEachPlace)
{
    const double infinity = std::numeric_limits<double>::infinity();
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (int n = 1; n <= 8; ++n)
            for (int place = 0; place < n * n; ++place)
                for (const double value : {nan, infinity, -infinity}) {
                    Random random(seed);
                    const int object = isArray(*e) ? random.below(9) : 0;
                    Decomposition d(*e, seed++, n, 9, [&](int k, int i, int j) {
                        return k == object && i * n + j == place ? value
                                                                 : random.unit() + n * (i == j);
                    });
                    const ZonStatus status = d.check();
                    if (std::isnan(value) || place % n > place / n) {
                        EXPECT_EQ(status, zonStsOk) << d.call;
                    }
                }
}

// What the documentation tells.
TEST(CholeskyDecomp, OfTheExamples)
{
    std::uint64_t seed = 1;
    const auto all = [](double value) { return [=](int, int, int) { return value; }; };
    for (const Export *e : exportsOf("cholesky_decomp")) {
        Decomposition two(*e, seed++, 2, 3, [](int, int i, int j) {
            return j > i ? nan : i == 0 ? 4 : j == 0 ? 2 : 5;
        });
        EXPECT_EQ(two.check(), zonStsOk);
        EXPECT_EQ((*two.dst)(0, 0, 0), 0.5);
        EXPECT_EQ((*two.dst)(0, 1, 0), 1);
        EXPECT_EQ((*two.dst)(0, 1, 1), 0.5);
        EXPECT_TRUE(two.dst->isUntouched(0, 0, 1));
        Decomposition four(*e, seed++, 1, 1, all(4));
        EXPECT_EQ(four.check(), zonStsOk);
        EXPECT_EQ((*four.dst)(0, 0, 0), 0.5);
        for (const double value : {0., -0., -1.})
            EXPECT_EQ(Decomposition(*e, seed++, 1, 1, all(value)).check(),
                      zonStsNotPositiveDefinite);
        for (const int n : sizes)
            EXPECT_EQ(Decomposition(*e, seed++, n, 5, all(nan)).check(), zonStsOk);
        // Tiny pivots at size 3.
        Decomposition tiny(*e, seed++, 3, 3, [](int, int i, int j) { return i == j ? 1e-8 : 0.; });
        EXPECT_EQ(tiny.check(), e->description == "P" ? zonStsNotPositiveDefinite : zonStsOk);
    }
}

// |A - L transpose(L)| <= (n + 1) eps |L| |transpose(L)| for random, graded and nearly singular
// matrices.
TEST(CholeskyDecomp, GivesTheMatrixBack)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (int n = 1; n <= 12; ++n)
            for (int kind = 0; kind < 3; ++kind)
                for (int round = 0; round < 4; ++round) {
                    const bool f32 = elementOf(*e) == Element::f32;
                    // The pivots of a nearly singular matrix stay above all limits.
                    const double nearly = f32 || e->description == "P" ? 1e-4 : 1e-11;
                    Random random(seed);
                    std::vector<double> a(std::size_t(9 * n * n));
                    for (std::size_t k = 0; k < 9; ++k) {
                        std::vector<double> g(std::size_t(n * n));
                        for (double &v : g)
                            v = random.unit() - 0.5;
                        for (int i = 0; i < n; ++i)
                            for (int j = 0; j < n; ++j) {
                                double sum = i == j ? (kind == 2 ? nearly : 0.1) : 0;
                                for (int m = 0; m < (kind == 2 ? (n + 1) / 2 : n); ++m)
                                    sum += g[std::size_t(i * n + m)] * g[std::size_t(j * n + m)];
                                a[k * std::size_t(n * n) + std::size_t(i * n + j)] =
                                    kind == 1 ? std::ldexp(sum, 10 - i - j) : sum;
                            }
                    }
                    Decomposition d(*e, seed++, n, 9, [&](int k, int i, int j) {
                        return a[std::size_t((k * n + i) * n + j)];
                    });
                    ASSERT_EQ(d.call.run(), zonStsOk) << d.call << " kind " << kind;
                    const double eps = f32 ? double(std::numeric_limits<float>::epsilon())
                                           : std::numeric_limits<double>::epsilon();
                    for (int k = 0; k < d.call.count(); ++k)
                        for (int i = 0; i < n; ++i)
                            for (int j = 0; j <= i; ++j) {
                                const auto l = [&](int r, int m) -> long double {
                                    const double stored = (*d.dst)(k, r, m);
                                    return r == m ? 1 / (long double)(stored) : stored;
                                };
                                long double sum = 0, magnitude = 0;
                                for (int m = 0; m <= j; ++m) {
                                    sum += l(i, m) * l(j, m);
                                    magnitude += std::fabs(l(i, m) * l(j, m));
                                }
                                EXPECT_LE(std::fabs(sum - (*d.src)(k, i, j)),
                                          (n + 3) * eps * magnitude)
                                    << d.call << " object " << k << " (" << i << ", " << j << ')';
                            }
                }
}

// Memory behind each diagonal element that nobody may touch.
class Staircase
{
  public:
    Staircase(int size, Element e) : n(size), element(e), page(sysconf(_SC_PAGESIZE))
    {
        memory = static_cast<std::byte *>(
            mmap(nullptr, bytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        for (int i = 0; i < n; ++i)
            mprotect(memory + (2 * i + 1) * page, std::size_t(page), PROT_NONE);
    }
    ~Staircase() { munmap(memory, bytes()); }
    Staircase(const Staircase &) = delete;
    Staircase &operator=(const Staircase &) = delete;

    std::byte *at(int i, int j) const { return base() + i * stride1() + j * sizeOf(element); }
    std::byte *base() const { return memory + page - sizeOf(element); }
    int stride1() const { return int(2 * page) - sizeOf(element); }

  private:
    std::size_t bytes() const { return std::size_t(2 * n * page); }
    int n;
    Element element;
    std::ptrdiff_t page;
    std::byte *memory;
};

TEST(CholeskyDecomp, DoesNotTouchTheUpperTriangle)
{
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (const int n : sizes) {
            // Of element pointers, the upper ones point nowhere.
            constexpr int count = 5;
            std::vector<std::unique_ptr<Staircase>> src, dst;
            std::vector<std::byte *> srcTable, dstTable;
            const Element element = elementOf(*e);
            const bool many = isArray(*e);
            for (int k = 0; k < count; ++k) {
                src.push_back(std::make_unique<Staircase>(n, element));
                dst.push_back(std::make_unique<Staircase>(n, element));
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j <= i; ++j)
                        store(element, src.back()->at(i, j), i == j ? 4 : 0.125);
            }
            if (e->description == "L")
                for (int k = 0; k < count; ++k) {
                    srcTable.push_back(src[std::size_t(k)]->base());
                    dstTable.push_back(dst[std::size_t(k)]->base());
                }
            else
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j < n; ++j) {
                        srcTable.push_back(j > i ? nullptr : src[0]->at(i, j));
                        dstTable.push_back(j > i ? nullptr : dst[0]->at(i, j));
                    }
            std::vector<Argument> arguments;
            for (const ArgumentInfo &a : e->arguments) {
                const bool isDst = a.operand == "dst";
                arguments.push_back(
                    a.role == "pointer"   ? Argument((isDst ? dst : src)[0]->base())
                    : a.role == "table"   ? Argument((isDst ? dstTable : srcTable).data())
                    : a.role == "shift"   ? Argument(0)
                    : a.role == "stride0" ? Argument(sizeOf(element))
                    : a.role == "stride1" ? Argument(src[0]->stride1())
                    : a.role == "stride2" ? Argument(sizeOf(element))
                    : a.name == "count"   ? Argument(e->description == "L" ? count : 1)
                                          : Argument(n));
            }
            ASSERT_EQ(invoke(e->name, arguments, e->name + " on a staircase"), zonStsOk)
                << e->name << ' ' << n;
            const int last = many && e->description == "L" ? count - 1 : 0;
            EXPECT_EQ(load(element, dst[std::size_t(last)]->at(0, 0)), 0.5);
        }
}

// An array is a loop of single calls, also where rows of dst overlap.
TEST(CholeskyDecomp, OfAnArrayIsThatOfEach)
{
    for (const Element element : {Element::f32, Element::f64})
        for (const int n : sizes)
            for (const int pitch : {n, 1})
                for (const int count : {1, 3, 4, 6, 9, 40}) {
                    Random random(std::uint64_t(n * 50 + count));
                    const int size = sizeOf(element), matrix = n * n;
                    std::vector<std::byte> a(std::size_t(count * matrix * size)), l(a.size()),
                        one(a.size());
                    for (int i = 0; i < count * matrix; ++i)
                        store(element, &a[std::size_t(i * size)],
                              random.unit() + (i % matrix % (n + 1) == 0 ? n : 0));
                    ZonStatus each = zonStsOk;
                    for (int k = 0; k < count && each == zonStsOk; ++k) {
                        const auto offset = std::size_t(k * matrix * size);
                        each = invoke(element == Element::f32 ? "zonmCholeskyDecomp_m_32f"
                                                              : "zonmCholeskyDecomp_m_64f",
                                      std::vector<Argument>{&a[offset], n * size, size,
                                                            &one[offset], pitch * size, size, n});
                    }
                    if (pitch == n) {
                        ASSERT_EQ(each, zonStsOk);
                    }
                    ASSERT_EQ(invoke(element == Element::f32 ? "zonmCholeskyDecomp_ma_32f"
                                                             : "zonmCholeskyDecomp_ma_64f",
                                     std::vector<Argument>{a.data(), matrix * size, n * size, size,
                                                           l.data(), matrix * size, pitch * size,
                                                           size, n, count}),
                              each)
                        << n << ' ' << count << ", pitch " << pitch;
                    EXPECT_TRUE(l == one) << n << ' ' << count << ", pitch " << pitch;
                }
}

// Objects whose results meet the sources of others behave as one object after the other, each read
// whole before it is written at sizes 3 to 6, and element by element elsewhere.
TEST(CholeskyDecomp, InOneMemory)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("cholesky_decomp"))
        for (const int n : {1, 2, 3, 4, 5, 6, 7, 8, 17})
            for (const int count : {1, 4, 9}) {
                if (!isArray(*e) && count > 1)
                    continue;
                OneMemory call(*e, seed++, count);
                const Operand &src = call.source("src", {n, n}, dominant(n, seed, 0));
                const Operand &dst = call.output("dst", {n, n});
                call.set("size", n);
                const auto reference = [&] {
                    for (int k = 0; k < call.count(); ++k)
                        if (!cholesky::decompose(dst.element, limitOf(*e, n, src, dst),
                                                 cholesky::writesLate(*e, n), matrixOf(src, k),
                                                 matrixOf(dst, k), n))
                            return zonStsNotPositiveDefinite;
                    return zonStsOk;
                };
                const bool isPathOfItsOwn = n == 2 || n == 3 || n == 6 || n == 7;
                call.check(isPathOfItsOwn ? Meeting::any : Meeting::none, reference);
                call.checkThreads(reference);
            }
}

} // namespace
