// Hosts: the resolved neighbours, and those that are held or waited for.  On the worker, under the
// DPM lock.
#pragma once

#include "dpm_address.h"
#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_destination.h"
#include "dpm_if.h"
#include "dpm_list.h"
#include "dpm_msg.h"    // the owners of the messages
#include "dpm_tables.h" // the senders of mirroring

#include <cstddef>
#include <cstdint>

static_assert(sizeof(dpm_host_entry) == 176);
static_assert(offsetof(dpm_host_entry, ifname) == 24);
static_assert(offsetof(dpm_host_entry, ip) == 88);
static_assert(offsetof(dpm_host_entry, mac) == 108);
static_assert(offsetof(dpm_host_entry, svlan) == 116);
static_assert(offsetof(dpm_host_entry, sdk_index) == 140);
static_assert(offsetof(dpm_host_entry, card_local) == 144);
static_assert(sizeof(dpm_unreachable_entry) == 72);
static_assert(sizeof(dpm_hold_entry) == 100);
static_assert(sizeof(dpm_host_info) == 60);
static_assert(offsetof(dpm_host_info, address) == 13);
static_assert(offsetof(dpm_host_info, mac) == 29);
static_assert(offsetof(dpm_host_info, svlan) == 36);

// Body of the host messages.
struct dpm_host_msg {
    std::uint32_t vrf;
    std::uint32_t ifindex;
    dpm_prefix ip;
    std::uint8_t mac[DPM_MAC_BYTES];
    std::uint8_t reserved[2];
    std::uint32_t svlan;
    std::uint32_t cvlan;
    std::uint32_t supervlan;
    std::uint32_t port_type;
    std::uint32_t log_port_id;
    std::uint32_t phy_port_id;
};
static_assert(sizeof(dpm_host_msg) == 60);

inline constexpr std::uint32_t DPM_HOST_CAPACITY = 18432; // an IPv6 host counts twice
inline constexpr std::uint32_t DPM_HOLD_CAPACITY = 100;
inline constexpr std::uint32_t DPM_HOLD_SEC = 86400;
inline constexpr std::uint32_t DPM_UNREACHABLE_PERIOD_SEC = 30;
inline constexpr std::uint32_t DPM_UNREACHABLE_PROBES = 100; // of an address that something needs
inline constexpr std::uint32_t DPM_SWITCHOVER_PROBES = 2;    // of every host after a switch-over
inline constexpr std::uint32_t DPM_HOST_UNRESOLVED = 0xFFFFFFFF; // as an sdk_index: -1

// Dependants are told about hosts in the order of registration.
enum dpm_host_event : std::uint32_t { DPM_HOST_ADDED = 1, DPM_HOST_DELETED = 2 };
using dpm_host_callback = int (*)(const dpm_host_entry *entry, std::uint32_t event);
void dpm_host_notify_register(dpm_host_callback callback);
void dpm_host_notify(const dpm_host_entry *entry, std::uint32_t event);

// Orders of the two trees.
int dpm_host_ipv4_compare(const dpm_host_entry &a, const dpm_host_entry &b);
int dpm_host_ipv6_compare(const dpm_host_entry &a, const dpm_host_entry &b);
int dpm_host_entry_is_same(const dpm_host_entry *a, const dpm_host_entry *b);

// Lookups; null, or -1 as an index, when there is none.  dpm_host_get_index_by_ip then starts to
// probe the address.
dpm_host_entry *dpm_host_find_by_entry(const dpm_host_entry *key);
dpm_host_entry *dpm_host_find_by_ip(std::uint32_t vrf, const dpm_prefix *ip, std::uint32_t ifindex);
std::uint32_t dpm_host_get_index_by_ip(std::uint32_t vrf, std::uint32_t ifindex,
                                       const dpm_prefix *ip);
int dpm_host_is_linklocal(const dpm_prefix *ip);

// Changes; 0 or -1.
int dpm_host_entry_add(const dpm_host_entry *entry);
int dpm_host_entry_del(dpm_host_entry *entry);

// Neighbours whose port went down: probed when it comes up, forgotten after a day.
dpm_hold_entry *dpm_host_hold_find_by_entry(const dpm_host_entry *host);
int dpm_host_hold_entry_add(const dpm_host_entry *host);
int dpm_host_hold_entry_del(dpm_hold_entry *entry);

// Addresses that something waits for: probed at once and every 30 seconds, `probe_count` more
// times.  The interface tells addresses of fe80::/10 apart, and those alone.
dpm_unreachable_entry *dpm_host_unreachable_find(std::uint32_t vrf, std::uint32_t ifindex,
                                                 const dpm_prefix *ip);
int dpm_host_unreachable_add(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix *ip,
                             std::uint32_t probe_count);
int dpm_host_unreachable_del(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix *ip);
int dpm_host_unreachable_send(dpm_unreachable_entry *entry);

// Events: a port or trunk went down or came up; this card became master.
int dpm_host_port_down(std::uint32_t port_type, std::uint32_t log_port_id);
int dpm_host_port_up(std::uint32_t port_type, std::uint32_t log_port_id);
int dpm_host_start_delete_time();

// Requests to the IP stack.  0, or the negated error number; IPv4 addresses are words in network
// order.
int dpm_arp_req_send(std::uint32_t vrf, std::uint32_t ifindex, std::uint32_t address);
int dpm_ndp_req_send(std::uint32_t vrf, std::uint32_t ifindex, const std::uint8_t *address);
int dpm_arp_ipstack_delete(std::uint32_t vrf, std::uint32_t ifindex, std::uint32_t address);
int dpm_ndp_ipstack_delete(std::uint32_t vrf, std::uint32_t ifindex, const std::uint8_t *address);

namespace dpm {

using ipv4_host_table = avl_table<dpm_host_entry, dpm_host_ipv4_compare>;
using ipv6_host_table = avl_table<dpm_host_entry, dpm_host_ipv6_compare>;
ipv4_host_table ipv4_hosts();
ipv6_host_table ipv6_hosts();
void hold_index_create();
void unreachable_index_create();

// A card that becomes standby, or master, forgets what it waited for before.
void unreachables_end();

// What is waited for or held on an interface ends, in the VRF that it leaves; DPM_VRF_NONE: in
// every one.
void unreachables_end_on(std::uint32_t ifindex, std::uint32_t vrf);
void holds_end_on(std::uint32_t ifindex, std::uint32_t vrf);

// On a card that becomes master: hosts without their interface, or in another VRF than it, go when
// it has not come in time.
void hosts_left_over();

// What hosts do when interfaces change.
extern const if_follower hosts_on_interfaces;

// What hosts do as holders of destinations.
extern const destination_owner host_owner;

// Whether the chip has a host's entry for a destination, on whatever interface the host is.
bool has_chip_host(std::uint32_t vrf, const dpm_prefix &ip);

// Makes the IP stack forget a neighbour, or look for it, in the way of the address's family.
void drop_neighbour(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix &ip);
void probe_neighbour(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix &ip);

// Where a host's next hop leaves: a trunk or a port; false when the host names neither.
struct egress {
    std::uint32_t port_type;
    std::uint32_t port_id;
};
bool egress_of(const dpm_host_entry &host, egress &out);

} // namespace dpm
