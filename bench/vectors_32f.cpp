// SPDX-License-Identifier: Apache-2.0
#include "vectors.hpp"

static const bench::Group group(bench::vectors::rows<float>);
