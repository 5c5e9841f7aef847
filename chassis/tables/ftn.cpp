// Label entries by prefix.  A tunnel's (VRF 0) holds the place of a route to the same prefix.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

const TableOf<dpm_ftn> ftn{
    .each = walk<dpm_api_ftn_entry_first, dpm_api_ftn_entry_next>,
    .key =
        [](auto &entry) {
            return "vrf " + std::to_string(entry.vrf_id) + " " + prefix_text(fec_of(entry)) +
                   " via " + tunnel_nexthop(entry);
        },
    .places =
        [](auto &entry) {
            return std::vector<Place>{{entry.vrf_id, fec_of(entry)}};
        },
    .own =
        [](auto &entry, auto &) {
            entry.node = {};
            entry.pend = {};
            entry.stale = 0;
        },
    .columns = {{"vrf", TABLE_MEMBER(vrf_id)},
                {"fec", [](auto &entry) { return prefix_text(fec_of(entry)); }},
                {"state", label_state<dpm_ftn>},
                {"tunnel_label", TABLE_MEMBER(tunnel_label)},
                {"vpn_label", TABLE_MEMBER(vpn_label)},
                {"nexthop", tunnel_nexthop<dpm_ftn>},
                {"+nhid", TABLE_MEMBER(nhid)},
                {"+tunnel_id", TABLE_MEMBER(tunnel_id)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .waits_for = label_waits_for<dpm_ftn>,
    .why =
        [](auto &entry) {
            return "label " + std::to_string(entry.tunnel_label) + " leads to " +
                   prefix_text(fec_of(entry)) + " by neighbour " + tunnel_nexthop(entry) + ": " +
                   label_state(entry) + "\n";
        },
};

} // namespace chassis::tables
