// Label entries by incoming label.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"
#include "platform/dal.h"

namespace chassis::tables {

namespace {

void want_ilm(const dpm_ilm &entry, Wanted &wanted) {
    if (entry.flags != DPM_LABEL_PROGRAMMED)
        return;
    chip::Ilm value{};
    value.lookup = entry.is_egress;
    value.label_type = entry.vrf_id ? DAL_ILM_VPN_LABEL : DAL_ILM_TUNNEL_LABEL;
    const bool is_swap = !entry.is_egress && entry.swap_label != 0 && entry.swap_label != 3;
    value.action = is_swap ? DAL_ILM_SWAP : DAL_ILM_POP;
    value.out_label = entry.swap_label;
    value.fec = chip_key(entry.vrf_id & 0xFFFF,
                         prefix_of(entry.tunnel_ip_type, entry.fec_prefix, entry.prefixlen));
    value.other = entry.ip_type;
    value.hop = hop_of(entry);
    value.nhid = entry.nhid;
    value.tunnel_id = entry.tunnel_id;
    wanted.want<kinds::ilm>(entry.in_label, value);
}

std::string waits_for(const dpm_ilm &entry, const Reading &reading) {
    return entry.flags == DPM_LABEL_PROGRAMMED
               ? ""
               : label_waits_for(label_missing(entry, reading, entry.vrf_id),
                                 dpm_api_ilm_waits_since(&entry));
}

} // namespace

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
            entry.sdk_result = 0; // the master's: a refusal that changes nothing is not mirrored
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
    .in_chip = want_ilm,
    .waits_for = waits_for,
    .why =
        [](auto &entry, auto &reading) {
            return "incoming label " + std::to_string(entry.in_label) + " of " +
                   prefix_text(fec_of(entry)) + ": " + label_why(waits_for(entry, reading)) + "\n";
        },
};

} // namespace chassis::tables
