// Interfaces, addresses, VRFs and settings: what the routing suite asks of the card; and
// neighbours, as the IP stack tells about them.

#include "chassis/ctl/server/request.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace ctl::server {

static_assert(max_port == chassis::hal::max_port);

namespace {

using chassis::suite::Interface;

constexpr unsigned default_port = 1;

// Runs `act(interface)` for the interface that an argument names.
template <class Act> Reply with_interface(Request &request, std::string_view key, Act act) {
    const std::string name(request.line.value(key));
    const auto interface = request.card.suite.find(name);
    return interface ? act(*interface) : unknown_interface(name);
}

// The VLAN of a name like vlanif100; 0 for another name.
unsigned vlan_of_name(std::string_view name) {
    constexpr std::string_view head = "vlanif";
    if (!name.starts_with(head))
        return 0;
    const auto number = parse_number(name.substr(head.size()));
    return number && *number <= max_vlan ? unsigned(*number) : 0;
}

dpm_host_info neighbour(const Request &request, const Interface &interface) {
    const Parsed &line = request.line;
    const Prefix ip = address_argument(request);
    dpm_host_info info{};
    info.vrf = interface.vrf;
    info.ifindex = interface.ifindex;
    info.family = std::uint8_t(ip.family);
    std::memcpy(info.address, ip.address.data(), sizeof info.address);
    const Mac mac = parse_mac(line.value("lladdr")).value_or(Mac{});
    std::copy(mac.begin(), mac.end(), info.mac);
    info.supervlan = std::uint32_t(interface.vlan);
    info.svlan = std::uint32_t(line.number("vlan", info.supervlan));
    info.cvlan = std::uint32_t(line.number("cvlan"));
    if (line.has("trunk")) {
        info.port_type = DPM_PORT_LOGICAL;
        info.log_port_id = std::uint32_t(line.number("trunk"));
    } else { // type 0: link events find the neighbour by its port number
        info.log_port_id = info.phy_port_id = std::uint32_t(line.number("port", default_port));
    }
    return info;
}

bool is_resolved(std::string_view state) {
    std::string upper(state);
    std::ranges::transform(upper, upper.begin(),
                           [](unsigned char c) { return char(std::toupper(c)); });
    return upper != "FAILED" && upper != "INCOMPLETE" && upper != "NONE";
}

template <class Act> Reply with_neighbour(Request &request, Act act) {
    if (request.line.has("port") && request.line.has("trunk"))
        return refused("a neighbour is behind a port or a trunk, not both");
    return with_interface(request, "dev", [&](const Interface &interface) {
        return act(neighbour(request, interface));
    });
}

using AddressCall = int (chassis::suite::Suite::*)(const std::string &, std::uint32_t, const void *,
                                                   unsigned);

Reply change_address(Request &request, AddressCall call) {
    const Prefix prefix = *parse_prefix(request.line.value("PREFIX"));
    return with_interface(request, "dev", [&](const Interface &interface) {
        return answer((request.card.suite.*call)(interface.name, prefix.family,
                                                 prefix.address.data(), prefix.length));
    });
}

Reply change_sub(Request &request, std::uint32_t oper) {
    return answer(dpm_api_super_sub_proc(std::uint32_t(request.line.number("SUPERVLAN")),
                                         std::uint32_t(request.line.number("VLAN")), oper));
}

Reply change_vrf(Request &request, std::uint32_t state) {
    const std::uint32_t vrf = std::uint32_t(request.line.number("VRF"));
    const Reply reply = answer(dpm_api_set_vrf_enable(vrf, state));
    if (reply.status != Status::ok)
        return reply;
    if (state == DPM_DISABLE)
        request.server.disabled_vrfs.insert(vrf);
    else
        request.server.disabled_vrfs.erase(vrf);
    return reply;
}

} // namespace

Reply unknown_interface(std::string_view name) {
    return {Status::no_interface, "unknown interface '" + std::string(name) + "'"};
}

Reply if_add(Request &request) {
    const std::string name(request.line.value("NAME"));
    const unsigned vlan = unsigned(request.line.number("vlan", vlan_of_name(name)));
    if (vlan == 0)
        return refused("which VLAN is '" + name + "' on? say vlan N");
    const std::uint32_t type = request.line.has("super") ? DPM_IF_SUPERVLAN : DPM_IF_VLANIF;
    return answer(request.card.suite.add_interface(name, type, vlan));
}

Reply if_del(Request &request) {
    return with_interface(request, "NAME", [&](const Interface &interface) {
        return answer(request.card.suite.del_interface(interface.name));
    });
}

Reply if_vrf(Request &request) {
    return with_interface(request, "NAME", [&](const Interface &interface) {
        return answer(
            request.card.suite.set_vrf(interface.name, unsigned(request.line.number("VRF"))));
    });
}

Reply if_list(Request &request) {
    std::string text;
    for (const Interface &interface : request.card.suite.interfaces())
        text += interface.name + "\n";
    return done(text);
}

Reply addr_add(Request &request) {
    return change_address(request, &chassis::suite::Suite::add_address);
}
Reply addr_del(Request &request) {
    return change_address(request, &chassis::suite::Suite::del_address);
}
Reply sub_add(Request &request) {
    return change_sub(request, DPM_OPER_ADD);
}
Reply sub_del(Request &request) {
    return change_sub(request, DPM_OPER_DEL);
}
Reply vrf_enable(Request &request) {
    return change_vrf(request, DPM_ENABLE);
}
Reply vrf_disable(Request &request) {
    return change_vrf(request, DPM_DISABLE);
}

Reply hash(Request &request) {
    return answer(dpm_api_set_ecmp_hash(std::uint32_t(request.line.number("NUMBER"))));
}

Reply ospf(Request &request) {
    const Prefix prefix = *parse_prefix(request.line.value("PREFIX"));
    std::uint32_t network;
    std::memcpy(&network, prefix.address.data(), sizeof network);
    if (prefix.family != DPM_FAMILY_IPV4)
        return refused("OSPF is told by IPv4 networks");
    request.card.suite.run_ospf_on(network, prefix.length);
    return done();
}

Reply neigh_add(Request &request) {
    const std::string_view state = request.line.value(request.line.has("nud") ? "nud" : "NUD");
    if (!is_resolved(state))
        return refused("a neighbour in state " + std::string(state) + " is not learnt");
    return with_neighbour(
        request, [&](const dpm_host_info &info) { return answer(request.card.stack.learn(info)); });
}

Reply neigh_del(Request &request) {
    return with_neighbour(
        request, [&](const dpm_host_info &info) { return answer(request.card.stack.lose(info)); });
}

Reply neigh_reachable(Request &request) {
    return with_neighbour(request, [&](const dpm_host_info &info) {
        request.card.stack.declare_reachable(info);
        return done();
    });
}

Reply neigh_silent(Request &request) {
    return with_neighbour(request, [&](const dpm_host_info &info) {
        chassis::stack::NeighbourKey key{info.vrf, info.family, {}, 0};
        std::copy(std::begin(info.address), std::end(info.address), key.address.begin());
        key.ifindex = info.family == DPM_FAMILY_IPV6 ? info.ifindex : 0;
        request.card.stack.declare_silent(key);
        return done();
    });
}

} // namespace ctl::server
