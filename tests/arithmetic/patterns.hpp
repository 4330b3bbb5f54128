// SPDX-License-Identifier: Apache-2.0
// What compilers may change in arithmetic when they are allowed to, or when they err.
#pragma once

struct Operands {
    float narrow[4], otherNarrow[4];
    double wide[8], minusProduct, divisor, notANumber, minusZero, limit;
};

struct Results {
    double rounded[4];   // products, rounded to float in between
    double sum;          // in ascending order
    double cancelled[2]; // (a + b) - a
    double quotients;    // of one divisor, with turns of the sign
    double aboveLimit;   // whether a NaN counts as not below the limit
    double chain;        // 0 + (-0)
    double residue;      // a*b - (a*b, rounded)
    double tenth;        // a literal that is no float
};

using Patterns = void(const Operands *, Results *);
