// The two cards' handshake: what travels when the standby connects, line cards that come up, the
// check of the peer, card data, and the hand-over of the master's role.

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_main.h"
#include "dpm_slot.h"
#include "dpm_vrf.h"
#include "support/rows.h"

using rig::with_standby;

ROWS(Handshake, TheTablesTravelInOrderAndTheStandbyConfirmsBehindThem, .families = {4},
     .roles = rig::mirroring, .see = "mirror log"){
    {"standby goes"},
    {"clock advance 60s"}, // mirroring has ended
    {"standby starts"},
    {"each {a} 2001:db8::2 do neigh add *"},
    {"standby comes",
     "log10 dpm_bridge_slave_up #::wait slave up process over!\r\n; "
     "log10 dpm_bridge_slave_up #::it is master, slave up process over!\r\n; "
     "mirror dpm_main_entry_sync_all_receive 6; "
     "log10 dpm_nexthop_entry_sync_all_send #::slot_bit = 1024, nexthop driver sync.\r\n; "
     "log10 dpm_nexthop_entry_sync_all_send #::slot 10, nexthop table sync.\r\n; "
     "mirror nexthop* 2; "
     "log10 dpm_host_entry_sync_all_send #::slot_bit = 1024, host driver sync.\r\n; "
     "log10 dpm_host_entry_sync_all_send #::slot 10, host table sync.\r\n; mirror host* 2; "
     "log10 dpm_tunnel_port_entry_sync_all_send #::slot_bit = 1024, tunnel_port driver sync.\r\n; "
     "log10 dpm_tunnel_port_entry_sync_all_send #::slot 10, tunnel_port table sync.\r\n; "
     "log10 dpm_tunnel_entry_sync_all_send #::slot_bit = 1024, tunnel driver sync.\r\n; "
     "log10 dpm_tunnel_entry_sync_all_send #::slot 10, tunnel table sync.\r\n; "
     "log10 dpm_ecmp_entry_sync_all_send #::slot_bit = 1024, ecmp driver sync.\r\n; "
     "log10 dpm_ecmp_entry_sync_all_send #::ipv4 ecmp tree is null.\r\n; "
     "log10 dpm_ecmp_entry_sync_all_send #::slot 10, ecmp table sync.\r\n; "
     "log10 dpm_route_entry_sync_all_send #::slot_bit = 1024, route driver sync.\r\n; "
     "log10 dpm_route_entry_sync_all_send #::ipv4 route tree is null.\r\n; "
     "log10 dpm_route_entry_sync_all_send #::slot 10, route table sync.\r\n; "
     "log10 dpm_mpls_if_sync_all_send #::slot_bit = 1024, mpls_if driver sync.\r\n; "
     "log10 dpm_mpls_if_sync_all_send #::slot 10, mpls_if table sync.\r\n; "
     "log10 dpm_mpls_ftn_sync_all_send #::slot_bit = 1024, ftn driver sync.\r\n; "
     "log10 dpm_mpls_ftn_sync_all_send #::slot 10, ftn table sync.\r\n; "
     "log10 dpm_mpls_ilm_sync_all_send #::slot_bit = 1024, ilm driver sync.\r\n; "
     "log10 dpm_mpls_ilm_sync_all_send #::slot 10, ilm table sync.\r\n; "
     "log10 dpm_vpws_sync_all_send #::slot_bit = 1024, vpws acif driver sync.\r\n; "
     "log10 dpm_vpws_sync_all_send #::slot 10, vpws acif table sync.\r\n; "
     "log10 dpm_vpws_sync_all_send #::slot_bit = 1024, vpws vc_fib driver sync.\r\n; "
     "log10 dpm_vpws_sync_all_send #::slot 10, vpws vc_fib table sync.\r\n; "
     "log10 dpm_vpws_sync_all_send #::slot_bit = 1024, vpws vc_ilm driver sync.\r\n; "
     "log10 dpm_vpws_sync_all_send #::slot 10, vpws vc_ilm table sync.\r\n; "
     "log10 dpm_vpls_vsi_sync_all_send #::slot_bit = 1024, vpls vsi driver sync.\r\n; "
     "log10 dpm_vpls_vsi_sync_all_send #::slot 10, vpls vsi table sync.\r\n; "
     "log10 dpm_vpls_acif_sync_all_send #::slot_bit = 1024, vpls acif driver sync.\r\n; "
     "log10 dpm_vpls_acif_sync_all_send #::slot 10, vpls acif table sync.\r\n; "
     "log10 dpm_vpls_pw_sync_all_send #::slot_bit = 1024, vpls vc_fib driver sync.\r\n; "
     "log10 dpm_vpls_pw_sync_all_send #::slot 10, vpls vc_fib table sync.\r\n; "
     "log10 dpm_vpls_pw_sync_all_send #::slot_bit = 1024, vpls vc_ilm driver sync.\r\n; "
     "log10 dpm_vpls_pw_sync_all_send #::slot 10, vpls vc_ilm table sync.\r\n; "
     "log10 dpm_ipmc_sync_all_send #::slot 10, ipmc table sync.\r\n; mirror settings 1; "
     "mirror settings 2; log10 dpm_bfd_sync_all_send #::slot 10, bfd table sync.\r\n; "
     "log10 dpm_slave_up_pro_over_sync_send #:: it is master, slave_up_pro send over!\r\n; "
     "mirror dpm_slave_up_pro_over_sync_receive 4; "
     "standby: log10 dpm_slave_up_pro_over_sync_process #::it is slave,slave up process "
     "over!\r\n; standby: mirror dpm_slave_up_pro_over_peercard_callback 4; "
     "log10 dpm_slave_up_pro_over_peercard_callback #::slave up process over, sem_give!\r\n"},
    {"standby show hosts --count", "= 2"},
};

ROWS(Handshake, ThePeerIsCheckedAfterAMinuteAndThenEveryTenSeconds, .families = {4},
     .roles = with_standby, .see = "mirror"){
    {"standby goes"},
    {"standby comes"},
    {"card standby-lost"},
    {"clock advance 59s"},
    {"neigh add {a}", "mirror nexthop+ n1; mirror host+ {a}"},
    {"card standby-usable"},
    {"clock advance 1s"},
    {"card standby-lost"},
    {"clock advance 9s"},
    {"neigh add {b}", "mirror nexthop+ n2; mirror host+ {b}"},
    {"clock advance 1s"},
    {"neigh del {b}", ""},
    {"neigh add {c}", ""},
    {"card standby-usable"},
    {"clock advance 100s"},
    {"neigh add {b}", ""}, // the check has ended
};

// What a card that was away for a while has from before is renewed: chip indexes that are given to
// other objects by now, groups with other members, routes and neighbours that have gone.
ROWS(Handshake, AStandbyThatComesBackIsTheMastersEqual, .roles = rig::mirroring,
     .see = "log/dpm_slave_up_pro_over_sync_process"){
    {"many 4 neigh add 10.1.# port 3"},
    {"neigh add {a}"},
    {"neigh add {b} port 2"},
    {"neigh add {c} port 3"},
    {"route add {net} via {a} via {b}"},
    {"route add {net1} via {b} via {c}"},
    {"route add {net2} via {c}"},
    {"card standby-lost"},
    {"clock advance 60s"},
    {"each {net} {net2} do route del *"},
    {"many 2 neigh del 10.1.#"},
    {"each {a} {c} do neigh del *"},
    {"neigh add {d} port 4"},
    {"neigh add {a}"},
    {"route add {net3} via {a} via {d}"},
    {"card standby-usable"},
    {"standby comes", "standby: log10 dpm_slave_up_pro_over_sync_process #::8 entries are not on "
                      "the master, dropped.\r\n; "
                      "standby: log10 dpm_slave_up_pro_over_sync_process #::it is slave,slave up "
                      "process over!\r\n"},
};

ROWS(Handshake, ASyncWithHolesDropsNothing, .families = {4}, .roles = rig::mirroring,
     .see = "log/dpm_slave_up_pro_over_sync_process"){
    {"neigh add {a}"},
    {"neigh add {b} port 2"},
    {"card standby-lost"},
    {"clock advance 60s"},
    {"neigh del {b}"},
    {"neigh add {c} port 3"},
    {"card standby-usable"},
    {"allow standby-differs"},
    {"standby fault send 2 times 4"},
    {"standby comes", "standby: log10 dpm_slave_up_pro_over_sync_process #::the sync has holes, "
                      "nothing is dropped!\r\n; "
                      "standby: log10 dpm_slave_up_pro_over_sync_process #::it is slave,..."},
    {"standby show hosts --count", "= 3"},
    {"standby fault send 1 times 4"}, // its begin
    {"standby comes", "standby: log10 dpm_slave_up_pro_over_sync_process #::the sync has holes, "
                      "...; standby: log10 ..."},
    {"standby comes"}, // the next one is whole
    {"standby show hosts --count", "= 2"},
};

ROWS(Handshake, ALineCardIsProgrammedAgainAndGetsNoTables, .families = {4}, .roles = with_standby,
     .see = "chip mirror"){
    {"standby goes"},
    {"clock advance 60s"},
    {"standby starts"},
    {"neigh add {a}"},
    {"neigh add 2001:db8::2 port 2"},
    {"neigh add fe80::3 port 3"},
    {"allow standby-differs"},
    {"card slot-up 3", "nexthop+ port 1 {m1} n1 slots 0x8; nexthop+ port 2 {m2} n2 slots 0x8; "
                       "nexthop+ port 3 {m3} n3 slots 0x8; entry+ {a} n1 slots 0x8; "
                       "entry+ 2001:db8::2 n2 slots 0x8"},
    {"see mirror"},
    {"neigh add {b}", "mirror nexthop+ n4; mirror host+ {b}"}, // as after any slot
    {"card standby-lost"},
    {"clock advance 60s"},
    {"see log"},
    {"standby card slot-up 3", ""},
};

ROWS(Handshake, ACardThatLosesTheMasterBeforeItsTablesCameCarriesOnAlone, .families = {4},
     .roles = with_standby, .see = "chip log/dpm_"){
    {"neigh add {a}"},
    {"standby goes"},
    {"clock advance 60s"},
    {"standby starts"},
    {"allow chip-differs"}, // the chip keeps what a card that is gone programmed
    {"switch-over", "log10 dpm_host_start_delete_time #:: ipv4 host tree is null!\r\n; "
                    "log10 dpm_route_start_delete_time #::ipv4 route table is null!\r\n"},
    {"show hosts --count", "= 0"},
    {"neigh add {b}"},
    {"show hosts --count", "= 1"},
};

// The other card's MAC is a text here, and no less one for that.
ROWS(Handshake, TheLinkLocalAddressOfEveryEnabledVrfMovesWithTheDevicesMac, .families = {4},
     .roles = rig::mirroring, .see = "chip"){
    {"vrf enable 7"},
    {"vrf enable 8"},
    {"vrf disable 8"},
    {"standby chip refuse route-del 1"},
    {"standby call dpm_main_entry_sync_all_receive abcdef 6",
     "standby: entry- {linklocal} cpu -> -1; standby: entry+ fe80::6362:63ff:fe64:6566 cpu; "
     "standby: entry- vrf 7 {linklocal} cpu; "
     "standby: entry+ vrf 7 fe80::6362:63ff:fe64:6566 cpu; = 0"},
    {"standby call dpm_main_entry_sync_all_receive abcdef 6", "= 0"}, // its own
};

namespace {

class Cards : public rig::JoinedShelf {};

class LoneCard : public rig::LoneShelf {};

} // namespace

TEST_F(Cards, MirrorChangesFromTheStartOfTheHandshakeOn) {
    for (rig::Card *card : cards())
        card->peer.record(true);
    run("if add vlanif100");
    hold(true);
    master().peer.connected();
    run("neigh add 10.1.1.2"); // posted behind the slot-up
    hold(false);
    settle();
    EXPECT_EQ(hosts(standby()).size(), 1u);
    const auto calls = master().peer.calls();
    EXPECT_EQ(calls.back().name, "dpm_host_entry_add_sync_receive");
    EXPECT_EQ(calls[3].payload, std::vector<std::byte>({std::byte{10}, {}, {}, {}})) << "the slot";
    EXPECT_EQ(standby().peer.calls().at(0).payload[0], std::byte{1});
}

TEST_F(Cards, TakeNoPartInTheOtherRolesHandshake) {
    EXPECT_EQ(dpm_slave_up_pro_over_sync_process(), 0);
    EXPECT_EQ(logged(master(), "::it is master!!"), 1u);
    EXPECT_EQ(dpm_bridge_slave_sync_send("dpm_slave_up_pro_over_peercard_callback", "", 0), -1);
    const auto scope = as(standby());
    EXPECT_EQ(dpm_bridge_slave_up(), 0);
    EXPECT_EQ(standby().os.queued(), 0u);
    EXPECT_EQ(dpm_slave_up_process(3), 0);
    EXPECT_EQ(dpm_get_slave_up(), 0u);
    EXPECT_EQ(dpm_bridge_sync_send("dpm_host_entry_add_sync_receive", "", 0), -1);
}

TEST_F(Cards, KnowThePortsThatLeadToThePeerByTheirOwnSlot) {
    for (rig::Card *card : cards()) {
        const auto scope = as(*card);
        const unsigned first = card == &master() ? 38 : 18;
        for (unsigned port = 0; port <= 70; ++port)
            EXPECT_EQ(dpm_bridge_get_port_is_peer(port), port >= first && port < first + 4) << port;
    }
}

TEST_F(LoneCard, IsNotHeldUpByAStandbyThatNeverConfirms) {
    run("if add vlanif100");
    EXPECT_EQ(dpm_bridge_slave_up(), 0) << "the take times out";
    settle();
    run("neigh add 10.1.1.2");
    EXPECT_EQ(hosts(master()).size(), 1u);
    fail(chassis::os::Fault::send, 1, 4);
    EXPECT_EQ(dpm_bridge_slave_up(), -1);
    advance(60);
    EXPECT_EQ(dpm_get_slave_up(), 0u);
    clear_journal();
    EXPECT_EQ(dpm_slave_up_process(DPM_SLOT_LAST + 1), -1);
    EXPECT_EQ(logged(master(), "dpm_slave_up_process"), 1u);
    EXPECT_TRUE(chip_calls(master()).empty()) << "not every slot once more";
}
