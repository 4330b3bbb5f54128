// SPDX-License-Identifier: Apache-2.0
// Eigenvectors of general matrices: bits, statuses and what they leave, and the equations that the
// vectors are to satisfy.
#include "eigen_general_call.hpp"

using namespace test;
using namespace test::eigen;
using eigen_general::Kind;

namespace
{

TEST(EigenVectors, IsTheReference) { checkEveryClass("eigen_vectors"); }

TEST(EigenVectors, TakesNotANumberAndInfinitiesAtEachPlace) { checkSpecialValues("eigen_vectors"); }

TEST(EigenVectors, EndsAtTheFirstObjectThatFails) { checkFailingObjects("eigen_vectors"); }

TEST(EigenVectors, KnowsNoContentsOfTheBuffer) { checkBufferContents("eigen_vectors"); }

TEST(EigenVectors, IsTheReferenceOnTheGalleryInEachCase)
{
    const std::set<std::string> seen = checkGallery("eigen_vectors");
    for (const char *type : {"32f ", "64f "})
        for (const char *event :
             {"case 2", "case 3", "case 30", "case 4", "case 5", "case 50", "case 51",
              "no convergence", "exceptional shift", "vanished", "scaled", "no rotation"})
            EXPECT_TRUE(seen.count(std::string(type) + event)) << type << event;
}

using Pairs = std::vector<std::complex<double>>;

struct Solved {
    GeneralProblem problem;
    ZonStatus status;

    Solved(const char *name, const Matrix &a, int n)
        : problem(exportNamed(name), 3, n, 1,
                  [&](int, int i, int j) { return a[std::size_t(i * n + j)]; }),
          status(problem.check())
    {
    }
    void expectColumn(const Operand &o, int c, std::vector<double> wanted) const
    {
        for (int i = 0; i < problem.n; ++i)
            EXPECT_NEAR(o(0, i, c), wanted[std::size_t(i)], 1e-15) << problem.call << ' ' << c;
    }
};

TEST(EigenVectors, OfTheExamples)
{
    const double half = std::sqrt(0.5);
    for (const Export *e : exportsOf("eigen_vectors")) {
        GeneralProblem one(*e, 1, 1, 3, [](int k, int, int) { return 5. - k; });
        EXPECT_EQ(one.check(), zonStsOk);
        EXPECT_EQ((*one.re)(0, 0), 5);
        EXPECT_EQ((*(one.right ? one.right : one.left))(0, 0, 0), 1);
    }
    {
        const Solved s("zonmEigenValuesVectorsRight_m_64f", {2, 1, 0, 3}, 2);
        EXPECT_EQ((*s.problem.re)(0, 0), 3);
        EXPECT_EQ((*s.problem.re)(0, 1), 2);
        s.expectColumn(*s.problem.right, 0, {0, 1});
        s.expectColumn(*s.problem.right, 1, {-half, half});
    }
    {
        const Solved s("zonmEigenValuesVectorsLeft_m_64f", {2, 1, 0, 3}, 2);
        s.expectColumn(*s.problem.left, 0, {half, half});
        s.expectColumn(*s.problem.left, 1, {-1, 0});
    }
    {
        const Solved s("zonmEigenValuesVectorsRight_m_64f", {0, -1, 1, 0}, 2);
        EXPECT_EQ((*s.problem.im)(0, 0), 1);
        s.expectColumn(*s.problem.right, 0, {half, 0});
        s.expectColumn(*s.problem.right, 1, {0, half});
    }
    {
        const Solved right("zonmEigenValuesVectorsRight_m_64f", {1, 2, 2, 1}, 2);
        EXPECT_EQ(right.status, zonStsNoConvergence);
        EXPECT_NEAR((*right.problem.im)(0, 0), 2, 1e-15);
        EXPECT_TRUE(right.problem.right->isUntouched(0, 0, 0));
        const Solved left("zonmEigenValuesVectorsLeft_m_64f", {1, 2, 2, 1}, 2);
        EXPECT_EQ(left.status, zonStsOk);
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 2; ++j)
                EXPECT_TRUE(std::isnan((*left.problem.left)(0, i, j)));
    }
}

// A quasi-triangular matrix that no sweep touches, with the vectors to sixteen digits.
TEST(EigenVectors, OfAKnownMatrix)
{
    const Matrix a = {1, -0.5, 0, 0, 2, 1, 0, 0, 0.25, 0.5, 3, 0, 1, -1, 0.5, -2};
    const std::vector<double> right[] = {
        {0.8944271909999159, 0, 0, 0},
        {0, 0.447213595499958, 0, 0},
        {0.2833942937165438, 0.1653133380013172, 0.9446476457218128, 0},
        {-0.4351676512710715, 0.2305739047779558, -0.0866005276161336, 0.8660052761613364}};
    const std::vector<double> left[] = {
        {0, 0.8334916177129972, -0.1458610330997745, -0.2365032465260629},
        {-0.4167458088564987, 0, 0.1250237426569497, -0.1969123946846957},
        {0, 0, 0.9950371902099893, 0.0995037190209989},
        {0, 0, 0, 1}};
    for (const char *name : {"zonmEigenValuesVectorsRight_m_64f",
                             "zonmEigenValuesVectorsLeft_m_64f", "zonmEigenValuesVectors_m_64f"}) {
        const Solved s(name, a, 4);
        ASSERT_EQ(s.status, zonStsOk);
        const Pairs values = {{1, 1}, {1, -1}, 3, -2};
        for (int c = 0; c < 4; ++c) {
            EXPECT_EQ((*s.problem.re)(0, c), values[std::size_t(c)].real());
            EXPECT_NEAR((*s.problem.im)(0, c), values[std::size_t(c)].imag(), 3e-16);
            if (s.problem.right)
                s.expectColumn(*s.problem.right, c, right[c]);
            if (s.problem.left)
                s.expectColumn(*s.problem.left, c, left[c]);
        }
    }
}

// M x = lambda x and conjugate(y) M = lambda conjugate(y), M the transpose of src; unit length.
TEST(EigenVectors, SatisfyTheirEquations)
{
    int checked = 0;
    for (const Export *e : exportsOf("eigen_vectors"))
        for (int n = 1; n <= 12; ++n)
            for (int round = 0; round < 12; ++round) {
                GeneralProblem p(*e, std::uint64_t(n * 50 + round), n, 3, Values::uniform);
                if (p.check() != zonStsOk || p.hasEqualDiagonal())
                    continue;
                const double eps = e->element == "32f" ? 0x1p-23 : 0x1p-52;
                const double bound = 100 * n * eps;
                for (int k = 0; k < p.call.count(); ++k)
                    for (int c = 0; c < n; ++c) {
                        const std::complex<double> value((*p.re)(0, k * n + c),
                                                         (*p.im)(0, k * n + c));
                        if (c > 0 && (*p.im)(0, k * n + c) < 0) {
                            EXPECT_EQ((*p.im)(0, k * n + c), -(*p.im)(0, k * n + c - 1));
                            EXPECT_EQ((*p.re)(0, k * n + c), (*p.re)(0, k * n + c - 1));
                            continue;
                        }
                        for (const Operand *vectors : {p.right, p.left}) {
                            if (!vectors)
                                continue;
                            const bool isPair = value.imag() != 0;
                            const auto component = [&](int i) {
                                return std::complex<double>((*vectors)(k, i, c),
                                                            isPair ? (*vectors)(k, i, c + 1) : 0);
                            };
                            double length = 0;
                            for (int i = 0; i < n; ++i) {
                                length += std::norm(component(i));
                                std::complex<double> residual = 0;
                                for (int j = 0; j < n; ++j)
                                    residual += vectors == p.right
                                                    ? (*p.src)(k, j, i) * component(j)
                                                    : (*p.src)(k, i, j) * std::conj(component(j));
                                residual -= value * (vectors == p.right ? component(i)
                                                                        : std::conj(component(i)));
                                EXPECT_LE(std::abs(residual), bound)
                                    << p.call << " object " << k << " value " << value;
                            }
                            EXPECT_NEAR(length, 1, bound) << p.call;
                            ++checked;
                        }
                    }
            }
    EXPECT_GT(checked, 10000);
}

// The three kernels agree up to rounding and sign on well-conditioned matrices.
TEST(EigenVectors, OfBothSidesAreThoseOfEach)
{
    for (const char *type : {"32f", "64f"})
        for (int n = 2; n <= 8; ++n)
            for (int round = 0; round < 10; ++round) {
                Random random(std::uint64_t(n * 31 + round));
                Matrix a(std::size_t(n * n));
                for (int i = 0; i < n; ++i)
                    for (int j = 0; j < n; ++j)
                        a[std::size_t(i * n + j)] = (i == j ? i : 0) + 0.25 * (random.unit() - 0.5);
                const std::string t = type;
                const Solved both(("zonmEigenValuesVectors_m_" + t).c_str(), a, n);
                const Solved right(("zonmEigenValuesVectorsRight_m_" + t).c_str(), a, n);
                const Solved left(("zonmEigenValuesVectorsLeft_m_" + t).c_str(), a, n);
                const double bound = (t == "32f" ? 0x1p-23 : 0x1p-52) * 2000;
                // Their orders may differ.
                const auto compare = [&](const GeneralProblem &one, const Operand &vectors,
                                         const Operand &ofBoth) {
                    for (int c = 0; c < n; ++c) {
                        const double value = (*both.problem.re)(0, c);
                        int same = 0;
                        for (int i = 1; i < n; ++i)
                            if (std::fabs((*one.re)(0, i) - value) <
                                std::fabs((*one.re)(0, same) - value))
                                same = i;
                        EXPECT_NEAR((*one.re)(0, same), value, bound);
                        double along = 0;
                        for (int i = 0; i < n; ++i)
                            along += ofBoth(0, i, c) * vectors(0, i, same);
                        EXPECT_NEAR(std::fabs(along), 1, bound) << one.call;
                    }
                };
                compare(right.problem, *right.problem.right, *both.problem.right);
                compare(left.problem, *left.problem.left, *both.problem.left);
            }
}

// The rotation that a block without one leaves and uses is that of the last block of the call, in
// the object before.
TEST(EigenVectors, CarryTheRotationFromObjectToObject)
{
    const Matrix pair = {0.5, -2, 0.25, 1}, blank = {1, 2, 2, 1};
    for (const Export *e : exportsOf("eigen_vectors")) {
        if (!isArray(*e))
            continue;
        for (const bool pairFirst : {true, false}) {
            GeneralProblem p(*e, 9, 2, 2, [&](int k, int i, int j) {
                return ((k == 0) == pairFirst ? pair : blank)[std::size_t(i * 2 + j)];
            });
            const ZonStatus status = p.check();
            if (p.kind == Kind::right) {
                EXPECT_EQ(status, pairFirst ? zonStsOk : zonStsNoConvergence);
            }
        }
    }
}

// What the object before has left, the rotation and the start of its last sweep, whatever objects
// of an array are taken together: some set it, some use it, some leave it alone.
TEST(EigenVectors, CarryWhatIsLeftThroughAnArray)
{
    const auto pair = [](int i, int j) {
        return i == j ? 1. + i : i < 2 || j < 2 ? 0 : i < j ? -2 : 0.25;
    };
    const auto blank = [](int i, int j) { // its block leaves the rotation
        return i < 2 || j < 2 ? (i == j ? 5. + i : 0) : i == j ? 1 : 2;
    };
    const auto diagonal = [](int i, int j) { return i == j ? 1. + i : 0; };
    const auto swept = [](int i, int j) { return std::sin(1. + 7 * i + 3 * j + i * j); };
    // Their sweeps have no start of their own: those of the last never have, and do not converge.
    const auto stale = [](int i, int j) {
        if (i > j + 1 || j > i + 1)
            return i > j ? 0.5 : 0; // src is the transpose of a Hessenberg matrix
        return i == 1 && j == 2               ? 0x1p-126
               : i == j && (i == 1 || i == 2) ? 0x1p-130
                                              : 1 + 0.25 * i - 0.125 * j;
    };
    const auto tiny = [=](int i, int j) { return std::ldexp(swept(j, i), -130); };
    const std::function<double(int, int)> kinds[] = {pair, blank, diagonal, swept, stale, tiny};
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_vectors"))
        for (int round = 0; isArray(*e) && round < 300; ++round) {
            Random random(++seed);
            random.bits();
            int chosen[5];
            for (int &kind : chosen)
                kind = random.below(6);
            if (round % 4 == 0) { // which converge
                chosen[0] = chosen[2] = 3;
                chosen[1] = chosen[3] = chosen[4] = 4;
            }
            GeneralProblem p(*e, seed, 4, random.between(2, 5),
                             [&](int k, int i, int j) { return kinds[chosen[k]](i, j); });
            const ZonStatus status = p.check();
            if (round % 4 == 0) {
                EXPECT_EQ(status, zonStsOk) << p.call;
            }
        }
}

// The results of one object may lie where the source of the next one is: the next one reads them.
TEST(EigenVectors, OfOverlappingObjectsGoesOneByOne)
{
    for (const int n : {3, 4, 5, 8, 9})
        for (const int what : {0, 1, 2}) { // vectors, real parts, imaginary parts
            const int count = 6, object = n * n, run = n * count, row = n * 8;
            std::vector<double> one(std::size_t((count + 1) * object + run)),
                buffer(std::size_t(n * (3 * n + 5))), apart(std::size_t(2 * run + count * object));
            for (std::size_t i = 0; i < one.size(); ++i)
                one[i] = std::sin(1. + 1.7 * double(i));
            std::vector<double> many = one, otherwise = apart;
            const auto call = [&](std::vector<double> &m, std::vector<double> &other, int k,
                                  int objects) {
                // Where the results begin that lie on the sources; those of object k on the next.
                double *const vectors = what == 0 ? m.data() + object : other.data() + 2 * run;
                double *const re = what == 1 ? m.data() + object : other.data();
                double *const im = what == 2 ? m.data() + object : other.data() + run;
                const int step = what == 0 ? object : n;
                return zonmEigenValuesVectorsLeft_ma_64f(
                    m.data() + k * step, step * 8, row, 8, vectors + k * object, object * 8, row, 8,
                    re + k * n, im + k * n, n, objects, buffer.data());
            };
            ZonStatus status = zonStsOk;
            for (int k = 0; k < count && status == zonStsOk; ++k)
                status = call(one, apart, k, 1);
            EXPECT_EQ(call(many, otherwise, 0, count), status);
            EXPECT_EQ(many, one) << n << ' ' << what;
            EXPECT_EQ(otherwise, apart) << n << ' ' << what;
        }
}

// Blocks of tiny elements beside large ones: the solutions would overflow and are scaled, at a real
// value between two blocks as at a pair, from above as from below.
TEST(EigenVectors, OfTinyBlocksAreScaled)
{
    for (const Export *e : exportsOf("eigen_vectors"))
        for (const int order : {0, 1}) {
            const bool isSingle = elementOf(*e) == Element::f32;
            const double tiny = std::ldexp(1, isSingle ? -90 : -950),
                         large = std::ldexp(1, isSingle ? 60 : 120);
            // Upper quasi-triangular, a real value between pairs or at the ends of two.
            const auto isBlock = [=](int r, int c) {
                return order == 0 ? r != c && r / 3 == c / 3 && r % 3 < 2 && c % 3 < 2
                                  : r != c && (r - 1) / 2 == (c - 1) / 2 && r > 0 && c > 0 && r < 5;
            };
            const int n = order == 0 ? 5 : 6;
            GeneralProblem p(*e, 5, n, 2, [&](int k, int i, int j) {
                const int r = j, c = i; // of the transpose
                if (r == c)
                    return tiny * (1 + k + (order == 0 ? r / 3 + 3 * (r == 2) : (r + 1) / 2));
                if (isBlock(r, c))
                    return r < c ? -2 * tiny : tiny;
                return r < c ? large * (1 + 0.125 * (r + c)) : 0;
            });
            p.check();
            EXPECT_TRUE(p.results[0].scaled) << p.call;
        }
}

TEST(EigenVectors, InPlaceAreTheSame)
{
    std::uint64_t seed = 1;
    for (const Export *e : exportsOf("eigen_vectors"))
        for (const int n : generalSizes)
            for (const int count : {1, 2, 5})
                if (n > 1)
                    GeneralProblem(*e, seed++, n, count, Values::uniform, Spread::any, true)
                        .check();
}

// A complex system of order 2 with all elements below its limit ends the call. Two pairs whose
// magnitudes add up to infinity make that limit infinite. (No matrix is known that has the real
// exit: what deflation leaves of a block is above the limit.)
TEST(EigenVectors, ALostBlockEndsTheCall)
{
    for (const Export *e : exportsOf("eigen_vectors"))
        for (int object = 0; object < 3; ++object) {
            if (elementOf(*e) == Element::f32 || (object > 0 && !isArray(*e)))
                continue;
            GeneralProblem p(*e, std::uint64_t(object + 1), 4, 3, [&](int k, int i, int j) {
                if (k != object)
                    return i == j ? 1. + i : 0.;
                return i == j ? 0.2e308 : i / 2 != j / 2 ? 0 : i < j ? -1.7e308 : 1.7e308;
            });
            EXPECT_EQ(p.check(), zonStsBlockSingular) << p.call;
            EXPECT_TRUE(p.results.back().lostBlock);
            const Operand &vectors = p.right ? *p.right : *p.left;
            EXPECT_TRUE(vectors.isUntouched(object, 0, 0));
            EXPECT_EQ((*p.re)(0, object * 4), 0.2e308);
            if (object < p.call.count() - 1) {
                EXPECT_TRUE(p.re->isUntouched(0, (object + 1) * 4));
            }
        }
}

} // namespace
