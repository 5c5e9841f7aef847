// What a chip tells of its changes is enough to make another chip forward as it does.
#include "chassis/chip/chip.h"

#include <gtest/gtest.h>
#include <random>

using namespace chassis::chip;

namespace {

Address entry(std::uint8_t last, std::uint32_t prefix_len = 32) {
    return {0, 1, {10, 1, 1, last}, prefix_len};
}

NextHop nexthop(std::uint8_t last) {
    return {2, 3, 100, 0, {2, 0, 0, 0, 0, last}};
}

void expect_equal(const Chip &chip, const Chip &other) {
    EXPECT_EQ(chip.entries, other.entries);
    EXPECT_EQ(chip.nexthops, other.nexthops);
    EXPECT_EQ(chip.groups, other.groups);
    EXPECT_EQ(chip.cpu_default, other.cpu_default);
    EXPECT_EQ(chip.hash_mode, other.hash_mode);
}

// Random requests, sensible and not.
void make_requests(Chip &chip, unsigned count, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::uint32_t> indexes;
    std::vector<std::int32_t> groups;
    const auto any = [&](auto &list) { return list[random() % list.size()]; };
    for (unsigned i = 0; i < count; i++) {
        std::uint32_t index = 0;
        std::int32_t group = 0;
        if (indexes.empty() || random() % 4 == 0) {
            chip.add_nexthop(nexthop(std::uint8_t(random())), &index, false);
            indexes.push_back(index);
        } else if (groups.empty() || random() % 8 == 0) {
            if (chip.add_group(&group, {any(indexes)}, false).code == 0)
                groups.push_back(group);
        }
        chip.add_entry(entry(std::uint8_t(random()), 24 + random() % 9), any(indexes), false);
        chip.delete_entry(entry(std::uint8_t(random())), any(indexes));
        if (!groups.empty()) {
            chip.update_group(any(groups), random() % 2, {any(indexes)}, false);
            chip.add_entry(entry(std::uint8_t(random())), std::uint32_t(any(groups)), false);
        }
        if (random() % 16 == 0)
            chip.delete_nexthop(any(indexes));
        if (!groups.empty() && random() % 64 == 0)
            chip.delete_group(any(groups));
        chip.set_default(1 + random() % 2, std::uint16_t(random() % 4), random() % 2);
        chip.set_hash(random() % 8);
    }
}

TEST(forwarding, is_followed_by_whoever_hears_of_the_changes) {
    for (unsigned seed = 1; seed <= 20; seed++) {
        SCOPED_TRACE(seed);
        Chip chip, follower, latecomer;
        chip.observe([&](const Change &change) { follower.apply(change); });
        make_requests(chip, 500, seed);
        ASSERT_FALSE(chip.entries.empty() || chip.groups.empty());
        expect_equal(chip, follower);
        for (const Change &change : chip.forwarding())
            latecomer.apply(change);
        expect_equal(chip, latecomer);

        // New indexes are new, and next hops are in use there as here.
        std::uint32_t index = 0;
        follower.add_nexthop(nexthop(1), &index, false);
        EXPECT_FALSE(chip.nexthops.contains(index) || chip.groups.contains(index));
        const auto all = chip.nexthops;
        for (const auto &[number, what] : all)
            EXPECT_EQ(chip.delete_nexthop(number).code, latecomer.delete_nexthop(number).code);
    }
}

TEST(forwarding, takes_no_harm_from_changes_that_repeat_or_come_late) {
    Chip chip;
    const std::uint32_t index = 40;
    for (const bool there : {true, true, false, false}) {
        chip.apply(nexthop_change(index, nexthop(1), there));
        chip.apply(group_change(41, {index}, there));
        chip.apply(entry_change(entry(1), index, there));
    }
    EXPECT_TRUE(chip.entries.empty() && chip.nexthops.empty() && chip.groups.empty());
    chip.apply(entry_change(entry(1), 77, true)); // leads nowhere, and stays harmless
    EXPECT_EQ(chip.lookup(0, 1, entry(1).bytes.data())->index, 77u);
}

} // namespace
