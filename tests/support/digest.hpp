// SPDX-License-Identifier: Apache-2.0
// One number per export over all results of a run, to compare builds of the library to the last
// bit. The program <family>_test, run as a whole, fails if an export of the family gets none.
#pragma once

#include <string>

namespace test
{

// The environment variable ZONM_DIGEST names the file to write at exit.
void addToDigest(const std::string &exportName, double value);

// While one is there, results do not count: those of calls that only some platforms can make.
struct NoDigest {
    NoDigest();
    ~NoDigest();
    NoDigest(const NoDigest &) = delete;
    NoDigest &operator=(const NoDigest &) = delete;
};

} // namespace test
