// SPDX-License-Identifier: Apache-2.0
// Products of N×N matrices in straight-line code, N a constant, for arrays of them.
// Elements of dst are stored in row order, as they are where some of them share an address.
#pragma once

#include "frame/objects.hpp"
#include "products/chains.hpp"
#include "zonm.h"

namespace zonm
{

// The operand that is one matrix for all k, if its elements stay in registers.
enum class Held { none, first, second };

// B row by row in packs.
template <int N> struct PackedRows {
    static constexpr int padded =
        (N + doublesPerRegister - 1) / doublesPerRegister * doublesPerRegister;
    using Element = double;
    alignas(registerBytes) double element[N][padded];

    template <class B> explicit ZONM_INLINED inline PackedRows(const B &b)
    {
        forEachPack<N>([&](auto j, auto w) ZONM_INLINED {
            unrolled<0, N / 2>([&](auto p) ZONM_INLINED { keep<2, j, w>(b, 2 * p); });
            if constexpr (N % 2 != 0)
                keep<1, j, w>(b, N - 1);
        });
    }
    const std::byte *at(int i, int j) const { return bytes(&element[i][j]); }

  private:
    template <int R, int J, int W, class B> ZONM_INLINED inline void keep(const B &b, int p)
    {
        Doubles<W> rows[R];
        loadRows<R, W>(rows, b, p, J);
        unrolled<0, R>([&](auto r) ZONM_INLINED {
            storeDoubles<double, W>(bytes(&element[p + r][J]), rows[r]);
        });
    }
};
template <int N> inline constexpr bool hasDenseRows<PackedRows<N>> = true;

// A with each element in all lanes.
template <int N> struct SpreadElements {
    Doubles<doublesPerRegister> element[N][N];

    template <class A> explicit ZONM_INLINED inline SpreadElements(const A &a)
    {
        spread(element, a, 0, 0);
    }
};

template <int R, int C, int N>
ZONM_INLINED inline void spread(Doubles<doublesPerRegister> (&f)[R][C], const SpreadElements<N> &a,
                                ptrdiff_t i, ptrdiff_t p)
{
    unrolled<0, R>([&](auto r) ZONM_INLINED {
        unrolled<0, C>([&](auto c) ZONM_INLINED { f[r][c] = a.element[i + r][p + c]; });
    });
}

// How many rows of dst have their sums in registers at a time.
template <int N> inline constexpr int rowsAtATime = N <= 4 ? N : 3;

// Adds the products of columns P to P + Q - 1 of A to the sums of rows i to i + R - 1 of dst.
template <int N, int R, Start S, int P, int Q, class A, class B>
ZONM_INLINED inline void addProducts(ChainRow<N> (&sum)[R], const A &a, const B &b, ptrdiff_t i)
{
    Doubles<doublesPerRegister> left[R][Q];
    spread(left, a, i, P);
    forEachPack<N>([&](auto j, auto w) ZONM_INLINED {
        Doubles<w> right[Q];
        loadRows<Q, w>(right, b, P, j);
        unrolled<0, Q>([&](auto q) ZONM_INLINED {
            unrolled<0, R>([&](auto r) ZONM_INLINED {
                const Doubles<w> product = firstLanes<w>(left[r][q]) * right[q];
                auto &s = sum[r].template part<j, w>();
                if constexpr (P + q > 0)
                    s = s + product;
                else if constexpr (S == Start::zero)
                    s = inAllLanes<w>(0.0) + product;
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
    ChainRow<N> sum[R];
    unrolled<0, N / 2>([&](auto p) ZONM_INLINED { addProducts<N, R, S, 2 * p, 2>(sum, a, b, i); });
    if constexpr (N % 2 != 0)
        addProducts<N, R, S, N - 1, 1>(sum, a, b, i);
    unrolled<0, R>([&](auto r) ZONM_INLINED {
        forEachPack<N>([&](auto j, auto w) ZONM_INLINED {
            storeRow<w>(d, i + r, j, sum[r].template part<j, w>());
        });
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

// One object, its views in registers: for sizes whose arithmetic outweighs a call, and for single
// matrices.
template <int N, Start S, class A, class B, class D>
[[gnu::noinline]] ZonStatus squareObject(A a, B b, D d)
{
    squareProduct<N, S>(a, b, d);
    return zonStsOk;
}

// An element table of an N×N matrix as a local copy in row order of the matrix as used, for kernels
// that go through it once per object.
template <class T, int N> struct CopiedTable {
    Bytes<T> element[N][N];
    ptrdiff_t shift, step;

    struct View : MatrixAccess<View, T> {
        const CopiedTable &table;
        ptrdiff_t offset;

        View(const CopiedTable &t, ptrdiff_t off) : table(t), offset(off) {}
        Bytes<T> at(ptrdiff_t i, ptrdiff_t j) const { return table.element[i][j] + offset; }
    };

    explicit ZONM_INLINED inline CopiedTable(
        const Objects<ScatteredMatrix<T>, ScatteredOrigins<T>> &o)
        : shift(o.origins.shift), step(o.origins.step)
    {
        unrolled<0, N>([&](auto i) ZONM_INLINED {
            unrolled<0, N>([&](auto j) ZONM_INLINED { element[i][j] = o.first.at(i, j); });
        });
    }
    View operator()(ptrdiff_t k) const { return View(*this, shift + k * step); }
};

// Objects as an N×N kernel keeps them. A copy, since as far as the compiler knows a store into dst
// might change the original.
template <int N, class View, class Origins>
ZONM_INLINED inline Objects<View, Origins> localCopy(const Objects<View, Origins> &o)
{
    return o;
}
template <int N, class T>
ZONM_INLINED inline CopiedTable<T, N>
localCopy(const Objects<ScatteredMatrix<T>, ScatteredOrigins<T>> &o)
{
    return CopiedTable<T, N>(o);
}

template <int N, Start S, Held H, class A, class B, class D>
[[gnu::noinline]] ZonStatus squareProducts(const A &src1, const B &src2, const D &dst,
                                           ptrdiff_t count)
{
    const auto a = localCopy<N>(src1);
    const auto b = localCopy<N>(src2);
    const auto d = localCopy<N>(dst);
    if constexpr (H == Held::first) {
        const SpreadElements<N> held(a(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            squareProduct<N, S>(held, b(k), d(k));
    } else if constexpr (H == Held::second) {
        const PackedRows<N> held(b(0));
        for (ptrdiff_t k = 0; k < count; ++k)
            squareProduct<N, S>(a(k), held, d(k));
    } else {
        // Large kernels are there once for all dense rows.
        constexpr bool dense = hasDenseRows<std::remove_cvref_t<decltype(d(0))>>;
        for (ptrdiff_t k = 0; k < count; ++k)
            if constexpr (N > 4 && dense)
                squareObject<N, S>(a(k), b(k), d(k));
            else
                squareProduct<N, S>(a(k), b(k), d(k));
    }
    return zonStsOk;
}

} // namespace zonm
