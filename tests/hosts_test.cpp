// Hosts: what becomes of a report on both cards and in the chip, in which order, and what each
// failing step leaves.

#include "dpm_host.h"
#include "support/rows.h"

using rig::alone;
using rig::with_standby;

ROWS(Hosts, DependantsHearOfANewOneBehindTheChipAndOfADeleteBeforeIt){
    {"neigh add {a} port 3",
     "nexthop+ port 3 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; "
     "6: probe {l1}; notice {a} came"},
    {"neigh add {a} port 3", ""},
    {"neigh del {a}",
     "notice {a} goes; entry- {a} n1; nexthop- n1; mirror nexthop- n1; mirror host- {a}"},
    {"neigh del {a}", ""},
};

ROWS(Hosts, AreToldToTheLogByTheirReportsAndByWhatBecomesOfThem, .roles = alone, .see = "log"){
    {"neigh add {a} port 3",
     "log10 dpm_api_notify_ipstack_host #::oper 1 host_msg vrf 0 ip {a} mac {M1} ifindex 900 "
     "port 3/0x3 \t\t port_type 0 cvlan 0 svlan 100 supervlan 100 \r\n; "
     "log10 dpm_nexthop_entry_add_sync_send #::peer is not exist, or it is slave\r\n; "
     "log10 dpm_host_entry_add #::host_entry vrf 0 port_type 0 port 3/0x3 svlan 100 ip {a} mac "
     "{M1} sdk_index n1 \r\n; "
     "log10 dpm_host_entry_add_sync_send #::peer is not exist, or it is slave\r\n; "
     "4: log10 dpm_mpls_arp_add_msg:: arp add ip:10.1.1.1 list_empty_ftn=1 list_empty_ilm=1\n\r"},
    {"neigh del {a}",
     "log10 dpm_api_notify_ipstack_host #::oper 2 host_msg vrf 0 ip {a} mac 0.0.0.0.0.0 ifindex "
     "900 port 1/0x1 \t\t port_type 0 cvlan 0 svlan 100 supervlan 100 \r\n; "
     "log10 dpm_host_del_msg #::find same prefix and mask in host table.\r\n; "
     "log10 dpm_host_entry_del #::host_entry vrf 0 port_type 0 port 3/0x3 svlan 100 ip {a} mac "
     "{M1} sdk_index n1 \r\n; 4: log10 dpm_mpls_arp_del_msg:: arp del ip:10.1.1.1\n\r; "
     "log10 dpm_nexthop_entry_del_sync_send #::peer is not exist, or it is slave\r\n; "
     "log10 dpm_host_entry_del_sync_send #::peer is not exist, or it is slave\r\n"},
    {"see log/dpm_host_entry"},
    {"chip refuse nexthop 1"},
    {"neigh add {a}", "log10 dpm_host_entry_add #::host_entry add nexthop failed!\r\n"},
    {"neigh add {a}"},
    {"chip refuse route-del 1"},
    {"neigh del {a}",
     "log10 dpm_host_entry_del #::host_entry vrf 0 port_type 0 port 1/0x1 svlan 100 ip {a} mac "
     "{M1} sdk_index n2 \r\n; log10 dpm_host_entry_del #::host_entry del driver failed!\r\n"},
    {"chip refuse nexthop-del 1"},
    {"allow chip-differs"},
    {"neigh del {a}",
     "log10 dpm_host_entry_del #::host_entry vrf 0 port_type 0 port 1/0x1 svlan 100 ip {a} mac "
     "{M1} sdk_index n2 \r\n; log10 dpm_host_entry_del #::host_entry del nexthop failed!\r\n"},
    {"neigh del {a}"},
    {"allow chip-differs 0"},
    {"chip refuse route 1"},
    {"allow leaks"},
    {"neigh add {b}", "log10 dpm_host_entry_add #::host_entry add driver failed!\r\n"},
};

ROWS(Hosts, AReportThatDiffersDeletesTheOldHostFirst){
    {"neigh add {a}"},
    {"neigh add {a} lladdr {m2}",
     "notice {a} goes; entry- {a} n1; nexthop- n1; mirror nexthop- n1; mirror host- {a}; "
     "nexthop+ port 1 {m2} n2; mirror nexthop+ n2; entry+ {a} n2; mirror host+ {a}; "
     "6: probe {l2}; notice {a} came"},
    {"see chip"},
    {"neigh add {a} lladdr {m2} cvlan 5",
     "entry- {a} n2; nexthop- n2; nexthop+ port 1 cvlan 5 {m2} n3; entry+ {a} n3"},
    {"neigh add {a} lladdr {m2} cvlan 5 port 4",
     "entry- {a} n3; nexthop- n3; nexthop+ port 4 cvlan 5 {m2} n4; entry+ {a} n4"},
    {"neigh add {a} lladdr {m2} cvlan 5 trunk 4",
     "entry- {a} n4; nexthop- n4; nexthop+ trunk 4 cvlan 5 {m2} n5; entry+ {a} n5"},
};

ROWS(Hosts, ARefusedEntryKeepsItsNextHopReference){
    {"chip refuse route 1 code 3"},
    {"allow leaks"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ {a} n1 -> 3"},
    {"neigh add {a}",
     "mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; 6: probe {l1}; notice {a} came"},
};

ROWS(Hosts, WithoutMemoryOrNextHopNothingIsKept){
    {"fault alloc 3"}, // the request, the next hop, the host
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; entry- {a} n1; nexthop- n1; "
     "mirror nexthop- n1"},
    {"chip refuse nexthop 1 code 7"},
    {"neigh add {a}", "nexthop+ port 1 {m1} 0 -> 7"},
    {"fault alloc 1"},
    {"neigh add {a}", "refused"},
};

// What the chip refuses leaves the host whole, as the standby believes; its dependants hear that it
// came when it is reported again, on the next master too.
ROWS(Hosts, ADeleteThatStoppedHalfWayIsMadeGood, .see = "chip notice"){
    {"neigh add {a}"},
    {"route add {net} via {a}"},
    {"chip refuse route-del 1 skip 1"},
    {"allow adrift"},
    {"neigh del {a}", "entry- {net} n1; notice {a} goes; entry- {a} n1 -> -1"},
    {"neigh add {a}", "entry+ {net} n1; notice {a} came"},
    {"chip refuse nexthop-del 1"},
    {"neigh del {a}",
     "entry- {net} n1; notice {a} goes; entry- {a} n1; nexthop- n1 -> -1; entry+ {a} n1"},
    {"card slot-up 3"},
    {"neigh add {a}", "entry+ {net} n1; notice {a} came"},
    {"allow adrift 0"},
    {"chip refuse nexthop-del 1"},
    {"chip refuse route 1"},
    {"allow chip-differs"},
    {"allow adrift"},
    {"neigh del {a}"},
    {"neigh add {a}", "entry+ {a} n1; entry+ {net} n1; notice {a} came"},
};

ROWS(Hosts, AHalfDeletedHostIsWholeOnTheNextMaster, .roles = rig::mirroring, .see = "chip"){
    {"neigh add {a}"},
    {"route add {net} via {a}"},
    {"chip refuse nexthop-del 1"},
    {"allow adrift"},
    {"neigh del {a}"},
    {"allow adrift 0"},
    {"switch-over", "entry+ {net} n1"},
};

ROWS(Hosts, AGlobalIpv6AddressMovesToAnotherInterface, .families = {6}, .roles = with_standby){
    {"neigh add {a}"},
    {"neigh add {a} dev vlanif200 port 2",
     "notice {a} goes; entry- {a} n1; nexthop- n1; mirror nexthop- n1; mirror host- {a}; "
     "nexthop+ port 2 svlan 200 {m1} n2; mirror nexthop+ n2; entry+ {a} n2; mirror host+ {a}; "
     "probe {l1}; notice {a} came"},
    {"neigh add {l1}"},
    {"neigh add {l1} dev vlanif200"}, // another neighbour
    {"show hosts --count", "= 3"},
};

ROWS(Hosts, OnTheStandbyReportsAreDropped, .roles = with_standby, .see = "chip log/dpm_host"){
    {"standby neigh add {a}", "standby: log10 dpm_host_add_msg #::it is slave.\r\n"},
    {"standby neigh del {a}", "standby: log10 dpm_host_del_msg #::it is slave.\r\n"},
};

ROWS(Hosts, TheVrfIsThatOfTheVlansInterface){
    {"if vrf vlanif100 7"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ vrf 7 {a} n1; mirror host+ {a} vrf 7; "
     "6: probe {l1} vrf 7; notice {a} vrf 7 came"},
    {"see chip"},
    {"neigh add {b} vlan 200", "nexthop+ port 1 svlan 200 {m2} n2; entry+ {b} n2"},
};

ROWS(Hosts, ALinkLocalOneHasANextHopAndNoEntryInTheChip, .families = {6}){
    {"neigh add fe80::7",
     "nexthop+ port 1 {m7} n1; mirror nexthop+ n1; mirror host+ fe80::7; notice fe80::7 came"},
    {"neigh add fe80::7 dev vlanif200",
     "nexthop+ port 1 svlan 200 {m7} n2; mirror nexthop+ n2; mirror host+ fe80::7; "
     "notice fe80::7 came"},
    {"neigh del fe80::7",
     "notice fe80::7 goes; nexthop- n1; mirror nexthop- n1; mirror host- fe80::7"},
};

ROWS(Hosts, OneOnAManagementInterfaceIsNotKept, .roles = alone, .see = "chip log/dpm_host"){
    {"if add vlanif4089"},
    {"neigh add {a} dev vlanif4089", "log10 dpm_host_add_msg #::ifname vlanif4089\r\n"},
};

ROWS(Hosts, AreShownInTheirOwnForm, .roles = alone){
    {"neigh add {a} port 3"},
    {"4: shown dpm_ipv4_host_show",
     "= \n\r host entry vrf 0 port type 0 port 3/0x3 svlan 100                ip a.1.1.1 mac "
     "{M1} sdk_index n1 ifindex 900 ifname vlanif100\n\r"},
    {"6: shown dpm_ipv6_host_show",
     "= \n\r host entry vrf 0 port type 0 port 3/0x3 svlan 100                ip "
     "20.1.d.b8.0.1.0.0.0.0.0.0.0.0.0.1 mac {M1} sdk_index n1 ifindex 900 ifname vlanif100\n\r"},
};

ROWS(Hosts, TakeTheirTablesLastPlaces, .families = {4}, .roles = alone, .see = "chip log/dpm_host"){
    {"many 18431 neigh add 10.3.#"},
    {"neigh add {a}"},
    {"neigh add {b}", "log10 dpm_host_entry_add #::host entry is full!!!\r\n"},
    {"neigh add 2001:db8::2", "log10 dpm_host_entry_add #::host entry is full!!!\r\n"},
    {"see chip"},
    // One that is reported again does not count itself.
    {"neigh add {a} port 9", "entry- {a} ...; nexthop+ port 9 {m1} n1; entry+ {a} n1"},
    {"neigh del {a}"},
    {"neigh add {b}", "entry+ {b} ..."},
};

ROWS(Hosts, OfIpv6CountTwice, .families = {6}, .roles = alone, .see = "chip"){
    {"many 9216 neigh add 2001:db8::0.1.#"},
    {"neigh add 10.1.1.2", ""},
    {"neigh add {a}", ""},
    {"neigh add 2001:db8::0.1.0.0 port 9", "entry- ...; nexthop+ ...; entry+ 2001:db8::1:0 n1"},
    {"neigh del 2001:db8::0.1.0.0"},
    {"neigh add 10.1.1.2", "entry+ 10.1.1.2 ..."},
    {"neigh add {a}", "entry+ {a} ..."}, // into the one place that is left
    {"neigh add {a} port 9", "entry- {a} ...; nexthop+ port 9 {m1} n2; entry+ {a} n2"},
    {"neigh add {a} dev vlanif200", "entry- {a} n2; nexthop- n2; nexthop+ ...; entry+ {a} n3"},
};

ROWS(Hosts, BehindATrunkNeedItsNumberAndBehindAPortThePhysicalOne, rig::once("chip")){
    {"call dpm_host_test_add 0x101010a 900 100 0 9 3", "nexthop+ port 3 ...; entry+ {a} n1; = 0"},
    {"call dpm_host_test_add 0x101010a 900 100 2 9 4",
     "entry- {a} n1; nexthop- n1; nexthop+ port 4 ...; entry+ {a} n2; = 0"},
    {"call dpm_host_test_add 0x101010a 900 100 0 0 0",
     "entry- {a} n2; nexthop- n2; nexthop+ port 0 ...; entry+ {a} n3; = 0"},
    {"call dpm_host_test_add 0x101010a 900 100 1 5 3",
     "entry- {a} n3; nexthop- n3; nexthop+ trunk 5 ...; entry+ {a} n4; = 0"},
    {"see chip log/dpm_host_entry_add"}, // the old one stays
    {"call dpm_host_test_add 0x101010a 900 100 1 0 3",
     "log10 dpm_host_entry_add #::host_info paramter is err! port_type 1 log_port_id 0 ...; = 0"},
    {"each 3 0xffffffff do call dpm_host_test_add 0x101010a 900 100 * 1 1",
     "log10 dpm_host_entry_add #::host_info paramter is err! port_type 3 ...; "
     "log10 dpm_host_entry_add #::host_info paramter is err! port_type -1 ...; = 0; = 0"},
};

namespace {

class HostRecords : public rig::LoneShelf {
protected:
    void SetUp() override {
        run("if add vlanif100");
        run("if add vlanif200 super");
    }
    void report(const dpm_host_info &info) {
        EXPECT_EQ(dpm_api_host_pro(&info, DPM_OPER_ADD), 0);
        settle();
    }
};

std::string heard; // by the dependants below

template <char name> int hear(const dpm_host_entry *, std::uint32_t) {
    heard += name;
    return -1; // nobody looks
}

} // namespace

TEST_F(HostRecords, WithoutAnIfindexTheSuperVlanTellsTheInterface) {
    dpm_host_info info = rig::info_of(master(), {});
    info.ifindex = 0;
    info.supervlan = 200;
    report(info);
    EXPECT_STREQ(hosts(master()).at(0).ifname, "vlanif200");
    info.supervlan = 999;
    info.address[3] = 99;
    report(info);
    EXPECT_EQ(logged(master(), "::ifindex is err!"), 1u);
    info.ifindex = 4711; // no interface: the name stays empty
    report(info);
    ASSERT_EQ(hosts(master()).size(), 2u);
    EXPECT_STREQ(hosts(master()).at(1).ifname, "");
}

TEST_F(HostRecords, DependantsHearInTheOrderOfTheirRegistration) {
    dpm_host_notify_register(nullptr);
    EXPECT_EQ(logged(master(), "dpm_host_notify_register"), 1u);
    dpm_host_notify_register(hear<'a'>);
    fail(chassis::os::Fault::allocation);
    dpm_host_notify_register(hear<'b'>); // silent without memory
    dpm_host_notify_register(hear<'c'>);
    allow().blocks = 2;
    heard = "";
    run("neigh add 10.1.1.2");
    EXPECT_EQ(heard, "ac");
    dpm_host_notify(nullptr, DPM_HOST_ADDED);
    EXPECT_EQ(logged(master(), "::input parameter is null,err!"), 2u);
    rig::expect_all(-1, {dpm_host_entry_add(nullptr), dpm_host_entry_del(nullptr),
                         dpm_host_add_msg(nullptr), dpm_host_del_msg(nullptr)});
}
