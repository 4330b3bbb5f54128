// SPDX-License-Identifier: Apache-2.0
// Sums of vectors, and sums and products with constants.
#include "harness.hpp"
#include "peers.hpp"

#include <zonm.h>

namespace bench
{
namespace
{

// One rounding per element: every contestant gives the same bits.
template <class O, class F> double wrongElements(O d, F expected)
{
    double wrong = 0;
    for (int k = 0; k < d.count; ++k)
        for (int e = 0; e < d.length; ++e)
            wrong += !(d.object(k)[e] == expected(k, e));
    return 2 * wrong;
}

template <class T, int N> void products(int count)
{
    const auto a = matrices<T>(first, N, count), d = matrices<T>(result, N, count);
    const T c = T(1.5);
    const auto A = as<const RowMajor<T, N>>(a.data);
    const auto D = as<RowMajor<T, N>>(d.data);
    Row("constants", "zonmMul_mac", typeName<T>, N, count)
        .into(d)
        .check([=] { return wrongElements(d, [=](int k, int e) { return a.object(k)[e] * c; }); })
        .calls("zonm", ZONM(zonmMul_mac), array(a), c, array(d), N, N, bench::count)
        .calls("zonm _L", ZONM_L(zonmMul_mac), objects(a), c, objects(d), N, N, bench::count)
        .calls("zonm _P", ZONM_P(zonmMul_mac), elements(a), c, elements(d), N, N, bench::count)
        .add("Eigen", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                D[k] = A[k] * c;
        });
}

template <class T, int N>
__attribute__((noinline)) void eigenCall(const T *a, int a1, int a2, T c, T *d, int d1, int d2)
{
    using M = RowMajor<T, N>;
    strided<M>(d, d1, d2) = strided<const M>(a, a1, a2) * c;
}

template <class T, int N> void singleProducts(int size)
{
    const auto a = matrices<T>(first, N, size), d = matrices<T>(result, N, size);
    const T c = T(1.5);
    Row("constants", "zonmMul_mc", typeName<T>, N, size)
        .oneByOne(size)
        .into(d)
        .check([=] { return wrongElements(d, [=](int k, int e) { return a.object(k)[e] * c; }); })
        .calls("zonm", ZONM(zonmMul_mc), single(a), c, single(d), N, N)
        .calls("zonm _P", ZONM_P(zonmMul_mc), singleElements(a), c, singleElements(d), N, N)
        .calls("Eigen", eigenCall<T, N>, single(a), c, single(d));
}

template <class T, int N> void vectorSums(int count)
{
    const Vectors<T> a(run<T>(first), N, count), b(run<T>(second), N, count),
        d(run<T>(result), N, count);
    const auto A = as<const ColumnVector<T, N>>(a.data), B = as<const ColumnVector<T, N>>(b.data);
    const auto D = as<ColumnVector<T, N>>(d.data);
    const T *const c = b.data;
    const auto constants = [=](int k, int) { return std::tuple(c + k, int(sizeof(T))); };
    const auto row = [=](const char *operation, auto expected) {
        Row r("constants", operation, typeName<T>, N, count);
        return r.into(d).check([=] { return wrongElements(d, expected); });
    };
    row("zonmAdd_vaca", [=](int k, int e) { return a.object(k)[e] + c[k]; })
        .calls("zonm", ZONM(zonmAdd_vaca), array(a), constants, array(d), N, bench::count)
        .calls("zonm _P", ZONM_P(zonmAdd_vaca), elements(a), constants, elements(d), N,
               bench::count)
        .add("Eigen", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                D[k].array() = A[k].array() + c[k];
        });
    row("zonmAdd_vav", [=](int k, int e) { return a.object(k)[e] + b.data[e]; })
        .calls("zonm", ZONM(zonmAdd_vav), array(a), fixed(single(b)), array(d), N, bench::count)
        .calls("zonm _L", ZONM_L(zonmAdd_vav), objects(a), fixed(single(b)), objects(d), N,
               bench::count)
        .calls("zonm _P", ZONM_P(zonmAdd_vav), elements(a), fixed(singleElements(b)), elements(d),
               N, bench::count)
        .add("Eigen", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                D[k] = A[k] + *B;
        });
}

template <class T, int N> void rows()
{
    const int beyondCaches = objectsWithin<T>(runBytes, N);
    for (int count : {1000, 20000, beyondCaches}) {
        products<T, N>(count);
        vectorSums<T, N>(count);
    }
    singleProducts<T, N>(1000);
}

template <class T, int... N> void sizes() { (rows<T, N>(), ...); }
const Group group32f(sizes<float, 3, 4, 5, 6>), group64f(sizes<double, 3, 4, 5, 6>);

} // namespace
} // namespace bench
