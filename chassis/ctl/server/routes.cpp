// Routes: requests as the routing suite makes them.

#include "chassis/ctl/server/command.h"

#include <algorithm>
#include <cstring>

namespace ctl::server {

namespace {

constexpr std::uint32_t learnt_by_protocol = 9; // a dynamic route type

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

// IPv4 when no gateway has an address.
std::uint32_t family_of(const std::vector<Gateway> &gateways) {
    const auto told = std::ranges::find_if(
        gateways, [](const Gateway &gateway) { return gateway.address.has_value(); });
    return told == gateways.end() ? DPM_FAMILY_IPV4 : told->address->family;
}

Reply change_route(Command &command, std::uint32_t oper) {
    const Parsed &line = command.line;
    if (const auto reply = change_tunnel_route(command, oper))
        return *reply;
    const std::vector<Gateway> gateways = gateways_of(line);
    if (gateways.size() > DPM_ROUTE_GATEWAYS)
        return refused("a route has at most 8 gateways");
    dpm_route_msg route{};
    route.route_type = std::uint32_t(line.number("type", learnt_by_protocol));
    route.destination = record_of(destination_argument(command, "DEST", family_of(gateways)));
    route.np_num = std::uint32_t(gateways.size());
    for (std::size_t i = 0; i < gateways.size(); i++) {
        std::string name(gateways[i].device);
        if (name.empty())
            name = interface_towards(command, *gateways[i].address, vrf_argument(command));
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

} // namespace

std::string interface_towards(Command &command, const Prefix &gateway,
                              std::optional<std::uint64_t> vrf) {
    std::string name;
    (void)command.server.settle(); // addresses may be on their way
    const Reading reading(command.card);
    tables::interfaces.each([&](const dpm_if_entry &interface) {
        for (const dpm_if_ip_entry *address : tables::addresses_of(interface))
            if ((!vrf || *vrf == interface.vrf) && name.empty() &&
                tables::covers(address->ip, record_of(gateway)))
                name = interface.ifname;
    });
    return name;
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

} // namespace ctl::server
