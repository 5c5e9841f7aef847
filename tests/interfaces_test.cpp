// Interfaces: what the chip is asked for in an interface's life, addresses and their ARP rule,
// super-VLANs, and the lookups that other tables rely on.

#include "dpm_events.h"
#include "dpm_if.h"
#include "dpm_msg.h"
#include "support/rows.h"

#include <cstring>

using rig::alone;

namespace {

const std::vector<unsigned> ipv4 = {4};

// "vrf-of VLAN", "subs SUPERVLAN", "towards IP [VRF]": what other tables and the suite ask.
const rig::Verb vrf_of{
    "vrf-of", [](rig::RowShelf &shelf, const rig::Words &words) {
        shelf.answer(std::to_string(dpm_api_get_vrf_by_vlan(std::uint32_t(std::stoul(words[1])))));
    }};
const rig::Verb subs{"subs", [](rig::RowShelf &shelf, const rig::Words &words) {
                         std::uint32_t ids[8] = {}, count = 0;
                         const auto vlan = std::uint32_t(std::stoul(words[1]));
                         std::string text =
                             std::to_string(dpm_api_get_sub_by_super(vlan, ids, &count)) + ":";
                         for (std::uint32_t i = 0; i < count; ++i)
                             text += " " + std::to_string(ids[i]);
                         shelf.answer(text);
                     }};
const rig::Verb towards{"towards", [](rig::RowShelf &shelf, const rig::Words &words) {
                            const dpm_prefix ip = rig::prefix_of(words[1]);
                            const unsigned vrf =
                                words.size() > 2 ? unsigned(std::stoul(words[2])) : 0;
                            const auto found =
                                shelf.master().suite.find(dpm_if_index_by_network_ip(vrf, &ip));
                            shelf.answer(found ? found->name : "none");
                        }};

} // namespace

ROWS(Interfaces, TheChipHasTheirL3InterfaceWhileTheyLive, .families = ipv4, .roles = alone,
     .see = "chip platform log/dpm_if", .bare = true){
    {"if add vlanif100", "vlan 100 oper 1; interface+ vlan 100 {mac} id 16"},
    {"if add vlanif100",
     "vlan 100 oper 1; log10 dpm_if_add #::if_index 900, find same if_entry!\r\n"},
    {"if add vlanif4094", "vlan 4094 oper 1; interface+ vlan 4094 {mac} id 17"},
    {"if del vlanif100", "vlan 100 oper 2; interface- vlan 100 {mac}"},
};

ROWS(Interfaces, ManagementVlansAndOtherTypesStayOutOfTheChip, .families = ipv4, .roles = alone,
     .see = "chip", .bare = true){
    {"if add vlanif4089", ""},
    {"if add vlanif4091", ""},
    {"if add vlanif4092", ""},
    {"if add vlanif4093", ""},
    {"if add vlanif4090", "interface+ vlan 4090 {mac} id 16"},
    {"if add vlanif200 super", ""},
    {"addr add 10.9.0.1/24 dev vlanif4089", ""},
    {"addr add 10.8.0.1/24 dev vlanif200", ""},
    {"if del vlanif4089", "entry- 10.9.0.1/24 cpu -> -1; entry- 10.9.0.1 cpu -> -1"},
    {"if del vlanif200", "entry- 10.8.0.1/24 cpu -> -1; entry- 10.8.0.1 cpu -> -1"},
};

ROWS(Interfaces, DeletingOneTakesEverythingOfItOutOfTheChip, .families = ipv4, .roles = alone,
     .see = "chip platform"){
    {"addr add 2001:db8::1/64 dev vlanif100", "vlan 100 address 2001:db8::1/64 oper 1"},
    {"addr add 10.1.2.1/24 dev vlanif100"},
    {"if del vlanif100",
     "vlan 100 oper 2; entry- 10.1.2.1/24 cpu -> -1; entry- 10.1.2.1 cpu -> -1; "
     "entry- 10.1.1.99/24 cpu -> -1; entry- {gw} cpu -> -1; entry- 2001:db8::1/64 cpu -> -1; "
     "entry- 2001:db8::1 cpu -> -1; interface- vlan 100 {mac}; arp vlan 100 off"},
};

ROWS(Interfaces, TheArpRuleComesWithTheFirstIpv4AddressAndGoesWithTheLast, .families = ipv4,
     .roles = alone, .see = "chip log/dpm_if", .bare = true){
    {"if add vlanif100"},
    {"addr add 2001:db8::1/64 dev vlanif100", ""},
    {"addr add 10.1.1.1/24 dev vlanif100", "arp vlan 100 on"},
    {"addr add 10.1.2.1/24 dev vlanif100", ""},
    {"addr add 10.1.1.1/24 dev vlanif100", "log10 dpm_if_add_ip #::ip conflict!\r\n"},
    {"addr del 10.1.1.1/24 dev vlanif100", ""},
    {"addr del 10.1.2.1/24 dev vlanif100", "arp vlan 100 off"},
    {"addr del 10.1.2.1/24 dev vlanif100", "log10 dpm_if_del_ip #::can not find ip_addr!\r\n"},
    {"addr del 2001:db8::1/64 dev vlanif100", ""},
    {"addr add fe80::1/64 dev vlanif100", ""},
    {"addr del fe80::1/64 dev vlanif100", ""},
};

ROWS(Interfaces, TheChipsRefusalsDoNotChangeWhatIsKept, .families = ipv4, .roles = alone,
     .see = "chip"){
    {"allow chip-differs"}, // from the table, until all of it has gone
    {"chip refuse interface 1"},
    {"if add vlanif300", "interface+ vlan 300 {mac} id 0 -> -1"},
    {"chip refuse arp-rule 1"},
    {"addr add 10.3.1.1/24 dev vlanif300", "arp vlan 300 on -> -1"},
    {"chip refuse vrf 1"},
    {"if vrf vlanif300 3", "if-vrf vlan 300 vrf 3 -> -1"},
    {"chip refuse interface-del 1"},
    {"if del vlanif300", "entry- vrf 3 10.3.1.1/24 cpu -> -1; entry- vrf 3 10.3.1.1 cpu -> -1; "
                         "interface- vlan 300 {mac} -> -1; arp vlan 300 off -> -1"},
    {"allow chip-differs 0"},
    {"if add vlanif300",
     "interface+ vlan 300 {mac} id 18"}, // what stayed in the chip takes no harm
};

ROWS(Interfaces, AVrfIsSetInTheChipForVlanInterfacesAndStoredForAll, .families = ipv4,
     .roles = alone, .see = "chip platform log/dpm_if"){
    {"if add vlanif300 super"},
    {"if vrf vlanif100 7", "vlan 100 vrf 7 oper 1; if-vrf vlan 100 vrf 7"},
    {"if vrf vlanif100 7", "vlan 100 vrf 7 oper 1; log10 dpm_if_vrf_pro #::vrf = 7, same vrf.\r\n"},
    {"if vrf vlanif300 8", "vlan 300 vrf 8 oper 1"},
    {"vrf-of 100", "= 7"},
    {"vrf-of 300", "= 0"},
    {"vrf-of 999", "= 0"},
};

ROWS(Interfaces, SubVlansLiveInTheirSuperVlansList, .families = ipv4, .roles = alone,
     .see = "chip log"){
    {"if add vlanif300 super"},
    // It has an interface of its own.
    {"sub add 300 200", "log10 dpm_super_add_sub #::can not set this vlan to subvlan!\r\n"},
    // No super-VLANs.
    {"sub add 100 301", "log10 dpm_super_add_sub #::can not find or type is err!\r\n"},
    {"sub add 400 401", "log10 dpm_super_add_sub #::can not find or type is err!\r\n"},
    {"sub add 300 301", ""},
    {"sub add 300 302", ""},
    {"sub add 300 303", ""},
    {"sub add 300 302", "log10 dpm_super_add_sub #::exist subvlan302!\r\n"},
    {"subs 300", "= 0: 303 302 301"},
    {"sub del 300 302", ""},
    {"sub del 300 302", "log10 dpm_super_del_sub #::can not exist subvlan!\r\n"},
    {"subs 300", "= 0: 303 301"},
    {"subs 100",
     "log10 dpm_api_get_sub_by_super #::can not find supervlan 100 or type is err!\r\n; = -1:"},
    {"if del vlanif300", ""},
};

ROWS(Interfaces, OspfOfASubVlanIsTrappedWhileItRunsOnTheSuperVlansNetwork, .families = ipv4,
     .roles = alone, .see = "chip"){
    {"if add vlanif300 super"},
    {"addr add 10.8.0.1/24 dev vlanif300", ""},
    {"sub add 300 301", ""},
    {"ospf 10.8.0.0/16"},
    {"addr add 10.8.1.1/24 dev vlanif300", ""}, // a second one that qualifies asks once
    {"sub add 300 302", "ospf vlan 302 on"},
    {"sub del 300 302", "ospf vlan 302 off"},
};

ROWS(Interfaces, WithoutMemoryNothingIsChanged, .families = ipv4, .roles = alone, .see = "chip"){
    // The request's block is there, the record's is not.
    {"if add vlanif300 super"}, {"fault alloc 2"},
    {"if add vlanif400", ""},   {"fault alloc 2"}, {"sub add 300 201", ""},
    {"subs 300", "= 0:"},       {"fault alloc 2"}, {"addr add 10.8.0.1/24 dev vlanif300", ""},
    {"if del vlanif300", ""},
};

ROWS(Interfaces, AreFoundByTheNetworkOfTheirAddresses, .families = ipv4, .roles = alone){
    {"if add vlanif10"},
    {"if vrf vlanif10 5"},
    {"addr add 10.1.32.1/20 dev vlanif200"},
    {"addr add 2001:db8::1/60 dev vlanif10"},
    {"towards 10.1.47.255", "= vlanif200"},
    {"towards 10.1.48.0", "= none"},
    {"towards 10.1.32.1 5", "= none"}, // another VRF
    {"towards 2001:db8:0:f::7 5", "= vlanif10"},
    {"towards 2001:db8:0:10::7 5", "= none"},
};

ROWS(Interfaces, AreShownInTheirOwnForm, .families = ipv4, .roles = alone, .bare = true){
    {"if add vlanif10"},
    {"addr add 2001:db8::1/60 dev vlanif10"},
    {"addr add 10.1.1.1/24 dev vlanif10"},
    {"shown dpm_if_show",
     "= \n\r ifname vlanif10 vrf 0 if_id 10 if_index 900 if_type 0\n\r {ip} address 10.1.1.1/24 "
     "\n\r ipv6 address 2001:db8::1/60 \n\r"},
};

namespace {

using Lines = std::vector<std::string>;

class InterfaceRecords : public rig::LoneShelf {
protected:
    void SetUp() override {
        EXPECT_EQ(add_interface("vlanif100", 100), 0);
        EXPECT_EQ(add_interface("vlanif200", 200, DPM_IF_SUPERVLAN), 0);
        clear_journal();
    }
    std::uint32_t ifindex(const std::string &name) { return master().suite.find(name)->ifindex; }
    const dpm_if_entry &entry(const std::string &name) {
        return *dpm_if_find_by_ifname(name.c_str());
    }
};

} // namespace

TEST_F(InterfaceRecords, ANewOneStandsFirstWithItsDefaultsAndAnL3InterfaceInTheChip) {
    EXPECT_EQ(add_interface("vlanif4090", 4090), 0);
    EXPECT_EQ(interfaces(master())[0].if_id, 4090u) << "newest first";
    const dpm_if_entry &own = entry("vlanif100");
    EXPECT_EQ(own.if_index, ifindex("vlanif100"));
    EXPECT_EQ(own.status, 1u);
    EXPECT_EQ(own.mtu, 1500u);
    EXPECT_EQ(own.bandwidth, 1000000000u);
    EXPECT_EQ(own.metric, 1u);
    EXPECT_EQ(own.flags, 0x1003u);
    EXPECT_EQ(own.mac[5], 9u) << "the device's MAC";
    EXPECT_EQ(own.l3_intf_id, master().chip.interfaces.at(100).id);
    EXPECT_EQ(own.l3_programmed, 1u);
    EXPECT_TRUE(master().chip.interfaces.contains(4090));
}

TEST_F(InterfaceRecords, ARepeatedAddChangesNothingAndAnUnknownDeleteIsTold) {
    EXPECT_EQ(dpm_api_set_if_proc("vlanif100", DPM_IF_SUPERVLAN, 4711, 300, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_set_if_proc("vlanif7", 0, 4711, 7, DPM_OPER_DEL), 0);
    settle();
    ASSERT_EQ(interfaces(master()).size(), 2u);
    EXPECT_EQ(entry("vlanif100").if_id, 100u);
    EXPECT_EQ(logged(master(), "::if_index 4711, find same if_entry!"), 1u);
    EXPECT_EQ(logged(master(), "::if_index 4711, can not find same if_entry!"), 1u);
}

TEST_F(InterfaceRecords, ALongNameIsCutAndEndsWithinItsField) {
    const std::string longest(200, 'x');
    EXPECT_EQ(dpm_api_set_if_proc(longest.c_str(), 1, 55, 5, DPM_OPER_ADD), 0);
    settle();
    EXPECT_EQ(std::strlen(interfaces(master())[0].ifname), 63u);
    dpm_if_msg body{};
    std::memset(body.ifname, 'y', sizeof body.ifname); // another program posts by number
    EXPECT_EQ(dpm_if_add(&body), 0);
    EXPECT_EQ(dpm_if_add(&body), 0) << "the same name";
    ASSERT_EQ(interfaces(master()).size(), 4u);
    EXPECT_EQ(std::strlen(interfaces(master())[0].ifname), 63u);
    EXPECT_EQ(dpm_if_del(&body), 0);
    EXPECT_EQ(interfaces(master()).size(), 3u);
}

TEST_F(InterfaceRecords, AddressesOfAnotherVrfOrOfNoInterfaceAreNotKept) {
    const std::uint8_t ip[16] = {10, 1, 1, 1};
    EXPECT_EQ(dpm_api_set_if_ip_proc(5, ifindex("vlanif100"), 1, ip, 24, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_set_if_ip_proc(0, 4711, 1, ip, 24, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_api_set_if_ip_proc(0, 4711, 1, ip, 24, DPM_OPER_DEL), 0);
    settle();
    EXPECT_EQ(logged(master(), "can not find pt_if, or vrf_id unequal!"), 3u);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname("vlanif100"), 1);
    EXPECT_TRUE(list_empty(&entry("vlanif100").ipv4_list));
}

TEST_F(InterfaceRecords, BadRequestsAreRefusedAndPostNothing) {
    const std::uint8_t ip[16] = {10, 1, 1, 1};
    clear_journal();
    const auto set_ip = [&ip](std::uint8_t family, std::uint16_t length, std::uint32_t oper = 1) {
        return dpm_api_set_if_ip_proc(0, 1, family, ip, length, oper);
    };
    rig::expect_all(-1, {dpm_api_set_if_proc(nullptr, 0, 1, 1, DPM_OPER_ADD),
                         dpm_api_set_if_proc("vlanif1", 0, 1, 1, 3), set_ip(1, 24, 0),
                         dpm_api_set_if_ip_proc(0, 1, 1, nullptr, 24, 1), set_ip(0, 8),
                         set_ip(3, 8), set_ip(1, 33), set_ip(2, 129),
                         // 90 and 107 among the ports
                         master().hal.trunk_member(0, 0, 3, 1),
                         master().hal.trunk_member(0, 17, 3, 1)});
    EXPECT_EQ(logged(master(), "::unkown oper "), 2u);
    EXPECT_EQ(logged(master(), "] trunkindex 107 err."), 1u);
    EXPECT_EQ(master().os.queued(), 0u);
    EXPECT_EQ(master().os.live_blocks(), 4u) << "the interfaces, the host table's dependants";
}

TEST_F(InterfaceRecords, ATrunkMemberChangeReachesTheWorkerWithItsAction) {
    EXPECT_EQ(master().hal.trunk_member(2, 1, 3, 9), 0);
    settle();
    EXPECT_EQ(logged(master(), "] type 2 trunkid 1 port 3 oper 9"), 1u);
}

// A deliberate hole of this call: its block goes with the message that nobody handles.
TEST_F(InterfaceRecords, ASubVlanRequestWithAnUnknownOperationIsPostedWithoutAType) {
    EXPECT_EQ(dpm_api_super_sub_proc(200, 201, 3), 0);
    EXPECT_EQ(master().os.queued(), 1u);
    settle();
    EXPECT_EQ(logged(master(), "::oper 3,is err!"), 1u);
    allow().blocks = 1;
}

TEST_F(InterfaceRecords, AreFoundByNameIndexVlanAndNetwork) {
    add_interface("vlanif10", 10);
    set_vrf("vlanif10", 5);
    add_address("vlanif100", "10.1.2.1/20");
    add_address("vlanif10", "2001:db8::1/60");
    char name[DPM_IFNAME_BYTES] = "kept";
    EXPECT_EQ(dpm_if_get_ifnamebyindex(4711, name), -1);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(dpm_if_get_ifnamebyindex(ifindex("vlanif10"), name), 0);
    EXPECT_STREQ(name, "vlanif10");
    EXPECT_EQ(dpm_if_find_by_ifname("vlanif1"), nullptr) << "the whole name";
    EXPECT_EQ(dpm_if_find_by_ifname(nullptr), nullptr);
    EXPECT_EQ(dpm_if_get_ifindexbyname("vlanif1"), ~0u);
    EXPECT_EQ(dpm_if_get_vlanid(ifindex("vlanif200")), 200u);
    EXPECT_EQ(dpm_if_get_vlanid(4711), 0u);
    EXPECT_EQ(dpm_ifindex_get_by_vlan(100), ifindex("vlanif100"));
    EXPECT_EQ(dpm_ifindex_get_by_vlan(200), ifindex("vlanif200"));
    EXPECT_EQ(dpm_ifindex_get_by_vlan(999), 0u);

    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname("vlanif10"), 0);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname("vlanif999"), 1);
    EXPECT_EQ(dpm_api_is_ipv6_empty_by_ifname(nullptr), -1);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(200), 0);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(100), -1);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(999), -2);
}
