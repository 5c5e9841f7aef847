// BFD sessions: end points in the chip that come and go with their next hops, follow the suite and
// the peer, and outlive a master.  What the chip holds of each end is a law.

#include "support/rows.h"

using rig::alone;

namespace {

// COUNT sessions over an address; discriminators from 1000 on.
const rig::Verb sessions{"sessions", [](rig::RowShelf &shelf, const rig::Words &words) {
                             shelf.keep_log(false);
                             for (unsigned i = 0; i < std::stoul(words[1]); ++i)
                                 EXPECT_TRUE(shelf.act("bfd add " + std::to_string(1000 + i) +
                                                       " via " + words[2] + " dev vlanif100"));
                             shelf.keep_log(true);
                         }};

} // namespace

ROWS(Bfd, SessionsAreInTheChipWhileTheirNextHopIsThere, .see = "chip mirror"){
    {"bfd add 100 via {a} dev vlanif100", "mirror bfd+ 100 waits"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n1; mirror nexthop+ n1; entry+ {a} n1; mirror host+ {a}; "
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 ...; mirror bfd+ 100"},
    {"bfd add 101 via {a} peer {i} remote 201 dev vlanif100",
     "lmep+ mep 3 disc 101 ...; rmep+ mep 3 disc 101 of 201 ...; lmep disc 101 cc on; "
     "mirror bfd+ 101"},
    {"bfd add 102 via {a} remote 202 hold dev vlanif100",
     "lmep+ mep 4 disc 102 ...; rmep+ mep 4 disc 102 of 202 ...; mirror bfd+ 102"},
    {"bfd add 103 via {b} remote 203 dev vlanif100", "mirror bfd+ 103 waits"},
    {"neigh add {a} lladdr {m3}",
     "rmep- mep 2; lmep- mep 2; mirror bfd- 100 waits; mirror bfd+ 100 waits; rmep- mep 3; "
     "lmep- mep 3; mirror bfd- 101 waits; mirror bfd+ 101 waits; rmep- mep 4; lmep- mep 4; "
     "mirror bfd- 102 waits; mirror bfd+ 102 waits; entry- {a} n1; nexthop- n1; "
     "mirror nexthop- n1; mirror host- {a}; nexthop+ port 1 {m3} n2; mirror nexthop+ n2; "
     "entry+ {a} n2; mirror host+ {a}; lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 ...; "
     "mirror bfd+ 100; lmep+ mep 3 disc 101 ...; rmep+ mep 3 disc 101 of 201 ...; "
     "lmep disc 101 cc on; mirror bfd+ 101; lmep+ mep 4 disc 102 ...; "
     "rmep+ mep 4 disc 102 of 202 ...; mirror bfd+ 102"},
    {"neigh del {a}",
     "rmep- mep 2; lmep- mep 2; mirror bfd- 100 waits; mirror bfd+ 100 waits; rmep- mep 3; "
     "lmep- mep 3; mirror bfd- 101 waits; mirror bfd+ 101 waits; rmep- mep 4; lmep- mep 4; "
     "mirror bfd- 102 waits; mirror bfd+ 102 waits; entry- {a} n2; nexthop- n2; "
     "mirror nexthop- n2; mirror host- {a}"},
    {"bfd del 101", "mirror bfd- 101 waits"},
    {"bfd del 101", ""},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n3; mirror nexthop+ n3; entry+ {a} n3; mirror host+ {a}; "
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 ...; mirror bfd+ 100; "
     "lmep+ mep 3 disc 102 ...; rmep+ mep 3 disc 102 of 202 ...; mirror bfd+ 102"},
    {"bfd del 100", "rmep- mep 2; lmep- mep 2; mirror bfd- 100 waits"},
    {"neigh add {b}",
     "nexthop+ port 1 {m2} n4; mirror nexthop+ n4; entry+ {b} n4; mirror host+ {b}; "
     "lmep+ mep 5 disc 103 ...; rmep+ mep 5 disc 103 of 203 ...; lmep disc 103 cc on; "
     "mirror bfd+ 103"},
};

ROWS(Bfd, ThePeerIsMissedForThreeSecondsBeforeItIsLost, .families = {4}, .roles = rig::with_standby,
     .see = "chip mirror platform"){
    {"neigh add {a}"},
    {"bfd add 100 via {a} dev vlanif100"},
    {"chip bfd up 100 remote 200",
     "rmep? disc 100 of 200; rmep disc 100 of 200; lmep disc 100 cc on; mirror bfd+ 100; "
     "bfd 100 state 3 diag 0 of 200"},
    {"chip bfd up 100 remote 200", "rmep? disc 100 of 200; bfd 100 state 3 diag 0 of 200"},
    {"chip bfd lost 100",
     "rmep? disc 100 of 0; mirror bfd+ 100 debounce; bfd 100 state 1 diag 1 of 0"},
    {"clock advance 2s", ""},
    // In time: continuity was checked all the while.
    {"chip bfd up 100 remote 200", "rmep? disc 100 of 200; rmep disc 100 of 200; mirror bfd+ 100; "
                                   "bfd 100 state 3 diag 0 of 200"},
    {"clock advance 3s", ""},
    {"chip bfd lost 100",
     "rmep? disc 100 of 0; mirror bfd+ 100 debounce; bfd 100 state 1 diag 1 of 0"},
    {"clock advance 3s", "rmep disc 100 of 0; lmep disc 100 cc off; mirror bfd+ 100"},
    {"chip bfd lost 100", "error the chip does not check the continuity of this session"},
    {"show bfd-reports --count", "= 5"},
    {"call dpm_api_bfd_notifier 999 3 0", "= 0"},
    {"call dpm_api_bfd_notifier 100 0 7", "rmep? disc 100 of 0; bfd 100 state 0 diag 7 of 0; = 0"},
    // A state that is none.
    {"call dpm_api_bfd_notifier 100 4 0", "rmep? disc 100 of 0; bfd 100 state 4 diag 0 of 0; = 0"},
    {"chip bfd up 100 remote 300",
     "rmep? disc 100 of 300; rmep disc 100 of 300; lmep disc 100 cc on; mirror bfd+ 100; "
     "bfd 100 state 3 diag 0 of 300"},
    {"chip bfd lost 100",
     "rmep? disc 100 of 0; mirror bfd+ 100 debounce; bfd 100 state 1 diag 1 of 0"},
    {"neigh del {a}"}, // and the chip, which has it no more, hears nothing
    {"clock advance 3s", ""},
    {"neigh add {a}"},
    {"chip bfd up 100 remote 200"},
    {"chip bfd lost 100"},
    {"switch-over", ""}, // the mark has travelled, so the timer runs here
    {"clock advance 3s", "rmep disc 100 of 0; lmep disc 100 cc off"},
    {"standby comes"},
    {"chip bfd up 100 remote 201",
     "rmep? disc 100 of 201; rmep disc 100 of 201; lmep disc 100 cc on; mirror bfd+ 100; "
     "bfd 100 state 3 diag 0 of 201"},
    {"bfd update 100 cc off"},
    {"switch-over", "lmep disc 100 cc on"}, // as after any switch-over
    {"standby comes"},
    {"bfd add 101 via {a} dev vlanif100"},
    {"fault send 1 times 4"},
    {"chip bfd up 101 remote 7", "error the report was not taken"},
    {"switch-over", "rmep? disc 101 of 7; rmep disc 101 of 7; lmep disc 101 cc on"},
};

ROWS(Bfd, SessionsAreChangedInPlaceAndUpdatesTravelAsTheyAre, .families = {4},
     .roles = rig::mirroring, .see = "chip mirror"){
    {"bfd add 99 via {b} dev vlanif100"},
    {"bfd update 99 remote 7 state up cc on timers 1,2,3",
     "mirror bfd 99 kind 1 7; mirror bfd 99 kind 2 3; mirror bfd 99 kind 4 1"},
    {"neigh add {a}"},
    {"bfd add 100 via {a} dev vlanif100"},
    {"bfd update 100 remote 7 state up timers 70000,2,300",
     "rmep disc 100 of 7; lmep disc 100 cc on; mirror bfd 100 kind 1 7; lmep disc 100 state 3; "
     "mirror bfd 100 kind 2 3; lmep disc 100 timers 70000,300,2,300; mirror bfd 100 kind 4 70000"},
    {"bfd update 100 remote 7 state up", ""},
    {"bfd update 100 cc off", "lmep disc 100 cc off; mirror bfd 100 kind 3 0"},
    {"bfd update 100 cc off", ""},
    {"bfd update 100 remote 0", "mirror bfd 100 kind 1 0"},
    {"clock advance 2s", ""},
    {"bfd update 100 remote 0", ""},
    {"clock advance 1s", "rmep disc 100 of 0; mirror bfd+ 100"},
    {"call dpm_api_bfd_session_update 100 5 1 1 1 1", "= 0"},
    {"call dpm_api_bfd_session_update 998 2 3 0 0 0", "= 0"},
    // A session that is there: its flags say what is changed.
    {"bfd add 100 via {a} dev vlanif100 state down", "mirror bfd+ 100"},
    {"bfd add 100 via {a} dev vlanif100 new remote 8 timers 70000,2,300",
     "rmep disc 100 of 8; lmep disc 100 cc on; mirror bfd+ 100"},
    {"bfd add 100 via {a} dev vlanif100 new remote 9 timers 70000,2,4",
     "lmep disc 100 timers 70000,4,2,4; mirror bfd+ 100"},
    {"bfd add 100 via {a} dev vlanif100 admin-down",
     "lmep disc 100 state 0; mirror bfd+ 100 debounce"},
    {"bfd add 100 via {a} dev vlanif100 admin-down new timers 70000,2,4",
     "mirror bfd+ 100 debounce"},
    {"bfd add 100 via {a} dev vlanif100 state init new remote 9 timers 70000,2,4",
     "lmep disc 100 state 2; rmep disc 100 of 9; mirror bfd+ 100"},
    {"bfd add 100 via {a} dev vlanif100 new timers 70000,2,4",
     "rmep disc 100 of 0; lmep disc 100 cc off; mirror bfd+ 100"},
};

ROWS(Bfd, WhatTheChipRefusesIsTriedAgain, .families = {4}, .roles = rig::mirroring,
     .see = "chip mirror"){
    {"neigh add {a}"},
    {"chip refuse bfd-local 1"},
    {"bfd add 100 via {a} dev vlanif100",
     "lmep+ mep 2 disc 100 type 3 0.0.0.0 > {a} port 1 {m1} timers 50,50,3 down -> -1; "
     "mirror bfd+ 100 waits"},
    {"chip refuse bfd-remote 2"},
    {"neigh add {a} lladdr {m2}",
     "entry- {a} n1; nexthop- n1; mirror nexthop- n1; mirror host- {a}; "
     "nexthop+ port 1 {m2} n2; mirror nexthop+ n2; entry+ {a} n2; mirror host+ {a}; "
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 type 3 0.0.0.0 > {a} port 1 {m2} -> -1; "
     "lmep- mep 2"},
    {"chip refuse bfd-local-del 1"},
    {"neigh add {a} lladdr {m3}",
     "entry- {a} n2; nexthop- n2; mirror nexthop- n2; mirror host- {a}; "
     "nexthop+ port 1 {m3} n3; mirror nexthop+ n3; entry+ {a} n3; mirror host+ {a}; "
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 type 3 0.0.0.0 > {a} port 1 {m3} -> -1; "
     "lmep- mep 2 -> -1; mirror bfd+ 100 waits"},
    {"neigh add {a} lladdr {m4}",
     "entry- {a} n3; nexthop- n3; mirror nexthop- n3; mirror host- {a}; "
     "nexthop+ port 1 {m4} n4; mirror nexthop+ n4; entry+ {a} n4; mirror host+ {a}; "
     "lmep+ mep 3 disc 100 ...; rmep+ mep 2 disc 100 ...; mirror bfd+ 100"},
    {"chip refuse bfd-remote-del 1"},
    // An index that the chip kept is not handed out again.
    {"neigh add {a} lladdr {m5}",
     "rmep- mep 2 -> -1; lmep- mep 3; mirror bfd- 100 waits; mirror bfd+ 100 waits; "
     "entry- {a} n4; nexthop- n4; mirror nexthop- n4; mirror host- {a}; "
     "nexthop+ port 1 {m5} n5; mirror nexthop+ n5; entry+ {a} n5; mirror host+ {a}; "
     "lmep+ mep 3 disc 100 ...; rmep+ mep 3 disc 100 ...; mirror bfd+ 100"},
    {"bfd add 101 via {a} dev vlanif100",
     "lmep+ mep 4 disc 101 ...; rmep+ mep 4 disc 101 ...; mirror bfd+ 101"},
    {"chip refuse bfd-local-update 1"},
    {"bfd update 100 state up", "lmep disc 100 state 3 -> -1"},
    {"bfd update 100 state up", "lmep disc 100 state 3; mirror bfd 100 kind 2 3"},
    {"chip refuse bfd-remote-update 2"},
    {"bfd update 100 remote 7", "rmep disc 100 of 7 -> -1; mirror bfd+ 100 debounce"},
    {"clock advance 3s", "rmep disc 100 of 7 -> -1"},
    {"clock advance 3s", "rmep disc 100 of 7; lmep disc 100 cc on; mirror bfd+ 100"},
    {"chip refuse bfd-local-update 1"},
    {"bfd add 102 via {a} remote 9 dev vlanif100",
     "lmep+ mep 5 disc 102 ...; rmep+ mep 5 disc 102 of 9 ...; lmep disc 102 cc on -> -1; "
     "mirror bfd+ 102 debounce"},
    {"clock advance 3s", "rmep disc 102 of 9; lmep disc 102 cc on; mirror bfd+ 102"},
    {"bfd update 102 remote 0", "mirror bfd 102 kind 1 0"},
    {"chip refuse bfd-local-update 1"},
    {"clock advance 3s", "rmep disc 102 of 0; lmep disc 102 cc off -> -1"},
    {"clock advance 3s", "rmep disc 102 of 0; lmep disc 102 cc off; mirror bfd+ 102"},
    {"chip refuse bfd-read 1"},
    {"call dpm_api_bfd_notifier 100 3 0", "rmep? disc 100 of 0 -> -1; = 0"},
    {"allow chip-differs"},
    {"switch-over"}, // what it kept goes
};

ROWS(Bfd, SessionsOfNoTypeOrOneTooManyAreNone, .families = {4}, .roles = alone,
     .see = "chip log/dpm_bfd_sess"){
    {"neigh add {a}"},
    {"each 0 5 4294967295 do bfd add 1 via {a} dev vlanif100 type *",
     "log10 dpm_bfd_sess_new #::bfd session 1: type 0, sub type 0 is err!\r\n; "
     "log10 dpm_bfd_sess_new #::bfd session 1: type 5, sub type 0 is err!\r\n; "
     "log10 dpm_bfd_sess_new #::bfd session 1: type -1, sub type 0 is err!\r\n"},
    {"each 2 7 do bfd add 1 via {a} dev vlanif100 type 4 sub *",
     "log10 dpm_bfd_sess_new #::bfd session 1: type 4, sub type 2 is err!\r\n; "
     "log10 dpm_bfd_sess_new #::bfd session 1: type 4, sub type 7 is err!\r\n"},
    {"bfd add 0 via {a} dev vlanif100 type 4 sub 4 id 77",
     "lmep+ mep 2 disc 0 type 4 ...; rmep+ mep 2 disc 0 type 4 ..."},
    {"bfd add 4294967295 via {a} dev vlanif100 type 4 sub 5",
     "lmep+ mep 3 disc 4294967295 type 4 ...; rmep+ mep 3 disc 4294967295 type 4 ..."},
    {"bfd add 1 via {a} dev vlanif100 type 3 fec 10.9.0.0/16 timers 0,0,0",
     "lmep+ mep 4 disc 1 type 4 ...; rmep+ mep 4 disc 1 type 4 ..."},
    {"bfd add 1 via {a} dev vlanif100", ""}, // is there
    {"sessions 1996 {b}"},
    {"bfd add 2 via {a} dev vlanif100",
     "lmep+ mep 2001 disc 2 type 3 ...; rmep+ mep 2001 disc 2 type 3 ..."},
    {"bfd add 3 via {a} dev vlanif100",
     "log10 dpm_bfd_sess_new #::bfd session 3: no mep index is left!\r\n"},
    {"show bfd --count", "= 2000"},
    {"bfd del 4294967295", "rmep- mep 3; lmep- mep 3"},
    {"fault alloc 2"},
    {"bfd add 3 via {a} dev vlanif100", ""},
    {"bfd add 3 via {a} dev vlanif100", "lmep+ mep 3 disc 3 ...; rmep+ mep 3 disc 3 ..."},
    {"call dpm_api_bfd_proc 0 1", "= -1"},
    {"call dpm_api_bfd_proc {a} 3", "= -1"},
    {"call dpm_bfd_sess_next 0",
     "log10 dpm_bfd_sess_next #::the input parameter is null!\r\n; = 0"},
};

ROWS(Bfd, AreRefusedWithTheSuitesWords, .families = {4}, .roles = rig::mirroring,
     .see = "chip mirror platform log/dpm_api_bfd"){
    {"bfd add 100 via {a} dev vlanif100", "mirror bfd+ 100 waits"},
    {"why {a}", "= 10.1.1.1: BFD session 100 to 10.1.1.1: waits for its next hop {a}"},
    {"standby bfd del 100", "standby: log10 dpm_api_bfd_proc #::it is slave.\r\n"},
    {"standby bfd update 100 state up",
     "standby: log10 dpm_api_bfd_session_update #::it is slave.\r\n"},
    {"standby call dpm_api_bfd_notifier 100 1 1",
     "standby: log10 dpm_api_bfd_notifier #::it is slave.\r\n; = 0"},
    {"call dpm_api_bfd_proc {a} 3",
     "log10 dpm_api_bfd_proc #::rev msg from norix, unkown enable 3 !\r\n; = -1"},
    {"fault send 1 times 4"},
    {"bfd update 100 state up", "log10 dpm_api_bfd_session_update #::send msg err!\r\n; refused"},
};

ROWS(Bfd, SessionsFollowTheirInterfaceFromVrfToVrf, .families = {4}, .roles = rig::mirroring,
     .see = "chip mirror"){
    {"neigh add {a}"},
    {"bfd add 100 via {a} dev vlanif100"},
    {"if vrf vlanif100 5",
     "rmep- mep 2; lmep- mep 2; mirror bfd- 100 waits; mirror bfd+ 100 waits; entry- {a} n1; "
     "nexthop- n1; mirror nexthop- n1; mirror host- {a}; if-vrf vlan 100 vrf 5; "
     "mirror bfd+ 100 waits; standby: if-vrf vlan 100 vrf 5"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n2; mirror nexthop+ n2; entry+ vrf 5 {a} n2; mirror host+ {a} vrf 5; "
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 ...; mirror bfd+ 100"},
    {"if add vlanif7 vlan 7"},
    {"bfd add 101 via {a} dev vlanif7", "mirror bfd+ 101 waits"},
    // An IPv4 next hop may be on any interface of the VRF.
    {"if vrf vlanif7 5",
     "if-vrf vlan 7 vrf 5; lmep+ mep 3 disc 101 ...; rmep+ mep 3 disc 101 ...; mirror bfd+ 101; "
     "standby: if-vrf vlan 7 vrf 5"},
    {"if vrf vlanif7 0",
     "rmep- mep 3; lmep- mep 3; mirror bfd- 101 waits; mirror bfd+ 101 waits; if-vrf vlan 7; "
     "mirror bfd+ 101 waits; standby: if-vrf vlan 7"},
    {"if del vlanif100"},
    {"if add vlanif100"},
    {"neigh add {a}",
     "nexthop+ port 1 {m1} n3; mirror nexthop+ n3; entry+ {a} n3; mirror host+ {a}; "
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 ...; mirror bfd+ 100; "
     "lmep+ mep 3 disc 101 ...; rmep+ mep 3 disc 101 ...; mirror bfd+ 101"},
    {"switch-over", "rmep? disc 100 of 0; rmep? disc 101 of 0"},
};

// The standby knows a session's interface by where its next hop is, and a new master by its host.
ROWS(Bfd, InterfacesComeInTheirOwnTimeOnEitherCard, .families = {6}, .roles = rig::mirroring,
     .see = "chip mirror"){
    {"allow standby-differs"}, // in what the hosts' names lead to
    {"standby if del vlanif100"},
    {"neigh add fe80::2"},
    {"neigh add {a}"},
    {"bfd add 100 via fe80::2 dev vlanif100 remote 7",
     "lmep+ mep 2 disc 100 ...; rmep+ mep 2 disc 100 of 7 ...; lmep disc 100 cc on; "
     "mirror bfd+ 100"},
    {"bfd add 101 via {a} dev vlanif100 remote 7"},
    {"bfd add 102 via {b} dev vlanif100 remote 7"},
    {"standby show bfd --vrf 0",
     "= DISC ...; = 100   7       1     fe80::2        fe80::2        -          down ...; "
     "= 101   7       1     {a}  {a}  -          down ...; "
     "= 102   7       1     {b}  {b}  -          down ..."},
    {"standby if add vlanif100"},
    {"allow standby-differs 0"},
    {"standby show bfd",
     "= DISC ...; = 100   7       1     fe80::2        fe80::2        vlanif100  down ...; "
     "= 101   7       1     {a}  {a}  vlanif100  down ...; "
     "= 102   7       1     {b}  {b}  -          down ..."},
    {"standby addr add {gw}/64 dev vlanif100"},
    {"standby show bfd {b}", "= DISC ...; = 102   7       1     {b}  {b}  vlanif100  down ..."},
    {"switch-over", ""},
    {"neigh add {b}", "entry+ {b} n1; lmep+ mep 4 disc 102 ...; rmep+ mep 4 disc 102 of 7 ...; "
                      "lmep disc 102 cc on"},
    {"neigh del fe80::2", "rmep- mep 2; lmep- mep 2"},
    {"if del vlanif100",
     "rmep- mep 3; lmep- mep 3; entry- {a} n2; nexthop- n2; rmep- mep 4; lmep- mep 4; "
     "entry- {b} n1; nexthop- n1; entry- 2001:db8:1::99/64 cpu -> -1; entry- {gw} cpu -> -1; "
     "interface- vlan 100 02:00:00:00:00:0a"},
};

namespace {

class BfdRequests : public rig::LoneShelf {};

} // namespace

// Of families that are none: no host is the next hop, and no bytes of addresses go to the chip.
TEST_F(BfdRequests, OfUnknownFamiliesWaitOrTalkFromNowhere) {
    run("if add vlanif100");
    run("neigh add 10.1.1.2 port 3");
    dpm_bfd_request request{};
    request.told.type = 2;
    request.told.family = 3;
    request.told.local = request.told.peer = request.told.next_hop = rig::prefix_of("10.1.1.2");
    for (const std::uint16_t family : {0, 9, 1}) {
        request.told.local_disc = 10u + family;
        request.told.next_hop.family = family;
        request.told.next_hop.prefix_len = 7; // the bytes count
        request.told.next_hop.address[4] = 1; // of IPv4 the first four
        EXPECT_EQ(dpm_api_bfd_proc(&request, DPM_ENABLE), 0);
    }
    settle();
    const auto sessions = all(master(), chassis::tables::bfd);
    ASSERT_EQ(sessions.size(), 3u);
    for (const dpm_bfd_sess &session : sessions)
        EXPECT_EQ(session.hw_state == DPM_BFD_INSTALLED, session.told.local_disc == 11);
    const auto &ends = master().chip.held<chassis::chip::kinds::bfd_local>();
    ASSERT_EQ(ends.size(), 1u);
    EXPECT_EQ(ends.begin()->second.record.peer[0], 0);
    EXPECT_EQ(ends.begin()->second.record.port_id, 3u);
}

// A master that is killed between any two of the things that it lets out: suite and chip tell the
// next one what they told the first, and it has the session as it should be.
namespace {

struct Killed : rig::Shelf {
    void TestBody() override {}
    using Shelf::TearDown;
};

constexpr struct Step {
    const char *command;
    bool is_installed, is_checked; // behind it
} steps[] = {{"neigh add 10.1.1.2 port 1", false, false},
             {"bfd add 100 via 10.1.1.2 dev vlanif100", true, false},
             {"chip bfd up 100 remote 7", true, true},
             {"neigh add 10.1.1.2 port 3", true, true},
             {"bfd update 100 timers 1,2,3 state up", true, true},
             {"chip bfd lost 100", true, true},
             {"clock advance 3s", true, false},
             {"chip bfd up 100 remote 8", true, true},
             {"bfd del 100", false, false}};

// False when it lived through all steps.
bool is_killed_at(unsigned moment) {
    Killed shelf;
    shelf.run("if add vlanif100");
    shelf.dies_behind(moment);
    bool was_killed = false;
    for (const Step &step : steps) {
        SCOPED_TRACE("killed at " + std::to_string(moment) + ": " + step.command);
        shelf.run(step.command);
        if (shelf.is_dead()) {
            was_killed = true;
            shelf.switch_over();
            shelf.run(step.command);
            if (step.is_checked) {
                shelf.run("chip bfd up 100 remote 7");
                shelf.run(step.command);
            }
            shelf.standby_connects();
        }
        const auto &ends = shelf.master().chip.held<chassis::chip::kinds::bfd_local>();
        EXPECT_EQ(!ends.empty(), step.is_installed);
        EXPECT_EQ(!ends.empty() && ends.begin()->second.cc == 1, step.is_checked);
        EXPECT_EQ(ends.size(), shelf.master().chip.held<chassis::chip::kinds::bfd_remote>().size());
    }
    shelf.TearDown();
    return was_killed;
}

} // namespace

TEST(Bfd, SessionsOutliveAMasterThatIsKilledAtAnyMoment) {
    unsigned moment = 1;
    while (is_killed_at(moment))
        ++moment;
    EXPECT_GT(moment, 30u);
}
