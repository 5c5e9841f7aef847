// Label entries by prefix.  A tunnel's (VRF 0) holds the place of a route to the same prefix.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"
#include "platform/dal.h"

#include <set>

namespace chassis::tables {

namespace {

// The chip knows a tunnel by its prefix, and a VPN route by its own and its tunnel's.
void want_ftn(const dpm_ftn &entry, Wanted &wanted) {
    if (entry.flags != DPM_LABEL_PROGRAMMED)
        return;
    const bool is_vpn = entry.vrf_id != 0;
    chip::FtnKey key{};
    key.tunnel =
        chip_key(0, is_vpn ? prefix_of(entry.vpn_nhop_af, entry.vpn_nhop, entry.vpn_prefixlen)
                           : fec_of(entry));
    if (is_vpn)
        key.vpn = chip_key(entry.vrf_id & 0xFFFF, fec_of(entry));
    key.tunnel_label = entry.tunnel_label;
    key.vpn_label = is_vpn ? entry.vpn_label : DAL_NO_LABEL;
    key.hop = hop_of(entry);
    wanted.want<kinds::ftn>(key, chip::Ftn{entry.nhid, entry.tunnel_id, {}, {}});
}

struct ProgrammedTunnels {
    explicit ProgrammedTunnels(const Reading &) {
        ftn.each([this](const dpm_ftn &entry) {
            if (entry.vrf_id == 0 && entry.flags == DPM_LABEL_PROGRAMMED)
                prefixes.insert(chip_key(0, fec_of(entry)));
        });
    }
    std::set<chip::Address> prefixes;
};

// A prefix of a VRF rides on the label entry to its remote end, and everything on a neighbour.
std::string missing_of(const dpm_ftn &entry, const Reading &reading) {
    const auto remote = prefix_of(entry.vpn_nhop_af, entry.vpn_nhop, entry.vpn_prefixlen);
    if (entry.vrf_id != 0 &&
        !reading.made<ProgrammedTunnels>().prefixes.contains(chip_key(0, remote)))
        return "the label entry to " + address_text(entry.vpn_nhop_af, entry.vpn_nhop);
    return entry.stale != 0 ? "the routing suite to tell it again behind its tunnel"
                            : label_missing(entry, reading, 0);
}

std::string waits_for(const dpm_ftn &entry, const Reading &reading) {
    return entry.flags == DPM_LABEL_PROGRAMMED
               ? ""
               : label_waits_for(missing_of(entry, reading), dpm_api_ftn_waits_since(&entry));
}

} // namespace

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
            entry.sdk_result = 0; // the master's: a refusal that changes nothing is not mirrored
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
    .in_chip = want_ftn,
    .waits_for = waits_for,
    .why =
        [](auto &entry, auto &reading) {
            const std::string label = std::to_string(entry.tunnel_label);
            return "label " +
                   (entry.vrf_id ? label + "/" + std::to_string(entry.vpn_label) : label) +
                   " leads to " + prefix_text(fec_of(entry)) + " by neighbour " +
                   tunnel_nexthop(entry) + ": " + label_why(waits_for(entry, reading)) + "\n";
        },
};

} // namespace chassis::tables
