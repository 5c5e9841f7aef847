// The laws must be able to fail: each is broken once, behind the library's back, and must tell.

#include "dpm.h"
#include "dpm_host.h"
#include "support/laws.h"
#include "support/shelf.h"
#include "support/soundness.h"

#include <algorithm>
#include <gtest/gtest-spi.h>
#include <utility>

namespace {

class Laws : public rig::Shelf {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        learn_host({.ip = "10.1.1.2", .mac = "02:00:00:00:01:02", .port = 1});
        learn_host({.ip = "10.1.1.3", .mac = "02:00:00:00:01:03", .port = 2});
        learn_host({.ip = "10.1.1.4", .mac = "02:00:00:00:01:04", .port = 3});
        ASSERT_EQ(hosts(standby()).size(), 3u);
    }
    dpm_host_entry &first_host() {
        return const_cast<dpm_host_entry &>(*dpm_api_get_host_entry_first(DPM_FAMILY_IPV4));
    }
};

} // namespace

TEST_F(Laws, tell_what_the_chip_lacks_or_has_too_much) {
    auto &chip = master().chip;
    EXPECT_TRUE(rig::laws::chip_equals_tables(master(), 0).empty());
    EXPECT_EQ(rig::laws::chip_equals_tables(master(), 1).size(), 1u);

    auto entry = chip.entries.extract(chip.entries.begin());
    while (entry.mapped() == 2) { // the CPU's own stand first
        chip.entries.insert(std::move(entry));
        entry = chip.entries.extract(
            std::find_if(chip.entries.begin(), chip.entries.end(),
                         [](const auto &present) { return present.second != 2; }));
    }
    EXPECT_EQ(rig::laws::chip_equals_tables(master(), 0).size(), 1u) << "a missing entry";
    entry.key().vrf = 7;
    chip.entries.insert(std::move(entry));
    EXPECT_EQ(rig::laws::chip_equals_tables(master(), 0).size(), 2u) << "and one too many";
    entry = chip.entries.extract(std::prev(chip.entries.end()));
    entry.key().vrf = 0;
    chip.entries.insert(std::move(entry));

    auto object = chip.nexthops.extract(chip.nexthops.begin());
    EXPECT_EQ(rig::laws::chip_equals_tables(master(), 0).size(), 2u) << "missing, and their number";
    object.mapped().svlan ^= 1;
    chip.nexthops.insert(std::move(object));
    EXPECT_EQ(rig::laws::chip_equals_tables(master(), 0).size(), 1u) << "another one";
    chip.nexthops.begin()->second.svlan ^= 1;
}

TEST_F(Laws, tell_where_the_standby_differs_from_the_master) {
    EXPECT_TRUE(rig::laws::standby_equals_master(master(), standby()).empty());
    first_host().cvlan ^= 1;
    EXPECT_EQ(rig::laws::standby_equals_master(master(), standby()).size(), 2u);
    first_host().cvlan ^= 1;
    const std::uint32_t ifindex = hosts(master())[0].ifindex;
    {
        const auto scope = as(standby());
        EXPECT_NE(std::exchange(first_host().ifindex, ifindex), ifindex);
    }
    EXPECT_EQ(rig::laws::standby_equals_master(master(), standby()).size(), 1u);
    const auto scope = as(standby());
    first_host().ifindex = standby().suite.find("vlanif100")->ifindex;
}

TEST_F(Laws, tell_routes_groups_and_labels_that_are_not_as_they_say) {
    add_route({.prefix = "10.2.0.0/16", .via = {{"10.1.1.2"}, {"10.1.1.3"}}});
    add_route({.prefix = "0.0.0.0/0"});
    add_ftn({.prefix = "10.3.0.0/16"});
    add_ilm({.flags = DPM_LABEL_WAITING});
    using namespace rig::laws;
    auto &chip = master().chip;
    dpm_route_entry &single = *route(master(), "0.0.0.0/0"),
                    &group = *route(master(), "10.2.0.0/16");
    const auto broken = [this](auto &field, auto value, unsigned lines, const char *what) {
        const auto kept = std::exchange(field, value);
        EXPECT_EQ(routes_follow_hosts(master(), 0, false).size(), lines) << what;
        field = kept;
    };
    EXPECT_TRUE(routes_follow_hosts(master(), 0, false).empty());
    EXPECT_EQ(routes_follow_hosts(master(), 1, false).size(), 1u) << "a leak that is not there";
    broken(chip.groups.begin()->second, std::vector<std::uint32_t>{}, 1, "members");
    broken(chip.groups, std::map<std::uint32_t, std::vector<std::uint32_t>>{}, 2, "the group");
    broken(chip.cpu_default.at({1, 0}), true, 1, "the CPU's place");
    broken(chip.cpu_default.at({2, 0}), false, 1, "nobody in it");
    broken(single.host_index[0], -1, 2, "the gateway");
    broken(single.sdk_index, 0, 1, "a route outside that is inside");
    broken(group.host_index[1], -1, 2, "a member");
    broken(group.sdk_index, 4711, 3, "the route's group");
    EXPECT_TRUE(standby_equals_master(master(), standby()).empty());
    const auto differs = [this](auto &field) {
        field ^= 1;
        EXPECT_EQ(standby_equals_master(master(), standby()).size(), 2u);
        field ^= 1;
    };
    differs(single.route_type);
    differs(const_cast<dpm_ecmp_entry *>(dpm_api_get_ecmp_entry_first(1))->host_cnt);
    differs(const_cast<dpm_ftn *>(dpm_api_ftn_entry_first())->owner);
    differs(const_cast<dpm_ilm *>(dpm_api_ilm_entry_first())->is_egress);
    const auto unsound = [this](auto &field) {
        ++field;
        EXPECT_EQ(tables_are_sound(master()).size(), 1u);
        --field;
    };
    unsound(g_dpm_index.ipv4_routes.of_length[16]);
    unsound(single.np[0].address[3]);
    auto &flags = const_cast<dpm_ilm *>(dpm_api_ilm_entry_first())->is_egress;
    unsound(flags);
}

TEST_F(Laws, tell_unsound_trees_lists_and_an_unexplained_heap) {
    EXPECT_TRUE(rig::laws::tables_are_sound(master()).empty());
    dpm_avl_node &root = *g_dpm_global.host_ipv4_tree.root;
    const auto broken = [this](auto &field, auto value) {
        const auto kept = std::exchange(field, value);
        const auto lines = rig::laws::tables_are_sound(master());
        field = kept;
        return lines.size();
    };
    EXPECT_EQ(broken(root.balance, std::int16_t(1)), 1u);
    EXPECT_EQ(broken(root.child[0]->parent, root.child[1]), 1u);
    EXPECT_EQ(broken(root.child[0]->child_index, std::uint16_t(1)), 1u);
    EXPECT_EQ(broken(g_dpm_global.host_ipv4_tree.numnodes, 4u), 1u);
    EXPECT_EQ(broken(first_host().ip.address[3], std::uint8_t(200)), 1u) << "order";
    EXPECT_EQ(broken(g_dpm_global.if_list.prev, &g_dpm_global.if_list), 2u) << "and its count";
    EXPECT_EQ(broken(g_dpm_global.hold_count, 1u), 1u);

    void *const block = bep_mallocEx(8, __FILE__, __LINE__);
    EXPECT_FALSE(rig::laws::heap_is_explained(master(), 0, 0).empty());
    ::testing::TestPartResultArray failures;
    {
        ::testing::ScopedFakeTestPartResultReporter reporter(&failures);
        check_laws();
    }
    EXPECT_EQ(failures.size(), 1) << "the block alone is not explained";
    bep_freeEx(block, __FILE__, __LINE__);
}
