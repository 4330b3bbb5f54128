// SPDX-License-Identifier: Apache-2.0
// The machine's limit for packed multiplications and additions, at the register width and in the
// instructions of the build: independent chains of both kinds, nothing loaded or stored.
#include "harness.hpp"

#ifdef __aarch64__
#define IN_REGISTERS(pack) "+w"(pack)
#else
#define IN_REGISTERS(pack) "+x"(pack)
#endif

namespace bench
{
namespace
{

#ifdef __AVX__
constexpr int registerBytes = 32;
#else
constexpr int registerBytes = 16;
#endif

template <class T> struct Chains {
    static constexpr int lanes = registerBytes / sizeof(T), chains = 6, steps = 2000;
    static constexpr int operations = lanes * chains * 2 * steps;
    typedef T Pack __attribute__((vector_size(registerBytes)));

    T product = 0, sum = 0; // of lane 0 of every chain, added up

    void run(T factorValue, T termValue)
    {
        asm("" : IN_REGISTERS(factorValue), IN_REGISTERS(termValue)); // hides the values
        const Pack factor = Pack{} + factorValue, term = Pack{} + termValue;
        Pack p0 = Pack{} + 1, p1 = p0, p2 = p0, p3 = p0, p4 = p0, p5 = p0;
        Pack s0 = Pack{}, s1 = s0, s2 = s0, s3 = s0, s4 = s0, s5 = s0;
        for (int i = 0; i < steps; ++i) {
            // Without this the equal chains would be computed once.
            asm(""
                : IN_REGISTERS(p0), IN_REGISTERS(p1), IN_REGISTERS(p2), IN_REGISTERS(p3),
                  IN_REGISTERS(p4), IN_REGISTERS(p5));
            asm(""
                : IN_REGISTERS(s0), IN_REGISTERS(s1), IN_REGISTERS(s2), IN_REGISTERS(s3),
                  IN_REGISTERS(s4), IN_REGISTERS(s5));
            p0 *= factor, p1 *= factor, p2 *= factor, p3 *= factor, p4 *= factor, p5 *= factor;
            s0 += term, s1 += term, s2 += term, s3 += term, s4 += term, s5 += term;
        }
        const Pack p = p0 + p1 + p2 + p3 + p4 + p5, s = s0 + s1 + s2 + s3 + s4 + s5;
        product = p[0], sum = s[0];
    }
};

template <class T> void limit()
{
    static Chains<T> c;
    Row("limit", "multiply and add", typeName<T>, registerBytes, c.operations)
        .into(&c, sizeof c)
        .check([] { return c.product == c.chains && c.sum == c.chains * c.steps ? 0. : 2.; })
        .add("machine", [](int, int) { c.run(1, 1); });
}
const Group group32f(limit<float>), group64f(limit<double>);

} // namespace
} // namespace bench
