// SPDX-License-Identifier: Apache-2.0
// A call of the general eigenproblem judged by the reference, and the matrices that its two tests
// share.
#pragma once

#include <complex>
#include <functional>
#include <limits>
#include <set>

#include "eigen_call.hpp"
#include "eigen_vectors_reference.hpp"

namespace test::eigen
{

struct GeneralProblem {
    Call call;
    const Export &e;
    const eigen_general::Kind kind;
    const int n;
    Operand *src, *re, *im, *right = nullptr, *left = nullptr;
    std::unique_ptr<Buffer> buffer;
    std::vector<eigen_general::Result> results; // of the reference, object by object

    template <class V>
    GeneralProblem(const Export &callee, std::uint64_t seed, int size, int count, V matrix,
                   Spread spread = Spread::any, bool inPlace = false)
        : call(callee, seed, isArray(callee) ? count : 1, spread), e(callee),
          kind(eigen_general::kindOf(callee)), n(size)
    {
        using eigen_general::Kind;
        src = &call.source("src", {n, n}, matrix);
        const auto output = [&](const char *name) {
            return inPlace && right == nullptr ? &call.outputInPlaceOf("src", name)
                                               : &call.output(name, {n, n});
        };
        if (kind == Kind::right || kind == Kind::left)
            (kind == Kind::right ? right : left) = output("dstVectors");
        if (kind == Kind::both) {
            right = output("dstRight");
            left = output("dstLeft");
        }
        re = &call.plainOutput("dstValuesRe", n * call.count());
        im = &call.plainOutput("dstValuesIm", n * call.count());
        // The kernel for values alone uses less than the query asks for.
        const int elements = kind == Kind::values ? n * (n + 2) : n * (3 * n + 5);
        buffer = std::make_unique<Buffer>(
            elementOf(e), std::size_t(elements * sizeOf(elementOf(e))), call.random());
        call.set("buffer", buffer->address()).set("size", n);
    }

    ZonStatus check()
    {
        const ZonStatus status = call.run();
        buffer->expectSurroundingsUntouched();
        return judge(status);
    }
    ZonStatus judge(ZonStatus status)
    {
        eigen_general::Solver solver(kind, elementOf(e));
        ZonStatus wanted = zonStsOk;
        bool reached = true;
        results.clear();
        for (int k = 0; k < call.count(); ++k) {
            eigen_general::Result r;
            r.re.resize(std::size_t(n));
            r.im.resize(std::size_t(n));
            if (reached) {
                r = solver.solve(n, matrix(k));
                wanted = r.status;
                reached = wanted == zonStsOk && !r.lostBlock;
                results.push_back(r);
            }
            for (int i = 0; i < n; ++i) {
                expectElement(call, *re, 0, k * n + i, 0, r.re[std::size_t(i)], "dstValuesRe");
                expectElement(call, *im, 0, k * n + i, 0, r.im[std::size_t(i)], "dstValuesIm");
                for (int j = 0; j < n; ++j) {
                    const auto element = [&](eigen_general::Square &m) {
                        return r.writesVectors ? std::optional(m(i + 1, j + 1)) : std::nullopt;
                    };
                    for (auto [o, m] : {std::pair(right, &r.right), std::pair(left, &r.left)})
                        if (o && (r.writesVectors || o->memory != src->memory))
                            expectElement(call, *o, k, i, j, element(*m),
                                          o == right ? "right vectors" : "left vectors");
                }
            }
        }
        EXPECT_EQ(status, wanted) << call;
        return status;
    }
    Matrix matrix(int k) const
    {
        Matrix a(std::size_t(n * n));
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j)
                a[std::size_t(i * n + j)] = src->before(k, i, j);
        return a;
    }
    // A real pair was reported as a complex one, or left without a rotation.
    bool hasEqualDiagonal() const
    {
        for (auto r : results)
            if (r.cases.count(30) || r.cases.count(50))
                return true;
        return false;
    }
};

inline constexpr int generalSizes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 12};

inline void checkEveryClass(const char *family)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const int n : generalSizes)
            for (const int count : {1, 2, 3}) {
                for (const Values values : allValues())
                    GeneralProblem(*e, seed++, n, count, values).check();
                for (int round = 0; round < 6; ++round)
                    GeneralProblem(*e, seed++, n, count + 2, Values::uniform).check();
                if (!isArray(*e))
                    break;
            }
    for (const Export *e : exportsOf(family))
        for (const int n : {15, 20})
            for (int round = 0; round < 3; ++round)
                GeneralProblem(*e, seed++, n, 2, Values::uniform).check();
}

using Shape2 = std::function<double(Random &, int n, int i, int j)>;

// Matrices that the stages treat each in their way.
inline std::vector<std::pair<const char *, Shape2>> generalGallery()
{
    const auto u = [](Random &random) { return 2 * random.unit() - 1; };
    return {
        {"companion",
         [=](Random &r, int n, int i, int j) { return i == 0 ? u(r) : double(i == j + 1 && n); }},
        {"rotation",
         [](Random &, int, int i, int j) {
             return i == j ? 0.6 : i / 2 == j / 2 ? (i < j ? -0.8 : 0.8) : 0;
         }},
        {"cyclic permutation",
         [](Random &, int n, int i, int j) { return double((i + 1) % n == j); }},
        {"exchange", [](Random &, int n, int i, int j) { return double(i + j == n - 1); }},
        {"Jordan block",
         [](Random &, int, int i, int j) { return i == j ? 0.5 : double(i == j + 1); }},
        {"Jordan block, transposed",
         [](Random &, int, int i, int j) { return i == j ? 0.5 : double(j == i + 1); }},
        {"nearly defective",
         [](Random &r, int, int i, int j) {
             return i == j ? 0.5 + 1e-9 * i : j == i + 1 ? 1 : 1e-12 * r.unit();
         }},
        {"graded", [=](Random &r, int, int i, int j) { return std::ldexp(u(r), -3 * (i + j)); }},
        {"graded upwards",
         [=](Random &r, int, int i, int j) { return std::ldexp(u(r), 3 * (i - j)); }},
        {"Hilbert", [](Random &, int, int i, int j) { return 1. / (1 + i + j); }},
        {"upper triangle", [=](Random &r, int, int i, int j) { return i <= j ? u(r) : 0; }},
        {"lower triangle", [=](Random &r, int, int i, int j) { return i >= j ? u(r) : 0; }},
        {"diagonal", [](Random &, int, int i, int j) { return i == j ? 1. + i : 0; }},
        {"identity", [](Random &, int, int i, int j) { return double(i == j); }},
        {"zero", [](Random &, int, int, int) { return 0.; }},
        {"equal elements", [](Random &, int, int, int) { return 0.25; }},
        {"blocks of pairs",
         [=](Random &r, int, int i, int j) {
             return i == j           ? 1. + i / 2
                    : i / 2 == j / 2 ? (i < j ? -1 - r.unit() : 1)
                    : i < j          ? 0.5 * u(r)
                                     : 0;
         }},
        {"blocks of pairs, transposed",
         [=](Random &r, int, int i, int j) {
             return i == j           ? 1. + i / 2
                    : i / 2 == j / 2 ? (i < j ? -1 - r.unit() : 1)
                    : i > j          ? 0.5 * u(r)
                                     : 0;
         }},
        {"equal pairs below one another",
         [](Random &, int, int i, int j) {
             return i == j ? 1 : i / 2 == j / 2 ? (i < j ? -1 : 1) : i > j ? 0.25 : 0;
         }},
        {"equal pairs, transposed",
         [](Random &, int, int i, int j) {
             return i == j ? 1 : i / 2 == j / 2 ? (i < j ? -1 : 1) : i < j ? 0.25 : 0;
         }},
        {"symmetric blocks",
         [](Random &, int, int i, int j) {
             return i == j ? 1. + i / 2 : i / 2 == j / 2 ? 2 : i > j ? 0.125 : 0;
         }},
        {"one symmetric block behind",
         [](Random &, int n, int i, int j) {
             return i == j                     ? (i < n - 2 ? 3. + i : 1)
                    : i >= n - 2 && j >= n - 2 ? 2
                    : i > j                    ? 0.25
                                               : 0;
         }},
        {"skew",
         [](Random &, int, int i, int j) {
             return i == j ? 0 : i < j ? -1. / (i + j) : 1. / (i + j);
         }},
        {"nearly equal values",
         [](Random &, int, int i, int j) {
             return i == j       ? 1 + (i % 2) * 0x1p-30
                    : i == j + 1 ? 0x1p-26
                    : j == i + 1 ? 0x1p-27
                                 : 0;
         }},
        {"nearly equal values, opposite",
         [](Random &, int, int i, int j) {
             return i == j       ? 1 + (i % 2) * 0x1p-9
                    : i == j + 1 ? 0x1p-12
                    : j == i + 1 ? -0x1p-13
                                 : 0;
         }},
        {"defective blocks",
         [](Random &, int, int i, int j) {
             return i == j ? (i % 2 ? 2. : -6.) : i / 2 != j / 2 ? 0 : i < j ? 4 : -4;
         }},
        {"small integers", [](Random &r, int, int, int) { return double(r.between(-2, 2)); }},
        {"zeros and ones", [](Random &r, int, int, int) { return double(r.oneIn(3)); }},
        {"growing",
         [](Random &, int n, int i, int j) { return i == j  ? 1 + 1e-7 * i
                                                    : i > j ? 1e5
                                                            : 0 * n; }},
    };
}

template <class F> void forGallery(const char *family, F visit)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const int n : {2, 3, 4, 5, 6, 7, 9})
            for (const auto &[what, element] : generalGallery())
                for (const int power : {0, -130, -30, 10, 100, -500, 400}) {
                    if (std::abs(power) > 120 && elementOf(*e) == Element::f32 && power != -130)
                        continue;
                    const std::uint64_t s = seed++;
                    const double scale = std::ldexp(1, power);
                    visit(GeneralProblem(*e, s, n, 2,
                                         [&, element = element](int k, int i, int j) {
                                             Random random(s * 1000 +
                                                           std::uint64_t(k * 100 + i * n + j));
                                             random.bits();
                                             return scale * element(random, n, i, j);
                                         }),
                          what, power);
                }
}

// Checks the gallery and graded random matrices. What the reference met there, with the type in
// front.
inline std::set<std::string> checkGallery(const char *family)
{
    std::set<std::string> seen;
    const auto note = [&](GeneralProblem &p) {
        p.check();
        for (const auto &r : p.results) {
            const auto add = [&](const std::string &event) {
                seen.insert(p.e.element + ' ' + event);
            };
            for (const auto &[which, times] : r.cases)
                add("case " + std::to_string(which));
            if (r.status == zonStsNoConvergence && !r.vanished)
                add("no convergence");
            if (r.sweeps > 10)
                add("exceptional shift");
            if (r.lostBlock)
                add(r.status == zonStsOk ? "real block" : "complex block");
            if (r.vanished)
                add("vanished");
            if (r.scaled)
                add("scaled");
            if (r.hadNoRotation)
                add("no rotation");
        }
    };
    forGallery(family, [&](GeneralProblem p, const char *what, int power) {
        SCOPED_TRACE(std::string(what) + " * 2^" + std::to_string(power));
        note(p);
    });
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (int round = 0; round < 400; ++round) {
            Random random(++seed);
            random.bits();
            const int spread = random.between(0, 40);
            GeneralProblem p(*e, seed, 2 + round % 5, 1, [&](int, int, int) {
                return random.oneIn(4) ? 0 : randomScale(random, -spread, 0);
            });
            note(p);
        }
    return seen;
}

inline void checkSpecialValues(const char *family)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (int n = 1; n <= 5; ++n)
            for (int place = 0; place < n * n; ++place)
                for (const double value : {std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::infinity(),
                                           -std::numeric_limits<double>::infinity()}) {
                    const std::uint64_t s = seed++;
                    const int object = int(s % 2);
                    Random random(s);
                    GeneralProblem(*e, s, n, 2, [&](int k, int i, int j) {
                        return k == object && i * n + j == place ? value : random.unit() - 0.5;
                    }).check();
                }
}

// An object that does not converge, at each place of an array.
inline void checkFailingObjects(const char *family)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family)) {
        if (!isArray(*e))
            continue;
        for (int n = 3; n <= 7; ++n)
            for (int count = 1; count <= 4; ++count)
                for (int failing = 0; failing < count; ++failing) {
                    Random random(seed);
                    GeneralProblem p(*e, seed++, n, count, [&](int k, int, int) {
                        return k == failing ? std::numeric_limits<double>::quiet_NaN()
                                            : random.unit() - 0.5;
                    });
                    EXPECT_EQ(p.check(), zonStsNoConvergence) << p.call;
                    for (int k = failing; k < count; ++k)
                        EXPECT_TRUE(p.re->isUntouched(0, k * n));
                }
    }
}

// The same call again: the buffer then holds what the first call left in it.
inline void checkBufferContents(const char *family)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const int n : generalSizes) {
            GeneralProblem p(*e, seed++, n, 3, Values::uniform);
            const ZonStatus status = p.check();
            EXPECT_EQ(p.call.run(), status);
            p.judge(status);
        }
}

} // namespace test::eigen
