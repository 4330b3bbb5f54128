// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <iostream>
#include <zonm.h>

static_assert(noexcept(zonmGetLibVersion()) &&noexcept(zonmStatusText(zonStsOk)));
static_assert(noexcept(zonmDet_m4_32f(nullptr, nullptr)));

int main()
{
    std::array<float, 4> a = {1, 2, 3, 4}, difference = {};
    std::array<const float *, 1> sources = {a.data()};
    std::array<float *, 1> destinations = {difference.data()};
    const int32_t row = 2 * sizeof(float), element = sizeof(float);
    const ZonStatus status =
        zonmSub_mama_32f_L(sources.data(), 0, row, element, sources.data(), 0, row, element,
                           destinations.data(), 0, row, element, 2, 2, 1);
    std::cout << "status " << status << ", last element " << difference[3] << '\n';
    return !(status == zonStsOk && difference == std::array<float, 4>{});
}
