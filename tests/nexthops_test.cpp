// Next hops: one object of the chip for each neighbour, counted.

#include "dpm_nexthop.h"
#include "support/shelf.h"

namespace {

using chassis::chip::Function;
using chassis::os::Fault;

class NextHops : public rig::Shelf {
protected:
    using Card = rig::Card;
    using Counts = std::vector<unsigned>;
    int add(unsigned port, unsigned type = DPM_PORT_PHYSICAL, unsigned last_mac = 1) {
        const std::uint8_t mac[6] = {2, 0, 0, 0, 0, std::uint8_t(last_mac)};
        return dpm_nexthop_add(type, port, mac, 100, 7, &index, ~0u);
    }
    int del(unsigned port, std::uint32_t sdk_index, unsigned last_mac = 1) {
        const std::uint8_t mac[6] = {2, 0, 0, 0, 0, std::uint8_t(last_mac)};
        return dpm_nexthop_del(DPM_PORT_PHYSICAL, port, mac, 100, 7, sdk_index, ~0u);
    }
    // Counts in table order.
    std::vector<unsigned> counts(Card &card) {
        settle();
        std::vector<unsigned> found;
        for (const dpm_nexthop_entry &entry : nexthops(card))
            found.push_back(entry.cnt);
        return found;
    }
    std::uint32_t index = 0;
};

} // namespace

TEST_F(NextHops, DifferByMacVlansAndPortButNotByThePortsType) {
    ASSERT_EQ(add(3), 0);
    const std::uint32_t first = index;
    EXPECT_EQ(add(3, DPM_PORT_LOGICAL), 0);
    EXPECT_EQ(index, first) << "a trunk of that number shares the entry";
    EXPECT_EQ(add(2), 0);
    EXPECT_NE(index, first);
    EXPECT_EQ(add(9, DPM_PORT_PHYSICAL, 0), 0);
    EXPECT_EQ(counts(master()), (Counts{1, 1, 2})) << "by MAC, then by port";
    allow().nexthop_leaks = 4; // no host uses them
}

TEST_F(NextHops, AStaleIndexOrAnUnknownNeighbourIsNoDelete) {
    ASSERT_EQ(add(3), 0);
    EXPECT_EQ(del(3, index + 1), 0);
    EXPECT_EQ(del(4, index), 0);
    EXPECT_EQ(counts(master()), Counts{1});
    EXPECT_EQ(del(3, index), 0);
    EXPECT_EQ(counts(master()), Counts{});
}

TEST_F(NextHops, ARefusedLastDeleteLeavesTheEntry) {
    ASSERT_EQ(add(3), 0);
    refuse(Function::del_ip_nexthop, 1, -5);
    EXPECT_EQ(del(3, index), -5);
    EXPECT_EQ(counts(master()), Counts{1});
    EXPECT_EQ(counts(standby()), Counts{1});
    EXPECT_EQ(del(3, index), 0);
}

TEST_F(NextHops, ARefusedAddStoresNothingAndAFailedAllocationLeavesTheChipsObject) {
    index = 4711;
    refuse(Function::add_ip_nexthop, 1, -9);
    EXPECT_EQ(add(3), -9);
    EXPECT_EQ(index, 4711u);
    fail(Fault::allocation);
    EXPECT_EQ(add(3), -1);
    EXPECT_EQ(counts(master()), Counts{});
    EXPECT_EQ(master().chip.nexthops.size(), 1u);
    allow().chip_differs = true;
}

TEST_F(NextHops, AFullCountRefusesAFurtherReference) {
    ASSERT_EQ(add(3), 0);
    auto *const entry = dpm_nexthop_find_by_index(index);
    entry->cnt = 65534;
    EXPECT_EQ(add(3), 0);
    EXPECT_EQ(add(3), -1);
    EXPECT_EQ(counts(master()), Counts{65535});
    EXPECT_EQ(counts(standby()), Counts{65535});
    allow().nexthop_leaks = 65535;
}

// Records that share an index come from a peer only; the first in table order is the answer.
TEST_F(NextHops, AreFoundByIndexInTableOrder) {
    for (const unsigned mac : {3u, 1u, 2u}) {
        dpm_nexthop_entry entry{};
        entry.mac[5] = std::uint8_t(mac);
        entry.cnt = 1;
        entry.sdk_index = mac == 3 ? 20 : 21;
        EXPECT_EQ(dpm_nexthop_entry_add_sync_process(&entry), 0);
    }
    EXPECT_EQ(dpm_nexthop_find_by_index(20)->mac[5], 3u);
    EXPECT_EQ(dpm_nexthop_find_by_index(21)->mac[5], 1u);
    EXPECT_EQ(dpm_nexthop_find_by_index(22), nullptr);
    EXPECT_EQ(dpm_nexthop_find_by_index(19), nullptr);
    testing::internal::CaptureStdout();
    dpm_nexthop_show();
    EXPECT_NE(testing::internal::GetCapturedStdout().find(
                  "\n\r nexthop entry cnt 1 port_type 0 port_id 0         svlan 0 cvlan 0 mac "
                  "0.0.0.0.0.1 sdk_index 21 \n\r"),
              std::string::npos);
    for (const dpm_nexthop_entry &entry : nexthops(master()))
        EXPECT_EQ(dpm_nexthop_entry_del_sync_process(&entry), 0);
    EXPECT_EQ(dpm_nexthop_find_by_index(21), nullptr);
}
