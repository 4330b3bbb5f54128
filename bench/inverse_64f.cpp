// SPDX-License-Identifier: Apache-2.0
#include "inverse.hpp"

static const bench::Group group(bench::inverse::rows<double>);
