// SPDX-License-Identifier: Apache-2.0
// Products of N×N matrices in straight-line code, N a constant, for arrays of them.
// Elements of dst are stored in row order, so that nothing is asked of dst.
#pragma once

#include "products/operands.hpp"
#include "products/sums.hpp"
#include "zonm.h"

namespace zonm
{

// What a chain begins with: its first product, or the sum of 0.0 and that. The sign of a zero
// tells.
enum class Start { product, zero };

// The operand that is one matrix for all k, if its elements stay in registers.
enum class Held { none, first, second };

// B row by row in packs.
template <int N> struct PackedRows {
    static constexpr int padded = (N + sumLanes - 1) / sumLanes * sumLanes;
    using Element = double;
    alignas(registerBytes) double element[N][padded];

    template <class B> explicit ZONM_INLINED inline PackedRows(const B &b)
    {
        cut<N>([&](auto j, auto w) ZONM_INLINED {
            unrolled<0, N / 2>([&](auto p) ZONM_INLINED { keep<2, j, w>(b, 2 * p); });
            if constexpr (N % 2 != 0)
                keep<1, j, w>(b, N - 1);
        });
    }
    const std::byte *at(int i, int j) const { return bytes(&element[i][j]); }

  private:
    template <int R, int J, int W, class B> ZONM_INLINED inline void keep(const B &b, int p)
    {
        Sums<W> rows[R];
        loadRows<R, W>(rows, b, p, J);
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            storeNarrowed<double, W>(bytes(&element[p + r][J]), rows[r]);
        });
    }
};
template <int N> inline constexpr bool hasDenseRows<PackedRows<N>> = true;

// A with each element in all lanes.
template <int N> struct SpreadElements {
    Sums<sumLanes> element[N][N];

    template <class A> explicit ZONM_INLINED inline SpreadElements(const A &a)
    {
        spread(element, a, 0, 0);
    }
};

template <int R, int C, int N>
ZONM_INLINED inline void spread(Sums<sumLanes> (&f)[R][C], const SpreadElements<N> &a, ptrdiff_t i,
                                ptrdiff_t p)
{
    unrolled<0, R>([&](auto r) ZONM_INLINED {
        unrolled<0, C>([&](auto c) ZONM_INLINED { f[r][c] = a.element[i + r][p + c]; });
    });
}

// How many rows of dst have their sums in registers at a time.
template <int N> inline constexpr int rowsAtATime = N <= 4 ? N : 3;

// Adds the products of columns P to P + Q - 1 of A to the sums of rows i to i + R - 1 of dst.
template <int N, int R, Start S, int P, int Q, class A, class B>
ZONM_INLINED inline void addProducts(PackedSums<N> (&sum)[R], const A &a, const B &b, ptrdiff_t i)
{
    Sums<sumLanes> left[R][Q];
    spread(left, a, i, P);
    cut<N>([&](auto j, auto w) ZONM_INLINED {
        Sums<w> right[Q];
        loadRows<Q, w>(right, b, P, j);
        unrolled<0, Q>([&](auto q) ZONM_INLINED {
            unrolled<0, R>([&](auto r) ZONM_INLINED {
                const Sums<w> product = first<w>(left[r][q]) * right[q];
                auto &s = sum[r].template part<j, w>();
                if constexpr (P + q > 0)
                    s = s + product;
                else if constexpr (S == Start::zero)
                    s = all<w>(0.0) + product;
                else
                    s = product;
            });
        });
    });
}

// Rows i to i + R - 1 of dst.
template <int N, int R, Start S, class A, class B, class D>
ZONM_INLINED inline void multiplyRows(const A &a, const B &b, const D &d, ptrdiff_t i)
{
    PackedSums<N> sum[R];
    unrolled<0, N / 2>([&](auto p) ZONM_INLINED { addProducts<N, R, S, 2 * p, 2>(sum, a, b, i); });
    if constexpr (N % 2 != 0)
        addProducts<N, R, S, N - 1, 1>(sum, a, b, i);
    unrolled<0, R>([&](auto r) ZONM_INLINED {
        cut<N>([&](auto j, auto w)
                   ZONM_INLINED { setRow<w>(d, i + r, j, sum[r].template part<j, w>()); });
    });
}

template <int N, Start S, class A, class B, class D>
ZONM_INLINED inline void squareProduct(const A &a, const B &b, const D &d)
{
    constexpr int R = rowsAtATime<N>;
    // Packed beforehand: rows of B that are used more than once and cost more than their loads.
    if constexpr (R < N && !(hasDenseRows<B> && sizeof(typename B::Element) == sizeof(double))) {
        squareProduct<N, S>(a, PackedRows<N>(b), d);
    } else {
        unrolled<0, N / R>([&](auto i) ZONM_INLINED { multiplyRows<N, R, S>(a, b, d, i * R); });
        if constexpr (N % R != 0)
            multiplyRows<N, N % R, S>(a, b, d, N / R * R);
    }
}

// One object, for sizes whose arithmetic outweighs a call, and for single matrices.
template <int N, Start S, class A, class B, class D>
[[gnu::noinline]] ZonStatus squareObject(A a, B b, D d)
{
    squareProduct<N, S>(a, b, d);
    return zonStsOk;
}

// An element table of an N×N matrix in row order of the matrix as used.
template <class T, int N> struct LocatedOperand {
    Bytes<T> element[N][N];
    ptrdiff_t step;

    struct View : ElementAt<T> {
        const LocatedOperand &operand;
        ptrdiff_t offset;

        View(const LocatedOperand &o, ptrdiff_t off) : operand(o), offset(off) {}
        Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const { return operand.element[i][j] + offset; }
        auto operator()(ptrdiff_t i, ptrdiff_t j) const { return load<T>(at(i, j)); }
        void set(ptrdiff_t i, ptrdiff_t j, T value) const { store<T>(at(i, j), value); }
    };

    explicit ZONM_INLINED inline LocatedOperand(const ScatteredOperand<T> &o) : step(o.step)
    {
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            unrolled<0, N>([&](auto j) ZONM_INLINED {
                element[i][j] = o.template view<Layout::scattered>(0).at(i, j);
            });
        });
    }
    template <Layout> View view(ptrdiff_t k) const { return View(*this, k * step); }
};

// Which operands are arrays; of object tables, those and only those have a table then. `unknown`
// asks each object.
enum class Arrays { unknown, first, second, both };

// An operand as an N×N kernel keeps it.
template <int N, Arrays Known, bool Many, class T, template <class> class Objects>
ZONM_INLINED inline auto localCopy(const SteppedOperand<T, Objects> &o)
{
    if constexpr (Known == Arrays::unknown || std::is_same_v<Objects<T>, Stepped<T>>)
        return SteppedOperand<T, Objects>{Objects<T>(o.objects), o.rowStep, o.columnStep};
    else if constexpr (Many)
        return SteppedOperand<T, Listed>{
            {o.objects.table, o.objects.step}, o.rowStep, o.columnStep};
    else
        return SteppedOperand<T, Stepped>{{o.objects.base, 0}, o.rowStep, o.columnStep};
}
template <int N, Arrays, bool, class T>
ZONM_INLINED inline auto localCopy(const ScatteredOperand<T> &o)
{
    return LocatedOperand<T, N>(o);
}

template <int N, Start S, Held H, Arrays Many, Layout LA, Layout LB, Layout LD, class P>
[[gnu::noinline]] ZonStatus squareProducts(const P &call)
{
    const auto a = localCopy<N, Many, Many != Arrays::second>(call.a);
    const auto b = localCopy<N, Many, Many != Arrays::first>(call.b);
    const auto d = localCopy<N, Many, true>(call.d);
    const ptrdiff_t count = call.count;
    const auto left = [&](ptrdiff_t k) ZONM_INLINED { return a.template view<LA>(k); };
    const auto right = [&](ptrdiff_t k) ZONM_INLINED { return b.template view<LB>(k); };
    const auto product = [&](ptrdiff_t k) ZONM_INLINED { return d.template view<LD>(k); };
    if constexpr (H == Held::first) {
        const SpreadElements<N> held(left(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            squareProduct<N, S>(held, right(k), product(k));
    } else if constexpr (H == Held::second) {
        const PackedRows<N> held(right(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            squareProduct<N, S>(left(k), held, product(k));
    } else if constexpr (N <= 4 || Many == Arrays::unknown) {
        for (ptrdiff_t k = 0; k < count; ++k)
            squareProduct<N, S>(left(k), right(k), product(k));
    } else {
        for (ptrdiff_t k = 0; k < count; ++k)
            squareObject<N, S>(left(k), right(k), product(k));
    }
    return zonStsOk;
}

} // namespace zonm
