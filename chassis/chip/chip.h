// A model of the switching chip: it keeps what a chip keeps, answers like one, and counts mistakes.
//
// Next hops, interfaces, address entries (hosts, prefixes and interface addresses), groups, default
// routes, trap rules and the hash mode are modelled; every other call is accepted and stands in the
// journal.  Indexes run from 16 up (0 and 2 mean something else to the library).  A mistake is a
// request that a real chip would not understand: adding what is there, deleting what is not, naming
// an object that does not exist.  It is answered with -1 and changes nothing.  A request for single
// slots programs again what is there; it changes nothing either.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace chassis::chip {

// Kinds of request, for refusals and counts.  One for each contract function, named after it
// without "dal_driver_".
enum class Function {
    add_l3_intf,
    delete_l3_intf,
    interface_vrf_set,
    interface_mpls_enable,
    add_ip_entry,
    del_ip_entry,
    default_route_set,
    add_ip_nexthop,
    del_ip_nexthop,
    add_ecmp_nexthop,
    update_ecmp_nexthop,
    del_ecmp_nexthop,
    set_ecmp_hash_ctl,
    set_arp_to_cpu,
    set_ospf_to_cpu,
    set_ipv6_ns_rule,
    other,
    count
};

std::string_view name_of(Function kind);
std::optional<Function>
request_named(std::string_view name); // also the words of the command language: route, nexthop ...

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
    auto operator<=>(const NextHop &) const = default;
};

struct Interface {
    std::array<std::uint8_t, 6> mac;
    std::uint32_t id;
    std::uint16_t vrf;
};

// One change of what the chip forwards by, as plain bytes: what line cards remember while control
// cards come and go.
struct Change {
    enum class Kind : std::uint32_t { nexthop, group, entry, cpu_default, hash } kind;
    std::uint32_t there; // 1: set to what follows; 0: gone
    std::uint32_t index; // of the next hop or group; what the entry leads to; the mode
    Address key;         // of the entry; family and VRF of the default, its length 1: to the CPU
    NextHop nexthop;
    std::uint32_t member_count;
    std::array<std::uint32_t, 65> members;
};

Change nexthop_change(std::uint32_t index, const NextHop &nexthop, bool there);
Change group_change(std::uint32_t index, const std::vector<std::uint32_t> &members, bool there);
Change entry_change(const Address &key, std::uint32_t index, bool there);
Change default_change(std::uint32_t family, std::uint16_t vrf, bool cpu);
Change hash_change(std::uint32_t mode);

struct Answer { // of a lookup
    Address entry;
    std::uint32_t index; // next hop or group
    bool group;
    std::vector<std::uint32_t> members; // next hops: one, or those of the group
};

class Chip {
public:
    Chip() = default;

    // Longest-prefix match on what is programmed.
    std::optional<Answer> lookup(std::int32_t vrf, std::uint32_t family,
                                 const std::uint8_t *address) const;

    // What the chip holds.  Take lock() to read it in threaded mode.
    std::map<Address, std::uint32_t> entries; // to a next hop, a group, or 2: the CPU
    std::map<std::uint32_t, NextHop> nexthops;
    std::map<std::uint32_t, std::vector<std::uint32_t>> groups;
    std::map<std::uint16_t, Interface> interfaces; // by VLAN
    // By family and VRF: what matches no entry goes to the CPU, or is dropped.
    std::map<std::pair<std::uint32_t, std::uint16_t>, bool> cpu_default;
    std::set<std::uint16_t> arp_rules;  // VLANs
    std::set<std::uint32_t> ospf_rules; // VLANs
    std::set<std::uint16_t> nd_rules;   // VLANs
    std::uint32_t hash_mode = 0;

    // The next `count` requests of a kind are refused with `code`, after `skip` that pass.
    void refuse(Function kind, unsigned count, int code = -1, unsigned skip = 0);

    std::uint64_t requests(Function kind) const; // how many came
    std::uint64_t mistakes() const;
    std::vector<std::string> mistake_lines() const;

    // One line a request, with its arguments, slot bits and result, when recording is on (the last
    // ones are kept).
    void record(bool on);
    std::vector<std::string> journal() const;
    void clear_journal();
    // Is told of each of these lines, on the requester's thread with the lock held, while recording
    // is on.
    void watch(std::function<void(const std::string &line)> watcher);

    // Each of these slots reports its own answer to every request that reaches it, through the
    // library's result callbacks, on the requester's thread before the request returns.  None at
    // first.
    void answer_slots(std::vector<unsigned> slots);
    // The next report of a slot on a request of this kind carries `code`; the request's own answer
    // stays.
    void fail_slot(Function kind, unsigned slot, int code = -1);

    // Accepts everything, hands out indexes and keeps nothing: for measuring the library alone.
    void set_null(bool on);

    // Takes over what another card's chip forwards (next hops, groups, entries, default routes,
    // hash mode): line cards keep their tables when the control card changes.
    void take_over(const Chip &other);

    // Is told of every change, on the requester's thread with the lock held.
    void observe(std::function<void(const Change &)> observer);
    // Makes a change that a chip told; nobody asks and nobody is told.
    void apply(const Change &change);
    // Everything as changes, in an order that can be applied.  The caller holds the lock.
    std::vector<Change> forwarding() const;

    std::unique_lock<std::mutex> lock() const { return std::unique_lock(mutex_); }

    // Carrying out requests; the caller holds the lock.  `again`: a slot is programmed with what is
    // there.
    struct Outcome {
        int code = 0;
        const char *mistake = nullptr;
    };
    using Members = std::vector<std::uint32_t>;
    Outcome add_interface(std::uint16_t vlan, const std::uint8_t *mac, std::uint32_t *id);
    Outcome delete_interface(std::uint16_t vlan);
    Outcome add_entry(const Address &key, std::uint32_t index, bool again);
    Outcome delete_entry(const Address &key, std::uint32_t index);
    Outcome add_nexthop(const NextHop &nexthop, std::uint32_t *id, bool again);
    Outcome delete_nexthop(std::uint32_t id);
    Outcome add_group(std::int32_t *group, const Members &members, bool again);
    Outcome update_group(std::int32_t group, bool adding, const Members &members, bool again);
    Outcome delete_group(std::int32_t group);
    Outcome set_arp_rule(std::uint16_t vlan, bool on);
    Outcome set_default(std::uint32_t family, std::uint16_t vrf, bool cpu);
    Outcome set_hash(std::uint32_t mode);
    Outcome delete_other(std::uint32_t index);

private:
    friend struct Contract; // the contract functions' frame
    struct Refusal {
        unsigned skip = 0, count = 0;
        int code = 0;
    };
    int ordered_refusal(Function kind);
    std::uint32_t new_index() { return next_index_++; }
    bool is_target(std::uint32_t index) const;
    bool is_forgiven(Function kind, std::uint32_t key) const;
    void note(Function kind, const Outcome &outcome, const std::string &line);

    void keep_entry(const Address &key, std::uint32_t index);
    void drop_entry(const Address &key);
    void use(std::uint32_t index, int change);
    void tell(const Change &change) const {
        if (observer_)
            observer_(change);
    }
    void put_nexthop(std::uint32_t index, const NextHop &nexthop);
    void put_group(std::uint32_t index, const Members &members);
    void drop_nexthop(std::uint32_t index);
    void drop_group(std::uint32_t index);
    std::optional<Address> match(std::int32_t vrf, std::uint32_t family,
                                 const std::uint8_t *address, unsigned prefix_len) const;

    mutable std::mutex mutex_;
    std::uint32_t next_index_ = 16;
    bool null_ = false;
    std::function<void(const Change &)> observer_;

    // Beside the public maps, so that a request costs what it changes: users of a next hop
    // (entries and group members), next hops by what they are, entries shorter than a host by
    // network (the last one answers) and their number by length for each VRF and family.
    std::unordered_map<std::uint32_t, unsigned> uses_;
    std::multimap<NextHop, std::uint32_t> index_of_;
    std::map<Address, std::vector<Address>> masked_;
    std::map<std::pair<std::int32_t, std::uint32_t>, std::array<unsigned, 129>> lengths_;
    // Indexes handed out by calls that are not modelled; they may be named.
    std::set<std::uint32_t> others_;

    std::array<Refusal, std::size_t(Function::count)> refusals_{};
    std::array<std::uint64_t, std::size_t(Function::count)> requests_{};
    std::set<std::pair<Function, std::uint32_t>> forgiven_; // refused on order, by VLAN
    std::deque<std::string> mistake_lines_;
    std::uint64_t mistakes_ = 0;
    bool recording_ = false;
    std::deque<std::string> journal_;
    std::function<void(const std::string &)> watcher_;
    std::vector<unsigned> slots_;
    std::map<std::pair<Function, unsigned>, int> failing_slots_;
};

} // namespace chassis::chip
