// What the chip forwards by, change by change: every change passes through here on its way into
// the maps, so that an observer misses none and another chip can be brought to the same state.
#include "chassis/chip/chip.h"

#include <algorithm>
#include <utility>

namespace chassis::chip {

Change nexthop_change(std::uint32_t index, const NextHop &nexthop, bool there) {
    Change change{};
    change.kind = Change::Kind::nexthop;
    change.there = there;
    change.index = index;
    change.nexthop = nexthop;
    return change;
}

Change group_change(std::uint32_t index, const std::vector<std::uint32_t> &members, bool there) {
    Change change{};
    change.kind = Change::Kind::group;
    change.there = there;
    change.index = index;
    change.member_count = std::uint32_t(std::min(members.size(), change.members.size()));
    std::copy_n(members.begin(), change.member_count, change.members.begin());
    return change;
}

Change entry_change(const Address &key, std::uint32_t index, bool there) {
    Change change{};
    change.kind = Change::Kind::entry;
    change.there = there;
    change.index = index;
    change.key = key;
    return change;
}

Change default_change(std::uint32_t family, std::uint16_t vrf, bool cpu) {
    Change change{};
    change.kind = Change::Kind::cpu_default;
    change.there = true;
    change.key = {vrf, family, {}, cpu};
    return change;
}

Change hash_change(std::uint32_t mode) {
    Change change{};
    change.kind = Change::Kind::hash;
    change.there = true;
    change.index = mode;
    return change;
}

void Chip::put_nexthop(std::uint32_t index, const NextHop &nexthop) {
    nexthops.emplace(index, nexthop);
    index_of_.emplace(nexthop, index);
    tell(nexthop_change(index, nexthop, true));
}

void Chip::drop_nexthop(std::uint32_t index) {
    const auto found = nexthops.find(index);
    tell(nexthop_change(index, found->second, false));
    const auto [first, last] = index_of_.equal_range(found->second);
    index_of_.erase(std::find_if(first, last, [&](auto &pair) { return pair.second == index; }));
    nexthops.erase(found);
    uses_.erase(index);
}

// A new group, or other members of one that is there.
void Chip::put_group(std::uint32_t index, const Members &members) {
    for (const std::uint32_t member : members)
        use(member, 1);
    for (const std::uint32_t member : groups[index])
        use(member, -1);
    groups[index] = members;
    tell(group_change(index, members, true));
}

void Chip::drop_group(std::uint32_t index) {
    const auto found = groups.find(index);
    for (const std::uint32_t member : found->second)
        use(member, -1);
    tell(group_change(index, found->second, false));
    groups.erase(found);
}

Chip::Outcome Chip::set_default(std::uint32_t family, std::uint16_t vrf, bool cpu) {
    cpu_default[{family, vrf}] = cpu;
    tell(default_change(family, vrf, cpu));
    return {};
}

Chip::Outcome Chip::set_hash(std::uint32_t mode) {
    hash_mode = mode;
    tell(hash_change(mode));
    return {};
}

void Chip::observe(std::function<void(const Change &)> observer) {
    const std::lock_guard guard(mutex_);
    observer_ = std::move(observer);
}

// A change may repeat what is there, or take away what is not: then nothing happens.
void Chip::apply(const Change &change) {
    const std::lock_guard guard(mutex_);
    const auto observer = std::exchange(observer_, nullptr);
    if (change.kind == Change::Kind::nexthop || change.kind == Change::Kind::group)
        next_index_ = std::max(next_index_, change.index + 1);
    switch (change.kind) {
    case Change::Kind::nexthop:
        if (nexthops.contains(change.index))
            drop_nexthop(change.index);
        if (change.there)
            put_nexthop(change.index, change.nexthop);
        break;
    case Change::Kind::group:
        if (change.there)
            put_group(change.index,
                      {change.members.begin(),
                       change.members.begin() +
                           std::min<std::size_t>(change.member_count, change.members.size())});
        else if (groups.contains(change.index))
            drop_group(change.index);
        break;
    case Change::Kind::entry:
        if (entries.contains(change.key))
            drop_entry(change.key);
        if (change.there)
            keep_entry(change.key, change.index);
        break;
    case Change::Kind::cpu_default:
        set_default(change.key.family, std::uint16_t(change.key.vrf), change.key.prefix_len == 1);
        break;
    case Change::Kind::hash:
        set_hash(change.index);
        break;
    }
    observer_ = observer;
}

std::vector<Change> Chip::forwarding() const {
    std::vector<Change> changes;
    for (const auto &[index, nexthop] : nexthops)
        changes.push_back(nexthop_change(index, nexthop, true));
    for (const auto &[index, members] : groups)
        changes.push_back(group_change(index, members, true));
    for (const auto &[key, index] : entries)
        changes.push_back(entry_change(key, index, true));
    for (const auto &[key, cpu] : cpu_default)
        changes.push_back(default_change(key.first, key.second, cpu));
    changes.push_back(hash_change(hash_mode));
    return changes;
}

} // namespace chassis::chip
