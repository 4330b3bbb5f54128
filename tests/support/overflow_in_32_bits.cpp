// SPDX-License-Identifier: Apache-2.0
// Sums of 46341 x 46341 elements, which are more than 2^31, on operands whose rows overlap.
// Compiled for 32 bits with traps where a signed integer overflows: a call that is still at work
// after a second has counted nothing that overflows.
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "zonm.h"

int main()
{
    constexpr int n = 46341, element = sizeof(float);
    std::vector<float> memory(4 * n);
    const float *const src = memory.data();
    float *const dst = memory.data() + 2 * n;
    for (const int count : {1, 2}) {
        const pid_t child = fork();
        if (child == 0) {
            std::signal(SIGALRM, [](int) { _exit(0); });
            alarm(1);
            const ZonStatus status =
                zonmAdd_mama_32f(src, element, element, element, src, element, element, element,
                                 dst, element, element, element, n, n, count);
            _exit(status != zonStsOk);
        }
        int status = 1;
        if (waitpid(child, &status, 0) != child || status != 0)
            return 1;
    }
    return 0;
}
