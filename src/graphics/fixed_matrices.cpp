// SPDX-License-Identifier: Apache-2.0
// 4x4 matrices: tests, products, determinant, inverse, and those of scalings, translations and
// rotations. dst may be src in the inverse; the products and the transposition store each element
// before they read the sources for the next.
#include "frame/checks.hpp"
#include "frame/generated/export_table.hpp"
#include "graphics/matrix4.hpp"

#include <cmath>
#include <utility>

namespace zonm
{

// Inverse --------------------------------------------------------------------------------------

namespace
{

// A column of a matrix, rows in pairs.
struct Column {
    Pair rows[2];

    ZONM_INLINED double operator[](int r) const { return rows[r / 2][r % 2]; }
};

// What is left of the source, its columns in the order `perm`, and what the identity has become.
// The columns of the identity that no step has reached yet are alike but for their ones: `rest` has
// the zeros of them all, signed by the steps, and the NaNs that infinite numbers make of them.
struct Elimination {
    Column a[4], b[4], rest;
    int perm[4];
    double determinant;
};

// A column without its multiple of the pivot column; row K becomes q.
template <int K>
ZONM_INLINED inline Column eliminated(const Column &column, const Column &pivots, double q)
{
    const Pair factor = inAllLanes<2>(q);
    Column c;
    unrolled<0, 2>([&](auto h) ZONM_INLINED {
        c.rows[h] = rounded<float, 2>(column.rows[h] - factor * pivots.rows[h]);
    });
    c.rows[K / 2][K % 2] = q;
    return c;
}

template <int K> ZONM_INLINED inline bool eliminationStep(Elimination &e)
{
    constexpr double limit = 1.430511474609375e-06;

    int winner = K;
    double largest = std::fabs(e.a[K][K]);
    unrolled<K + 1, 4>([&](auto j) ZONM_INLINED {
        const double candidate = std::fabs(e.a[j][K]);
        if (candidate > largest) {
            largest = candidate;
            winner = j;
        }
    });
    if (largest < limit)
        return false;
    // A branch: like matrices have like pivots, and nothing then waits for the search.
    unrolled<K + 1, 4>([&](auto j) ZONM_INLINED {
        if (winner == j) {
            std::swap(e.a[K], e.a[j]);
            std::swap(e.perm[K], e.perm[j]);
        }
    });

    const Column pivots = e.a[K];
    const double p = pivots[K];
    e.determinant = e.determinant * p;

    // The columns that are looked at again: three of a and b, column K of b, and the rest.
    const auto column = [&](int i) ZONM_INLINED -> Column & { return i < K ? e.b[i] : e.a[i + 1]; };
    const auto divided = [p](double x, double y) ZONM_INLINED {
        return rounded<float, 2>(Pair{x, y} / inAllLanes<2>(p));
    };
    const Pair q = divided(column(0)[K], column(1)[K]);
    const Pair q2 = divided(column(2)[K], 1 + e.rest[K]);
    const double qRest = e.rest[K] / p;
    column(0) = eliminated<K>(column(0), pivots, q[0]);
    column(1) = eliminated<K>(column(1), pivots, q[1]);
    column(2) = eliminated<K>(column(2), pivots, q2[0]);
    e.b[K] = eliminated<K>(e.rest, pivots, q2[1]);
    e.rest = eliminated<K>(e.rest, pivots, qRest);
    return true;
}

} // namespace

bool invert(const Matrix4 &source, Matrix4 &inverse, double *det)
{
    Elimination e = {{}, {}, {}, {0, 1, 2, 3}, 1};
    unrolled<0, 4>([&](auto c) ZONM_INLINED {
        e.a[c] = {Pair{source(0, c), source(1, c)}, Pair{source(2, c), source(3, c)}};
    });
    if (!eliminationStep<0>(e) || !eliminationStep<1>(e) || !eliminationStep<2>(e) ||
        !eliminationStep<3>(e))
        return false;
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        inverse.row[e.perm[r]] = {Pair{e.b[0][r], e.b[1][r]}, Pair{e.b[2][r], e.b[3][r]}};
    });
    if (det) {
        bool odd = false;
        for (int i = 0; i < 4; ++i)
            for (int j = i + 1; j < 4; ++j)
                if (e.perm[j] == i) {
                    std::swap(e.perm[j], e.perm[i]);
                    odd = !odd;
                }
        *det = odd ? -e.determinant : e.determinant;
    }
    return true;
}

namespace
{

ZonStatus invertMatrix4(const float *src, float *det, float *dst)
{
    Matrix4 inverse;
    double d = 0;
    const bool regular = invert(loadMatrix(src), inverse, det ? &d : nullptr);
    if (regular)
        storeMatrix(dst, inverse);
    if (det)
        setElement(det, 0, d);
    return regular ? zonStsOk : zonStsSingular;
}

// Identity, transposition ----------------------------------------------------------------------

ZonStatus identity(float *dst)
{
    for (int e = 0; e < 16; ++e)
        setElement(dst, e, e % 5 == 0);
    return zonStsOk;
}

ZonStatus isIdentity(const float *src, int32_t *dst)
{
    bool same = true;
    for (int e = 0; e < 16; ++e)
        same &= element(src, e) == (e % 5 == 0);
    store<int32_t>(bytes(dst), same);
    return zonStsOk;
}

// Bits are copied, also those of a NaN.
ZonStatus transposeMatrix4(const float *src, float *dst)
{
    const auto at = [](int e) { return e * ptrdiff_t(sizeof(float)); };
    unrolled<0, 16>([&](auto e) ZONM_INLINED {
        store(bytes(dst) + at(e), load<std::uint32_t>(bytes(src) + at(e % 4 * 4 + e / 4)));
    });
    return zonStsOk;
}

// Products -------------------------------------------------------------------------------------

// One element, its sources read anew.
ZONM_INLINED inline double elementOfProduct(const float *a, const float *b, int r, int c)
{
    const auto term = [=](int k)
                          ZONM_INLINED { return element(a, 4 * r + k) * element(b, 4 * k + c); };
    return ((term(0) + term(1)) + term(2)) + term(3);
}

[[gnu::noinline]] void multiplyInOrder(const float *a, const float *b, float *dst, int rowStep,
                                       int columnStep)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            setElement(dst, r * rowStep + c * columnStep, elementOfProduct(a, b, r, c));
}

ZONM_INLINED inline bool apart(const float *dst, const float *a, const float *b)
{
    return !overlap<16>(dst, a) && !overlap<16>(dst, b);
}

ZonStatus multiplyMatrices4(const float *src1, const float *src2, float *dst)
{
    if (!apart(dst, src1, src2)) {
        multiplyInOrder(src1, src2, dst, 4, 1);
        return zonStsOk;
    }
    const Matrix4 b = loadMatrix(src2);
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        storeNumbers(dst + 4 * r, rowOfProduct(loadNumbers<4>(src1 + 4 * r), b));
    });
    return zonStsOk;
}

ZonStatus multiplyTransposed(const float *src1, const float *src2, float *dst)
{
    if (!apart(dst, src1, src2)) {
        multiplyInOrder(src1, src2, dst, 1, 4);
        return zonStsOk;
    }
    const Matrix4 b = loadMatrix(src2);
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        const auto row = rowOfProduct(loadNumbers<4>(src1 + 4 * r), b);
        unrolled<0, 4>([&](auto c) ZONM_INLINED { setElement(dst, 4 * c + r, row[c]); });
    });
    return zonStsOk;
}

// Determinant ----------------------------------------------------------------------------------

// The expansion along row 0, with the minors of rows 2 and 3, two at a time:
//     s0 of columns 2 3    s1 of 1 3    s2 of 1 2    s3 of 0 1    u of 0 3    w of 0 2
// The first four are rounded, u and w are not.
ZonStatus determinant(const float *src, float *dst)
{
    const auto [row0, row1, row2, row3] = loadMatrix(src).row;
    const auto both = [](double x) ZONM_INLINED { return inAllLanes<2>(x); };

    const Pair ws2 = row2.pair[0] * both(row3[2]) - row3.pair[0] * both(row2[2]);
    const Pair us1 = row2.pair[0] * both(row3[3]) - row3.pair[0] * both(row2[3]);
    const Pair s0s3 = rounded<float, 2>(Pair{row2[2], row3[1]} * Pair{row3[3], row2[0]} -
                                        Pair{row2[3], row2[1]} * Pair{row3[2], row3[0]});
    const double u = us1[0], w = ws2[0];
    const double s1 = rounded<float, 2>(us1)[1], s2 = rounded<float, 2>(ws2)[1];

    const Pair of0and1 = (Pair{row1[1], row1[0]} * both(s0s3[0]) - both(row1[2]) * Pair{s1, u}) +
                         both(row1[3]) * Pair{s2, w};
    const Pair of2and3 = (both(row1[0]) * Pair{s1, s2} - both(row1[1]) * Pair{u, w}) +
                         Pair{row1[3], row1[2]} * both(s0s3[1]);
    const Pair terms = of0and1 * row0.pair[0], terms2 = of2and3 * row0.pair[1];
    setElement(dst, 0, ((terms[0] - terms[1]) + terms2[0]) - terms2[1]);
    return zonStsOk;
}

// Scaling, translation, rotation ---------------------------------------------------------------

// All sixteen elements are rounded and stored in order.
ZonStatus fill(float *dst, const double (&m)[4][4])
{
    unrolled<0, 16>([&](auto e) ZONM_INLINED { setElement(dst, e, m[e / 4][e % 4]); });
    return zonStsOk;
}

ZonStatus scaling(float sx, float sy, float sz, float *dst)
{
    return fill(dst, {{sx}, {0, sy}, {0, 0, sz}, {0, 0, 0, 1}});
}

ZonStatus translation(float tx, float ty, float tz, float *dst)
{
    return fill(dst, {{1}, {0, 1}, {0, 0, 1}, {tx, ty, tz, 1}});
}

// What the platform's functions give for an angle.
struct Turn {
    double s, c;

    explicit Turn(double angle) : s(std::sin(angle)), c(std::cos(angle)) {}
};

ZonStatus rotationX(float angle, float *dst)
{
    const auto [s, c] = Turn(angle);
    return fill(dst, {{1}, {0, c, s}, {0, -s, c}, {0, 0, 0, 1}});
}

ZonStatus rotationY(float angle, float *dst)
{
    const auto [s, c] = Turn(angle);
    return fill(dst, {{c, 0, -s}, {0, 1}, {s, 0, c}, {0, 0, 0, 1}});
}

ZonStatus rotationZ(float angle, float *dst)
{
    const auto [s, c] = Turn(angle);
    return fill(dst, {{c, s}, {-s, c}, {0, 0, 1}, {0, 0, 0, 1}});
}

ZonStatus rotationAxis(const float *axis, float angle, float *dst)
{
    const auto n = normalized(loadNumbers<3>(axis));
    const double x = n[0], y = n[1], z = n[2];
    const auto [s, c] = Turn(angle);
    const double t = 1 - c;
    return fill(dst, {{c + (t * x) * x, (t * y) * x + z * s, (t * z) * x - s * y},
                      {(t * x) * y - z * s, (t * y) * y + c, y * (t * z) + s * x},
                      {s * y + (t * x) * z, (t * y) * z - s * x, z * (t * z) + c},
                      {0, 0, 0, 1}});
}

ZonStatus rotationYawPitchRoll(float yaw, float pitch, float roll, float *dst)
{
    const auto [sy, cy] = Turn(yaw);
    const auto [sp, cp] = Turn(pitch);
    const auto [sr, cr] = Turn(roll);
    return fill(dst, {{sr * (sy * sp) + cy * cr, sr * cp, sr * (sp * cy) - sy * cr},
                      {(sy * sp) * cr - cy * sr, cp * cr, sy * sr + cr * (sp * cy)},
                      {sy * cp, -sp, cy * cp},
                      {0, 0, 0, 1}});
}

} // namespace
} // namespace zonm

#include "graphics/generated/fixed_matrices.inc"
