// SPDX-License-Identifier: Apache-2.0
#include "frame/generated/export_table.hpp"

namespace
{

constexpr ZonVersionRecord record = {
    .major = 8,
    .minor = 1,
    .patch = 0,
    .revision = 41664,
    .targetTag = {'p', 'x'},
    .versionName = "zonm PX (px)",
    .versionText = "8.1.0 (r41664)",
    .buildDate = "Jan 15 2014",
};

} // namespace

const ZonVersionRecord *zonm::entry::zonmGetLibVersion() { return &record; }

const ZonVersionRecord *zonmGetLibVersion() { return zonm::exportTable.zonmGetLibVersion(); }
