// why: whether the chip has an address or a prefix and, if not, what is missing.
//
// An address is looked for among hosts, then among what is waited for and held; a prefix among
// routes.  A route is followed to its place in the chip (entry, group, next hops) and to each of
// its gateways, which are addresses again.  What no table has is answered with the longest route
// that covers it.

#include "chassis/ctl/server/filter.h"

#include <algorithm>
#include <cstring>

namespace ctl::server {

namespace {

using chassis::chip::Chip;

constexpr unsigned group_capacity = 1024; // of the library, both families

std::string seconds_text(std::int64_t seconds) {
    return std::to_string(seconds) + " s";
}

bool is_address(const dpm_prefix &prefix, const Prefix &ip) {
    return prefix.family == ip.family &&
           std::memcmp(prefix.address, ip.address.data(), ip.address.size()) == 0;
}

std::string indented(std::string text, std::size_t columns) {
    for (std::size_t at = 0; at < text.size(); at = std::min(text.find('\n', at), text.size()) + 1)
        text.insert(at, columns, ' ');
    return text;
}

// --- addresses -------------------------------------------------------------------------------

// The hosts' lines; empty when the table has none.
std::string why_host(const Command &command, std::uint32_t vrf, const Prefix &ip) {
    std::string text;
    each_host([&](const dpm_host_entry &host) {
        if (host.vrf != vrf || !is_address(host.ip, ip))
            return;
        const auto found =
            command.card.chip.lookup(std::int32_t(vrf), ip.family, ip.address.data());
        const bool in_chip =
            found && found->entry.prefix_len == ip.length && found->index == host.sdk_index;
        text += in_chip ? "in the chip, "
                : is_link_local(host.ip)
                    ? "a neighbour; link-local addresses have no entry in the chip, "
                    : "a neighbour, but not in the chip, ";
        text += "next hop " + std::to_string(host.sdk_index) + ": " + mac_text(host.mac) +
                " port " + port_text(host.port_type, host.log_port_id, host.phy_port_id) +
                " vlan " + std::to_string(host.svlan) + " on " + host.ifname + "\n";
    });
    return text;
}

std::string why_waiting(const Command &command, std::uint32_t vrf, const Prefix &ip) {
    std::string text;
    const std::int64_t now = command.card.os.now_nsec() / 1'000'000'000;
    each_unreachable([&](const dpm_unreachable_entry &entry) {
        if (entry.vrf == vrf && is_address(entry.ip, ip))
            text += "waits for the neighbour to answer since " +
                    seconds_text(now - dpm_api_get_unreachable_since(vrf, &entry.ip)) + "; " +
                    std::to_string(entry.probe_cnt) + " probes left, the next in " +
                    seconds_text(entry.timer.expiry_sec - now) + "\n";
    });
    each_hold([&](const dpm_hold_entry &entry) {
        if (entry.vrf == vrf && is_address(entry.ip, ip))
            text += "held since port " +
                    port_text(entry.port_type, entry.log_port_id, entry.phy_port_id) +
                    " went down; forgotten in " + seconds_text(entry.timer.expiry_sec - now) + "\n";
    });
    return text;
}

// --- routes ----------------------------------------------------------------------------------

// What a route points to, down to what the chip does not have of it; the caller holds the chip's
// lock.
std::string target_text(const Chip &chip, const dpm_route_entry &route) {
    const auto index = std::uint32_t(route.sdk_index);
    const auto lacks = [&](std::uint32_t nexthop) {
        return !chip.nexthops.contains(nexthop) && nexthop != to_cpu;
    };
    if (route.ecmp_enable != DPM_ROUTE_ECMP)
        return index == to_cpu ? "to the CPU"
                               : "by next hop " + std::to_string(index) +
                                     (lacks(index) ? ", which the chip does not have" : "");
    std::string text = "by group " + std::to_string(index);
    const auto group = chip.groups.find(index);
    if (group == chip.groups.end())
        return text + ", which the chip does not have";
    for (const std::uint32_t member : group->second)
        text += (member == group->second.front() ? " of next hops " : " ") +
                std::to_string(member) + (lacks(member) ? " (which the chip does not have)" : "");
    return text;
}

// Gateways are resolved, but the groups are all in use or the chip refused one more.
bool is_without_group(const dpm_route_entry &route) {
    return route.ecmp_enable == DPM_ROUTE_ECMP &&
           std::ranges::any_of(route.host_index, [](std::int32_t index) { return index > 0; });
}

unsigned group_count() {
    unsigned count = 0;
    each_group([&](const dpm_ecmp_entry &) { count++; });
    return count;
}

std::string route_state(const Chip &chip, const dpm_route_entry &route) {
    if (route.np_num == 0)
        return "not in the chip: it has no gateway";
    if (route.sdk_index <= 0 && is_without_group(route))
        return "not in the chip: it has no group (" + std::to_string(group_count()) + " of " +
               std::to_string(group_capacity) + " in use)";
    if (route.sdk_index <= 0)
        return "not in the chip: it uses none of its gateways";
    const auto lock = chip.lock();
    const Prefix destination = prefix_of(route.destination);
    const auto entry = chip.entries.find(
        {std::int32_t(route.vrf), destination.family, destination.address, destination.length});
    if (entry == chip.entries.end())
        return "not in the chip, which should have it " + target_text(chip, route);
    if (entry->second != std::uint32_t(route.sdk_index))
        return "the chip has it by index " + std::to_string(entry->second) + ", not " +
               target_text(chip, route);
    return "in the chip, " + target_text(chip, route);
}

std::string why_gateway(const Command &command, const dpm_route_entry &route, std::uint32_t i) {
    const dpm_prefix &gateway = route.np[i];
    if (gateway.family == DPM_FAMILY_NONE)
        return std::string("directly connected on ") + route.np_ifname[i] + ", to the CPU\n";
    const std::string name =
        "gateway " + text_of(gateway) + " on " + std::string(route.np_ifname[i]) + ": ";
    if (gateway.family != route.destination.family)
        return name + "of another family than the route, and so not used\n";
    Prefix ip = prefix_of(gateway);
    ip.length = host_length(ip.family);
    const std::string host = why_host(command, route.vrf, ip);
    std::string text = host + why_waiting(command, route.vrf, ip);
    if (text.empty())
        text = "not a neighbour, and nothing waits for it\n";
    if (!host.empty() && route.host_index[i] <= 0)
        text += "not used: the chip refused it, or the neighbour is on another interface\n";
    const std::size_t first = text.find('\n') + 1;
    return name + text.substr(0, first) + indented(text.substr(first), 4);
}

// A route's line, and one for each of its gateways.
std::string why_route(const Command &command, const dpm_route_entry &route) {
    std::string text = "route " + prefix_text(route.destination) + ": ";
    const std::string_view stand_in = StandIns().of(route);
    if (route.sdk_index > 0 && stand_in == "label")
        return text + "a label entry for the same prefix stands in its place\n";
    if (route.sdk_index > 0 && stand_in == "host")
        return text + "the host of this address stands in its place\n";
    text += route_state(command.card.chip, route) + "\n";
    for (std::uint32_t i = 0; i < route.np_num; i++)
        text += indented(why_gateway(command, route, i), 4);
    return text;
}

// The routes to this network, whatever host bits they were given with.
std::string why_routes(const Command &command, std::uint32_t vrf, const Prefix &network) {
    std::string text;
    each_route([&](const dpm_route_entry &route) {
        const dpm_prefix &destination = route.destination;
        if (route.vrf == vrf && destination.family == network.family &&
            destination.prefix_len == network.length && is_inside(network, destination.address))
            text += why_route(command, route);
    });
    return text;
}

// The longest route, in the chip or not, that leads to an address or network.
const dpm_route_entry *covering_route(std::uint32_t vrf, const Prefix &ip) {
    const dpm_route_entry *longest = nullptr;
    each_route([&](const dpm_route_entry &route) {
        const dpm_prefix &destination = route.destination;
        if (route.vrf == vrf && destination.family == ip.family &&
            destination.prefix_len < ip.length &&
            is_inside(prefix_of(destination), ip.address.data()) &&
            (!longest || destination.prefix_len > longest->destination.prefix_len))
            longest = &route;
    });
    return longest;
}

std::string why_absent(const Command &command, std::uint32_t vrf, const Prefix &ip) {
    const bool is_host = ip.length == host_length(ip.family);
    const std::string absent = is_host ? "not a neighbour" : "no route";
    const auto in_chip = command.card.chip.lookup(std::int32_t(vrf), ip.family, ip.address.data());
    for (const dpm_host_info &info : command.card.stack.cache())
        if (is_host && info.family == ip.family &&
            std::memcmp(info.address, ip.address.data(), ip.family == 1 ? 4 : 16) == 0)
            return "the IP stack knows it in vrf " + std::to_string(info.vrf) +
                   ", but no table has it in vrf " + std::to_string(vrf) + "\n";
    if (const dpm_route_entry *const route = covering_route(vrf, ip))
        return absent + "; what covers it is\n" + why_route(command, *route);
    if (in_chip)
        return absent + "; the chip has it under " +
               address_text(ip.family, in_chip->entry.bytes.data()) + "/" +
               std::to_string(in_chip->entry.prefix_len) + "\n";
    return absent + (is_host ? ", and nothing waits for it\n" : "\n");
}

} // namespace

Reply why(Command &command) {
    const std::string question(command.line.value("SUBNET"));
    const std::uint32_t vrf = std::uint32_t(command.line.number("vrf"));
    const TableLock lock;
    if (question == "default") {
        const std::string text = why_routes(command, vrf, {DPM_FAMILY_IPV4, {}, 0}) +
                                 why_routes(command, vrf, {DPM_FAMILY_IPV6, {}, 0});
        return done(question + ": " + (text.empty() ? "no route\n" : text));
    }
    const auto address = parse_address(question);
    const Prefix ip = address ? *address : *parse_prefix(question); // the language has checked it
    std::string text = why_routes(command, vrf, ip);
    if (ip.length == host_length(ip.family))
        text = why_host(command, vrf, ip) + why_waiting(command, vrf, ip) + text;
    if (text.empty())
        text = why_absent(command, vrf, ip);
    return done(question + ": " + text);
}

} // namespace ctl::server
