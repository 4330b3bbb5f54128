// SPDX-License-Identifier: Apache-2.0
#include "support/digest.hpp"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <limits>
#include <map>

#include "support/manifest.hpp"
#include "support/posix.hpp"

namespace test
{
namespace
{

struct Digest {
    const char *file = std::getenv("ZONM_DIGEST");
    std::map<std::string, std::uint64_t> sums;
    bool paused = false;

    ~Digest()
    {
        if (!file)
            return;
        std::ofstream out(file, std::ios::app | std::ios::binary);
        for (const auto &[name, sum] : sums)
            out << name << ' ' << std::hex << sum << '\n';
    }
};

Digest &digest()
{
    static Digest instance;
    return instance;
}

struct EveryExportHasADigest : testing::Environment {
    void TearDown() override
    {
        const auto &run = *testing::UnitTest::GetInstance();
        if (run.test_to_run_count() < run.total_test_count())
            return;
        const std::string program = programName();
        for (const Export &e : allExports())
            if (e.family + "_test" == program && !digest().sums.contains(e.name))
                ADD_FAILURE() << "no test has a result of " << e.name;
    }
};

[[maybe_unused]] const auto *const environment =
    testing::AddGlobalTestEnvironment(new EveryExportHasADigest);

} // namespace

NoDigest::NoDigest() { digest().paused = true; }
NoDigest::~NoDigest() { digest().paused = false; }

void addToDigest(const std::string &exportName, double value)
{
    if (digest().paused)
        return;
    // The payload of a NaN is nobody's promise.
    if (std::isnan(value))
        value = std::numeric_limits<double>::quiet_NaN();
    const auto [entry, isNew] = digest().sums.try_emplace(exportName, 0xcbf29ce484222325u);
    for (auto bits = std::bit_cast<std::uint64_t>(value), i = std::uint64_t(0); i < 8; ++i)
        entry->second = (entry->second ^ (bits >> 8 * i & 0xff)) * 0x100000001b3u; // FNV-1a
}

} // namespace test
