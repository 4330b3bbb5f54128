// SPDX-License-Identifier: Apache-2.0
#include "patterns.hpp"

#if defined(ZONM_OWN_OPTIONS)
#include "frame/memory.hpp" // refuses the modes that it knows
#endif

extern "C" __attribute__((visibility("default"))) void evaluate(const Operands *__restrict x,
                                                                Results *__restrict r)
{
    const float *p = x->narrow, *q = x->otherNarrow;
    const float f0 = float(double(p[0]) * q[0] + 1), f1 = float(double(p[1]) * q[1] + 1);
    r->rounded[0] = double(f0) * double(f0);
    r->rounded[1] = double(f1) * double(f1);
    const float g0 = float(x->wide[0] * x->wide[2]), g1 = float(x->wide[1] * x->wide[3]);
    r->rounded[2] = double(g0) * x->wide[4];
    r->rounded[3] = double(g1) * x->wide[5];

    double sum = 0;
    for (int i = 0; i < 8; ++i)
        sum += x->wide[i];
    r->sum = sum;
    r->cancelled[0] = (x->limit + x->wide[0]) - x->limit;
    r->cancelled[1] = (x->limit + x->wide[1]) - x->limit;
    const double d = x->divisor;
    r->quotients = x->wide[0] / d - x->wide[1] / d + x->wide[2] / d - x->wide[3] / d;
    r->aboveLimit = !(x->notANumber <= x->limit) && x->notANumber != x->notANumber;
    r->chain = 0.0 + x->minusZero;
    r->residue = x->wide[0] * x->wide[1] + x->minusProduct;
    r->tenth = x->wide[0] * 0.1;
}
