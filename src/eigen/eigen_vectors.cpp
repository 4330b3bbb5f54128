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
#include "frame/objects.hpp"

#include <array>
#include <tuple>

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

// All of a call; the last result ends it. `dst` gives the place of each side's vectors of object k.
template <class T, int sides> struct Solver {
    SchurForm form;
    Side side[sides];
    int32_t n;
    StoredRun<T> buffer;
    Carried<T> carried;

    SideResult solve(const Place<const T> &src, const std::array<Place<T>, sides> &dst,
                     StoredRun<T> re, StoredRun<T> im)
    {
        if (n == 1) {
            for (const Place<T> &vectors : dst)
                store<T>(vectors.at(0, 0), 1);
            re[0] = load<T>(src.at(0, 0));
            im[0] = 0;
            return {true, zonStsOk};
        }
        const ptrdiff_t elements = ptrdiff_t(n) * n;
        const ColumnMatrix<T> h{buffer, n}, z{buffer.from(elements), n};
        const StoredRun<T> work = buffer.from((1 + sides) * elements);
        gatherRows(src, buffer, n);
        reduceToHessenberg(h, work, work.from(n));
        formTransform(z, h, work);
        clearBelowSubdiagonal(h);
        const ZonStatus status = QrIteration<T, true>(form, h, z, re, im, carried).run();
        if (status != zonStsOk)
            return {false, status};
        for (int i = 1; i < sides; ++i)
            for (ptrdiff_t e = 0; e < elements; ++e)
                transform(i).elements[e] = z.elements[e];
        for (int i = 0; i < sides; ++i)
            if (const SideResult r = vectorsOf(side[i], h, transform(i), work); !r.isComplete)
                return r;
        for (int i = 0; i < sides; ++i)
            normalise(transform(i), im);
        for (int i = 0; i < sides; ++i)
            for (int32_t r = 0; r < n; ++r)
                for (int32_t c = 0; c < n; ++c)
                    store<T>(dst[i].at(r, c), load<T>(transform(i).columnFrom(r + 1, c + 1).base));
        return {true, zonStsOk};
    }

  private:
    ColumnMatrix<T> transform(int i) const { return {buffer.from((1 + i) * ptrdiff_t(n) * n), n}; }
};

template <class T, int sides, class A, class... D>
ZonStatus solveAll(Solver<T, sides> solver, const A &src, T *valuesRe, T *valuesIm, int32_t count,
                   const D &...dst)
{
    const int32_t n = solver.n;
    const auto matrices = objects<Layout::strided>(src, n, n);
    const auto re = runsOf(valuesRe, n), im = runsOf(valuesIm, n);
    const auto vectors = std::tuple(objects<Layout::strided>(dst, n, n)...);
    for (ptrdiff_t k = 0; k < count; ++k) {
        const auto places = std::apply(
            [=](auto &...o) { return std::array<Place<T>, sides>{placeOf(o(k))...}; }, vectors);
        const SideResult r = solver.solve(placeOf(matrices(k)), places, runAt(re(k)), runAt(im(k)));
        if (!r.isComplete)
            return r.status;
    }
    return zonStsOk;
}

// Bindings --------------------------------------------------------------------------------------

template <class T> StoredRun<T> runIn(void *buffer) { return {static_cast<std::byte *>(buffer)}; }

template <class A, class D, class T>
ZonStatus rightVectors(const A &src, const D &dst, T *re, T *im, int32_t size, int32_t count,
                       void *buffer)
{
    return solveAll(Solver<T, 1>{vectorsOfOneSide, {Side::right}, size, runIn<T>(buffer), {}}, src,
                    re, im, count, dst);
}
template <class A, class D, class T>
ZonStatus leftVectors(const A &src, const D &dst, T *re, T *im, int32_t size, int32_t count,
                      void *buffer)
{
    return solveAll(Solver<T, 1>{vectorsOfOneSide, {Side::left}, size, runIn<T>(buffer), {}}, src,
                    re, im, count, dst);
}
template <class A, class R, class L, class T>
ZonStatus bothVectors(const A &src, const R &dstRight, const L &dstLeft, T *re, T *im, int32_t size,
                      int32_t count, void *buffer)
{
    // A block that leaves the rotation as it was begins with none to apply.
    const Carried<T> carried{.rotation = {1.0, 0.0}};
    return solveAll(
        Solver<T, 2>{
            vectorsOfBothSides, {Side::right, Side::left}, size, runIn<T>(buffer), carried},
        src, re, im, count, dstRight, dstLeft);
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
