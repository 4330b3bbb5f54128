// SPDX-License-Identifier: Apache-2.0
// From ten objects to a million, and the halves of an array in two threads.
#include "harness.hpp"

#include <cstring>
#include <thread>

#include <zonm.h>

namespace bench
{
namespace
{

// `work` on objects k to k + n leaves in d, object by object, what one call for all of them leaves.
template <class T, class Work>
void scaling(const char *operation, int N, int objects, Matrices<T> d, Work work)
{
    static T *const expected = allocate<T>(runBytes / sizeof(T));
    Row row("scaling", operation, typeName<T>, N, objects);
    row.into(d).check([=] {
        std::memcpy(expected, d.data, d.size() * sizeof(T));
        for (int k = 0; k < objects; ++k)
            work(k, 1);
        return 2.0 * (std::memcmp(expected, d.data, d.size() * sizeof(T)) != 0);
    });
    row.add("zonm", work);
    if (objects >= 10000)
        row.add("zonm, two threads", [=](int k, int n) {
            ZonStatus second;
            std::thread other([&] { second = work(k + n / 2, n - n / 2); });
            const ZonStatus first = work(k, n / 2);
            other.join();
            return first | second;
        });
}

template <class T> void operations(int N, int objects)
{
    const auto a = matrices<T>(first, N, objects), b = matrices<T>(second, N, objects);
    const auto d = matrices<T>(result, N, objects);
    scaling("zonmAdd_mama", N, objects, d,
            callOf(ZONM(zonmAdd_mama), array(a), array(b), array(d), N, N, count));
    scaling("zonmMul_mama", N, objects, d,
            callOf(ZONM(zonmMul_mama), array(a), N, N, array(b), N, N, array(d), count));
    static std::int32_t *const pivots = allocate<std::int32_t>(4000000);
    const auto pivotsOf = [=](int k, int) { return pivots + k * N; };
    scaling("zonmLUDecomp_ma", N, objects, d,
            callOf(ZONM(zonmLUDecomp_ma), array(a), pivotsOf, array(d), N, count));
}

template <class T> void rows(int N)
{
    for (int objects = 10; objects <= 1000000; objects *= 10)
        operations<T>(N, objects);
}

const Group group([] {
    rows<double>(3);
    rows<float>(4);
});

} // namespace
} // namespace bench
