// SPDX-License-Identifier: Apache-2.0
// Eigenvalues and eigenvectors of general matrices, M being the transpose of src:
//
//   right   column c is x with M x = lambda x
//   left    column c is y with conjugate(transpose(y)) M = lambda conjugate(transpose(y))
//
// A complex pair c, c+1 has the real part of the vector of value c in column c and the imaginary
// part in column c+1. src is gathered into `buffer` and brought to the real Schur form there, with
// the transform Z accumulated (schur.hpp); the vectors are found from that form and multiplied by
// Z in place (schur_vectors.hpp). They are written when all of an object's are complete: a failure
// leaves the vector outputs, and ends an array. So does a real system of order 2 without a
// solution, which is reported as success.
//
// buffer: the working matrix, Z for each side, three vectors.
#include "eigen/schur_vectors.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

#include <array>

namespace zonm
{
namespace
{

using namespace eigen;

enum class Side { right, left };

template <class T>
[[gnu::noinline]] SideResult vectorsOf(Side side, ColumnMatrix<T> schurForm, ColumnMatrix<T> z,
                                       StoredRun<T> work)
{
    SchurVectors<T> vectors(schurForm, work);
    return side == Side::right ? vectors.transformRight(z) : vectors.transformLeft(z);
}

template <int sides> struct Kernel {
    SchurForm form;
    Side side[sides];
};
inline constexpr Kernel<1> ofRight = {vectorsOfOneSide, {Side::right}};
inline constexpr Kernel<1> ofLeft = {vectorsOfOneSide, {Side::left}};
inline constexpr Kernel<2> ofBoth = {vectorsOfBothSides, {Side::right, Side::left}};

// The work of one object, of a size above 1, in a buffer.
template <class T, int sides> struct Stages {
    const Kernel<sides> &kernel;
    StoredRun<T> buffer;
    int32_t n;

    [[gnu::noinline]] void begin(const Place<const T> &src) const
    {
        const ColumnMatrix<T> h = matrix(0);
        gatherRows(src, buffer, n);
        reduceToHessenberg(h, work(), work().from(n));
        formTransform(matrix(1), h, work());
        clearBelowSubdiagonal(h);
    }
    QrIteration<T, true> iteration(StoredRun<T> re, StoredRun<T> im, Carried<T> &carried) const
    {
        return {kernel.form, matrix(0), matrix(1), re, im, carried};
    }
    [[gnu::noinline]] SideResult finish(StoredRun<T> im) const
    {
        for (int i = 1; i < sides; ++i)
            copyRun(matrix(1).elements, matrix(1 + i).elements, ptrdiff_t(n) * n);
        for (int i = 0; i < sides; ++i)
            if (const auto r = vectorsOf(kernel.side[i], matrix(0), matrix(1 + i), work());
                !r.isComplete)
                return r;
        for (int i = 0; i < sides; ++i)
            normalise(matrix(1 + i), im);
        return {true, zonStsOk};
    }
    void write(const std::array<Place<T>, sides> &dst) const
    {
        for (int i = 0; i < sides; ++i)
            for (int32_t r = 0; r < n; ++r)
                for (int32_t c = 0; c < n; ++c)
                    store<T>(dst[i].at(r, c), load<T>(matrix(1 + i).columnFrom(r + 1, c + 1).base));
    }

  private:
    // The working matrix, then Z for each side.
    ColumnMatrix<T> matrix(int i) const { return {buffer.from(i * ptrdiff_t(n) * n), n}; }
    StoredRun<T> work() const { return matrix(1 + sides).elements; }
};

// All of a call. `carried` goes from object to object.
template <class T, int sides> struct Solver {
    using Sources = Places<const T>;
    using Outputs = std::array<Places<T>, sides>;

    const Kernel<sides> &kernel;
    const Sources &src;
    const Outputs &dst;
    T *valuesRe, *valuesIm;
    int32_t n;
    StoredRun<T> buffer;
    Carried<T> carried;

    ZonStatus run(int32_t count)
    {
        const bool inPairs = n >= smallestPaired && n <= largestPaired;
        for (ptrdiff_t k = 0; k < count;) {
            if (inPairs && k + 1 < count && areApart(k) && solvePair(k)) {
                k += 2;
                continue;
            }
            const SideResult r = solve(k++);
            if (!r.isComplete)
                return r.status;
        }
        return zonStsOk;
    }

  private:
    std::array<Place<T>, sides> outputs(ptrdiff_t k) const
    {
        std::array<Place<T>, sides> places;
        for (int i = 0; i < sides; ++i)
            places[i] = dst[i](k);
        return places;
    }
    StoredRun<T> re(ptrdiff_t k) const { return runAt(valuesRe).from(k * n); }
    StoredRun<T> im(ptrdiff_t k) const { return runAt(valuesIm).from(k * n); }

    // Whether what object k writes is apart from what the next one reads.
    bool areApart(ptrdiff_t k) const
    {
        const Extent next = src.extentOf(k + 1);
        bool met =
            meet(extentOfRun(valuesRe, n, k), next) || meet(extentOfRun(valuesIm, n, k), next);
        for (const Places<T> &vectors : dst)
            met |= meet(vectors.extentOf(k), next);
        return !met;
    }

    SideResult solve(ptrdiff_t k)
    {
        if (n == 1) {
            for (const Place<T> &vectors : outputs(k))
                store<T>(vectors.at(0, 0), 1);
            re(k)[0] = load<T>(src(k).at(0, 0));
            im(k)[0] = 0;
            return {true, zonStsOk};
        }
        const Stages<T, sides> stages{kernel, buffer, n};
        carried = carried.forNext();
        stages.begin(src(k));
        auto iteration = stages.iteration(re(k), im(k), carried);
        iteration.run();
        if (iteration.status != zonStsOk)
            return {false, iteration.status};
        const SideResult r = stages.finish(im(k));
        if (r.isComplete)
            stages.write(outputs(k));
        return r;
    }

    // Two objects, whose sweeps hide behind one another. Nothing is written unless both succeed,
    // and the second does not use what the first has left.
    bool solvePair(ptrdiff_t k)
    {
        constexpr int elements = largestPaired * ((1 + sides) * largestPaired + 3);
        T memory[2][elements], values[2][2 * largestPaired];
        const StoredRun<T> foundRe = runAt(values[0]), foundIm = runAt(values[1]);
        const Stages<T, sides> one{kernel, runAt(memory[0]), n}, other{kernel, runAt(memory[1]), n};
        Carried<T> left[2] = {carried.forNext(), carried.forNext()};
        one.begin(src(k));
        other.begin(src(k + 1));
        auto first = one.iteration(foundRe, foundIm, left[0]);
        auto second = other.iteration(foundRe.from(n), foundIm.from(n), left[1]);
        runTogether(first, second);
        if (first.status != zonStsOk || second.status != zonStsOk || left[1].usesFormer ||
            !one.finish(foundIm).isComplete || !other.finish(foundIm.from(n)).isComplete)
            return false;
        copyRun(foundRe, re(k), 2 * n);
        copyRun(foundIm, im(k), 2 * n);
        one.write(outputs(k));
        other.write(outputs(k + 1));
        carried = left[0].followedBy(left[1]);
        return true;
    }
};

template <class T, int sides>
[[gnu::noinline]] ZonStatus solveAll(const Kernel<sides> &kernel, const Places<const T> &src,
                                     const std::array<Places<T>, sides> &dst, T *re, T *im,
                                     int32_t n, int32_t count, void *buffer)
{
    Solver<T, sides> solver{kernel, src, dst, re, im, n, runIn<T>(buffer), {}};
    // A block that leaves the rotation as it was begins with none to apply.
    if (sides == 2)
        solver.carried.rotation = {1.0, 0.0};
    return solver.run(count);
}

// Bindings --------------------------------------------------------------------------------------

template <class A, class D, class T>
ZonStatus rightVectors(const A &src, const D &dst, T *re, T *im, int32_t size, int32_t count,
                       void *buffer)
{
    return solveAll<T, 1>(ofRight, placesOf(src, size), {placesOf(dst, size)}, re, im, size, count,
                          buffer);
}
template <class A, class D, class T>
ZonStatus leftVectors(const A &src, const D &dst, T *re, T *im, int32_t size, int32_t count,
                      void *buffer)
{
    return solveAll<T, 1>(ofLeft, placesOf(src, size), {placesOf(dst, size)}, re, im, size, count,
                          buffer);
}
template <class A, class R, class L, class T>
ZonStatus bothVectors(const A &src, const R &dstRight, const L &dstLeft, T *re, T *im, int32_t size,
                      int32_t count, void *buffer)
{
    return solveAll<T, 2>(ofBoth, placesOf(src, size),
                          {placesOf(dstRight, size), placesOf(dstLeft, size)}, re, im, size, count,
                          buffer);
}

// The lists of single objects end with the buffer.
template <class A, class D, class T>
ZonStatus rightVectors(const A &src, const D &dst, T *re, T *im, int32_t size, void *buffer,
                       int32_t count)
{
    return rightVectors(src, dst, re, im, size, count, buffer);
}
template <class A, class D, class T>
ZonStatus leftVectors(const A &src, const D &dst, T *re, T *im, int32_t size, void *buffer,
                      int32_t count)
{
    return leftVectors(src, dst, re, im, size, count, buffer);
}
template <class A, class R, class L, class T>
ZonStatus bothVectors(const A &src, const R &dstRight, const L &dstLeft, T *re, T *im, int32_t size,
                      void *buffer, int32_t count)
{
    return bothVectors(src, dstRight, dstLeft, re, im, size, count, buffer);
}

} // namespace
} // namespace zonm

#include "eigen/generated/eigen_vectors.inc"
