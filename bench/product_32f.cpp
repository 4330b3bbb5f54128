// SPDX-License-Identifier: Apache-2.0
#include "product.hpp"

static const bench::Group group(bench::product::rows<float>);
