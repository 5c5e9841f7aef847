// The chip's state: what it holds, what it refuses, what it counts.
//
// The contract functions (contract.cpp, contract_other.cpp) hold the lock and come in through the
// private operations; each of those either carries out a request whole or answers with a mistake
// and changes nothing.  Every public map has what a request needs beside it, so that a request
// costs what it changes and not what is there: users of a next hop, next hops by what they are,
// prefixes by network.
#include "chassis/chip/chip.h"

#include <algorithm>
#include <cstring>

namespace chassis::chip {

namespace {

constexpr std::size_t journal_lines = 1 << 17, mistake_lines_kept = 1000;
constexpr std::size_t group_members = 64; // the library may add one past its own eight
constexpr std::uint32_t to_cpu = 2;

constexpr unsigned host_bits(std::uint32_t family) {
    return family == 1 ? 32 : 128;
}

bool is_valid(const Address &key) {
    return (key.family == 1 || key.family == 2) && key.prefix_len <= host_bits(key.family);
}

// The network of a prefix: the same key for every address inside it.
Address masked(Address key) {
    for (unsigned i = 0; i < key.bytes.size(); i++) {
        const unsigned kept = key.prefix_len > 8 * i ? std::min(key.prefix_len - 8 * i, 8u) : 0;
        key.bytes[i] &= std::uint8_t(0xFF00 >> kept);
    }
    return key;
}

bool is_host(const Address &key) {
    return key.prefix_len == host_bits(key.family);
}

template <class Lines> void keep_line(Lines &lines, std::string line, std::size_t limit) {
    if (lines.size() >= limit)
        lines.pop_front();
    lines.push_back(std::move(line));
}

struct Word {
    Function kind;
    std::string_view name; // of the contract function
    std::string_view word; // of the command language
};

#define CHIP_REQUEST(name, word)                                                                   \
    Word {                                                                                         \
        Function::name, #name, word                                                                \
    }
constexpr Word words[] = {
    CHIP_REQUEST(add_l3_intf, "interface"),
    CHIP_REQUEST(delete_l3_intf, "interface-del"),
    CHIP_REQUEST(interface_vrf_set, "vrf"),
    CHIP_REQUEST(interface_mpls_enable, "mpls"),
    CHIP_REQUEST(add_ip_entry, "route"),
    CHIP_REQUEST(del_ip_entry, "route-del"),
    CHIP_REQUEST(default_route_set, "default-route"),
    CHIP_REQUEST(add_ip_nexthop, "nexthop"),
    CHIP_REQUEST(del_ip_nexthop, "nexthop-del"),
    CHIP_REQUEST(add_ecmp_nexthop, "group"),
    CHIP_REQUEST(update_ecmp_nexthop, "group-member"),
    CHIP_REQUEST(del_ecmp_nexthop, "group-del"),
    CHIP_REQUEST(set_ecmp_hash_ctl, "hash"),
    CHIP_REQUEST(set_arp_to_cpu, "arp-rule"),
    CHIP_REQUEST(set_ospf_to_cpu, "ospf-rule"),
    CHIP_REQUEST(set_ipv6_ns_rule, "nd-rule"),
    CHIP_REQUEST(other, "other"),
};
#undef CHIP_REQUEST
static_assert(std::size(words) == std::size_t(Function::count));

} // namespace

std::string_view name_of(Function kind) {
    return kind < Function::count ? words[std::size_t(kind)].name : "?";
}

std::optional<Function> request_named(std::string_view name) {
    for (const Word &word : words)
        if (name == word.name || name == word.word)
            return word.kind;
    return std::nullopt;
}

// --- lookup
// ---------------------------------------------------------------------------------------------------------

std::optional<Address> Chip::match(std::int32_t vrf, std::uint32_t family,
                                   const std::uint8_t *address, unsigned prefix_len) const {
    Address key{vrf, family, {}, prefix_len};
    std::memcpy(key.bytes.data(), address, host_bits(family) / 8);
    if (is_host(key))
        return entries.contains(key) ? std::optional(key) : std::nullopt;
    const auto found = masked_.find(masked(key));
    return found != masked_.end() ? std::optional(found->second.back()) : std::nullopt;
}

std::optional<Answer> Chip::lookup(std::int32_t vrf, std::uint32_t family,
                                   const std::uint8_t *address) const {
    if (family != 1 && family != 2)
        return std::nullopt;
    const std::lock_guard guard(mutex_);
    const auto lengths = lengths_.find({vrf, family});
    for (int length = int(host_bits(family)); length >= 0; length--) {
        const bool in_use = length == int(host_bits(family)) ||
                            (lengths != lengths_.end() && lengths->second[unsigned(length)] > 0);
        const auto entry = in_use ? match(vrf, family, address, unsigned(length)) : std::nullopt;
        if (!entry)
            continue;
        const std::uint32_t index = entries.at(*entry);
        const auto group = groups.find(index);
        if (group != groups.end())
            return Answer{*entry, index, true, group->second};
        if (!is_target(index)) // a group that has gone: it forwards nowhere
            return Answer{*entry, index, true, {}};
        return Answer{*entry, index, false, {index}};
    }
    return std::nullopt;
}

// --- refusals, counts, journal
// --------------------------------------------------------------------------------------

void Chip::refuse(Function kind, unsigned count, int code, unsigned skip) {
    const std::lock_guard guard(mutex_);
    refusals_.at(std::size_t(kind)) = {skip, count, code};
}

// The code of an ordered refusal that is due, else 0.
int Chip::ordered_refusal(Function kind) {
    Refusal &refusal = refusals_[std::size_t(kind)];
    if (refusal.count == 0)
        return 0;
    if (refusal.skip > 0) {
        refusal.skip--;
        return 0;
    }
    refusal.count--;
    return refusal.code;
}

// The library sets its marks for interfaces and trap rules whatever the chip says, so an ordered
// refusal there is followed by an add of what stayed or a delete of what never came.  The chip does
// not hold that against it.
bool Chip::is_forgiven(Function kind, std::uint32_t key) const {
    return forgiven_.contains({kind, key});
}

void Chip::note(Function kind, const Outcome &outcome, const std::string &line) {
    if (recording_)
        keep_line(journal_, line, journal_lines);
    if (recording_ && watcher_)
        watcher_(line);
    if (outcome.mistake == nullptr)
        return;
    mistakes_++;
    keep_line(mistake_lines_, std::string(name_of(kind)) + ": " + outcome.mistake + ": " + line,
              mistake_lines_kept);
}

std::uint64_t Chip::requests(Function kind) const {
    const std::lock_guard guard(mutex_);
    return requests_.at(std::size_t(kind));
}

std::uint64_t Chip::mistakes() const {
    const std::lock_guard guard(mutex_);
    return mistakes_;
}

std::vector<std::string> Chip::mistake_lines() const {
    const std::lock_guard guard(mutex_);
    return {mistake_lines_.begin(), mistake_lines_.end()};
}

void Chip::record(bool on) {
    const std::lock_guard guard(mutex_);
    recording_ = on;
}

std::vector<std::string> Chip::journal() const {
    const std::lock_guard guard(mutex_);
    return {journal_.begin(), journal_.end()};
}

void Chip::clear_journal() {
    const std::lock_guard guard(mutex_);
    journal_.clear();
}

void Chip::watch(std::function<void(const std::string &)> watcher) {
    const std::lock_guard guard(mutex_);
    watcher_ = std::move(watcher);
}

void Chip::answer_slots(std::vector<unsigned> slots) {
    const std::lock_guard guard(mutex_);
    slots_ = std::move(slots);
}

void Chip::fail_slot(Function kind, unsigned slot, int code) {
    const std::lock_guard guard(mutex_);
    failing_slots_[{kind, slot}] = code;
}

void Chip::set_null(bool on) {
    const std::lock_guard guard(mutex_);
    null_ = on;
}

// --- interfaces and rules
// -------------------------------------------------------------------------------------------

Chip::Outcome Chip::add_interface(std::uint16_t vlan, const std::uint8_t *mac, std::uint32_t *id) {
    const auto found = interfaces.find(vlan);
    if (found != interfaces.end()) {
        if (!is_forgiven(Function::delete_l3_intf, vlan))
            return {-1, "the VLAN has an interface"};
        interfaces.erase(found);
        forgiven_.erase({Function::delete_l3_intf, vlan});
    }
    Interface interface { {}, new_index(), 0 };
    std::copy_n(mac, interface.mac.size(), interface.mac.begin());
    *id = interface.id;
    interfaces.emplace(vlan, interface);
    forgiven_.erase({Function::add_l3_intf, vlan});
    return {};
}

Chip::Outcome Chip::delete_interface(std::uint16_t vlan) {
    if (interfaces.erase(vlan) > 0)
        return {};
    if (forgiven_.erase({Function::add_l3_intf, vlan}) > 0)
        return {-1};
    return {-1, "the VLAN has no interface"};
}

Chip::Outcome Chip::set_arp_rule(std::uint16_t vlan, bool on) {
    const bool forgiven = forgiven_.erase({Function::set_arp_to_cpu, vlan}) > 0;
    const bool changed = on ? arp_rules.insert(vlan).second : arp_rules.erase(vlan) > 0;
    if (changed || forgiven)
        return {};
    return {-1, on ? "the rule is there" : "no such rule"};
}

// --- next hops and groups
// -------------------------------------------------------------------------------------------

bool Chip::is_target(std::uint32_t index) const {
    return index == to_cpu || nexthops.contains(index) || groups.contains(index) ||
           others_.contains(index);
}

void Chip::use(std::uint32_t index, int change) {
    if (nexthops.contains(index))
        uses_[index] += unsigned(change);
}

Chip::Outcome Chip::add_nexthop(const NextHop &nexthop, std::uint32_t *id, bool again) {
    if (again) {
        const auto found = index_of_.lower_bound(nexthop);
        if (found == index_of_.end() || found->first != nexthop)
            return {-1, "no such next hop to program again"};
        *id = found->second;
        return {};
    }
    *id = new_index();
    put_nexthop(*id, nexthop);
    return {};
}

Chip::Outcome Chip::delete_nexthop(std::uint32_t id) {
    const auto found = nexthops.find(id);
    if (found == nexthops.end())
        return {-1, "no such next hop"};
    if (const auto users = uses_.find(id); users != uses_.end() && users->second > 0) {
        const bool kept_on_order = is_forgiven(Function::del_ip_entry, id) ||
                                   is_forgiven(Function::update_ecmp_nexthop, id);
        return {-1, kept_on_order ? nullptr : "the next hop is in use"};
    }
    drop_nexthop(id);
    return {};
}

Chip::Outcome Chip::add_group(std::int32_t *group, const Members &members, bool again) {
    if (again)
        return groups.contains(std::uint32_t(*group))
                   ? Outcome{}
                   : Outcome{-1, "no such group to program again"};
    const auto is_member = [&](std::uint32_t member) { return is_target(member); };
    if (!std::all_of(members.begin(), members.end(), is_member))
        return {-1, "no such next hop"};
    const std::uint32_t index = new_index();
    put_group(index, members);
    *group = std::int32_t(index);
    return {};
}

Chip::Outcome Chip::update_group(std::int32_t group, bool adding, const Members &members,
                                 bool again) {
    const auto found = groups.find(std::uint32_t(group));
    if (found == groups.end())
        return {-1, "no such group"};
    Members changed = found->second;
    for (const std::uint32_t member : members) {
        const auto place = std::find(changed.begin(), changed.end(), member);
        if (again && adding == (place != changed.end()))
            continue;
        if (again)
            return {-1, "the group's members differ from those to program again"};
        if (adding && !is_target(member))
            return {-1, "no such next hop"};
        if (!adding && place == changed.end())
            return {-1}; // one that was refused, or whose group was full when it came
        adding ? changed.push_back(member) : void(changed.erase(place));
    }
    if (changed.size() > group_members)
        return {-1};
    if (!again)
        put_group(found->first, changed);
    return {};
}

// A group may go while entries still name it: they forward nowhere until they are deleted.
Chip::Outcome Chip::delete_group(std::int32_t group) {
    const auto found = groups.find(std::uint32_t(group));
    if (found == groups.end())
        return {-1, "no such group"};
    drop_group(found->first);
    return {};
}

Chip::Outcome Chip::delete_other(std::uint32_t index) {
    return others_.erase(index) > 0 ? Outcome{} : Outcome{-1, "no such object"};
}

// --- address entries
// ------------------------------------------------------------------------------------------------

Chip::Outcome Chip::add_entry(const Address &key, std::uint32_t index, bool again) {
    if (!is_valid(key))
        return {-1, "no such family or prefix length"};
    if (!is_target(index))
        return {-1, "no such next hop"};
    const auto present = entries.find(key);
    const bool identical = present != entries.end() && present->second == index;
    if (again)
        return identical ? Outcome{} : Outcome{-1, "no such entry to program again"};
    if (identical && index == to_cpu && forgiven_.erase({Function::del_ip_entry, to_cpu}) > 0)
        return {};
    if (identical)
        return {-1, "the entry is there"};
    if (present != entries.end())
        drop_entry(key);
    keep_entry(key, index);
    return {};
}

// Interface addresses belong to the platform as well, which may have taken one away before the
// library does.
Chip::Outcome Chip::delete_entry(const Address &key, std::uint32_t index) {
    if (!is_valid(key))
        return {-1, "no such family or prefix length"};
    const auto present = entries.find(key);
    if (present != entries.end() && present->second == index) {
        drop_entry(key);
        return {};
    }
    if (index == to_cpu)
        return {-1};
    return {-1, present == entries.end() ? "no such entry" : "the entry has another next hop"};
}

void Chip::keep_entry(const Address &key, std::uint32_t index) {
    entries.emplace(key, index);
    use(index, 1);
    tell(entry_change(key, index, true));
    if (is_host(key))
        return;
    masked_[masked(key)].push_back(key);
    lengths_[{key.vrf, key.family}][key.prefix_len]++;
}

void Chip::drop_entry(const Address &key) {
    const auto present = entries.find(key);
    tell(entry_change(key, present->second, false));
    use(present->second, -1);
    entries.erase(present);
    if (is_host(key))
        return;
    const auto same = masked_.find(masked(key));
    std::erase(same->second, key);
    if (same->second.empty())
        masked_.erase(same);
    lengths_[{key.vrf, key.family}][key.prefix_len]--;
}

void Chip::take_over(const Chip &other) {
    if (this == &other)
        return;
    const std::scoped_lock guard(mutex_, other.mutex_);
    entries = other.entries;
    nexthops = other.nexthops;
    groups = other.groups;
    cpu_default = other.cpu_default;
    hash_mode = other.hash_mode;
    next_index_ = std::max(next_index_, other.next_index_);
    uses_ = other.uses_;
    index_of_ = other.index_of_;
    masked_ = other.masked_;
    lengths_ = other.lengths_;
    others_.insert(other.others_.begin(), other.others_.end());
    for (const auto &[kind, key] : other.forgiven_)
        if (kind == Function::del_ip_entry || kind == Function::update_ecmp_nexthop)
            forgiven_.emplace(kind, key);
}

} // namespace chassis::chip
