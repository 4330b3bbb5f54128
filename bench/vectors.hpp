// SPDX-License-Identifier: Apache-2.0
// Matrices with vectors, vector products, combinations and norms, all operands within the
// second-level cache.
#pragma once

#include "harness.hpp"
#include "peers.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>
#include <zonm.h>

namespace bench::vectors
{

inline constexpr std::size_t operandBytes = 85u << 10; // of the largest operand

// The largest error of element i of object k, where `value(k, i)` gives the right number and the
// magnitude of its terms; `roundings` are permitted.
struct Term {
    double value, magnitude;
};
template <class T, class Value> double errorOf(Objects<T> d, int roundings, Value value)
{
    double worst = 0;
    for (int k = 0; k < d.count; ++k)
        for (int i = 0; i < d.length; ++i) {
            const Term right = value(k, i);
            const double permitted =
                2 * roundings * std::numeric_limits<T>::epsilon() * right.magnitude;
            const double error = std::fabs(d.object(k)[i] - right.value) / permitted;
            worst = error <= worst ? worst : error; // a NaN stays
            if (std::isnan(worst))
                return worst;
        }
    return worst;
}

template <class F> Term sumOver(int n, F term)
{
    Term sum = {0, 0};
    for (int p = 0; p < n; ++p)
        sum.value += term(p), sum.magnitude += std::fabs(term(p));
    return sum;
}

template <class T> Vectors<T> vectors(Run which, int n, int count)
{
    return {run<T>(which), n, count};
}

template <class T, int N> struct Rows {
    static constexpr int size = objectsWithin<T>(operandBytes, N);
    using V = ColumnVector<T, N>;
    using M = RowMajor<T, N>;
    using DynamicV = Eigen::Matrix<T, Eigen::Dynamic, 1>;
    using DynamicM = RowMajor<T, Eigen::Dynamic>;

    Matrices<T> a = matrices<T>(first, N, size);
    Vectors<T> x = vectors<T>(second, N, size), d = vectors<T>(result, N, size);
    // More operands behind the first vectors.
    Vectors<T> y = {run<T>(second) + std::size_t(N) * size, N, size};
    Vectors<T> numbers = {run<T>(result), 1, size};
    const M *A = as<const M>(a.data);
    const V *X = as<const V>(x.data), *Y = as<const V>(y.data);
    V *D = as<V>(d.data);

    static auto dynamic(const T *p) { return Eigen::Map<const DynamicV>(p, N); }
    static auto dynamic(T *p) { return Eigen::Map<DynamicV>(p, N); }
    static auto dynamicMatrix(const T *p) { return Eigen::Map<const DynamicM>(p, N, N); }

    Row row(const char *operation) const { return Row("vectors", operation, typeName<T>, N, size); }
    template <class F> static void each(Row &r, const char *contestant, F f)
    {
        r.add(contestant, [=](int k, int n) {
            for (int end = k + n; k < end; ++k)
                f(k);
        });
    }
    // The element of the product.
    auto product(int stepA, int stepX, bool transposed, bool plusY) const
    {
        return [=, *this](int k, int i) {
            Term sum = sumOver(N, [&](int p) {
                const T *m = a.object(k * stepA);
                return double(transposed ? m[p * N + i] : m[i * N + p]) *
                       double(x.object(k * stepX)[p]);
            });
            if (plusY)
                sum.value += y.object(k)[i], sum.magnitude += std::fabs(y.object(k)[i]);
            return sum;
        };
    }

    template <bool Transposed, int StepA, int StepX> void productPeers(Row &r) const
    {
        // A call of one object at a time has its own fixed-size contestant.
        each(r, "Eigen dynamic", [=, *this](int k) {
            const auto m = dynamicMatrix(a.object(k * StepA));
            auto to = dynamic(d.object(k));
            if constexpr (Transposed)
                to.noalias() = m.transpose() * dynamic(x.object(k * StepX));
            else
                to.noalias() = m * dynamic(x.object(k * StepX));
        });
#ifdef BENCH_OPENBLAS
        each(r, "OpenBLAS", [=, *this](int k) {
            gemv(Transposed, N, a.object(k * StepA), x.object(k * StepX), T(0), d.object(k));
        });
#endif
    }
    template <bool Transposed, int StepA, int StepX> void fixedProduct(Row &r) const
    {
        each(r, "Eigen", [=, *this](int k) {
            if constexpr (Transposed)
                D[k].noalias() = A[k * StepA].transpose() * X[k * StepX];
            else
                D[k].noalias() = A[k * StepA] * X[k * StepX];
        });
    }

    static __attribute__((noinline)) void eigenProduct(const T *m, int m1, int m2, const T *v,
                                                       int v2, T *to, int to2)
    {
        using Step = Eigen::InnerStride<>;
        Eigen::Map<V, 0, Step>(to, Step(to2 / int(sizeof(T)))).noalias() =
            strided<const M>(m, m1, m2) *
            Eigen::Map<const V, 0, Step>(v, Step(v2 / int(sizeof(T))));
    }
    static __attribute__((noinline)) void eigenDot(const T *v, int v2, const T *w, int w2, T *to)
    {
        using Step = Eigen::InnerStride<>;
        *to = Eigen::Map<const V, 0, Step>(v, Step(v2 / int(sizeof(T))))
                  .dot(Eigen::Map<const V, 0, Step>(w, Step(w2 / int(sizeof(T)))));
    }
    static __attribute__((noinline)) void eigenAxpy(const T *v, int v2, T factor, const T *w,
                                                    int w2, T *to, int to2)
    {
        using Step = Eigen::InnerStride<>;
        Eigen::Map<V, 0, Step>(to, Step(to2 / int(sizeof(T)))) =
            Eigen::Map<const V, 0, Step>(v, Step(v2 / int(sizeof(T)))) * factor +
            Eigen::Map<const V, 0, Step>(w, Step(w2 / int(sizeof(T))));
    }

    void matrixVector() const
    {
        const auto checked = [=, *this](const char *operation, int stepA, int stepX, bool t,
                                        bool plusY = false) {
            const auto value = product(stepA, stepX, t, plusY);
            return row(operation).into(d).check(
                [=, to = d] { return errorOf<T>(to, N + 1, value); });
        };
        const auto a0 = fixed(single(a)), x0 = fixed(single(x));
        auto mava = checked("zonmMul_mava", 1, 1, false);
        mava.calls("zonm", ZONM(zonmMul_mava), array(a), N, N, array(x), N, array(d), count)
            .calls("zonm _L", ZONM_L(zonmMul_mava), objects(a), N, N, objects(x), N, objects(d),
                   count)
            .calls("zonm _P", ZONM_P(zonmMul_mava), elements(a), N, N, elements(x), N, elements(d),
                   count);
        fixedProduct<false, 1, 1>(mava);
        productPeers<false, 1, 1>(mava);
        auto tava = checked("zonmMul_tava", 1, 1, true);
        tava.calls("zonm", ZONM(zonmMul_tava), array(a), N, N, array(x), N, array(d), count);
        fixedProduct<true, 1, 1>(tava);
        productPeers<true, 1, 1>(tava);
        auto mav = checked("zonmMul_mav", 1, 0, false);
        mav.calls("zonm", ZONM(zonmMul_mav), array(a), N, N, x0, N, array(d), count);
        fixedProduct<false, 1, 0>(mav);
        productPeers<false, 1, 0>(mav);
        auto mva = checked("zonmMul_mva", 0, 1, false);
        mva.calls("zonm", ZONM(zonmMul_mva), a0, N, N, array(x), N, array(d), count);
        fixedProduct<false, 0, 1>(mva);
        productPeers<false, 0, 1>(mva);
        auto mv = checked("zonmMul_mv", 1, 1, false);
        mv.oneByOne(size)
            .calls("zonm", ZONM(zonmMul_mv), single(a), N, N, single(x), N, single(d))
            .calls("Eigen", eigenProduct, single(a), single(x), single(d));
        productPeers<false, 1, 1>(mv);

        auto gaxpy = checked("zonmGaxpy_mva", 0, 1, false, true);
        gaxpy.calls("zonm", ZONM(zonmGaxpy_mva), a0, N, N, array(x), N, array(y), N, array(d),
                    count);
        each(gaxpy, "Eigen", [=, *this](int k) { D[k].noalias() = *A * X[k] + Y[k]; });
        each(gaxpy, "Eigen dynamic", [=, *this](int k) {
            dynamic(d.object(k)).noalias() =
                dynamicMatrix(a.data) * dynamic(x.object(k)) + dynamic(y.object(k));
        });
#ifdef BENCH_OPENBLAS
        each(gaxpy, "OpenBLAS", [=, *this](int k) {
            std::copy_n(y.object(k), N, d.object(k));
            gemv(false, N, a.data, x.object(k), T(1), d.object(k));
        });
#endif
    }

    void reductions() const
    {
        const auto checked = [=, *this](const char *operation, int terms, auto value) {
            return row(operation).into(numbers).check(
                [=, to = numbers] { return errorOf<T>(to, terms + 1, value); });
        };
        T *to = numbers.data;
        const auto number = [=](int k, int) { return to + k; };
        const auto dot = [=, *this](int k, int) {
            return sumOver(N, [&](int p) { return double(x.object(k)[p]) * y.object(k)[p]; });
        };
        auto vava = checked("zonmDotProduct_vava", N, dot);
        vava.calls("zonm", ZONM(zonmDotProduct_vava), array(x), array(y), number, N, count);
        each(vava, "Eigen", [=, *this](int k) { to[k] = X[k].dot(Y[k]); });
        auto vv = checked("zonmDotProduct_vv", N, dot);
        vv.oneByOne(size)
            .calls("zonm", ZONM(zonmDotProduct_vv), single(x), single(y), number, N)
            .calls("Eigen", eigenDot, single(x), single(y), number);
        for (Row *r : {&vava, &vv}) {
            each(*r, "Eigen dynamic", [=, *this](int k) {
                to[k] = dynamic(x.object(k)).dot(dynamic(std::as_const(y).object(k)));
            });
#ifdef BENCH_OPENBLAS
            each(*r, "OpenBLAS",
                 [=, *this](int k) { to[k] = bench::dot(N, x.object(k), y.object(k)); });
#endif
        }
        const auto root = [](Term squares) {
            return Term{std::sqrt(squares.value), std::sqrt(squares.value)};
        };
        auto norm = checked("zonmL2Norm_va", N, [=, *this](int k, int) {
            return root(sumOver(N, [&](int p) { return double(x.object(k)[p]) * x.object(k)[p]; }));
        });
        norm.calls("zonm", ZONM(zonmL2Norm_va), array(x), number, N, count);
        each(norm, "Eigen", [=, *this](int k) { to[k] = X[k].norm(); });
        each(norm, "Eigen dynamic", [=, *this](int k) { to[k] = dynamic(x.object(k)).norm(); });
#ifdef BENCH_OPENBLAS
        each(norm, "OpenBLAS", [=, *this](int k) { to[k] = nrm2(N, x.object(k)); });
#endif
        auto frob = checked("zonmFrobNorm_ma", N * N, [=, *this](int k, int) {
            return root(
                sumOver(N * N, [&](int p) { return double(a.object(k)[p]) * a.object(k)[p]; }));
        });
        frob.calls("zonm", ZONM(zonmFrobNorm_ma), array(a), N, N, number, count);
        each(frob, "Eigen", [=, *this](int k) { to[k] = A[k].norm(); });
        each(frob, "Eigen dynamic",
             [=, *this](int k) { to[k] = dynamicMatrix(a.object(k)).norm(); });
    }

    void combinations() const
    {
        const T factor = T(0.7);
        const auto scaled = [=, *this](int stepX) {
            return [=, *this](int k, int i) {
                const double one = double(x.object(k * stepX)[i]) * factor, two = y.object(k)[i];
                return Term{one + two, std::fabs(one) + std::fabs(two)};
            };
        };
        const auto checked = [=, *this](const char *operation, auto value) {
            return row(operation).into(d).check([=, to = d] { return errorOf<T>(to, 3, value); });
        };
        auto vva = checked("zonmSaxpy_vva", scaled(0));
        vva.calls("zonm", ZONM(zonmSaxpy_vva), fixed(single(x)), factor, array(y), array(d), N,
                  count);
        each(vva, "Eigen", [=, *this](int k) { D[k] = *X * factor + Y[k]; });
        each(vva, "Eigen dynamic", [=, *this](int k) {
            dynamic(d.object(k)) = dynamic(x.object(0)) * factor + dynamic(y.object(k));
        });
#ifdef BENCH_OPENBLAS
        each(vva, "OpenBLAS", [=, *this](int k) {
            std::copy_n(y.object(k), N, d.object(k));
            axpy(N, factor, x.data, d.object(k));
        });
#endif
        auto vv = checked("zonmSaxpy_vv", scaled(1));
        vv.oneByOne(size)
            .calls("zonm", ZONM(zonmSaxpy_vv), single(x), factor, single(y), single(d), N)
            .calls("Eigen", eigenAxpy, single(x), factor, single(y), single(d));
        if constexpr (N == 3) {
            auto cross = checked("zonmCrossProduct_vava", [=, *this](int k, int i) {
                const T *v = x.object(k), *w = y.object(k);
                const int j = (i + 1) % 3, l = (i + 2) % 3;
                const double one = double(v[j]) * w[l], two = double(v[l]) * w[j];
                return Term{one - two, std::fabs(one) + std::fabs(two)};
            });
            cross.calls("zonm", ZONM(zonmCrossProduct_vava), array(x), array(y), array(d), count);
            each(cross, "Eigen", [=, *this](int k) { D[k] = X[k].cross(Y[k]); });
        }
    }
};

template <class T, int N> void rowsOf()
{
    const Rows<T, N> rows;
    rows.matrixVector();
    rows.reductions();
    rows.combinations();
}
template <class T, int... N> void sizes() { (rowsOf<T, N>(), ...); }
template <class T> void rows() { sizes<T, 3, 4, 5, 6, 8, 16, 32>(); }

} // namespace bench::vectors
