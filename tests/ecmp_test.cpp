// ECMP groups: the record, the chip's group and the standby's copy through every change and
// refusal.  The groups here are the test's own: no route points to them.

#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "support/shelf.h"

#include <algorithm>

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
using Members = std::vector<std::uint32_t>;

class Groups : public rig::Shelf, public ::testing::WithParamInterface<std::uint32_t> {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        for (unsigned i = 0; i < 9; ++i) {
            const std::string last = std::to_string(i + 2);
            learn_host({.ip = "10.1.1." + last, .mac = "02:00:00:00:01:0" + last});
            members.push_back(host(master(), "10.1.1." + last)->sdk_index);
        }
        master().peer.record(true);
        clear_journal();
    }
    int add(std::int32_t &index, unsigned member) {
        const int result = dpm_ecmp_add(GetParam(), &index, members[member]);
        settle();
        return result;
    }
    int del(std::int32_t &index, unsigned member) {
        const int result = dpm_ecmp_del(GetParam(), &index, members[member]);
        settle();
        return result;
    }
    int del_all(std::int32_t &index) {
        const int result = dpm_ecmp_del_all(GetParam(), &index);
        settle();
        return result;
    }
    // The record's members in their slots, and the standby's must be the same.
    Members recorded(std::int32_t index) {
        Members slots[2];
        for (chassis::Card *card : cards())
            for (const dpm_ecmp_entry &group : groups(*card))
                if (group.sdk_index == index && group.ecmp_type == GetParam())
                    slots[card == &standby()].assign(std::begin(group.host_sdk),
                                                     std::begin(group.host_sdk) + 8);
        EXPECT_EQ(slots[0], slots[1]) << "the standby's";
        return slots[0];
    }
    Members slots(std::initializer_list<int> positions) { // -1: a free one
        Members wanted;
        for (const int position : positions)
            wanted.push_back(position < 0 ? 0 : members[unsigned(position)]);
        wanted.resize(8);
        return wanted;
    }
    unsigned mirrored() { // adds since the last clear_journal()
        const auto calls = master().peer.calls();
        return unsigned(std::count_if(calls.begin(), calls.end(), [](const auto &call) {
            return call.name == "dpm_ecmp_entry_add_sync_receive";
        }));
    }
    Members members; // next hops
};
INSTANTIATE_TEST_SUITE_P(Families, Groups, ::testing::Values(DPM_FAMILY_IPV4, DPM_FAMILY_IPV6));

} // namespace

TEST_P(Groups, TheFirstMemberCreatesAGroupAndTheLastEndsIt) {
    std::int32_t index = 0;
    EXPECT_EQ(add(index, 0), 0);
    ASSERT_GE(index, 16);
    EXPECT_EQ(recorded(index), slots({0}));
    EXPECT_EQ(add(index, 1), 0);
    EXPECT_EQ(add(index, 2), 0);
    EXPECT_EQ(del(index, 1), 0);
    EXPECT_EQ(recorded(index), slots({0, -1, 2}));
    EXPECT_EQ(add(index, 3), 0);
    EXPECT_EQ(recorded(index), slots({0, 3, 2})) << "the first free slot";
    allow().group_leaks = 1;
    check_laws();
    allow().group_leaks = 0;
    for (const unsigned member : {0u, 3u, 2u})
        EXPECT_EQ(del(index, member), 0);
    EXPECT_EQ(index, 0);
    EXPECT_TRUE(groups(master()).empty());
    EXPECT_TRUE(groups(standby()).empty());
}

TEST_P(Groups, ANinthMemberIsInTheChipAloneAndGoesWithItsGroup) {
    std::int32_t index = 0;
    for (unsigned member = 0; member < 9; ++member)
        EXPECT_EQ(add(index, member), 0);
    EXPECT_EQ(groups(master()).at(0).host_cnt, 8u);
    EXPECT_EQ(recorded(index), slots({0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(master().chip.groups.at(std::uint32_t(index)).size(), 9u);
    EXPECT_EQ(del_all(index), 0);
    EXPECT_EQ(index, 0);
    EXPECT_TRUE(master().chip.groups.empty());
}

TEST_P(Groups, AMemberThatIsNotRecordedIsAskedOfTheChipAndTheRecordMirrored) {
    std::int32_t index = 0;
    add(index, 0);
    clear_journal();
    EXPECT_EQ(del(index, 5), 0);
    EXPECT_EQ(chip_calls(master()).size(), 1u);
    EXPECT_EQ(mirrored(), 1u);
    EXPECT_EQ(recorded(index), slots({0}));
    EXPECT_EQ(del(index, 0), 0);
}

TEST_P(Groups, OfBothFamiliesTogetherThereAre1024) {
    std::vector<std::int32_t> indexes(1024);
    for (unsigned i = 0; i < 1024; ++i)
        ASSERT_EQ(dpm_ecmp_add(1 + i % 2, &indexes[i], members[0]), 0);
    std::int32_t one_more = 0;
    EXPECT_EQ(add(one_more, 0), -1);
    EXPECT_EQ(one_more, 0);
    EXPECT_EQ(logged(master(), "ecmp entry is full!!!"), 1u);
    EXPECT_EQ(add(indexes[GetParam() - 1], 1), 0) << "a present group takes members";
    EXPECT_EQ(groups(standby()).size(), 1024u);
    for (unsigned i = 0; i < 1024; ++i)
        ASSERT_EQ(dpm_ecmp_del_all(1 + i % 2, &indexes[i]), 0);
}

TEST_P(Groups, WhatTheChipRefusesLeavesTheRecordAsItWas) {
    std::int32_t index = 0;
    refuse(Function::add_ecmp_nexthop);
    EXPECT_EQ(add(index, 0), 0) << "the caller waits";
    EXPECT_EQ(index, 0);
    EXPECT_EQ(logged(master(), "driver create ecmp failed!"), 1u);

    fail(Fault::allocation);
    EXPECT_EQ(add(index, 0), -1);
    EXPECT_EQ(index, 0);
    EXPECT_TRUE(master().chip.groups.empty()) << "given back";

    refuse(Function::update_ecmp_nexthop);
    EXPECT_EQ(add(index, 0), 0);
    EXPECT_EQ(recorded(index), slots({})) << "a group without member";
    EXPECT_EQ(add(index, 1), 0);
    refuse(Function::update_ecmp_nexthop);
    EXPECT_EQ(add(index, 2), 0);
    EXPECT_EQ(recorded(index), slots({1}));
    clear_journal();
    refuse(Function::update_ecmp_nexthop);
    EXPECT_EQ(del(index, 1), 0);
    EXPECT_EQ(recorded(index), slots({1}));
    EXPECT_EQ(mirrored(), 1u);
    refuse(Function::update_ecmp_nexthop);
    EXPECT_EQ(del_all(index), 0);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(logged(master(), ":: driver_ecmp_del failed! ecmp_type"), 1u);
    EXPECT_TRUE(groups(standby()).empty());
}

TEST_P(Groups, AnIndexThatTheChipNeverGaveOutAndAnUnknownFamilyChangeNothing) {
    std::int32_t unknown = 4711;
    EXPECT_EQ(add(unknown, 0), -1);
    EXPECT_EQ(del(unknown, 0), -1);
    EXPECT_EQ(del_all(unknown), -1);
    EXPECT_EQ(unknown, 4711);
    EXPECT_EQ(logged(master(), "sdk_index = 4711, can not find same ecmp_entry"), 3u);
    clear_journal();
    for (const std::uint32_t family : {0u, 3u}) {
        std::int32_t index = 0;
        EXPECT_EQ(dpm_ecmp_add(family, &index, members[0]), 0);
        EXPECT_EQ(dpm_ecmp_del(family, &unknown, members[0]), 0);
        EXPECT_EQ(dpm_ecmp_del_all(family, &unknown), 0);
        EXPECT_EQ(index, 0);
        const dpm_ecmp_entry key{};
        EXPECT_EQ(dpm_ecmp_find_by_entry(family, &key), nullptr);
        EXPECT_EQ(dpm_api_get_ecmp_entry_first(family), nullptr);
    }
    EXPECT_EQ(logged(master(), "::ecmp_type = "), 6u) << "del_all in silence";
    EXPECT_EQ(logged(master(), "::iptype = "), 2u);
    EXPECT_EQ(dpm_ecmp_compare(nullptr, nullptr), -1);
    EXPECT_TRUE(chip_calls(master()).empty());
}
