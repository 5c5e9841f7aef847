// Tunnel requests of the routing suite, and readers of the tables of tunnels and their ports.
#include "dpm_tunnel.h"

#include "dpm_address.h"
#include "dpm_locks.h"
#include "dpm_memory.h"
#include "dpm_trace.h"

#include <cstdio>

namespace {

using dpm::call_site;

bool is_told_oper(std::uint32_t oper, const call_site &caller) {
    if (dpm::is_known_oper(oper))
        return true;
    DPM_LOG_FROM(caller, "%s %d::unkown oper %d!\r\n", oper);
    return false;
}

template <class Body>
int post(dpm::request<Body> &body, std::uint32_t code, const call_site &caller) {
    return body.post(code, {"%s %d::send msg err!\r\n", caller.function, caller.line});
}

void name_tunnel(char (&name)[DPM_IFNAME_BYTES], std::uint32_t tunnel_id) {
    std::snprintf(name, sizeof name, "tunnel%d", static_cast<int>(tunnel_id));
}

// One value, posted alike by either oper.
int post_value(std::uint32_t oper, std::uint32_t tunnel_id, std::uint32_t value, std::uint32_t code,
               const char *log_text, const call_site &caller) {
    if (!is_told_oper(oper, caller))
        return -1;
    dpm::request<dpm_tunnel_value_msg> body;
    if (!body)
        return -1;
    *body = {tunnel_id, value};
    DPM_LOG_FROM(caller, log_text, oper, tunnel_id, value);
    return post(body, code, caller);
}

// Source or destination.
int post_end(std::uint32_t oper, std::uint32_t tunnel_id, std::uint32_t tunnel_vrf,
             std::uint32_t address, const dpm::oper_codes &codes, const char *log_text,
             const call_site &caller) {
    if (!is_told_oper(oper, caller))
        return -1;
    dpm::request<dpm_tunnel_ip_msg> body;
    if (!body)
        return -1;
    *body = {tunnel_id, tunnel_vrf, dpm::host_prefix(DPM_FAMILY_IPV4, &address)};
    DPM_LOG_FROM(caller, log_text, oper, tunnel_id, tunnel_vrf, address);
    return post(body, codes.of(oper), caller);
}

bool is_length(std::uint32_t family, std::uint32_t prefix_len, const call_site &caller) {
    if (prefix_len <= dpm::host_bits(family))
        return true;
    DPM_LOG_FROM(caller, "%s %d::masklen = %d is err!\r\n", prefix_len);
    return false;
}

void print_tunnel(const dpm_tunnel_entry &tunnel) {
    const auto text = [](const dpm_prefix &ip) { return dpm::address_text(ip); };
    const std::int32_t *host = tunnel.host_index, *nexthop = tunnel.nexthop_index;
    std::printf("\r\ntunnel_id %d name %s \r\n", tunnel.tunnel_id, tunnel.name);
    std::printf("ip_vrfid %d \r\n", tunnel.ip_vrfid);
    std::printf("tunnel ipaddr %s masklen %d \r\n", text(tunnel.ip).c_str(), tunnel.ip.prefix_len);
    std::printf("tunnel mode %d\r\n", tunnel.mode);
    std::printf("tunnel vrf %d\r\n", tunnel.tunnel_vrf);
    std::printf("tunnel source %s destination %s \r\n", text(tunnel.source).c_str(),
                text(tunnel.destination).c_str());
    std::printf("checksum %d key_enable %d key %u \r\n", tunnel.checksum, tunnel.key_enable,
                tunnel.key);
    std::printf("route_flag %d\r\n", tunnel.route_flag);
    std::printf("route_prefix %s prefixlen %d\r\n", text(tunnel.route_prefix).c_str(),
                tunnel.route_prefix.prefix_len);
    std::printf("ecmp_enable %d \r\n", tunnel.ecmp_enable);
    std::printf("host_index %d/%d/%d/%d/%d/%d/%d/%d \r\n", host[0], host[1], host[2], host[3],
                host[4], host[5], host[6], host[7]);
    std::printf("sdk_index %d\r\n", tunnel.sdk_index);
    std::printf("nexthop_index %d/%d/%d/%d/%d/%d/%d/%d \r\n", nexthop[0], nexthop[1], nexthop[2],
                nexthop[3], nexthop[4], nexthop[5], nexthop[6], nexthop[7]);
}

} // namespace

int dpm_api_set_tunnel_proc(std::uint32_t oper, std::uint32_t tunnel_id) {
    if (!is_told_oper(oper, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_tunnel_msg> body;
    if (!body)
        return -1;
    body->tunnel_id = tunnel_id;
    name_tunnel(body->name, tunnel_id);
    DPM_TRACE("%s %d:: oper %d tunnel_id %d name %s\r\n", oper, tunnel_id, body->name);
    constexpr dpm::oper_codes codes = {DPM_MSG_ADD_TUNNEL, DPM_MSG_DEL_TUNNEL};
    return post(body, codes.of(oper), DPM_CALL_SITE);
}

int dpm_api_set_tunnel_ipvrf_proc(std::uint32_t oper, std::uint32_t tunnel_id,
                                  std::uint32_t ip_vrfid) {
    return post_value(oper, tunnel_id, ip_vrfid, DPM_MSG_UPDATE_TUNNEL_IPVRF,
                      "%s %d:: oper %d tunnel_id %d ipvrfid %d\r\n", DPM_CALL_SITE);
}

int dpm_api_set_tunnel_ip_proc(std::uint32_t oper, std::uint32_t tunnel_id, std::uint32_t ip_vrfid,
                               std::uint32_t family, const void *address,
                               std::uint32_t prefix_len) {
    if (address == nullptr) {
        DPM_PLAIN("%s::parameter is null!\r\n", __func__);
        return -1;
    }
    if (!dpm::is_known_oper(oper)) {
        DPM_TRACE("%s %d:: oper %d is err!\r\n", oper);
        return -1;
    }
    if (!dpm::is_known_family(family)) {
        DPM_TRACE("%s %d:: ip_type %d is err!\r\n", family);
        return -1;
    }
    if (!is_length(family, prefix_len, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_tunnel_ip_msg> body;
    if (!body)
        return -1;
    *body = {tunnel_id, ip_vrfid, dpm::host_prefix(family, address)};
    body->ip.prefix_len = static_cast<std::uint16_t>(prefix_len);
    constexpr dpm::oper_codes codes = {DPM_MSG_ADD_TUNNEL_IP, DPM_MSG_DEL_TUNNEL_IP};
    return post(body, codes.of(oper), DPM_CALL_SITE);
}

int dpm_api_set_tunnel_mode_proc(std::uint32_t oper, std::uint32_t tunnel_id, std::uint32_t mode) {
    return post_value(oper, tunnel_id, mode, DPM_MSG_UPDATE_TUNNEL_MODE,
                      "%s %d:: oper %d tunnel_id %d mode %d\r\n", DPM_CALL_SITE);
}

int dpm_api_set_tunnel_tunnelvrf_proc(std::uint32_t oper, std::uint32_t tunnel_id,
                                      std::uint32_t tunnel_vrf) {
    return post_value(oper, tunnel_id, tunnel_vrf, DPM_MSG_UPDATE_TUNNEL_VRF,
                      "%s %d:: oper %d tunnel_id %d tunnelvrf %d\r\n", DPM_CALL_SITE);
}

int dpm_api_set_tunnel_source_proc(std::uint32_t oper, std::uint32_t tunnel_id,
                                   std::uint32_t tunnel_vrf, std::uint32_t source) {
    return post_end(oper, tunnel_id, tunnel_vrf, source,
                    {DPM_MSG_ADD_TUNNEL_SRC, DPM_MSG_DEL_TUNNEL_SRC},
                    "%s %d:: oper %d tunnel_id %d tunnelvrf %d source %x \r\n", DPM_CALL_SITE);
}

int dpm_api_set_tunnel_destination_proc(std::uint32_t oper, std::uint32_t tunnel_id,
                                        std::uint32_t tunnel_vrf, std::uint32_t destination) {
    return post_end(oper, tunnel_id, tunnel_vrf, destination,
                    {DPM_MSG_ADD_TUNNEL_DEST, DPM_MSG_DEL_TUNNEL_DEST},
                    "%s %d:: oper %d tunnel_id %d tunnelvrf %d destination %x\r\n", DPM_CALL_SITE);
}

int dpm_api_set_tunnel_checksum_proc(std::uint32_t oper, std::uint32_t tunnel_id,
                                     std::uint32_t checksum) {
    return post_value(oper, tunnel_id, checksum, DPM_MSG_UPDATE_TUNNEL_CHECKSUM,
                      "%s %d:: oper %d tunnel_id %d checksum %d\r\n", DPM_CALL_SITE);
}

int dpm_api_set_tunnel_key_proc(std::uint32_t oper, std::uint32_t tunnel_id,
                                std::uint32_t key_enable, std::uint32_t key) {
    if (!is_told_oper(oper, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_tunnel_key_msg> body;
    if (!body)
        return -1;
    *body = {tunnel_id, key_enable, key};
    DPM_TRACE("%s %d:: oper %d tunnel_id %d key_enable %d key %u\r\n", oper, tunnel_id, key_enable,
              key);
    return post(body, DPM_MSG_UPDATE_TUNNEL_KEY, DPM_CALL_SITE);
}

int dpm_api_route_tunnel_pro(std::uint32_t oper, std::uint32_t vrf, std::uint32_t address,
                             std::uint32_t prefix_len, std::uint32_t tunnel_id) {
    if (!dpm::is_known_oper(oper)) {
        DPM_TRACE("%s %d:: unkown oper %d !\r\n", oper);
        return -1;
    }
    if (!is_length(DPM_FAMILY_IPV4, prefix_len, DPM_CALL_SITE))
        return -1;
    dpm::request<dpm_route_tunnel_msg> body;
    if (!body)
        return -1;
    body->vrf = vrf;
    body->destination = dpm::host_prefix(DPM_FAMILY_IPV4, &address);
    body->destination.prefix_len = static_cast<std::uint16_t>(prefix_len);
    name_tunnel(body->np_ifname, tunnel_id);
    DPM_TRACE("%s %d::oper %d vrfid %d np_name %s prefix %x.%x.%x.%x prefixlen %d\r\n", oper, vrf,
              body->np_ifname, DPM_IPV4_BYTES(body->destination), prefix_len);
    constexpr dpm::oper_codes codes = {DPM_MSG_ADD_ROUTE_TUNNEL, DPM_MSG_DEL_ROUTE_TUNNEL};
    return post(body, codes.of(oper), DPM_CALL_SITE);
}

const dpm_tunnel_entry *dpm_api_get_tunnel_entry_first() {
    return dpm::tunnels().first();
}
const dpm_tunnel_entry *dpm_api_get_tunnel_entry_next(const dpm_tunnel_entry *entry) {
    if (entry == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    return dpm::tunnels().next(*entry);
}

const dpm_tunnel_port_entry *dpm_api_get_tunnel_port_entry_first() {
    return dpm::tunnel_ports().first();
}
const dpm_tunnel_port_entry *
dpm_api_get_tunnel_port_entry_next(const dpm_tunnel_port_entry *entry) {
    if (entry == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    return dpm::tunnel_ports().next(*entry);
}

void dpm_tunnel_show() {
    const dpm::dpm_lock lock;
    for (const dpm_tunnel_entry &tunnel : dpm::tunnels())
        print_tunnel(tunnel);
}

void dpm_tunnel_port_show() {
    const dpm::dpm_lock lock;
    for (const dpm_tunnel_port_entry &port : dpm::tunnel_ports())
        std::printf("\r\nport_type %d port %d subport %d cnt %d\r\n", port.port_type, port.port,
                    port.subport, port.cnt);
}
