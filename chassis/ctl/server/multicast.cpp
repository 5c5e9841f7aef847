// Multicast: sources of groups as the routing suite installs them, listening, and frames that a port
// receives.

#include "chassis/ctl/server/command.h"

namespace ctl::server {

namespace {

constexpr std::uint16_t usual_vlan = 1; // of a frame without a tag

// The first interface is the one that packets come in on, and tells the VRF; a delete needs none.
Reply change_mroute(Command &command, std::uint32_t oper) {
    const Parsed &line = command.line;
    dpm_ipmc_request request{};
    if (const std::string_view source = line.value("SOURCE"); !is_any_source(source))
        request.source = record_of(address_argument(command, "SOURCE"));
    request.group = record_of(address_argument(command, "GROUP"));
    if (request.source.family != DPM_FAMILY_NONE && request.source.family != request.group.family)
        return refused("source and group are of two families");
    const std::vector<std::string_view> names = line.values("NAME");
    if (names.size() > 1 + DPM_IPMC_OUT_VLANS)
        return refused("a source has at most 64 outgoing interfaces");
    for (const std::string_view name : names) {
        const auto interface = command.card.suite.find(std::string(name));
        if (!interface && oper == DPM_OPER_ADD)
            return unknown_interface(name);
        const std::uint32_t ifindex = interface ? interface->ifindex : 0;
        const bool is_first = name.data() == names.front().data();
        if (is_first && interface)
            request.vrf = interface->vrf;
        (is_first ? request.iif : request.oif[request.oif_num++]) = ifindex;
    }
    request.vrf = std::uint32_t(line.number("vrf", request.vrf));
    return answer(dpm_api_set_ipmc_proc(&request, oper));
}

} // namespace

Reply mroute_add(Command &command) {
    return change_mroute(command, DPM_OPER_ADD);
}
Reply mroute_del(Command &command) {
    return change_mroute(command, DPM_OPER_DEL);
}

Reply mcast_snoop(Command &command) {
    const std::uint32_t state = command.line.value("SWITCH") == "on" ? DPM_ENABLE : DPM_DISABLE;
    const std::string_view family = command.line.value("FAMILY");
    if (family != "inet6")
        (void)dpm_api_set_unknown_ipmc_to_cpu(DPM_FAMILY_IPV4, state);
    if (family != "inet")
        (void)dpm_api_set_unknown_ipmc_to_cpu(DPM_FAMILY_IPV6, state);
    return done();
}

Reply rx(Command &command) {
    const Parsed &line = command.line;
    const auto bytes = parse_bytes(line.value("hex"));
    if (!line.has("hex") || line.has("PATH") || line.has("live"))
        return refused("captures are read by the client");
    command.card.ports.feed({std::uint32_t(line.number("PORT")),
                             std::uint16_t(line.number("vlan", usual_vlan)), *bytes});
    return done();
}

} // namespace ctl::server
