// SPDX-License-Identifier: Apache-2.0
// Matrix sums: dst = src1 + src2.
#include "harness.hpp"
#include "peers.hpp"

#include <zonm.h>

namespace bench
{
namespace
{

// One rounding per element: every contestant gives the same bits.
template <class T> double wrongElements(Matrices<T> a, Matrices<T> b, bool oneB, Matrices<T> d)
{
    double wrong = 0;
    for (std::size_t e = 0; e < d.size(); ++e)
        wrong += !(d.data[e] == a.data[e] + b.data[oneB ? e % d.length : e]);
    return 2 * wrong;
}

template <class T, int N>
__attribute__((noinline)) void eigenCall(const T *a, int a1, int a2, const T *b, int b1, int b2,
                                         T *d, int d1, int d2)
{
    using M = RowMajor<T, N>;
    strided<M>(d, d1, d2) = strided<const M>(a, a1, a2) + strided<const M>(b, b1, b2);
}

// In calls on whole arrays, or on arrays of one object.
template <class T, int N> void sumsOfArrays(int perCall)
{
    const int size = perCall > 1 ? perCall : 1000;
    const auto a = matrices<T>(first, N, size), b = matrices<T>(second, N, size);
    const auto d = matrices<T>(result, N, size);
    const auto row = [=](const char *operation, bool oneB) {
        Row r("sums", operation, typeName<T>, N, perCall);
        if (perCall == 1)
            r.oneByOne(size);
        return r.into(d).check([=] { return wrongElements(a, b, oneB, d); });
    };
    auto mama = row("zonmAdd_mama", false);
    mama.calls("zonm", ZONM(zonmAdd_mama), array(a), array(b), array(d), N, N, count)
        .calls("zonm _L", ZONM_L(zonmAdd_mama), objects(a), objects(b), objects(d), N, N, count)
        .calls("zonm _P", ZONM_P(zonmAdd_mama), elements(a), elements(b), elements(d), N, N, count);
    auto mam = row("zonmAdd_mam", true);
    const auto b0 = fixed(single(b));
    const auto b0Elements = fixed(singleElements(b));
    mam.calls("zonm", ZONM(zonmAdd_mam), array(a), b0, array(d), N, N, count)
        .calls("zonm _L", ZONM_L(zonmAdd_mam), objects(a), b0, objects(d), N, N, count)
        .calls("zonm _P", ZONM_P(zonmAdd_mam), elements(a), b0Elements, elements(d), N, N, count);

    if (perCall == 1) {
        mama.calls("Eigen", eigenCall<T, N>, single(a), single(b), single(d));
        mam.calls("Eigen", eigenCall<T, N>, single(a), b0, single(d));
        return;
    }
    const auto A = as<const RowMajor<T, N>>(a.data), B = as<const RowMajor<T, N>>(b.data);
    const auto D = as<RowMajor<T, N>>(d.data);
    mama.add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            D[k] = A[k] + B[k];
    });
    mam.add("Eigen", [=](int, int n) {
        for (int k = 0; k < n; ++k)
            D[k] = A[k] + *B;
    });
}

// One call per object.
template <class T, int N> void singleSums(int size)
{
    const auto a = matrices<T>(first, N, size), b = matrices<T>(second, N, size);
    const auto d = matrices<T>(result, N, size);
    Row("sums", "zonmAdd_mm", typeName<T>, N, size)
        .oneByOne(size)
        .into(d)
        .check([=] { return wrongElements(a, b, false, d); })
        .calls("zonm", ZONM(zonmAdd_mm), single(a), single(b), single(d), N, N)
        .calls("zonm _P", ZONM_P(zonmAdd_mm), singleElements(a), singleElements(b),
               singleElements(d), N, N)
        .calls("Eigen", eigenCall<T, N>, single(a), single(b), single(d));
}

template <class T, int N> void sums()
{
    const int beyondCaches = objectsWithin<T>(runBytes, N);
    for (int perCall : {1, 1000, 20000, beyondCaches})
        sumsOfArrays<T, N>(perCall);
    for (int size : {1000, 20000, beyondCaches})
        singleSums<T, N>(size);
}

template <class T, int... N> void sizes() { (sums<T, N>(), ...); }
const Group group32f(sizes<float, 3, 4, 5, 6, 8>), group64f(sizes<double, 3, 4, 5, 6, 8>);

} // namespace
} // namespace bench
