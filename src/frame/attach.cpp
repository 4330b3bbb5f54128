// SPDX-License-Identifier: Apache-2.0
// The one thing that happens when the library is loaded: the core library, if it is there, is asked
// once for the enabled processor features. The answer is recorded and nothing reads it: there is
// one code path for every processor.
#include <cstdint>

#if defined(_WIN32)
#include <windows.h>
#elif defined(__GNUC__)
// Weak, so that the library loads without the core library.
extern "C" std::uint32_t zonGetEnabledCpuFeatures(void) __attribute__((weak));
#endif

namespace
{

// The only byte that the library ever writes of its own, and only before any export can be called.
volatile bool coreHasBothFeatures = false;

void record(std::uint32_t mask)
{
    constexpr std::uint32_t both = 32 | 16;
    coreHasBothFeatures = (mask & both) == both;
}

#if defined(_WIN32)

struct Attach {
    Attach()
    {
        const HMODULE core = GetModuleHandleA("zoncore");
        const auto query = core ? reinterpret_cast<std::uint32_t (*)()>(reinterpret_cast<void *>(
                                      GetProcAddress(core, "zonGetEnabledCpuFeatures")))
                                : nullptr;
        if (query)
            record(query());
    }
} const attach;

#elif defined(__GNUC__)

__attribute__((constructor)) void attach()
{
    if (zonGetEnabledCpuFeatures)
        record(zonGetEnabledCpuFeatures());
}

#endif

} // namespace
