// The chip model: what it forwards, what it calls a mistake, and what it can be told to do.

#include "chassis/chassis.h"
#include "platform/dal.h"
#include "platform/hal.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <random>

using namespace chassis;
using chip::Request;

namespace {

constexpr std::uint8_t mac[6] = {2, 0, 0, 0, 1, 2};
constexpr std::uint32_t every_slot = ~0u, slot_3 = 1u << 3;

std::array<std::uint8_t, 16> bytes_of(const char *address) {
    std::array<std::uint8_t, 16> bytes{};
    inet_pton(std::strchr(address, ':') ? AF_INET6 : AF_INET, address, bytes.data());
    return bytes;
}

std::uint32_t family_of(const char *address) {
    return std::strchr(address, ':') ? 2 : 1;
}

int add(const char *address, unsigned length, std::uint32_t nexthop, std::uint32_t slots = 0,
        int vrf = 0) {
    return dal_driver_add_ip_entry(vrf, family_of(address), bytes_of(address).data(), length,
                                   nexthop, slots);
}

int del(const char *address, unsigned length, std::uint32_t nexthop) {
    return dal_driver_del_ip_entry(0, family_of(address), bytes_of(address).data(), length, nexthop,
                                   0);
}

std::uint32_t new_nexthop(std::uint32_t port, std::uint32_t slots = 0) {
    std::uint32_t id = 0;
    return dal_driver_add_ip_nexthop(2, port, &id, 100, 0, mac, slots) == 0 ? id : 0;
}

int new_interface(std::uint16_t vlan) {
    std::uint32_t id = 0;
    return dal_driver_add_l3_intf(mac, vlan, &id, 0);
}

int change_group(std::int32_t group, std::uint32_t operation, std::uint32_t member,
                 std::uint32_t slots = 0) {
    const std::uint32_t members[8] = {member};
    return dal_driver_update_ecmp_nexthop(group, operation, 1, members, slots);
}

std::int32_t new_group() {
    const std::uint32_t none[8] = {};
    std::int32_t group = 0;
    return dal_driver_add_ecmp_nexthop(&group, 0, 0, none, 0) == 0 ? group : 0;
}

class ChipTest : public testing::Test {
protected:
    Card card{{.slot = 9, .mode = os::Mode::pumped}};
    chip::Chip &chip = card.chip;
};

} // namespace

TEST_F(ChipTest, LookupAgreesWithAWalkOverEveryEntry) {
    std::mt19937 random(1);
    std::vector<std::uint32_t> nexthops;
    for (unsigned port = 1; port <= 8; port++)
        nexthops.push_back(new_nexthop(port));
    const auto any_address = [&] { return htonl(0x0A000000 | (random() & 0x0F0F0F)); };
    const auto mask = [](std::uint32_t length) { return length ? htonl(~0u << (32 - length)) : 0; };
    for (int step = 0; step < 3000; step++) {
        const std::uint32_t length = random() % 33, address = any_address() & mask(length);
        const std::uint32_t nexthop = nexthops[random() % nexthops.size()];
        const auto place = std::find_if(chip.entries.begin(), chip.entries.end(), [&](auto &entry) {
            return entry.first.prefix_len == length &&
                   std::memcmp(entry.first.bytes.data(), &address, 4) == 0;
        });
        const int result = place == chip.entries.end()
                               ? dal_driver_add_ip_entry(0, 1, &address, length, nexthop, 0)
                               : dal_driver_del_ip_entry(0, 1, &address, length, place->second, 0);
        ASSERT_EQ(result, 0);

        const std::uint32_t wanted = any_address();
        const std::pair<const chip::Address, std::uint32_t> *best = nullptr;
        for (const auto &entry : chip.entries) {
            std::uint32_t network;
            std::memcpy(&network, entry.first.bytes.data(), 4);
            if ((wanted & mask(entry.first.prefix_len)) == network &&
                (!best || best->first.prefix_len < entry.first.prefix_len))
                best = &entry;
        }
        const auto answer = chip.lookup(0, 1, reinterpret_cast<const std::uint8_t *>(&wanted));
        ASSERT_EQ(answer.has_value(), best != nullptr) << "step " << step;
        if (answer) {
            EXPECT_EQ(answer->entry, best->first);
            EXPECT_EQ(answer->index, best->second);
        }
    }
    EXPECT_EQ(chip.mistakes(), 0u);
}

TEST_F(ChipTest, AMistakeIsCountedAndChangesNothing) {
    const std::uint32_t used = new_nexthop(1), member = new_nexthop(2), spare = new_nexthop(3);
    const std::int32_t group = new_group();
    ASSERT_EQ(change_group(group, 1, member), 0);
    ASSERT_EQ(add("10.1.1.2", 32, used), 0);
    ASSERT_EQ(new_interface(100), 0);
    ASSERT_EQ(hal_set_arp_to_cpu(100, 0, 1), 0);
    const auto entries = chip.entries;
    const auto nexthops = chip.nexthops;
    const auto groups = chip.groups;
    const struct {
        const char *what;
        std::function<int()> make;
    } mistakes[] = {
        {"adding what is there", [&] { return add("10.1.1.2", 32, used); }},
        {"naming no next hop", [&] { return add("10.1.1.3", 32, 99); }},
        {"a prefix length past the address", [&] { return add("10.1.1.3", 33, used); }},
        {"no such entry", [&] { return del("10.1.1.3", 32, used); }},
        {"the entry has another next hop", [&] { return del("10.1.1.2", 32, spare); }},
        {"a next hop in use by an entry", [&] { return dal_driver_del_ip_nexthop(used, 0); }},
        {"a next hop in use by a group", [&] { return dal_driver_del_ip_nexthop(member, 0); }},
        {"no such next hop", [&] { return dal_driver_del_ip_nexthop(99, 0); }},
        {"no such group", [&] { return change_group(99, 1, member); }},
        {"a member that is no next hop", [&] { return change_group(group, 1, 99); }},
        {"deleting no group", [&] { return dal_driver_del_ecmp_nexthop(99, 0); }},
        {"an interface that is there", [&] { return new_interface(100); }},
        {"no such interface", [&] { return dal_driver_delete_l3_intf(mac, 101, 0); }},
        {"a rule that is there", [&] { return hal_set_arp_to_cpu(100, 0, 1); }},
        {"no such rule", [&] { return hal_set_arp_to_cpu(101, 0, 0); }},
        {"a slot's entry that is not there", [&] { return add("10.1.1.3", 32, used, slot_3); }},
        {"a slot's next hop that is not there", [&] { return new_nexthop(9, slot_3) ? 0 : -1; }},
        {"a slot's member that is not there", [&] { return change_group(group, 1, used, slot_3); }},
    };
    EXPECT_EQ(change_group(group, 2, spare), -1) << "no member: refused, and no mistake";
    std::uint64_t count = 0;
    for (const auto &mistake : mistakes) {
        EXPECT_EQ(mistake.make(), -1) << mistake.what;
        EXPECT_EQ(chip.mistakes(), ++count) << mistake.what;
    }
    EXPECT_EQ(chip.mistake_lines().size(), count);
    EXPECT_EQ(chip.entries, entries);
    EXPECT_EQ(chip.nexthops, nexthops);
    EXPECT_EQ(chip.groups, groups);
}

// What was kept on order keeps its next hop, and nobody is to blame for trying to delete that.
TEST_F(ChipTest, ARefusedRemovalExcusesTheNextHopsDelete) {
    const std::uint32_t member = new_nexthop(1), target = new_nexthop(2);
    const std::int32_t group = new_group();
    ASSERT_EQ(change_group(group, 1, member), 0);
    ASSERT_EQ(add("10.1.1.2", 32, target), 0);
    chip.refuse(Request::update_ecmp_nexthop, 1);
    chip.refuse(Request::del_ip_entry, 1);
    EXPECT_EQ(change_group(group, 2, member), -1);
    EXPECT_EQ(del("10.1.1.2", 32, target), -1);
    EXPECT_EQ(dal_driver_del_ip_nexthop(member, 0), -1);
    EXPECT_EQ(dal_driver_del_ip_nexthop(target, 0), -1);
    EXPECT_EQ(chip.mistakes(), 0u);
}

TEST_F(ChipTest, ProgrammingASlotAgainChangesNothing) {
    const std::uint32_t nexthop = new_nexthop(1, every_slot);
    const std::int32_t group = new_group();
    ASSERT_EQ(change_group(group, 1, nexthop), 0);
    ASSERT_EQ(add("10.1.1.2", 32, nexthop, every_slot), 0);
    const auto groups = chip.groups;
    EXPECT_EQ(new_nexthop(1, slot_3), nexthop);
    EXPECT_EQ(add("10.1.1.2", 32, nexthop, slot_3), 0);
    EXPECT_EQ(change_group(group, 1, nexthop, slot_3), 0);
    std::int32_t again = group;
    EXPECT_EQ(dal_driver_add_ecmp_nexthop(&again, 0, 0, nullptr, slot_3), 0);
    EXPECT_EQ(again, group);
    EXPECT_EQ(chip.groups, groups);
    EXPECT_EQ(chip.nexthops.size(), 1u);
    ASSERT_EQ(change_group(group, 2, nexthop), 0);
    ASSERT_EQ(del("10.1.1.2", 32, nexthop), 0);
    EXPECT_EQ(dal_driver_del_ip_nexthop(nexthop, 0), 0) << "nothing counted twice";
    EXPECT_EQ(chip.mistakes(), 0u);
}
