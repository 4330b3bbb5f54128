// SPDX-License-Identifier: Apache-2.0
#include "qr.hpp"

static const bench::Group group(bench::qr::rows<float>);
