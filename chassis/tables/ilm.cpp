// Label entries by incoming label.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

const TableOf<dpm_ilm> ilm{
    .each = walk<dpm_api_ilm_entry_first, dpm_api_ilm_entry_next>,
    .key = [](auto &entry) { return "label " + std::to_string(entry.in_label); },
    .places =
        [](auto &entry) {
            return std::vector<Place>{{entry.vrf_id, fec_of(entry)}};
        },
    .own =
        [](auto &entry, auto &reading) {
            entry.node = {};
            entry.pend = {};
            entry.out_ifindex = leads(reading, entry.out_ifname, entry.out_ifindex);
        },
    .columns = {{"label", TABLE_MEMBER(in_label)},
                {"vrf", TABLE_MEMBER(vrf_id)},
                {"fec", [](auto &entry) { return prefix_text(fec_of(entry)); }},
                {"state", label_state<dpm_ilm>},
                {"swap", TABLE_MEMBER(swap_label)},
                {"nexthop", tunnel_nexthop<dpm_ilm>},
                {"interface", TABLE_MEMBER(out_ifname)},
                {"+nhid", TABLE_MEMBER(nhid)},
                {"+tunnel_id", TABLE_MEMBER(tunnel_id)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .waits_for = label_waits_for<dpm_ilm>,
};

} // namespace chassis::tables
