// SPDX-License-Identifier: Apache-2.0
#include "cholesky.hpp"

static const bench::Group group(bench::cholesky::rows<double>);
