// SPDX-License-Identifier: Apache-2.0
#include "frame/generated/export_table.hpp"

namespace
{

// The build knows the version; the other values are fixed.
constexpr ZonVersionRecord record = {
    .major = ZONM_MAJOR,
    .minor = ZONM_MINOR,
    .patch = ZONM_PATCH,
    .revision = 41664,
    .targetTag = {'p', 'x'},
    .versionName = "zonm PX (px)",
    .versionText = ZONM_VERSION " (r41664)",
    .buildDate = "Jan 15 2014",
};

} // namespace

const ZonVersionRecord *zonm::entry::zonmGetLibVersion() { return &record; }

const ZonVersionRecord *zonmGetLibVersion() { return zonm::exportTable.zonmGetLibVersion(); }
