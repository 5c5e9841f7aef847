// Interfaces, addresses, VRFs and settings: what the routing suite asks of the card; and
// neighbours, as the IP stack tells about them.

#include "chassis/ctl/server/command.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace ctl::server {

static_assert(max_port == chassis::hal::max_port);

namespace {

using chassis::suite::Interface;

constexpr unsigned default_port = 1;

// Runs `act(interface)` for the interface that an argument names.
template <class Act> Reply with_interface(Command &command, std::string_view key, Act act) {
    const std::string name(command.line.value(key));
    const auto interface = command.card.suite.find(name);
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

dpm_host_info neighbour(const Command &command, const Interface &interface) {
    const Parsed &line = command.line;
    const Prefix ip = address_argument(command);
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

template <class Act> Reply with_neighbour(Command &command, Act act) {
    if (command.line.has("port") && command.line.has("trunk"))
        return refused("a neighbour is behind a port or a trunk, not both");
    return with_interface(command, "dev", [&](const Interface &interface) {
        return act(neighbour(command, interface));
    });
}

using AddressCall = int (chassis::suite::Suite::*)(const std::string &, std::uint32_t, const void *,
                                                   unsigned);

Reply change_address(Command &command, AddressCall call) {
    const Prefix prefix = *parse_prefix(command.line.value("PREFIX"));
    return with_interface(command, "dev", [&](const Interface &interface) {
        return answer((command.card.suite.*call)(interface.name, prefix.family,
                                                 prefix.address.data(), prefix.length));
    });
}

Reply change_sub(Command &command, std::uint32_t oper) {
    return answer(dpm_api_super_sub_proc(std::uint32_t(command.line.number("SUPERVLAN")),
                                         std::uint32_t(command.line.number("VLAN")), oper));
}

Reply change_vrf(Command &command, bool enable) {
    return answer(command.card.suite.enable_vrf(unsigned(command.line.number("VRF")), enable));
}

} // namespace

Reply unknown_interface(std::string_view name) {
    return {Status::no_interface, "unknown interface '" + std::string(name) + "'"};
}

Reply if_add(Command &command) {
    const std::string name(command.line.value("NAME"));
    const unsigned vlan = unsigned(command.line.number("vlan", vlan_of_name(name)));
    if (vlan == 0)
        return refused("which VLAN is '" + name + "' on? say vlan N");
    const std::uint32_t type = command.line.has("super") ? DPM_IF_SUPERVLAN : DPM_IF_VLANIF;
    return answer(command.card.suite.add_interface(name, type, vlan));
}

Reply if_del(Command &command) {
    return with_interface(command, "NAME", [&](const Interface &interface) {
        return answer(command.card.suite.del_interface(interface.name));
    });
}

Reply if_vrf(Command &command) {
    return with_interface(command, "NAME", [&](const Interface &interface) {
        return answer(
            command.card.suite.set_vrf(interface.name, unsigned(command.line.number("VRF"))));
    });
}

Reply if_list(Command &command) {
    std::string text;
    for (const Interface &interface : command.card.suite.interfaces())
        text += interface.name + "\n";
    return done(text);
}

Reply addr_add(Command &command) {
    return change_address(command, &chassis::suite::Suite::add_address);
}
Reply addr_del(Command &command) {
    return change_address(command, &chassis::suite::Suite::del_address);
}
Reply sub_add(Command &command) {
    return change_sub(command, DPM_OPER_ADD);
}
Reply sub_del(Command &command) {
    return change_sub(command, DPM_OPER_DEL);
}
// The platform tells of the members of trunks alone.
Reply vlan_port(Command &command) {
    const Parsed &line = command.line;
    const unsigned vlan = unsigned(line.number("VLAN")), trunk = unsigned(line.number("trunk"));
    if (trunk != 0 && line.has("PORT"))
        return refused("a port or a trunk, not both");
    const unsigned port =
        trunk != 0 ? chassis::hal::trunk_base + trunk : unsigned(line.number("PORT"));
    const unsigned before = command.card.suite.vlan_port(vlan);
    command.card.suite.set_vlan_port(vlan, port);
    int result = 0;
    for (const unsigned changed : {before, port})
        if (changed > chassis::hal::trunk_base)
            result |= command.card.hal.trunk_member(0, changed - chassis::hal::trunk_base, 0, 1);
    return answer(result);
}

Reply vrf_enable(Command &command) {
    return change_vrf(command, true);
}
Reply vrf_disable(Command &command) {
    return change_vrf(command, false);
}

Reply config(Command &command) {
    return done(command.server.settings().commands());
}

Reply hash(Command &command) {
    return answer(dpm_api_set_ecmp_hash(std::uint32_t(command.line.number("NUMBER"))));
}

Reply ospf(Command &command) {
    const Prefix prefix = *parse_prefix(command.line.value("PREFIX"));
    std::uint32_t network;
    std::memcpy(&network, prefix.address.data(), sizeof network);
    if (prefix.family != DPM_FAMILY_IPV4)
        return refused("OSPF is told by IPv4 networks");
    command.card.suite.run_ospf_on(network, prefix.length);
    return done();
}

Reply neigh_add(Command &command) {
    const std::string_view state = command.line.value(command.line.has("nud") ? "nud" : "NUD");
    if (!is_resolved(state))
        return refused("a neighbour in state " + std::string(state) + " is not learnt");
    return with_neighbour(
        command, [&](const dpm_host_info &info) { return answer(command.card.stack.learn(info)); });
}

Reply neigh_del(Command &command) {
    return with_neighbour(
        command, [&](const dpm_host_info &info) { return answer(command.card.stack.lose(info)); });
}

Reply neigh_reachable(Command &command) {
    return with_neighbour(command, [&](const dpm_host_info &info) {
        command.card.stack.declare_reachable(info);
        return done();
    });
}

Reply neigh_silent(Command &command) {
    return with_neighbour(command, [&](const dpm_host_info &info) {
        chassis::stack::NeighbourKey key{info.vrf, info.family, {}, 0};
        std::copy(std::begin(info.address), std::end(info.address), key.address.begin());
        key.ifindex = info.family == DPM_FAMILY_IPV6 ? info.ifindex : 0;
        command.card.stack.declare_silent(key);
        return done();
    });
}

} // namespace ctl::server
