// SPDX-License-Identifier: Apache-2.0
// What the benchmarks of the solvers share: the check of a solution, and Eigen's decompositions
// behind a function call.
#pragma once

#include "harness.hpp"
#include "peers.hpp"

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <zonm.h>

namespace bench
{

inline constexpr int systems = 20000;

// The scaled residual of A x = b, within 16 N roundings. A step of 0 is one matrix.
template <class T> double solutionError(Matrices<T> a, int stepA, Vectors<T> b, Vectors<T> x)
{
    const int n = a.columns;
    double worst = 0;
    for (int k = 0; k < x.count; ++k) {
        const T *A = a.object(k * stepA), *X = x.object(k), *B = b.object(k);
        double residual = 0, normA = 0, normX = 0, normB = 0;
        for (int i = 0; i < n; ++i) {
            double sum = 0, row = 0;
            for (int j = 0; j < n; ++j)
                sum += double(A[i * n + j]) * X[j], row += std::fabs(A[i * n + j]);
            if (!std::isfinite(sum))
                return std::numeric_limits<double>::infinity();
            residual = std::fmax(residual, std::fabs(sum - B[i]));
            normA = std::fmax(normA, row);
            normX = std::fmax(normX, std::fabs(X[i]));
            normB = std::fmax(normB, std::fabs(B[i]));
        }
        const double permitted =
            16 * n * std::numeric_limits<T>::epsilon() * (normA * normX + normB);
        worst = std::fmax(worst, residual / permitted);
    }
    return worst;
}

// That of a tall system: how far the residual is from orthogonal to the columns.
template <class T> double leastSquaresError(Matrices<T> a, Vectors<T> b, Vectors<T> x)
{
    const int w = a.columns, h = a.length / w;
    double worst = 0;
    for (int k = 0; k < x.count; ++k) {
        const T *A = a.object(k), *X = x.object(k), *B = b.object(k);
        double normA = 0, normX = 0, normB = 0, gradient = 0;
        for (int i = 0; i < h * w; ++i)
            normA += double(A[i]) * A[i];
        for (int j = 0; j < w; ++j)
            normX += double(X[j]) * X[j];
        for (int i = 0; i < h; ++i)
            normB += double(B[i]) * B[i];
        if (!std::isfinite(normX))
            return std::numeric_limits<double>::infinity();
        for (int c = 0; c < w; ++c) {
            double dot = 0;
            for (int i = 0; i < h; ++i) {
                double sum = -double(B[i]);
                for (int j = 0; j < w; ++j)
                    sum += double(A[i * w + j]) * X[j];
                dot += A[i * w + c] * sum;
            }
            gradient = std::fmax(gradient, std::fabs(dot));
        }
        const double permitted = 16 * (w + 4) * std::numeric_limits<T>::epsilon() *
                                 std::sqrt(normA) *
                                 (std::sqrt(normA) * std::sqrt(normX) + std::sqrt(normB));
        worst = std::fmax(worst, gradient / permitted);
    }
    return worst;
}

template <class Work> std::function<void()> onAll(Work work)
{
    return [=] { work(0, systems); };
}
template <class First, class Second> auto both(First first, Second second)
{
    return [=](int k, int n) { return first(k, n) | second(k, n); };
}

// Eigen behind a call with run-time strides; M is the type of its column-major matrices.
template <class M, class Decomposition, class T>
__attribute__((noinline)) void eigenDecomposeOne(const T *a, int column, int element,
                                                 Decomposition *d)
{
    d->compute(strided<const M>(a, column, element));
}
template <class M, class Decomposition, class T>
__attribute__((noinline)) void eigenSolveOne(const Decomposition *d, const T *b, int bElement, T *x,
                                             int xElement)
{
    using B = ColumnVector<T, M::RowsAtCompileTime>;
    using X = ColumnVector<T, M::ColsAtCompileTime>;
    using Step = Eigen::InnerStride<>;
    const int size = sizeof(T);
    Eigen::Map<X, 0, Step>(x, Step(xElement / size)) =
        d->solve(Eigen::Map<const B, 0, Step>(b, Step(bElement / size)));
}

} // namespace bench
