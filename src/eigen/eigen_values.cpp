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
#include "frame/objects.hpp"

namespace zonm
{
namespace
{

using namespace eigen;

template <class T>
ZonStatus solve(const Place<const T> &src, StoredRun<T> re, StoredRun<T> im, StoredRun<T> buffer,
                int32_t n)
{
    const ColumnMatrix<T> h{buffer, n};
    const ptrdiff_t elements = ptrdiff_t(n) * n;
    gatherRows(src, buffer, n);
    reduceToHessenberg(h, buffer.from(elements), buffer.from(elements + n));
    clearBelowSubdiagonal(h);
    Carried<T> carried;
    return QrIteration<T, valuesOnly.withVectors>(valuesOnly, h, h, re, im, carried).run();
}

template <class A, class T>
ZonStatus eigenValues(const A &src, T *dstValuesRe, T *dstValuesIm, int32_t size, int32_t count,
                      void *buffer)
{
    const auto matrices = objects<Layout::strided>(src, size, size);
    const auto re = runsOf(dstValuesRe, size), im = runsOf(dstValuesIm, size);
    for (ptrdiff_t k = 0; k < count; ++k) {
        const ZonStatus status = solve<T>(placeOf(matrices(k)), runAt(re(k)), runAt(im(k)),
                                          {static_cast<std::byte *>(buffer)}, size);
        if (status != zonStsOk)
            return status;
    }
    return zonStsOk;
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
