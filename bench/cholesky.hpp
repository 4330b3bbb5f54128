// SPDX-License-Identifier: Apache-2.0
// Cholesky decomposition and back substitution of random positive definite matrices, all different.
#pragma once

#include "systems.hpp"

namespace bench::cholesky
{

// The same systems for all, and the factors as each contestant keeps them. The matrices are
// symmetric: rows are columns.
template <class T, int N> struct Systems {
    using M = ColumnMajor<T, N>;
    using Eigens = Eigen::LLT<M>;

    Matrices<T> a{random<T>(N * N * systems), N, systems};
    Vectors<T> b{random<T>(N * systems), N, systems};
    Vectors<T> x{allocate<T>(N * systems), N, systems};

    Matrices<T> factor{allocate<T>(N * N * systems), N, systems};
    Eigens *eigen = allocate<Eigens>(systems);
    Matrices<T> lapack{allocate<T>(N * N * systems), N, systems};

    Systems()
    {
        std::uninitialized_default_construct_n(eigen, systems);
        for (int k = 0; k < systems; ++k) {
            const M g = as<M>(a.data)[k];
            as<M>(a.data)[k] = g * g.transpose() + M::Identity();
        }
    }
    Row row(const char *operation, int stepA = 1) const
    {
        return Row("cholesky", operation, typeName<T>, N, systems)
            .into(x)
            .check([a = a, b = b, x = x, stepA] { return solutionError(a, stepA, b, x); });
    }
};

// Each function enters one contestant in the same rows. A decomposition is checked by the solutions
// that it leads to; the factors of the last one serve the rows of the back substitution.
template <class T, int N> void enterZonm(const Systems<T, N> &s)
{
    const auto a = s.a, l = s.factor;
    const auto b = s.b, x = s.x;
    const auto l0 = fixed(single(l));
    const auto l0Elements = fixed(singleElements(l));

    const auto decompose = callOf(ZONM(zonmCholeskyDecomp_ma), array(a), array(l), N, count);
    const auto solve =
        callOf(ZONM(zonmCholeskyBackSubst_mava), array(l), array(b), array(x), N, count);
    const auto decomposeOne = callOf(ZONM(zonmCholeskyDecomp_m), single(a), single(l), N);
    const auto solveOne =
        callOf(ZONM(zonmCholeskyBackSubst_mv), single(l), single(b), single(x), N);
    decompose(0, systems);

    s.row("zonmCholeskyDecomp_ma")
        .into(l)
        .add("zonm", decompose, onAll(solve))
        .add("zonm _L", callOf(ZONM_L(zonmCholeskyDecomp_ma), objects(a), objects(l), N, count),
             onAll(solve))
        .add("zonm _P", callOf(ZONM_P(zonmCholeskyDecomp_ma), elements(a), elements(l), N, count),
             onAll(solve));
    s.row("zonmCholeskyBackSubst_mava")
        .add("zonm", solve)
        .calls("zonm _L", ZONM_L(zonmCholeskyBackSubst_mava), objects(l), objects(b), objects(x), N,
               count)
        .calls("zonm _P", ZONM_P(zonmCholeskyBackSubst_mava), elements(l), elements(b), elements(x),
               N, count);
    s.row("zonmCholeskyBackSubst_mva", 0)
        .calls("zonm", ZONM(zonmCholeskyBackSubst_mva), l0, array(b), array(x), N, count)
        .calls("zonm _L", ZONM_L(zonmCholeskyBackSubst_mva), l0, objects(b), objects(x), N, count)
        .calls("zonm _P", ZONM_P(zonmCholeskyBackSubst_mva), l0Elements, elements(b), elements(x),
               N, count);
    s.row("zonmCholeskyDecomp_ma, zonmCholeskyBackSubst_mava")
        .into(l)
        .add("zonm", both(decompose, solve));

    s.row("zonmCholeskyDecomp_m")
        .oneByOne(systems)
        .into(l)
        .add("zonm", decomposeOne, onAll(solve))
        .add("zonm _P",
             callOf(ZONM_P(zonmCholeskyDecomp_m), singleElements(a), singleElements(l), N),
             onAll(solve));
    s.row("zonmCholeskyBackSubst_mv")
        .oneByOne(systems)
        .add("zonm", solveOne)
        .calls("zonm _P", ZONM_P(zonmCholeskyBackSubst_mv), singleElements(l), singleElements(b),
               singleElements(x), N);
    s.row("zonmCholeskyDecomp_m, zonmCholeskyBackSubst_mv")
        .oneByOne(systems)
        .into(l)
        .add("zonm", both(decomposeOne, solveOne));
}

template <class T, int N> void enterEigen(const Systems<T, N> &s)
{
    using M = typename Systems<T, N>::M;
    using Eigens = typename Systems<T, N>::Eigens;
    const auto A = as<const M>(s.a.data);
    const auto B = as<const ColumnVector<T, N>>(s.b.data);
    const auto X = as<ColumnVector<T, N>>(s.x.data);
    const auto llt = s.eigen;
    const auto object = [=](int k, int) { return llt + k; };

    const auto decompose = [=](int, int n) {
        for (int k = 0; k < n; ++k)
            llt[k].compute(A[k]);
    };
    const auto solve = [=](int, int n) {
        for (int k = 0; k < n; ++k)
            X[k] = llt[k].solve(B[k]);
    };
    const auto decomposeOne = callOf(eigenDecomposeOne<M, Eigens, T>, single(s.a), object);
    const auto solveOne = callOf(eigenSolveOne<M, Eigens, T>, object, single(s.b), single(s.x));
    decompose(0, systems);

    s.row("zonmCholeskyDecomp_ma").add("Eigen", decompose, onAll(solve));
    s.row("zonmCholeskyBackSubst_mava").add("Eigen", solve);
    s.row("zonmCholeskyBackSubst_mva", 0)
        .add("Eigen",
             [=](int, int n) {
                 for (int k = 0; k < n; ++k)
                     X[k] = llt->solve(B[k]);
             })
        .add("Eigen dynamic", [=](int, int n) {
            using Columns = Eigen::Matrix<T, N, Eigen::Dynamic>;
            Eigen::Map<Columns>(X->data(), N, n) =
                llt->solve(Eigen::Map<const Columns>(B->data(), N, n));
        });
    s.row("zonmCholeskyDecomp_ma, zonmCholeskyBackSubst_mava").add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            X[k] = A[k].llt().solve(B[k]);
    });
    s.row("zonmCholeskyDecomp_m").oneByOne(systems).add("Eigen", decomposeOne, onAll(solve));
    s.row("zonmCholeskyBackSubst_mv").oneByOne(systems).add("Eigen", solveOne);
    s.row("zonmCholeskyDecomp_m, zonmCholeskyBackSubst_mv")
        .oneByOne(systems)
        .add("Eigen", [=](int k, int n) {
            decomposeOne(k, n);
            solveOne(k, n);
        });
}

#ifdef BENCH_OPENBLAS
// LAPACK works in place; zonm keeps its sources, so the copy is part of the work.
template <class T, int N> void enterOpenBLAS(const Systems<T, N> &s)
{
    const auto a = s.a, l = s.lapack;
    const auto b = s.b, x = s.x;

    const auto decompose = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(l.object(k), a.object(k), a.step());
            info |= potrf(N, l.object(k));
        }
        return info;
    };
    const auto solve = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(x.object(k), b.object(k), b.step());
            info |= potrs(N, 1, l.object(k), x.object(k));
        }
        return info;
    };
    decompose(0, systems);

    s.row("zonmCholeskyDecomp_ma").into(l).add("OpenBLAS", decompose, onAll(solve));
    s.row("zonmCholeskyBackSubst_mava").add("OpenBLAS", solve);
    s.row("zonmCholeskyBackSubst_mva", 0).add("OpenBLAS", [=](int, int n) {
        std::memcpy(x.data, b.data, std::size_t(n) * b.step());
        return potrs(N, n, l.data, x.data);
    });
    s.row("zonmCholeskyDecomp_m")
        .oneByOne(systems)
        .into(l)
        .add("OpenBLAS", decompose, onAll(solve));
    s.row("zonmCholeskyBackSubst_mv").oneByOne(systems).add("OpenBLAS", solve);
    for (const char *operation : {"zonmCholeskyDecomp_ma, zonmCholeskyBackSubst_mava",
                                  "zonmCholeskyDecomp_m, zonmCholeskyBackSubst_mv"})
        s.row(operation).oneByOne(systems).into(l).add("OpenBLAS", both(decompose, solve));
}
#endif

template <class T, int N> void solutions()
{
    static const Systems<T, N> s;
    enterZonm(s);
    enterEigen(s);
#ifdef BENCH_OPENBLAS
    enterOpenBLAS(s);
#endif
}

template <class T, int... N> void sizes() { (solutions<T, N>(), ...); }
template <class T> void rows() { sizes<T, 3, 4, 5, 6, 7, 8, 12>(); }

} // namespace bench::cholesky
