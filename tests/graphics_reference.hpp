// SPDX-License-Identifier: Apache-2.0
// The fixed-size kit once more, as plainly as it can be written: one element after the other, every
// source read from memory where a formula names it, every result stored as soon as it is known.
#pragma once

#include <cmath>
#include <cstring>

#include "support/kit.hpp"

namespace reference
{

inline double at(const float *p, int i)
{
    float value;
    std::memcpy(&value, reinterpret_cast<const char *>(p) + 4 * i, 4);
    return value;
}
inline void put(float *p, int i, double value)
{
    const float narrow = float(value);
    std::memcpy(reinterpret_cast<char *>(p) + 4 * i, &narrow, 4);
}
inline void copyBits(const float *from, int i, float *to, int j)
{
    std::memcpy(reinterpret_cast<char *>(to) + 4 * j, reinterpret_cast<const char *>(from) + 4 * i,
                4);
}
template <class P> P *vectorAt(P *p, std::int32_t stride, int k)
{
    return reinterpret_cast<P *>(std::uintptr_t(p) + std::uintptr_t(std::ptrdiff_t(stride) * k));
}

// Vectors --------------------------------------------------------------------------------------

template <int N> ZonStatus add(const float *a, const float *b, float *dst)
{
    for (int i = 0; i < N; ++i)
        put(dst, i, at(a, i) + at(b, i));
    return zonStsOk;
}
template <int N> ZonStatus sub(const float *a, const float *b, float *dst)
{
    for (int i = 0; i < N; ++i)
        put(dst, i, at(a, i) - at(b, i));
    return zonStsOk;
}
template <int N> ZonStatus mulC(const float *a, float val, float *dst)
{
    for (int i = 0; i < N; ++i)
        put(dst, i, at(a, i) * double(val));
    return zonStsOk;
}
template <int N> ZonStatus min(const float *a, const float *b, float *dst)
{
    for (int i = 0; i < N; ++i)
        copyBits(at(b, i) > at(a, i) ? a : b, i, dst, i);
    return zonStsOk;
}
template <int N> ZonStatus max(const float *a, const float *b, float *dst)
{
    for (int i = 0; i < N; ++i)
        copyBits(at(b, i) < at(a, i) ? a : b, i, dst, i);
    return zonStsOk;
}

template <int N> double dot(const float *a, const float *b)
{
    double sum = at(a, 0) * at(b, 0);
    for (int i = 1; i < N; ++i)
        sum += at(a, i) * at(b, i);
    return sum;
}
template <int N> ZonStatus dotProduct(const float *a, const float *b, float *dst)
{
    put(dst, 0, dot<N>(a, b));
    return zonStsOk;
}
inline ZonStatus cross2(const float *a, const float *b, float *dst)
{
    put(dst, 0, at(a, 0) * at(b, 1) - at(a, 1) * at(b, 0));
    return zonStsOk;
}
inline ZonStatus cross3(const float *a, const float *b, float *dst)
{
    put(dst, 0, at(a, 1) * at(b, 2) - at(a, 2) * at(b, 1));
    put(dst, 1, at(a, 2) * at(b, 0) - at(a, 0) * at(b, 2));
    put(dst, 2, at(a, 0) * at(b, 1) - at(a, 1) * at(b, 0));
    return zonStsOk;
}
inline ZonStatus cross4(const float *a, const float *b, const float *c, float *dst)
{
    double m23, m13, m12, m03, m02, m01;
    const auto minors = [&] {
        m23 = at(b, 2) * at(c, 3) - at(b, 3) * at(c, 2);
        m13 = at(c, 3) * at(b, 1) - at(b, 3) * at(c, 1);
        m12 = at(c, 2) * at(b, 1) - at(b, 2) * at(c, 1);
        m03 = at(c, 3) * at(b, 0) - at(b, 3) * at(c, 0);
        m02 = at(c, 2) * at(b, 0) - at(b, 2) * at(c, 0);
        m01 = at(c, 1) * at(b, 0) - at(b, 1) * at(c, 0);
    };
    minors();
    put(dst, 0, (m23 * at(a, 1) - m13 * at(a, 2)) + m12 * at(a, 3));
    minors();
    put(dst, 1, -((m23 * at(a, 0) - m03 * at(a, 2)) + m02 * at(a, 3)));
    minors();
    put(dst, 2, (m13 * at(a, 0) - m03 * at(a, 1)) + m01 * at(a, 3));
    minors();
    put(dst, 3, -((m12 * at(a, 0) - m02 * at(a, 1)) + m01 * at(a, 2)));
    return zonStsOk;
}
template <int N> ZonStatus lenSqr(const float *a, float *dst)
{
    put(dst, 0, dot<N>(a, a));
    return zonStsOk;
}
template <int N> ZonStatus len(const float *a, float *dst)
{
    put(dst, 0, std::sqrt(dot<N>(a, a)));
    return zonStsOk;
}
template <int N> ZonStatus normalize(const float *a, float *dst)
{
    const double l = std::sqrt(dot<N>(a, a));
    for (int i = 0; i < N; ++i)
        put(dst, i, at(a, i) / l);
    return zonStsOk;
}
template <int N> ZonStatus linear(const float *a, const float *b, float s, float *dst)
{
    for (int i = 0; i < N; ++i)
        put(dst, i, at(a, i) + (at(b, i) - at(a, i)) * double(s));
    return zonStsOk;
}
template <int N>
ZonStatus baryCentric(const float *a, const float *b, const float *c, float f, float g, float *dst)
{
    for (int i = 0; i < N; ++i)
        put(dst, i,
            ((at(b, i) - at(a, i)) * double(f) + at(a, i)) + (at(c, i) - at(a, i)) * double(g));
    return zonStsOk;
}
template <int N>
ZonStatus hermite(const float *pos1, const float *tan1, const float *pos2, const float *tan2,
                  float parameter, float *dst)
{
    const double s = parameter, s2 = s * s, s3 = s * s2;
    const double w1 = ((s - s2) - s2) + s3;
    const double w2 = s3 - s2;
    const double w3 = (s3 - 3.0 * s2) + s3;
    for (int i = 0; i < N; ++i)
        put(dst, i,
            ((at(pos1, i) + at(tan1, i) * w1) + at(tan2, i) * w2) +
                (at(pos1, i) - at(pos2, i)) * w3);
    return zonStsOk;
}
template <int N>
ZonStatus catmullRom(const float *a, const float *b, const float *c, const float *d, float s,
                     float *dst)
{
    float t1[N], t2[N];
    for (int i = 0; i < N; ++i) {
        put(t1, i, (at(c, i) - at(a, i)) * 0.5);
        put(t2, i, (at(d, i) - at(b, i)) * 0.5);
    }
    return hermite<N>(b, t1, c, t2, s, dst);
}

// Matrices -------------------------------------------------------------------------------------

inline double at(const float *m, int r, int c) { return at(m, 4 * r + c); }
inline void put(float *m, int r, int c, double value) { put(m, 4 * r + c, value); }

inline ZonStatus identity(float *dst)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            put(dst, r, c, r == c ? 1 : 0);
    return zonStsOk;
}
inline ZonStatus isIdentity(const float *src, std::int32_t *dst)
{
    std::int32_t flag = 1;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            if (!(at(src, r, c) == (r == c ? 1 : 0)))
                flag = 0;
    std::memcpy(dst, &flag, 4);
    return zonStsOk;
}
inline ZonStatus transpose(const float *src, float *dst)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            copyBits(src, 4 * c + r, dst, 4 * r + c);
    return zonStsOk;
}
inline ZonStatus product(const float *a, const float *b, float *dst)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            put(dst, r, c,
                ((at(b, 0, c) * at(a, r, 0) + at(b, 1, c) * at(a, r, 1)) +
                 at(b, 2, c) * at(a, r, 2)) +
                    at(b, 3, c) * at(a, r, 3));
    return zonStsOk;
}
inline ZonStatus productTransposed(const float *a, const float *b, float *dst)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            put(dst, c, r,
                ((at(a, r, 0) * at(b, 0, c) + at(a, r, 1) * at(b, 1, c)) +
                 at(a, r, 2) * at(b, 2, c)) +
                    at(a, r, 3) * at(b, 3, c));
    return zonStsOk;
}
inline ZonStatus det(const float *src, float *dst)
{
    double m[16];
    for (int i = 0; i < 16; ++i)
        m[i] = at(src, i);
    volatile float s0 = float(m[10] * m[15] - m[11] * m[14]);
    volatile float s1 = float(m[15] * m[9] - m[11] * m[13]);
    volatile float s2 = float(m[14] * m[9] - m[10] * m[13]);
    volatile float s3 = float(m[13] * m[8] - m[9] * m[12]);
    const double u = m[15] * m[8] - m[11] * m[12];
    const double w = m[14] * m[8] - m[10] * m[12];
    double sum = ((m[5] * s0 - m[6] * s1) + m[7] * s2) * m[0];
    sum -= ((s0 * m[4] - m[6] * u) + m[7] * w) * m[1];
    sum += ((s1 * m[4] - u * m[5]) + m[7] * s3) * m[2];
    sum -= ((m[4] * s2 - m[5] * w) + s3 * m[6]) * m[3];
    put(dst, 0, sum);
    return zonStsOk;
}
inline ZonStatus invert(const float *src, float *det, float *dst)
{
    float a[4][4], b[4][4] = {{1}, {0, 1}, {0, 0, 1}, {0, 0, 0, 1}};
    std::memcpy(a, src, sizeof a);
    int perm[4] = {0, 1, 2, 3};
    double d = 1;
    const std::uint32_t limitBits = 0x35C00000;
    float limit;
    std::memcpy(&limit, &limitBits, 4);
    for (int k = 0; k < 4; ++k) {
        int best = k;
        for (int j = k + 1; j < 4; ++j)
            if (std::fabs(a[k][perm[j]]) > std::fabs(a[k][perm[best]]))
                best = j;
        if (std::fabs(a[k][perm[best]]) < limit) {
            if (det)
                put(det, 0, 0);
            return zonStsSingular;
        }
        std::swap(perm[k], perm[best]);
        const double p = a[k][perm[k]];
        d *= p;
        for (int c = 0; c < 4; ++c)
            a[k][c] = float(a[k][c] / p);
        for (int c = 0; c < 4; ++c)
            b[k][c] = float(b[k][c] / p);
        for (int r = 0; r < 4; ++r) {
            if (r == k)
                continue;
            const double f = a[r][perm[k]];
            for (int j = k; j < 4; ++j)
                a[r][perm[j]] = float(a[r][perm[j]] - a[k][perm[j]] * f);
            for (int c = 0; c < 4; ++c)
                b[r][c] = float(b[r][c] - b[k][c] * f);
        }
    }
    for (int i = 0; i < 4; ++i)
        for (int c = 0; c < 4; ++c)
            put(dst, perm[i], c, b[i][c]);
    if (det) {
        int swaps = 0;
        for (int i = 0; i < 4; ++i)
            for (int j = i + 1; j < 4; ++j)
                if (perm[j] == i) {
                    std::swap(perm[j], perm[i]);
                    ++swaps;
                }
        put(det, 0, swaps % 2 ? -d : d);
    }
    return zonStsOk;
}
inline ZonStatus scaling(float x, float y, float z, float *dst)
{
    identity(dst);
    put(dst, 0, 0, x);
    put(dst, 1, 1, y);
    put(dst, 2, 2, z);
    return zonStsOk;
}
inline ZonStatus translation(float x, float y, float z, float *dst)
{
    identity(dst);
    put(dst, 3, 0, x);
    put(dst, 3, 1, y);
    put(dst, 3, 2, z);
    return zonStsOk;
}

// The platform's functions, each called by itself.
inline double (*volatile const sine)(double) = std::sin;
inline double (*volatile const cosine)(double) = std::cos;

inline ZonStatus rotationX(float angle, float *dst)
{
    const double s = sine(angle), c = cosine(angle);
    identity(dst);
    put(dst, 1, 1, c), put(dst, 1, 2, s);
    put(dst, 2, 1, -s), put(dst, 2, 2, c);
    return zonStsOk;
}
inline ZonStatus rotationY(float angle, float *dst)
{
    const double s = sine(angle), c = cosine(angle);
    identity(dst);
    put(dst, 0, 0, c), put(dst, 0, 2, -s);
    put(dst, 2, 0, s), put(dst, 2, 2, c);
    return zonStsOk;
}
inline ZonStatus rotationZ(float angle, float *dst)
{
    const double s = sine(angle), c = cosine(angle);
    identity(dst);
    put(dst, 0, 0, c), put(dst, 0, 1, s);
    put(dst, 1, 0, -s), put(dst, 1, 1, c);
    return zonStsOk;
}
inline ZonStatus rotationAxis(const float *axis, float angle, float *dst)
{
    const double l = std::sqrt(dot<3>(axis, axis));
    const double x = at(axis, 0) / l, y = at(axis, 1) / l, z = at(axis, 2) / l;
    const double s = sine(angle), c = cosine(angle), t = 1 - c;
    identity(dst);
    put(dst, 0, 0, c + (t * x) * x);
    put(dst, 0, 1, (t * y) * x + z * s);
    put(dst, 0, 2, (t * z) * x - s * y);
    put(dst, 1, 0, (t * x) * y - z * s);
    put(dst, 1, 1, (t * y) * y + c);
    put(dst, 1, 2, y * (t * z) + s * x);
    put(dst, 2, 0, s * y + (t * x) * z);
    put(dst, 2, 1, (t * y) * z - s * x);
    put(dst, 2, 2, z * (t * z) + c);
    return zonStsOk;
}
inline ZonStatus yawPitchRoll(float yaw, float pitch, float roll, float *dst)
{
    const double sy = sine(yaw), cy = cosine(yaw), sp = sine(pitch), cp = cosine(pitch);
    const double sr = sine(roll), cr = cosine(roll);
    identity(dst);
    put(dst, 0, 0, sr * (sy * sp) + cy * cr);
    put(dst, 0, 1, sr * cp);
    put(dst, 0, 2, sr * (sp * cy) - sy * cr);
    put(dst, 1, 0, (sy * sp) * cr - cy * sr);
    put(dst, 1, 1, cp * cr);
    put(dst, 1, 2, sy * sr + cr * (sp * cy));
    put(dst, 2, 0, sy * cp);
    put(dst, 2, 1, -sp);
    put(dst, 2, 2, cy * cp);
    return zonStsOk;
}

// Cameras --------------------------------------------------------------------------------------

inline void clear(float *dst)
{
    for (int i = 0; i < 16; ++i)
        put(dst, i, 0);
}
template <bool Left>
ZonStatus lookAt(const float *eye, const float *target, const float *up, float *dst)
{
    float d[3], x[3], y[3], z[3], product[3], sum;
    for (int i = 0; i < 3; ++i)
        put(d, i, Left ? at(target, i) - at(eye, i) : at(eye, i) - at(target, i));
    normalize<3>(d, z);
    cross3(up, z, product);
    normalize<3>(product, x);
    cross3(z, x, y);
    clear(dst);
    for (int i = 0; i < 3; ++i) {
        put(dst, i, 0, x[i]);
        put(dst, i, 1, y[i]);
        put(dst, i, 2, z[i]);
    }
    const float *const axes[] = {x, y, z};
    for (int c = 0; c < 3; ++c) {
        dotProduct<3>(axes[c], eye, &sum);
        put(dst, 3, c, -sum);
    }
    put(dst, 3, 3, 1);
    return zonStsOk;
}
template <bool Left>
ZonStatus orthoOffCenter(float left, float right, float bottom, float top, float zNear, float zFar,
                         float *dst)
{
    const double l = left, r = right, b = bottom, t = top, n = zNear, f = zFar;
    clear(dst);
    put(dst, 0, 0, 2 / (r - l));
    put(dst, 1, 1, 2 / (t - b));
    put(dst, 2, 2, Left ? 1 / (f - n) : 1 / (n - f));
    put(dst, 3, 0, (l + r) / -(r - l));
    put(dst, 3, 1, (b + t) / -(t - b));
    put(dst, 3, 2, Left ? n / -(f - n) : n / (n - f));
    put(dst, 3, 3, 1);
    return zonStsOk;
}
template <bool Left> ZonStatus ortho(float width, float height, float zNear, float zFar, float *dst)
{
    const double n = zNear, f = zFar;
    clear(dst);
    put(dst, 0, 0, 2 / double(width));
    put(dst, 1, 1, 2 / double(height));
    put(dst, 2, 2, Left ? 1 / (f - n) : 1 / (n - f));
    put(dst, 3, 2, Left ? n / -(f - n) : n / (n - f));
    put(dst, 3, 3, 1);
    return zonStsOk;
}
template <bool Left>
ZonStatus perspective(float width, float height, float zNear, float zFar, float *dst)
{
    const double n = zNear, f = zFar;
    clear(dst);
    put(dst, 0, 0, (n + n) / double(width));
    put(dst, 1, 1, (n + n) / double(height));
    put(dst, 2, 2, Left ? f / (f - n) : f / (n - f));
    put(dst, 2, 3, Left ? 1 : -1);
    put(dst, 3, 2, Left ? (n * f) / -(f - n) : (n * f) / (n - f));
    return zonStsOk;
}
template <bool Left>
ZonStatus perspectiveOffCenter(float left, float right, float bottom, float top, float zNear,
                               float zFar, float *dst)
{
    const double l = left, r = right, b = bottom, t = top, n = zNear, f = zFar;
    clear(dst);
    put(dst, 0, 0, (n + n) / (r - l));
    put(dst, 1, 1, (n + n) / (t - b));
    put(dst, 2, 0, Left ? (l + r) / -(r - l) : (l + r) / (r - l));
    put(dst, 2, 1, Left ? (b + t) / -(t - b) : (b + t) / (t - b));
    put(dst, 2, 2, Left ? f / (f - n) : f / (n - f));
    put(dst, 2, 3, Left ? 1 : -1);
    put(dst, 3, 2, Left ? (n * f) / -(f - n) : (n * f) / (n - f));
    return zonStsOk;
}
template <bool Left>
ZonStatus perspectiveFov(float fovY, float aspect, float zNear, float zFar, float *dst)
{
    const double n = zNear, f = zFar, h = double(fovY) * 0.5;
    const double c = cosine(h) / sine(h);
    clear(dst);
    put(dst, 0, 0, c / double(aspect));
    put(dst, 1, 1, c);
    put(dst, 2, 2, Left ? f / (f - n) : f / (n - f));
    put(dst, 2, 3, Left ? 1 : -1);
    put(dst, 3, 2, Left ? -(f * n) / (f - n) : (f * n) / (n - f));
    return zonStsOk;
}

// Transforms -----------------------------------------------------------------------------------

template <int N> ZonStatus affine(const float *m, const float *v, float *dst)
{
    float results[4];
    for (int j = 0; j < 4; ++j) {
        const double x = at(v, 0), y = at(v, 1);
        if (N == 4)
            put(results, j,
                ((at(m, 0, j) * x + at(m, 1, j) * y) + at(m, 2, j) * at(v, 2)) +
                    at(m, 3, j) * at(v, 3));
        else if (N == 3)
            put(results, j,
                (at(m, 1, j) * y + (at(m, 0, j) * x + at(m, 3, j))) + at(m, 2, j) * at(v, 2));
        else
            put(results, j, at(m, 1, j) * y + (at(m, 0, j) * x + at(m, 3, j)));
    }
    std::memcpy(dst, results, sizeof results);
    return zonStsOk;
}
// The matrix is read once.
template <int N>
ZonStatus affineArray(const float *m, const float *v, std::int32_t vStride, float *dst,
                      std::int32_t dstStride, std::int32_t count)
{
    float matrix[16];
    if (count > 0)
        std::memcpy(matrix, m, sizeof matrix);
    for (int k = 0; k < count; ++k)
        affine<N>(matrix, vectorAt(v, vStride, k), vectorAt(dst, dstStride, k));
    return zonStsOk;
}

template <int N> ZonStatus coord(const float *m, const float *v, float *dst)
{
    double results[N];
    const auto sum = [&](int j) {
        const double line = at(m, 0, j) * at(v, 0) + at(m, 3, j);
        const double plane = line + at(m, 1, j) * at(v, 1);
        return N == 2 ? plane : plane + at(m, 2, j) * at(v, 2);
    };
    for (int j = 0; j < N; ++j)
        results[j] = sum(j) / sum(3);
    for (int j = 0; j < N; ++j)
        put(dst, j, results[j]);
    return zonStsOk;
}
inline void coordInArray2(const float *m, const float *v, float *dst)
{
    const double w = at(m, 0, 3) * at(v, 0) + (at(m, 1, 3) * at(v, 1) + at(m, 3, 3));
    put(dst, 0, (at(v, 0) * at(m, 0, 0) + (at(v, 1) * at(m, 1, 0) + at(m, 3, 0))) / w);
    put(dst, 1, (at(m, 1, 1) * at(v, 1) + (at(m, 0, 1) * at(v, 0) + at(m, 3, 1))) / w);
}
inline void coordInArray3(const float *m, const float *v, float *dst)
{
    const double w =
        (at(m, 2, 3) * at(v, 2) + (at(m, 1, 3) * at(v, 1) + at(m, 3, 3))) + at(m, 0, 3) * at(v, 0);
    put(dst, 0,
        (at(v, 0) * at(m, 0, 0) +
         (at(v, 2) * at(m, 2, 0) + (at(v, 1) * at(m, 1, 0) + at(m, 3, 0)))) /
            w);
    for (int j = 1; j < 3; ++j)
        put(dst, j,
            ((at(m, 1, j) * at(v, 1) + (at(m, 0, j) * at(v, 0) + at(m, 3, j))) +
             at(m, 2, j) * at(v, 2)) /
                w);
}
template <int N>
ZonStatus coordArray(const float *m, const float *v, std::int32_t vStride, float *dst,
                     std::int32_t dstStride, std::int32_t count)
{
    for (int k = 0; k < count; ++k)
        (N == 2 ? coordInArray2 : coordInArray3)(m, vectorAt(v, vStride, k),
                                                 vectorAt(dst, dstStride, k));
    return zonStsOk;
}

template <int N> ZonStatus normal(const float *m, const float *v, float *dst)
{
    for (int j = 0; j < N; ++j) {
        const double plane = at(m, 0, j) * at(v, 0) + at(m, 1, j) * at(v, 1);
        put(dst, j, N == 2 ? plane : plane + at(m, 2, j) * at(v, 2));
    }
    return zonStsOk;
}
template <int N>
ZonStatus normalArray(const float *m, const float *v, std::int32_t vStride, float *dst,
                      std::int32_t dstStride, std::int32_t count)
{
    for (int k = 0; k < count; ++k)
        normal<N>(m, vectorAt(v, vStride, k), vectorAt(dst, dstStride, k));
    return zonStsOk;
}

inline ZonStatus project(const float *proj, const float *view, const float *world, const float *src,
                         float width, float height, float zMin, float zMax, float *dst)
{
    float t[3];
    coord<3>(world, src, t);
    coord<3>(view, t, t);
    coord<3>(proj, t, t);
    put(dst, 0, ((at(t, 0) + 1) * double(width)) * 0.5);
    put(dst, 1, 0.5 * ((1 - at(t, 1)) * double(height)));
    put(dst, 2, at(t, 2) * double(zMax) + (1 - at(t, 2)) * double(zMin));
    return zonStsOk;
}
inline ZonStatus projectArray(const float *proj, const float *view, const float *world,
                              const float *src, std::int32_t srcStride, float width, float height,
                              float zMin, float zMax, float *dst, std::int32_t dstStride,
                              std::int32_t count)
{
    for (int k = 0; k < count; ++k)
        project(proj, view, world, vectorAt(src, srcStride, k), width, height, zMin, zMax,
                vectorAt(dst, dstStride, k));
    return zonStsOk;
}

inline void productFromLast(const float *a, const float *b, float *dst)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            put(dst, r, c,
                ((at(b, 3, c) * at(a, r, 3) + at(b, 2, c) * at(a, r, 2)) +
                 at(b, 1, c) * at(a, r, 1)) +
                    at(b, 0, c) * at(a, r, 0));
}
inline ZonStatus invertScene(const float *proj, const float *view, const float *world,
                             float *inverse)
{
    float t[16], u[16];
    productFromLast(world, view, t);
    productFromLast(t, proj, u);
    return invert(u, nullptr, inverse);
}
inline ZonStatus unproject(const float *proj, const float *view, const float *world,
                           const float *src, float width, float height, float zMin, float zMax,
                           float *dst)
{
    const double x = at(src, 0), y = at(src, 1), z = at(src, 2);
    put(dst, 0, (2 * x) / double(width) - 1);
    put(dst, 1, 1 + (-2 * y) / double(height));
    put(dst, 2, (z - double(zMin)) / (double(zMax) - double(zMin)));
    float inverse[16];
    if (invertScene(proj, view, world, inverse) != zonStsOk)
        return zonStsSingular;
    return coord<3>(inverse, dst, dst);
}
inline ZonStatus unprojectArray(const float *proj, const float *view, const float *world,
                                const float *src, std::int32_t srcStride, float width, float height,
                                float zMin, float zMax, float *dst, std::int32_t dstStride,
                                std::int32_t count)
{
    float inverse[16];
    if (invertScene(proj, view, world, inverse) != zonStsOk)
        return zonStsSingular;
    volatile float depth = float(double(zMax) - double(zMin));
    for (int k = 0; k < count; ++k) {
        const float *v = vectorAt(src, srcStride, k);
        float t[3];
        put(t, 0, (2 * at(v, 0)) / double(width) - 1);
        put(t, 1, 1 + (-2 * at(v, 1)) / double(height));
        put(t, 2, (at(v, 2) - double(zMin)) / double(depth));
        coord<3>(inverse, t, vectorAt(dst, dstStride, k));
    }
    return zonStsOk;
}

} // namespace reference
