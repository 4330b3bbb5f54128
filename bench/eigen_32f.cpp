// SPDX-License-Identifier: Apache-2.0
#include "eigen.hpp"

static const bench::Group group(bench::eigen::rows<float>);
