// VRFs, as the routing suite set them.  The library has no walker for them; VRF 0 is enabled from
// the start.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

const TableOf<Vrf> vrfs{
    .each =
        [](auto &visit) {
            for (const Vrf &vrf : card().suite.vrfs())
                visit(vrf);
        },
    .key = [](auto &vrf) { return "vrf " + std::to_string(vrf.id); },
    .places = [](auto &vrf) { return std::vector<Place>{{vrf.id}}; },
    .columns = {{"vrf", TABLE_MEMBER(id)},
                {"state", [](auto &vrf) { return vrf.is_enabled ? "enabled" : "disabled"; }}},
};

} // namespace chassis::tables
