// GRE tunnels: how they come up over the routes to their destinations, what each request and each
// refusal makes of them, and the routes that lead into them.

#include "dpm_route.h"
#include "dpm_tunnel.h"
#include "support/rows.h"

#include <cstring>

using rig::alone;
using rig::with_standby;

namespace {

class TunnelMessages : public rig::LoneShelf {};

} // namespace

ROWS(Tunnels, OneIsUpWhileARouteLeadsToItsDestination, .families = {4}, .roles = with_standby,
     .see = "chip mirror"){
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}"},
    {"tunnel add tunnel7", "mirror tunnel+ tunnel7"},
    {"tunnel add tunnel7", ""},
    {"tunnel set tunnel7 addr 10.7.0.1/24", "entry+ 10.7.0.1/24 cpu; mirror tunnel+ tunnel7"},
    {"tunnel set tunnel7 local {gw}", "mirror tunnel+ tunnel7"},
    {"tunnel set tunnel7 remote 10.9.1.1", "mirror tunnel+ tunnel7"},
    {"route add 10.77.0.0/16 dev tunnel7", "mirror route+ 10.77.0.0/16"},
    {"route add 10.9.0.0/16 via {a}",
     "entry+ 10.9.0.0/16 n1; port port 1 key 1; mirror port+ port 1 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v1; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ 10.77.0.0/16 v1; "
     "mirror route+ 10.77.0.0/16; mirror tunnel+ tunnel7 up; mirror route+ 10.9.0.0/16"},
    {"chip trace 10.77.1.1",
     "= entry vrf 0 10.77.0.0/16; "
     "= out of port 1 vlan 100 to {m1} in gre from {gw} to 10.9.1.1, with ip ttl 63 exp 0"},
    {"tunnel set tunnel7 remote 10.9.1.1", ""},
    {"tunnel set tunnel7 key 5",
     "via port 1 {m1} source {gw} destination 10.9.1.1 key 5 v1; "
     "gre- source {gw} destination 10.9.1.1; gre+ source {gw} destination 10.9.1.1 key 5 on; "
     "mirror tunnel+ tunnel7 up"},
    {"tunnel set tunnel7 csum 1",
     "via port 1 {m1} source {gw} destination 10.9.1.1 key 5 checksum 1 v1; "
     "gre- source {gw} destination 10.9.1.1 key 5; "
     "gre+ source {gw} destination 10.9.1.1 key 5 checksum 1 on; mirror tunnel+ tunnel7 up"},
    {"tunnel set tunnel7 csum 1", ""},
    {"tunnel set tunnel7 vrf 5",
     "entry+ vrf 5 10.7.0.1/24 cpu; entry- 10.7.0.1/24 cpu; entry- 10.77.0.0/16 v1; "
     "mirror route+ 10.77.0.0/16; gre- source {gw} destination 10.9.1.1 key 5 checksum 1; "
     "gre+ vrf 5 source {gw} destination 10.9.1.1 key 5 checksum 1 on; mirror tunnel+ tunnel7 up"},
    {"route add 10.78.0.0/16 dev tunnel7",
     "entry+ vrf 5 10.78.0.0/16 v1; mirror route+ 10.78.0.0/16 vrf 5"},
    {"tunnel set tunnel7 vrf 0",
     "entry+ 10.7.0.1/24 cpu; entry- vrf 5 10.7.0.1/24 cpu; entry- vrf 5 10.78.0.0/16 v1; "
     "mirror route+ 10.78.0.0/16 vrf 5; "
     "gre- vrf 5 source {gw} destination 10.9.1.1 key 5 checksum 1; "
     "gre+ source {gw} destination 10.9.1.1 key 5 checksum 1 on; entry+ 10.77.0.0/16 v1; "
     "mirror route+ 10.77.0.0/16; mirror tunnel+ tunnel7 up"},
    {"route del 10.77.0.0/16 dev tunnel7", "entry- 10.77.0.0/16 v1; mirror route- 10.77.0.0/16"},
    {"switch-over", ""},
    {"tunnel set tunnel7 underlay 3",
     "port port 1 key 0; via- v1; gre- source {gw} destination 10.9.1.1 key 5 checksum 1"},
    {"tunnel del tunnel7", "entry- 10.7.0.1/24 cpu"},
    {"route del 10.78.0.0/16 vrf 5 dev tunnel7", ""},
};

ROWS(Tunnels, OneFollowsTheBestRouteAndItsNextHops, .families = {4}, .roles = with_standby,
     .see = "chip mirror"){
    {"each {a} {b} {c} do neigh add *",
     "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; "
     "nexthop+ port 1 {m2} n2; mirror nexthop+ n2; entry+ {b} n2; mirror host+ {b}; "
     "nexthop+ port 1 {m3} n3; mirror nexthop+ n3; entry+ {c} n3; mirror host+ {c}"},
    {"tunnel add tunnel1 local {gw} remote 10.9.1.1",
     "mirror tunnel+ tunnel1; mirror tunnel+ tunnel1; mirror tunnel+ tunnel1"},
    {"route add default via {a}",
     "default {ip} drop; entry+ {any} n1; port port 1 key 1; mirror port+ port 1 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v1; "
     "gre+ source {gw} destination 10.9.1.1 on; mirror tunnel+ tunnel1 up; mirror route+ {any}"},
    {"route add 10.0.0.0/15 dev tunnel1", "entry+ 10.0.0.0/15 v1; mirror route+ 10.0.0.0/15"},
    {"route add 10.9.0.0/16 via {b} via {c}",
     "group+ g1; member+ g1 n2; mirror ecmp+ g1; member+ g1 n3; mirror ecmp+ g1; "
     "entry+ 10.9.0.0/16 g1; entry- 10.0.0.0/15 v1; mirror route+ 10.0.0.0/15; "
     "port port 1 key 0; mirror port- port 1 1; via- v1; gre- source {gw} destination 10.9.1.1; "
     "port port 1 key 1; mirror port+ port 1 1; "
     "via+ port 1 {m2} source {gw} destination 10.9.1.1 v2; group+ g2; member+ g2 v2; "
     "mirror ecmp+ g2; mirror port+ port 1 2; "
     "via+ port 1 {m3} source {gw} destination 10.9.1.1 v3; member+ g2 v3; mirror ecmp+ g2; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ 10.0.0.0/15 g2; "
     "mirror route+ 10.0.0.0/15; mirror tunnel+ tunnel1 up; mirror route+ 10.9.0.0/16"},
    {"route add 10.8.0.0/15 via {a}",
     "entry+ 10.8.0.0/15 n1; mirror route+ 10.8.0.0/15"}, // a shorter one
    {"neigh del {b}",
     "member- g1 n2; mirror ecmp+ g1; mirror route+ 10.9.0.0/16; entry- 10.0.0.0/15 g2; "
     "mirror route+ 10.0.0.0/15; member- g2 v2; mirror ecmp+ g2; mirror port+ port 1 1; "
     "via- v2; member- g2 v3; group- g2; mirror ecmp- g2; port port 1 key 0; "
     "mirror port- port 1 1; via- v3; gre- source {gw} destination 10.9.1.1; port port 1 key 1; "
     "mirror port+ port 1 1; via+ port 1 {m3} source {gw} destination 10.9.1.1 v4; group+ g3; "
     "member+ g3 v4; mirror ecmp+ g3; gre+ source {gw} destination 10.9.1.1 on; "
     "entry+ 10.0.0.0/15 g3; mirror route+ 10.0.0.0/15; mirror tunnel+ tunnel1 up; "
     "entry- {b} n2; nexthop- n2; mirror nexthop- n2; mirror host- {b}"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n4; mirror nexthop+ n4; entry+ {b} n4; mirror host+ {b}; "
     "member+ g1 n4; mirror ecmp+ g1; mirror route+ 10.9.0.0/16; entry- 10.0.0.0/15 g3; "
     "mirror route+ 10.0.0.0/15; member- g3 v4; group- g3; mirror ecmp- g3; port port 1 key 0; "
     "mirror port- port 1 1; via- v4; gre- source {gw} destination 10.9.1.1; port port 1 key 1; "
     "mirror port+ port 1 1; via+ port 1 {m2} source {gw} destination 10.9.1.1 v5; group+ g4; "
     "member+ g4 v5; mirror ecmp+ g4; mirror port+ port 1 2; "
     "via+ port 1 {m3} source {gw} destination 10.9.1.1 v6; member+ g4 v6; mirror ecmp+ g4; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ 10.0.0.0/15 g4; "
     "mirror route+ 10.0.0.0/15; mirror tunnel+ tunnel1 up"},
    {"route del 10.9.0.0/16",
     "entry- 10.9.0.0/16 g1; member- g1 n4; mirror ecmp+ g1; member- g1 n3; group- g1; "
     "mirror ecmp- g1; mirror route- 10.9.0.0/16; entry- 10.0.0.0/15 g4; "
     "mirror route+ 10.0.0.0/15; member- g4 v5; mirror ecmp+ g4; mirror port+ port 1 1; "
     "via- v5; member- g4 v6; group- g4; mirror ecmp- g4; port port 1 key 0; "
     "mirror port- port 1 1; via- v6; gre- source {gw} destination 10.9.1.1; port port 1 key 1; "
     "mirror port+ port 1 1; via+ port 1 {m1} source {gw} destination 10.9.1.1 v7; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ 10.0.0.0/15 v7; "
     "mirror route+ 10.0.0.0/15; mirror tunnel+ tunnel1 up"},
    {"switch-over", ""},
    {"route del 10.8.0.0/15",
     "entry- 10.8.0.0/15 n1; entry- 10.0.0.0/15 v7; port port 1 key 0; via- v7; "
     "gre- source {gw} destination 10.9.1.1; port port 1 key 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v8; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ 10.0.0.0/15 v8"},
    {"route del default",
     "entry- {any} n1; default {ip} to-cpu; entry- 10.0.0.0/15 v8; port port 1 key 0; via- v8; "
     "gre- source {gw} destination 10.9.1.1"},
    {"show tunnel-ports --count", "= 0"},
};

// The best route is never one over a tunnel, whatever its length: nothing leads through itself.
ROWS(Tunnels, NoneLeadsThroughItselfOrAnother, .families = {4}, .roles = alone, .see = "chip"){
    {"neigh add {a}"},
    {"tunnel add tunnel1 local {gw} remote 10.9.1.1"},
    {"tunnel add tunnel2 local {gw} remote 10.9.1.2"},
    {"route add 10.9.1.0/24 dev tunnel1", ""},
    {"route add 10.9.1.1/32 dev tunnel2", ""},
    {"route add 10.9.0.0/16 via {a}",
     "entry+ 10.9.0.0/16 n1; port port 1 key 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v1; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ 10.9.1.0/24 v1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.2 v2; "
     "gre+ source {gw} destination 10.9.1.2 on; entry+ 10.9.1.1 v2"},
    {"best 10.9.1.1", "= 10.9.0.0/16"},
    {"route del 10.9.1.0/24 dev tunnel1", "entry- 10.9.1.0/24 v1"}, // and nobody hears of it
    {"route add 10.9.1.0/24 dev tunnel2", "entry+ 10.9.1.0/24 v2"},
    {"if add tunnel9 vlan 700"}, // an interface that is called so, and a route over it
    {"route add 10.9.1.2/32 via {a} dev tunnel9", "entry+ 10.9.1.2 n1"},
    {"route del 10.9.0.0/16",
     "entry- 10.9.0.0/16 n1; via- v1; gre- source {gw} destination 10.9.1.1; "
     "entry- 10.9.1.0/24 v2; entry- 10.9.1.1 v2; port port 1 key 0; via- v2; "
     "gre- source {gw} destination 10.9.1.2"},
};
ROWS(Tunnels, OfTwoWithTheSameEndsOneWaits, .families = {4}, .roles = with_standby, .see = "chip"){
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; entry+ {a} n1"},
    {"route add 10.9.0.0/16 via {a}", "entry+ 10.9.0.0/16 n1"},
    {"each 1 2 3 do tunnel add tunnel* local {gw} remote 10.9.1.1",
     "port port 1 key 1; via+ port 1 {m1} source {gw} destination 10.9.1.1 v1; "
     "gre+ source {gw} destination 10.9.1.1 on"},
    {"tunnel set tunnel1 key 4",
     "via port 1 {m1} source {gw} destination 10.9.1.1 key 4 v1; "
     "gre- source {gw} destination 10.9.1.1; gre+ source {gw} destination 10.9.1.1 key 4 on; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v2; "
     "gre+ source {gw} destination 10.9.1.1 on"}, // it leaves the ends that the next one takes
    {"switch-over", ""},
    {"tunnel del tunnel2", "via- v2; gre- source {gw} destination 10.9.1.1; "
                           "via+ port 1 {m1} source {gw} destination 10.9.1.1 v3; "
                           "gre+ source {gw} destination 10.9.1.1 on"},
    {"tunnel set tunnel1 nokey", "via port 1 {m1} source {gw} destination 10.9.1.1 v1; "
                                 "gre- source {gw} destination 10.9.1.1 key 4; via- v1"},
    {"tunnel del tunnel3 local {gw}",
     "port port 1 key 0; via- v3; gre- source {gw} destination 10.9.1.1; port port 1 key 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v4; "
     "gre+ source {gw} destination 10.9.1.1 on"},
};

// What a label entry claims leads no tunnel; a route that comes back does.
ROWS(Tunnels, ALabelEntryTakesTheRouteFromATunnel, .families = {4}, .see = "chip"){
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; entry+ {a} n1"},
    {"tunnel add tunnel1 local {gw} remote 10.9.1.1", ""},
    {"route add 10.9.0.0/16 via {a}", "entry+ 10.9.0.0/16 n1; port port 1 key 1; "
                                      "via+ port 1 {m1} source {gw} destination 10.9.1.1 v1; "
                                      "gre+ source {gw} destination 10.9.1.1 on"},
    {"ftn add 10.9.0.0/16 via {a}",
     "entry- 10.9.0.0/16 n1; ftn+ 10.9.0.0/16 push 1000 port 1 {m1}; port port 1 key 0; "
     "via- v1; gre- source {gw} destination 10.9.1.1"},
    {"ftn add 10.9.0.0/16 via {b}", ""},
    {"ftn del 10.9.0.0/16 via {a}", "ftn- 10.9.0.0/16 push 1000 port 1 {m1}"},
    {"ftn del 10.9.0.0/16 via {b}", "entry+ 10.9.0.0/16 n1; port port 1 key 1; "
                                    "via+ port 1 {m1} source {gw} destination 10.9.1.1 v2; "
                                    "gre+ source {gw} destination 10.9.1.1 on"},
};

ROWS(Tunnels, RoutesOverThemGiveWayAsOthersDo, .families = {4}, .see = "chip"){
    {"neigh add {a}", "nexthop+ port 1 {m1} n1; entry+ {a} n1"},
    {"route add {net} via {a}"},
    {"route add 10.9.0.0/16 via {a}"},
    {"tunnel add tunnel1 local {gw} remote 10.9.1.1"},
    {"tunnel add tunnel2 local {gw} remote 10.9.1.2"},
    {"route add {net} dev tunnel1",
     "entry- {net} n1; entry+ {net} v1"}, // in the place of the ordinary one
    {"route add {net} dev tunnel1", ""},
    {"route add {net} dev tunnel2", "entry- {net} v1; entry+ {net} v2"},
    {"route add {net} via {a}", ""}, // refused by the worker
    {"route add default dev tunnel1", "default {ip} drop; entry+ {any} v1"},
    {"ftn add {net} via {a}", "entry- {net} v2; ftn+ {net} push 1000 port 1 {m1}"},
    {"ftn del {net} via {a}", "ftn- {net} push 1000 port 1 {m1}; entry+ {net} v2"},
    {"route add {b}/32 dev tunnel1", "entry+ {b} v1"},
    {"neigh add {b}", "entry- {b} v1; nexthop+ port 1 {m2} n2; entry+ {b} n2"},
    {"route add {b}/32 dev tunnel1", ""},
    {"route add 10.66.0.0/16 vrf 3 dev tunnel1", ""},
    {"route add 10.66.0.0/16 dev tunnel3", ""},
    {"tunnel del tunnel1",
     "entry- {any} v1; default {ip} to-cpu; via- v1; gre- source {gw} destination 10.9.1.1"},
    {"tunnel add tunnel1 local {gw} remote 10.9.1.1",
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 v3; "
     "gre+ source {gw} destination 10.9.1.1 on; default {ip} drop; entry+ {any} v3"},
    {"route del default dev tunnel1", "entry- {any} v3; default {ip} to-cpu"},
    {"card slot-up 3",
     "nexthop+ port 1 {m1} n1 slots 0x8; nexthop+ port 1 {m2} n2 slots 0x8; "
     "entry+ {a} n1 slots 0x8; entry+ {b} n2 slots 0x8; port port 1 key 1 slots 0x8; "
     "via port 1 {m1} source {gw} destination 10.9.1.1 v3 slots 0x8; "
     "gre+ source {gw} destination 10.9.1.1 on slots 0x8; "
     "via port 1 {m1} source {gw} destination 10.9.1.2 v2 slots 0x8; "
     "gre+ source {gw} destination 10.9.1.2 on slots 0x8; entry+ {net} v2 slots 0x8; "
     "entry+ 10.9.0.0/16 n1 slots 0x8"},
};

// What the chip refuses leaves a next hop out, or the tunnel down until the next event; what it would
// not let go is tried again.
ROWS(Tunnels, WhatTheChipRefusesIsGivenBackAndTriedAgain, .families = {4}, .roles = alone,
     .see = "chip"){
    {"each {a} {b} do neigh add *",
     "nexthop+ port 1 {m1} n1; entry+ {a} n1; nexthop+ port 1 {m2} n2; entry+ {b} n2"},
    {"route add 10.9.0.0/16 via {a} via {b}",
     "group+ g1; member+ g1 n1; member+ g1 n2; entry+ 10.9.0.0/16 g1"},
    {"tunnel add tunnel1 local {gw}", ""},
    {"route add {net} dev tunnel1", ""},
    {"chip refuse gre-nexthop 1", ""},
    {"tunnel set tunnel1 remote 10.9.1.1",
     "port port 1 key 1; via+ port 1 {m1} source {gw} destination 10.9.1.1 0 -> -1; "
     "port port 1 key 0; port port 1 key 1; "
     "via+ port 1 {m2} source {gw} destination 10.9.1.1 v1; group+ g2; member+ g2 v1; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ {net} g2"},
    {"tunnel del tunnel1 remote 10.9.1.1",
     "entry- {net} g2; member- g2 v1; group- g2; port port 1 key 0; via- v1; "
     "gre- source {gw} destination 10.9.1.1"},
    {"chip refuse port-key 1", ""},
    {"tunnel set tunnel1 remote 10.9.1.1",
     "port port 1 key 1 -> -1; port port 1 key 1; "
     "via+ port 1 {m2} source {gw} destination 10.9.1.1 v2; group+ g3; member+ g3 v2; "
     "gre+ source {gw} destination 10.9.1.1 on; entry+ {net} g3"},
    {"chip refuse gre-nexthop-update 1 skip 0", ""},
    {"tunnel set tunnel1 key 9",
     "via port 1 {m2} source {gw} destination 10.9.1.1 key 9 v2 -> -1; entry- {net} g3; "
     "member- g3 v2; group- g3; port port 1 key 0; via- v2; "
     "gre- source {gw} destination 10.9.1.1"},
    {"chip refuse gre 1", ""},
    {"route add 10.9.0.0/16 via {a}",
     "entry- 10.9.0.0/16 g1; member- g1 n1; member- g1 n2; group- g1; entry+ 10.9.0.0/16 n1; "
     "port port 1 key 1; via+ port 1 {m1} source {gw} destination 10.9.1.1 key 9 v3; "
     "gre+ source {gw} destination 10.9.1.1 key 9 on -> -1; port port 1 key 0; via- v3"},
    {"show tunnels --count", "= 1"},
    {"route add 10.9.1.0/24 via {b}",
     "entry+ {net1} n2; port port 1 key 1; "
     "via+ port 1 {m2} source {gw} destination 10.9.1.1 key 9 v4; "
     "gre+ source {gw} destination 10.9.1.1 key 9 on; entry+ {net} v4"},
    {"chip refuse group-member 1 skip 2", ""}, // behind those of the route's own group
    {"route add 10.9.1.0/24 via {a} via {b}",
     "entry- {net1} n2; entry- {net} v4; port port 1 key 0; via- v4; "
     "gre- source {gw} destination 10.9.1.1 key 9; port port 1 key 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 key 9 v5; "
     "gre+ source {gw} destination 10.9.1.1 key 9 on; entry+ {net} v5; group+ g4; "
     "member+ g4 n1; member+ g4 n2; entry+ {net1} g4; entry- {net} v5; port port 1 key 0; "
     "via- v5; gre- source {gw} destination 10.9.1.1 key 9; port port 1 key 1; "
     "via+ port 1 {m1} source {gw} destination 10.9.1.1 key 9 v6; group+ g5; "
     "member+ g5 v6 -> -1; port port 1 key 0; via- v6; port port 1 key 1; "
     "via+ port 1 {m2} source {gw} destination 10.9.1.1 key 9 v7; member+ g5 v7; "
     "gre+ source {gw} destination 10.9.1.1 key 9 on; entry+ {net} g5"},
    {"allow chip-differs", ""},
    {"allow adrift", ""},
    {"chip refuse gre-nexthop-del 1", ""},
    {"chip refuse gre-del 1", ""},
    {"chip refuse port-key 1", ""},
    {"chip refuse route-del 1 skip 1", ""},
    {"tunnel set tunnel1 mode 2",
     "entry- {net} g5; member- g5 v7; group- g5; port port 1 key 0 -> -1; via- v7 -> -1; "
     "gre- source {gw} destination 10.9.1.1 key 9 -> -1"},
    {"clock advance 30s",
     "port port 1 key 0; via- v7; gre- source {gw} destination 10.9.1.1 key 9"},
    {"allow chip-differs 0", ""},
    {"allow adrift 0", ""},
    {"chip refuse route 1", ""},
    {"tunnel set tunnel1 addr 10.7.0.1/24", "entry+ 10.7.0.1/24 cpu -> -1"},
    {"tunnel set tunnel1 addr 10.7.0.1/24", "entry+ 10.7.0.1/24 cpu"},
    {"tunnel set tunnel1 addr 10.7.0.2/24", ""},
    {"chip refuse route 1", ""},
    {"tunnel set tunnel1 vrf 4", "entry+ vrf 4 10.7.0.1/24 cpu -> -1"},
    {"chip refuse route-del 1", ""},
    {"tunnel set tunnel1 vrf 4",
     "entry+ vrf 4 10.7.0.1/24 cpu; entry- 10.7.0.1/24 cpu -> -1; entry- vrf 4 10.7.0.1/24 cpu"},
    {"chip refuse route-del 1", ""},
    {"tunnel del tunnel1", "entry- 10.7.0.1/24 cpu -> -1"},
    {"tunnel del tunnel1 addr 10.7.0.1/24", "entry- 10.7.0.1/24 cpu"},
};

ROWS(Tunnels, RequestsThatDoNotFitAreRefused, .families = {4}, .roles = alone, .see = "chip log"){
    {"tunnel add tunnel7",
     "log10 dpm_api_set_tunnel_proc #:: oper 1 tunnel_id 7 name tunnel7\r\n; "
     "log10 dpm_tunnel_create_msg #::tunnelid 7 name tunnel7\r\n; "
     "log10 dpm_tunnel_entry_add_sync_send #::peer is not exist, or it is slave\r\n"},
    {"call dpm_api_set_tunnel_proc 3 7",
     "log10 dpm_api_set_tunnel_proc #::unkown oper 3!\r\n; = -1"},
    {"call dpm_api_set_tunnel_mode_proc 3 7 1",
     "log10 dpm_api_set_tunnel_mode_proc #::unkown oper 3!\r\n; = -1"},
    {"call dpm_api_set_tunnel_key_proc 0 7 1 1",
     "log10 dpm_api_set_tunnel_key_proc #::unkown oper 0!\r\n; = -1"},
    {"call dpm_api_set_tunnel_source_proc 3 7 0 1",
     "log10 dpm_api_set_tunnel_source_proc #::unkown oper 3!\r\n; = -1"},
    {"call dpm_api_route_tunnel_pro 3 0 10 8 7",
     "log10 dpm_api_route_tunnel_pro #:: unkown oper 3 !\r\n; = -1"},
    {"call dpm_api_route_tunnel_pro 1 0 10 33 7",
     "log10 dpm_api_route_tunnel_pro #::masklen = 33 is err!\r\n; = -1"},
    {"call dpm_api_set_tunnel_ip_proc 1 7 0 1 0 24",
     "log10 dpm_api_set_tunnel_ip_proc::parameter is null!\r\n; = -1"},
    {"call dpm_api_set_tunnel_ip_proc 3 7 0 1 10.1.1.1 24",
     "log10 dpm_api_set_tunnel_ip_proc #:: oper 3 is err!\r\n; = -1"},
    {"call dpm_api_set_tunnel_ip_proc 1 7 0 3 10.1.1.1 24",
     "log10 dpm_api_set_tunnel_ip_proc #:: ip_type 3 is err!\r\n; = -1"},
    {"call dpm_api_set_tunnel_ip_proc 1 7 0 1 10.1.1.1 33",
     "log10 dpm_api_set_tunnel_ip_proc #::masklen = 33 is err!\r\n; = -1"},
    {"call dpm_api_set_tunnel_ip_proc 1 7 4 1 10.1.1.1 24",
     "log10 dpm_tunnel_ip_add_msg #::ip_vrfid not match! tunnel ip_vrfid 0 ip_vrfid 4\r\n; = 0"},
    {"call dpm_api_set_tunnel_ip_proc 2 7 0 1 10.1.1.1 24",
     "log10 dpm_tunnel_ip_del_msg #::tunnel_ip not match!\r\n; = 0"},
    {"call dpm_api_set_tunnel_source_proc 1 7 5 1",
     "log10 dpm_api_set_tunnel_source_proc #:: oper 1 tunnel_id 7 tunnelvrf 5 source 1 \r\n; "
     "log10 dpm_tunnel_source_add_msg #::tunnel_vrf not match! tunnel_entry->tunnel_vrf 0 tunnel_index->tunnel_vrf 5\r\n; "
     "= 0"},
    {"call dpm_api_set_tunnel_source_proc 2 7 0 1",
     "log10 dpm_api_set_tunnel_source_proc #:: oper 2 tunnel_id 7 tunnelvrf 0 source 1 \r\n; "
     "log10 dpm_tunnel_source_del_msg #::source is not 1!\r\n; = 0"},
    {"call dpm_api_set_tunnel_source_proc 1 7 0 1",
     "log10 dpm_api_set_tunnel_source_proc #:: oper 1 tunnel_id 7 tunnelvrf 0 source 1 \r\n; "
     "log10 dpm_tunnel_source_add_msg #:: add tunnel_id 7 tunnel_vrf 0 source 1\r\n; "
     "log10 dpm_tunnel_entry_add_sync_send #::peer is not exist, or it is slave\r\n; = 0"},
    {"call dpm_api_set_tunnel_source_proc 2 7 0 2",
     "log10 dpm_api_set_tunnel_source_proc #:: oper 2 tunnel_id 7 tunnelvrf 0 source 2 \r\n; "
     "log10 dpm_tunnel_source_del_msg #::source is not 2!\r\n; = 0"},
    {"call dpm_api_set_tunnel_checksum_proc 1 8 1",
     "log10 dpm_api_set_tunnel_checksum_proc #:: oper 1 tunnel_id 8 checksum 1\r\n; "
     "log10 dpm_tunnel_checksum_update_msg #:tunnel 8 is not exist!\r\n; = 0"},
    {"fault alloc 1", ""},
    {"tunnel add tunnel8", "refused"},
    {"fault send 1 times 4", ""},
    {"tunnel add tunnel8", "log10 dpm_api_set_tunnel_proc #:: oper 1 tunnel_id 8 name tunnel8\r\n; "
                           "log10 dpm_api_set_tunnel_proc #::send msg err!\r\n; refused"},
};

// Other programs post by number: a name may lack its end, and name no tunnel.
TEST_F(TunnelMessages, NamesOfTunnelsMayLackTheirEnd) {
    dpm_tunnel_msg made{7, {}};
    std::memset(made.name, 'x', sizeof made.name);
    EXPECT_EQ(dpm_tunnel_create_msg(&made), 0);
    const dpm_tunnel_entry *const tunnel = dpm_tunnel_find_by_tunnelid(7);
    ASSERT_TRUE(tunnel);
    EXPECT_EQ(std::strlen(tunnel->name), 63u);
    dpm_route_tunnel_msg route{0, rig::prefix_of("10.2.0.0/16"), {}};
    std::memset(route.np_ifname, 'x', sizeof route.np_ifname);
    EXPECT_EQ(dpm_route_tunnel_add_msg(&route), -1);
    std::strcpy(route.np_ifname, "tunnel7");
    EXPECT_EQ(dpm_route_tunnel_add_msg(&route), -1) << "the name is another";
    route.destination.family = 3;
    EXPECT_EQ(dpm_route_tunnel_add_msg(&route), 0);
    EXPECT_EQ(dpm_tunnel_delete_msg(&made), 0);
    EXPECT_EQ(dpm_tunnel_delete_msg(nullptr), -1);
    EXPECT_EQ(dpm_tunnel_port_del(2, 3, 0), -1);
    EXPECT_EQ(dpm_tunnel_route_notify(nullptr, 1), -1);
}
