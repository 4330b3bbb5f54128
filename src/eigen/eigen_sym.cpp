// SPDX-License-Identifier: Apache-2.0
// Eigenvalues, and eigenvectors, of symmetric matrices:
//
//   src = V diag(values) transpose(V),  column j of V = dstVectors for value j
//
//   size 1        a copy
//   size 2        the closed form; the value of larger magnitude first; src(1, 0) is not used
//   from size 3   reduction to tridiagonal form, implicit QL (or its mirror image QR, where the
//                 last diagonal element is not the larger one), sort into descending order
//
// Every test for zero is against an absolute tolerance. A product of values within a tolerance of
// zero ends the call with zonStsSingular, though the values stand; at size 2 nothing is written.
// The product is not always that of the values: some forms take it from diagonal elements on their
// way. The source is read whole before anything is written, but for dstVectors at size 1.
#include "eigen/tridiagonal.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

using namespace eigen;

// The forms, and what differs between them ------------------------------------------------------

inline constexpr double epsilon32 = 0x1p-23, epsilon64 = 0x1p-52;
template <class T> inline constexpr double epsilon = sizeof(T) == 4 ? epsilon32 : epsilon64;

template <class T> constexpr SymmetricForm withTolerance(SymmetricForm form)
{
    form.tolerance = form.determinant = form.reduction = form.shiftSign = epsilon<T>;
    form.singular = form.singular == 0 ? epsilon<T> : form.singular;
    return form;
}

template <class T>
inline constexpr SymmetricForm valuesOfOne = withTolerance<T>({
    .skipsSmallColumns = false,
    .skipsReducedColumns = false,
    .product = ProductOf::stops,
    .decidedBy = DecidedBy::diagonalOrder,
    .rotation = Rotation::ofValues,
});
template <class T>
inline constexpr SymmetricForm valuesOfMany = withTolerance<T>({
    .skipsSmallColumns = true,
    .skipsReducedColumns = true,
    .product = ProductOf::stops,
    .decidedBy = DecidedBy::diagonalOrder,
    .rotation = Rotation::ofValues,
});
template <class T>
inline constexpr SymmetricForm vectorsOfOne = withTolerance<T>({
    .skipsSmallColumns = false,
    .skipsReducedColumns = true,
    .product = ProductOf::stops,
    .decidedBy = DecidedBy::sortedOrder,
    .rotation = Rotation::divided,
});
template <class T>
inline constexpr SymmetricForm vectorsOfMany = withTolerance<T>({
    .skipsSmallColumns = true,
    .skipsReducedColumns = true,
    .product = ProductOf::finalDiagonal,
    .decidedBy = DecidedBy::diagonalOrder,
    .rotation = Rotation::reciprocal,
    .singular = epsilon32, // of 64f too
});

// Three kernels differ from their row, in 32f alone.
template <class T> SymmetricForm valuesOfDenseArray()
{
    SymmetricForm form = valuesOfMany<T>;
    if (sizeof(T) == 4)
        form.determinant = epsilon64;
    return form;
}
template <class T> SymmetricForm vectorsOfStridedMatrix()
{
    SymmetricForm form = vectorsOfOne<T>;
    if (sizeof(T) == 4) {
        form.shiftSign = 0;
        form.decidedBy = DecidedBy::diagonalOrder;
    }
    return form;
}
template <class T> SymmetricForm vectorsOfDenseTable()
{
    SymmetricForm form = vectorsOfMany<T>;
    if (sizeof(T) == 4)
        form.reduction = epsilon64;
    return form;
}

// Storage ---------------------------------------------------------------------------------------

// Arrays of the kernel's own, for sizes up to N; `isFixed` if N is the size.
template <class T, int N, bool isFixed> struct LocalStorage {
    Number<T> matrix[N][N], columns[N][N], values[N], d[N], e[N];
    int n;

    int order() const { return isFixed ? N : n; }
    Number<T> &w(int i, int j) { return matrix[i][j]; }
    Number<T> &q(int i, int j) { return columns[j][i]; }
    void takeTridiagonal(bool isMirrored)
    {
        const int last = order() - 1;
        for (int i = 0; i <= last; ++i)
            d[isMirrored ? last - i : i] = matrix[i][i];
        for (int i = 0; i < last; ++i)
            e[isMirrored ? last - 1 - i : i] = matrix[i + 1][i];
    }
    template <class F> void forRows(int one, int other, F f)
    {
        for (int row = 0; row < order(); ++row)
            f(columns[one][row], columns[other][row]);
    }
    template <bool WithVectors> void write(const Place<T> &dst, StoredRun<T> dstValues) const
    {
        for (int i = 0; i < order(); ++i)
            dstValues[i] = values[i];
        if constexpr (WithVectors)
            for (int i = 0; i < order(); ++i)
                for (int j = 0; j < order(); ++j)
                    store<T>(dst.at(i, j), columns[j][i].stored());
    }
};

// Of any size: the caller's buffer and outputs. The tridiagonal is moved to the buffer's head.
template <class T> struct CallersStorage {
    StoredRun<T> buffer, values, d, e;
    Place<T> vectors;
    int n;

    CallersStorage(void *b, const Place<T> &dst, StoredRun<T> v, int32_t size)
        : buffer{static_cast<std::byte *>(b)}, values(v), d(buffer), e(buffer.from(size)),
          vectors(dst), n(size)
    {
    }
    int order() const { return n; }
    Stored<T> w(ptrdiff_t i, int j) const { return buffer[i * n + j]; }
    Stored<T> q(int i, int j) const { return Stored<T>(vectors.at(i, j)); }
    void takeTridiagonal(bool isMirrored)
    {
        // Ascending, no element is overwritten before it is read.
        for (int i = 0; i < n; ++i)
            d[isMirrored ? n - 1 - i : i] = w(i, i);
        for (int i = 0; i < n - 1; ++i)
            e[isMirrored ? n - 2 - i : i] = w(i + 1, i);
    }
    template <class F> void forRows(int one, int other, F f) const
    {
        for (int row = 0; row < n; ++row)
            f(q(row, one), q(row, other));
    }
};

// Sizes -----------------------------------------------------------------------------------------

template <class T, bool WithVectors>
void copyOne(const Place<const T> &src, const Place<T> &dst, StoredRun<T> values)
{
    if constexpr (WithVectors)
        store<T>(dst.at(0, 0), 1);
    values[0] = load<T>(src.at(0, 0));
}

// LAPACK's dlaev2 with the tolerance in place of zero.
template <class T, bool WithVectors>
ZonStatus solveTwo(const SymmetricForm &form, const Place<const T> &src, const Place<T> &dst,
                   StoredRun<T> values)
{
    const Number<T> a = load<T>(src.at(0, 0)), b = load<T>(src.at(0, 1)), c = load<T>(src.at(1, 1));
    const Number<T> determinant = a * c - b * b;
    if (isWithin(determinant, form.determinant))
        return zonStsSingular;
    const double limit = form.tolerance;
    const Number<T> x = a - c, y = b + b, s = squareRoot(x * x + y * y), t = a + c;
    const bool isNegative = t < -limit;
    if (t > limit || isNegative) {
        const Number<T> larger = isNegative ? 0.5 * (t - s) : 0.5 * (t + s);
        values[0] = larger;
        values[1] = determinant / larger;
    } else {
        values[0] = 0.5 * s;
        values[1] = -0.5 * s;
    }
    if constexpr (WithVectors) {
        const bool isNegativeToo = x < -limit;
        const Number<T> z = isNegativeToo ? x - s : x + s;
        Number<T> cosine = 1, sine = 0;
        if (magnitude(y) >= magnitude(z)) {
            if (magnitude(y) > limit) {
                const Number<T> q = -z / y;
                cosine = 1 / squareRoot(q * q + 1);
                sine = q * cosine;
            }
        } else if (magnitude(y) < magnitude(z)) {
            const Number<T> q = -y / z;
            sine = 1 / squareRoot(q * q + 1);
            cosine = q * sine;
        }
        if (isNegative == isNegativeToo) {
            const Number<T> old = cosine;
            cosine = -sine;
            sine = old;
        }
        store<T>(dst.at(0, 0), T(cosine));
        store<T>(dst.at(1, 0), T(sine));
        store<T>(dst.at(0, 1), T(-sine));
        store<T>(dst.at(1, 1), T(cosine));
    }
    return zonStsOk;
}

// The stages before and after the iteration do not depend on the rotation.
template <class T, class Storage>
[[gnu::noinline]] void reduce(const SymmetricForm &form, Storage &s, const Place<const T> &src,
                              bool withVectors)
{
    const int n = s.order();
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            s.w(i, j) = load<T>(src.at(i, j));
    for (int i = 0; withVectors && i < n; ++i)
        for (int j = 0; j < n; ++j)
            s.q(i, j) = i == j;
    Reduction<T, Storage>{s, form, withVectors}.run();
}
template <bool WithVectors, class Storage>
[[gnu::noinline]] ZonStatus decide(const SymmetricForm &form, Storage &s, double product)
{
    const bool isSingular = isWithin(product, form.singular);
    if (!isSingular || form.decidedBy == DecidedBy::sortedOrder)
        sortDescending<WithVectors>(s);
    return isSingular ? zonStsSingular : zonStsOk;
}

template <class T, Rotation rotation>
[[gnu::noinline]] ZonStatus solveAny(const SymmetricForm &form, const Place<const T> &src,
                                     const Place<T> &dst, StoredRun<T> values, void *buffer,
                                     int32_t n)
{
    constexpr bool withVectors = rotation != Rotation::ofValues;
    if (n == 1) {
        copyOne<T, withVectors>(src, dst, values);
        return zonStsOk;
    }
    if (n == 2)
        return solveTwo<T, withVectors>(form, src, dst, values);
    CallersStorage<T> storage(buffer, dst, values, n);
    reduce<T>(form, storage, src, withVectors);
    Iteration<T, rotation, CallersStorage<T>> iteration(storage, form);
    iteration.run();
    return iteration.status == zonStsOk ? decide<withVectors>(form, storage, iteration.product)
                                        : iteration.status;
}

// Two objects, whose sweeps hide behind one another. Nothing is written unless all goes well.
template <class T, Rotation rotation, int N, bool isFixed>
[[gnu::noinline]] bool solvePair(const SymmetricForm &form, const Place<const T> (&src)[2],
                                 const Place<T> (&dst)[2], StoredRun<T> values, int32_t n)
{
    constexpr bool withVectors = rotation != Rotation::ofValues;
    using Storage = LocalStorage<T, N, isFixed>;
    Storage s[2];
    s[0].n = s[1].n = n;
    reduce<T>(form, s[0], src[0], withVectors);
    reduce<T>(form, s[1], src[1], withVectors);
    Iteration<T, rotation, Storage> one(s[0], form), other(s[1], form);
    runTogether(one, other);
    if (one.status != zonStsOk || other.status != zonStsOk ||
        decide<withVectors>(form, s[0], one.product) != zonStsOk ||
        decide<withVectors>(form, s[1], other.product) != zonStsOk)
        return false;
    s[0].template write<withVectors>(dst[0], values);
    s[1].template write<withVectors>(dst[1], values.from(n));
    return true;
}

template <class T, Rotation rotation>
bool solvePair(const SymmetricForm &form, const Place<const T> (&src)[2], const Place<T> (&dst)[2],
               StoredRun<T> values, int32_t n)
{
    switch (n) {
    case 3: return solvePair<T, rotation, 3, true>(form, src, dst, values, n);
    case 4: return solvePair<T, rotation, 4, true>(form, src, dst, values, n);
    default: return solvePair<T, rotation, largestPaired, false>(form, src, dst, values, n);
    }
}

// All objects, in pairs where neither can tell: where the outputs of the first lie apart from the
// source of the second.
template <class T, Rotation rotation>
[[gnu::noinline]] ZonStatus solveAll(const SymmetricForm &form, const Places<const T> &src,
                                     const Places<T> &dst, T *dstValues, void *buffer, int32_t n,
                                     int32_t count)
{
    constexpr bool withVectors = rotation != Rotation::ofValues;
    const bool inPairs = rotation != Rotation::divided && n >= smallestPaired && n <= largestPaired;
    const auto areApart = [&](ptrdiff_t k) {
        const Extent next = src.extentOf(k + 1);
        return !meet(extentOfRun(dstValues, n, k), next) &&
               !(withVectors && meet(dst.extentOf(k), next));
    };
    const auto vectors = [&](ptrdiff_t k) { return withVectors ? dst(k) : Place<T>{}; };
    for (ptrdiff_t k = 0; k < count;) {
        const StoredRun<T> values = runAt(dstValues).from(k * n);
        if (inPairs && k + 1 < count && areApart(k)) {
            const Place<const T> sources[] = {src(k), src(k + 1)};
            const Place<T> outputs[] = {vectors(k), vectors(k + 1)};
            if (solvePair<T, rotation>(form, sources, outputs, values, n)) {
                k += 2;
                continue;
            }
        }
        const ZonStatus status = solveAny<T, rotation>(form, src(k), vectors(k), values, buffer, n);
        if (status != zonStsOk)
            return status;
        ++k;
    }
    return zonStsOk;
}

// Bindings --------------------------------------------------------------------------------------

template <class A, class T>
ZonStatus eigenValuesSym(const A &src, void *buffer, T *dstValues, int32_t size, int32_t count)
{
    constexpr SymmetricForm row = A::many ? valuesOfMany<T> : valuesOfOne<T>;
    SymmetricForm form = row;
    if constexpr (A::many && A::description == Description::strided)
        if (isDense(src))
            form = valuesOfDenseArray<T>();
    return solveAll<T, row.rotation>(form, placesOf(src, size), {}, dstValues, buffer, size, count);
}

template <class A, class D, class T>
ZonStatus eigenValuesVectorsSym(const A &src, void *buffer, const D &dst, T *dstValues,
                                int32_t size, int32_t count)
{
    constexpr SymmetricForm row = A::many ? vectorsOfMany<T> : vectorsOfOne<T>;
    SymmetricForm form = row;
    if constexpr (!isElementTable<A>) {
        const bool contiguous = isDense(src) && isDense(dst);
        if (!A::many && !contiguous)
            form = vectorsOfStridedMatrix<T>();
        if (isObjectTable<A> && contiguous)
            form = vectorsOfDenseTable<T>();
    }
    return solveAll<T, row.rotation>(form, placesOf(src, size), placesOf(dst, size), dstValues,
                                     buffer, size, count);
}

} // namespace
} // namespace zonm

#include "eigen/generated/eigen_sym.inc"
