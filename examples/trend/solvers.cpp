// SPDX-License-Identifier: Apache-2.0
#include "solvers.hpp"

#include <zonm.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace trend
{
namespace
{

constexpr std::int32_t size = 3;
constexpr std::int32_t element = sizeof(double);
constexpr std::int32_t vector = sizeof(Vector);
constexpr std::int32_t matrix = sizeof(Matrix);

constexpr double untouched = std::numeric_limits<double>::quiet_NaN();

void requireOk(ZonStatus status)
{
    if (status != zonStsOk)
        throw std::runtime_error("the library returned status " + std::to_string(status));
}

// An array call of a decomposition ends at the first object that it refuses. Those before it are
// complete and those behind it untouched, but the call does not say which one it was; each method
// knows by what it left. `call(first, count)` decomposes, `refused(first)` finds the object at
// which that ended; then it goes on behind it. Returns the number of calls.
template <class Call, class Refused>
std::size_t decompose(Solutions &solutions, ZonStatus refusal, Call call, Refused refused)
{
    const std::size_t count = solutions.x.size();
    for (std::size_t first = 0, calls = 1;; ++calls) {
        const ZonStatus status = call(first, static_cast<std::int32_t>(count - first));
        if (status != refusal) {
            requireOk(status);
            return calls;
        }
        first = refused(first);
        solutions.smallestPivot[first++] = 0;
        if (first == count)
            return calls;
    }
}

// The first object from `first` on that is not `isDone`: none behind it is.
template <class IsDone> std::size_t firstUndone(std::size_t first, std::size_t count, IsDone isDone)
{
    while (first < count && isDone(first))
        ++first;
    return first;
}

void solveByLU(const Systems &systems, Solutions &solutions)
{
    const std::size_t count = systems.normalMatrices.size();
    std::vector<Matrix> factors(count);
    std::vector<std::array<std::int32_t, size>> pivots(count, {-1, -1, -1});
    auto &x = solutions.x;

    const auto begin = std::chrono::steady_clock::now();
    solutions.decompositions = decompose(
        solutions, zonStsSingular,
        [&](std::size_t k, std::int32_t n) {
            return zonmLUDecomp_ma_64f(systems.normalMatrices[k][0].data(), matrix, vector, element,
                                       pivots[k].data(), factors[k][0].data(), matrix, vector,
                                       element, size, n);
        },
        // The refused object has its pivots written, and is the last one that has.
        [&](std::size_t k) {
            return firstUndone(k, count, [&](std::size_t i) { return pivots[i][0] >= 0; }) - 1;
        });
    // It goes through all objects and tests none: a refused one gets NaN and still status 0.
    requireOk(zonmLUBackSubst_mava_64f(factors[0][0].data(), matrix, vector, element,
                                       pivots[0].data(), systems.normalSides[0].data(), vector,
                                       element, x[0].data(), vector, element, size,
                                       static_cast<std::int32_t>(count)));
    solutions.time = std::chrono::steady_clock::now() - begin;

    for (std::size_t k = 0; k < count; ++k)
        for (std::size_t i = 0; i < size; ++i) {
            const auto row = static_cast<std::size_t>(pivots[k][i]);
            auto &smallest = solutions.smallestPivot[k];
            smallest = smallest == 0 ? 0 : std::min(smallest, std::abs(factors[k][row][i]));
        }
}

void solveByCholesky(const Systems &systems, Solutions &solutions)
{
    const std::size_t count = systems.normalMatrices.size();
    std::vector<Matrix> factors(count);
    for (Matrix &m : factors)
        m[size - 1][size - 1] = untouched;
    auto &x = solutions.x;

    const auto begin = std::chrono::steady_clock::now();
    solutions.decompositions = decompose(
        solutions, zonStsNotPositiveDefinite,
        [&](std::size_t k, std::int32_t n) {
            return zonmCholeskyDecomp_ma_64f(systems.normalMatrices[k][0].data(), matrix, vector,
                                             element, factors[k][0].data(), matrix, vector, element,
                                             size, n);
        },
        // The last diagonal element of an object is the last that is written, of a refused one
        // never.
        [&](std::size_t k) {
            return firstUndone(k, count, [&](std::size_t i) {
                return !std::isnan(factors[i][size - 1][size - 1]);
            });
        });
    requireOk(zonmCholeskyBackSubst_mava_64f(
        factors[0][0].data(), matrix, vector, element, systems.normalSides[0].data(), vector,
        element, x[0].data(), vector, element, size, static_cast<std::int32_t>(count)));
    solutions.time = std::chrono::steady_clock::now() - begin;

    // The diagonal holds the reciprocal of the root of each pivot.
    for (std::size_t k = 0; k < count; ++k)
        for (std::size_t i = 0; i < size; ++i) {
            const double d = factors[k][i][i];
            auto &smallest = solutions.smallestPivot[k];
            smallest = smallest == 0 ? 0 : std::min(smallest, 1 / (d * d));
        }
}

void solveByQR(const Systems &systems, Solutions &solutions)
{
    const std::size_t count = systems.normalMatrices.size();
    const auto height = static_cast<std::int32_t>(systems.height);
    const std::int32_t object = height * vector;
    const std::size_t elements = systems.height * size;
    std::vector<double> factors(count * elements), buffer(systems.height);
    for (std::size_t k = 0; k < count; ++k)
        factors[k * elements] = untouched;
    auto &x = solutions.x;

    const auto begin = std::chrono::steady_clock::now();
    solutions.decompositions = decompose(
        solutions, zonStsDivByZero,
        [&](std::size_t k, std::int32_t n) {
            return zonmQRDecomp_ma_64f(&systems.equations[k * elements], object, vector, element,
                                       buffer.data(), &factors[k * elements], object, vector,
                                       element, size, height, n);
        },
        // The refused object is copied at least, and the last one that is.
        [&](std::size_t k) {
            return firstUndone(k, count,
                               [&](std::size_t i) { return !std::isnan(factors[i * elements]); }) -
                   1;
        });
    requireOk(zonmQRBackSubst_mava_64f(factors.data(), object, vector, element, buffer.data(),
                                       systems.sides.data(), height * element, element, x[0].data(),
                                       vector, element, size, height,
                                       static_cast<std::int32_t>(count)));
    solutions.time = std::chrono::steady_clock::now() - begin;

    // R is, but for signs, the transpose of the Cholesky factor of the normal equations.
    for (std::size_t k = 0; k < count; ++k)
        for (std::size_t i = 0; i < size; ++i) {
            const double r = factors[k * elements + i * size + i];
            auto &smallest = solutions.smallestPivot[k];
            smallest = smallest == 0 ? 0 : std::min(smallest, r * r);
        }
}

} // namespace

const char *name(Method method)
{
    constexpr const char *names[] = {"lu", "cholesky", "qr"};
    return names[static_cast<std::size_t>(method)];
}

Solutions solve(const Systems &systems, Method method)
{
    const std::size_t count = systems.normalMatrices.size();
    Solutions solutions{std::vector<Vector>(count),
                        std::vector<double>(count, std::numeric_limits<double>::infinity()),
                        0,
                        {}};
    switch (method) {
    case Method::lu: solveByLU(systems, solutions); break;
    case Method::cholesky: solveByCholesky(systems, solutions); break;
    case Method::qr: solveByQR(systems, solutions); break;
    }
    return solutions;
}

} // namespace trend
