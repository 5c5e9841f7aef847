// The table of policy routes, each of which is an item in the chip while its next hop is resolved.
//
// Both cards take the requests and follow the hosts that they hold: the table is not mirrored.  A
// route whose next hop is not there waits, and so does one whose item the chip refused when its
// host came; a request that the chip refuses is not kept.
#include "dpm_policy_route.h"

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_host.h"
#include "dpm_memory.h"
#include "platform/hw.h"

#include <cstring>

namespace {

struct policy_route_record {
    dpm_policy_route_entry entry; // first: the tables see this alone
    dpm_avl_node by_next_hop;
};

policy_route_record &record_of(dpm_policy_route_entry &entry) {
    return reinterpret_cast<policy_route_record &>(entry);
}

// Of buffers of the same length.
int bytes_order(const std::uint8_t *a, const std::uint8_t *b, std::uint32_t length) {
    return length == 0 ? 0 : dpm::three_way(std::memcmp(a, b, length), 0);
}

// By VRF and next hop, and those of one next hop in the order of the table.
int next_hop_order(const policy_route_record &a, const policy_route_record &b) {
    if (a.entry.vrf != b.entry.vrf)
        return dpm::three_way(a.entry.vrf, b.entry.vrf);
    if (a.entry.next_hop.family != b.entry.next_hop.family)
        return dpm::three_way(a.entry.next_hop.family, b.entry.next_hop.family);
    if (const int order = dpm_prefix_compare(a.entry.next_hop, b.entry.next_hop))
        return order;
    return dpm_policy_route_compare(a.entry, b.entry);
}

using next_hop_index =
    dpm::avl_table<policy_route_record, next_hop_order, offsetof(policy_route_record, by_next_hop)>;

next_hop_index routes_by_next_hop() {
    return next_hop_index(g_dpm_index.policy_route_by_next_hop);
}

// What the chip does with the packets: redirects them, and does nothing else.
struct redirect {
    struct operation {
        std::uint16_t code;
        std::uint16_t count = 1;
        std::uint16_t length = sizeof(std::uint32_t);
        std::uint8_t value[16] = {};
    };
    std::uint16_t count = 2;
    operation to_next_hop = {.code = 0x7F};
    operation end = {.code = 0x71};

    explicit redirect(std::int32_t nexthop) {
        std::memcpy(to_next_hop.value, &nexthop, sizeof nexthop);
    }
};
static_assert(sizeof(redirect) == 46);

template <auto Request> int ask_chip(const dpm_policy_route_entry &route, std::int32_t nexthop) {
    const redirect oper(nexthop);
    return Request(route.vsid, 0, route.rule_buffer, route.rule_buffer_len, &oper, sizeof oper,
                   route.port_buffer, route.port_buffer_len, 0);
}

bool is_programmed(const dpm_policy_route_entry &route) {
    return route.nexthop > 0;
}

// False: the chip refused.  What has no next hop in the chip waits.
bool program(dpm_policy_route_entry &route, std::int32_t nexthop) {
    if (nexthop <= 0 || route.acl_index != 0)
        return true;
    if (ask_chip<hw_driver_set_stream_qos_item>(route, nexthop) < 0)
        return false;
    route.nexthop = nexthop;
    return true;
}

void withdraw(dpm_policy_route_entry &route) {
    if (is_programmed(route))
        (void)ask_chip<hw_driver_delete_qos_item_by_stream>(route, route.nexthop);
    route.acl_index = 0;
    route.nexthop = DPM_POLICY_UNRESOLVED;
}

std::uint32_t interface_of(const dpm_policy_route_entry &route) {
    return dpm_if_index_by_network_ip(route.vrf, &route.next_hop);
}

// A next hop that is not there is looked for from now on.
bool resolve(dpm_policy_route_entry &route) {
    return program(route, static_cast<std::int32_t>(dpm_host_get_index_by_ip(
                              route.vrf, route.if_index, &route.next_hop)));
}

[[gnu::noinline]] // where it is inlined the compiler knows the entry alone, and warns
void free_route(dpm_policy_route_entry &route) {
    dpm_free(route.rule_buffer);
    dpm_free(route.port_buffer);
    dpm::free_zeroed(&record_of(route));
}

std::uint8_t *copy_of(const std::uint8_t *bytes, std::uint32_t length) {
    void *const copy = dpm_malloc(length);
    if (copy != nullptr)
        std::memcpy(copy, bytes, length);
    return static_cast<std::uint8_t *>(copy);
}

// The route that a request names, over the request's own buffers.
dpm_policy_route_entry key_of(const dpm_policy_route_msg &asked) {
    dpm_policy_route_entry key = {};
    key.vsid = asked.vsid;
    key.rule_buffer = asked.rule;
    key.rule_buffer_len = asked.rule_len;
    key.port_buffer = asked.ports;
    key.port_buffer_len = asked.port_len;
    key.vrf = asked.vrf;
    key.nexthop = DPM_POLICY_UNRESOLVED;
    return key;
}

// A route of its own with copies of the buffers; null: there is no memory.
dpm_policy_route_entry *made_of(const dpm_policy_route_entry &key) {
    dpm::block<policy_route_record> record;
    if (!record)
        return nullptr;
    dpm_policy_route_entry &route = record->entry;
    route = key;
    route.rule_buffer = copy_of(key.rule_buffer, key.rule_buffer_len);
    route.port_buffer = copy_of(key.port_buffer, key.port_buffer_len);
    if (route.rule_buffer != nullptr && route.port_buffer != nullptr)
        return &record.release()->entry;
    free_route(record.release()->entry);
    return nullptr;
}

int dpm_policy_route_add(const dpm_policy_route_entry &key) {
    dpm_policy_route_entry *const route = made_of(key);
    if (route == nullptr)
        return -1;
    if (!resolve(*route)) {
        free_route(*route);
        return -1;
    }
    (void)dpm::policy_routes().add(*route);
    (void)routes_by_next_hop().add(record_of(*route));
    return 0;
}

void dpm_policy_route_del(dpm_policy_route_entry &route) {
    withdraw(route);
    dpm::policy_routes().remove(route);
    routes_by_next_hop().remove(record_of(route));
    free_route(route);
}

// The same again: one that waits is tried again.
int dpm_policy_route_update(dpm_policy_route_entry &present, const dpm_policy_route_entry &key) {
    if (dpm_policy_route_is_same(&present, &key) == 0) {
        dpm_policy_route_del(present);
        return dpm_policy_route_add(key);
    }
    if (!is_programmed(present)) {
        present.if_index = key.if_index;
        (void)resolve(present);
    }
    return 0;
}

// A host that came says on which interface the next hop is; IPv4 does not ask.
void follow(dpm_policy_route_entry &route, const dpm_host_entry &host, std::uint32_t event) {
    const bool is_waiting = event == DPM_HOST_ADDED && route.nexthop == DPM_POLICY_UNRESOLVED;
    if (is_waiting && route.if_index != host.ifindex)
        route.if_index = interface_of(route);
    if (host.ip.family != DPM_FAMILY_IPV4 && route.if_index != host.ifindex)
        return;
    if (is_waiting)
        (void)program(route, static_cast<std::int32_t>(host.sdk_index));
    else if (event == DPM_HOST_DELETED)
        withdraw(route);
}

// An interface with this address or index may be that of a next hop.
void look_again() {
    for (dpm_policy_route_entry &route : dpm::policy_routes()) {
        if (is_programmed(route))
            continue;
        const std::uint32_t known = route.if_index;
        route.if_index = interface_of(route);
        if (route.if_index != known && route.if_index != 0)
            (void)resolve(route);
    }
}

void renumber(const char *, std::uint32_t) {
    look_again();
}

void arrive(const dpm_if_entry &) {
    look_again();
}

} // namespace

namespace dpm {

policy_route_table policy_routes() {
    return policy_route_table(g_dpm_global.policy_route_tree);
}

void policy_routes_create() {
    policy_routes().create();
    routes_by_next_hop().create();
}

void policy_routes_ask() {
    for (dpm_policy_route_entry &route : policy_routes())
        if (!is_programmed(route))
            (void)resolve(route);
}

const if_follower policy_routes_on_interfaces = {
    .arrive = arrive, .renumber = renumber, .gain = look_again};

} // namespace dpm

// deliberate: the first two bytes of the port buffer, the set's id, are not part of the key
int dpm_policy_route_compare(const dpm_policy_route_entry &a, const dpm_policy_route_entry &b) {
    constexpr std::uint32_t id_bytes = sizeof(std::uint16_t);
    if (a.rule_buffer_len != b.rule_buffer_len)
        return dpm::three_way(a.rule_buffer_len, b.rule_buffer_len);
    if (const int order = bytes_order(a.rule_buffer, b.rule_buffer, a.rule_buffer_len))
        return order;
    if (a.port_buffer_len != b.port_buffer_len || a.port_buffer_len <= id_bytes)
        return dpm::three_way(a.port_buffer_len, b.port_buffer_len);
    return bytes_order(a.port_buffer + id_bytes, b.port_buffer + id_bytes,
                       a.port_buffer_len - id_bytes);
}

int dpm_policy_route_is_same(const dpm_policy_route_entry *a, const dpm_policy_route_entry *b) {
    return a->vsid == b->vsid && a->vrf == b->vrf && a->rule_buffer_len == b->rule_buffer_len &&
           a->port_buffer_len == b->port_buffer_len &&
           bytes_order(a->rule_buffer, b->rule_buffer, a->rule_buffer_len) == 0 &&
           bytes_order(a->port_buffer, b->port_buffer, a->port_buffer_len) == 0 &&
           a->next_hop.family == b->next_hop.family &&
           a->next_hop.prefix_len == b->next_hop.prefix_len &&
           std::memcmp(a->next_hop.address, b->next_hop.address, sizeof a->next_hop.address) == 0;
}

int dpm_policy_route_add_msg(const dpm_policy_route_msg *asked) {
    if (asked == nullptr || asked->rule == nullptr || asked->ports == nullptr)
        return -1;
    if (!dpm::is_known_family(asked->family))
        return -1;
    dpm_policy_route_entry key = key_of(*asked);
    key.next_hop = dpm::host_prefix(asked->family, asked->address);
    key.if_index = interface_of(key);
    dpm_policy_route_entry *const present = dpm::policy_routes().find(key);
    return present != nullptr ? dpm_policy_route_update(*present, key) : dpm_policy_route_add(key);
}

int dpm_policy_route_del_msg(const dpm_policy_route_msg *asked) {
    if (asked == nullptr || asked->rule == nullptr || asked->ports == nullptr)
        return -1;
    if (dpm_policy_route_entry *const present = dpm::policy_routes().find(key_of(*asked)))
        dpm_policy_route_del(*present);
    return 0;
}

int dpm_policy_route_host_notify(const dpm_host_entry *host, std::uint32_t event) {
    if (host == nullptr)
        return dpm::null_parameter();
    policy_route_record first = {}; // before every route over this host
    first.entry.vrf = host->vrf;
    first.entry.next_hop = host->ip;
    for (policy_route_record *record = routes_by_next_hop().find_from(first);
         record != nullptr && record->entry.vrf == host->vrf &&
         record->entry.next_hop.family == host->ip.family &&
         dpm_prefix_compare(record->entry.next_hop, host->ip) == 0;
         record = routes_by_next_hop().next(*record))
        follow(record->entry, *host, event);
    return 0;
}
