// SPDX-License-Identifier: Apache-2.0
// Sums in a given order, and the search for numbers that tell orders apart.
#pragma once

#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <utility>
#include <vector>

#include "support/values.hpp"

namespace test
{

// The terms of a sum in the order in which they are added; empty: ascending from 0.0.
using Order = std::vector<int>;
using Numbers = std::vector<double>;

inline double sumOf(const Numbers &terms, const Order &order)
{
    if (order.empty()) {
        double sum = 0.0;
        for (const double t : terms)
            sum = sum + t;
        return sum;
    }
    double sum = terms.at(std::size_t(order[0]));
    for (std::size_t p = 1; p < order.size(); ++p)
        sum = sum + terms.at(std::size_t(order[p]));
    return sum;
}

// The orders that differ in two neighbouring additions; the first two terms may change places.
inline std::vector<Order> neighboursOf(const Order &order)
{
    std::vector<Order> orders;
    for (std::size_t p = 1; p + 1 < order.size(); ++p) {
        orders.push_back(order);
        std::swap(orders.back()[p], orders.back()[p + 1]);
    }
    return orders;
}

// Numbers to which the candidates, rounded to the element type, give results all different from one
// another. Throws if none are found.
using Candidate = std::function<double(const Numbers &)>;
inline Numbers searchTelling(Element type, const std::vector<Candidate> &candidates,
                             const std::function<Numbers(Random &)> &draw)
{
    Random random(candidates.size());
    for (int attempt = 0; attempt < 2000000; ++attempt) {
        const Numbers numbers = draw(random);
        std::vector<double> results;
        bool telling = true;
        for (const Candidate &c : candidates) {
            const double r = rounded(type, c(numbers));
            telling = telling && std::isfinite(r);
            for (const double other : results)
                telling = telling && r != other;
            if (!telling)
                break;
            results.push_back(r);
        }
        if (telling)
            return numbers;
    }
    throw std::runtime_error("no numbers tell the sums apart");
}

// Numbers over a few exponents. Of those of 32f two are large and cancel, so that additions of
// doubles are seen in the result.
inline Numbers drawCancelling(Element type, std::size_t n, Random &random)
{
    Numbers numbers;
    for (std::size_t p = 0; p < n; ++p)
        numbers.push_back(
            rounded(type, (random.unit() - 0.5) * std::ldexp(1, random.between(-12, 12))));
    if (type == Element::f32) {
        const auto one = std::size_t(random.below(int(n)));
        const auto other = (one + 1 + std::size_t(random.below(int(n) - 1))) % n;
        const double large = std::ldexp(1 + random.between(0, 7) / 8.0, random.between(44, 48));
        numbers[one] = large;
        numbers[other] = -large;
    }
    return numbers;
}

// Numbers whose squares have a sum with a root next to a number halfway between two of the type, so
// that the last bit of the sum is seen in the root even behind a narrowing.
inline Numbers drawNearHalfway(Element type, std::size_t n, Random &random)
{
    if (type == Element::f64) {
        Numbers numbers;
        for (std::size_t p = 0; p < n; ++p)
            numbers.push_back((random.unit() - 0.5) * std::ldexp(1, random.between(-2, 2)));
        return numbers;
    }
    const float large = float(1.42 + 0.57 * random.unit());
    const long double half = (static_cast<long double>(large) + std::nextafter(large, 2.0f)) / 2;
    long double rest = half * half - static_cast<long double>(large) * large;
    Numbers numbers = {large};
    while (numbers.size() < n) {
        float next = float(std::sqrt(double(rest)));
        if (numbers.size() + 1 < n && numbers.size() < 3)
            next = std::nextafter(next, 0.0f);
        if (numbers.size() >= 3 || !(rest > 0x1p-54L))
            next = float(std::ldexp(0.5 + random.unit(), random.between(-28, -25)));
        numbers.push_back(next);
        rest -= static_cast<long double>(next) * next;
    }
    random.shuffle(numbers);
    return numbers;
}

} // namespace test
