// One story from end to end: two cards come up, neighbours are learnt and mirrored, a port fails and returns, the
// master dies and the standby carries on with what it has.

#include "support/shelf.h"

#include "platform/dal.h"

using rig::Shelf;

namespace {
const rig::Neighbour first{.ip = "10.1.1.2", .mac = "02:00:00:00:01:02", .port = 3};
const rig::Neighbour second{.ip = "10.1.1.3", .mac = "02:00:00:00:01:03", .trunk = 5};
const rig::Neighbour third{.ip = "2001:db8::7", .mac = "02:00:00:00:01:02", .port = 3};
} // namespace

TEST_F(Shelf, two_cards_come_up_learn_mirror_and_change_places) {
    EXPECT_EQ(add_interface("vlanif100", 100), 0);
    EXPECT_EQ(add_address("vlanif100", "10.1.1.1/24"), 0);
    EXPECT_TRUE(master().chip.arp_rules.contains(100));
    for (const rig::Neighbour &neighbour : {first, second, third}) {
        answers_probes(neighbour);
        EXPECT_EQ(learn_host(neighbour), 0);
    }

    EXPECT_EQ(
        host_texts(master()),
        (std::vector<std::string>{"10.1.1.2 02:00:00:00:01:02 vlanif100 vlan 100 port 3",
                                  "10.1.1.3 02:00:00:00:01:03 vlanif100 vlan 100 trunk 5",
                                  "2001:db8::7 02:00:00:00:01:02 vlanif100 vlan 100 port 3"}));
    EXPECT_EQ(host_texts(standby()), host_texts(master()));
    EXPECT_EQ(nexthops(master()).size(), 2u) << "the same neighbour under two addresses";
    const auto address = rig::prefix_of("10.1.1.3");
    const auto answer = master().chip.lookup(0, DPM_FAMILY_IPV4, address.address);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->index, host(master(), "10.1.1.3")->sdk_index);

    port_down(3);
    EXPECT_EQ(holds(master()).size(), 2u);
    port_up(3); // both are probed, answer, and are found as they were
    EXPECT_TRUE(holds(master()).empty());

    switch_over();
    EXPECT_FALSE(has_standby());
    EXPECT_EQ(hosts(master()).size(), 3u);
    EXPECT_EQ(unreachables(master()).size(), 0u) << "every probe was answered at once";
    forget_host(second);
    EXPECT_FALSE(host(master(), "10.1.1.3"));

    standby_connects();
    EXPECT_EQ(host_texts(standby()), host_texts(master()));
    check_laws();
    standby_lost();
    advance(70);
    EXPECT_EQ(host_texts(master()).size(), 2u);
}
