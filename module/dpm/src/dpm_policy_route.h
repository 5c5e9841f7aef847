// Policy routes: traffic of a rule on a set of ports goes to a next hop of the caller's choice.  On
// the worker, under the DPM lock.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_if.h"
#include "dpm_msg.h" // the owners of the messages

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_policy_route_entry) == 72);
static_assert(offsetof(dpm_policy_route_entry, vrf) == 36);
static_assert(offsetof(dpm_policy_route_entry, next_hop) == 40);
static_assert(offsetof(dpm_policy_route_entry, nexthop) == 64);

// Body of the requests.  The buffers are blocks of their own, which the worker frees with the body.
struct dpm_policy_route_msg {
    std::uint32_t vsid;
    std::uint8_t *rule;
    std::uint32_t rule_len;
    std::uint8_t *ports;
    std::uint32_t port_len;
    std::uint32_t vrf;
    std::uint32_t family;
    std::uint8_t address[16];
};
static_assert(sizeof(dpm_policy_route_msg) == 44);

inline constexpr std::uint32_t DPM_POLICY_BUFFER_BYTES = 65535; // of a rule or a port set, at most
inline constexpr std::int32_t DPM_POLICY_UNRESOLVED = -1;       // as a next hop

int dpm_policy_route_compare(const dpm_policy_route_entry &a, const dpm_policy_route_entry &b);
int dpm_policy_route_is_same(const dpm_policy_route_entry *a, const dpm_policy_route_entry *b);

// A host has come or goes.
int dpm_policy_route_host_notify(const dpm_host_entry *host, std::uint32_t event);

namespace dpm {

using policy_route_table = avl_table<dpm_policy_route_entry, dpm_policy_route_compare>;
policy_route_table policy_routes();
void policy_routes_create();

// Those that wait look for their next hops again: this card became master.
void policy_routes_ask();

// What policy routes do when interfaces change.
extern const if_follower policy_routes_on_interfaces;

} // namespace dpm
