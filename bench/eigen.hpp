// SPDX-License-Identifier: Apache-2.0
// Eigenvalues and eigenvectors. Symmetric matrices are the same by rows and by columns; general
// ones are read by columns by all contestants, as the library itself means them.
#pragma once

#include "harness.hpp"
#include "peers.hpp"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <zonm.h>

namespace bench::eigen
{

constexpr int matrices = 4000;
enum class Kind { symmetric, general };

// How far A x = lambda x is from true, for the worst of a symmetric matrix's vectors.
template <class T> double residualOf(const T *m, int n, const T *values, const T *vectors)
{
    double worst = 0;
    for (int c = 0; c < n; ++c) {
        double squares = 0;
        for (int i = 0; i < n; ++i) {
            double sum = -double(values[c]) * vectors[i * n + c];
            for (int j = 0; j < n; ++j)
                sum += double(m[i * n + j]) * vectors[j * n + c];
            squares += sum * sum;
        }
        worst = std::fmax(worst, std::sqrt(squares));
    }
    return worst;
}

// Whether zonm solves a symmetric matrix, in each of its forms. It refuses some of 32f, since its
// tolerance is absolute: a product of eigenvalues near it, or roundings above it; and a sweep that
// counts as broken off costs accuracy.
template <class T> bool isAccepted(const T *m, int n)
{
    const int step = int(sizeof(T)), row = n * step;
    T buffer[64], vectors[64], values[8];
    const T *const sources[] = {m};
    T *const outputs[] = {vectors};
    const auto isRight = [&](ZonStatus status) {
        return status == zonStsOk && residualOf(m, n, values, vectors) <
                                         std::sqrt(double(std::numeric_limits<T>::epsilon()));
    };
    const auto one = ZONM(zonmEigenValuesVectorsSym_m);
    const auto many = ZONM(zonmEigenValuesVectorsSym_ma);
    const auto table = ZONM_L(zonmEigenValuesVectorsSym_ma);
    if (!isRight(one(m, row, step, buffer, vectors, row, step, values, n)) ||
        !isRight(many(m, row, row, step, buffer, vectors, row, row, step, values, n, 1)) ||
        !isRight(table(sources, 0, row, step, buffer, outputs, 0, row, step, values, n, 1)))
        return false;
    // Values alone: the same as with vectors, in the same order.
    T alone[8];
    if (ZONM(zonmEigenValuesSym_ma)(m, row, row, step, buffer, alone, n, 1) != zonStsOk)
        return false;
    for (int i = 0; i < n; ++i)
        if (!(std::fabs(double(alone[i]) - values[i]) < 64 * std::numeric_limits<T>::epsilon()))
            return false;
    return true;
}

// Random; the symmetric ones of norm near 1, changed until they are accepted.
template <class T> T *matricesOf(Kind kind, int n)
{
    const std::size_t size = std::size_t(n) * n;
    T *const a = random<T>(size * matrices);
    if (kind == Kind::general)
        return a;
    for (T *m = a; m < a + size * matrices; m += size) {
        for (int i = 0; i < n; ++i) {
            for (int j = 0; j < i; ++j)
                m[i * n + j] = m[j * n + i] /= 8;
            m[i * n + i] = m[i * n + i] / 8 + T(0.75);
        }
        while (!isAccepted(m, n))
            for (int i = 0; i < n; ++i) {
                m[i * n + i] *= T(0.99);
                m[i * n + (i + 1) % n] = m[(i + 1) % n * n + i] *= T(1.01);
            }
    }
    return a;
}

// The matrices, and the results as zonm keeps them: vectors in columns of a matrix by rows.
template <class T, int N> struct Problems {
    Kind kind;
    Matrices<T> a{matricesOf<T>(kind, N), N, matrices};
    Vectors<T> re{allocate<T>(N * matrices), N, matrices};
    Vectors<T> im{allocate<T>(N * matrices), N, matrices};
    Matrices<T> vectors{allocate<T>(N * N * matrices), N, matrices};
    Matrices<T> left{allocate<T>(N * N * matrices), N, matrices};
    T *buffer = allocate<T>(N * (3 * N + 5));

    explicit Problems(Kind k) : kind(k)
    {
        for (int n = 0; n < matrices && kind == Kind::general; ++n)
            while (!isAccepted(n))
                for (int i = 0; i < N; ++i)
                    a.object(n)[i * N + i] += T(i) / 64;
    }
    // Two real eigenvalues that nearly coincide may come out apart, as docs/eigen.md tells: such a
    // general matrix is changed.
    bool isAccepted(int k) const
    {
        const int row = N * int(sizeof(T)), step = sizeof(T);
        return ZONM(zonmEigenValuesVectors_m)(a.object(k), row, step, vectors.object(k), row, step,
                                              left.object(k), row, step, re.object(k), im.object(k),
                                              N, buffer) == zonStsOk &&
               vectorError(k) <= permitted();
    }

    Row row(const char *operation, bool withVectors) const
    {
        Row r("eigen", operation, typeName<T>, N, matrices);
        r.into(re);
        if (kind == Kind::general)
            r.into(im);
        if (withVectors)
            r.into(vectors);
        return r.check([=, *this] { return withVectors ? vectorsError() : valuesError(); });
    }

    // The traces of the matrix and of its square.
    double valuesError() const
    {
        double worst = 0;
        for (int k = 0; k < matrices; ++k) {
            const T *A = a.object(k), *R = re.object(k), *I = im.object(k);
            double trace = 0, square = 0, norm = 0;
            for (int i = 0; i < N; ++i) {
                const double x = kind == Kind::general ? I[i] : T(0);
                trace += R[i] - double(A[i * N + i]);
                square += double(R[i]) * R[i] - x * x;
                for (int j = 0; j < N; ++j) {
                    square -= double(A[i * N + j]) * A[j * N + i];
                    norm += double(A[i * N + j]) * A[i * N + j];
                }
            }
            const double error = std::fabs(trace) / std::sqrt(norm) + std::fabs(square) / norm;
            worst = std::isnan(error) ? std::numeric_limits<double>::infinity()
                                      : std::fmax(worst, error / permitted());
        }
        return worst;
    }
    double vectorsError() const
    {
        double worst = 0;
        for (int k = 0; k < matrices; ++k)
            worst = std::fmax(worst, vectorError(k) / permitted());
        return worst;
    }
    // A x = lambda x, A by columns, over the norms of A and x; infinite where a number is none.
    double vectorError(int k) const
    {
        const T *A = a.object(k), *X = vectors.object(k);
        double norm = 0, worst = 0;
        for (int i = 0; i < N * N; ++i)
            norm += double(A[i]) * A[i];
        for (int c = 0; c < N; ++c) {
            const double re0 = re.object(k)[c],
                         im0 = kind == Kind::general ? double(im.object(k)[c]) : 0;
            if (im0 < 0)
                continue; // the conjugate of the one before
            double residual = 0, length = 0;
            for (int i = 0; i < N; ++i) {
                const auto y = [&](int j) { return im0 == 0 ? 0. : double(X[j * N + c + 1]); };
                const double x = X[i * N + c];
                double sumRe = im0 * y(i) - re0 * x, sumIm = -re0 * y(i) - im0 * x;
                for (int j = 0; j < N; ++j) {
                    sumRe += double(A[j * N + i]) * X[j * N + c];
                    sumIm += A[j * N + i] * y(j);
                }
                residual += sumRe * sumRe + sumIm * sumIm;
                length += x * x + y(i) * y(i);
            }
            const double error = std::sqrt(residual / (norm * length));
            worst = std::isnan(error) ? std::numeric_limits<double>::infinity()
                                      : std::fmax(worst, error);
        }
        return worst;
    }
    // Of a symmetric matrix zonm neglects a column's tail as long as its square is a rounding of
    // the subdiagonal element's.
    double permitted() const
    {
        const double rounding = std::numeric_limits<T>::epsilon();
        return 16 * N * rounding + (kind == Kind::symmetric ? 2 * std::sqrt(rounding) : 0);
    }

    // From vectors by columns.
    void takeVectors(const T *columns, int k) const
    {
        for (int i = 0; i < N; ++i)
            for (int j = 0; j < N; ++j)
                vectors.object(k)[i * N + j] = columns[j * N + i];
    }
};

template <class O> auto plain(O o)
{
    return [=](int k, int) { return o.object(k); };
}

template <class T, int N> void enterZonm(const Problems<T, N> &s, const Problems<T, N> &g)
{
    const auto a = s.a, v = s.vectors, m = g.a, right = g.vectors, left = g.left;
    const auto values = plain(s.re), re = plain(g.re), im = plain(g.im);
    T *const buffer = g.buffer;

    s.row("zonmEigenValuesSym_ma", false)
        .calls("zonm", ZONM(zonmEigenValuesSym_ma), array(a), buffer, values, N, count)
        .calls("zonm _L", ZONM_L(zonmEigenValuesSym_ma), objects(a), buffer, values, N, count)
        .calls("zonm _P", ZONM_P(zonmEigenValuesSym_ma), elements(a), buffer, values, N, count);
    s.row("zonmEigenValuesVectorsSym_ma", true)
        .calls("zonm", ZONM(zonmEigenValuesVectorsSym_ma), array(a), buffer, array(v), values, N,
               count)
        .calls("zonm _L", ZONM_L(zonmEigenValuesVectorsSym_ma), objects(a), buffer, objects(v),
               values, N, count)
        .calls("zonm _P", ZONM_P(zonmEigenValuesVectorsSym_ma), elements(a), buffer, elements(v),
               values, N, count);
    s.row("zonmEigenValuesVectorsSym_m", true)
        .oneByOne(matrices)
        .calls("zonm", ZONM(zonmEigenValuesVectorsSym_m), single(a), buffer, single(v), values, N);
    g.row("zonmEigenValues_ma", false)
        .calls("zonm", ZONM(zonmEigenValues_ma), array(m), re, im, N, count, buffer)
        .calls("zonm _L", ZONM_L(zonmEigenValues_ma), objects(m), re, im, N, count, buffer)
        .calls("zonm _P", ZONM_P(zonmEigenValues_ma), elements(m), re, im, N, count, buffer);
    g.row("zonmEigenValuesVectorsRight_ma", true)
        .calls("zonm", ZONM(zonmEigenValuesVectorsRight_ma), array(m), array(right), re, im, N,
               count, buffer)
        .calls("zonm _L", ZONM_L(zonmEigenValuesVectorsRight_ma), objects(m), objects(right), re,
               im, N, count, buffer)
        .calls("zonm _P", ZONM_P(zonmEigenValuesVectorsRight_ma), elements(m), elements(right), re,
               im, N, count, buffer);
    g.row("zonmEigenValuesVectors_ma", true)
        .calls("zonm", ZONM(zonmEigenValuesVectors_ma), array(m), array(right), array(left), re, im,
               N, count, buffer);
}

// One solver for each matrix, which keeps what it computed; it is not copied.
template <class Solver, class M, class Option>
__attribute__((noinline)) void eigenOne(const M *a, Solver *solver, Option option)
{
    solver->compute(*a, option);
}

template <class T, int N> void enterEigen(const Problems<T, N> &s, const Problems<T, N> &g)
{
    using M = ColumnMajor<T, N>;
    using Symmetric = Eigen::SelfAdjointEigenSolver<M>;
    using General = Eigen::EigenSolver<M>;
    const auto symmetric = allocate<Symmetric>(matrices);
    const auto general = allocate<General>(matrices);
    std::uninitialized_default_construct_n(symmetric, matrices);
    std::uninitialized_default_construct_n(general, matrices);

    const auto solve = [](auto *solvers, const M *A, auto option) {
        return [=](int k, int n) {
            for (int i = k; i < k + n; ++i)
                eigenOne(A + i, solvers + i, option);
        };
    };
    const auto takeSymmetric = [=](bool withVectors) {
        return [=] {
            for (int k = 0; k < matrices; ++k) {
                as<ColumnVector<T, N>>(s.re.data)[k] = symmetric[k].eigenvalues();
                if (withVectors)
                    s.takeVectors(symmetric[k].eigenvectors().data(), k);
            }
        };
    };
    const auto takeGeneral = [=](bool withVectors) {
        return [=] {
            for (int k = 0; k < matrices; ++k) {
                as<ColumnVector<T, N>>(g.re.data)[k] = general[k].eigenvalues().real();
                as<ColumnVector<T, N>>(g.im.data)[k] = general[k].eigenvalues().imag();
                if (withVectors)
                    g.takeVectors(general[k].pseudoEigenvectors().data(), k);
            }
        };
    };
    const M *const A = as<const M>(s.a.data), *const B = as<const M>(g.a.data);
    const auto valuesOf = solve(symmetric, A, int(Eigen::EigenvaluesOnly));
    const auto vectorsOf = solve(symmetric, A, int(Eigen::ComputeEigenvectors));

    s.row("zonmEigenValuesSym_ma", false).add("Eigen", valuesOf, takeSymmetric(false));
    s.row("zonmEigenValuesVectorsSym_ma", true).add("Eigen", vectorsOf, takeSymmetric(true));
    s.row("zonmEigenValuesVectorsSym_m", true)
        .oneByOne(matrices)
        .add("Eigen", vectorsOf, takeSymmetric(true));
    g.row("zonmEigenValues_ma", false).add("Eigen", solve(general, B, false), takeGeneral(false));
    g.row("zonmEigenValuesVectorsRight_ma", true)
        .add("Eigen", solve(general, B, true), takeGeneral(true));
}

#ifdef BENCH_OPENBLAS
// LAPACK destroys its matrix, so a copy is part of the work.
template <class T, int N> void enterOpenBLAS(const Problems<T, N> &s, const Problems<T, N> &g)
{
    T *const work = allocate<T>(N * N);
    const auto columns = Matrices<T>(allocate<T>(N * N * matrices), N, matrices);
    const auto leftColumns = Matrices<T>(allocate<T>(N * N * matrices), N, matrices);

    const auto symmetric = [=](bool withVectors) {
        return [=](int first, int n) {
            int info = 0;
            for (int k = first; k < first + n; ++k) {
                T *const m = withVectors ? columns.object(k) : work;
                std::memcpy(m, s.a.object(k), s.a.step());
                info |= syev(withVectors, N, m, s.re.object(k));
            }
            return info;
        };
    };
    const auto general = [=](bool right, bool left) {
        return [=](int first, int n) {
            int info = 0;
            for (int k = first; k < first + n; ++k) {
                std::memcpy(work, g.a.object(k), g.a.step());
                info |= geev(N, work, g.re.object(k), g.im.object(k),
                             left ? leftColumns.object(k) : nullptr,
                             right ? columns.object(k) : nullptr);
            }
            return info;
        };
    };
    const auto take = [=](const Problems<T, N> &p) {
        return [=] {
            for (int k = 0; k < matrices; ++k)
                p.takeVectors(columns.object(k), k);
        };
    };
    s.row("zonmEigenValuesSym_ma", false).add("OpenBLAS", symmetric(false));
    s.row("zonmEigenValuesVectorsSym_ma", true).add("OpenBLAS", symmetric(true), take(s));
    s.row("zonmEigenValuesVectorsSym_m", true)
        .oneByOne(matrices)
        .add("OpenBLAS", symmetric(true), take(s));
    g.row("zonmEigenValues_ma", false).add("OpenBLAS", general(false, false));
    g.row("zonmEigenValuesVectorsRight_ma", true).add("OpenBLAS", general(true, false), take(g));
    g.row("zonmEigenValuesVectors_ma", true).add("OpenBLAS", general(true, true), take(g));
}
#endif

template <class T, int N> void problems()
{
    static const Problems<T, N> s(Kind::symmetric), g(Kind::general);
    enterZonm(s, g);
    enterEigen(s, g);
#ifdef BENCH_OPENBLAS
    enterOpenBLAS(s, g);
#endif
}

template <class T, int... N> void sizes() { (problems<T, N>(), ...); }
template <class T> void rows() { sizes<T, 3, 4, 5, 6, 8>(); }

} // namespace bench::eigen
