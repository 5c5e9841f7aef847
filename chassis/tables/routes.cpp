// Unicast routes.
//
// A route points to the next hop of its gateway, or to a group of those of its gateways that are
// resolved.  Its place in the chip may be held by another: a tunnel's label entry for the same
// prefix, or the host of the very address.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

#include <algorithm>

namespace chassis::tables {

namespace {

constexpr unsigned group_capacity = 1024; // of the library, both families

struct StandIns {
    explicit StandIns(const Reading &) {
        ftn.each([this](const dpm_ftn &entry) {
            if (entry.vrf_id == 0 && entry.fec_route_deleted)
                held.emplace(chip_key(0, fec_of(entry)), "label");
        });
        hosts.each([this](const dpm_host_entry &host) {
            if (!is_link_local(host.ip))
                held.emplace(chip_key(host.vrf, host.ip), "host");
        });
    }
    std::map<chip::Address, std::string_view> held;
};

struct TunnelsByName {
    explicit TunnelsByName(const Reading &) {
        tunnels.each([this](const dpm_tunnel_entry &tunnel) {
            by_name.emplace(std::pair(tunnel.ip_vrfid, std::string(tunnel.name)), &tunnel);
        });
    }
    std::map<std::pair<std::uint32_t, std::string>, const dpm_tunnel_entry *> by_name;
};

// A route over a tunnel has neither gateway nor next hop of its own.
bool is_over_tunnel(const dpm_route_entry &route) {
    return route.np_num == 1 && route.np[0].family == DPM_FAMILY_NONE && route.host_index[0] == 0 &&
           std::string_view(route.np_ifname[0]).starts_with("tunnel");
}

// Where its tunnel leads; 0: nowhere.
std::int32_t tunnel_target(const dpm_route_entry &route, const Reading &reading) {
    const auto &by_name = reading.made<TunnelsByName>().by_name;
    const auto found = by_name.find({route.vrf, route.np_ifname[0]});
    return found == by_name.end() ? 0 : found->second->sdk_index;
}

TwoForms gateways_of(const dpm_route_entry &route) {
    TwoForms cell;
    for (std::uint32_t i = 0; i < route.np_num; i++) {
        const bool has_address = route.np[i].family != DPM_FAMILY_NONE;
        const std::string address = text_of(route.np[i]);
        const std::int32_t leads_to = is_over_tunnel(route) ? route.sdk_index : route.host_index[i];
        const std::string index = std::to_string(leads_to);
        const bool is_resolved = leads_to != (is_over_tunnel(route) ? 0 : -1);
        cell.text += (i ? ", " : "") + (has_address ? address : "-") + " " + route.np_ifname[i] +
                     " " + (is_resolved ? index : "unresolved");
        cell.json += (i ? ", {" : "{") +
                     ("\"address\": " + (has_address ? json_string(address) : "null")) +
                     ", \"interface\": " + json_string(route.np_ifname[i]) +
                     ", \"nexthop\": " + (is_resolved ? index : "null") + "}";
    }
    cell.json = "[" + cell.json + "]";
    return cell;
}

// What holds a route's place, "label" or "host"; empty when the place is its own.
std::string_view stand_in(const dpm_route_entry &route, const Reading &reading) {
    const auto &held = reading.made<StandIns>().held;
    const auto found = held.find(chip_key(route.vrf, route.destination));
    return found == held.end() ? std::string_view() : found->second;
}

std::string state_of(const dpm_route_entry &route, const Reading &reading) {
    if (route.sdk_index <= 0)
        return "waits";
    const std::string_view other = stand_in(route, reading);
    return std::string(other.empty() ? "chip" : other);
}

unsigned group_count() {
    unsigned count = 0;
    ecmp.each([&](const dpm_ecmp_entry &) { count++; });
    return count;
}

std::string missing_of(const dpm_route_entry &route) {
    if (route.sdk_index > 0)
        return "";
    if (route.np_num == 0)
        return "a gateway";
    if (is_over_tunnel(route))
        return std::string(route.np_ifname[0]) + ", which is down";
    // Gateways are resolved, but the groups are all in use or the chip refused one more.
    if (route.ecmp_enable == DPM_ROUTE_ECMP &&
        std::ranges::any_of(route.host_index, [](std::int32_t index) { return index > 0; }))
        return "a group (" + std::to_string(group_count()) + " of " +
               std::to_string(group_capacity) + " in use)";
    return "one of its gateways";
}

// --- the chip --------------------------------------------------------------------------------

// A route over several gateways has a group of its own, of those that are resolved.
void want_group_of(const dpm_route_entry &route, Wanted &wanted) {
    chip::Members resolved;
    for (std::uint32_t i = 0; i < route.np_num; i++)
        if (route.host_index[i] > 0)
            resolved.push_back(std::uint32_t(route.host_index[i]));
    want_group("route " + routes.key(route, wanted.reading), std::uint32_t(route.sdk_index),
               resolved, wanted, Cause::drift);
}

bool is_in_chip(const chip::Address &key, const Wanted &wanted) {
    const auto &chip = wanted.reading.card.chip;
    const auto lock = chip.lock();
    return chip.held<kinds::entry>().contains(key);
}

void want_route(const dpm_route_entry &route, Wanted &wanted) {
    const dpm_prefix &destination = route.destination;
    const chip::Address key = chip_key(route.vrf, destination);
    std::optional<chip::Index> target;
    if (route.sdk_index > 0)
        target = chip::Index(route.sdk_index);
    if (stand_in(route, wanted.reading).empty())
        wanted.want<kinds::entry>(key, target, Cause::drift);
    if (target && destination.prefix_len == 0)
        wanted.want<kinds::cpu_default>({destination.family, route.vrf}, false);
    else if (destination.prefix_len == 0 && is_in_chip(key, wanted)) // it was not let go
        wanted.permit<kinds::cpu_default>({destination.family, route.vrf}, false);
    if (is_over_tunnel(route) && route.sdk_index == tunnel_target(route, wanted.reading))
        return;
    if (is_over_tunnel(route))
        wanted.differ("route " + routes.key(route, wanted.reading) + " does not follow its tunnel",
                      Cause::drift);
    else if (target && route.ecmp_enable == DPM_ROUTE_ECMP)
        want_group_of(route, wanted);
    else if (target && route.sdk_index != route.host_index[0])
        wanted.differ("route " + routes.key(route, wanted.reading) +
                      " points to another next hop than its gateway's");
}

// --- why -------------------------------------------------------------------------------------

std::string indented(std::string text, std::size_t columns) {
    for (std::size_t at = 0; at < text.size(); at = std::min(text.find('\n', at), text.size()) + 1)
        text.insert(at, columns, ' ');
    return text;
}

// What a route points to, down to what the chip does not have of it; the caller holds the chip's
// lock.
std::string target_text(const chip::Chip &chip, const dpm_route_entry &route) {
    const auto index = std::uint32_t(route.sdk_index);
    const auto lacks = [&](std::uint32_t nexthop) {
        return !chip.held<kinds::nexthop>().contains(nexthop) && nexthop != to_cpu;
    };
    if (is_over_tunnel(route))
        return "by index " + std::to_string(index) + " of " + route.np_ifname[0];
    if (route.ecmp_enable != DPM_ROUTE_ECMP)
        return index == to_cpu ? "to the CPU"
                               : "by next hop " + std::to_string(index) +
                                     (lacks(index) ? ", which the chip does not have" : "");
    std::string text = "by group " + std::to_string(index);
    const auto &groups = chip.held<kinds::group>();
    const auto group = groups.find(index);
    if (group == groups.end())
        return text + ", which the chip does not have";
    for (const std::uint32_t member : group->second)
        text += (member == group->second.front() ? " of next hops " : " ") +
                std::to_string(member) + (lacks(member) ? " (which the chip does not have)" : "");
    return text;
}

std::string in_chip_text(const chip::Chip &chip, const dpm_route_entry &route) {
    const auto lock = chip.lock();
    const auto &entries = chip.held<kinds::entry>();
    const auto entry = entries.find(chip_key(route.vrf, route.destination));
    if (entry == entries.end())
        return "not in the chip, which should have it " + target_text(chip, route);
    if (entry->second != std::uint32_t(route.sdk_index))
        return "the chip has it by index " + std::to_string(entry->second) + ", not " +
               target_text(chip, route);
    return "in the chip, " + target_text(chip, route);
}

// Whether the same gateway has an earlier place: for IPv4 on whatever interface.
bool stands_before(const dpm_route_entry &route, std::uint32_t position) {
    const dpm_prefix &gateway = route.np[position];
    for (std::uint32_t i = 0; i < position; i++)
        if (chip_key(0, route.np[i]) == chip_key(0, gateway) &&
            (gateway.family == DPM_FAMILY_IPV4 ||
             route.np_ifindex[i] == route.np_ifindex[position]))
            return true;
    return false;
}

std::string why_tunnel_named(const dpm_route_entry &route, const Reading &reading) {
    const auto &by_name = reading.made<TunnelsByName>().by_name;
    const auto found = by_name.find({route.vrf, route.np_ifname[0]});
    return found == by_name.end()
               ? "there is no " + std::string(route.np_ifname[0]) + " in this vrf\n"
               : tunnels.why(*found->second, reading);
}

std::string why_gateway(const dpm_route_entry &route, std::uint32_t i, const Reading &reading) {
    const dpm_prefix &gateway = route.np[i];
    if (is_over_tunnel(route))
        return why_tunnel_named(route, reading);
    if (gateway.family == DPM_FAMILY_NONE)
        return std::string("directly connected on ") + route.np_ifname[i] + ", to the CPU\n";
    const std::string name =
        "gateway " + text_of(gateway) + " on " + std::string(route.np_ifname[i]) + ": ";
    if (stands_before(route, i))
        return name + "stands in the route twice, and counts once\n";
    std::string text =
        why_neighbour({route.vrf, host_of(gateway.family, gateway.address)}, reading);
    const bool is_neighbour = text.find("next hop ") != text.npos;
    if (text.empty())
        text = "not a neighbour, and nothing waits for it\n";
    if (is_neighbour && route.host_index[i] <= 0)
        text += "not used: the chip refused it, or the neighbour is on another interface\n";
    const std::size_t first = text.find('\n') + 1;
    return name + text.substr(0, first) + indented(text.substr(first), 4);
}

// A route's line, and one for each of its gateways.
std::string why_route(const dpm_route_entry &route, const Reading &reading) {
    std::string text = "route " + prefix_text(route.destination) + ": ";
    const std::string missing = missing_of(route);
    const std::string_view other = stand_in(route, reading);
    if (missing.empty() && !other.empty())
        return text +
               (other == "label" ? "a label entry for the same prefix"
                                 : "the host of this address") +
               " stands in its place\n";
    text += missing.empty() ? in_chip_text(reading.card.chip, route)
                            : "not in the chip: waits for " + missing;
    text += "\n";
    for (std::uint32_t i = 0; i < route.np_num; i++)
        text += indented(why_gateway(route, i, reading), 4);
    return text;
}

} // namespace

const TableOf<dpm_route_entry> routes{
    .each = walk<dpm_api_get_route_entry_first, dpm_api_get_route_entry_next>,
    .key =
        [](auto &route) {
            return "vrf " + std::to_string(route.vrf) + " " + prefix_text(route.destination);
        },
    .places =
        [](auto &route) {
            return std::vector<Place>{{route.vrf, route.destination}};
        },
    .own =
        [](auto &route, auto &reading) {
            route.node = {};
            route.delete_timer = {};
            for (std::size_t i = 0; i < std::size(route.np_ifindex); i++)
                route.np_ifindex[i] = leads(reading, route.np_ifname[i], route.np_ifindex[i]);
        },
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"destination", [](auto &route) { return prefix_text(route.destination); }},
                {"state", state_of},
                {"index", TABLE_MEMBER(sdk_index)},
                {"gateways", gateways_of},
                {"type", TABLE_MEMBER(route_type)},
                {"+ecmp", [](auto &route) { return yes_or_no(route.ecmp_enable == 1); }}},
    .in_chip = want_route,
    .waits_for = missing_of,
    .why = why_route,
};

} // namespace chassis::tables
