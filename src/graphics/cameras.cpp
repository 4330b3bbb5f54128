// SPDX-License-Identifier: Apache-2.0
// View and projection matrices of left- and right-handed systems; depth 0 to 1. Nothing is judged:
// an empty view volume leaves infinities or NaNs.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "graphics/vectors.hpp"

#include <cmath>

namespace zonm
{
namespace
{

enum class Hand { left, right };

// View -----------------------------------------------------------------------------------------

// Each vector on the way is one of 32f elements.
template <Hand H> ZonStatus lookAt(const float *eye, const float *at, const float *up, float *dst)
{
    const auto from = loadNumbers<3>(eye), to = loadNumbers<3>(at);
    const auto z = rounded(normalized(rounded(H == Hand::left ? to - from : from - to)));
    const auto x = rounded(normalized(rounded(cross(loadNumbers<3>(up), z))));
    const auto y = rounded(cross(z, x));
    unrolled<0, 3>([&](auto i) ZONM_INLINED {
        setElement(dst, 4 * i, x[i]);
        setElement(dst, 4 * i + 1, y[i]);
        setElement(dst, 4 * i + 2, z[i]);
        setElement(dst, 4 * i + 3, 0);
    });
    setElement(dst, 12, -dot(x, from));
    setElement(dst, 13, -dot(y, from));
    setElement(dst, 14, -dot(z, from));
    setElement(dst, 15, 1);
    return zonStsOk;
}

// Projections ----------------------------------------------------------------------------------

// The cells that any of them sets. Offsets stand in row 3 of an orthographic and in row 2 of a
// perspective projection.
struct Projection {
    double scaleX, scaleY, scaleZ;
    double offsetX, offsetY, offsetZ;
};

ZonStatus storeOrthographic(float *dst, const Projection &p)
{
    const double cells[16] = {p.scaleX, 0, 0,        0, 0,         p.scaleY,  0,         0,
                              0,        0, p.scaleZ, 0, p.offsetX, p.offsetY, p.offsetZ, 1};
    unrolled<0, 16>([&](auto e) ZONM_INLINED { setElement(dst, e, cells[e]); });
    return zonStsOk;
}

template <Hand H> ZonStatus storePerspective(float *dst, const Projection &p)
{
    const double w = H == Hand::left ? 1 : -1;
    const double cells[16] = {p.scaleX,  0,         0,        0, 0, p.scaleY, 0,         0,
                              p.offsetX, p.offsetY, p.scaleZ, w, 0, 0,        p.offsetZ, 0};
    unrolled<0, 16>([&](auto e) ZONM_INLINED { setElement(dst, e, cells[e]); });
    return zonStsOk;
}

// Depth `numerator` over the signed length of the view volume, and `offset` over its opposite: the
// two lengths are not each other's negatives where they are zero.
template <Hand H> ZONM_INLINED inline double depthScale(double numerator, double zNear, double zFar)
{
    return numerator / (H == Hand::left ? zFar - zNear : zNear - zFar);
}
template <Hand H>
ZONM_INLINED inline double depthOffset(double numerator, double zNear, double zFar)
{
    return numerator / (H == Hand::left ? -(zFar - zNear) : zNear - zFar);
}

// The middle of low..high in units of half its length, on the opposite side.
ZONM_INLINED inline double oppositeCenter(double low, double high)
{
    return (low + high) / -(high - low);
}

template <Hand H>
ZonStatus orthographic(float width, float height, float zNear, float zFar, float *dst)
{
    return storeOrthographic(dst,
                             {2 / double(width), 2 / double(height), depthScale<H>(1, zNear, zFar),
                              0, 0, depthOffset<H>(zNear, zNear, zFar)});
}

template <Hand H>
ZonStatus orthographicOffCenter(float left, float right, float bottom, float top, float zNear,
                                float zFar, float *dst)
{
    return storeOrthographic(dst,
                             {2 / (double(right) - left), 2 / (double(top) - bottom),
                              depthScale<H>(1, zNear, zFar), oppositeCenter(left, right),
                              oppositeCenter(bottom, top), depthOffset<H>(zNear, zNear, zFar)});
}

template <Hand H>
ZonStatus perspective(float width, float height, float zNear, float zFar, float *dst)
{
    const double n = zNear, f = zFar;
    return storePerspective<H>(dst, {(n + n) / width, (n + n) / height, depthScale<H>(f, n, f), 0,
                                     0, depthOffset<H>(n * f, n, f)});
}

template <Hand H>
ZonStatus perspectiveOffCenter(float left, float right, float bottom, float top, float zNear,
                               float zFar, float *dst)
{
    const double n = zNear, f = zFar, l = left, r = right, b = bottom, t = top;
    const double x = H == Hand::left ? oppositeCenter(l, r) : (l + r) / (r - l);
    const double y = H == Hand::left ? oppositeCenter(b, t) : (b + t) / (t - b);
    return storePerspective<H>(dst, {(n + n) / (r - l), (n + n) / (t - b), depthScale<H>(f, n, f),
                                     x, y, depthOffset<H>(n * f, n, f)});
}

template <Hand H>
ZonStatus perspectiveFov(float fovY, float aspect, float zNear, float zFar, float *dst)
{
    const double h = fovY * 0.5, c = std::cos(h) / std::sin(h);
    const double n = zNear, f = zFar;
    return storePerspective<H>(
        dst, {c / aspect, c, depthScale<H>(f, n, f), 0, 0, depthOffset<H>(f * n, n, f)});
}

} // namespace
} // namespace zonm

#include "graphics/generated/cameras.inc"
