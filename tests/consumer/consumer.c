/* SPDX-License-Identifier: Apache-2.0 */
#include <stdio.h>
#include <string.h>
#include <zonm.h>

int main(void)
{
    const double a[2][2] = {{1, 2}, {3, 4}}, b[2][2] = {{10, 20}, {30, 40}};
    double sum[2][2] = {{0, 0}, {0, 0}};
    const int32_t row = sizeof a[0], element = sizeof a[0][0];
    const ZonStatus status =
        zonmAdd_mm_64f(a[0], row, element, b[0], row, element, sum[0], row, element, 2, 2);
    printf("%s, last element %g\n", zonmStatusText(status), sum[1][1]);
    return !(status == zonStsOk && sum[0][0] == 11 && sum[1][1] == 44 &&
             zonmAdd_mm_64f(NULL, row, element, b[0], row, element, sum[0], row, element, 2, 2) ==
                 zonStsNullPointer &&
             zonmGetLibVersion()->major == ZONM_VERSION_MAJOR &&
             zonmGetLibVersion()->minor == ZONM_VERSION_MINOR &&
             zonmGetLibVersion()->patch == ZONM_VERSION_PATCH &&
             strcmp(zonmStatusText(zonStsBadCount), "zonStsBadCount: count below 1") == 0 &&
             strcmp(zonmStatusText(1), "no status of zonm") == 0 &&
             strcmp(zonmGetLibVersion()->versionText, "8.1.0 (r41664)") == 0);
}
