// Interfaces: what the chip is asked for in an interface's life, addresses and their ARP rule,
// super-VLANs, and the lookups that other tables rely on.

#include "dpm_events.h"
#include "dpm_if.h"
#include "dpm_msg.h"
#include "support/rows.h"

#include <cstring>

using rig::once;

namespace {

// "subs SUPERVLAN", "towards IP [VRF]": what other tables and the suite ask.
void tell_subs(rig::RowShelf &shelf, const rig::Words &words) {
    std::uint32_t ids[8] = {}, count = 0;
    const auto vlan = std::uint32_t(std::stoul(words[1]));
    std::string text = std::to_string(dpm_api_get_sub_by_super(vlan, ids, &count)) + ":";
    for (std::uint32_t i = 0; i < count; ++i)
        text += " " + std::to_string(ids[i]);
    shelf.answer(text);
}
void tell_way(rig::RowShelf &shelf, const rig::Words &words) {
    const dpm_prefix ip = rig::prefix_of(words[1]);
    const unsigned vrf = words.size() > 2 ? unsigned(std::stoul(words[2])) : 0;
    const auto found = shelf.master().suite.find(dpm_if_index_by_network_ip(vrf, &ip));
    shelf.answer(found ? found->name : "none");
}
const rig::Verb verbs[] = {{"subs", tell_subs}, {"towards", tell_way}};

} // namespace

ROWS(Interfaces, TheChipHasTheirL3InterfaceWhileTheyLive, once("chip platform log/dpm_if", true)){
    {"if add vlanif100", "vlan 100 oper 1; interface+ vlan 100 {mac} id 16"},
    {"if add vlanif100",
     "vlan 100 oper 1; log10 dpm_if_add #::if_index 900, find same if_entry!\r\n"},
    {"if add vlanif4094", "vlan 4094 oper 1; interface+ vlan 4094 {mac} id 17"},
    {"if del vlanif100", "vlan 100 oper 2; interface- vlan 100 {mac}"},
    // Management VLANs and other types stay out of it.
    {"see chip"},
    {"each vlanif4089 vlanif4091 vlanif4092 vlanif4093 do if add *", ""},
    {"if add vlanif4090", "interface+ vlan 4090 {mac} id 18"},
    {"if add vlanif200 super", ""},
    {"addr add 10.9.0.1/24 dev vlanif4089", ""},
    {"addr add 10.8.0.1/24 dev vlanif200", ""},
    {"if del vlanif4089", "entry- 10.9.0.1/24 cpu -> -1; entry- 10.9.0.1 cpu -> -1"},
    {"if del vlanif200", "entry- 10.8.0.1/24 cpu -> -1; entry- 10.8.0.1 cpu -> -1"},
};

ROWS(Interfaces, DeletingOneTakesEverythingOfItOutOfTheChip, once("chip platform")){
    {"addr add 2001:db8::1/64 dev vlanif100", "vlan 100 address 2001:db8::1/64 oper 1"},
    {"addr add 10.1.2.1/24 dev vlanif100"},
    {"if del vlanif100",
     "vlan 100 oper 2; entry- 10.1.2.1/24 cpu -> -1; entry- 10.1.2.1 cpu -> -1; "
     "entry- 10.1.1.99/24 cpu -> -1; entry- {gw} cpu -> -1; entry- 2001:db8::1/64 cpu -> -1; "
     "entry- 2001:db8::1 cpu -> -1; interface- vlan 100 {mac}; arp vlan 100 off"},
};

ROWS(Interfaces, TheArpRuleComesWithTheFirstIpv4AddressAndGoesWithTheLast,
     once("chip log/dpm_if", true)){
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

ROWS(Interfaces, TheChipsRefusalsDoNotChangeWhatIsKept, once("chip")){
    {"allow chip-differs"}, // from the table, until all of it has gone
    {"chip refuse interface 1"},
    {"if add vlanif300", "interface+ vlan 300 {mac} id 0 -> -1"},
    {"chip refuse arp-rule 1"},
    {"addr add 10.3.1.1/24 dev vlanif300", "arp vlan 300 on -> -1"},
    {"chip refuse vrf 1"},
    {"if vrf vlanif300 3", "if-vrf vlan 300 vrf 3 -> -1"},
    {"chip refuse interface-del 1"},
    {"if del vlanif300", "entry- 10.3.1.1/24 cpu -> -1; entry- 10.3.1.1 cpu -> -1; "
                         "interface- vlan 300 {mac} -> -1; arp vlan 300 off -> -1"},
    {"allow chip-differs 0"},
    {"if add vlanif300",
     "interface+ vlan 300 {mac} id 18"}, // what stayed in the chip takes no harm
};

ROWS(Interfaces, AVrfIsSetInTheChipForVlanInterfacesAndStoredForAll,
     once("chip platform log/dpm_if")){
    {"if add vlanif300 super"},
    {"if vrf vlanif100 7", "vlan 100 vrf 7 oper 1; if-vrf vlan 100 vrf 7"},
    {"if vrf vlanif100 7", "vlan 100 vrf 7 oper 1; log10 dpm_if_vrf_pro #::vrf = 7, same vrf.\r\n"},
    {"if vrf vlanif300 8", "vlan 300 vrf 8 oper 1"},
    {"call dpm_api_get_vrf_by_vlan 300", "= 0"},
};

ROWS(Interfaces, SubVlansLiveInTheirSuperVlansList, once("chip log")){
    {"if add vlanif300 super"},
    // It has an interface of its own.
    {"sub add 300 200", "log10 dpm_super_add_sub #::can not set this vlan to subvlan!\r\n"},
    // No super-VLANs.
    {"sub add 100 301", "log10 dpm_super_add_sub #::can not find or type is err!\r\n"},
    {"sub add 400 401", "log10 dpm_super_add_sub #::can not find or type is err!\r\n"},
    {"each 301 302 303 do sub add 300 *", ""},
    {"sub add 300 302", "log10 dpm_super_add_sub #::exist subvlan302!\r\n"},
    {"subs 300", "= 0: 303 302 301"},
    {"sub del 300 302", ""},
    {"sub del 300 302", "log10 dpm_super_del_sub #::can not exist subvlan!\r\n"},
    {"subs 300", "= 0: 303 301"},
    {"subs 100",
     "log10 dpm_api_get_sub_by_super #::can not find supervlan 100 or type is err!\r\n; = -1:"},
    // OSPF of one is trapped while it runs on the super-VLAN's network.
    {"addr add 10.8.0.1/24 dev vlanif300", ""},
    {"ospf 10.8.0.0/16"},
    {"addr add 10.8.1.1/24 dev vlanif300", ""}, // a second one that qualifies asks once
    {"sub add 300 302", "ospf vlan 302 on"},
    {"sub del 300 302", "ospf vlan 302 off"},
    {"addr del 10.8.1.1/24 dev vlanif300", ""},
    {"addr del 10.8.0.1/24 dev vlanif300", "ospf vlan 303 off; ospf vlan 301 off"},
    {"addr add 10.8.2.1/24 dev vlanif300", "ospf vlan 303 on; ospf vlan 301 on"},
    {"if add vlanif303", "log10 dpm_if_add #::vlan 303 is a subvlan!\r\n"},
    {"if del vlanif300", "ospf vlan 303 off; ospf vlan 301 off; entry- 10.8.2.1/24 cpu -> -1; "
                         "entry- 10.8.2.1 cpu -> -1"},
};

// In full: dependants, chip, next hop, mirror; the IP stack learns who is still there anew, where
// the interface is then.
ROWS(Interfaces, TakeTheirHostsWithThem, .roles = rig::with_standby,
     .see = "chip mirror stack notice"){
    {"neigh add {a}"},
    {"neigh add {b} dev vlanif200 port 2"},
    {"route add {net} via {a}"},
    {"if vrf vlanif100 7",
     "entry- {net} n1; mirror route+ {net}; notice {a} goes; entry- {a} n1; nexthop- n1; "
     "mirror nexthop- n1; mirror host- {a}; forget {a}; if-vrf vlan 100 vrf 7; "
     "standby: if-vrf vlan 100 vrf 7"},
    {"neigh add {a}"},
    {"forwards {in}", "= "},
    {"if vrf vlanif100 0"},
    {"neigh add {a}"},
    {"forwards {in}", "= {net} -> {a}"},
    {"neigh add {c} vlan 200 port 1"}, // whose VRF is that VLAN's
    {"port down 1"},
    {"if vrf vlanif200 5"},
    {"neigh add {c} vlan 200 port 3"},
    {"port down 3"},
    {"if del vlanif100"},
    {"show hosts --count", "= 0"},
    {"show hold --count", "= 0"},
};

// In the VRF that it comes to its gateways are looked for again.
ROWS(Interfaces, ThatComeBackToAVrfLeadItsRoutesAgain, .see = "stack"){
    {"route add {net} via {a}", "probe {a}"},
    {"if vrf vlanif100 7", ""},
    {"show unreachable --count", "= 0"},
    {"if vrf vlanif100 0", "probe {a}"},
};

// Records name their interface, and take the index that it has on each card, when it has one.
ROWS(Interfaces, ThatComeAgainLeadTheirRecordsAgain, .roles = rig::mirroring){
    {"route add {net} via {a}"},
    {"ilm add 7"},
    {"neigh add {l1}"},
    {"allow standby-differs"},    // in what the names lead to
    {"standby if del vlanif100"}, // before the master's deletes
    {"standby show hosts {l1} --count", "= 1"},
    {"neigh del {l1}"},
    {"standby show hosts {l1} --count", "= 0"},
    {"neigh add {l1}"},
    {"standby if add vlanif100"},
    {"allow standby-differs 0"},
    {"if del vlanif100"},
    {"if add vlanif300"}, // takes the index
    {"if add vlanif100"},
    {"neigh add {a}"},
    {"forwards {in}", "= {net} -> {a}"},
    {"neigh add {l1}"},
    {"switch-over"},
    {"each {a} {l1} do neigh del *"},
    {"show hosts --count", "= 0"},
};

// What the suite has announced counts, not what the worker has reached; no request waits for it.
ROWS(Interfaces, AreKnownToTheRequestsBehindTheirAnnouncement, once("platform")){
    {"hold"},
    {"if add vlanif300"},
    {"fault send 1 times 4"},
    {"if add vlanif300", "vlan 300 oper 1; refused"}, // the first announcement counts
    {"addr add 10.3.1.1/24 dev vlanif300", "vlan 300 address 10.3.1.1/24 oper 1"},
    {"go"},
};

ROWS(Interfaces, WithoutMemoryNothingIsChanged, once("chip")){
    {"if add vlanif300 super"}, {"fault alloc 3"}, // behind the request's
    {"if add vlanif400", ""},   {"fault alloc 2"}, {"sub add 300 201", ""},
    {"subs 300", "= 0:"},       {"fault alloc 2"}, {"addr add 10.8.0.1/24 dev vlanif300", ""},
    {"if del vlanif300", ""},
};

ROWS(Interfaces, AreShownTheNewestFirstWithNamesThatFit, once("chip", true)){
    {"if add vlanif10"},
    {"addr add 2001:db8::1/60 dev vlanif10"},
    {"addr add 10.1.1.1/24 dev vlanif10"},
    {"call dpm_api_set_if_proc "
     "a-name-of-more-bytes-than-an-interface-has-for-its-own-and-its-end 1 55 5 1"},
    {"shown dpm_if_show",
     "= \n\r ifname a-name-of-more-bytes-than-an-interface-has-for-its-own-and-its- vrf 0 if_id 5 "
     "if_index 55 if_type 1\n\r ifname vlanif10 vrf 0 if_id 10 if_index 900 if_type 0\n\r {ip} "
     "address 10.1.1.1/24 \n\r ipv6 address 2001:db8::1/60 \n\r"},
};

ROWS(Interfaces, OfRequestsThatAreWrongOrFindNothingChangeNothing, once("chip log/dpm_", true)){
    {"call dpm_api_set_if_proc 0 0 1 1 1", "log10 dpm_api_set_if_proc #::the input ...; = -1"},
    {"call dpm_api_set_if_proc vlanif1 0 1 1 3",
     "log10 dpm_api_set_if_proc #::unkown oper 3!\r\n; = -1"},
    {"call dpm_api_set_if_ip_proc 0 1 1 0 24 1", "log10 ...; = -1"},
    {"call dpm_api_set_if_ip_proc 0 1 1 10.1.1.1 24 0", "log10 ...; = -1"},
    {"each 0 3 do call dpm_api_set_if_ip_proc 0 1 * 10.1.1.1 8 1",
     "log10 ...; log10 ...; = -1; = -1"},
    {"call dpm_api_set_if_ip_proc 0 1 1 10.1.1.1 33 1", "log10 ...; = -1"},
    {"call dpm_api_set_if_ip_proc 0 1 2 2001:db8::1 129 1",
     "log10 dpm_api_set_if_ip_proc #::iptype 2 prefix_len 129 is err!\r\n; = -1"},
    {"see log/["},
    {"call dpm_trunk_member_change_func 2 90 3 1", "log10 ...; log10 ...; = -1"},
    {"call dpm_trunk_member_change_func 2 107 3 1",
     "log10 ...; log10 [dpm_trunk_member_change_func::#] trunkindex 107 err.\r\n; = -1"},
    {"call dpm_trunk_member_change_func 2 91 3 9",
     "log10 [dpm_trunk_member_change_func::#] type 2 trunkindex 91 port 3 action 9\r\n; "
     "log10 [dpm_trunk_member_change_notify:#] type 2 trunkid 1 port 3 oper 9\r\n; = 0"},
    {"if add vlanif100"},
    {"see log/dpm_if_add"},
    {"call dpm_api_set_if_proc vlanif100 2 4711 300 1",
     "log10 dpm_if_add #::if_index 4711, find same if_entry!\r\n; = 0"},
    {"see log/dpm_if_del"},
    {"call dpm_api_set_if_proc vlanif7 1 4711 7 2",
     "log10 dpm_if_del #::if_index 4711, can not find same if_entry!\r\n; = 0"},
    {"call dpm_api_set_if_ip_proc 0 4711 1 10.1.1.1 24 2",
     "log10 dpm_if_del_ip #::if_index 4711 if_ip_msg->vrf 0 .can not find pt_if, or vrf_id "
     "unequal!\r\n; = 0"},
    {"see log/dpm_if_add"},
    {"call dpm_api_set_if_ip_proc 5 900 1 10.1.1.1 24 1", // another VRF
     "log10 dpm_if_add_ip #::if_index 900 ,if_ip_msg->vrf 5 .can not find pt_if, or vrf_id "
     "unequal!\r\n; = 0"},
    {"call dpm_api_set_if_ip_proc 0 4711 1 10.1.1.1 24 1", "log10 dpm_if_add_ip ...; = 0"},
    // deliberate: posted without a type, and the block goes with the message that nobody handles
    {"allow blocks"},
    {"call dpm_api_super_sub_proc 200 201 3", "= 0"},
};

ROWS(Interfaces, AnswerTheSuiteAndOtherTables, once()){
    {"if add vlanif300 super"},
    {"if add vlanif10"},
    {"if vrf vlanif10 5"},
    {"addr add 10.1.32.1/20 dev vlanif200"},
    {"addr add 2001:db8::1/60 dev vlanif10"},
    {"towards 10.1.47.255", "= vlanif200"}, // by the network of an address
    {"towards 10.1.48.0", "= none"},
    {"towards 10.1.32.1 5", "= none"}, // another VRF
    {"towards 2001:db8:0:f::7 5", "= vlanif10"},
    {"towards 2001:db8:0:10::7 5", "= none"},
    {"each vlanif10 vlanif100 vlanif999 0 do call dpm_api_is_ipv6_empty_by_ifname *",
     "= 0; = 1; = 1; = -1"},
    {"each 300 100 999 do call dpm_api_is_supervlan_by_vlanid *", "= 0; = -1; = -2"},
    {"each 10 999 do call dpm_api_get_vrf_by_vlan *", "= 5; = 0"},
};

namespace {

using Numbers = std::vector<std::uint32_t>;

class InterfaceRecords : public rig::LoneShelf {};

} // namespace

TEST_F(InterfaceRecords, BeginWithTheirDefaultsAndAreFoundByNameIndexAndVlan) {
    EXPECT_EQ(run("if add vlanif100").text, "");
    const dpm_if_entry &own = *dpm_if_find_by_ifname("vlanif100");
    EXPECT_EQ((Numbers{own.status, own.mtu, own.bandwidth, own.metric, own.flags, own.mac[5]}),
              (Numbers{1, 1500, 1000000000, 1, 0x1003, 9}));
    EXPECT_EQ(dpm_if_find_by_ifname("vlanif1"), nullptr) << "the whole name";
    EXPECT_EQ(dpm_if_get_ifindexbyname("vlanif1"), ~0u);
    EXPECT_EQ((Numbers{dpm_if_get_vlanid(own.if_index), dpm_if_get_vlanid(4711)}),
              (Numbers{100, 0}));
    EXPECT_EQ((Numbers{dpm_ifindex_get_by_vlan(100), dpm_ifindex_get_by_vlan(999)}),
              (Numbers{own.if_index, 0}));
    char name[DPM_IFNAME_BYTES] = "kept";
    EXPECT_EQ(dpm_if_get_ifnamebyindex(4711, name), -1);
    EXPECT_STREQ(name, "kept");
    EXPECT_EQ(dpm_if_get_ifnamebyindex(own.if_index, name), 0);
    EXPECT_STREQ(name, "vlanif100");
    dpm_if_msg body{};
    std::memset(body.ifname, 'y', sizeof body.ifname);          // another program posts by number
    rig::expect_all(0, {dpm_if_add(&body), dpm_if_add(&body)}); // the same name
    ASSERT_EQ(interfaces(master()).size(), 2u);
    EXPECT_EQ(std::strlen(interfaces(master())[0].ifname), 63u);
    EXPECT_EQ(dpm_if_del(&body), 0);
    EXPECT_EQ(interfaces(master()).size(), 1u);
}

ROWS(Interfaces, AHostThatTheChipKeptLeavesAfterASwitchOverToo, .roles = rig::with_standby,
     .see = "chip"){
    {"neigh add {a}"},
    {"chip refuse route-del 1"},
    {"if del vlanif100"},
    {"switch-over"},
    {"clock advance 599s", ""},
    {"clock advance 1s", "entry- {a} n1; nexthop- n1"},
};
