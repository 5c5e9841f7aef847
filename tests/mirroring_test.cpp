// Mirroring between the cards: batches, wrong roles, a peer that goes away, and what the standby
// makes of a record.

#include "dpm.h"
#include "dpm_host.h"
#include "dpm_nexthop.h"
#include "support/rows.h"

#include <cstring>

ROWS(Mirroring, AWholeTableTravelsInBatchesOfAHundred, .families = {4}, .roles = rig::mirroring,
     .see = "mirror"){
    {"many 200 neigh add 10.1.#"},
    {"standby goes"},
    {"standby comes",
     "mirror dpm_main_entry_sync_all_receive 6; mirror nexthop* 10; mirror host* 100; "
     "mirror host* 100; mirror settings 1; "
     "mirror settings 2; mirror dpm_slave_up_pro_over_sync_receive 4; "
     "standby: mirror dpm_slave_up_pro_over_peercard_callback 4"}, // none is empty
    {"many 250 neigh add 10.1.#"},
    {"standby goes"},
    {"standby comes",
     "mirror dpm_main_entry_sync_all_receive 6; mirror nexthop* 10; mirror host* 100; "
     "mirror host* 100; mirror host* 50; mirror settings 1; "
     "mirror settings 2; mirror dpm_slave_up_pro_over_sync_receive 4; "
     "standby: mirror dpm_slave_up_pro_over_peercard_callback 4"},
    {"standby goes"},
    {"fault alloc 1"}, // the next hops' batch: the other tables still travel
    {"allow standby-differs"},
    {"standby comes",
     "mirror dpm_main_entry_sync_all_receive 6; mirror host* 100; mirror host* 100; "
     "mirror host* 50; mirror settings 1; "
     "mirror settings 2; mirror dpm_slave_up_pro_over_sync_receive 4; "
     "standby: mirror dpm_slave_up_pro_over_peercard_callback 4"},
    {"standby show nexthops --count", "= 0"},
};

namespace {

class MirroredRecords : public rig::Shelf {
protected:
    void SetUp() override {
        (void)run("if add vlanif100");
        std::memset(static_cast<void *>(&host), 0x5A, sizeof host);
        host.vrf = 0;
        std::strcpy(host.ifname, "vlanif100");
        nexthop.cnt = 1;
        nexthop.sdk_index = 17;
    }
    void learn_hosts(unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            (void)run("neigh add 10.1." + std::to_string(i / 200) + "." + std::to_string(i % 200));
    }
    template <class Record>
    void receive(int (*receiver)(const void *, std::uint32_t), const Record &record) {
        const auto scope = as(standby());
        EXPECT_EQ(receiver(&record, sizeof record), 0);
        settle();
    }
    // As the master would mirror them.
    dpm_host_entry host{};
    dpm_nexthop_entry nexthop{};
};

} // namespace

TEST_F(MirroredRecords, ASenderDoesNothingOnTheStandbyOrWithoutAPeer) {
    rig::expect_all(
        -1, {dpm_host_entry_add_sync_send(nullptr), dpm_nexthop_entry_del_sync_send(nullptr)});
    {
        const auto scope = as(standby());
        standby().peer.record(true);
        rig::expect_all(0, {dpm_host_entry_add_sync_send(&host),
                            dpm_nexthop_entry_del_sync_send(&nexthop),
                            dpm_host_entry_sync_all_send(10)});
        EXPECT_EQ(logged(standby(), "::peer is not exist, or it is slave"), 2u);
        EXPECT_EQ(logged(standby(), "dpm_host_entry_sync_all_send"), 1u) << "it is slave";
        EXPECT_TRUE(standby().peer.calls().empty());
    }
    standby_lost();
    EXPECT_EQ(dpm_host_entry_del_sync_send(&host), 0);
    EXPECT_EQ(logged(master(), "dpm_host_entry_del_sync_send"), 1u);
}

// The standby's log line about a message that it cannot post is where it is cut off: in the middle
// of a batch.
TEST_F(MirroredRecords, APeerThatGoesAwayDuringTheTableEndsTheWalk) {
    learn_hosts(250);
    standby_lost();
    standby_starts();
    standby().os.fail(chassis::os::Fault::send, 20, 4);
    standby().os.log_to([this](const auto &) { master().peer.cut(); });
    allow().standby_differs = true;
    master().peer.record(true);
    standby_connects();
    unsigned batches = 0;
    for (const auto &call : master().peer.calls())
        batches += call.name == "dpm_host_entry_sync_all_receive";
    EXPECT_EQ(batches, 1u);
    EXPECT_EQ(logged(master(), "::peer is not exist!"), 1u);
    standby().os.log_to([](const auto &) {});
}

TEST_F(MirroredRecords, APeerThatGoesAwayDuringTheProgrammingOfASlotEndsTheWalk) {
    learn_hosts(20);
    master().chip.answer_slots({3});
    master().chip.fail_slot(chassis::chip::Function::add_ip_entry, 3); // logged by the library
    master().os.log_to([this](const chassis::os::LogLine &line) {
        if (line.text.find("add_ip_entry_result") != line.text.npos)
            master().peer.cut();
    });
    clear_journal();
    (void)run("card slot-up 3");
    EXPECT_EQ(chip_calls(master()).size(), 11u) << "ten next hops, and the first host";
}

TEST_F(MirroredRecords, AHostIsKeptWithTheStandbysOwnIndexAndCleanLocalParts) {
    for (const char *ip : {"10.1.1.2", "2001:db8::2"}) {
        host.ip = rig::prefix_of(ip);
        for (host.sdk_index = 77; host.sdk_index < 79; ++host.sdk_index)
            receive(dpm_host_entry_add_sync_receive, host); // takes its place
    }
    ASSERT_EQ(hosts(standby()).size(), 2u);
    const std::uint32_t ifindex = standby().suite.find("vlanif100")->ifindex;
    for (dpm_host_entry &kept : hosts(standby())) {
        EXPECT_EQ(std::count(kept.card_local, kept.card_local + 32, 0), 32);
        EXPECT_EQ(std::pair(kept.ifindex, kept.sdk_index), std::pair(ifindex, 78u));
        std::memset(kept.ifname, 'x', sizeof kept.ifname);
        receive(dpm_host_entry_add_sync_receive, kept);
    }
    EXPECT_EQ(std::strlen(hosts(standby()).at(0).ifname), 63u);
    EXPECT_EQ(hosts(standby()).at(0).ifindex, ~0u) << "an interface that this card does not have";
    for (const dpm_host_entry &kept : hosts(standby()))
        for (int round = 0; round < 2; ++round) // gone
            receive(dpm_host_entry_del_sync_receive, kept);
    EXPECT_TRUE(hosts(standby()).empty());
}

TEST_F(MirroredRecords, OfANextHopThatIsThereOnlyTheCountIsTaken) {
    receive(dpm_nexthop_entry_add_sync_receive, nexthop);
    nexthop.cnt = 9;
    nexthop.sdk_index = 999;
    receive(dpm_nexthop_entry_add_sync_receive, nexthop);
    ASSERT_EQ(nexthops(standby()).size(), 1u);
    EXPECT_EQ(nexthops(standby())[0].cnt, 9u);
    EXPECT_EQ(nexthops(standby())[0].sdk_index, 17u);
    for (int round = 0; round < 2; ++round) // gone
        receive(dpm_nexthop_entry_del_sync_receive, nexthop);
    EXPECT_TRUE(nexthops(standby()).empty());
    EXPECT_EQ(standby().chip.requests(chassis::chip::Function::add_ip_nexthop), 0u);
}
