// GRE tunnels: what other tables and the worker ask of them.  On the worker, under the DPM lock.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_tunnel_entry) == 264);
static_assert(offsetof(dpm_tunnel_entry, ip_vrfid) == 84);
static_assert(offsetof(dpm_tunnel_entry, source) == 116);
static_assert(offsetof(dpm_tunnel_entry, route_flag) == 168);
static_assert(offsetof(dpm_tunnel_entry, host_index) == 192);
static_assert(offsetof(dpm_tunnel_entry, sdk_index) == 228);
static_assert(sizeof(dpm_tunnel_port_entry) == 32);
static_assert(offsetof(dpm_tunnel_port_entry, cnt) == 28);

inline constexpr std::uint32_t DPM_TUNNEL_PATHS = 8; // next hops of a tunnel

// Requests, as they are posted.
struct dpm_tunnel_msg {
    std::uint32_t tunnel_id;
    char name[DPM_IFNAME_BYTES];
};
static_assert(sizeof(dpm_tunnel_msg) == 68);

struct dpm_tunnel_value_msg {
    std::uint32_t tunnel_id;
    std::uint32_t value; // a VRF, the mode, or the checksum
};
static_assert(sizeof(dpm_tunnel_value_msg) == 8);

struct dpm_tunnel_ip_msg {
    std::uint32_t tunnel_id;
    std::uint32_t vrf;
    dpm_prefix ip; // own address, source or destination
};
static_assert(sizeof(dpm_tunnel_ip_msg) == 28);

struct dpm_tunnel_key_msg {
    std::uint32_t tunnel_id;
    std::uint32_t key_enable;
    std::uint32_t key;
};
static_assert(sizeof(dpm_tunnel_key_msg) == 12);

struct dpm_route_tunnel_msg {
    std::uint32_t vrf;
    dpm_prefix destination;
    char np_ifname[DPM_IFNAME_BYTES]; // the tunnel's
};
static_assert(sizeof(dpm_route_tunnel_msg) == 88);

// Orders of the two trees: the id; port type, port and sub-port.
int dpm_tunnel_compare(const dpm_tunnel_entry &a, const dpm_tunnel_entry &b);
int dpm_tunnel_port_compare(const dpm_tunnel_port_entry &a, const dpm_tunnel_port_entry &b);

// Lookups; null when there is none.
dpm_tunnel_entry *dpm_tunnel_find_by_entry(const dpm_tunnel_entry *key);
dpm_tunnel_entry *dpm_tunnel_find_by_tunnelid(std::uint32_t tunnel_id);
dpm_tunnel_entry *dpm_tunnel_find_by_tunnelname(const char *name);
dpm_tunnel_port_entry *dpm_tunnel_port_find_by_entry(const dpm_tunnel_port_entry *key);

// A GRE next hop on a port comes or goes: with the first the chip looks for GRE there, with the last
// no more.  0 or -1.
int dpm_tunnel_port_add(std::uint32_t port_type, std::uint32_t port, std::uint32_t subport);
int dpm_tunnel_port_del(std::uint32_t port_type, std::uint32_t port, std::uint32_t subport);

// Events: a route came or grew (1), went or shrank (2).  0, or -1 for another event.
int dpm_tunnel_route_notify(const dpm_route_entry *route, std::uint32_t event);

// The routes over a tunnel hear that it is up (1), or is about to go down (2).
int dpm_route_tunnel_notify(const dpm_tunnel_entry *tunnel, std::uint32_t event);

// Changes of the routes over tunnels; 0 or -1.  The destination of an add must not be in the table.
int dpm_route_tunnel_add(const dpm_route_entry *route);
int dpm_route_tunnel_update(dpm_route_entry *present, const dpm_route_entry *route);
int dpm_route_tunnel_del(dpm_route_entry *route);
int dpm_route_tunnel_is_same(const dpm_route_entry *a, const dpm_route_entry *b);

namespace dpm {

using tunnel_table = avl_table<dpm_tunnel_entry, dpm_tunnel_compare>;
using tunnel_port_table = avl_table<dpm_tunnel_port_entry, dpm_tunnel_port_compare>;
tunnel_table tunnels();
tunnel_port_table tunnel_ports();

// On a card that becomes master, in front of the routes, tables only: ports count their next hops,
// and groups have them as members.
void tunnels_recount();

// Behind the routes: tunnels lead where these do now, and the routes over them where they lead.
void tunnels_take_over();

} // namespace dpm
