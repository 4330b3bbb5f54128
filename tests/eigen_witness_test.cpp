// SPDX-License-Identifier: Apache-2.0
// The eigenproblems beside LAPACK's dsyev and dgeev, on spectra whose values are well apart: the
// same values, and the same vectors up to sign or phase. LAPACK reads the same memory by columns,
// and so means the transpose of src, as the general functions do.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <vector>

#include "support/call.hpp"
#include "zonm.h"

extern "C" {
void dsyev_(const char *vectors, const char *triangle, const int *n, double *a, const int *lda,
            double *values, double *work, const int *length, int *info);
void dgeev_(const char *left, const char *right, const int *n, double *a, const int *lda,
            double *re, double *im, double *l, const int *ldl, double *r, const int *ldr,
            double *work, const int *length, int *info);
}

using namespace test;

namespace
{

using Complex = std::complex<double>;
using Column = std::vector<Complex>;

struct Problem {
    int n;
    std::vector<double> a; // row by row, exact in the element type
};

double epsilonOf(const Export &e) { return e.element == "32f" ? 0x1p-23 : 0x1p-52; }

// A matrix turned by reflections at random vectors, rounded to the element type.
Problem turned(const Export &e, Random &random, std::vector<double> a, int n)
{
    const auto at = [&](int i, int j) -> double & { return a[std::size_t(i * n + j)]; };
    for (int round = 0; round < 3; ++round) {
        std::vector<double> u(static_cast<std::size_t>(n));
        double square = 0;
        for (double &x : u) {
            x = random.unit() - 0.5;
            square += x * x;
        }
        for (const bool rows : {true, false})
            for (int j = 0; j < n; ++j) {
                double p = 0;
                for (int i = 0; i < n; ++i)
                    p += u[std::size_t(i)] * (rows ? at(i, j) : at(j, i));
                for (int i = 0; i < n; ++i)
                    (rows ? at(i, j) : at(j, i)) -= 2 * p / square * u[std::size_t(i)];
            }
    }
    for (double &x : a)
        x = rounded(e.element == "32f" ? Element::f32 : Element::f64, x);
    return {n, a};
}

// Values of both signs, a half apart and never near zero.
Problem symmetric(const Export &e, Random &random, int n)
{
    std::vector<double> a(std::size_t(n * n));
    for (int i = 0; i < n; ++i)
        a[std::size_t(i * n + i)] = (i % 2 ? -0.5 : 0.5) * (i + 1 + 0.25 * random.unit());
    Problem p = turned(e, random, a, n);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < i; ++j)
            p.a[std::size_t(i * n + j)] = p.a[std::size_t(j * n + i)];
    return p;
}

// Real values and pairs, apart, with a triangle above them that makes the vectors oblique.
Problem general(const Export &e, Random &random, int n)
{
    std::vector<double> a(std::size_t(n * n));
    const auto at = [&](int i, int j) -> double & { return a[std::size_t(i * n + j)]; };
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j)
            at(i, j) = 0.25 * (random.unit() - 0.5);
    for (int i = 0; i < n; ++i) {
        at(i, i) = 0.5 * (i + 1) - 1.25;
        if (i + 1 < n && random.oneIn(2)) {
            at(i + 1, i + 1) = at(i, i) + 0.125 * random.unit();
            at(i, i + 1) = 0.5 + random.unit();
            at(i + 1, i) = -0.5 - random.unit();
            ++i;
        }
    }
    return turned(e, random, a, n);
}

struct Witness {
    std::vector<Complex> values;
    std::vector<Column> right, left;
};

Witness symmetricWitness(Problem p)
{
    const int n = p.n, length = 34 * n;
    std::vector<double> values(static_cast<std::size_t>(n)), work(static_cast<std::size_t>(length));
    int info = -1;
    dsyev_("V", "L", &n, p.a.data(), &n, values.data(), work.data(), &length, &info);
    EXPECT_EQ(info, 0);
    Witness w;
    for (int c = 0; c < n; ++c) {
        w.values.push_back(values[std::size_t(c)]);
        w.right.emplace_back(p.a.begin() + c * n, p.a.begin() + (c + 1) * n);
    }
    return w;
}

Witness generalWitness(Problem p)
{
    const int n = p.n, length = 34 * n;
    std::vector<double> re(static_cast<std::size_t>(n)), im(re),
        work(static_cast<std::size_t>(length)), left(std::size_t(n * n)), right(left);
    int info = -1;
    dgeev_("V", "V", &n, p.a.data(), &n, re.data(), im.data(), left.data(), &n, right.data(), &n,
           work.data(), &length, &info);
    EXPECT_EQ(info, 0);
    Witness w;
    for (int c = 0; c < n; ++c) {
        const double imaginary = im[std::size_t(c)];
        w.values.emplace_back(re[std::size_t(c)], imaginary);
        for (auto [from, to] : {std::pair(&right, &w.right), std::pair(&left, &w.left)}) {
            const int first = imaginary < 0 ? c - 1 : c;
            Column column;
            for (int i = 0; i < n; ++i)
                column.emplace_back((*from)[std::size_t(first * n + i)],
                                    imaginary == 0 ? 0
                                                   : std::copysign(1, imaginary) *
                                                         (*from)[std::size_t((first + 1) * n + i)]);
            to->push_back(column);
        }
    }
    return w;
}

// Each of the results has its twin among those of the witness. `vectors` may be null.
void expectTwins(const Call &call, const std::vector<Complex> &values, const Operand *vectors,
                 int k, const Witness &w, const std::vector<Column> &wanted, double tolerance)
{
    const int n = int(values.size());
    std::vector<bool> taken(static_cast<std::size_t>(n));
    for (int c = 0; c < n; ++c) {
        const Complex value = values[std::size_t(c)];
        int twin = 0;
        for (int i = 1; i < n; ++i)
            if (std::abs(w.values[std::size_t(i)] - value) <
                std::abs(w.values[std::size_t(twin)] - value))
                twin = i;
        EXPECT_FALSE(taken[std::size_t(twin)]) << call << " value " << value;
        taken[std::size_t(twin)] = true;
        EXPECT_LE(std::abs(w.values[std::size_t(twin)] - value), tolerance) << call;
        if (!vectors)
            continue;
        const int first = value.imag() < 0 ? c - 1 : c;
        Complex along = 0;
        double squares = 0;
        Column column;
        for (int i = 0; i < n; ++i) {
            column.emplace_back((*vectors)(k, i, first),
                                value.imag() == 0
                                    ? 0
                                    : std::copysign(1, value.imag()) * (*vectors)(k, i, first + 1));
            along += std::conj(wanted[std::size_t(twin)][std::size_t(i)]) * column.back();
        }
        for (int i = 0; i < n; ++i)
            squares += std::norm(column[std::size_t(i)] -
                                 along * wanted[std::size_t(twin)][std::size_t(i)]);
        EXPECT_NEAR(std::abs(along), 1, tolerance) << call << " vector " << c;
        EXPECT_LE(std::sqrt(squares), tolerance) << call << " vector " << c;
    }
}

// What a witness calls right goes with `right`, or with `vectors` where there is one side alone.
template <class Make, class Ask>
void compare(const char *family, Make make, Ask ask, double roundings)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf(family))
        for (const int n : {2, 3, 4, 5, 6, 7, 8, 12, 20})
            for (int round = 0; round < 4; ++round) {
                Call call(*e, ++seed, e->argument("count") ? 3 : 1);
                std::vector<Problem> problems;
                for (int k = 0; k < call.count(); ++k) {
                    Random random(seed * 17 + std::uint64_t(k));
                    random.bits();
                    problems.push_back(make(*e, random, n));
                }
                call.source("src", {n, n}, [&](int k, int i, int j) {
                    return problems[std::size_t(k)].a[std::size_t(i * n + j)];
                });
                const bool isSymmetric = e->argument("dstValues") != nullptr;
                std::vector<std::pair<const Operand *, bool>> vectors; // and whether it is right
                if (e->argument("dstVectors"))
                    vectors.emplace_back(&call.output("dstVectors", {n, n}),
                                         e->operation != "zonmEigenValuesVectorsLeft");
                if (e->argument("dstRight")) {
                    vectors.emplace_back(&call.output("dstRight", {n, n}), true);
                    vectors.emplace_back(&call.output("dstLeft", {n, n}), false);
                }
                if (vectors.empty())
                    vectors.emplace_back(nullptr, true);
                const int all = n * call.count();
                const Operand &re =
                    call.plainOutput(isSymmetric ? "dstValues" : "dstValuesRe", all);
                const Operand *im = isSymmetric ? nullptr : &call.plainOutput("dstValuesIm", all);
                call.scratch("buffer", std::size_t(n * (3 * n + 5)) * sizeof(double));
                call.set("size", n);
                ASSERT_EQ(call.run(), zonStsOk) << call;
                for (int k = 0; k < call.count(); ++k) {
                    const Witness w = ask(problems[std::size_t(k)]);
                    std::vector<Complex> values;
                    for (int i = k * n; i < (k + 1) * n; ++i)
                        values.emplace_back(re(0, i), im ? (*im)(0, i) : 0);
                    for (const auto &[operand, isRight] : vectors)
                        expectTwins(call, values, operand, k, w, isRight ? w.right : w.left,
                                    roundings * n * epsilonOf(*e));
                }
            }
}

TEST(EigenWitness, SymmetricProblemsAreThoseOfDsyev)
{
    compare("eigen_sym", symmetric, symmetricWitness, 16);
}

TEST(EigenWitness, GeneralValuesAreThoseOfDgeev)
{
    compare("eigen_values", general, generalWitness, 64);
}

TEST(EigenWitness, GeneralVectorsAreThoseOfDgeev)
{
    compare("eigen_vectors", general, generalWitness, 64);
}

} // namespace
