// SPDX-License-Identifier: Apache-2.0
// Bytes of work memory for the general eigenproblem:
//
//   values    n (n + 5) elements, of which the kernel uses n (n + 2)
//   vectors   n (3 n + 5) elements
//
// formed in unsigned 32-bit arithmetic, which wraps.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"

namespace zonm
{
namespace
{

ZonStatus writeSize(int32_t *bufSize, std::uint32_t bytes)
{
    store<int32_t>(zonm::bytes(bufSize), int32_t(bytes));
    return zonStsOk;
}

template <class T> ZonStatus eigenValuesBufSize(int32_t size, int32_t *bufSize)
{
    const auto n = std::uint32_t(size);
    return writeSize(bufSize, n * std::uint32_t(sizeof(T)) * (n + 5));
}
template <class T> ZonStatus eigenVectorsBufSize(int32_t size, int32_t *bufSize)
{
    const auto n = std::uint32_t(size);
    return writeSize(bufSize, n * std::uint32_t(sizeof(T)) * (3 * n + 5));
}

} // namespace
} // namespace zonm

#include "eigen/generated/eigen_buf_size.inc"
