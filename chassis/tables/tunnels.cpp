// GRE tunnels, and the ports on which the chip looks for GRE.
//
// A tunnel is up when a route leads to its destination and the chip has its GRE next hops, one for
// each next hop of that route, and its GRE tunnel.  Of two with the same ends one is up.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"
#include "platform/dal.h"

#include <algorithm>

namespace chassis::tables {

namespace {

struct NexthopsByIndex {
    explicit NexthopsByIndex(const Reading &) {
        nexthops.each([this](const dpm_nexthop_entry &nexthop) {
            by_index.emplace(std::int32_t(nexthop.sdk_index), &nexthop);
        });
    }
    std::map<std::int32_t, const dpm_nexthop_entry *> by_index;
};

struct RoutesByPrefix {
    explicit RoutesByPrefix(const Reading &) {
        routes.each([this](const dpm_route_entry &route) {
            by_prefix.emplace(chip_key(route.vrf, route.destination), &route);
        });
    }
    std::map<chip::Address, const dpm_route_entry *> by_prefix;
};

struct UpByEnds {
    explicit UpByEnds(const Reading &);
    std::map<chip::GreTunnel, const dpm_tunnel_entry *> by_ends;
};

chip::Ipv4 ipv4(const dpm_prefix &ip) {
    return {ip.address[0], ip.address[1], ip.address[2], ip.address[3]};
}

chip::GreTunnel gre_of(const dpm_tunnel_entry &tunnel, std::uint32_t vrf) {
    return {vrf, ipv4(tunnel.source), ipv4(tunnel.destination),
            tunnel.key_enable ? tunnel.key : DAL_GRE_NO_KEY, tunnel.checksum};
}

chip::GreTunnel ends_of(const dpm_tunnel_entry &tunnel) {
    chip::GreTunnel ends = gre_of(tunnel, tunnel.ip_vrfid);
    ends.checksum = 0;
    return ends;
}

bool is_up(const dpm_tunnel_entry &tunnel) {
    return tunnel.sdk_index > 0;
}

UpByEnds::UpByEnds(const Reading &) {
    tunnels.each([this](const dpm_tunnel_entry &tunnel) {
        if (is_up(tunnel))
            by_ends.emplace(ends_of(tunnel), &tunnel);
    });
}

std::string end_text(const dpm_prefix &end) {
    return end.family == DPM_FAMILY_NONE ? "" : text_of(end);
}

std::string network_text(const dpm_prefix &prefix) {
    return prefix.family == DPM_FAMILY_NONE ? "" : prefix_text(prefix);
}

std::string missing_of(const dpm_tunnel_entry &tunnel, const Reading &reading) {
    if (is_up(tunnel))
        return "";
    if (tunnel.source.family == DPM_FAMILY_NONE)
        return "its source";
    if (tunnel.destination.family == DPM_FAMILY_NONE)
        return "its destination";
    if (tunnel.route_flag != 1)
        return "a route to " + text_of(tunnel.destination);
    const auto &up = reading.made<UpByEnds>().by_ends;
    const auto other = up.find(ends_of(tunnel));
    return other != up.end() ? "the end of " + std::string(other->second->name) +
                                   ", which has its source, destination and key"
                             : "the chip, which refused it";
}

std::vector<std::int64_t> nexthops_of(const dpm_tunnel_entry &tunnel) {
    std::vector<std::int64_t> list;
    std::ranges::copy_if(tunnel.nexthop_index, std::back_inserter(list),
                         [](std::int32_t index) { return index != 0; });
    return list;
}

chip::PortKey port_key(std::uint32_t port_type, std::uint32_t port) {
    return {port_type, std::uint16_t(port), 0, 0};
}

// A tunnel's GRE next hop leads to the neighbour behind the next hop of its route.
void want_nexthop(const dpm_tunnel_entry &tunnel, std::size_t i, Wanted &wanted) {
    const auto &nexthops = wanted.reading.made<NexthopsByIndex>().by_index;
    const auto found = nexthops.find(tunnel.host_index[i]);
    if (found == nexthops.end())
        return wanted.differ(std::string(tunnel.name) + " leads over a next hop that is not there");
    const dpm_nexthop_entry &over = *found->second;
    const chip::GreNextHop object{
        over.port_type,  over.port_id, over.svlan, over.cvlan, gre_of(tunnel, tunnel.tunnel_vrf),
        mac_of(over.mac)};
    wanted.want<kinds::gre_nexthop>(std::uint32_t(tunnel.nexthop_index[i]), object);
    wanted.use<kinds::port_key>(port_key(over.port_type, over.port_id));
}

// The route that a tunnel holds is there, and leads where the tunnel believes.
void compare_route(const dpm_tunnel_entry &tunnel, Wanted &wanted) {
    const auto &routes = wanted.reading.made<RoutesByPrefix>().by_prefix;
    const auto found = routes.find(chip_key(tunnel.tunnel_vrf, tunnel.route_prefix));
    if (found == routes.end() || found->second->sdk_index <= 0 ||
        !std::ranges::equal(found->second->host_index, tunnel.host_index))
        wanted.differ(std::string(tunnel.name) + " does not follow its route");
}

void want_tunnel(const dpm_tunnel_entry &tunnel, Wanted &wanted) {
    if (tunnel.ip.family != DPM_FAMILY_NONE)
        wanted.want<kinds::entry>(chip_key(tunnel.ip_vrfid, tunnel.ip), to_cpu);
    if (tunnel.route_flag == 1)
        compare_route(tunnel, wanted);
    if (!is_up(tunnel))
        return nexthops_of(tunnel).empty()
                   ? void()
                   : wanted.differ(std::string(tunnel.name) + " is down, with next hops");
    wanted.want<kinds::gre_tunnel>(gre_of(tunnel, tunnel.ip_vrfid), chip::Nothing());
    chip::Members members;
    for (std::size_t i = 0; i < std::size(tunnel.nexthop_index); i++)
        if (tunnel.nexthop_index[i] != 0) {
            want_nexthop(tunnel, i, wanted);
            members.push_back(std::uint32_t(tunnel.nexthop_index[i]));
        }
    if (tunnel.ecmp_enable == DPM_ROUTE_ECMP)
        want_group(tunnel.name, std::uint32_t(tunnel.sdk_index), members, wanted);
    else if (members != chip::Members{std::uint32_t(tunnel.sdk_index)})
        wanted.differ(std::string(tunnel.name) + " leads to another next hop than its own");
}

std::string why_tunnel(const dpm_tunnel_entry &tunnel, const Reading &reading) {
    const std::string missing = missing_of(tunnel, reading);
    std::string text = std::string(tunnel.name) + " from " + end_text(tunnel.source) + " to " +
                       end_text(tunnel.destination) + ": ";
    text += missing.empty() ? "up, by index " + std::to_string(tunnel.sdk_index)
                            : "down: waits for " + missing;
    return text +
           (tunnel.route_flag == 1 ? ", over the route " + prefix_text(tunnel.route_prefix) : "") +
           "\n";
}

} // namespace

const TableOf<dpm_tunnel_entry> tunnels{
    .each = walk<dpm_api_get_tunnel_entry_first, dpm_api_get_tunnel_entry_next>,
    .key = [](auto &tunnel) { return std::string(tunnel.name); },
    .places =
        [](auto &tunnel) {
            std::vector<Place> places;
            if (tunnel.ip.family != DPM_FAMILY_NONE)
                places.push_back({tunnel.ip_vrfid, tunnel.ip});
            if (tunnel.destination.family != DPM_FAMILY_NONE)
                places.push_back({tunnel.tunnel_vrf, tunnel.destination});
            return places;
        },
    .own = [](auto &tunnel, auto &) { tunnel.node = {}; },
    .columns = {{"tunnel", [](auto &tunnel) { return std::string(tunnel.name); }},
                {"state", [](auto &tunnel) { return is_up(tunnel) ? "up" : "down"; }},
                {"vrf", TABLE_MEMBER(ip_vrfid)},
                {"address", [](auto &tunnel) { return network_text(tunnel.ip); }},
                {"underlay", TABLE_MEMBER(tunnel_vrf)},
                {"local", [](auto &tunnel) { return end_text(tunnel.source); }},
                {"remote", [](auto &tunnel) { return end_text(tunnel.destination); }},
                {"key",
                 [](auto &tunnel) {
                     return tunnel.key_enable ? std::to_string(tunnel.key) : std::string();
                 }},
                {"route", [](auto &tunnel) { return network_text(tunnel.route_prefix); }},
                {"index", TABLE_MEMBER(sdk_index)},
                {"nexthops", nexthops_of},
                {"+mode", TABLE_MEMBER(mode)},
                {"+checksum", TABLE_MEMBER(checksum)}},
    .in_chip = want_tunnel,
    .waits_for = missing_of,
    .why = why_tunnel,
};

const TableOf<dpm_tunnel_port_entry> tunnel_ports{
    .each = walk<dpm_api_get_tunnel_port_entry_first, dpm_api_get_tunnel_port_entry_next>,
    .key =
        [](auto &port) {
            return "type " + std::to_string(port.port_type) + " port " +
                   port_text(port.port_type, port.port, port.port);
        },
    .own = [](auto &port, auto &) { port.node = {}; },
    .columns = {{"port",
                 [](auto &port) { return port_text(port.port_type, port.port, port.port); }},
                {"nexthops", TABLE_MEMBER(cnt)},
                {"+port_type", TABLE_MEMBER(port_type)},
                {"+port_id", TABLE_MEMBER(port)}},
    .in_chip =
        [](auto &port, Wanted &wanted) {
            const chip::PortKey key = port_key(port.port_type, port.port);
            if (port.cnt != 0)
                wanted.want<kinds::port_key>(key, 1);
            wanted.count<kinds::port_key>(key, port.cnt);
        },
};

} // namespace chassis::tables
