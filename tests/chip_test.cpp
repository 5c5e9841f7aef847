// The chip model: what it calls a mistake, whose slots answer, and changes that are none.

#include "chassis/chassis.h"
#include "chassis/chip/changes_file.h"
#include "chassis/chip/objects.h"
#include "platform/dal.h"
#include "platform/hal.h"

#include <functional>
#include <gtest/gtest.h>

using namespace chassis;
using namespace chassis::chip;

namespace {

constexpr std::uint8_t mac[6] = {2, 0, 0, 0, 1, 2};
constexpr std::uint32_t slot_3 = 1u << 3;

Address entry(std::uint8_t last, std::uint32_t prefix_len = 32) {
    return {0, 1, {10, 1, 1, last}, prefix_len};
}

NextHop nexthop(std::uint8_t last) {
    return {2, 3, 100, 0, {2, 0, 0, 0, 0, last}};
}

int add(std::uint8_t last, unsigned length, std::uint32_t nexthop, std::uint32_t slots = 0) {
    return dal_driver_add_ip_entry(0, 1, entry(last).bytes.data(), length, nexthop, slots);
}

int del(std::uint8_t last, unsigned length, std::uint32_t nexthop) {
    return dal_driver_del_ip_entry(0, 1, entry(last).bytes.data(), length, nexthop, 0);
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
    Chip &chip = card.chip;
};

} // namespace

TEST_F(ChipTest, AMistakeIsCountedAndChangesNothing) {
    const std::uint32_t used = new_nexthop(1), member = new_nexthop(2), spare = new_nexthop(3);
    const std::int32_t group = new_group();
    ASSERT_EQ(change_group(group, 1, member), 0);
    ASSERT_EQ(add(2, 32, used), 0);
    ASSERT_EQ(new_interface(100), 0);
    ASSERT_EQ(hal_set_arp_to_cpu(100, 0, 1), 0);
    ASSERT_EQ(dal_driver_add_gre_tunnel(0, mac, mac, 5, 0, 0), 0);
    const auto before = chip.forwarding();
    const struct {
        const char *what;
        std::function<int()> make;
    } mistakes[] = {
        {"adding what is there", [&] { return add(2, 32, used); }},
        {"naming no next hop", [&] { return add(3, 32, 99); }},
        {"a prefix length past the address", [&] { return add(3, 33, used); }},
        {"no such entry", [&] { return del(3, 32, used); }},
        {"the entry has another next hop", [&] { return del(2, 32, spare); }},
        {"a next hop in use by an entry", [&] { return dal_driver_del_ip_nexthop(used, 0); }},
        {"a next hop in use by a group", [&] { return dal_driver_del_ip_nexthop(member, 0); }},
        {"no such next hop", [&] { return dal_driver_del_ip_nexthop(99, 0); }},
        {"no such group", [&] { return change_group(99, 1, member); }},
        {"a member that is no next hop", [&] { return change_group(group, 1, 99); }},
        {"an interface that is there", [&] { return new_interface(100); }},
        {"no such interface", [&] { return dal_driver_delete_l3_intf(mac, 101, 0); }},
        {"a rule that is there", [&] { return hal_set_arp_to_cpu(100, 0, 1); }},
        {"no such rule", [&] { return hal_set_arp_to_cpu(101, 0, 0); }},
        {"a tunnel that is there", [&] { return dal_driver_add_gre_tunnel(0, mac, mac, 5, 0, 0); }},
        {"no such tunnel", [&] { return dal_driver_del_gre_tunnel(0, mac, mac, 6, 0, 0); }},
        {"a slot's entry that is not there", [&] { return add(3, 32, used, slot_3); }},
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
    EXPECT_EQ(chip.forwarding(), before);
}

TEST_F(ChipTest, AnEntryOfAGroupThatHasGoneForwardsNowhere) {
    const std::int32_t group = new_group();
    ASSERT_EQ(add(0, 24, std::uint32_t(group)), 0);
    ASSERT_EQ(dal_driver_del_ecmp_nexthop(group, 0), 0);
    const auto answer = chip.lookup(0, 1, entry(9).bytes.data());
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->members.empty());
    EXPECT_EQ(del(0, 24, std::uint32_t(group)), 0);
    EXPECT_EQ(chip.mistakes(), 0u);
}

TEST_F(ChipTest, SlotsThatARequestReachesReportTheirOwnAnswers) {
    std::string logged;
    card.os.log_to([&](const os::LogLine &line) { logged += line.text; });
    chip.answer_slots({2, 3});
    chip.fail_slot(Function::add_ip_entry, 3, -5);
    const std::uint32_t nexthop = new_nexthop(1);
    EXPECT_EQ(add(2, 32, nexthop), 0);
    EXPECT_TRUE(logged.starts_with("dpm_driver_add_ip_entry_result obj_bit 8 result -5 "));
    logged.clear();
    EXPECT_EQ(add(2, 32, nexthop, slot_3), 0) << "a slot fails once";
    chip.fail_slot(Function::add_ip_entry, 2, -5);
    EXPECT_EQ(add(2, 32, nexthop, slot_3), 0) << "the other slot is not asked";
    EXPECT_EQ(logged, "");
}

TEST_F(ChipTest, ANullChipTakesEverythingAndKeepsNothing) {
    chip.set_null(true);
    EXPECT_NE(new_nexthop(4), 0u);
    EXPECT_EQ(add(9, 32, 99), 0);
    EXPECT_TRUE(chip.forwarding().empty());
    EXPECT_EQ(chip.mistakes(), 0u);
}

// That changes make another chip forward alike is seen at every switch-over of the rig.
TEST(Forwarding, TakesNoHarmFromChangesThatRepeatComeLateOrAreNone) {
    Chip chip;
    const Index index = 40;
    const NextHop what = nexthop(1);
    const Members members{index};
    for (const bool there : {true, true, false, false}) {
        chip.apply(change_of<kinds::nexthop>(index, there ? &what : nullptr));
        chip.apply(change_of<kinds::group>(41, there ? &members : nullptr));
        chip.apply(change_of<kinds::entry>(entry(1), there ? &index : nullptr));
    }
    Change change = change_of<kinds::nexthop>(index, &what);
    for (const unsigned size : {0u, 3u, change.size - 1, change.size + 1, ~0u}) {
        change.size = size;
        EXPECT_FALSE(chip.apply(change)) << size;
    }
    EXPECT_FALSE(chip.apply(change_of<kinds::entry>(entry(1, 65535), &index)));
    change.kind = ~0u;
    EXPECT_FALSE(chip.apply(change));
    EXPECT_TRUE(chip.forwarding().empty());
    chip.apply(change_of<kinds::entry>(entry(1), &index)); // leads nowhere, and stays harmless
    EXPECT_EQ(chip.lookup(0, 1, entry(1).bytes.data())->index, index);
}

TEST(ChangesFile, IsReadWholeOrNotAtAllButForACutLastRecord) {
    const NextHop value = nexthop(2);
    FileBytes file = file_header(7);
    const auto append = [&](const FileBytes &part) {
        file.insert(file.end(), part.begin(), part.end());
    };
    append(file_record(change_of<kinds::nexthop>(16, &value), 1));
    EXPECT_NE(read_changes(file).fault, "") << "the snapshot does not end";
    append(file_end_mark(2));
    const std::size_t snapshot = file.size();
    append(file_record(change_of<kinds::nexthop>(16, nullptr), 3));
    EXPECT_EQ(read_changes(file).term, 7u);
    EXPECT_EQ(read_changes(file).changes.size(), 2u);
    for (std::size_t size = snapshot; size < file.size(); ++size)
        EXPECT_EQ(read_changes(std::span(file).first(size)).changes.size(), 1u) << size;
    for (std::byte &byte : file) {
        byte ^= std::byte{4};
        EXPECT_LE(read_changes(file).changes.size(), 1u) << &byte - file.data();
        EXPECT_TRUE(&byte >= &file[snapshot] || !read_changes(file).fault.empty());
        byte ^= std::byte{4};
    }
}
