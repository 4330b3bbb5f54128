// SPDX-License-Identifier: Apache-2.0
// The symmetric eigenproblem: values, vectors, statuses and what they leave, to the last bit.
#include <functional>
#include <limits>
#include <set>

#include "eigen_call.hpp"
#include "eigen_sym_reference.hpp"

using namespace test;
using namespace test::eigen;

namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

// A call with random layout, judged by the reference object after object.
struct Problem {
    Call call;
    const Export &e;
    int n;
    const Operand *src, *values, *vectors = nullptr;
    std::unique_ptr<Buffer> buffer;

    template <class V>
    Problem(const Export &callee, std::uint64_t seed, int size, int count, V matrix,
            Spread spread = Spread::any, bool inPlace = false)
        : call(callee, seed, isArray(callee) ? count : 1, spread), e(callee), n(size)
    {
        src = &call.source("src", {n, n}, matrix);
        if (callee.operation == "zonmEigenValuesVectorsSym")
            vectors = inPlace ? &call.outputInPlaceOf("src", "dstVectors")
                              : &call.output("dstVectors", {n, n});
        values = &call.plainOutput("dstValues", n * call.count());
        buffer = std::make_unique<Buffer>(elementOf(e), std::size_t(n * n * sizeOf(elementOf(e))),
                                          call.random());
        call.set("buffer", buffer->address()).set("size", n);
    }

    bool isContiguous() const
    {
        const auto dense = [](const Operand &o) { return o.layout.stride2 == sizeOf(o.element); };
        return dense(*src) && (!vectors || dense(*vectors));
    }
    eigen_sym::Form form() const { return eigen_sym::formOf(e, isContiguous()); }
    eigen_sym::Result reference(int k) const { return reference(k, form()); }
    eigen_sym::Result reference(int k, const eigen_sym::Form &f) const
    {
        Matrix a(std::size_t(n * n));
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                a[std::size_t(i * n + j)] = src->before(k, i, j);
        return eigen_sym::solve(f, elementOf(e), n, a);
    }

    // The status, after all that the call left is compared.
    ZonStatus check()
    {
        const ZonStatus status = call.run();
        buffer->expectSurroundingsUntouched();
        ZonStatus wanted = zonStsOk;
        for (int k = 0; k < call.count(); ++k) {
            eigen_sym::Result r;
            r.values.resize(std::size_t(n));
            r.vectors.resize(std::size_t(n * n));
            if (wanted == zonStsOk) {
                r = reference(k);
                wanted = r.status;
            }
            for (int i = 0; i < n; ++i) {
                expectElement(call, *values, 0, k * n + i, 0, r.values[std::size_t(i)],
                              "dstValues");
                for (int j = 0; vectors && j < n; ++j)
                    if (const auto q = r.vectors[std::size_t(i * n + j)]; q || !isInPlace())
                        expectElement(call, *vectors, k, i, j, q, "dstVectors");
            }
        }
        EXPECT_EQ(status, wanted) << call;
        return status;
    }
    // The results of the call's first object are those of `r`.
    bool isLike(const eigen_sym::Result &r, ZonStatus status) const
    {
        const auto same = [](const Operand &o, int i, int j, std::optional<double> wanted) {
            return wanted ? sameBits(o(0, i, j), *wanted) : o.isUntouched(0, i, j);
        };
        bool all = status == r.status;
        for (int i = 0; i < n; ++i) {
            all &= same(*values, i, 0, r.values[std::size_t(i)]);
            for (int j = 0; vectors && j < n; ++j)
                all &= same(*vectors, i, j, r.vectors[std::size_t(i * n + j)]);
        }
        return all;
    }

  private:
    bool isInPlace() const { return vectors && vectors->memory == src->memory; }
};

constexpr int sizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 13};

// A symmetric matrix of every object from a function of the seed; the upper triangle is mirrored.
Call::Generator symmetric(std::uint64_t seed, std::function<double(Random &, int i, int j)> draw)
{
    return [=](int k, int i, int j) {
        Random random(seed * 7919 +
                      std::uint64_t(k * 10007 + std::min(i, j) * 101 + std::max(i, j)));
        random.bits();
        return draw(random, std::min(i, j), std::max(i, j));
    };
}
double uniform(Random &random, int, int) { return 2 * random.unit() - 1; }

TEST(EigenSym, IsTheReference)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_sym"))
        for (const int n : sizes)
            for (const int count : {1, 2, 3, 4, 7}) {
                for (const Values values : allValues()) {
                    // Symmetric or not: nothing tests for it.
                    const std::uint64_t s = seed++;
                    const Element type = elementOf(*e);
                    Problem(*e, s, n, count, symmetric(s, [&](Random &random, int, int) {
                        return draw(values, type, random);
                    })).check();
                    Problem(*e, s, n, count, values).check();
                }
                if (!isArray(*e))
                    break;
            }
}

TEST(EigenSym, IsTheReferenceForMany)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_sym"))
        for (const int n : {2, 3, 4, 5, 6, 7, 8, 9, 16, 20})
            for (const Spread spread : {Spread::dense, Spread::denseRows, Spread::strided})
                for (const int power : {0, -1, -3}) {
                    const double scale = std::ldexp(1, power);
                    Problem(*e, seed, n, 40,
                            symmetric(seed,
                                      [=](Random &random, int i, int j) {
                                          return scale * uniform(random, i, j) + 0.5 * (i == j);
                                      }),
                            spread)
                        .check();
                    ++seed;
                }
}

TEST(EigenSym, InPlaceIsTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_sym"))
        for (const int n : sizes)
            if (n > 1 && e->operation == "zonmEigenValuesVectorsSym")
                for (const int count : {1, 2, 5}) {
                    Problem(*e, seed, n, count, symmetric(seed, uniform), Spread::any, true)
                        .check();
                    ++seed;
                }
}

// Matrices of many kinds near the limits: small columns, columns that are reduced already, blocks,
// small products, equal diagonals. The numbers are drawn for each matrix as a whole.
Matrix nearLimits(int n, Random &random)
{
    Matrix a(std::size_t(n * n));
    const int kind = random.below(6);
    const int power = random.between(-60, 2), low = random.between(-45, 0);
    for (int i = 0; i < n; ++i)
        for (int j = i; j < n; ++j) {
            double x = 0;
            switch (kind) {
            case 0:
                x = i == j ? randomScale(random, -6, 0) : randomScale(random, power - 2, power);
                break;
            case 1: x = randomScale(random, low, 0); break;
            case 2: // tridiagonal, with a tail
                x = j == i       ? randomScale(random, -2, 1)
                    : j == i + 1 ? std::fabs(randomScale(random, -10, 0))
                                 : randomScale(random, power, power);
                break;
            case 3: // blocks
                x = i == j                            ? randomScale(random, -8, 0)
                    : (j == i + 1 && random.oneIn(2)) ? randomScale(random, -3, 0)
                                                      : 0;
                break;
            case 4: // nearly equal diagonals
                x = i == j       ? std::ldexp(random.between(1, 3), power) + (i == n - 1 ? 0.5 : 0)
                    : j == i + 1 ? randomScale(random, -2, 0)
                                 : 0;
                break;
            default: x = randomScale(random, -20, -8); break;
            }
            a[std::size_t(i * n + j)] = a[std::size_t(j * n + i)] = x;
        }
    return a;
}

// Each entry of the table of forms, changed by itself, would be noticed in each export: among the
// matrices near the limits is one whose results the change alters.
TEST(EigenSym, EachDifferenceOfTheFormsShows)
{
    using eigen_sym::Form;
    const std::pair<const char *, std::function<void(Form &)>> changes[] = {
        {"small columns", [](Form &f) { f.smallColumnTest = !f.smallColumnTest; }},
        {"reduced columns", [](Form &f) { f.reducedColumnTest = !f.reducedColumnTest; }},
        {"product", [](Form &f) { f.productAtEachStop = !f.productAtEachStop; }},
        {"decision", [](Form &f) { f.decidesAfterSort = !f.decidesAfterSort; }},
        {"rotation", [](Form &f) { f.rotatesByReciprocal = !f.rotatesByReciprocal; }},
        {"tolerance of size 2",
         [](Form &f) { f.determinantEps = f.determinantEps > 1e-10 ? 0x1p-52 : 0x1p-23; }},
        {"tolerance of the reduction",
         [](Form &f) { f.reductionEps = f.reductionEps > 1e-10 ? 0x1p-52 : 0x1p-23; }},
        {"sign of the shift", [](Form &f) { f.shiftSignQL = f.shiftSignQL > 0 ? 0 : f.eps; }},
        {"threshold", [](Form &f) { f.threshold = f.threshold > 1e-10 ? 0x1p-52 : 0x1p-23; }},
    };
    for (const Export *e : exportsOf("eigen_sym"))
        for (const bool contiguous : {true, false}) {
            if (!contiguous && e->description == "P")
                continue;
            std::set<std::string> unseen;
            for (const auto &[what, change] : changes)
                unseen.insert(what);
            for (std::uint64_t seed = 1; seed <= 3000; ++seed) {
                Random random(seed);
                for (int i = 0; i < 5; ++i)
                    random.bits();
                const int n = 2 + int(seed % 5);
                const Matrix a = nearLimits(n, random);
                Problem p(
                    *e, seed, n, 1, [&](int, int i, int j) { return a[std::size_t(i * n + j)]; },
                    contiguous ? Spread::denseRows : Spread::strided);
                if (e->description != "P" && p.isContiguous() != contiguous)
                    continue;
                const ZonStatus status = p.check();
                for (const auto &[what, change] : changes) {
                    Form f = p.form();
                    change(f);
                    if (unseen.count(what) && !p.isLike(p.reference(0, f), status))
                        unseen.erase(what);
                }
            }
            // Without vectors there are no rotations of them.
            if (e->operation == "zonmEigenValuesSym")
                unseen.erase("rotation");
            for (const std::string &what : unseen)
                ADD_FAILURE() << e->name << (contiguous ? ", contiguous" : ", general")
                              << ": nothing shows its " << what;
        }
}

// Failures ---------------------------------------------------------------------------------------

Matrix diagonal(std::vector<double> d)
{
    const std::size_t n = d.size();
    Matrix a(n * n);
    for (std::size_t i = 0; i < n; ++i)
        a[i * n + i] = d[i];
    return a;
}
// One object differs from the others.
Call::Generator except(int n, int object, Matrix odd, Call::Generator others)
{
    return [=](int k, int i, int j) {
        return k == object ? odd[std::size_t(i * n + j)] : others(k, i, j);
    };
}

TEST(EigenSym, EndsAtTheFirstObjectThatFails)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_sym")) {
        if (!isArray(*e))
            continue;
        for (int n = 2; n <= 9; ++n)
            for (int count = 1; count <= 6; ++count)
                for (int failing = 0; failing < count; ++failing)
                    for (const bool converges : {true, false}) {
                        if (n == 2 && !converges)
                            continue;
                        const auto good = [](int, int i, int j) {
                            return i == j ? 1 + 0.25 * i : 0.125 / (1 + i + j);
                        };
                        // Infinite off the diagonal: no sweep ever makes an element small.
                        Matrix bad = diagonal(std::vector<double>(std::size_t(n), 0));
                        if (!converges)
                            bad[1] = bad[std::size_t(n)] = infinity;
                        Problem p(*e, seed++, n, count, except(n, failing, bad, good));
                        EXPECT_EQ(p.check(), converges ? zonStsSingular : zonStsNoConvergence)
                            << p.call;
                        for (int k = failing + 1; k < count; ++k)
                            EXPECT_TRUE(p.values->isUntouched(0, k * n));
                    }
    }
}

// A failing object leaves all values and vectors from size 3 on, in the order that its form tells.
TEST(EigenSym, ASingularObjectLeavesItsResults)
{
    for (const Export *e : exportsOf("eigen_sym"))
        for (const Spread spread : {Spread::denseRows, Spread::strided}) {
            const Matrix a = diagonal({0.5, 0, 2, 0.75}); // QL
            Problem p(
                *e, 5, 4, 1, [&](int, int i, int j) { return a[std::size_t(i * 4 + j)]; }, spread);
            EXPECT_EQ(p.check(), zonStsSingular);
            const bool sorted = p.form().decidesAfterSort;
            const double inOrder[] = {2, 0.75, 0.5, 0}, asTheyStand[] = {0.5, 0, 2, 0.75};
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ((*p.values)(0, i), sorted ? inOrder[i] : asTheyStand[i]) << p.call;
        }
}

// What the documentation tells -------------------------------------------------------------------

ZonStatus solveOne(const Export &e, const Matrix &a, int n, Spread spread = Spread::any,
                   std::function<void(const Problem &)> look = {})
{
    Problem p(
        e, 11, n, 3, [&](int, int i, int j) { return a[std::size_t(i * n + j)]; }, spread);
    const ZonStatus status = p.check();
    if (look)
        look(p);
    return status;
}

TEST(EigenSym, OfTheExamples)
{
    for (const Export *e : exportsOf("eigen_sym")) {
        const auto vectorsAre = [&](const Problem &p, std::vector<double> wanted) {
            for (int i = 0; p.vectors && i < p.n; ++i)
                for (int j = 0; j < p.n; ++j)
                    EXPECT_TRUE(sameBits((*p.vectors)(0, i, j), wanted[std::size_t(i * p.n + j)]))
                        << p.call << " (" << i << ", " << j << ')';
        };
        const auto valuesAre = [&](const Problem &p, std::vector<double> wanted) {
            for (int i = 0; i < p.n; ++i)
                EXPECT_EQ((*p.values)(0, i), wanted[std::size_t(i)]) << p.call;
        };
        EXPECT_EQ(solveOne(*e, {0}, 1, Spread::any,
                           [&](auto &p) {
                               valuesAre(p, {0});
                               vectorsAre(p, {1});
                           }),
                  zonStsOk);
        EXPECT_EQ(solveOne(*e, {nan}, 1), zonStsOk);
        EXPECT_EQ(solveOne(*e, diagonal({0, 0}), 2), zonStsSingular);
        EXPECT_EQ(solveOne(*e, {1, 1, 1, 1}, 2), zonStsSingular);
        EXPECT_EQ(solveOne(*e, diagonal({1, 1}), 2, Spread::any,
                           [&](auto &p) {
                               valuesAre(p, {1, 1});
                               vectorsAre(p, {-0., -1, 1, -0.});
                           }),
                  zonStsOk);
        EXPECT_EQ(solveOne(*e, diagonal({1, 2}), 2, Spread::any,
                           [&](auto &p) {
                               valuesAre(p, {2, 1});
                               vectorsAre(p, {0, -1, 1, 0});
                           }),
                  zonStsOk);
        EXPECT_EQ(solveOne(*e, diagonal({-1, -2}), 2, Spread::any,
                           [&](auto &p) {
                               valuesAre(p, {-2, -1});
                           }),
                  zonStsOk);
        // The lower element of size 2 is not used.
        EXPECT_EQ(solveOne(*e, {1, 0, nan, 2}, 2), zonStsOk);
        EXPECT_EQ(solveOne(*e, diagonal({0, 0, 0}), 3, Spread::any,
                           [&](auto &p) {
                               valuesAre(p, {0, 0, 0});
                           }),
                  zonStsSingular);
        EXPECT_EQ(solveOne(*e, diagonal({1, 1, 1}), 3, Spread::any,
                           [&](auto &p) {
                               valuesAre(p, {1, 1, 1});
                               vectorsAre(p, diagonal({1, 1, 1}));
                           }),
                  zonStsOk);
        if (e->element == "64f" && e->operation == "zonmEigenValuesVectorsSym") {
            EXPECT_EQ(solveOne(*e, diagonal({1e-5, 1e-5, 1}), 3),
                      isArray(*e) ? zonStsSingular : zonStsOk);
        }
        // Ends of equal magnitude: the QR form.
        Problem equal(*e, 3, 3, 1, [](int, int i, int j) {
            return i == j ? (i == 1 ? 3. : i == 0 ? -2. : 2.) : 0;
        });
        EXPECT_EQ(equal.check(), zonStsOk);
        EXPECT_FALSE(equal.reference(0).isQL);
    }
}

TEST(EigenSym, TakesNotANumberAndInfinitiesAtEachPlace)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_sym"))
        for (int n = 1; n <= 7; ++n)
            for (int place = 0; place < n * n; ++place)
                for (const double value : {nan, infinity, -infinity}) {
                    const int object = int(seed % 3);
                    const auto others = symmetric(seed, uniform);
                    Problem(*e, seed, n, 3, [&](int k, int i, int j) {
                        return k == object && i * n + j == place ? value : others(k, i, j);
                    }).check();
                    ++seed;
                }
}

// Properties -------------------------------------------------------------------------------------

// Matrices that applications meet, of norm about 1; the tolerance is absolute.
std::vector<std::pair<const char *, std::function<double(int n, int i, int j)>>> gallery()
{
    return {
        {"Hilbert, shifted",
         [](int, int i, int j) { return 0.5 / (1 + i + j) + (i == j ? 0.75 : 0); }},
        {"second difference",
         [](int, int i, int j) { return i == j                 ? 0.5
                                        : std::abs(i - j) == 1 ? -0.2
                                                               : 0; }},
        {"graded",
         [](int, int i, int j) { return std::ldexp(1, -(i + j) / 2) * (i == j ? 1 : 0.1); }},
        {"graded upwards",
         [](int n, int i, int j) { return std::ldexp(1, (i + j) / 2 - n) * (i == j ? 1 : 0.1); }},
        {"exchange", [](int n, int i, int j) { return i + j == n - 1 ? 1 : 0; }},
        {"reflection", [](int n, int i, int j) { return (i == j ? 1 : 0) - 2. / n; }},
        {"of one pair apart",
         [](int, int i, int j) { return (i == j ? 0.5 : 0) + 0.25 * (i + j == 1); }},
        {"indefinite",
         [](int, int i, int j) { return i == j ? (i % 2 ? -0.75 : 0.75) : 0.1 / (1 + i * j); }},
    };
}

// Up to roundings and to what the stages neglect: a column that the reduction passes over, the
// elements of a sweep that counts as broken off. Its update is then lost, however large it is.
TEST(EigenSym, GivesTheMatrixBack)
{
    int solved = 0, broken = 0;
    for (const Export *e : exportsOf("eigen_sym"))
        for (int n = 1; n <= 12; ++n)
            for (const auto &[what, element] : gallery()) {
                Problem p(*e, std::uint64_t(n), n, 3, [&, element = element](int k, int i, int j) {
                    return element(n, i, j) * (1 + 0.125 * k);
                });
                p.check();
                const double eps = e->element == "32f" ? 0x1p-23 : 0x1p-52;
                for (int k = 0; k < p.call.count(); ++k) {
                    const auto r = p.reference(k);
                    if (r.status == zonStsNoConvergence || (r.status != zonStsOk && n == 2))
                        break;
                    ++solved;
                    broken += r.brokenSweeps > 0;
                    const double rounding = 8 * n * eps, bound = rounding + r.neglected;
                    const auto a = [&](int i, int j) { return (*p.src)(k, i, j); };
                    const auto value = [&](int i) { return (*p.values)(0, k * n + i); };
                    const bool isSorted = r.status == zonStsOk || p.form().decidesAfterSort;
                    long double trace = 0, sum = 0;
                    for (int i = 0; i < n; ++i) {
                        trace += a(i, i);
                        sum += value(i);
                        if (n > 2 && i > 0 && isSorted) {
                            EXPECT_GE(value(i - 1), value(i)) << p.call << ' ' << what;
                        }
                    }
                    if (n == 2) {
                        EXPECT_GE(std::fabs(value(0)), std::fabs(value(1)));
                    }
                    EXPECT_LE(std::fabs(trace - sum), bound) << p.call << ' ' << what;
                    for (int c = 0; p.vectors && c < n; ++c) {
                        long double length = 0;
                        for (int i = 0; i < n; ++i) {
                            long double residual = -(long double)value(c) * (*p.vectors)(k, i, c);
                            for (int j = 0; j < n; ++j)
                                residual += (long double)a(i, j) * (*p.vectors)(k, j, c);
                            length += residual * residual;
                        }
                        EXPECT_LE(std::sqrt(length), bound)
                            << p.call << ' ' << what << ", neglected " << r.neglected;
                        for (int d = 0; d <= c; ++d) {
                            long double product = c == d ? -1 : 0;
                            for (int i = 0; i < n; ++i)
                                product +=
                                    (long double)(*p.vectors)(k, i, c) * (*p.vectors)(k, i, d);
                            EXPECT_LE(std::fabs(product), rounding) << p.call << ' ' << what;
                        }
                    }
                    if (r.status != zonStsOk)
                        break;
                }
            }
    EXPECT_GT(solved, 3000);
    EXPECT_GT(broken, 100);
}

// The tolerances are absolute: scaled down far enough, everything off the diagonal counts as zero.
TEST(EigenSym, ToleratesAbsolutely)
{
    for (const Export *e : exportsOf("eigen_sym"))
        for (const int n : {3, 4, 6})
            for (int power = -70; power <= 40; ++power) {
                const double scale = std::ldexp(1, power);
                Problem(*e, std::uint64_t(power + 100), n, 3, [&](int k, int i, int j) {
                    return scale * (i == j ? 1 + 0.25 * i - 0.5 * k : 0.3 / (1 + i + j));
                }).check();
            }
}

// Objects one after the other ---------------------------------------------------------------------

// The vectors of one object may lie where the source of the next one is: the next one reads them.
TEST(EigenSym, OfOverlappingObjectsGoesOneByOne)
{
    for (const int n : {3, 4, 5, 8, 9}) {
        const int count = 6, object = n * n;
        std::vector<double> wanted(std::size_t((count + 1) * object)),
            values(std::size_t(n * count)), buffer(static_cast<std::size_t>(object));
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                wanted[std::size_t(i * n + j)] = i == j ? 1 + 0.25 * i : 0.125 / (1 + i + j);
        std::vector<double> got = wanted, gotValues = values;
        for (int k = 0; k < count; ++k)
            ASSERT_EQ(zonmEigenValuesVectorsSym_ma_64f(wanted.data() + k * object, 8, n * 8, 8,
                                                       buffer.data(),
                                                       wanted.data() + (k + 1) * object, 8, n * 8,
                                                       8, values.data() + k * n, n, 1),
                      zonStsOk);
        EXPECT_EQ(zonmEigenValuesVectorsSym_ma_64f(got.data(), object * 8, n * 8, 8, buffer.data(),
                                                   got.data() + object, object * 8, n * 8, 8,
                                                   gotValues.data(), n, count),
                  zonStsOk);
        EXPECT_EQ(got, wanted) << n;
        EXPECT_EQ(gotValues, values) << n;
        // All values in one place, where the sources are.
        std::vector<double> one(std::size_t(object + 1), 0.0), many;
        for (int i = 0; i < object; ++i)
            one[std::size_t(i)] = i % (n + 1) == 0 ? 1 + 0.25 * i / n : 0.0625;
        one.resize(std::size_t(object + n * count));
        many = one;
        ZonStatus status = zonStsOk;
        for (int k = 0; k < count && status == zonStsOk; ++k)
            status = zonmEigenValuesSym_ma_64f(one.data() + k, 8, n * 8, 8, buffer.data(),
                                               one.data() + n * k, n, 1);
        EXPECT_EQ(zonmEigenValuesSym_ma_64f(many.data(), 8, n * 8, 8, buffer.data(), many.data(), n,
                                            count),
                  status);
        EXPECT_EQ(many, one) << n;
    }
}

} // namespace
