// Interfaces that take packets with labels.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

namespace chassis::tables {

const TableOf<dpm_mpls_if> mpls_if{
    .each = walk<dpm_api_mpls_if_first, dpm_api_mpls_if_next>,
    .key = [](auto &entry) { return std::string("dev ") + entry.ifname; },
    .own =
        [](auto &entry, auto &reading) {
            entry.node = {};
            entry.ifindex = leads(reading, entry.ifname, entry.ifindex);
        },
    .columns = {{"interface", TABLE_MEMBER(ifname)},
                {"vlan", TABLE_MEMBER(vlan_id)},
                {"state",
                 [](auto &entry) {
                     return std::string(entry.flags == DPM_MPLS_IF_ENABLED ? "chip" : "refused");
                 }},
                {"label_space", TABLE_MEMBER(label_space)},
                {"+sdk_result", TABLE_MEMBER(sdk_result)}},
    .in_chip =
        [](auto &entry, Wanted &wanted) {
            if (entry.flags == DPM_MPLS_IF_ENABLED)
                wanted.want<chip::kinds::mpls_vlan>(entry.vlan_id, chip::Nothing());
        },
};

} // namespace chassis::tables
