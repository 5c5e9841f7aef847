// Label switching: requests as the routing suite makes them, in the words of `ip -f mpls route` and of
// `ip route` with encap mpls.

#include "chassis/ctl/server/command.h"

#include <cstring>

namespace ctl::server {

namespace {

constexpr std::uint32_t implicit_null = 3; // the packet leaves without this label

// The family of an address that is put.
std::uint8_t put(std::uint8_t (&to)[16], const Prefix &prefix) {
    std::memcpy(to, prefix.address.data(), sizeof to);
    return std::uint8_t(prefix.family);
}

// The interface that a command names, or else the one towards its next hop.  What an add lacks is
// said in the reply; a delete needs none.
struct Way {
    std::optional<chassis::suite::Interface> interface;
    std::optional<Reply> error;
};

Way way_to(Command &command, std::uint32_t oper, const std::optional<Prefix> &nexthop,
           std::optional<std::uint64_t> vrf) {
    std::string name(command.line.value("dev"));
    if (name.empty() && nexthop && oper == DPM_OPER_ADD)
        name = interface_towards(command, *nexthop, vrf);
    Way way{command.card.suite.find(name), {}};
    if (way.interface || oper == DPM_OPER_DEL)
        return way;
    if (!name.empty())
        way.error = unknown_interface(name);
    else if (nexthop)
        way.error = refused("which dev is the next hop on?");
    return way;
}

Reply change_interface(Command &command, std::uint32_t oper) {
    const std::string name(command.line.value("NAME"));
    const auto interface = command.card.suite.find(name);
    if (!interface && oper == DPM_OPER_ADD)
        return unknown_interface(name);
    dpm_mpls_if_msg request{};
    request.ifindex = interface ? interface->ifindex : 0; // of one that has gone the name tells
    name.copy(request.ifname, sizeof request.ifname - 1);
    request.label_space = std::uint32_t(command.line.number("space"));
    return answer(dpm_api_set_mpls_if_proc(&request, oper));
}

// A tunnel stands in the place of its own remote end.
Reply change_ftn(Command &command, std::uint32_t oper) {
    const Parsed &line = command.line;
    const Prefix nexthop = *parse_address(line.value("via"));
    const Prefix fec = destination_argument(command, "DEST", nexthop.family);
    const Labels labels = parse_labels(line.value("mpls")).value_or(Labels{});
    dpm_ftn_msg request{};
    request.vrf_id = std::uint32_t(line.number("vrf"));
    if (request.vrf_id == 0 && labels.are_two)
        return refused("a tunnel has one label; two are of a prefix of a VRF");
    if (request.vrf_id == 0 && line.has("remote"))
        return refused("vrf 0 has tunnels alone, without a remote end");
    const Way way = way_to(command, oper, nexthop, 0);
    if (way.error)
        return *way.error;
    request.ifindex = way.interface ? way.interface->ifindex : 0;
    request.family = put(request.fec_prefix, fec);
    request.prefixlen = std::uint8_t(fec.length);
    request.tunnel_ip_type = put(request.tunnel_nhop, nexthop);
    request.tunnel_label = labels.outer;
    request.vpn_label = request.vrf_id ? labels.inner : 0;
    request.vpn_nhop_af = put(request.vpn_nhop, parse_address(line.value("remote")).value_or(fec));
    return answer(dpm_api_set_mpls_ftn_proc(&request, oper));
}

// Without a next hop the packet has arrived.
Reply change_ilm(Command &command, std::uint32_t oper) {
    const Parsed &line = command.line;
    const std::string_view family = line.value("via");
    const auto nexthop = parse_address(line.value("IP"));
    if (nexthop && (nexthop->family == DPM_FAMILY_IPV4) != (family == "inet"))
        return refused(std::string(line.value("IP")) + " is no " + std::string(family) +
                       " address");
    if (!nexthop && line.has("as"))
        return refused("a label that is swapped needs a next hop (via)");
    const Way way = way_to(command, oper, nexthop, vrf_argument(command));
    if (way.error)
        return *way.error;
    dpm_ilm_msg request{};
    request.in_label = std::uint32_t(line.number("LABEL"));
    request.swap_label = std::uint32_t(line.number("as", implicit_null));
    request.is_egress = !nexthop;
    const Prefix fec =
        destination_argument(command, "fec", nexthop ? nexthop->family : DPM_FAMILY_IPV4);
    request.family = put(request.fec_prefix, fec);
    request.prefixlen = std::uint8_t(fec.length);
    request.tunnel_ip_type =
        nexthop ? put(request.tunnel_nhop, *nexthop) : std::uint8_t(fec.family);
    if (way.interface) {
        request.out_ifindex = way.interface->ifindex;
        request.vrf_id = way.interface->vrf;
    }
    request.vrf_id = std::uint32_t(line.number("vrf", request.vrf_id));
    return answer(dpm_api_set_mpls_ilm_proc(&request, oper));
}

} // namespace

Reply mpls_if_add(Command &command) {
    return change_interface(command, DPM_OPER_ADD);
}
Reply mpls_if_del(Command &command) {
    return change_interface(command, DPM_OPER_DEL);
}
Reply mpls_ftn_add(Command &command) {
    return change_ftn(command, DPM_OPER_ADD);
}
Reply mpls_ftn_del(Command &command) {
    return change_ftn(command, DPM_OPER_DEL);
}
Reply mpls_ilm_add(Command &command) {
    return change_ilm(command, DPM_OPER_ADD);
}
Reply mpls_ilm_del(Command &command) {
    return change_ilm(command, DPM_OPER_DEL);
}

} // namespace ctl::server
