// SPDX-License-Identifier: Apache-2.0
// Copies, transposes, and conversions between packed arrays and interleaved ones.
#include "harness.hpp"
#include "peers.hpp"

#include <cstring>
#include <zonm.h>

namespace bench
{
namespace
{

template <class O, class F> double wrongElements(O d, F expected)
{
    double wrong = 0;
    for (int k = 0; k < d.count; ++k)
        for (int e = 0; e < d.length; ++e)
            wrong += !(d.object(k)[e] == expected(k, e));
    return 2 * wrong;
}

template <class T, int N> void copies(int count)
{
    const auto a = matrices<T>(first, N, count), d = matrices<T>(result, N, count);
    Row("moves", "zonmCopy_ma", typeName<T>, N, count)
        .into(d)
        .check([=] { return wrongElements(d, [=](int k, int e) { return a.object(k)[e]; }); })
        .calls("zonm", pick<T>(zonmCopy_ma_32f_SS, zonmCopy_ma_64f_SS), array(a), array(d), N, N,
               bench::count)
        .calls("zonm _L", pick<T>(zonmCopy_ma_32f_LL, zonmCopy_ma_64f_LL), objects(a), objects(d),
               N, N, bench::count)
        .calls("zonm _P", pick<T>(zonmCopy_ma_32f_PP, zonmCopy_ma_64f_PP), elements(a), elements(d),
               N, N, bench::count)
        .add("memcpy", [=](int k, int n) {
            std::memcpy(d.object(k), a.object(k), std::size_t(n) * std::size_t(a.step()));
        });
}

template <class T, int N>
__attribute__((noinline)) void eigenCall(const T *a, int a1, int a2, int, int, T *d, int d1, int d2)
{
    using M = RowMajor<T, N>;
    strided<M>(d, d1, d2) = strided<const M>(a, a1, a2).transpose();
}

template <class T, int N> void transposes(int count, bool oneByOne)
{
    const auto a = matrices<T>(first, N, count), d = matrices<T>(result, N, count);
    Row row("moves", oneByOne ? "zonmTranspose_m" : "zonmTranspose_ma", typeName<T>, N, count);
    if (oneByOne)
        row.oneByOne(count);
    row.into(d).check([=] {
        return wrongElements(d, [=](int k, int e) { return a.object(k)[e % N * N + e / N]; });
    });
    if (oneByOne) {
        row.calls("zonm", ZONM(zonmTranspose_m), single(a), N, N, single(d))
            .calls("zonm _P", ZONM_P(zonmTranspose_m), singleElements(a), N, N, singleElements(d))
            .calls("Eigen", eigenCall<T, N>, single(a), N, N, single(d));
        return;
    }
    const auto A = as<const RowMajor<T, N>>(a.data);
    const auto D = as<RowMajor<T, N>>(d.data);
    row.calls("zonm", ZONM(zonmTranspose_ma), array(a), N, N, array(d), bench::count)
        .calls("zonm _L", ZONM_L(zonmTranspose_ma), objects(a), N, N, objects(d), bench::count)
        .calls("zonm _P", ZONM_P(zonmTranspose_ma), elements(a), N, N, elements(d), bench::count)
        .add("Eigen", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                D[k] = A[k].transpose();
        });
}

// Element e of all objects side by side, and back.
template <class T, int N> void conversions(int count)
{
    const auto a = matrices<T>(first, N, count), d = matrices<T>(result, N, count);
    const int line = count * int(sizeof(T));
    const auto interleaved = [=](auto o) {
        return [=](int, int) { return std::tuple(o.data, int(sizeof(T)), N * line, line); };
    };
    const auto copy = pick<T>(zonmCopy_ma_32f_SS, zonmCopy_ma_64f_SS);
    const auto at = [=](int k, int e) {
        return std::size_t(e) * std::size_t(count) + std::size_t(k);
    };
    Row("moves", "interleaved to packed", typeName<T>, N, count)
        .into(d)
        .check([=] { return wrongElements(d, [=](int k, int e) { return a.data[at(k, e)]; }); })
        .calls("zonm", copy, interleaved(a), array(d), N, N, bench::count)
        .add("loop", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                for (int e = 0; e < N * N; ++e)
                    d.data[std::size_t(k) * (N * N) + std::size_t(e)] = a.data[at(k, e)];
        });
    Row("moves", "packed to interleaved", typeName<T>, N, count)
        .into(d)
        .check([=] {
            double wrong = 0;
            for (int k = 0; k < count; ++k)
                for (int e = 0; e < N * N; ++e)
                    wrong += !(d.data[at(k, e)] == a.object(k)[e]);
            return 2 * wrong;
        })
        .calls("zonm", copy, array(a), interleaved(d), N, N, bench::count)
        .add("loop", [=](int, int n) {
            for (int k = 0; k < n; ++k)
                for (int e = 0; e < N * N; ++e)
                    d.data[at(k, e)] = a.data[std::size_t(k) * (N * N) + std::size_t(e)];
        });
}

template <class T, int N> void rows()
{
    const int beyondCaches = objectsWithin<T>(runBytes, N);
    for (int count : {1000, 20000, beyondCaches}) {
        copies<T, N>(count);
        transposes<T, N>(count, false);
        conversions<T, N>(count);
    }
    transposes<T, N>(1000, true);
}

template <class T, int... N> void sizes() { (rows<T, N>(), ...); }
const Group group32f(sizes<float, 3, 4, 5, 6>), group64f(sizes<double, 3, 4, 5, 6>);

} // namespace
} // namespace bench
