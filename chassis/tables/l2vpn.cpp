// The label paths and ports that layer-2 services stand on.

#include "chassis/tables/l2vpn.h"

#include <algorithm>
#include <vector>

namespace chassis::tables {

namespace {

std::vector<const dpm_ftn *> paths_to(const dpm_prefix &peer, const Reading &reading) {
    const auto [first, last] =
        reading.made<LabelPaths>().to.equal_range(address_bytes(peer.family, peer.address));
    std::vector<const dpm_ftn *> paths;
    for (auto each = first; each != last; ++each)
        paths.push_back(each->second);
    return paths;
}

} // namespace

LabelPaths::LabelPaths(const Reading &) {
    ftn.each([this](const dpm_ftn &entry) {
        if (entry.vrf_id == 0 && entry.ip_type == DPM_FAMILY_IPV4 && entry.prefixlen == 32)
            to.emplace(address_bytes(DPM_FAMILY_IPV4, entry.fec_prefix), &entry);
    });
}

std::string missing_path(const dpm_prefix &peer, const Reading &reading) {
    std::string missing = "a label path to " + text_of(peer);
    for (const dpm_ftn *path : paths_to(peer, reading)) {
        if (is_programmed(*path))
            return "";
        missing = "the label path to " + text_of(peer) + ", which waits for " +
                  ftn.waits_for(*path, reading);
    }
    return missing;
}

bool is_path(const dpm_prefix &peer, std::uint32_t nhid, std::uint32_t tunnel_id,
             const Reading &reading) {
    return std::ranges::any_of(paths_to(peer, reading), [&](const dpm_ftn *path) {
        return is_programmed(*path) && path->nhid == nhid && path->tunnel_id == tunnel_id;
    });
}

std::uint32_t port_behind(std::uint32_t ifindex) {
    const auto interface = card().suite.find(ifindex);
    return interface && interface->vlan > 0 ? card().suite.vlan_port(unsigned(interface->vlan)) : 0;
}

} // namespace chassis::tables
