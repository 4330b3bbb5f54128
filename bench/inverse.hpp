// SPDX-License-Identifier: Apache-2.0
// Determinants and inverses of random matrices. By columns the same memory holds the transposes,
// whose inverses are the transposes of the inverses: all contestants share it.
#pragma once

#include "harness.hpp"
#include "peers.hpp"

#include <cmath>
#include <cstring>
#include <limits>
#include <zonm.h>

namespace bench::inverse
{

// Where a contestant searches pivots, so many that no predictor learns them; where none does, so
// few that memory does not count. Large inverses take long.
constexpr int matricesOf(int n) { return n == 5 || n == 6 ? 20000 : 2000; }

// How far rounding may move a determinant: the product of the rows' lengths.
template <class T> double hadamard(const T *a, int n)
{
    double product = 1;
    for (int i = 0; i < n; ++i) {
        double squares = 0;
        for (int j = 0; j < n; ++j)
            squares += double(a[i * n + j]) * a[i * n + j];
        product *= std::sqrt(squares);
    }
    return product;
}

template <class T, int N> double exactDeterminant(const T *a)
{
    using M = Eigen::Matrix<long double, N, N, Eigen::RowMajor>;
    return double(
        M(as<const RowMajor<T, N>>(a)->template cast<long double>()).partialPivLu().determinant());
}

template <class T, int N> double determinantError(Matrices<T> a, Vectors<T> d)
{
    double worst = 0;
    for (int k = 0; k < d.count; ++k) {
        const double permitted =
            16 * N * std::numeric_limits<T>::epsilon() * hadamard(a.object(k), N);
        const double error = std::fabs(*d.object(k) - exactDeterminant<T, N>(a.object(k)));
        worst = std::isnan(error) ? std::numeric_limits<double>::infinity()
                                  : std::fmax(worst, error / permitted);
    }
    return worst;
}

// The residual A X - I. A reciprocal of the determinant may be as wrong as that.
template <class T, int N> double inverseError(Matrices<T> a, Matrices<T> x)
{
    double worst = 0;
    for (int k = 0; k < x.count; ++k) {
        const auto &A = as<const RowMajor<T, N>>(a.data)[k],
                   &X = as<const RowMajor<T, N>>(x.data)[k];
        const auto P = A.template cast<double>(), Q = X.template cast<double>();
        const double residual =
            (P * Q - Eigen::Matrix<double, N, N>::Identity()).cwiseAbs().maxCoeff();
        const double permitted =
            16 * N * std::numeric_limits<T>::epsilon() *
            (P.norm() * Q.norm() +
             hadamard(a.object(k), N) / std::fabs(exactDeterminant<T, N>(a.object(k))));
        worst = residual <= std::numeric_limits<double>::max()
                    ? std::fmax(worst, residual / permitted)
                    : std::numeric_limits<double>::infinity();
    }
    return worst;
}

// Eigen behind a call with run-time strides.
template <class T, int N>
__attribute__((noinline)) void eigenDeterminant(const T *a, int column, int element, T *d)
{
    *d = strided<const ColumnMajor<T, N>>(a, column, element).determinant();
}
template <class T, int N>
__attribute__((noinline)) void eigenInverse(const T *a, int column, int element, T *x, int xColumn,
                                            int xElement)
{
    strided<ColumnMajor<T, N>>(x, xColumn, xElement) =
        strided<const ColumnMajor<T, N>>(a, column, element).inverse();
}

template <class T, int N> struct Inverses {
    static constexpr int matrices = matricesOf(N);
    Matrices<T> a{random<T>(N * N * matrices), N, matrices};
    Matrices<T> x{allocate<T>(N * N * matrices), N, matrices};
    Vectors<T> d{allocate<T>(matrices), 1, matrices};
    T *buffer = allocate<T>(2 * N * N + N);
    int *exchanges = allocate<int>(N);

    Row determinants(const char *operation) const
    {
        return Row("inverse", operation, typeName<T>, N, matrices).into(d).check([a = a, d = d] {
            return determinantError<T, N>(a, d);
        });
    }
    Row inverses(const char *operation) const
    {
        return Row("inverse", operation, typeName<T>, N, matrices).into(x).check([a = a, x = x] {
            return inverseError<T, N>(a, x);
        });
    }
};

template <class T, int N> void enterZonm(const Inverses<T, N> &s)
{
    const auto a = s.a, x = s.x;
    const auto buffer = s.buffer;
    const auto d = [=, d = s.d](int k, int) { return d.object(k); };

    s.determinants("zonmDet_ma")
        .calls("zonm", ZONM(zonmDet_ma), array(a), N, buffer, d, count)
        .calls("zonm _L", ZONM_L(zonmDet_ma), objects(a), N, buffer, d, count)
        .calls("zonm _P", ZONM_P(zonmDet_ma), elements(a), N, buffer, d, count);
    s.determinants("zonmDet_m")
        .oneByOne(s.matrices)
        .calls("zonm", ZONM(zonmDet_m), single(a), N, buffer, d)
        .calls("zonm _P", ZONM_P(zonmDet_m), singleElements(a), N, buffer, d);
    if constexpr (N <= 8) { // beyond, an inverse is no way to solve anything
        s.inverses("zonmInvert_ma")
            .calls("zonm", ZONM(zonmInvert_ma), array(a), buffer, array(x), N, count)
            .calls("zonm _L", ZONM_L(zonmInvert_ma), objects(a), buffer, objects(x), N, count)
            .calls("zonm _P", ZONM_P(zonmInvert_ma), elements(a), buffer, elements(x), N, count);
        s.inverses("zonmInvert_m")
            .oneByOne(s.matrices)
            .calls("zonm", ZONM(zonmInvert_m), single(a), buffer, single(x), N)
            .calls("zonm _P", ZONM_P(zonmInvert_m), singleElements(a), buffer, singleElements(x),
                   N);
    }
}

template <class T, int N> void enterEigen(const Inverses<T, N> &s)
{
    const auto A = as<const ColumnMajor<T, N>>(s.a.data);
    const auto X = as<ColumnMajor<T, N>>(s.x.data);
    const auto D = s.d.data;
    const auto d = [=](int k, int) { return D + k; };

    s.determinants("zonmDet_ma").add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            D[k] = A[k].determinant();
    });
    s.determinants("zonmDet_m")
        .oneByOne(s.matrices)
        .calls("Eigen", eigenDeterminant<T, N>, single(s.a), d);
    if constexpr (N <= 8) {
        s.inverses("zonmInvert_ma").add("Eigen", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                X[k] = A[k].inverse();
        });
        s.inverses("zonmInvert_m")
            .oneByOne(s.matrices)
            .calls("Eigen", eigenInverse<T, N>, single(s.a), single(s.x));
    }
}

#ifdef BENCH_OPENBLAS
// LAPACK works in place; the copy is part of the work. It has no determinant: that is the product
// of the pivots.
template <class T, int N> void enterOpenBLAS(const Inverses<T, N> &s)
{
    const auto a = s.a, x = s.x;
    const auto d = s.d;
    const auto exchanges = s.exchanges;
    const auto copy = s.buffer, work = s.buffer + N * N;

    const auto determinants = [=](int first, int n) {
        for (int k = first; k < first + n; ++k) {
            std::memcpy(copy, a.object(k), a.step());
            getrf(N, copy, exchanges);
            T product = 1;
            for (int i = 0; i < N; ++i)
                product *= exchanges[i] == i + 1 ? copy[i * N + i] : -copy[i * N + i];
            *d.object(k) = product;
        }
    };
    const auto inverses = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(x.object(k), a.object(k), a.step());
            info |= getrf(N, x.object(k), exchanges);
            info |= getri(N, x.object(k), exchanges, work, N * N);
        }
        return info;
    };
    s.determinants("zonmDet_ma").add("OpenBLAS", determinants);
    s.determinants("zonmDet_m").oneByOne(s.matrices).add("OpenBLAS", determinants);
    if constexpr (N <= 8) {
        s.inverses("zonmInvert_ma").add("OpenBLAS", inverses);
        s.inverses("zonmInvert_m").oneByOne(s.matrices).add("OpenBLAS", inverses);
    }
}
#endif

template <class T, int N> void ofSize()
{
    static const Inverses<T, N> s;
    enterZonm(s);
    enterEigen(s);
#ifdef BENCH_OPENBLAS
    enterOpenBLAS(s);
#endif
}

template <class T, int... N> void sizes() { (ofSize<T, N>(), ...); }
template <class T> void rows() { sizes<T, 2, 3, 4, 5, 6, 7, 8, 12>(); }

} // namespace bench::inverse
