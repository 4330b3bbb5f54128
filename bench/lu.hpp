// SPDX-License-Identifier: Apache-2.0
// LU decomposition and back substitution. The matrices are random and all different: branch
// predictors learn the pivots of a small set.
#pragma once

#include "systems.hpp"

namespace bench::lu
{

// Eigen behind a call with run-time strides; its matrices are column-major.
template <class T, int N> using EigenLU = Eigen::PartialPivLU<ColumnMajor<T, N>>;

template <class T, int N>
__attribute__((noinline)) void eigenDecompose(const T *a, int column, int element,
                                              EigenLU<T, N> *lu)
{
    lu->compute(strided<const ColumnMajor<T, N>>(a, column, element));
}
template <class T, int N>
__attribute__((noinline)) void eigenSolve(const EigenLU<T, N> *lu, const T *b, int bElement, T *x,
                                          int xElement)
{
    using V = ColumnVector<T, N>;
    using Step = Eigen::InnerStride<>;
    const int size = sizeof(T);
    Eigen::Map<V, 0, Step>(x, Step(xElement / size)) =
        lu->solve(Eigen::Map<const V, 0, Step>(b, Step(bElement / size)));
}

// The same systems for all, and the factors as each contestant keeps them.
template <class T, int N> struct Systems {
    Matrices<T> a{random<T>(N * N * systems), N, systems};
    Matrices<T> columnMajor{allocate<T>(N * N * systems), N, systems};
    Vectors<T> b{random<T>(N * systems), N, systems};
    Vectors<T> x{allocate<T>(N * systems), N, systems};

    Matrices<T> lu{allocate<T>(N * N * systems), N, systems};
    std::int32_t *rowOrder = allocate<std::int32_t>(N * systems);
    EigenLU<T, N> *eigen = allocate<EigenLU<T, N>>(systems);
    Matrices<T> lapack{allocate<T>(N * N * systems), N, systems};
    int *exchanges = allocate<int>(N * systems);

    Systems()
    {
        std::uninitialized_default_construct_n(eigen, systems);
        for (int k = 0; k < systems; ++k)
            as<ColumnMajor<T, N>>(columnMajor.data)[k] = as<const RowMajor<T, N>>(a.data)[k];
    }
    Row row(const char *operation, int stepA = 1) const
    {
        return Row("lu", operation, typeName<T>, N, systems)
            .into(x)
            .check([a = a, b = b, x = x, stepA] { return solutionError(a, stepA, b, x); });
    }
};

// Each function enters one contestant in the same rows. A decomposition is checked by the solutions
// that it leads to; the factors of the last one serve the rows of the back substitution.
template <class T, int N> void enterZonm(const Systems<T, N> &s)
{
    const auto a = s.a, lu = s.lu;
    const auto b = s.b, x = s.x;
    const auto pivots = [rows = s.rowOrder](int k, int) { return rows + k * N; };
    const auto pivots0 = fixed(pivots);
    const auto lu0 = fixed(single(lu));
    const auto lu0Elements = fixed(singleElements(lu));

    const auto decompose = callOf(ZONM(zonmLUDecomp_ma), array(a), pivots, array(lu), N, count);
    const auto solve =
        callOf(ZONM(zonmLUBackSubst_mava), array(lu), pivots, array(b), array(x), N, count);
    const auto decomposeOne = callOf(ZONM(zonmLUDecomp_m), single(a), pivots, single(lu), N);
    const auto solveOne =
        callOf(ZONM(zonmLUBackSubst_mv), single(lu), pivots, single(b), single(x), N);
    const auto factors = [=](Row row) {
        return row.into(lu).into(s.rowOrder, N * systems * sizeof(std::int32_t));
    };
    decompose(0, systems);

    factors(s.row("zonmLUDecomp_ma"))
        .add("zonm", decompose, onAll(solve))
        .add("zonm _L", callOf(ZONM_L(zonmLUDecomp_ma), objects(a), pivots, objects(lu), N, count),
             onAll(solve))
        .add("zonm _P",
             callOf(ZONM_P(zonmLUDecomp_ma), elements(a), pivots, elements(lu), N, count),
             onAll(solve));
    s.row("zonmLUBackSubst_mava")
        .add("zonm", solve)
        .calls("zonm _L", ZONM_L(zonmLUBackSubst_mava), objects(lu), pivots, objects(b), objects(x),
               N, count)
        .calls("zonm _P", ZONM_P(zonmLUBackSubst_mava), elements(lu), pivots, elements(b),
               elements(x), N, count);
    s.row("zonmLUBackSubst_mva", 0)
        .calls("zonm", ZONM(zonmLUBackSubst_mva), lu0, pivots0, array(b), array(x), N, count)
        .calls("zonm _L", ZONM_L(zonmLUBackSubst_mva), lu0, pivots0, objects(b), objects(x), N,
               count)
        .calls("zonm _P", ZONM_P(zonmLUBackSubst_mva), lu0Elements, pivots0, elements(b),
               elements(x), N, count);
    factors(s.row("zonmLUDecomp_ma, zonmLUBackSubst_mava")).add("zonm", both(decompose, solve));

    factors(s.row("zonmLUDecomp_m"))
        .oneByOne(systems)
        .add("zonm", decomposeOne, onAll(solve))
        .add("zonm _P",
             callOf(ZONM_P(zonmLUDecomp_m), singleElements(a), pivots, singleElements(lu), N),
             onAll(solve));
    s.row("zonmLUBackSubst_mv")
        .oneByOne(systems)
        .add("zonm", solveOne)
        .calls("zonm _P", ZONM_P(zonmLUBackSubst_mv), singleElements(lu), pivots, singleElements(b),
               singleElements(x), N);
    factors(s.row("zonmLUDecomp_m, zonmLUBackSubst_mv"))
        .oneByOne(systems)
        .add("zonm", both(decomposeOne, solveOne));
}

template <class T, int N> void enterEigen(const Systems<T, N> &s)
{
    const auto A = as<const ColumnMajor<T, N>>(s.columnMajor.data);
    const auto B = as<const ColumnVector<T, N>>(s.b.data);
    const auto X = as<ColumnVector<T, N>>(s.x.data);
    const auto lu = s.eigen;
    const auto object = [=](int k, int) { return lu + k; };

    const auto decompose = [=](int, int n) {
        for (int k = 0; k < n; ++k)
            lu[k].compute(A[k]);
    };
    const auto solve = [=](int, int n) {
        for (int k = 0; k < n; ++k)
            X[k] = lu[k].solve(B[k]);
    };
    const auto decomposeOne = callOf(eigenDecompose<T, N>, single(s.columnMajor), object);
    const auto solveOne = callOf(eigenSolve<T, N>, object, single(s.b), single(s.x));
    const auto factors = [=](Row row) { return row.into(lu, sizeof(*lu) * systems); };
    decompose(0, systems);

    // In zonm's order of elements, for those who keep their matrices by rows.
    const auto byRows = std::make_shared<Eigen::PartialPivLU<RowMajor<T, N>>>(
        as<const RowMajor<T, N>>(s.a.data)[0]);

    factors(s.row("zonmLUDecomp_ma")).add("Eigen", decompose, onAll(solve));
    s.row("zonmLUBackSubst_mava").add("Eigen", solve);
    s.row("zonmLUBackSubst_mva", 0)
        .add("Eigen",
             [=](int, int n) {
                 for (int k = 0; k < n; ++k)
                     X[k] = lu->solve(B[k]);
             })
        .add("Eigen by rows",
             [=](int, int n) {
                 for (int k = 0; k < n; ++k)
                     X[k] = byRows->solve(B[k]);
             })
        .add("Eigen dynamic", [=](int, int n) {
            using Columns = Eigen::Matrix<T, N, Eigen::Dynamic>;
            Eigen::Map<Columns>(X->data(), N, n) =
                lu->solve(Eigen::Map<const Columns>(B->data(), N, n));
        });
    s.row("zonmLUDecomp_ma, zonmLUBackSubst_mava").add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            X[k] = A[k].partialPivLu().solve(B[k]);
    });
    factors(s.row("zonmLUDecomp_m")).oneByOne(systems).add("Eigen", decomposeOne, onAll(solve));
    s.row("zonmLUBackSubst_mv").oneByOne(systems).add("Eigen", solveOne);
    factors(s.row("zonmLUDecomp_m, zonmLUBackSubst_mv"))
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
    const auto a = s.columnMajor, lu = s.lapack;
    const auto b = s.b, x = s.x;
    const auto pivots = s.exchanges;

    const auto decompose = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(lu.object(k), a.object(k), a.step());
            info |= getrf(N, lu.object(k), pivots + k * N);
        }
        return info;
    };
    const auto solve = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(x.object(k), b.object(k), b.step());
            info |= getrs(N, 1, lu.object(k), pivots + k * N, x.object(k));
        }
        return info;
    };
    const auto factors = [=](Row row) {
        return row.into(lu).into(pivots, N * systems * sizeof(int));
    };
    decompose(0, systems);

    factors(s.row("zonmLUDecomp_ma")).add("OpenBLAS", decompose, onAll(solve));
    s.row("zonmLUBackSubst_mava").add("OpenBLAS", solve);
    s.row("zonmLUBackSubst_mva", 0).add("OpenBLAS", [=](int, int n) {
        std::memcpy(x.data, b.data, std::size_t(n) * b.step());
        return getrs(N, n, lu.data, pivots, x.data);
    });
    factors(s.row("zonmLUDecomp_m")).oneByOne(systems).add("OpenBLAS", decompose, onAll(solve));
    s.row("zonmLUBackSubst_mv").oneByOne(systems).add("OpenBLAS", solve);
    for (const char *operation :
         {"zonmLUDecomp_ma, zonmLUBackSubst_mava", "zonmLUDecomp_m, zonmLUBackSubst_mv"})
        factors(s.row(operation)).oneByOne(systems).add("OpenBLAS", both(decompose, solve));
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

} // namespace bench::lu
