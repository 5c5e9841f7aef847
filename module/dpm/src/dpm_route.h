// Routes: the unicast routes that the routing suite installs.  On the worker, under the DPM lock.
#pragma once

#include "dpm_address.h"
#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_destination.h"
#include "dpm_if.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_route_entry) == 824);
static_assert(offsetof(dpm_route_entry, destination) == 24);
static_assert(offsetof(dpm_route_entry, np) == 44);
static_assert(offsetof(dpm_route_entry, np_ifname) == 236);
static_assert(offsetof(dpm_route_entry, np_num) == 748);
static_assert(offsetof(dpm_route_entry, host_index) == 756);
static_assert(offsetof(dpm_route_entry, delete_timer) == 792);
static_assert(sizeof(dpm_route_msg) == 224);

inline constexpr std::uint32_t DPM_ROUTE_CAPACITY = 16384; // an IPv6 route counts twice
inline constexpr std::uint32_t DPM_ROUTE_DELETE_SEC = 600; // a dynamic route after a switch-over
inline constexpr std::int32_t DPM_ROUTE_UNRESOLVED = -1;   // host_index: no host, or excluded
inline constexpr std::int32_t DPM_ROUTE_NO_ADDRESS = 2;    // host_index: no gateway address

// Orders of the two trees: VRF, then the destination.
int dpm_route_ipv4_compare(const dpm_route_entry &a, const dpm_route_entry &b);
int dpm_route_ipv6_compare(const dpm_route_entry &a, const dpm_route_entry &b);

// Changes; 0 or -1.  The destination of an add must not be in the table.
int dpm_route_add(const dpm_route_entry *entry);
int dpm_route_del(dpm_route_entry *entry);
int dpm_route_update(dpm_route_entry *old_entry, const dpm_route_entry *new_entry);

// Lookups; null when there is none.
dpm_route_entry *dpm_route_find_by_entry(const dpm_route_entry *key);
dpm_route_entry *dpm_route_find_best_route(std::uint32_t vrf, const dpm_prefix *address);
int dpm_route_is_same(const dpm_route_entry *a, const dpm_route_entry *b);
int dpm_route_dynamic_type_check(std::uint32_t route_type); // 1 for a dynamic type, else 0

// Events: a host came or went (a dependant of the host table); this card became master.
int dpm_route_host_notify(const dpm_host_entry *host, std::uint32_t event);
int dpm_route_start_delete_time();

namespace dpm {

using ipv4_route_table = avl_table<dpm_route_entry, dpm_route_ipv4_compare>;
using ipv6_route_table = avl_table<dpm_route_entry, dpm_route_ipv6_compare>;
ipv4_route_table ipv4_routes();
ipv6_route_table ipv6_routes();

// The tree of a known family.  Both orders are one, so either view serves both.
ipv4_route_table routes_of(std::uint32_t family);

// The route of a VRF to exactly this destination of a known family, or null.
dpm_route_entry *find_route(std::uint32_t vrf, const dpm_prefix &destination);

// A route over a tunnel is the tunnel table's.
bool is_over_tunnel(const dpm_route_entry &route);

// Whether two gateways are one: as prefixes compare.
bool is_same_gateway(const dpm_prefix &a, const dpm_prefix &b);

// Whether a route is to be resolved by the host of this gateway.
bool asks_for_host(const dpm_route_entry &route, std::uint32_t position);

// What counts and indexes arrays in a request or a route; false, told in the log.
template <class Record> bool is_sound(const Record &record, const call_site &caller) {
    if (record.np_num > DPM_ROUTE_GATEWAYS) {
        DPM_LOG_FROM(caller, "%s %d::np_num %d is err!\r\n", record.np_num);
        return false;
    }
    const dpm_prefix &destination = record.destination;
    if (is_known_family(destination.family) &&
        destination.prefix_len > host_bits(destination.family)) {
        DPM_LOG_FROM(caller, "%s %d::masklen = %d is err!\r\n", destination.prefix_len);
        return false;
    }
    return true;
}

// A route came or grew, or went or shrank: the one who follows routes is told, tunnels.  Registered at
// start-up.
enum class route_event : std::uint32_t { came = 1, went = 2 };
using route_notice = int (*)(const dpm_route_entry *route, std::uint32_t event);
void route_notify_register(route_notice notice);
void tell_of_route(const dpm_route_entry &route, route_event event);

// Whether the table takes one route more; `own_weight` is that of a route which the new one replaces.
// False, told in the log.
std::uint32_t route_weight(const dpm_route_entry &route);
bool has_route_room(std::uint32_t own_weight, const call_site &caller);

// The address of a host on the route's interface: the host holds it, and the route is not added.
bool is_address_of_host(const dpm_route_entry &route, const call_site &caller);

// What routes do when interfaces change.
extern const if_follower routes_on_interfaces;

// What routes do as holders of destinations.
extern const destination_owner route_owner;

// Whether another owner holds a route's destination in the chip.
bool gives_way(const dpm_route_entry &route);

} // namespace dpm
