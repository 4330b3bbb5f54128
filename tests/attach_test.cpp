// SPDX-License-Identifier: Apache-2.0
// Loading the library, with and without the core library in the process. This program is not linked
// with it.
#include <gtest/gtest.h>

#include "support/posix.hpp"
#include "zonm.h"

namespace
{

using Query = decltype(&zonmGetLibVersion);

Query versionQuery(void *library)
{
    return reinterpret_cast<Query>(dlsym(library, "zonmGetLibVersion"));
}

TEST(Attach, LoadsWithoutTheCoreLibrary)
{
    ASSERT_EQ(dlsym(RTLD_DEFAULT, "zonGetEnabledCpuFeatures"), nullptr);
    void *library = dlopen(ZONM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(versionQuery(library)()->major, 8);
    dlclose(library);
    EXPECT_EQ(dlopen(ZONM_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
}

TEST(Attach, AsksTheCoreLibraryOnce)
{
    void *core = dlopen(ZONM_STAND_IN_CORE, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(core, nullptr) << dlerror();
    const int *calls = static_cast<const int *>(dlsym(core, "standInCoreCalls"));
    ASSERT_EQ(*calls, 0);

    void *library = dlopen(ZONM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(*calls, 1);

    const auto add = reinterpret_cast<decltype(&zonmAdd_mm_32f)>(dlsym(library, "zonmAdd_mm_32f"));
    const float a = 1, b = 2;
    float sum = 0;
    EXPECT_EQ(add(&a, 4, 4, &b, 4, 4, &sum, 4, 4, 1, 1), zonStsOk);
    EXPECT_EQ(sum, 3);
    EXPECT_EQ(versionQuery(library)(), versionQuery(library)());
    EXPECT_EQ(dlopen(ZONM_LIBRARY, RTLD_NOW | RTLD_LOCAL), library);
    EXPECT_EQ(*calls, 1);
}

} // namespace
