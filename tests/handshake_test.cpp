// The two cards' handshake: what travels when the standby connects, line cards that come up, the
// check of the peer, card data, and the hand-over of the master's role.

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_main.h"
#include "dpm_vrf.h"
#include "support/shelf.h"

namespace {

using chassis::Card;
using chassis::chip::Function;
using Lines = std::vector<std::string>;

Lines names_of(const std::vector<chassis::peer::Call> &calls) {
    Lines names;
    for (const auto &call : calls)
        names.push_back(call.name + " " + std::to_string(call.payload.size()));
    return names;
}

template <std::size_t size>
int deliver(Card &card, const char *name, const std::array<std::uint8_t, size> &bytes) {
    return card.peer.deliver(name, std::as_bytes(std::span(bytes)));
}

class Handshake : public rig::JoinedShelf {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        learn_host({.ip = "10.1.1.2", .port = 1});
        learn_host({.ip = "2001:db8::2", .port = 2});
        for (Card *card : cards())
            card->peer.record(true);
        clear_journal();
    }
    bool is_mirroring() { return dpm_get_slave_up() == 1; }
};

class Alone : public rig::LoneShelf {};

} // namespace

TEST_F(Handshake, TheTablesTravelInOrderAndTheStandbyConfirmsBehindThem) {
    EXPECT_TRUE(hosts(standby()).empty()) << "nothing is mirrored before";
    standby_connects();
    EXPECT_EQ(
        names_of(master().peer.calls()),
        (Lines{"dpm_main_entry_sync_all_receive 6", "dpm_nexthop_entry_sync_all_receive 88",
               "dpm_host_entry_sync_all_receive 352", "dpm_slave_up_pro_over_sync_receive 4"}));
    EXPECT_EQ(master().peer.calls()[3].payload[0], std::byte{10}) << "the slot";
    EXPECT_EQ(names_of(standby().peer.calls()),
              (Lines{"dpm_slave_up_pro_over_peercard_callback 4"}));
    EXPECT_EQ(standby().peer.calls()[0].payload[0], std::byte{1});
    EXPECT_EQ(logged(master(), "::wait slave up process over!"), 1u);
    EXPECT_EQ(logged(standby(), "::it is slave,slave up process over!"), 1u);
    EXPECT_EQ(logged(master(), "::slave up process over, sem_give!"), 1u);
    EXPECT_EQ(host_texts(standby()).size(), 2u);
    EXPECT_EQ(chip_calls(standby()).size(), 2u) << "the link-local address and nothing else";
}

TEST_F(Handshake, ChangesAreMirroredFromTheStartOfTheProcessOn) {
    hold(true);
    master().peer.connected();
    learn_host({.ip = "10.1.1.3", .mac = "02:00:00:00:00:03"}); // posted behind the slot-up
    hold(false);
    settle();
    EXPECT_EQ(host_texts(standby()), host_texts(master()));
    EXPECT_EQ(master().peer.calls().back().name, "dpm_host_entry_add_sync_receive");
}

TEST_F(Handshake, ThePeerIsCheckedAfterAMinuteAndThenEveryTenSeconds) {
    standby_connects();
    for (const unsigned due : {60u, 10u, 10u}) {
        master().peer.set_standby_usable(false);
        advance(due - 1);
        EXPECT_TRUE(is_mirroring());
        master().peer.set_standby_usable(true);
        advance(1);
        EXPECT_TRUE(is_mirroring());
    }
    master().peer.set_standby_usable(false);
    advance(10);
    EXPECT_FALSE(is_mirroring());
    clear_journal();
    learn_host({.ip = "10.1.1.3", .mac = "02:00:00:00:00:03"});
    forget_host({.ip = "10.1.1.2"});
    EXPECT_TRUE(master().peer.calls().empty());
    EXPECT_EQ(hosts(standby()).size(), 2u);
    advance(100);
    EXPECT_FALSE(is_mirroring()) << "the check has ended";

    const dpm_host_entry stale = hosts(standby())[0];
    dpm_nexthop_entry stale_nexthop{};
    for (const dpm_nexthop_entry &entry : nexthops(standby()))
        if (entry.sdk_index == stale.sdk_index)
            stale_nexthop = entry;
    master().peer.set_standby_usable(true);
    standby_connects();
    EXPECT_TRUE(is_mirroring());
    // What went meanwhile stays on the standby until its next start: adds alone travel.
    EXPECT_EQ(hosts(standby()).size(), 3u);
    const auto scope = as(standby());
    EXPECT_EQ(dpm_host_entry_del_sync_receive(&stale, sizeof stale), 0);
    EXPECT_EQ(dpm_nexthop_entry_del_sync_receive(&stale_nexthop, sizeof stale_nexthop), 0);
    settle();
}

TEST_F(Handshake, ALineCardIsProgrammedAgainAndGetsNoTables) {
    learn_host({.ip = "fe80::1", .mac = "02:00:00:00:00:03", .port = 3});
    clear_journal();
    EXPECT_EQ(dpm_bridge_slot_up(3), 0);
    settle();
    Lines again;
    for (const std::string &call : chip_calls(master()))
        again.push_back(call.substr(0, call.find(" index")));
    EXPECT_EQ(again, (Lines{"add_ip_nexthop port 3 svlan 100 cvlan 0 mac 02:00:00:00:00:03",
                            "add_ip_nexthop port 1 svlan 100 cvlan 0 mac 02:00:00:00:01:02",
                            "add_ip_nexthop port 2 svlan 100 cvlan 0 mac 02:00:00:00:01:02",
                            "add_ip_entry vrf 0 10.1.1.2/32 nexthop 17 slots 0x8 -> 0",
                            "add_ip_entry vrf 0 2001:db8::2/128 nexthop 18 slots 0x8 -> 0"}));
    EXPECT_TRUE(master().peer.calls().empty());
    EXPECT_EQ(logged(master(), "::slot_bit = 8, nexthop driver sync."), 1u);
    EXPECT_EQ(logged(master(), "::slot_bit = 8, host driver sync."), 1u);
    EXPECT_EQ(logged(master(), "table sync."), 0u);
    EXPECT_TRUE(is_mirroring()) << "as after any slot";
    master().peer.set_standby_usable(false); // the standby never got the tables
    advance(60);
}

TEST_F(Handshake, OnTheStandbyASlotThatComesUpIsNoEvent) {
    const auto scope = as(standby());
    EXPECT_EQ(dpm_bridge_slot_up(3), 0);
    EXPECT_EQ(dpm_bridge_slave_up(), 0);
    EXPECT_EQ(standby().os.queued(), 0u);
    EXPECT_EQ(dpm_slave_up_process(3), 0);
    EXPECT_FALSE(is_mirroring());
    EXPECT_EQ(dpm_slave_up_pro_over_peercard_callback(nullptr, 0), 0);
    EXPECT_EQ(logged(standby(), "::it is slave!"), 1u);
    EXPECT_EQ(dpm_bridge_sync_send("dpm_host_entry_add_sync_receive", "", 0), -1);
    EXPECT_TRUE(standby().peer.calls().empty());
}

TEST_F(Handshake, OnTheMasterTheStandbysMessagesAreDropped) {
    EXPECT_EQ(dpm_slave_up_pro_over_sync_receive(nullptr, 0), 0);
    EXPECT_EQ(dpm_main_entry_sync_all_receive("......", 6), 0);
    EXPECT_EQ(logged(master(), "::it is slave."), 2u);
    EXPECT_EQ(dpm_slave_up_pro_over_sync_process(), 0);
    EXPECT_EQ(logged(master(), "::it is master!!"), 1u);
    EXPECT_EQ(dpm_bridge_slave_sync_send("dpm_slave_up_pro_over_peercard_callback", "", 0), -1);
    EXPECT_EQ(master().os.queued(), 0u);
}

TEST_F(Handshake, CardDataMovesTheLinkLocalAddressOfEveryEnabledVrf) {
    const auto scope = as(standby());
    EXPECT_EQ(dpm_vrf_enable(7, 1), 0);
    EXPECT_EQ(dpm_vrf_enable(8, 1), 0);
    EXPECT_EQ(dpm_vrf_enable(8, 2), 0);
    clear_journal();
    const char *const name = "dpm_main_entry_sync_all_receive";
    EXPECT_EQ(deliver(standby(), name, std::array<std::uint8_t, 5>{2, 0, 0, 0, 0}), -1);
    EXPECT_EQ(dpm_main_entry_sync_all_receive(nullptr, 6), -1);
    EXPECT_EQ(deliver(standby(), name, rig::mac_of("02:00:00:00:00:0a")), 0) << "its own";
    EXPECT_TRUE(chip_calls(standby()).empty());

    standby().chip.refuse(Function::del_ip_entry, 1);
    EXPECT_EQ(deliver(standby(), name, rig::mac_of("02:00:00:00:00:99")), 0);
    EXPECT_EQ(chip_calls(standby()),
              (Lines{"del_ip_entry vrf 0 fe80::ff:fe00:a/128 nexthop 2 slots 0x0 -> -1",
                     "add_ip_entry vrf 0 fe80::ff:fe00:99/128 nexthop 2 slots 0x0 -> 0",
                     "del_ip_entry vrf 7 fe80::ff:fe00:a/128 nexthop 2 slots 0x0 -> 0",
                     "add_ip_entry vrf 7 fe80::ff:fe00:99/128 nexthop 2 slots 0x0 -> 0"}));
    EXPECT_EQ(g_dpm_global.device_mac[5], 0x99);
}

TEST_F(Handshake, APortLeadsToThePeerCardByTheCardsOwnSlot) {
    const auto peers_of = [](unsigned first) {
        for (unsigned port = 0; port <= 70; ++port)
            EXPECT_EQ(dpm_bridge_get_port_is_peer(port), port >= first && port < first + 4) << port;
    };
    peers_of(38);
    const auto scope = as(standby());
    peers_of(18);
    EXPECT_EQ(dpm_bridge_self_role_get(), DPM_ROLE_SLAVE);
}

TEST_F(Handshake, ACardThatLosesTheMasterBeforeItsTablesCameCarriesOnAlone) {
    allow().chip_differs = true; // the chip keeps what a card that is gone programmed
    switch_over();
    EXPECT_TRUE(hosts(master()).empty());
    EXPECT_EQ(logged(master(), "ipv4 host tree is null!"), 1u);
    EXPECT_EQ(learn_host({.ip = "10.1.1.9", .mac = "02:00:00:00:00:09"}), 0);
    EXPECT_EQ(hosts(master()).size(), 1u);
}

TEST_F(Alone, AStandbyThatNeverConfirmsDoesNotHoldUpTheTables) {
    add_interface("vlanif100", 100);
    EXPECT_EQ(dpm_bridge_slave_up(), 0) << "the take times out";
    settle();
    learn_host({});
    EXPECT_EQ(hosts(master()).size(), 1u);
    fail(chassis::os::Fault::send, 1, 4);
    EXPECT_EQ(dpm_bridge_slave_up(), -1);
    advance(60);
    EXPECT_EQ(dpm_get_slave_up(), 0u);
}
