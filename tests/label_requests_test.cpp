// Label requests: what becomes of a tunnel, a VPN route, an incoming label and an MPLS interface as
// requests, neighbours, routes and the chip's refusals come and go.

#include "chassis/tables/text.h"
#include "dpm_l3vpn_if.h"
#include "dpm_locks.h"
#include "platform/dal.h"
#include "support/rows.h"

namespace {

// "lost PREFIX COMMAND": the chip has forgotten a route, and says so when it shall delete it.
void lose(rig::RowShelf &shelf, const rig::Words &words) {
    using namespace chassis;
    const chip::Address key = tables::chip_key(0, rig::prefix_of(words[1]));
    EXPECT_EQ(shelf.master().chip.drop<chip::kinds::entry>(key).code, 0);
    shelf.refuse(chip::Function::del_ip_entry, 1, DAL_NOT_THERE);
    std::string command;
    for (std::size_t i = 2; i < words.size(); ++i)
        command += words[i] + " ";
    (void)shelf.act(command);
}

// "every-slot": MPLS interfaces as when a card outside the shelf's slots comes up.
void every_slot(rig::RowShelf &, const rig::Words &) {
    const dpm::dpm_lock lock;
    EXPECT_EQ(dpm_mpls_if_sync_all_send(0), 0);
}

// "results": what the chip answered last, by FTN and ILM.
void tell_results(rig::RowShelf &shelf, const rig::Words &) {
    std::string text;
    for (const dpm_ftn &ftn : shelf.ftns(shelf.master()))
        text += " " + std::to_string(ftn.sdk_result);
    for (const dpm_ilm &ilm : shelf.ilms(shelf.master()))
        text += " " + std::to_string(ilm.sdk_result);
    shelf.answer(text.empty() ? "none" : text.substr(1));
}

// Without what neighbours do themselves.
constexpr const char *labels_alone = "chip mirror but nexthop host entry";

const rig::Verb verbs[] = {{"lost", lose}, {"every-slot", every_slot}, {"results", tell_results}};

ROWS(LabelRequests, ATunnelFollowsItsNeighbour, .families = {4}, .see = "chip mirror"){
    {"ftn add {net1} via {a}", "mirror ftn+ {net1} waits"},
    {"ftn add {net1} via {a} label 1001",
     "mirror ftn+ {net1} waits"}, // the other one waits no more
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; "
     "ftn+ {net1} push 1001 port 1 {m1}; mirror ftn+ {net1}"},
    {"neigh add {a} lladdr {m2}",
     "ftn- {net1} push 1001 port 1 {m1}; mirror ftn+ {net1} waits; entry- {a} n1; nexthop- n1; "
     "mirror nexthop- n1; mirror host- {a}; nexthop+ port 1 {m2} n2; mirror nexthop+ n2; "
     "entry+ {a} n2; mirror host+ {a}; ftn+ {net1} push 1001 port 1 {m2}; mirror ftn+ {net1}"},
    {"neigh del {a}",
     "ftn- {net1} push 1001 port 1 {m2}; mirror ftn+ {net1} waits; entry- {a} n2; nexthop- n2; "
     "mirror nexthop- n2; mirror host- {a}"},
    {"neigh add {a} trunk 3",
     "nexthop+ trunk 3 {m1} n3; mirror nexthop+ n3; entry+ {a} n3; mirror host+ {a}; "
     "ftn+ {net1} push 1001 trunk 3 {m1}; mirror ftn+ {net1}"},
    {"chip refuse ftn-del 1 code 5"},
    {"neigh del {a}",
     "ftn- {net1} push 1001 trunk 3 {m1} -> 5; entry- {a} n3; nexthop- n3; mirror nexthop- n3; "
     "mirror host- {a}"},
    {"results", "= 5"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n4; mirror nexthop+ n4; entry+ {a} n4; mirror host+ {a}"},
    {"ftn del {net1} via {a}", "ftn- {net1} push 1001 trunk 3 {m1}; mirror ftn- {net1} new"},
    {"ftn del {net1} via {a}", ""},
};

ROWS(LabelRequests, AWaitingTunnelStaysWhereTheChipRefusesIt, .families = {4}, .see = labels_alone){
    {"ftn add {net1} via {a}"},
    {"chip refuse ftn 1 code 5"},
    {"neigh add {a}", "ftn+ {net1} push 1000 port 1 {m1} -> 5"},
    {"results", "= 5"},
    {"chip refuse ftn 1 code 6"},
    {"ftn add {net1} via {a}", "ftn+ {net1} push 1000 port 1 {m1} -> 6; mirror ftn+ {net1} waits"},
    {"results", "= 6"},
    {"neigh del {a}", ""},
    {"neigh add {a}", "ftn+ {net1} push 1000 port 1 {m1}; mirror ftn+ {net1}"},
    {"results", "= 0"},
    {"chip refuse ftn-del 2 code 7"},
    {"ftn add {net1} via {a} label 1001", "ftn- {net1} push 1000 port 1 {m1} -> 7"},
    {"ftn del {net1} via {a}", "ftn- {net1} push 1000 port 1 {m1} -> 7"},
    {"results", "= 7"},
    {"ftn del {net1} via {a}", "ftn- {net1} push 1000 port 1 {m1}; mirror ftn- {net1} new"},
};

ROWS(LabelRequests, ATunnelTakesThePlaceOfARoute, .roles = rig::with_standby, .see = "chip mirror"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {b}"},
    {"ftn add {net} via {a}",
     "entry- {net} n2; ftn+ {net} push 1000 port 1 {m1}; mirror ftn+ {net} for the route"},
    {"ftn add {net} via {a} label 1001",
     "ftn- {net} push 1000 port 1 {m1}; ftn+ {net} push 1001 port 1 {m1}; "
     "mirror ftn+ {net} for the route"}, // the route is out already
    {"route del {net}", "mirror route- {net}"},
    {"route add {net} via {b}", "mirror route+ {net}"},
    {"ftn del {net} via {a}",
     "ftn- {net} push 1001 port 1 {m1}; entry+ {net} n2; mirror ftn- {net} new"},
    {"route del {net}"},
    {"ftn add {net} via {a}", "ftn+ {net} push 1000 port 1 {m1}; mirror ftn+ {net}"},
    {"route add {net} via {b}", "mirror ftn+ {net} for the route; mirror route+ {net}"},
    {"switch-over"},
    {"standby comes"},
    {"ftn del {net} via {a}",
     "ftn- {net} push 1000 port 1 {m1}; entry+ {net} n2; mirror ftn- {net} new"},
};

ROWS(LabelRequests, ARouteIsPutBackWhereTheTunnelIsRefused, .see = "chip mirror"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {b}"},
    {"chip refuse ftn 1"},
    {"ftn add {net} via {a}",
     "entry- {net} n2; ftn+ {net} push 1000 port 1 {m1} -> -1; entry+ {net} n2; "
     "mirror ftn+ {net} waits"},
    {"chip refuse route-del 1 code 5"},
    {"ftn add {net} via {a}", "entry- {net} n2 -> 5; mirror ftn+ {net} waits"},
    {"results", "= 5"},
    {"lost {net} ftn add {net} via {a}",
     "entry- {net} n2 -> -31993; ftn+ {net} push 1000 port 1 {m1}; "
     "mirror ftn+ {net} for the route"},
    {"chip refuse ftn 1"},
    {"chip refuse route 1"},
    {"allow adrift"},
    {"ftn add {net} via {a}",
     "ftn- {net} push 1000 port 1 {m1}; ftn+ {net} push 1000 port 1 {m1} -> -1; "
     "entry+ {net} n2 -> -1; mirror route+ {net}; mirror ftn+ {net} waits"},
    {"ftn add {net} via {a}", "ftn+ {net} push 1000 port 1 {m1}; mirror ftn+ {net}"},
    {"ftn del {net} via {a}", "ftn- {net} push 1000 port 1 {m1}; mirror ftn- {net} new"},
};

ROWS(LabelRequests, OfSeveralTunnelsTheLastPutsTheRouteBack, .see = "chip mirror"){
    {"each {a} {b} do neigh add *"},
    {"route add {net} via {b}"},
    {"ftn add {net} via {c}", "mirror ftn+ {net} waits"},
    {"ftn add {net} via {a}",
     "entry- {net} n2; ftn+ {net} push 1000 port 1 {m1}; mirror ftn+ {net} for the route"},
    {"ftn add {net} via {b} label 1001",
     "ftn+ {net} push 1001 port 1 {m2}; mirror ftn+ {net} for the route"},
    {"chip refuse ftn 1"},
    {"ftn add {net} via {b} label 1002",
     "ftn- {net} push 1001 port 1 {m2}; ftn+ {net} push 1002 port 1 {m2} -> -1; "
     "mirror ftn+ {net} waits for the route"},
    {"ftn del {net} via {a}",
     "ftn- {net} push 1000 port 1 {m1}; mirror ftn- {net} new for the route"},
    {"ftn del {net} via {b}",
     "mirror ftn+ {net} waits for the route; mirror ftn- {net} waits for the route"},
    {"ftn del {net} via {c}", "entry+ {net} n2; mirror ftn- {net} waits"},
};

ROWS(LabelRequests, ARouteStaysBesideATunnelThatItsNeighbourBrings, .families = {4},
     .roles = rig::with_standby, .see = "chip mirror"){
    {"neigh add {b}"},
    {"route add {net} via {b}"},
    {"ftn add {net} via {a}", "mirror ftn+ {net} waits"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n2; mirror nexthop+ n2; entry+ {a} n2; mirror host+ {a}; "
     "ftn+ {net} push 1000 port 1 {m1}; mirror ftn+ {net}"},
    {"ftn add {net} via {a}",
     "ftn- {net} push 1000 port 1 {m1}; entry- {net} n1; ftn+ {net} push 1000 port 1 {m1}; "
     "mirror ftn+ {net} for the route"},
    {"neigh del {a}",
     "ftn- {net} push 1000 port 1 {m1}; mirror ftn+ {net} waits for the route; entry- {a} n2; "
     "nexthop- n2; mirror nexthop- n2; mirror host- {a}"},
    {"switch-over"},
    {"standby comes"},
    {"ftn del {net} via {a}", "entry+ {net} n1; mirror ftn- {net} waits"},
};

ROWS(LabelRequests, AVpnRouteRidesOnItsTunnel, .families = {4}, .see = labels_alone){
    {"neigh add {a}"},
    {"ftn add {net1} via {a} vrf 5 remote {b}", ""}, // nothing carries it
    {"ftn add {b}/32 via {a}", "ftn+ {b} push 1000 port 1 {m1}; mirror ftn+ {b}"},
    {"ftn add {net1} via {a} vrf 5 remote {b} label 2000",
     "ftn+ vrf 5 {net1} push 2001 over {b} push 1000; mirror ftn+ {net1} vrf 5"},
    {"ftn add {net1} via {a} vrf 5 remote {b} label 3000",
     "ftn- vrf 5 {net1} push 2001 over {b} push 1000; "
     "ftn+ vrf 5 {net1} push 3001 over {b} push 1000; mirror ftn+ {net1} vrf 5"},
    {"ftn add {b}/32 via {a} label 1001",
     "ftn- vrf 5 {net1} push 3001 over {b} push 1000; mirror ftn+ {net1} vrf 5 waits; "
     "ftn- {b} push 1000 port 1 {m1}; ftn+ {b} push 1001 port 1 {m1}; mirror ftn+ {b}"},
    {"ftn add {net1} via {a} vrf 5 remote {b} label 3000",
     "ftn+ vrf 5 {net1} push 3001 over {b} push 1001; mirror ftn+ {net1} vrf 5"},
    {"neigh del {a}",
     "ftn- vrf 5 {net1} push 3001 over {b} push 1001; mirror ftn+ {net1} vrf 5 waits; "
     "ftn- {b} push 1001 port 1 {m1}; mirror ftn+ {b} waits"},
    {"neigh add {a}",
     "ftn+ {b} push 1001 port 1 {m1}; mirror ftn+ {b}; "
     "ftn+ vrf 5 {net1} push 3001 over {b} push 1001 port 1 {m1}; mirror ftn+ {net1} vrf 5"},
    {"chip refuse ftn-del 1 skip 1"},
    {"ftn del {b}/32 via {a}",
     "ftn- vrf 5 {net1} push 3001 over {b} push 1001 port 1 {m1}; "
     "mirror ftn+ {net1} vrf 5 waits; ftn- {b} push 1001 port 1 {m1} -> -1; "
     "ftn+ vrf 5 {net1} push 3001 over {b} push 1001 port 1 {m1}; mirror ftn+ {net1} vrf 5"},
    {"ftn del {b}/32 via {a}",
     "ftn- vrf 5 {net1} push 3001 over {b} push 1001 port 1 {m1}; "
     "mirror ftn+ {net1} vrf 5 waits; ftn- {b} push 1001 port 1 {m1}; mirror ftn- {b} new"},
    {"neigh add {a} lladdr {m2}", ""}, // it waits for the suite
    {"ftn del {net1} via {a} vrf 5", "mirror ftn- {net1} vrf 5 waits"},
};

ROWS(LabelRequests, AVpnRouteThatIsRefusedIsToldAgain, .families = {4}, .see = labels_alone){
    {"ftn add {b}/32 via {a}"},
    {"ftn add {net1} via {a} vrf 5 remote {b}", "mirror ftn+ {net1} vrf 5 waits"},
    {"ftn add {b}/32 via {a} label 1002", "mirror ftn+ {b} waits"},
    {"chip refuse ftn 1 skip 1"},
    {"neigh add {a}", "ftn+ {b} push 1002 port 1 {m1}; mirror ftn+ {b}; "
                      "ftn+ vrf 5 {net1} push 1001 over {b} push 1002 port 1 {m1} -> -1"},
    {"chip refuse ftn 1"},
    {"ftn add {net1} via {a} vrf 5 remote {b}",
     "ftn+ vrf 5 {net1} push 1001 over {b} push 1002 -> -1; mirror ftn+ {net1} vrf 5 waits"},
    {"ftn add {net1} via {a} vrf 5 remote {b}",
     "ftn+ vrf 5 {net1} push 1001 over {b} push 1002; mirror ftn+ {net1} vrf 5"},
    {"chip refuse ftn 1"},
    {"ftn add {net1} via {a} vrf 5 remote {b}",
     "ftn- vrf 5 {net1} push 1001 over {b} push 1002; "
     "ftn+ vrf 5 {net1} push 1001 over {b} push 1002 -> -1; mirror ftn+ {net1} vrf 5 new"}, // it waits for nobody
    {"neigh del {a}", "ftn- {b} push 1002 port 1 {m1}; mirror ftn+ {b} waits"},
    {"neigh add {a}", "ftn+ {b} push 1002 port 1 {m1}; mirror ftn+ {b}"},
    {"ftn add {net1} via {a} vrf 5 remote {b}",
     "ftn+ vrf 5 {net1} push 1001 over {b} push 1002; mirror ftn+ {net1} vrf 5"},
    {"ftn add {b}/32 via {a}"},
    {"chip refuse ftn 1"},
    {"ftn add {net1} via {a} vrf 5 remote {b}",
     "ftn+ vrf 5 {net1} push 1001 over {b} push 1000 -> -1; mirror ftn+ {net1} vrf 5 new"},
    {"ftn del {net1} via {a} vrf 5", "mirror ftn- {net1} vrf 5 new"},
};

ROWS(LabelRequests, AVpnRouteOverAnotherNeighbourLeavesWithItsTunnel, .families = {4},
     .see = labels_alone){
    {"each {a} {b} do neigh add *"},
    {"ftn add {h}/32 via {a}"},
    {"ftn add {h}/32 via {b}"},
    {"ftn add {net1} via {c} vrf 5 remote {h}",
     "ftn+ vrf 5 {net1} push 1001 over {h} push 1000; mirror ftn+ {net1} vrf 5"},
    {"neigh del {a}",
     "ftn- {h} push 1000 port 1 {m1}; mirror ftn+ {h} waits"}, // the other tunnel carries it
    {"chip refuse ftn-del 1 skip 1"},
    {"neigh del {b}",
     "ftn- vrf 5 {net1} push 1001 over {h} push 1000; mirror ftn+ {net1} vrf 5 waits; "
     "ftn- {h} push 1000 port 1 {m2} -> -1; ftn+ vrf 5 {net1} push 1001 over {h} push 1000; "
     "mirror ftn+ {net1} vrf 5"},
    {"neigh add {b}"},
    {"ftn add {h}/32 via {b}"},
    {"ftn add {net1} via {c} vrf 5 remote {h}"},
    {"neigh del {b}",
     "ftn- vrf 5 {net1} push 1001 over {h} push 1000; mirror ftn+ {net1} vrf 5 waits; "
     "ftn- {h} push 1000 port 1 {m2}; mirror ftn+ {h} waits"},
    {"neigh add {b}",
     "ftn+ {h} push 1000 port 1 {m2}; mirror ftn+ {h}; "
     "ftn+ vrf 5 {net1} push 1001 over {h} push 1000; mirror ftn+ {net1} vrf 5"}, // and with it
    {"neigh add {a}"},
    {"ftn add {h}/32 via {a}"},
    {"ftn add {net1} via {c} vrf 5 remote {h}"},
    {"chip refuse ftn-del 1"},
    {"neigh del {a}",
     "ftn- {h} push 1000 port 1 {m1} -> -1"}, // the VPN route has been told since it went
};

ROWS(LabelRequests, AVpnRouteThatTheChipKeptStaysOutOfASlotThatComes, .families = {4},
     .roles = rig::with_standby, .see = "chip but nexthop entry"){
    {"neigh add {a}"},
    {"ftn add {h}/32 via {a}"},
    {"ftn add {net1} via {a} vrf 5 remote {h}"},
    {"chip refuse ftn-del 1"},
    {"neigh del {a}",
     "ftn- vrf 5 {net1} push 1001 over {h} push 1000 -> -1; ftn- {h} push 1000 port 1 {m1}"},
    {"card slot-up 3", ""},
    {"neigh add {a}", "ftn+ {h} push 1000 port 1 {m1}"},
    {"card slot-up 3", "ftn+ {h} push 1000 port 1 {m1} slots 0x8; "
                       "ftn+ vrf 5 {net1} push 1001 over {h} push 1000 slots 0x8"},
};

ROWS(LabelRequests, AnIncomingLabelFollowsItsNeighbour, .families = {4}, .see = labels_alone){
    {"ilm add 2000 via {a}", "mirror ilm+ 2000 waits"},
    {"ilm add 2000 via {a} swap 2002", "mirror ilm+ 2000 waits"},
    {"chip refuse ilm 1 code 5"},
    {"neigh add {a}", "ilm+ label 2000 swap 2002 port 1 {m1} -> 5"},
    {"results", "= 5"},
    {"neigh add {a} lladdr {m2}", "ilm+ label 2000 swap 2002 port 1 {m2}; mirror ilm+ 2000"},
    {"chip refuse ilm-del 1"},
    {"neigh del {a}", "ilm- label 2000 -> -1"},
    {"neigh add {a}", ""},
    {"ilm add 2000 via {a} swap 3",
     "ilm- label 2000; ilm+ label 2000 pop port 1 {m1} ttl 0 exp 0; mirror ilm+ 2000"},
    {"neigh del {a}", "ilm- label 2000; mirror ilm+ 2000 waits"},
    {"neigh add {a}", "ilm+ label 2000 pop port 1 {m1} ttl 0 exp 0; mirror ilm+ 2000"},
    {"chip refuse ilm 1"},
    {"ilm add 2000 via {a} swap 2003",
     "ilm- label 2000; ilm+ label 2000 swap 2003 port 1 {m1} -> -1; mirror ilm+ 2000 new"}, // it waits for nobody
    {"neigh add {a} lladdr {m3}", ""},
    {"ilm add 2000 via {b} swap 2003", "mirror ilm+ 2000 waits"},
    {"ilm add 2000 egress vrf 5", "ilm+ label 2000 pop lookup vrf 5; mirror ilm+ 2000"},
    {"chip refuse ilm-del 2"},
    {"ilm add 2000 via {a}", "ilm- label 2000 -> -1"},
    {"ilm del 2000", "ilm- label 2000 -> -1"},
    {"ilm del 2000", "ilm- label 2000; mirror ilm- 2000 new"},
    {"ilm del 2000", ""},
};

ROWS(LabelRequests, ANeighbourDrivesWhatIsInItsVrf, .families = {4}, .roles = rig::with_standby,
     .see = labels_alone){
    {"if vrf vlanif200 5"},
    {"ftn add {net1} via {a}"},
    {"ilm add 2000 via {a}"},
    {"ilm add 2005 via {a} vrf 5"},
    {"neigh add {a}", "ftn+ {net1} push 1000 port 1 {m1}; mirror ftn+ {net1}; "
                      "ilm+ label 2000 swap 2001 port 1 {m1}; mirror ilm+ 2000"},
    {"neigh add {a} dev vlanif200",
     "ilm+ label 2005 swap 2001 vrf 5 port 1 svlan 200 {m1}; mirror ilm+ 2005"},
    {"show ilm", "= LABEL  VRF  FEC          STATE  SWAP  NEXTHOP   INTERFACE; "
                 "= 2000   0    {net}  chip   2001  {a}  vlanif100; "
                 "= 2005   5    {net}  chip   2001  {a}  vlanif200"},
    {"neigh del {a}",
     "ftn- {net1} push 1000 port 1 {m1}; mirror ftn+ {net1} waits; ilm- label 2000; "
     "mirror ilm+ 2000 waits"},
    {"if del vlanif200",
     "ilm- label 2005; mirror ilm+ 2005 waits; interface- ...; standby: interface- ..."},
    {"if add vlanif200 vlan 200"},
    {"show ilm", "= LABEL  VRF  FEC          STATE  SWAP  NEXTHOP   INTERFACE; "
                 "= 2000   0    {net}  waits  2001  {a}  vlanif100; "
                 "= 2005   5    {net}  waits  2001  {a}  vlanif200"},
};

ROWS(LabelRequests, AnIncomingLabelIsNamedWhenItsInterfaceComes, .families = {4},
     .roles = rig::mirroring, .see = "mirror"){
    {"ilm add 2000 via {a} dev 902", "mirror ilm+ 2000 waits"},
    {"if add vlanif300 vlan 300", "mirror ilm+ 2000 waits"},
    {"switch-over"},
    {"show ilm", "= LABEL  VRF  FEC          STATE  SWAP  NEXTHOP   INTERFACE; "
                 "= 2000   0    {net}  waits  2001  {a}  vlanif300"},
};

ROWS(LabelRequests, OutsideTheChipsRangesAreRefused, rig::once("chip")){
    {"neigh add {a}"},
    {"ftn add {net1} via {a} label 1048576", "ftn+ {net1} push 1048576 port 1 {m1} -> -22"},
    {"ftn add 10.9.0.0/33 via {a}", "ftn+ 10.9.0.0/33 push 1000 port 1 {m1} -> -22"},
    {"ilm add 1048576 via {a}", "ilm+ label 1048576 swap 2001 port 1 {m1} -> -22"},
    {"ilm add 17 via {a} swap 1048576", "ilm+ label 17 swap 1048576 port 1 {m1} -> -22"},
    {"many 4092 ftn add 10.3.#/32 via {c}"},
    {"see log/Outer"},
    {"ilm add 9000", "log10 Outer and inner items exceed max 4096!\r\n"},
    {"ftn add {net2} via {a}", "log10 Outer and inner items exceed max 4096!\r\n"},
    {"ftn add {net1} via {a}", ""},
    {"show ftn --count", "= 4094"},
};

ROWS(MplsInterfaces, AreEnabledOnceAndStayOnInTheChip, .families = {4}, .see = "chip mirror"){
    {"mpls add vlanif100 space 3", "mpls vlan 100 on; mirror mpls-if+ vlanif100"},
    {"mpls add vlanif100 space 4", ""},
    {"chip refuse mpls 1 code 5"},
    {"mpls add vlanif200", "mpls vlan 200 on -> 5; mirror mpls-if+ vlanif200 refused"},
    {"chip refuse mpls 1 skip 1"},
    {"card slot-up 3", "mpls vlan 100 on slots 0x8; mpls vlan 200 on slots 0x8 -> -1"},
    {"chip refuse mpls 1 skip 1"},
    {"every-slot", "mpls vlan 100 on; mpls vlan 200 on -> -1"},
    {"every-slot", "mpls vlan 100 on; mpls vlan 200 on; mirror mpls-if+ vlanif200"}, // all of them
    {"show mpls-if", "= INTERFACE  VLAN  STATE  LABEL SPACE; = vlanif100  100   chip   3; "
                     "= vlanif200  200   chip   0"},
    {"mpls del vlanif200", "mirror mpls-if- vlanif200"},
    {"mpls del vlanif200", ""},
    {"mpls del nosuch", ""},
};

// On either card by its name, also when it goes, and the standby takes over without it.
ROWS(MplsInterfaces, FollowTheirInterfaces, .families = {4}, .roles = rig::mirroring,
     .see = "mirror"){
    {"each vlanif100 vlanif200 do mpls add *"},
    {"allow standby-differs"}, // where interfaces are missing
    {"standby if del vlanif100"},
    {"standby if del vlanif200"},
    {"standby if add vlanif100 vlan 100"},
    {"standby show mpls-if --count", "= 2"},
    {"mpls del vlanif100", "mirror mpls-if- vlanif100"},
    {"mpls add vlanif100", "mirror mpls-if+ vlanif100"},
    {"standby if del vlanif100"},
    {"switch-over"},
    {"shown dpm_mpls_if_table_show",
     "= \n\r global mpls_if table: total count 2\n\r ifindex=ffffffff flags=1 label_space=0 ifname=vlanif100\n\r\n\r ifindex=ffffffff flags=1 label_space=0 ifname=vlanif200\n\r\n\r mpls_if table info end!"},
    {"if add vlanif100 vlan 100"},
    {"shown dpm_mpls_if_table_show",
     "= \n\r global mpls_if table: total count 2\n\r ifindex=3eb flags=1 label_space=0 ifname=vlanif100\n\r\n\r ifindex=ffffffff flags=1 label_space=0 ifname=vlanif200\n\r\n\r mpls_if table info end!"},
    {"mpls del vlanif200"},
    {"show mpls-if --count", "= 1"},
};

} // namespace
