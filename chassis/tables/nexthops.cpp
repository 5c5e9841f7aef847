// Next hops of the chip.  One is found by the neighbours behind it.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

namespace chassis::tables {

namespace {

struct HostsByNexthop {
    explicit HostsByNexthop(const Reading &) {
        hosts.each([this](const dpm_host_entry &host) {
            places[host.sdk_index].push_back({host.vrf, host.ip});
        });
    }
    std::map<std::uint32_t, std::vector<Place>> places;
};

std::vector<Place> places_of(const dpm_nexthop_entry &nexthop, const Reading &reading) {
    const auto &places = reading.made<HostsByNexthop>().places;
    const auto found = places.find(nexthop.sdk_index);
    return found == places.end() ? std::vector<Place>() : found->second;
}

std::string port_of(const dpm_nexthop_entry &nexthop) {
    return port_text(nexthop.port_type, nexthop.port_id, nexthop.port_id);
}

} // namespace

const TableOf<dpm_nexthop_entry> nexthops{
    .each = walk<dpm_api_get_nexthop_entry_first, dpm_api_get_nexthop_entry_next>,
    .key =
        [](auto &nexthop) {
            return mac_text(nexthop.mac) + " port " + port_of(nexthop) + " vlan " +
                   std::to_string(nexthop.svlan) + " cvlan " + std::to_string(nexthop.cvlan);
        },
    .places = places_of,
    .own = [](auto &nexthop, auto &) { nexthop.node = {}; },
    .columns = {{"nexthop", TABLE_MEMBER(sdk_index)},
                {"mac", [](auto &nexthop) { return mac_text(nexthop.mac); }},
                {"port", port_of},
                {"vlan", TABLE_MEMBER(svlan)},
                {"cvlan", TABLE_MEMBER(cvlan)},
                {"hosts", TABLE_MEMBER(cnt)},
                {"+port_type", TABLE_MEMBER(port_type)},
                {"+port_id", TABLE_MEMBER(port_id)}},
    .in_chip =
        [](auto &nexthop, Wanted &wanted) {
            const chip::NextHop object{nexthop.port_type, nexthop.port_id,
                                       std::uint16_t(nexthop.svlan), std::uint16_t(nexthop.cvlan),
                                       mac_of(nexthop.mac)};
            wanted.want<kinds::nexthop>(nexthop.sdk_index, object);
            wanted.count<kinds::nexthop>(nexthop.sdk_index, nexthop.cnt);
        },
};

} // namespace chassis::tables
