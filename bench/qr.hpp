// SPDX-License-Identifier: Apache-2.0
// QR decomposition and back substitution of random matrices, square and tall. A row's size is the
// width; the height of tall ones stands in the name.
#pragma once

#include "systems.hpp"

namespace bench::qr
{

// The same systems for all, and the factors as each contestant keeps them.
template <class T, int W, int H> struct Systems {
    using M = Eigen::Matrix<T, H, W>;
    using Rows = Eigen::Matrix<T, H, W, Eigen::RowMajor>;
    // Of high matrices Eigen knows only the greatest height: it would unroll their columns.
    using Eigens = Eigen::HouseholderQR<Eigen::Matrix<T, H <= 12 ? H : Eigen::Dynamic, W, 0, H, W>>;
    static constexpr int number = W == H ? systems : 3000;

    Matrices<T> a{random<T>(W * H * number), W, H, number};
    Matrices<T> columnMajor{allocate<T>(W * H * number), H, W, number};
    Vectors<T> b{random<T>(H * number), H, number};
    Vectors<T> x{allocate<T>(W * number), W, number};

    Matrices<T> factor{allocate<T>(W * H * number), W, H, number};
    T *buffer = allocate<T>(H);
    Eigens *eigen = allocate<Eigens>(number);
    Matrices<T> lapack{allocate<T>(W * H * number), H, W, number};
    Vectors<T> tau{allocate<T>(W * number), W, number};
    T *transformed = allocate<T>(H);

    Systems()
    {
        std::uninitialized_default_construct_n(eigen, number);
        for (int k = 0; k < number; ++k)
            as<M>(columnMajor.data)[k] = as<const Rows>(a.data)[k];
    }
    static std::string name(std::string operation)
    {
        return W == H ? operation : operation + ", height " + std::to_string(H);
    }
    Row row(const char *operation, int stepA = 1) const
    {
        return Row("qr", name(operation), typeName<T>, W, number)
            .into(x)
            .check([a = a, b = b, x = x, stepA] {
                if constexpr (W == H)
                    return solutionError(a, stepA, b, x);
                else
                    return leastSquaresError(a, b, x);
            });
    }
};

// Each function enters one contestant in the same rows. A decomposition is checked by the solutions
// that it leads to; the factors of the last one serve the rows of the back substitution.
template <class T, int W, int H> void enterZonm(const Systems<T, W, H> &s)
{
    const auto a = s.a, f = s.factor;
    const auto b = s.b, x = s.x;
    const auto buffer = s.buffer;
    const auto f0 = fixed(single(f));
    const auto f0Elements = fixed(singleElements(f));

    const auto decompose = callOf(ZONM(zonmQRDecomp_ma), array(a), buffer, array(f), W, H, count);
    const auto solve =
        callOf(ZONM(zonmQRBackSubst_mava), array(f), buffer, array(b), array(x), W, H, count);
    const auto decomposeOne = callOf(ZONM(zonmQRDecomp_m), single(a), buffer, single(f), W, H);
    const auto solveOne =
        callOf(ZONM(zonmQRBackSubst_mv), single(f), buffer, single(b), single(x), W, H);
    decompose(0, s.number);
    const auto onAll = [=, n = s.number](auto work) { return [=] { work(0, n); }; };

    s.row("zonmQRDecomp_ma")
        .into(f)
        .add("zonm", decompose, onAll(solve))
        .add("zonm _L",
             callOf(ZONM_L(zonmQRDecomp_ma), objects(a), buffer, objects(f), W, H, count),
             onAll(solve))
        .add("zonm _P",
             callOf(ZONM_P(zonmQRDecomp_ma), elements(a), buffer, elements(f), W, H, count),
             onAll(solve));
    s.row("zonmQRBackSubst_mava")
        .add("zonm", solve)
        .calls("zonm _L", ZONM_L(zonmQRBackSubst_mava), objects(f), buffer, objects(b), objects(x),
               W, H, count)
        .calls("zonm _P", ZONM_P(zonmQRBackSubst_mava), elements(f), buffer, elements(b),
               elements(x), W, H, count);
    if (W == H)
        s.row("zonmQRBackSubst_mva", 0)
            .calls("zonm", ZONM(zonmQRBackSubst_mva), f0, buffer, array(b), array(x), W, H, count)
            .calls("zonm _L", ZONM_L(zonmQRBackSubst_mva), f0, buffer, objects(b), objects(x), W, H,
                   count)
            .calls("zonm _P", ZONM_P(zonmQRBackSubst_mva), f0Elements, buffer, elements(b),
                   elements(x), W, H, count);
    s.row("zonmQRDecomp_ma, zonmQRBackSubst_mava").into(f).add("zonm", both(decompose, solve));

    s.row("zonmQRDecomp_m")
        .oneByOne(s.number)
        .into(f)
        .add("zonm", decomposeOne, onAll(solve))
        .add("zonm _P",
             callOf(ZONM_P(zonmQRDecomp_m), singleElements(a), buffer, singleElements(f), W, H),
             onAll(solve));
    s.row("zonmQRBackSubst_mv")
        .oneByOne(s.number)
        .add("zonm", solveOne)
        .calls("zonm _P", ZONM_P(zonmQRBackSubst_mv), singleElements(f), buffer, singleElements(b),
               singleElements(x), W, H);
    s.row("zonmQRDecomp_m, zonmQRBackSubst_mv")
        .oneByOne(s.number)
        .into(f)
        .add("zonm", both(decomposeOne, solveOne));
}

template <class T, int W, int H> void enterEigen(const Systems<T, W, H> &s)
{
    using M = typename Systems<T, W, H>::M;
    using Eigens = typename Systems<T, W, H>::Eigens;
    const auto A = as<const M>(s.columnMajor.data);
    const auto B = as<const ColumnVector<T, H>>(s.b.data);
    const auto X = as<ColumnVector<T, W>>(s.x.data);
    const auto qr = s.eigen;
    const auto object = [=](int k, int) { return qr + k; };
    const auto onAll = [=, n = s.number](auto work) { return [=] { work(0, n); }; };

    const auto decompose = [=](int, int n) {
        for (int k = 0; k < n; ++k)
            qr[k].compute(A[k]);
    };
    const auto solve = [=](int, int n) {
        for (int k = 0; k < n; ++k)
            X[k] = qr[k].solve(B[k]);
    };
    const auto decomposeOne =
        callOf(eigenDecomposeOne<M, Eigens, T>, single(s.columnMajor), object);
    const auto solveOne = callOf(eigenSolveOne<M, Eigens, T>, object, single(s.b), single(s.x));
    decompose(0, s.number);

    s.row("zonmQRDecomp_ma").add("Eigen", decompose, onAll(solve));
    s.row("zonmQRBackSubst_mava").add("Eigen", solve);
    if (W == H)
        s.row("zonmQRBackSubst_mva", 0).add("Eigen", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                X[k] = qr->solve(B[k]);
        });
    s.row("zonmQRDecomp_ma, zonmQRBackSubst_mava").add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            X[k] = Eigens(A[k]).solve(B[k]);
    });
    s.row("zonmQRDecomp_m").oneByOne(s.number).add("Eigen", decomposeOne, onAll(solve));
    s.row("zonmQRBackSubst_mv").oneByOne(s.number).add("Eigen", solveOne);
    s.row("zonmQRDecomp_m, zonmQRBackSubst_mv").oneByOne(s.number).add("Eigen", [=](int k, int n) {
        decomposeOne(k, n);
        solveOne(k, n);
    });
}

#ifdef BENCH_OPENBLAS
// LAPACK works in place; zonm keeps its sources, so the copy is part of the work.
template <class T, int W, int H> void enterOpenBLAS(const Systems<T, W, H> &s)
{
    const auto a = s.columnMajor, f = s.lapack;
    const auto b = s.b, x = s.x, tau = s.tau;
    const auto transformed = s.transformed;
    const auto onAll = [=, n = s.number](auto work) { return [=] { work(0, n); }; };

    const auto decompose = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(f.object(k), a.object(k), a.step());
            info |= geqrf(H, W, f.object(k), tau.object(k));
        }
        return info;
    };
    const auto solve = [=](int first, int n) {
        int info = 0;
        for (int k = first; k < first + n; ++k) {
            std::memcpy(transformed, b.object(k), b.step());
            info |= solveByQR(H, W, f.object(k), tau.object(k), transformed);
            std::memcpy(x.object(k), transformed, x.step());
        }
        return info;
    };
    decompose(0, s.number);

    s.row("zonmQRDecomp_ma").into(f).add("OpenBLAS", decompose, onAll(solve));
    s.row("zonmQRBackSubst_mava").add("OpenBLAS", solve);
    s.row("zonmQRDecomp_m").oneByOne(s.number).into(f).add("OpenBLAS", decompose, onAll(solve));
    s.row("zonmQRBackSubst_mv").oneByOne(s.number).add("OpenBLAS", solve);
    for (const char *operation :
         {"zonmQRDecomp_ma, zonmQRBackSubst_mava", "zonmQRDecomp_m, zonmQRBackSubst_mv"})
        s.row(operation).oneByOne(s.number).into(f).add("OpenBLAS", both(decompose, solve));
}
#endif

template <class T, int W, int H = W> void solutions()
{
    static const Systems<T, W, H> s;
    enterZonm(s);
    enterEigen(s);
#ifdef BENCH_OPENBLAS
    enterOpenBLAS(s);
#endif
}

template <class T, int... N> void squares() { (solutions<T, N>(), ...); }
template <class T> void rows()
{
    squares<T, 3, 4, 5, 6, 8, 12>();
    solutions<T, 3, 111>();
    solutions<T, 3, 20>();
    solutions<T, 6, 12>();
}

} // namespace bench::qr
