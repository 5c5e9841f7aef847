// Resolved neighbours.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

#include <cstring>
#include <set>

namespace chassis::tables {

namespace {

std::string port_of(const dpm_host_entry &host) {
    return port_text(host.port_type, host.log_port_id, host.phy_port_id);
}

std::string state_of(const dpm_host_entry &host, const Reading &reading) {
    if (is_link_local(host.ip))
        return "a neighbour; link-local addresses have no entry in the chip, ";
    const auto found =
        reading.card.chip.lookup(std::int32_t(host.vrf), host.ip.family, host.ip.address);
    const bool is_there =
        found && found->entry.prefix_len == host.ip.prefix_len && found->index == host.sdk_index;
    return is_there ? "in the chip, " : "a neighbour, but not in the chip, ";
}

struct HostsByAddress {
    explicit HostsByAddress(const Reading &) {
        hosts.each(
            [this](const dpm_host_entry &host) { addresses.insert(chip_key(host.vrf, host.ip)); });
    }
    std::set<chip::Address> addresses;
};

} // namespace

bool is_neighbour(const Reading &reading, const Place &address) {
    return reading.made<HostsByAddress>().addresses.contains(
        chip_key(address.vrf, *address.prefix));
}

const TableOf<dpm_host_entry> hosts{
    .each = walk<dpm_api_get_host_entry_first, dpm_api_get_host_entry_next>,
    .key =
        [](auto &host) {
            return "vrf " + std::to_string(host.vrf) + " " + text_of(host.ip) + " dev " +
                   host.ifname;
        },
    .places =
        [](auto &host) {
            return std::vector<Place>{{host.vrf, host.ip}};
        },
    .own =
        [](auto &host, auto &reading) {
            host.node = {};
            host.ifindex = leads(reading, host.ifname, host.ifindex);
            std::memset(host.card_local, 0, sizeof host.card_local);
        },
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"address", [](auto &host) { return text_of(host.ip); }},
                {"mac", [](auto &host) { return mac_text(host.mac); }},
                {"port", port_of},
                {"vlan", TABLE_MEMBER(svlan)},
                {"cvlan", TABLE_MEMBER(cvlan)},
                {"nexthop", TABLE_MEMBER(sdk_index)},
                {"interface", TABLE_MEMBER(ifname)},
                {"ifindex", TABLE_MEMBER(ifindex)},
                {"+supervlan", TABLE_MEMBER(supervlan)},
                {"+port_type", TABLE_MEMBER(port_type)},
                {"+log_port_id", TABLE_MEMBER(log_port_id)},
                {"+phy_port_id", TABLE_MEMBER(phy_port_id)}},
    .in_chip =
        [](auto &host, Wanted &wanted) {
            wanted.use<kinds::nexthop>(host.sdk_index);
            if (!is_link_local(host.ip))
                wanted.want<kinds::entry>(chip_key(host.vrf, host.ip), host.sdk_index);
        },
    .why =
        [](auto &host, auto &reading) {
            return state_of(host, reading) + "next hop " + std::to_string(host.sdk_index) + ": " +
                   mac_text(host.mac) + " port " + port_of(host) + " vlan " +
                   std::to_string(host.svlan) + " on " + host.ifname + "\n";
        },
};

} // namespace chassis::tables
