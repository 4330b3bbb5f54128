// SPDX-License-Identifier: Apache-2.0
#include "lu.hpp"

static const bench::Group group(bench::lu::rows<double>);
