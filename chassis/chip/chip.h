// A model of the switching chip: it keeps what a chip keeps, answers like one, and counts mistakes.
//
// Next hops, interfaces, address entries (hosts, prefixes and interface addresses), groups, default routes, trap rules
// and the hash mode are modelled; every other call is accepted and stands in the journal.  Indexes run from 16 up
// (0 and 2 mean something else to the library).  A mistake is a request that a real chip would not understand: adding
// what is there, deleting what is not, naming an object that does not exist.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace chassis::chip {

// Kinds of request, for refusals and counts.  One for each contract function, named after it without "dal_driver_".
enum class Request {
    add_l3_intf, delete_l3_intf, interface_vrf_set, interface_mpls_enable,
    add_ip_entry, del_ip_entry, default_route_set,
    add_ip_nexthop, del_ip_nexthop,
    add_ecmp_nexthop, update_ecmp_nexthop, del_ecmp_nexthop, set_ecmp_hash_ctl,
    set_arp_to_cpu, set_ospf_to_cpu, set_ipv6_ns_rule,
    other,
    count
};

std::string_view name_of(Request kind);
std::optional<Request> request_named(std::string_view name); // also the words of the command language: route, nexthop ...

struct Address { // key of an address entry
    std::int32_t vrf;
    std::uint32_t family;
    std::array<std::uint8_t, 16> bytes; // host bits as given
    std::uint32_t prefix_len;
    auto operator<=>(const Address &) const = default;
};

struct NextHop {
    std::uint32_t port_type, port_id;
    std::uint16_t svlan, cvlan;
    std::array<std::uint8_t, 6> mac;
};

struct Interface {
    std::array<std::uint8_t, 6> mac;
    std::uint32_t id;
    std::uint16_t vrf;
};

struct Answer { // of a lookup
    Address entry;
    std::uint32_t index;                 // next hop or group
    bool group;
    std::vector<std::uint32_t> members;  // next hops: one, or those of the group
};

class Chip {
public:
    Chip() = default;

    // Longest-prefix match on what is programmed.
    std::optional<Answer> lookup(std::int32_t vrf, std::uint32_t family, const std::uint8_t *address) const;

    // What the chip holds.  Take lock() to read it in threaded mode.
    std::map<Address, std::uint32_t> entries; // to a next hop, a group, or 2: the CPU
    std::map<std::uint32_t, NextHop> nexthops;
    std::map<std::uint32_t, std::vector<std::uint32_t>> groups;
    std::map<std::uint16_t, Interface> interfaces;               // by VLAN
    std::map<std::pair<std::uint32_t, std::uint16_t>, bool> cpu_default; // (family, VRF): to the CPU or dropped
    std::set<std::uint16_t> arp_rules;                           // VLANs
    std::set<std::uint32_t> ospf_rules;                          // VLANs
    std::set<std::uint16_t> nd_rules;                            // VLANs
    std::uint32_t hash_mode = 0;

    // The next `count` requests of a kind are refused with `code`, after `skip` that pass.
    void refuse(Request kind, unsigned count, int code = -1, unsigned skip = 0);

    std::uint64_t requests(Request kind) const; // how many came
    std::uint64_t mistakes() const;
    const std::vector<std::string> &mistake_lines() const;

    // One line a request, with its arguments, slot bits and result, when recording is on (bounded).
    void record(bool on);
    std::vector<std::string> journal() const;
    void clear_journal();

    std::unique_lock<std::mutex> lock() const { return std::unique_lock(mutex_); }

    // --- used by the contract functions ---
    struct Outcome; // see chip.cpp
private:
    friend struct Contract;
    mutable std::mutex mutex_;
    std::uint32_t next_index_ = 16;
    struct Refusal { unsigned skip = 0, count = 0; int code = -1; };
    std::array<Refusal, std::size_t(Request::count)> refusals_{};
    std::array<std::uint64_t, std::size_t(Request::count)> requests_{};
    std::vector<std::string> mistake_lines_;
    std::uint64_t mistakes_ = 0;
    bool recording_ = false;
    std::vector<std::string> journal_;
};

} // namespace chassis::chip
