// L3 interfaces: what other tables ask of them.  Everything here runs on the worker under the DPM
// lock, unless said.
#pragma once

#include "dpm_api.h"
#include "dpm_list.h"
#include "dpm_msg.h" // the owners of the messages

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

static_assert(sizeof(dpm_if_entry) == 144);
static_assert(offsetof(dpm_if_entry, vrf) == 72);
static_assert(offsetof(dpm_if_entry, mac) == 86);
static_assert(offsetof(dpm_if_entry, ipv4_list) == 116);
static_assert(sizeof(dpm_if_ip_entry) == 32);

// Bodies of the interface messages.
struct dpm_if_msg {
    std::uint16_t vrf;
    std::uint16_t vlan;
    std::uint32_t if_index;
    std::uint32_t if_type;
    char ifname[DPM_IFNAME_BYTES];
};
static_assert(sizeof(dpm_if_msg) == 76);

struct if_ip_msg {
    std::uint32_t if_index;
    std::uint32_t vrf;
    dpm_prefix ip;
};
static_assert(sizeof(if_ip_msg) == 28);

struct dpm_if_vrf_msg {
    std::uint32_t if_index;
    std::uint32_t vrf;
};
static_assert(sizeof(dpm_if_vrf_msg) == 8);

struct dpm_super_sub_msg {
    std::uint32_t super_vlan;
    std::uint32_t sub_vlan;
};
static_assert(sizeof(dpm_super_sub_msg) == 8);

struct dpm_trunk_member_msg {
    std::uint32_t type;
    std::uint32_t trunk_id; // 1 to 16
    std::uint32_t port;
};
static_assert(sizeof(dpm_trunk_member_msg) == 12);

// Lookups.  Null, or the value said, when there is none.
dpm_if_entry *dpm_if_find_by_ifindex(std::uint32_t ifindex);
dpm_if_entry *dpm_if_find_by_ifname(const char *name);
dpm_if_entry *dpm_if_get_by_vlan(std::uint32_t vlan);
dpm_if_entry *dpm_if_get_by_supervlan(std::uint32_t vlan);
int dpm_if_get_ifnamebyindex(std::uint32_t ifindex,
                             char *name);                  // `name` takes DPM_IFNAME_BYTES; -1
std::uint32_t dpm_if_get_ifindexbyname(const char *name);  // all ones
std::uint32_t dpm_if_get_vrf(std::uint32_t ifindex);       // 0
std::uint32_t dpm_if_get_vlanid(std::uint32_t ifindex);    // 0
std::uint32_t dpm_if_get_vrf_by_vlan(std::uint32_t vlan);  // 0
std::uint32_t dpm_ifindex_get_by_vlan(std::uint32_t vlan); // 0
std::uint32_t dpm_if_index_by_network_ip(std::uint32_t vrf, const dpm_prefix *prefix); // 0
dpm_if_entry *dpm_if_find_by_network(const dpm_prefix *prefix); // in whatever VRF; null
dpm_if_ip_entry *dpm_if_ip_find(list_head *list, const dpm_prefix *prefix);
dpm_if_entry *dpm_if_sub_find(list_head *sub_list, std::uint32_t vlan);

// Whether an interface is the device's own, by its name and whatever stands behind that.  Routes ask
// for each of their gateways: of nearly every name the head, which the four share, tells that it is
// none.
inline bool dpm_if_is_manage_vlan(const char (&name)[DPM_IFNAME_BYTES]) {
    if (std::memcmp(name, "vlanif40", 8) != 0)
        return false;
    for (const char *tail : {"89", "91", "92", "93"})
        if (std::memcmp(name + 8, tail, 2) == 0)
            return true;
    return false;
}

// Clear the bits behind a prefix length, in place.
void dpm_network_ipv4_get(std::uint8_t *bytes, std::uint32_t prefix_len);
void dpm_network_ipv6_get(std::uint8_t *bytes, std::uint32_t prefix_len);

inline constexpr std::uint32_t DPM_IFINDEX_NONE = 0xFFFFFFFF; // of a name that no interface has
inline constexpr std::uint32_t DPM_VRF_NONE = 0xFFFFFFFF;     // of an interface that goes

namespace dpm {

// What a table does when an interface changes under its entries.  Records name their interface: its
// index may come later than they, and another one after it, on each card at a time of its own.
struct if_follower {
    // The interface goes, or leaves its VRF for this one: what is resolved on it ends.  On the
    // master, before anything else is changed; null: nothing.
    void (*leave)(const dpm_if_entry &entry, std::uint32_t vrf) = nullptr;
    // The interface has left its VRF for another, which it has come to.  On the master; null:
    // nothing.
    void (*arrive)(const dpm_if_entry &entry) = nullptr;
    // The interface of this name has this index from now on, DPM_IFINDEX_NONE when it has gone.
    void (*renumber)(const char *ifname, std::uint32_t ifindex);
    // An interface has an address that it had not; null: nothing.
    void (*gain)() = nullptr;
};

// In the order of the calls; at start-up.
void if_follower_register(const if_follower &follower);

void if_followers_leave(const dpm_if_entry &entry, std::uint32_t vrf);
void if_followers_arrive(const dpm_if_entry &entry);
void if_followers_renumber(const char *ifname, std::uint32_t ifindex);
void if_followers_gain();

// Sub-VLANs of an interface: their OSPF rules come with the first address on whose network OSPF
// runs, and go with the last.
void sub_vlans_gain(const dpm_if_entry &super, const dpm_prefix &address); // before it is added
void sub_vlans_lose(const dpm_if_entry &super, const dpm_prefix &address); // when it has gone
void sub_vlans_end(dpm_if_entry &super);
bool is_sub_vlan(const char *ifname);

// A name of 64 bytes that may lack its end, cut to 63 and ended.
class bounded_name {
public:
    explicit bounded_name(const char *name);
    const char *c_str() const { return text_; }

private:
    char text_[DPM_IFNAME_BYTES];
};

// The name of a VLAN's interface: "vlanif%d".
class vlanif_name {
public:
    explicit vlanif_name(std::uint32_t vlan);
    const char *c_str() const { return text_; }

private:
    char text_[DPM_IFNAME_BYTES];
};

list_view<dpm_if_entry, &dpm_if_entry::link> interfaces();

} // namespace dpm
