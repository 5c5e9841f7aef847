// Routes: how they follow their gateways, what they give way to, and what each failing step leaves.

#include "dpm_bridge.h"
#include "dpm_host.h"
#include "dpm_memory.h"
#include "dpm_route.h"
#include "support/rows.h"

#include <cstring>

using rig::alone;
using rig::with_standby;

ROWS(Routes, OneStandsInTheChipWhileItsGatewayIsAHost){
    {"route add {net} via {a}", "probe {a}; mirror route+ {net}"},
    {"neigh add {b}"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n2; mirror nexthop+ n2; entry+ {a} n2; mirror host+ {a}; "
     "6: probe {l1}; entry+ {net} n2; mirror route+ {net}; notice {a} came"},
    {"neigh del {a}",
     "entry- {net} n2; mirror route+ {net}; notice {a} goes; entry- {a} n2; nexthop- n2; "
     "mirror nexthop- n2; mirror host- {a}"},
    {"neigh add {a}"},
    {"neigh add {a} lladdr {m9} port 7",
     "entry- {net} n3; mirror route+ {net}; notice {a} goes; entry- {a} n3; nexthop- n3; "
     "mirror nexthop- n3; mirror host- {a}; nexthop+ port 7 {m9} n4; mirror nexthop+ n4; "
     "entry+ {a} n4; mirror host+ {a}; 6: probe {l9}; entry+ {net} n4; mirror route+ {net}; "
     "notice {a} came"}, // it moved
    {"route del {net}", "entry- {net} n4; mirror route- {net}"},
    {"route del {net}", ""},
};

ROWS(Routes, ResolvedGatewaysMakeTheGroupInTheOrderOfTheirArrival){
    {"neigh add {a}"},
    {"route add {net} via {a} via {b}",
     "group+ g1; member+ g1 n1; mirror ecmp+ g1; probe {b}; entry+ {net} g1; mirror route+ {net}"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n2; mirror nexthop+ n2; entry+ {b} n2; mirror host+ {b}; "
     "6: probe {l2}; member+ g1 n2; mirror ecmp+ g1; mirror route+ {net}; notice {b} came"},
    {"forwards {in}", "= {net} -> {a} {b}"},
    {"neigh del {a}",
     "member- g1 n1; mirror ecmp+ g1; mirror route+ {net}; notice {a} goes; entry- {a} n1; "
     "nexthop- n1; mirror nexthop- n1; mirror host- {a}"},
    {"neigh del {b}",
     "member- g1 n2; group- g1; mirror ecmp- g1; entry- {net} g1; mirror route+ {net}; "
     "notice {b} goes; entry- {b} n2; nexthop- n2; mirror nexthop- n2; mirror host- {b}"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n3; mirror nexthop+ n3; entry+ {b} n3; mirror host+ {b}; "
     "6: probe {l2}; group+ g2; member+ g2 n3; mirror ecmp+ g2; entry+ {net} g2; "
     "mirror route+ {net}; notice {b} came"},
    {"neigh add {a}"},
    {"forwards {in}", "= {net} -> {b} {a}"},
    {"route del {net}",
     "entry- {net} g2; member- g2 n4; mirror ecmp+ g2; member- g2 n3; group- g2; "
     "mirror ecmp- g2; mirror route- {net}"},
};

ROWS(Routes, EightGatewaysOneOfThemWithoutAddress, .see = "chip"){
    {"each {a} {b} {c} {d} {e} {f} {g} do neigh add *"},
    {"route add {net} via {a} via {b} via {c} via {d} via {e} via {f} dev vlanif100 "
     "dev vlanif100 via {g}",
     "group+ g1; member+ g1 n1; member+ g1 n2; member+ g1 n3; member+ g1 n4; member+ g1 n5; "
     "member+ g1 n6; member+ g1 cpu; member+ g1 n7; entry+ {net} g1"},
    {"neigh del {a}", "member- g1 n1; entry- {a} n1; nexthop- n1"},
    {"neigh del {g}", "member- g1 n7; entry- {g} n7; nexthop- n7"},
    {"route del {net}",
     "entry- {net} g1; member- g1 n2; member- g1 n3; member- g1 n4; member- g1 n5; "
     "member- g1 n6; member- g1 cpu; group- g1"},
    {"route add {net} dev vlanif100", "entry+ {net} cpu"},
    {"route del {net}", "entry- {net} cpu"},
};

ROWS(Routes, ADefaultRouteTakesTheCpusPlaceWhileItIsProgrammed, .see = "chip"){
    {"route add {any} via {a}", ""},
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; entry+ {a} n1; default {ip} drop; entry+ {any} n1"},
    {"4: route add 0.0.0.1/0 via {a}", "default {ip} drop; entry+ 0.0.0.1/0 n1"},
    {"6: route add ::1/0 via {a}", "default {ip} drop; entry+ ::1/0 n1"},
    {"4: route del 0.0.0.1/0", "entry- 0.0.0.1/0 n1"},
    {"6: route del ::1/0", "entry- ::1/0 n1"},
    {"neigh del {a}", "entry- {any} n1; default {ip} to-cpu; entry- {a} n1; nexthop- n1"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n2; entry+ {a} n2; default {ip} drop; entry+ {any} n2"},
    {"route del {any}", "entry- {any} n2; default {ip} to-cpu"},
    {"chip refuse route 1"},
    {"allow adrift"},
    {"route add {any} via {a}", "default {ip} drop; entry+ {any} n2 -> -1; default {ip} to-cpu"},
    {"allow adrift 0"},
    {"route del {any}", ""},
    {"route add {any} via {a} via {b}",
     "group+ g1; member+ g1 n2; default {ip} drop; entry+ {any} g1"},
    {"route del {any}", "entry- {any} g1; default {ip} to-cpu; member- g1 n2; group- g1"},
};

ROWS(Routes, TheDefaultOfAnotherVrfIsItsOwn, .see = "chip"){
    {"if vrf vlanif200 5"},
    {"neigh add {a}"},
    {"route add {any} via {a} dev vlanif200 vrf 5", ""},
    {"neigh add {a} dev vlanif200",
     "nexthop+ port 1 svlan 200 {m1} n2; entry+ vrf 5 {a} n2; default vrf 5 {ip} drop; "
     "entry+ vrf 5 {any} n2"},
    {"best {in} 5", "= {any}"},
    {"best {in}", "= none"},
    {"route add {net} via {a} dev vlanif200 vrf 5", "entry+ vrf 5 {net} n2"},
    {"4: ftn add {net}", "ftn+ {net} push 1000 port 1 {m1}"}, // a tunnel of VRF 0
    {"best {in} 5", "= {net}"},
};

ROWS(Routes, AHostWinsOverARouteToItsAddress){
    {"neigh add {a}"},
    {"route add {h} via {a}", "entry+ {h} n1; mirror route+ {h}"},
    {"neigh add {h}",
     "entry- {h} n1; mirror route- {h}; nexthop+ port 1 {m8} n2; mirror nexthop+ n2; "
     "entry+ {h} n2; mirror host+ {h}; 6: probe {l8}; notice {h} came"},
    {"route add {h} via {a}", ""},
    {"neigh del {h}",
     "notice {h} goes; entry- {h} n2; nexthop- n2; mirror nexthop- n2; mirror host- {h}"},
    {"route add {h} via {a}", "entry+ {h} n1; mirror route+ {h}"},
};

ROWS(Routes, ARouteThatDidNotGoStandsBehindItsHostUntilThatGoes, .see = "chip notice"){
    {"neigh add {a}"},
    {"route add {h} via {a}"},
    {"chip refuse route-del 1"},
    {"neigh add {h}",
     "entry- {h} n1 -> -1; nexthop+ port 1 {m8} n2; entry+ {h} n2; notice {h} came"},
    {"neigh del {a}", "notice {a} goes; entry- {a} n1; nexthop- n1"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n3; entry+ {a} n3; notice {a} came"},
    {"neigh del {h}", "notice {h} goes; entry- {h} n2; entry+ {h} n3; nexthop- n2"},
    {"chip refuse route-del 1"},
    {"neigh add {h}",
     "entry- {h} n3 -> -1; nexthop+ port 1 {m8} n4; entry+ {h} n4; notice {h} came"},
    {"chip refuse route 1"},
    {"allow adrift"},
    // Its place is refused: it waits.
    {"neigh del {h}", "notice {h} goes; entry- {h} n4; entry+ {h} n3 -> -1; nexthop- n4"},
    {"neigh del {a}", "notice {a} goes; entry- {a} n3; nexthop- n3"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n5; entry+ {a} n5; entry+ {h} n5; notice {a} came"},
    {"allow adrift 0"},
    {"chip refuse route-del 1"},
    {"fault alloc 3"}, // behind the request and the next hop
    {"neigh add {h}", "entry- {h} n5 -> -1; nexthop+ port 1 {m8} n6; entry+ {h} n6; entry- {h} n6; "
                      "entry+ {h} n5; nexthop- n6"},
};

ROWS(Routes, AHostOnAnotherInterfaceKeepsItsPlace, .families = {6}, .see = "chip"){
    {"neigh add {h}"},
    {"neigh add 2001:db8:3::2 dev vlanif200"},
    {"route add {h} via 2001:db8:3::2 dev vlanif200", ""},
    {"neigh del {h}", "entry- {h} n1; entry+ {h} n2; nexthop- n1"},
};

ROWS(Routes, AnotherGatewayReplacesOneAndTheIpStackIsTold, .see = "chip platform"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {a} via {b} type 1",
     "group+ g1; member+ g1 n1; member+ g1 n2; entry+ {net} g1"},
    {"route add {net} via {b} type 1",
     "static route origin 15 {net} via {a} goes; static route origin 15 {net} via {b} goes; "
     "entry- {net} g1; member- g1 n1; member- g1 n2; group- g1; entry+ {net} n2"},
    {"route add {net} via {b} dev vlanif200 type 3", ""}, // neither interface nor type counts
    {"fault alloc 2"},                                    // the new record's
    {"route add {net} via {a}", ""},
    {"chip refuse route-del 1"},
    {"route add {net} via {a}", "static route origin 15 {net} via {b} goes; entry- {net} n2 -> -1"},
    {"route add {net} via {a}",
     "static route origin 15 {net} via {b} goes; entry- {net} n2; entry+ {net} n1"},
    {"4: route add {net} via fe80::9 dev vlanif100"}, // of which the IP stack has none
    {"4: route add {net} via {a}", "entry+ {net} n1"},
};

ROWS(Routes, WhatIsNotRenewedAfterASwitchOverGoesInTenMinutes, .roles = with_standby,
     .see = "chip mirror"){
    {"neigh add {a}"},
    {"neigh reachable {a}"},
    {"route add {net1} via {a} type 1"},
    {"route add {net2} via {a} type 4"},
    {"route add {net3} via {a} type 5"},
    {"route add {net4} via {a} type 6"},
    {"route add {net5} via {a} type 12"},
    {"route add {net6} via {a} type 13"},
    {"route add {net7} via {a} type 0"},
    {"route add {net8} via {a} type 11"},
    {"route add {net9} via {a} type 3"},
    {"switch-over", ""},
    {"route add {net1} via {a} type 1", ""},
    {"route add {net2} via {b} type 4", "entry- {net2} n1"},
    {"route add {net3} via {a} type 5", ""},
    {"standby comes"},
    {"chip refuse route-del 1"},
    {"clock advance 599s", ""},
    {"clock advance 1s",
     "entry- {net4} n1 -> -1; entry- {net5} n1; mirror route- {net5}; entry- {net7} n1; "
     "mirror route- {net7}; entry- {net8} n1; mirror route- {net8}"},
    {"show routes --count", "= 6"},
    {"clock advance 2000s", ""},
};

ROWS(Routes, ARefusedOneWaitsInTheTableForItsGatewayToComeAgain, .see = "chip"){
    {"neigh add {a}"},
    {"chip refuse route 1"},
    {"allow adrift"},
    {"route add {net} via {a}", "entry+ {net} n1 -> -1"},
    {"neigh del {a}", "entry- {a} n1; nexthop- n1"},
    {"allow adrift 0"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n2; entry+ {a} n2; entry+ {net} n2"},
    {"neigh del {a}"},
    {"see chip mirror"},
    {"chip refuse route 1 skip 1"}, // behind the host's own
    {"allow adrift"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n3; mirror nexthop+ n3; entry+ {a} n3; "
                      "mirror host+ {a}; entry+ {net} n3 -> -1"},
    {"see chip"},
    {"best {in}", "= none"},
    {"route del {net}", ""},
    {"chip refuse route 1"},
    {"route add {net} via {a} via {b}",
     "group+ g1; member+ g1 n3; entry+ {net} g1 -> -1; member- g1 n3; group- g1"},
    {"neigh del {a}", "entry- {a} n3; nexthop- n3"},
    {"allow adrift 0"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n4; entry+ {a} n4; group+ g2; member+ g2 n4; entry+ {net} g2"},
    // Its only member is refused: the group must not stay behind.
    {"neigh del {a}"},
    {"chip refuse group-member 1"},
    {"allow adrift"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n5; entry+ {a} n5; group+ g3; member+ g3 n5 -> -1; group- g3"},
    {"neigh del {a}", "entry- {a} n5; nexthop- n5"},
    {"allow adrift 0"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n6; entry+ {a} n6; group+ g4; member+ g4 n6; entry+ {net} g4"},
    // One that the chip keeps is not mirrored.
    {"see chip mirror"},
    {"chip refuse route-del 1"},
    {"allow adrift"},
    {"allow standby-differs"},
    {"neigh del {a}", "member- g4 n6; group- g4; mirror ecmp- g4; entry- {net} g4 -> -1; "
                      "entry- {a} n6; nexthop- n6; mirror nexthop- n6; mirror host- {a}"},
};

ROWS(Routes, WhatTheChipRefusedToLetGoIsTriedAgain, .see = "chip"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {a} via {b}"},
    {"chip refuse group-member 1"},
    {"allow adrift"},
    {"neigh del {a}", "member- g1 n1 -> -1; entry- {a} n1; nexthop- n1 -> -1; entry+ {a} n1"},
    {"neigh del {a}", "member- g1 n1; entry- {a} n1; nexthop- n1"},
    {"allow adrift 0"},
    {"allow chip-differs"},
    {"chip refuse group-del 1"},
    {"route del {net}", "entry- {net} g1; member- g1 n2; group- g1 -> -1"},
    {"chip refuse default-route 1"},
    {"route add {any} via {b}", "default {ip} drop -> -1; entry+ {any} n2"},
    {"clock advance 29s", ""},
    {"allow chip-differs 0"},
    {"clock advance 1s", "group- g1; default {ip} drop"},
};

// Routes come in any order, and go, between the events of their host.
ROWS(Routes, OfAHostAreHandledInTableOrder, .see = "chip"){
    {"each {net5} {net2} {net} {any} {net9} do route add * via {a}"},
    {"route del {net5}"},
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; entry+ {a} n1; default {ip} drop; entry+ {any} n1; "
                      "entry+ {net} n1; entry+ {net2} n1; entry+ {net9} n1"},
    {"neigh del {a}"},
    {"each {h} {net1} {net7} do route add * via {a}"},
    {"route del {net9}"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n2; entry+ {a} n2; default {ip} drop; entry+ {any} n2; "
     "entry+ {net} n2; entry+ {net1} n2; entry+ {net2} n2; entry+ {net7} n2; entry+ {h} n2"},
    {"neigh del {a}",
     "entry- {any} n2; default {ip} to-cpu; entry- {net} n2; entry- {net1} n2; "
     "entry- {net2} n2; entry- {net7} n2; entry- {h} n2; entry- {a} n2; nexthop- n2"},
};

ROWS(Routes, ASlotIsProgrammedWithWhatTheChipHoldsOfThem, .see = "chip"){
    {"neigh add {a}"},
    {"route add {any} via {a} via {b}"},
    {"route add {net} via {a}"},
    {"route add {net3} via {c}"},
    {"route add {net4} via {a}"},
    {"ftn add {net4} via {a}"},
    {"card slot-up 3",
     "nexthop+ port 1 {m1} n1 slots 0x8; entry+ {a} n1 slots 0x8; group+ g1 slots 0x8; "
     "member+ g1 n1 slots 0x8; default {ip} drop slots 0x8; entry+ {any} g1 slots 0x8; "
     "entry+ {net} n1 slots 0x8; ftn+ {net4} push 1000 port 1 {m1} slots 0x8"},
};

ROWS(Routes, AreScopedByInterfaceForIpv6GatewaysAlone, .roles = with_standby, .see = "chip notice"){
    {"6: route add {net} via fe80::2 dev vlanif200", ""},
    {"4: route add {net} via {b} dev vlanif200", ""},
    {"6: neigh add fe80::2", "nexthop+ port 1 {m2} n1; notice fe80::2 came"},
    {"4: neigh add {b}",
     "nexthop+ port 1 {m2} n1; entry+ {b} n1; entry+ {net} n1; notice {b} came"},
    {"6: neigh add fe80::2 dev vlanif200",
     "nexthop+ port 1 svlan 200 {m2} n2; entry+ {net} n2; notice fe80::2 came"},
    {"6: neigh del fe80::2", "notice fe80::2 goes; nexthop- n1"},
    {"switch-over"},
    {"6: neigh add fe80::2 dev vlanif200 lladdr {m7}",
     "entry- {net} n2; notice fe80::2 goes; nexthop- n2; nexthop+ port 1 svlan 200 {m7} n3; "
     "entry+ {net} n3; notice fe80::2 came"},
    {"6: neigh del fe80::2 dev vlanif200", "entry- {net} n3; notice fe80::2 goes; nexthop- n3"},
    {"6: neigh add fe80::2"},
    {"6: route add {net} via fe80::2 dev vlanif100", "entry+ {net} n4"}, // another gateway
    {"6: route add {net} via fe80::2 dev vlanif100", ""},
};

ROWS(Routes, OverATunnelAreNeitherReplacedNorDeletedByRequest, .see = "chip stack"){
    {"if add tunnel7 vlan 700"},
    {"if add vlanif4089"},
    {"each {a} {b} do neigh add *"},
    {"route add {net1} via {a} dev vlanif4089", ""}, // of management: not resolved
    {"route add {net} via {a} dev tunnel7", "4: entry+ {net} n1; 6: probe {a}"},
    {"see log"},
    {"route add {net} via {b}",
     "log10 dpm_route_add_msg #::find same prefix and mask in route table.\r\n; "
     "log10 exist route nexthop is tunnel!\r\n"},
    {"route del {net}", "log10 dpm_route_del_msg #::find same prefix and mask in route table.\r\n; "
                        "log10 route nexthop is tunnel, not delelte!\r\n"},
};

ROWS(Routes, TheBestIsTheLongestThatForwards, rig::once()){
    {"if add tunnel7 vlan 700"},
    {"neigh add {a}"},
    {"best 10.1.1.1", "= none"},
    {"route add 10.0.0.0/8 via {a}"},
    {"route add 10.1.0.0/16 via {a} via {h}"},
    {"best 10.1.1.1", "= 10.1.0.0/16"},
    {"best 10.2.1.1", "= 10.0.0.0/8"},
    {"route add 10.1.1.0/24 via {h}"},
    {"route add 10.1.1.0/25 via {a} dev tunnel7"},
    {"route add 10.1.1.0/26 dev vlanif100"},
    {"route add 10.1.1.0/27 via {a}"},
    {"ftn add 10.1.1.0/27 via {a}"},
    {"best 10.1.1.1", "= 10.1.0.0/16"},
    {"ftn del 10.1.1.0/27 via {a}"},
    {"best 10.1.1.1", "= 10.1.1.0/27"},
    // Host bits are stored, and do not count; the first that forwards answers, in table order.
    {"route add 10.1.2.3/28 via {a}"},
    {"route add 10.1.2.1/28 via {h}"},
    {"route add 10.1.2.2/28 via {a}"},
    {"best 10.1.2.9", "= 10.1.2.2/28"},
    {"route add 2001:db8::1/32 via 2001:db8::2 dev vlanif100"},
    {"best 2001:db8::7", "= none"},
    {"neigh add 2001:db8::2"},
    {"best 2001:db8::7", "= 2001:db8::1/32"},
};

ROWS(Routes, HoldSixteenThousandOfWhichThoseOfIpv6CountTwice, .roles = alone,
     .see = "chip log/dpm_route_add"){
    {"4: many 16383 route add 10.#.0/24 via {a}"},
    {"4: route add 2001:db8:9::/48 via 2001:db8::2 dev vlanif100"}, // begins below the limit
    {"6: many 8192 route add 2001:db8:8::0.1.#/128 via {a}"},
    {"4: route add 11.0.0.0/24 via {a}",
     "log10 dpm_route_add_msg ...; log10 dpm_route_add #::route entry is full!!!\r\n"},
    {"6: route add 10.9.0.0/16 via 10.1.1.2 dev vlanif100",
     "log10 dpm_route_add_msg ...; log10 dpm_route_add #::route entry is full!!!\r\n"},
    {"see chip"},
    // In another's place, unless that leaves too many.
    {"4: route add 10.0.7.0/24 dev vlanif100", ""},
    {"6: route add 2001:db8:8::0.1.0.7/128 dev vlanif100", "entry+ 2001:db8:8::1:7 cpu"},
    {"call dpm_ipv4_route_cnt_show", "4: = 16383; 6: = 0"},
    {"call dpm_ipv6_route_cnt_show", "4: = 1; 6: = 8192"},
};

namespace {

// "raw OPER PREFIX [FIELD NUMBER]": a request over {a}'s address, as no command makes it.
void request(rig::RowShelf &shelf, const rig::Words &words) {
    dpm_route_msg msg{};
    msg.route_type = msg.np_num = 1;
    msg.destination = rig::prefix_of(words[2]), msg.np[0] = rig::prefix_of("10.1.1.1");
    msg.np_ifindex[0] = shelf.master().suite.find("vlanif100")->ifindex;
    const auto value = words.size() > 4 ? std::uint32_t(std::stoul(words[4])) : 0;
    const std::string field = words.size() > 3 ? words[3] : "";
    if (field == "gateways")
        msg.np_num = value;
    else if (field == "interface")
        msg.np_ifindex[0] = value;
    else if (field.ends_with("length"))
        (field == "length" ? msg.destination : msg.np[0]).prefix_len = std::uint16_t(value);
    else if (field.ends_with("family"))
        (field == "family" ? msg.destination : msg.np[0]).family = std::uint16_t(value);
    if (dpm_api_route_pro(&msg, std::uint32_t(std::stoul(words[1]))) != 0)
        shelf.answer("refused");
}
const rig::Verb raw{"raw", request};

} // namespace

// So do hosts: the standby finds an interface by its name.
ROWS(Routes, OverAnInterfaceThatComesLateTakeItsName, .families = {4}, .roles = rig::mirroring,
     .see = "mirror"){
    {"call dpm_host_test_add 0x301010a 902 300 0 3 3", "mirror nexthop+ n1; mirror host+ {c}; = 0"},
    {"raw 1 {net} interface 902", "mirror route+ {net}"},
    {"if add vlanif300", "mirror host- {c}; mirror host+ {c}; mirror route+ {net}"},
    {"if add vlanif300", ""},
    {"standby show routes", "...; = 0    {net}  waits  0      {a} vlanif300 unresolved  1"},
};

ROWS(Routes, OfBadRequestsChangeNothing, .families = {4}, .roles = rig::mirroring,
     .see = "chip log/dpm_"){
    {"call dpm_api_route_pro 0 1", "log10 dpm_api_route_pro #::the input ...; = -1"},
    {"raw 3 {net}",
     "log10 dpm_api_route_pro #::rev msg from norix, unkown oper 3 !\r\n; = refused"},
    {"fault alloc 1"},
    {"raw 1 {net}", "= refused"},
    {"fault send 1 times 4"},
    {"raw 1 {net}", "log13 dpm_api_route_pro #::send msg err!\r\n; = refused"},
    {"raw 1 {net} gateways 9", "log10 dpm_route_add_msg #::np_num 9 is err!\r\n"},
    {"raw 1 {net} gateways 4294967295", "log10 dpm_route_add_msg #::np_num -1 is err!\r\n"},
    {"raw 1 {net} length 33", "log10 dpm_route_add_msg #::masklen = 33 is err!\r\n"},
    {"raw 2 {net} length 65535", ""},
    {"raw 1 {net} family 3", "log10 dpm_route_find_by_entry #::iptype = 3 is err!\r\n; "
                             "log10 dpm_route_add_msg #::prefix not exit in route table.\r\n; "
                             "log10 dpm_route_add #::ip_type = 3 is err!\r\n"},
    {"raw 2 {net} family 3", "log10 dpm_route_find_by_entry #::iptype = 3 is err!\r\n"},
    {"call dpm_api_get_route_entry_first 3", "log10 ...; = 0"},
    {"standby raw 1 {net}", "standby: log10 dpm_route_add_msg #::it is slave.\r\n"},
    {"standby raw 2 {net}", "standby: log10 dpm_route_del_msg #::it is slave.\r\n"},
    {"show routes --count", "= 0"},
};

ROWS(Routes, OfOddGatewaysAreKeptAndNeverProgrammed, .families = {4}, .see = "chip"){
    {"raw 1 {net1} gateways 0", ""},
    {"raw 1 {net2} gateway-family 3", ""},
    {"raw 1 {net3} gateway-length 65535", ""},
    {"show routes --count", "= 3"},
};

// Hosts of either family resolve gateways of theirs, of routes of their own family first.
ROWS(Routes, OverGatewaysOfTheOtherFamilyFollowThem, .families = {4}, .see = "chip"){
    {"route add {net4} via 2001:db8::2 dev vlanif100", ""},
    {"route add 2001:db8:4::/48 via 2001:db8::2 dev vlanif100 via {a} dev vlanif100", ""},
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; entry+ {a} n1; group+ g1; member+ g1 n1; "
                      "entry+ 2001:db8:4::/48 g1"},
    {"neigh add 2001:db8::2",
     "nexthop+ port 1 {m2} n2; entry+ 2001:db8::2 n2; member+ g1 n2; entry+ {net4} n2"},
    {"neigh del {a}", "member- g1 n1; entry- {a} n1; nexthop- n1"},
    {"neigh del 2001:db8::2", "member- g1 n2; group- g1; entry- 2001:db8:4::/48 g1; "
                              "entry- {net4} n2; entry- 2001:db8::2 n2; nexthop- n2"},
};

// For IPv4 on another interface as well: one host resolves one place.
ROWS(Routes, AGatewayThatStandsTwiceCountsOnce, .see = "chip"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {a} dev vlanif100 via {a} dev vlanif100 via {b}",
     "group+ g1; member+ g1 n1; member+ g1 n2; entry+ {net} g1"},
    {"4: route add {net1} via {a} dev vlanif100 via {a} dev vlanif200 via {b}",
     "group+ g2; member+ g2 n1; member+ g2 n2; entry+ {net1} g2"},
    {"neigh del {a}"},
    {"neigh add {a} port 7"},
    {"forwards {in}", "= {net} -> {b} {a}"},
};

using RouteRecords = rig::Shelf;

TEST_F(RouteRecords, OnTheStandbyHaveLengthsAndNamesThatFit) {
    dpm_route_entry record;
    std::memset(&record, 0x5A, sizeof record);
    record.vrf = record.np_num = 1;
    const auto scope = as(standby());
    for (const std::uint16_t length : {33, 16}) { // the first is dropped
        record.destination = rig::prefix_of("10.2.0.0/" + std::to_string(length));
        EXPECT_EQ(dpm_route_entry_add_sync_receive(&record, sizeof record), 0);
        settle();
    }
    ASSERT_EQ(routes(standby()).size(), 1u);
    EXPECT_EQ(std::strlen(routes(standby())[0].np_ifname[7]), 63u);
    EXPECT_EQ(dpm_route_entry_del_sync_receive(&record, sizeof record), 0);
}

TEST_F(RouteRecords, TheManagementExportTellsRoutesOverVlanInterfaces) {
    void *out = nullptr;
    EXPECT_EQ(dpm_snmp_get_route_table(nullptr, 52), -1);
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 52), 0) << "none";
    for (const char *command :
         {"if add vlanif100", "if add vlanif200", "if add tunnel7 vlan 700", "if vrf vlanif200 5",
          "neigh add 10.1.1.2", "route add 10.2.0.0/16 via 10.1.1.2 dev vlanif100",
          "route add 10.3.3.0/24 via 10.1.1.9 dev vlanif200 via 10.1.1.2 dev vlanif100 vrf 0",
          "route add 10.4.0.0/16 via 10.1.1.2 dev tunnel7",
          "route add 10.5.0.0/16 via 10.1.1.2 dev vlanif200 vrf 5"})
        EXPECT_EQ(run(command).text, "") << command;
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 51), -1);
    fail(chassis::os::Fault::allocation);
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 52), -1);
    EXPECT_EQ(dpm_snmp_get_route_table(&out, 60), 2);
    const auto word = [](const char *address) {
        return dpm::address_word(rig::prefix_of(address).address);
    };
    const std::uint32_t wanted[2][15] = {
        {1, 4, word("10.2.0.0"), 16, 0, 0, 1, 4, word("10.1.1.2"), 0, 0, 0, 100, 0, 0},
        {1, 4, word("10.3.3.0"), 24, 0, 0, 1, 4, word("10.1.1.9"), 0, 2, 0, 200, 0, 0}};
    EXPECT_EQ(std::memcmp(out, wanted, sizeof wanted), 0);
    bep_freeEx(out, __FILE__, __LINE__);
}
