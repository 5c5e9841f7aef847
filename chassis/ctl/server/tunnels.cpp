// GRE tunnels: settings as the routing suite makes them one by one, in the words of `ip tunnel`.

#include "chassis/ctl/server/command.h"

#include <cstring>

namespace ctl::server {

namespace {

// The VRFs that a setting must name: those of the tunnel, once what was asked before is done.
struct Vrfs {
    std::uint32_t own = 0, underlay = 0;
};

Vrfs vrfs_of(Command &command, std::uint32_t tunnel_id) {
    (void)command.server.settle();
    const Reading reading(command.card);
    Vrfs vrfs;
    tables::tunnels.each([&](const dpm_tunnel_entry &tunnel) {
        if (tunnel.tunnel_id == tunnel_id)
            vrfs = {tunnel.ip_vrfid, tunnel.tunnel_vrf};
    });
    return vrfs;
}

std::uint32_t word_of(const Prefix &address) {
    std::uint32_t word;
    std::memcpy(&word, address.address.data(), sizeof word);
    return word;
}

// Settings that end others come first.
int set_basics(const Parsed &line, std::uint32_t id) {
    int result = 0;
    if (line.has("mode"))
        result |=
            dpm_api_set_tunnel_mode_proc(DPM_OPER_ADD, id, std::uint32_t(line.number("mode")));
    if (line.has("vrf"))
        result |=
            dpm_api_set_tunnel_ipvrf_proc(DPM_OPER_ADD, id, std::uint32_t(line.number("vrf")));
    if (line.has("underlay"))
        result |= dpm_api_set_tunnel_tunnelvrf_proc(DPM_OPER_ADD, id,
                                                    std::uint32_t(line.number("underlay")));
    if (line.has("csum"))
        result |=
            dpm_api_set_tunnel_checksum_proc(DPM_OPER_ADD, id, std::uint32_t(line.number("csum")));
    if (line.has("key") || line.has("nokey"))
        result |= dpm_api_set_tunnel_key_proc(DPM_OPER_ADD, id, line.has("key"),
                                              std::uint32_t(line.number("key")));
    return result;
}

int change_addresses(const Parsed &line, std::uint32_t oper, std::uint32_t id, Vrfs vrfs) {
    int result = 0;
    if (line.has("addr")) {
        const Prefix ip = *parse_prefix(line.value("addr"));
        result |=
            dpm_api_set_tunnel_ip_proc(oper, id, vrfs.own, ip.family, ip.address.data(), ip.length);
    }
    if (line.has("local"))
        result |= dpm_api_set_tunnel_source_proc(oper, id, vrfs.underlay,
                                                 word_of(*parse_address(line.value("local"))));
    if (line.has("remote"))
        result |= dpm_api_set_tunnel_destination_proc(
            oper, id, vrfs.underlay, word_of(*parse_address(line.value("remote"))));
    return result;
}

bool names_address(const Parsed &line) {
    return line.has("addr") || line.has("local") || line.has("remote");
}

bool has_ipv6_end(const Parsed &line) {
    for (const char *key : {"local", "remote"})
        if (line.has(key) && parse_address(line.value(key))->family != DPM_FAMILY_IPV4)
            return true;
    return false;
}

Reply set(Command &command, std::uint32_t id) {
    if (has_ipv6_end(command.line))
        return refused("a tunnel leads over IPv4");
    int result = set_basics(command.line, id);
    if (names_address(command.line))
        result |= change_addresses(command.line, DPM_OPER_ADD, id, vrfs_of(command, id));
    return answer(result);
}

std::uint32_t tunnel_argument(const Command &command) {
    return *parse_tunnel(command.line.value("TUNNEL"));
}

} // namespace

Reply tunnel_add(Command &command) {
    const std::uint32_t id = tunnel_argument(command);
    if (dpm_api_set_tunnel_proc(DPM_OPER_ADD, id) != 0)
        return answer(-1);
    return set(command, id);
}

Reply tunnel_set(Command &command) {
    return set(command, tunnel_argument(command));
}

Reply tunnel_del(Command &command) {
    const std::uint32_t id = tunnel_argument(command);
    if (!names_address(command.line))
        return answer(dpm_api_set_tunnel_proc(DPM_OPER_DEL, id));
    if (has_ipv6_end(command.line))
        return refused("a tunnel leads over IPv4");
    return answer(change_addresses(command.line, DPM_OPER_DEL, id, vrfs_of(command, id)));
}

// A route without gateway address over what has a tunnel's name and is no interface.
std::optional<Reply> change_tunnel_route(Command &command, std::uint32_t oper) {
    const Parsed &line = command.line;
    const auto id = parse_tunnel(line.value("dev"));
    if (!id || line.has("via") || line.values("dev").size() != 1 ||
        command.card.suite.find(std::string(line.value("dev"))))
        return std::nullopt;
    const Prefix to = destination_argument(command, "DEST", DPM_FAMILY_IPV4);
    if (to.family != DPM_FAMILY_IPV4)
        return refused("routes over tunnels are IPv4");
    const std::uint32_t vrf =
        line.has("vrf") ? std::uint32_t(line.number("vrf")) : vrfs_of(command, *id).own;
    return answer(dpm_api_route_tunnel_pro(oper, vrf, word_of(to), to.length, *id));
}

} // namespace ctl::server
