// Routes, groups and label entries: requests as the routing suite makes them, and the tables.

#include "chassis/ctl/server/filter.h"

#include <algorithm>
#include <cstring>

namespace ctl::server {

namespace {

constexpr std::uint32_t learnt_by_protocol = 9; // a dynamic route type
const TwoForms no_route{"", "null"};

struct Gateway {
    std::optional<Prefix> address;
    std::string_view device;
};

// Each via begins a gateway, and so does a dev that belongs to none.
std::vector<Gateway> gateways_of(const Parsed &line) {
    std::vector<Gateway> gateways;
    for (const Argument &argument : line.arguments) {
        if (argument.key == "via")
            gateways.push_back({parse_address(argument.value), {}});
        else if (argument.key == "dev" && (gateways.empty() || !gateways.back().device.empty()))
            gateways.push_back({std::nullopt, argument.value});
        else if (argument.key == "dev")
            gateways.back().device = argument.value;
    }
    return gateways;
}

dpm_prefix record_of(const Prefix &prefix) {
    dpm_prefix record{};
    record.family = std::uint16_t(prefix.family);
    record.prefix_len = std::uint16_t(prefix.length);
    std::memcpy(record.address, prefix.address.data(), sizeof record.address);
    return record;
}

// "default" is of the family of its gateways, IPv4 when no address tells.
Prefix destination_of(const Parsed &line, const std::vector<Gateway> &gateways) {
    const std::string_view text = line.value("DEST");
    if (const auto prefix = parse_prefix(text))
        return *prefix;
    if (const auto address = parse_address(text))
        return *address;
    const auto told = std::ranges::find_if(
        gateways, [](const Gateway &gateway) { return gateway.address.has_value(); });
    return {told == gateways.end() ? DPM_FAMILY_IPV4 : told->address->family, {}, 0};
}

// The first interface with an address in the gateway's network, of a VRF when one is named; empty
// when there is none.
std::string interface_towards(Command &command, const Prefix &gateway) {
    std::string name;
    (void)command.server.settle(); // addresses may be on their way
    const TableLock lock;
    each_interface([&](const dpm_if_entry &interface) {
        const bool is_wanted =
            !command.line.has("vrf") || command.line.number("vrf") == interface.vrf;
        for (const dpm_if_ip_entry *address : addresses_of(interface))
            if (is_wanted && name.empty() && address->ip.family == gateway.family &&
                is_inside(prefix_of(address->ip), gateway.address.data()))
                name = interface.ifname;
    });
    return name;
}

Reply change_route(Command &command, std::uint32_t oper) {
    const Parsed &line = command.line;
    const std::vector<Gateway> gateways = gateways_of(line);
    if (gateways.size() > DPM_ROUTE_GATEWAYS)
        return refused("a route has at most 8 gateways");
    dpm_route_msg route{};
    route.route_type = std::uint32_t(line.number("type", learnt_by_protocol));
    route.destination = record_of(destination_of(line, gateways));
    route.np_num = std::uint32_t(gateways.size());
    for (std::size_t i = 0; i < gateways.size(); i++) {
        std::string name(gateways[i].device);
        if (name.empty())
            name = interface_towards(command, *gateways[i].address);
        if (oper == DPM_OPER_ADD && name.empty())
            return refused("which dev is gateway " + std::to_string(i + 1) + " on?");
        const auto interface = command.card.suite.find(name);
        if (!name.empty() && !interface)
            return unknown_interface(name);
        if (interface) {
            route.np_ifindex[i] = interface->ifindex;
            route.vrf = interface->vrf;
        }
        if (gateways[i].address)
            route.np[i] = record_of(*gateways[i].address);
    }
    route.vrf = std::uint32_t(line.number("vrf", route.vrf));
    return answer(dpm_api_route_pro(&route, oper));
}

TwoForms gateways_cell(const dpm_route_entry &route) {
    TwoForms cell;
    for (std::uint32_t i = 0; i < route.np_num; i++) {
        const bool has_address = route.np[i].family != DPM_FAMILY_NONE;
        const std::string address = text_of(route.np[i]);
        const std::string index = std::to_string(route.host_index[i]);
        const bool is_resolved = route.host_index[i] != -1;
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

std::string state_of(const dpm_route_entry &route, const StandIns &stand_ins) {
    if (route.sdk_index <= 0)
        return "waits";
    const std::string_view stand_in = stand_ins.of(route);
    return std::string(stand_in.empty() ? "chip" : stand_in);
}

template <class Entry> dpm_prefix fec_of(const Entry &entry) {
    dpm_prefix prefix{entry.ip_type, entry.prefixlen, {}};
    std::memcpy(prefix.address, entry.fec_prefix, sizeof prefix.address);
    return prefix;
}

template <class Entry> const char *label_state(const Entry &entry) {
    return entry.flags == DPM_LABEL_PROGRAMMED ? "chip"
           : entry.flags == DPM_LABEL_WAITING  ? "waits"
                                               : "new";
}

} // namespace

StandIns::StandIns() {
    each_ftn([&](const dpm_ftn &ftn) {
        if (ftn.vrf_id == 0)
            held_.emplace(chip_key(0, fec_of(ftn)), "label");
    });
    each_host([&](const dpm_host_entry &host) {
        if (!is_link_local(host.ip))
            held_.emplace(chip_key(host.vrf, host.ip), "host");
    });
}

std::string_view StandIns::of(const dpm_route_entry &route) const {
    const auto held = held_.find(chip_key(route.vrf, route.destination));
    return held == held_.end() ? std::string_view() : held->second;
}

Reply route_add(Command &command) {
    return change_route(command, DPM_OPER_ADD);
}
Reply route_replace(Command &command) {
    return route_add(command);
}
Reply route_del(Command &command) {
    return change_route(command, DPM_OPER_DEL);
}

Reply show_routes(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "destination", "state", "index", "gateways", "type", "+ecmp"});
    const TableLock lock;
    const StandIns stand_ins;
    each_route([&](const dpm_route_entry &route) {
        if (!filter.takes_network(route.vrf, route.destination))
            return;
        table.row({route.vrf, prefix_text(route.destination), state_of(route, stand_ins),
                   route.sdk_index, gateways_cell(route), route.route_type,
                   std::string(route.ecmp_enable == DPM_ROUTE_ECMP ? "yes" : "no")});
    });
    return print(command, table);
}

Reply show_ecmp(Command &command) {
    const Filter filter(command.line);
    Table table({"group", "family", "members", "nexthops", "vrf", "route"});
    const TableLock lock;
    std::map<std::int32_t, const dpm_route_entry *> routes; // by group
    each_route([&](const dpm_route_entry &route) {
        if (route.ecmp_enable == DPM_ROUTE_ECMP && route.sdk_index > 0)
            routes.emplace(route.sdk_index, &route);
    });
    each_group([&](const dpm_ecmp_entry &group) {
        const auto found = routes.find(group.sdk_index);
        const dpm_route_entry *const route = found == routes.end() ? nullptr : found->second;
        if (!filter.takes_all() &&
            (!route || !filter.takes_network(route->vrf, route->destination)))
            return;
        std::vector<std::int64_t> members;
        for (const std::uint32_t member : group.host_sdk)
            if (member != 0)
                members.push_back(member);
        table.row({group.sdk_index,
                   std::string(group.ecmp_type == DPM_FAMILY_IPV4 ? "IPv4" : "IPv6"),
                   group.host_cnt, members, route ? Cell(route->vrf) : Cell(no_route),
                   route ? Cell(prefix_text(route->destination)) : Cell(no_route)});
    });
    return print(command, table);
}

Reply show_ftn(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "fec", "state", "tunnel_label", "vpn_label", "nexthop", "+nhid",
                 "+tunnel_id", "+sdk_result"});
    const TableLock lock;
    each_ftn([&](const dpm_ftn &ftn) {
        const dpm_prefix fec = fec_of(ftn);
        if (filter.takes_network(ftn.vrf_id, fec))
            table.row({std::uint32_t(ftn.vrf_id), prefix_text(fec), std::string(label_state(ftn)),
                       std::uint32_t(ftn.tunnel_label), std::uint32_t(ftn.vpn_label),
                       address_text(ftn.tunnel_ip_type, ftn.tunnel_nhop), std::uint32_t(ftn.nhid),
                       std::uint32_t(ftn.tunnel_id), std::int32_t(ftn.sdk_result)});
    });
    return print(command, table);
}

Reply show_ilm(Command &command) {
    const Filter filter(command.line);
    Table table({"label", "vrf", "fec", "state", "swap", "nexthop", "interface", "+nhid",
                 "+tunnel_id", "+sdk_result"});
    const TableLock lock;
    each_ilm([&](const dpm_ilm &ilm) {
        const dpm_prefix fec = fec_of(ilm);
        if (filter.takes_network(ilm.vrf_id, fec))
            table.row({std::uint32_t(ilm.in_label), std::uint32_t(ilm.vrf_id), prefix_text(fec),
                       std::string(label_state(ilm)), std::uint32_t(ilm.swap_label),
                       address_text(ilm.tunnel_ip_type, ilm.tunnel_nhop),
                       std::string(ilm.out_ifname), std::uint32_t(ilm.nhid),
                       std::uint32_t(ilm.tunnel_id), std::int32_t(ilm.sdk_result)});
    });
    return print(command, table);
}

Reply route_show(Command &command) {
    return show_routes(command);
}
Reply ecmp_show(Command &command) {
    return show_ecmp(command);
}
Reply ftn_show(Command &command) {
    return show_ftn(command);
}
Reply ilm_show(Command &command) {
    return show_ilm(command);
}

} // namespace ctl::server
