// The IP stack's side: its own cache, and what it was asked to look for and to forget.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

namespace {

template <auto list> void each_of_stack(const auto &visit) {
    for (const auto &entry : (card().stack.*list)())
        visit(entry);
}

std::vector<Place> places_of(const stack::NeighbourKey &key) {
    return {{key.vrf, host_of(key.family, key.address.data())}};
}

std::string address_of(const stack::NeighbourKey &key) {
    return address_text(key.family, key.address.data());
}

} // namespace

const TableOf<dpm_host_info> neighbours{
    .each = [](auto &visit) { each_of_stack<&stack::Stack::cache>(visit); },
    .places =
        [](auto &info) {
            return std::vector<Place>{{info.vrf, host_of(info.family, info.address)}};
        },
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"address", [](auto &info) { return address_text(info.family, info.address); }},
                {"mac", [](auto &info) { return mac_text(info.mac); }},
                {"port",
                 [](auto &info) {
                     return port_text(info.port_type, info.log_port_id, info.phy_port_id);
                 }},
                {"vlan", TABLE_MEMBER(svlan)},
                {"interface", [](auto &info) { return interface_name(info.ifindex); }}},
};

const TableOf<stack::Probe> probes{
    .each = [](auto &visit) { each_of_stack<&stack::Stack::probes>(visit); },
    .places = [](auto &probe) { return places_of(probe.key); },
    .columns = {{"vrf", TABLE_MEMBER(key.vrf)},
                {"address", [](auto &probe) { return address_of(probe.key); }},
                {"interface", [](auto &probe) { return interface_name(probe.ifindex); }},
                {"ago_sec",
                 [](auto &probe) {
                     return (card().os.now_nsec() - probe.at_nsec) / os::nsec_per_sec;
                 }}},
};

const TableOf<stack::NeighbourKey> deletions{
    .each = [](auto &visit) { each_of_stack<&stack::Stack::deletions>(visit); },
    .places = places_of,
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"address", address_of},
                {"interface", [](auto &key) { return interface_name(key.ifindex); }}},
};

} // namespace chassis::tables
