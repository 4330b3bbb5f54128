// SPDX-License-Identifier: Apache-2.0
// Orders of addition. In straight-line code the order in which the terms of a sum are added is part
// of the interface; it differs between operations, forms and sizes, without a rule. So the orders
// are data: a list has the terms in the order in which they join the sum, a table one list for each
// of the sizes 3 to 6.
#pragma once

#include "frame/sizes.hpp"

namespace zonm
{

// The sum begins with its first term, not with 0.0.
struct Order {
    int length = 0;
    int terms[9] = {};

    template <class... I> consteval Order(I... i) : length(sizeof...(I)), terms{i...} {}
    friend bool operator==(const Order &, const Order &) = default;
};

struct Orders {
    Order of3, of4, of5, of6;
    Order none = {}; // of any other size: ascending from 0.0

    constexpr const Order &operator[](int size) const
    {
        return size == 3 ? of3 : size == 4 ? of4 : size == 5 ? of5 : size == 6 ? of6 : none;
    }
    friend bool operator==(const Orders &, const Orders &) = default;
};

// The sum of term(0), term(1), ..., in an order; the index of a term is a constant.
template <Order O, class Term> ZONM_INLINED inline auto sumInOrder(Term term)
{
    auto sum = term(std::integral_constant<int, O.terms[0]>{});
    unrolled<1, O.length>([&](auto place) ZONM_INLINED {
        sum = sum + term(std::integral_constant<int, O.terms[place]>{});
    });
    return sum;
}

// The same without straight-line code.
template <class Term> inline double sumInOrder(const Order &order, Term term)
{
    double sum = term(order.terms[0]);
    for (int place = 1; place < order.length; ++place)
        sum = sum + term(order.terms[place]);
    return sum;
}

inline constexpr Orders ascending = {{0, 1, 2}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {0, 1, 2, 3, 4, 5}};

// Scalar products ------------------------------------------------------------------------------

namespace dot
{
inline constexpr Orders lastFirst = {{0, 1, 2}, {3, 0, 1, 2}, {4, 0, 1, 2, 3}, {5, 0, 1, 2, 3, 4}};
inline constexpr Orders ofStridedVv = {
    {1, 2, 0}, {1, 3, 2, 0}, {2, 4, 3, 0, 1}, {3, 5, 4, 0, 1, 2}};
inline constexpr Orders ofStridedVav = {
    {0, 1, 2}, {3, 0, 1, 2}, {3, 4, 0, 1, 2}, {4, 5, 0, 1, 2, 3}};
inline constexpr Orders ofStridedVavTables = {
    {1, 2, 0}, {2, 3, 1, 0}, {3, 4, 2, 0, 1}, {4, 5, 3, 0, 1, 2}};
} // namespace dot

// Norms ----------------------------------------------------------------------------------------

namespace norm
{
inline constexpr Orders lastSecond = {{0, 1, 2}, {0, 3, 1, 2}, {0, 4, 1, 2, 3}, {0, 5, 1, 2, 3, 4}};
// For the first vector of dense arrays: strided ones, and tables.
inline constexpr Orders firstOfArray = {
    {0, 1, 2}, {0, 1, 2, 3}, {0, 4, 1, 2, 3}, {0, 5, 1, 2, 3, 4}};
inline constexpr Orders firstOfTable = {
    {0, 1, 2}, {0, 1, 2, 3}, {0, 1, 2, 3, 4}, {0, 5, 1, 2, 3, 4}};

// Arrays of 3×3 matrices; element (i, j) is term 3*i + j.
inline constexpr Order of3x3 = {0, 1, 2, 4, 3, 5, 8, 6, 7};
} // namespace norm

// Traces ---------------------------------------------------------------------------------------

namespace trace
{
inline constexpr Orders lastTwoFirst = {
    {1, 2, 0}, {2, 3, 1, 0}, {3, 4, 2, 0, 1}, {4, 5, 3, 0, 1, 2}};
} // namespace trace

// Products of a matrix and a vector, plus a vector ---------------------------------------------

namespace gaxpy
{
// Not a product but the element of the vector that is added.
inline constexpr int c = -1;

inline constexpr Orders rows = {
    {0, 1, 2, c}, {3, 0, 1, 2, c}, {4, 0, 1, 2, 3, c}, {5, 0, 1, 2, 3, 4, c}};
inline constexpr Orders lastRow = {
    {0, 1, 2, c}, {3, c, 0, 1, 2}, {4, c, 0, 1, 2, 3}, {5, c, 0, 1, 2, 3, 4}};
inline constexpr Orders ofMvav = {
    {0, c, 1, 2}, {3, c, 0, 1, 2}, {4, c, 0, 1, 2, 3}, {5, c, 0, 1, 2, 3, 4}};
} // namespace gaxpy

} // namespace zonm
