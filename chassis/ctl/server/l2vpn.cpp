// Layer-2 services: requests as the routing suite makes them.  A record is filled, and what of it
// a request carries stands behind its links.

#include "chassis/ctl/server/command.h"

#include <cstring>

namespace ctl::server {

namespace {

using chassis::suite::Interface;

template <class Message, class Record>
Reply request(int (*ask)(const void *, std::uint32_t), const Record &record, std::uint32_t oper) {
    std::size_t links_bytes = sizeof record.node;
    if constexpr (requires { record.pend; })
        links_bytes += sizeof record.pend;
    Message message;
    std::memcpy(message.image, reinterpret_cast<const std::uint8_t *>(&record) + links_bytes,
                sizeof message.image);
    return answer(ask(&message, oper));
}

// The card's index of the interface that an attribute names, whose name is put; 0: of none.
std::uint32_t put_interface(char (&to)[DPM_IFNAME_BYTES], const Command &command,
                            std::string_view key) {
    const std::string name(command.line.value(key));
    name.copy(to, sizeof to - 1);
    const auto interface = command.card.suite.find(name);
    return interface ? interface->ifindex : 0;
}

// An add names interfaces that there are.
std::optional<Reply> unknown_of(const Command &command, std::uint32_t oper) {
    for (const char *key : {"NAME", "ac", "dev"})
        if (oper == DPM_OPER_ADD && command.line.has(key) &&
            !command.card.suite.find(std::string(command.line.value(key))))
            return unknown_interface(command.line.value(key));
    return {};
}

std::uint32_t number(const Command &command, std::string_view key) {
    return std::uint32_t(command.line.number(key));
}

void put_peer(std::uint8_t *to, std::string_view peer) {
    if (const auto address = parse_address(peer))
        std::memcpy(to, address->address.data(), 4);
}

template <class Record> Record circuit_of(const Command &command) {
    Record record{};
    record.ifindex = put_interface(record.ifname, command, "NAME");
    record.svlan_id = std::uint16_t(number(command, "svlan"));
    record.svlan_tpid = std::uint16_t(number(command, "tpid"));
    record.cvlan_id = std::uint16_t(number(command, "cvlan"));
    record.vlan_action = number(command, "action");
    return record;
}

template <class Record> Record way_out_of(const Command &command) {
    Record record{};
    record.vc_id = number(command, "vc-id");
    put_peer(record.vc_peer, command.line.value("peer"));
    record.out_label = number(command, "label");
    record.nw_ifindex = put_interface(record.out_ifname, command, "dev");
    record.c_word = command.line.has("control-word");
    record.pw_mode = std::uint16_t(number(command, "mode"));
    record.pw_index = number(command, "index");
    return record;
}

Reply change_vpws_ac(Command &command, std::uint32_t oper) {
    if (const auto error = unknown_of(command, oper))
        return *error;
    auto circuit = circuit_of<dpm_vpws_acif>(command);
    circuit.vc_id = number(command, "vc-id");
    circuit.matchRule = number(command, "match");
    return request<dpm_vpws_acif_msg>(dpm_api_set_vpws_acif_proc, circuit, oper);
}

Reply change_vpws_out(Command &command, std::uint32_t oper) {
    if (const auto error = unknown_of(command, oper))
        return *error;
    const bool is_standby = command.line.has("standby");
    if (is_standby && !command.line.has("sibling"))
        return refused("a standby pseudowire has a sibling");
    auto way = way_out_of<dpm_vpws_vc_fib>(command);
    way.ac_ifindex = put_interface(way.in_ifname, command, "ac");
    way.vc_role = is_standby ? DPM_VC_STANDBY : DPM_VC_PRIMARY;
    way.sibling_vc_id = number(command, "sibling");
    put_peer(way.sibling_vc_peer, command.line.value("PEER"));
    return request<dpm_vpws_vc_fib_msg>(dpm_api_set_vpws_vc_fib_proc, way, oper);
}

Reply change_vpws_in(Command &command, std::uint32_t oper) {
    if (const auto error = unknown_of(command, oper))
        return *error;
    dpm_vpws_vc_ilm way{};
    way.vpn_id = number(command, "vc-id");
    put_peer(way.vc_peer, command.line.value("peer"));
    way.in_label = number(command, "label");
    way.in_ifindex = put_interface(way.in_ifname, command, "dev");
    way.out_ifindex = put_interface(way.out_ifname, command, "ac");
    return request<dpm_vpws_vc_ilm_msg>(dpm_api_set_vpws_vc_ilm_proc, way, oper);
}

Reply change_vpls(Command &command, std::uint32_t oper) {
    dpm_vpls_vsi bridge{};
    bridge.vpls_id = number(command, "VPLSID");
    return request<dpm_vpls_vsi_msg>(dpm_api_set_vpls_vsi_proc, bridge, oper);
}

Reply change_vpls_ac(Command &command, std::uint32_t oper) {
    if (const auto error = unknown_of(command, oper))
        return *error;
    auto circuit = circuit_of<dpm_vpls_acif>(command);
    circuit.vpls_id = number(command, "vpls");
    return request<dpm_vpls_acif_msg>(dpm_api_set_vpls_acif_proc, circuit, oper);
}

Reply change_vpls_out(Command &command, std::uint32_t oper) {
    if (const auto error = unknown_of(command, oper))
        return *error;
    auto way = way_out_of<dpm_vpls_vc_fib>(command);
    way.vpls_id = number(command, "vpls");
    way.is_spoke = command.line.has("spoke");
    return request<dpm_vpls_vc_fib_msg>(dpm_api_set_vpls_vc_fib_proc, way, oper);
}

Reply change_vpls_in(Command &command, std::uint32_t oper) {
    if (const auto error = unknown_of(command, oper))
        return *error;
    dpm_vpls_vc_ilm way{};
    way.vpls_id = number(command, "vpls");
    way.vc_id = number(command, "vc-id");
    put_peer(way.vc_peer, command.line.value("peer"));
    way.in_label = number(command, "label");
    way.in_ifindex = put_interface(way.in_ifname, command, "dev");
    return request<dpm_vpls_vc_ilm_msg>(dpm_api_set_vpls_vc_ilm_proc, way, oper);
}

} // namespace

// Each request is an add and a delete.
#define CTL_L2VPN(change, add, del)                                                                \
    Reply add(Command &command) {                                                                  \
        return change(command, DPM_OPER_ADD);                                                      \
    }                                                                                              \
    Reply del(Command &command) {                                                                  \
        return change(command, DPM_OPER_DEL);                                                      \
    }

CTL_L2VPN(change_vpws_ac, l2vpn_vpws_bind, l2vpn_vpws_unbind)
CTL_L2VPN(change_vpws_out, l2vpn_vpws_out_add, l2vpn_vpws_out_del)
CTL_L2VPN(change_vpws_in, l2vpn_vpws_in_add, l2vpn_vpws_in_del)
CTL_L2VPN(change_vpls, l2vpn_vpls_add, l2vpn_vpls_del)
CTL_L2VPN(change_vpls_ac, l2vpn_vpls_bind, l2vpn_vpls_unbind)
CTL_L2VPN(change_vpls_out, l2vpn_vpls_out_add, l2vpn_vpls_out_del)
CTL_L2VPN(change_vpls_in, l2vpn_vpls_in_add, l2vpn_vpls_in_del)
#undef CTL_L2VPN

Reply l2vpn_switch(Command &command) {
    const dpm_pw_switch_msg message{.group = number(command, "NUMBER"),
                                    .use_standby = command.line.value("ROLE") == "standby"};
    return answer(dpm_api_set_pw_redundancy_switch_proc(&message, DPM_OPER_ADD));
}

} // namespace ctl::server
