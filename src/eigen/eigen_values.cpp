// SPDX-License-Identifier: Apache-2.0
// Eigenvalues of general matrices:
//
//   det(src - (dstValuesRe[r] + i dstValuesIm[r]) I) = 0
//
// in the order of the diagonal of the real Schur form, a complex pair in adjacent places, the
// positive imaginary part first. One kernel at every size and under every description: src is
// gathered into `buffer`, reduced to Hessenberg form and iterated there (schur.hpp). The working
// matrix is read in columns, so it is the transpose of src. An array ends at the first object
// whose iteration spends its budget; the values that it has found stand.
//
// buffer: the working matrix, `size` factors of reflectors, `size` elements of work.
#include "eigen/schur.hpp"
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

using namespace eigen;

// The work of one object.
template <class T> struct Stages {
    ColumnMatrix<T> h;

    void begin(const Place<const T> &src) const
    {
        const ptrdiff_t elements = ptrdiff_t(h.n) * h.n;
        gatherRows(src, h.elements, h.n);
        reduceToHessenberg(h, h.elements.from(elements), h.elements.from(elements + h.n));
        clearBelowSubdiagonal(h);
    }
    QrIteration<T, valuesOnly.withVectors> iteration(StoredRun<T> re, StoredRun<T> im,
                                                     Carried<T> &carried) const
    {
        return {valuesOnly, h, h, re, im, carried};
    }
};

// Two objects, whose sweeps hide behind one another. Nothing is written unless both succeed.
template <class T>
bool solvePair(const Place<const T> &one, const Place<const T> &other, StoredRun<T> re,
               StoredRun<T> im, int32_t n)
{
    T memory[2][largestPaired * (largestPaired + 2)], values[2][2 * largestPaired];
    const StoredRun<T> ofOne = runAt(values[0]), ofOther = ofOne.from(n);
    const StoredRun<T> imOfOne = runAt(values[1]), imOfOther = imOfOne.from(n);
    const Stages<T> a{{runAt(memory[0]), n}}, b{{runAt(memory[1]), n}};
    Carried<T> carried[2];
    a.begin(one);
    b.begin(other);
    auto first = a.iteration(ofOne, imOfOne, carried[0]);
    auto second = b.iteration(ofOther, imOfOther, carried[1]);
    runTogether(first, second);
    if (first.status != zonStsOk || second.status != zonStsOk)
        return false;
    copyRun(ofOne, re, 2 * n);
    copyRun(imOfOne, im, 2 * n);
    return true;
}

// In pairs where neither can tell: where the values of the first lie apart from the source of the
// second.
template <class T>
[[gnu::noinline]] ZonStatus solveAll(const Places<const T> &src, T *valuesRe, T *valuesIm,
                                     int32_t n, int32_t count, StoredRun<T> buffer)
{
    const bool inPairs = n >= smallestPaired && n <= largestPaired;
    const auto areApart = [&](ptrdiff_t k) {
        const Extent next = src.extentOf(k + 1);
        return !meet(extentOfRun(valuesRe, n, k), next) && !meet(extentOfRun(valuesIm, n, k), next);
    };
    for (ptrdiff_t k = 0; k < count;) {
        const StoredRun<T> re = runAt(valuesRe).from(k * n), im = runAt(valuesIm).from(k * n);
        if (inPairs && k + 1 < count && areApart(k) && solvePair(src(k), src(k + 1), re, im, n)) {
            k += 2;
            continue;
        }
        const Stages<T> stages{{buffer, n}};
        Carried<T> carried;
        stages.begin(src(k));
        auto iteration = stages.iteration(re, im, carried);
        iteration.run();
        if (iteration.status != zonStsOk)
            return iteration.status;
        ++k;
    }
    return zonStsOk;
}

// Bindings --------------------------------------------------------------------------------------

template <class A, class T>
ZonStatus eigenValues(const A &src, T *dstValuesRe, T *dstValuesIm, int32_t size, int32_t count,
                      void *buffer)
{
    return solveAll<T>(placesOf(src, size), dstValuesRe, dstValuesIm, size, count,
                       runIn<T>(buffer));
}

// The lists of single objects end with the buffer.
template <class A, class T>
ZonStatus eigenValues(const A &src, T *dstValuesRe, T *dstValuesIm, int32_t size, void *buffer,
                      int32_t count)
{
    return eigenValues(src, dstValuesRe, dstValuesIm, size, count, buffer);
}

} // namespace
} // namespace zonm

#include "eigen/generated/eigen_values.inc"
