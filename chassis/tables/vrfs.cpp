// VRFs, as the routing suite set them.  The library has no walker for them; VRF 0 is enabled from
// the start.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

#include <set>

namespace chassis::tables {

namespace {

constexpr std::uint32_t families[] = {DPM_FAMILY_IPV4, DPM_FAMILY_IPV6};

// Default routes of the tables, by family and VRF, that point somewhere.
struct DefaultRoutes {
    explicit DefaultRoutes(const Reading &) {
        routes.each([this](const dpm_route_entry &route) {
            if (route.destination.prefix_len == 0 && route.sdk_index > 0)
                standing.insert({route.destination.family, route.vrf});
        });
    }
    std::set<chip::DefaultKey> standing;
};

// The card's own address in each VRF: an interface identifier made from its MAC.
dpm_prefix link_local_address() {
    const auto mac = card().peer.device_mac();
    const std::uint8_t address[16] = {
        0xFE,   0x80,   0,    0,    0,      0,      0,     0, std::uint8_t(mac[0] ^ 2),
        mac[1], mac[2], 0xFF, 0xFE, mac[3], mac[4], mac[5]};
    return host_of(DPM_FAMILY_IPV6, address);
}

bool is_in_chip(const chip::DefaultKey &key) {
    const auto lock = card().chip.lock();
    return card().chip.held<kinds::entry>().contains({std::int32_t(key.vrf), key.family, {}, 0});
}

// What matches no entry goes to the CPU, unless a default route stands there; one that is still in
// the chip, against the tables, is told by its entry.
void want_default(const Vrf &vrf, const chip::DefaultKey &key, Wanted &wanted) {
    if (wanted.reading.made<DefaultRoutes>().standing.contains(key))
        return; // the route says it
    if (vrf.is_enabled && !is_in_chip(key))
        wanted.want<kinds::cpu_default>(key, true);
    else
        wanted.permit<kinds::cpu_default>(key, false);
}

} // namespace

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
    .in_chip =
        [](auto &vrf, Wanted &wanted) {
            if (vrf.is_enabled)
                wanted.want<kinds::entry>(chip_key(vrf.id, link_local_address()), to_cpu);
            for (const std::uint32_t family : families)
                want_default(vrf, {family, vrf.id}, wanted);
        },
};

} // namespace chassis::tables
