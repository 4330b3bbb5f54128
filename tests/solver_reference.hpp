// SPDX-License-Identifier: Apache-2.0
// Matrices and vectors as the references of solvers see them: element by element, wherever they
// lie.
#pragma once

#include <functional>

#include "support/one_memory.hpp"

namespace test
{

struct MatrixIn {
    std::function<double(int i, int j)> get;
    std::function<void(int i, int j, double)> set;
};
struct VectorIn {
    std::function<double(int i)> get;
    std::function<void(int i, double)> set;
};

inline MatrixIn matrixOf(const Operand &o, int k)
{
    return {[&o, k](int i, int j) { return o(k, i, j); },
            [&o, k](int i, int j, double v) { o.set(k, i, j, v); }};
}
inline VectorIn vectorOf(const Operand &o, int k)
{
    return {[&o, k](int i) { return o(k, i); }, [&o, k](int i, double v) { o.set(k, i, 0, v); }};
}

} // namespace test
