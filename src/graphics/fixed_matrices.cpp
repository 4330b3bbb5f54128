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

// What has become of source and identity, in one matrix: as step K ends, column K of the source is
// done with, and that of the identity takes its place. Of the columns that the identity still has,
// row r is `rest[r]` but for its one: a zero signed by the steps, or the NaN that infinite numbers
// make of it.
struct Elimination {
    alignas(16) float row[4][4];
    double rest[4];
    float pivots[4];
    int perm[4];
};

template <int K, int J> ZONM_INLINED inline void swapColumns(Elimination &e)
{
    const auto from = [](int c) { return c == K ? J : c == J ? K : c; };
    for (auto &row : e.row)
        storeRow(row, shuffled<from(0), from(1), from(2), from(3)>(loadRow(row)));
    std::swap(e.perm[K], e.perm[J]);
}

// Whether an element behind that of column K has the larger magnitude.
template <int K> ZONM_INLINED inline bool isBeaten(const Row &row)
{
#if defined(ZONM_SSE2)
    const __m128 magnitudes = _mm_andnot_ps(_mm_set1_ps(-0.f), __m128(row));
    const __m128 first = _mm_shuffle_ps(magnitudes, magnitudes, K * 0b01010101);
    return _mm_movemask_ps(_mm_cmplt_ps(first, magnitudes)) >> (K + 1) != 0;
#else
    bool beaten = false;
    unrolled<K + 1, 4>([&](auto j)
                           ZONM_INLINED { beaten |= std::fabs(row[j.value]) > std::fabs(row[K]); });
    return beaten;
#endif
}

template <int K> ZONM_INLINED inline bool eliminationStep(Elimination &e)
{
    constexpr float limit = 1.430511474609375e-06f;

    // A branch: like matrices have like pivots, and nothing then waits for the search.
    Row pivotRow = loadRow(e.row[K]);
    if (isBeaten<K>(pivotRow)) {
        int winner = K;
        float largest = std::fabs(e.row[K][K]);
        for (int j = K + 1; j < 4; ++j) {
            const float candidate = std::fabs(e.row[K][j]);
            if (candidate > largest) {
                largest = candidate;
                winner = j;
            }
        }
        unrolled<K + 1, 4>([&](auto j) ZONM_INLINED {
            if (winner == j)
                swapColumns<K, j>(e);
        });
        pivotRow = loadRow(e.row[K]);
    }

    const float p = pivotRow[K];
    if (std::fabs(p) < limit)
        return false;
    e.pivots[K] = p;
    pivotRow[K] = float(1 + e.rest[K]);
    const Row quotients = pivotRow / Row{p, p, p, p}; // a single operation on stored values
    storeRow(e.row[K], quotients);

    const auto q = widened(quotients);
    const double qRest = q[K] * 0; // rest[K] / p, since rest[K] is a zero without a sign or a NaN
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        if constexpr (r != K) {
            auto row = loadNumbers<4>(e.row[r]);
            const double f = row[K];
            row.pair[K / 2][K % 2] = e.rest[r];
            storeRow(e.row[r], narrowed(row - q * f));
            e.rest[r] = e.rest[r] - qRest * f;
        }
    });
    e.rest[K] = qRest;
    return true;
}

} // namespace

bool invert(const float *source, float *inverse, double *det)
{
    Elimination e;
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        storeRow(e.row[r], loadRow(source + 4 * r));
        e.rest[r] = 0;
        e.perm[r] = r;
    });
    if (!eliminationStep<0>(e) || !eliminationStep<1>(e) || !eliminationStep<2>(e) ||
        !eliminationStep<3>(e))
        return false;
    unrolled<0, 4>([&](auto r)
                       ZONM_INLINED { storeRow(inverse + 4 * e.perm[r], loadRow(e.row[r])); });
    if (det) {
        bool odd = false;
        for (int i = 0; i < 4; ++i)
            for (int j = i + 1; j < 4; ++j)
                if (e.perm[j] == i) {
                    std::swap(e.perm[j], e.perm[i]);
                    odd = !odd;
                }
        const auto &p = e.pivots;
        const double product = ((double(p[0]) * p[1]) * p[2]) * p[3];
        *det = odd ? -product : product;
    }
    return true;
}

namespace
{

ZonStatus invertMatrix4(const float *src, float *det, float *dst)
{
    double d = 0;
    const bool regular = invert(src, dst, det ? &d : nullptr);
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

template <bool transposed>
ZONM_INLINED inline ZonStatus multiply(const float *src1, const float *src2, float *dst)
{
    if (overlap<16>(dst, src1) || overlap<16>(dst, src2)) {
        multiplyInOrder(src1, src2, dst, transposed ? 1 : 4, transposed ? 4 : 1);
        return zonStsOk;
    }
    const Matrix4 b = loadMatrix(src2);
    unrolled<0, 4>([&](auto r) ZONM_INLINED {
        const auto row = rowOfProduct(loadNumbers<4>(src1 + 4 * r), b);
        if constexpr (transposed)
            unrolled<0, 4>([&](auto c) ZONM_INLINED { setElement(dst, 4 * c + r, row[c]); });
        else
            storeNumbers(dst + 4 * r, row);
    });
    return zonStsOk;
}

ZonStatus multiplyMatrices4(const float *src1, const float *src2, float *dst)
{
    return multiply<false>(src1, src2, dst);
}

ZonStatus multiplyTransposed(const float *src1, const float *src2, float *dst)
{
    return multiply<true>(src1, src2, dst);
}

// Determinant ----------------------------------------------------------------------------------

// The expansion along row 0, with the minors of rows 2 and 3
//     s0 of columns 2 3    s1 of 1 3    s2 of 1 2    s3 of 0 1    u of 0 3    w of 0 2
// of which the first four are rounded, u and w are not. Two stand in a pair, in the order in which
// most factors are neighbours in memory, where a pair of them is read at the cost of one.
ZonStatus determinant(const float *src, float *dst)
{
    const auto from = [=](int i) ZONM_INLINED { // elements i and i + 1
        return loadDoubles<float, 2>(bytes(src) + i * ptrdiff_t(sizeof(float)));
    };
    const auto both = [](double x) ZONM_INLINED { return inAllLanes<2>(x); };

    const Pair m8 = from(8), m9 = from(9), m10 = from(10);
    const Pair m12 = from(12), m13 = from(13), m14 = from(14);
    const Pair s1s0 = rounded<float, 2>(both(m14[1]) * m9 - both(m10[1]) * m13);
    const Pair s3s2 = rounded<float, 2>(m13 * m8 - m9 * m12);
    const Pair wu = m14 * both(m8[0]) - m10 * both(m12[0]);

    const Pair m4 = from(4), m5 = from(5), m6 = from(6);
    const Pair of2and0 = (m4 * s1s0 - m5 * Pair{wu[1], s1s0[0]}) + both(m6[1]) * s3s2;
    const Pair of3and1 =
        (both(m4[0]) * Pair{s3s2[1], s1s0[1]} - m5 * wu) + m6 * Pair{s3s2[0], wu[0]};

    const Pair m0 = from(0), m2 = from(2);
    const Pair even = of2and0 * Pair{m2[0], m0[0]}, odd = of3and1 * Pair{m2[1], m0[1]};
    setElement(dst, 0, ((even - odd)[1] + even[0]) - odd[0]);
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
