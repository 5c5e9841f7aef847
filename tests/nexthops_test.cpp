// Next hops: one object of the chip for each neighbour, counted.

#include "dpm_nexthop.h"
#include "support/rows.h"

ROWS(NextHops, DifferByMacVlansAndPortButNotByThePortsType, .families = {4}, .see = "chip mirror"){
    {"neigh add {a} port 3",
     "nexthop+ port 3 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}"},
    {"neigh add {b} lladdr {m1} trunk 3", // shares the port's
     "mirror nexthop+ n1; entry+ {b} n1; mirror host+ {b}"},
    {"neigh add {c} lladdr {m1} port 2",
     "nexthop+ port 2 {m1} n2; mirror nexthop+ n2; entry+ {c} n2; mirror host+ {c}"},
    {"neigh add {d} lladdr {m1} port 3 cvlan 7",
     "nexthop+ port 3 cvlan 7 {m1} n3; mirror nexthop+ n3; entry+ {d} n3; mirror host+ {d}"},
    {"neigh add {e} lladdr {m1} port 3 vlan 200",
     "nexthop+ port 3 svlan 200 {m1} n4; mirror nexthop+ n4; entry+ {e} n4; mirror host+ {e}"},
    {"shown dpm_nexthop_show",
     "= \n\r nexthop entry cnt 1 port_type 2 port_id 2         svlan 100 cvlan 0 mac {M1} "
     "sdk_index n2 \n\r\n\r nexthop entry cnt 2 port_type 2 port_id 3         svlan 100 cvlan 0 "
     "mac {M1} sdk_index n1 \n\r\n\r nexthop entry cnt 1 port_type 2 port_id 3         svlan 100 "
     "cvlan 7 mac {M1} sdk_index n3 \n\r\n\r nexthop entry cnt 1 port_type 2 port_id 3         "
     "svlan 200 cvlan 0 mac {M1} sdk_index n4 \n\r"},
    {"neigh del {a}", "entry- {a} n1; mirror nexthop+ n1; mirror host- {a}"},
    {"neigh del {b}", "entry- {b} n1; nexthop- n1; mirror nexthop- n1; mirror host- {b}"},
    {"fault alloc 2"}, // the host's request is the first
    {"allow chip-differs"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n5"}, // stays in the chip
};

namespace {

class NextHopRecords : public rig::Shelf {
protected:
    static constexpr std::uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    int add() { return dpm_nexthop_add(DPM_PORT_PHYSICAL, 3, mac, 100, 7, &index, ~0u); }
    int del(unsigned port, std::uint32_t sdk_index) {
        return dpm_nexthop_del(DPM_PORT_PHYSICAL, port, mac, 100, 7, sdk_index, ~0u);
    }
    std::uint32_t index = 4711;
};

} // namespace

TEST_F(NextHopRecords, AreDeletedByTheirOwnIndexAndCountedAsFarAsTheCountGoes) {
    refuse(chassis::chip::Function::add_ip_nexthop, 1, -9);
    EXPECT_EQ(add(), -9);
    EXPECT_EQ(index, 4711u);
    ASSERT_EQ(add(), 0);
    EXPECT_EQ(del(3, index + 1), 0) << "a stale index";
    EXPECT_EQ(del(4, index), 0) << "another neighbour";
    ASSERT_EQ(nexthops(master()).size(), 1u);
    dpm_nexthop_find_by_index(index)->cnt = 65534;
    EXPECT_EQ(add(), 0);
    EXPECT_EQ(add(), -1);
    settle();
    for (rig::Card *card : cards())
        EXPECT_EQ(nexthops(*card).at(0).cnt, 65535u);
    allow().nexthop_leaks = 65535;
}

// Records that share an index come from a peer only; the first in table order is the answer.
TEST_F(NextHopRecords, AreFoundByIndexInTableOrder) {
    for (const unsigned last_mac : {3u, 1u, 2u}) {
        dpm_nexthop_entry entry{};
        entry.mac[5] = std::uint8_t(last_mac);
        entry.cnt = 1;
        entry.sdk_index = last_mac == 3 ? 20 : 21;
        EXPECT_EQ(dpm_nexthop_entry_add_sync_process(&entry), 0);
    }
    EXPECT_EQ(dpm_nexthop_find_by_index(20)->mac[5], 3u);
    EXPECT_EQ(dpm_nexthop_find_by_index(21)->mac[5], 1u);
    EXPECT_EQ(dpm_nexthop_find_by_index(22), nullptr);
    EXPECT_EQ(dpm_nexthop_find_by_index(19), nullptr);
    for (const dpm_nexthop_entry &entry : nexthops(master()))
        EXPECT_EQ(dpm_nexthop_entry_del_sync_process(&entry), 0);
    EXPECT_EQ(dpm_nexthop_find_by_index(21), nullptr);
}
