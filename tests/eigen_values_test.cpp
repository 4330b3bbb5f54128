// SPDX-License-Identifier: Apache-2.0
// Eigenvalues of general matrices, and the buffer sizes: bits, statuses and what they leave.
#include <limits>

#include "eigen_general_call.hpp"

using namespace test;
using namespace test::eigen;
using eigen_general::Kind;

namespace
{

TEST(EigenValues, IsTheReference) { checkEveryClass("eigen_values"); }

TEST(EigenValues, TakesNotANumberAndInfinitiesAtEachPlace) { checkSpecialValues("eigen_values"); }

TEST(EigenValues, EndsAtTheFirstObjectThatFails) { checkFailingObjects("eigen_values"); }

TEST(EigenValues, KnowsNoContentsOfTheBuffer) { checkBufferContents("eigen_values"); }

// Every case of the standardisation that a split leaves, each for both types.
TEST(EigenValues, IsTheReferenceOnTheGalleryInEachCase)
{
    const std::set<std::string> seen = checkGallery("eigen_values");
    for (const char *type : {"32f ", "64f "})
        for (const char *event : {"case 2", "case 3", "case 30", "case 4", "case 5", "case 50",
                                  "case 51", "exceptional shift"})
            EXPECT_TRUE(seen.count(std::string(type) + event)) << type << event;
}

TEST(EigenValues, OfTheExamples)
{
    using Pairs = std::vector<std::complex<double>>;
    const auto check = [](const Export &e, Matrix a, int n, Pairs wanted) {
        GeneralProblem p(e, 7, n, 2, [&](int, int i, int j) { return a[std::size_t(i * n + j)]; });
        EXPECT_EQ(p.check(), zonStsOk) << p.call;
        for (int i = 0; i < n; ++i) {
            EXPECT_EQ((*p.re)(0, i), wanted[std::size_t(i)].real()) << p.call;
            EXPECT_EQ((*p.im)(0, i), wanted[std::size_t(i)].imag()) << p.call;
        }
    };
    for (const Export *e : exportsOf("eigen_values")) {
        check(*e, {5}, 1, {5});
        check(*e, {0, -1, 1, 0}, 2, {{0, 1}, {0, -1}});
        check(*e, {1, 4, 4, 1}, 2, {{1, 4}, {1, -4}}); // not 5 and -3
        check(*e, {2, 1, 0, 3}, 2, {3, 2});
        check(*e, Matrix(16, 0.), 4, {0, 0, 0, 0});
        check(*e, {3, 0, 0, 0, 2, 0, 0, 0, 1}, 3, {3, 2, 1});
        // The test is absolute: a tiny matrix is its own Schur form.
        if (e->element == "64f")
            check(*e, {1e-20, 0, 0, 3e-20, 2e-20, 0, 0, 1e-20, 3e-20}, 3, {1e-20, 2e-20, 3e-20});
    }
}

// The values of one object may lie where the source of the next one is: the next one reads them.
TEST(EigenValues, OfOverlappingObjectsGoesOneByOne)
{
    for (const int n : {3, 4, 5, 8, 9})
        for (const bool isReal : {true, false}) {
            const int count = 6, run = n * count;
            std::vector<double> one(std::size_t(n * n + 2 * run)), buffer(std::size_t(n * (n + 5))),
                apart(static_cast<std::size_t>(run));
            for (std::size_t i = 0; i < one.size(); ++i)
                one[i] = std::sin(1. + 1.7 * double(i));
            std::vector<double> many = one, otherwise = apart;
            const auto call = [&](std::vector<double> &m, std::vector<double> &other, int k,
                                  int objects) {
                double *const inside = m.data() + n * n + k * n, *const outside =
                                                                     other.data() + k * n;
                return zonmEigenValues_ma_64f(m.data() + k * n, n * 8, n * 8, 8,
                                              isReal ? inside : outside, isReal ? outside : inside,
                                              n, objects, buffer.data());
            };
            ZonStatus status = zonStsOk;
            for (int k = 0; k < count && status == zonStsOk; ++k)
                status = call(one, apart, k, 1);
            EXPECT_EQ(call(many, otherwise, 0, count), status);
            EXPECT_EQ(many, one) << n;
            EXPECT_EQ(otherwise, apart) << n;
        }
}

TEST(EigenBufSize, IsTheProductAndWraps)
{
    for (const Export *e : exportsOf("eigen_buf_size"))
        for (const std::int64_t n : {1, 2, 3, 7, 100, 1000, 20000, 40000, 2147483647}) {
            const bool vectors = e->operation == "zonmEigenValuesVectorsGetBufSize";
            const auto wanted = std::uint64_t(n) * (e->element == "32f" ? 4 : 8) *
                                std::uint64_t((vectors ? 3 * n : n) + 5);
            Call call(*e, 1);
            auto &size = call.plainOutput("bufSize", 1);
            call.set("size", int(n));
            EXPECT_EQ(call.run(), zonStsOk);
            EXPECT_EQ(std::uint32_t(std::int32_t(size(0, 0))), std::uint32_t(wanted)) << call;
        }
    std::int32_t bytes = 0;
    EXPECT_EQ(zonmEigenValuesGetBufSize_32f(1, &bytes), zonStsOk);
    EXPECT_EQ(bytes, 24);
    EXPECT_EQ(zonmEigenValuesVectorsGetBufSize_64f(1, &bytes), zonStsOk);
    EXPECT_EQ(bytes, 64);
}

// Sums of the values, and the characteristic equation by way of the trace of powers.
TEST(EigenValues, KeepTheTraceOfPowers)
{
    for (const Export *e : exportsOf("eigen_values"))
        for (int n = 1; n <= 12; ++n)
            for (int round = 0; round < 10; ++round) {
                const std::uint64_t seed = std::uint64_t(n * 100 + round);
                GeneralProblem p(*e, seed, n, 2, Values::uniform);
                if (p.check() != zonStsOk || p.hasEqualDiagonal())
                    continue;
                const double eps = e->element == "32f" ? 0x1p-23 : 0x1p-52;
                std::vector<long double> power(std::size_t(n * n)), next = power;
                for (int i = 0; i < n; ++i)
                    power[std::size_t(i * n + i)] = 1;
                for (int exponent = 1; exponent <= 3; ++exponent) {
                    for (int i = 0; i < n; ++i)
                        for (int j = 0; j < n; ++j) {
                            auto &x = next[std::size_t(i * n + j)] = 0;
                            for (int k = 0; k < n; ++k)
                                x += power[std::size_t(i * n + k)] * (*p.src)(0, k, j);
                        }
                    power = next;
                    long double trace = 0;
                    std::complex<long double> sum = 0;
                    for (int i = 0; i < n; ++i) {
                        trace += power[std::size_t(i * n + i)];
                        const std::complex<long double> value((*p.re)(0, i), (*p.im)(0, i));
                        sum += std::pow(value, exponent);
                    }
                    const double bound = 64 * eps * std::pow(n, exponent + 1);
                    EXPECT_LE(std::abs(sum - std::complex<long double>(trace)), bound) << p.call;
                }
            }
}

} // namespace
