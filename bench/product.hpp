// SPDX-License-Identifier: Apache-2.0
// Matrix product: dst = src1 src2, square matrices, all operands within the second-level cache.
#pragma once

#include "harness.hpp"
#include "peers.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <zonm.h>

namespace bench::product
{

inline constexpr std::size_t operandBytes = 85u << 10; // of one of the three operands

// Against sums in double, within 2 N roundings of the sum of magnitudes. A step of 0 is one matrix.
template <class T>
double productError(Matrices<T> a, int stepA, Matrices<T> b, int stepB, Matrices<T> d)
{
    const int n = d.columns;
    double worst = 0;
    for (int k = 0; k < d.count; ++k)
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                double sum = 0, magnitude = 0;
                for (int p = 0; p < n; ++p) {
                    const double term = double(a.object(k * stepA)[i * n + p]) *
                                        double(b.object(k * stepB)[p * n + j]);
                    sum += term, magnitude += std::fabs(term);
                }
                const double permitted = 2 * n * std::numeric_limits<T>::epsilon() * magnitude;
                const double error = std::fabs(d.object(k)[i * n + j] - sum) / permitted;
                worst = error <= worst ? worst : error; // a NaN stays
                if (std::isnan(worst))
                    return worst;
            }
    return worst;
}

template <class T, int N>
__attribute__((noinline)) void eigenCall(const T *a, int a1, int a2, const T *b, int b1, int b2,
                                         T *d, int d1, int d2)
{
    using M = RowMajor<T, N>;
    strided<M>(d, d1, d2).noalias() = strided<const M>(a, a1, a2) * strided<const M>(b, b1, b2);
}

// The peers do one object after the other; object k of a source is at k times its step.
template <class T, int N, int StepA, int StepB>
void addPeers(Row &row, Matrices<T> a, Matrices<T> b, Matrices<T> d)
{
    const auto each = [=](int first, int n, auto multiply) {
        for (int k = first; k < first + n; ++k)
            multiply(a.object(k * StepA), b.object(k * StepB), d.object(k));
    };
    row.add("Eigen dynamic", [=](int k, int n) {
        using M = RowMajor<T, Eigen::Dynamic>;
        each(k, n, [size = a.columns](const T *x, const T *y, T *z) {
            Eigen::Map<M>(z, size, size).noalias() =
                Eigen::Map<const M>(x, size, size) * Eigen::Map<const M>(y, size, size);
        });
    });
#ifdef BENCH_OPENBLAS
    row.add("OpenBLAS", [=](int k, int n) {
        each(k, n, [size = a.columns](const T *x, const T *y, T *z) { gemm(size, x, y, z); });
    });
#endif
#ifdef BENCH_LIBXSMM
    if (const auto kernel = xsmmKernel(N, T()))
        row.add("LIBXSMM", [=](int k, int n) {
            each(k, n, [=](const T *x, const T *y, T *z) { kernel(y, x, z); });
        });
#endif
}

template <class T, int N, int StepA, int StepB>
void addFixedEigen(Row &row, Matrices<T> a, Matrices<T> b, Matrices<T> d)
{
    const auto A = as<const RowMajor<T, N>>(a.data), B = as<const RowMajor<T, N>>(b.data);
    const auto D = as<RowMajor<T, N>>(d.data);
    row.add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            D[k].noalias() = A[k * StepA] * B[k * StepB];
    });
}

template <class T, int N> void products()
{
    const int size = objectsWithin<T>(operandBytes, N);
    const auto a = matrices<T>(first, N, size), b = matrices<T>(second, N, size);
    const auto d = matrices<T>(result, N, size);
    const auto a0 = fixed(single(a)), b0 = fixed(single(b));
    const auto a0Elements = fixed(singleElements(a)), b0Elements = fixed(singleElements(b));
    const auto row = [=](const char *operation, int stepA, int stepB) {
        return Row("product", operation, typeName<T>, N, size).into(d).check([=] {
            return productError(a, stepA, b, stepB, d);
        });
    };
    auto mama = row("zonmMul_mama", 1, 1);
    mama.calls("zonm", ZONM(zonmMul_mama), array(a), N, N, array(b), N, N, array(d), count)
        .calls("zonm _L", ZONM_L(zonmMul_mama), objects(a), N, N, objects(b), N, N, objects(d),
               count)
        .calls("zonm _P", ZONM_P(zonmMul_mama), elements(a), N, N, elements(b), N, N, elements(d),
               count);
    addFixedEigen<T, N, 1, 1>(mama, a, b, d);
    addPeers<T, N, 1, 1>(mama, a, b, d);

    auto mam = row("zonmMul_mam", 1, 0);
    mam.calls("zonm", ZONM(zonmMul_mam), array(a), N, N, b0, N, N, array(d), count)
        .calls("zonm _L", ZONM_L(zonmMul_mam), objects(a), N, N, b0, N, N, objects(d), count)
        .calls("zonm _P", ZONM_P(zonmMul_mam), elements(a), N, N, b0Elements, N, N, elements(d),
               count);
    addFixedEigen<T, N, 1, 0>(mam, a, b, d);
    addPeers<T, N, 1, 0>(mam, a, b, d);

    auto mma = row("zonmMul_mma", 0, 1);
    mma.calls("zonm", ZONM(zonmMul_mma), a0, N, N, array(b), N, N, array(d), count)
        .calls("zonm _L", ZONM_L(zonmMul_mma), a0, N, N, objects(b), N, N, objects(d), count)
        .calls("zonm _P", ZONM_P(zonmMul_mma), a0Elements, N, N, elements(b), N, N, elements(d),
               count);
    addFixedEigen<T, N, 0, 1>(mma, a, b, d);
    addPeers<T, N, 0, 1>(mma, a, b, d);

    auto mm = row("zonmMul_mm", 1, 1);
    mm.oneByOne(size)
        .calls("zonm", ZONM(zonmMul_mm), single(a), N, N, single(b), N, N, single(d))
        .calls("zonm _P", ZONM_P(zonmMul_mm), singleElements(a), N, N, singleElements(b), N, N,
               singleElements(d))
        .calls("Eigen", eigenCall<T, N>, single(a), single(b), single(d));
    addPeers<T, N, 1, 1>(mm, a, b, d);
}

template <class T, int... N> void sizes() { (products<T, N>(), ...); }
template <class T> void rows() { sizes<T, 3, 4, 5, 6, 8, 12, 16, 32>(); }

} // namespace bench::product
