// Mirroring between the cards: batches, hostile buffers, wrong roles, a peer that goes away, and
// what the standby makes of a record.

#include "dpm.h"
#include "dpm_host.h"
#include "dpm_if.h"
#include "dpm_nexthop.h"
#include "support/shelf.h"

#include <cstring>

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
using Sizes = std::vector<std::size_t>;
using Receiver = int (*)(const void *, std::uint32_t);

class Mirroring : public rig::JoinedShelf {
protected:
    void SetUp() override { add_interface("vlanif100", 100); }

    void learn_hosts(unsigned count) {
        for (unsigned i = 0; i < count; ++i)
            learn_host({.ip = "10.1." + std::to_string(i / 200) + "." + std::to_string(i % 200)});
        master().peer.record(true);
    }
    Sizes sizes_of(const std::string &name) {
        Sizes sizes;
        for (const auto &call : master().peer.calls())
            if (call.name == name)
                sizes.push_back(call.payload.size());
        return sizes;
    }
    // A host as the master would mirror it.
    static dpm_host_entry mirrored(const char *ip) {
        dpm_host_entry host{};
        std::memset(&host.node, 0x5A, sizeof host.node);
        std::memset(host.card_local, 0x5A, sizeof host.card_local);
        host.ifindex = 4711;
        std::strcpy(host.ifname, "vlanif100");
        host.ip = rig::prefix_of(ip);
        host.svlan = 100;
        host.sdk_index = 77;
        return host;
    }
    static dpm_nexthop_entry nexthop(unsigned last_mac, unsigned count) {
        dpm_nexthop_entry entry{};
        std::memset(&entry.node, 0x5A, sizeof entry.node);
        entry.mac[5] = std::uint8_t(last_mac);
        entry.cnt = std::uint16_t(count);
        entry.sdk_index = 16 + last_mac;
        return entry;
    }
    template <class Record> int receive(Receiver receiver, const Record &record) {
        const auto scope = as(standby());
        const int result = receiver(&record, sizeof record);
        settle();
        return result;
    }
};

} // namespace

TEST_F(Mirroring, AWholeTableTravelsInBatchesOfAHundred) {
    learn_hosts(200);
    standby_connects();
    EXPECT_EQ(sizes_of("dpm_host_entry_sync_all_receive"), (Sizes{17600, 17600}))
        << "none is empty";
    EXPECT_EQ(sizes_of("dpm_nexthop_entry_sync_all_receive"), Sizes{44}) << "one neighbour";
    EXPECT_EQ(hosts(standby()).size(), 200u);
    learn_hosts(250);
    standby_connects();
    EXPECT_EQ(sizes_of("dpm_host_entry_sync_all_receive"),
              (Sizes{17600, 17600, 17600, 17600, 8800}));
}

TEST_F(Mirroring, WithoutMemoryForABatchTheOtherTablesStillTravel) {
    learn_hosts(3);
    fail(Fault::allocation); // the next-hop table's batch
    allow().standby_differs = true;
    standby_connects();
    EXPECT_TRUE(nexthops(standby()).empty());
    EXPECT_EQ(hosts(standby()).size(), 3u);
    EXPECT_EQ(sizes_of("dpm_slave_up_pro_over_sync_receive"), Sizes{4});
}

TEST_F(Mirroring, ASenderDoesNothingOnTheStandbyOrWithoutAPeer) {
    const dpm_host_entry host = mirrored("10.1.1.2");
    const dpm_nexthop_entry next = nexthop(1, 1);
    EXPECT_EQ(dpm_host_entry_add_sync_send(nullptr), -1);
    EXPECT_EQ(dpm_nexthop_entry_del_sync_send(nullptr), -1);
    EXPECT_EQ(dpm_host_entry_add_sync_send(&host), -1) << "not yet mirroring";
    {
        const auto scope = as(standby());
        standby().peer.record(true);
        EXPECT_EQ(dpm_host_entry_add_sync_send(&host), 0);
        EXPECT_EQ(dpm_nexthop_entry_del_sync_send(&next), 0);
        EXPECT_EQ(logged(standby(), "::peer is not exist, or it is slave"), 2u);
        EXPECT_EQ(dpm_host_entry_sync_all_send(10), 0);
        EXPECT_EQ(logged(standby(), "dpm_host_entry_sync_all_send"), 1u) << "it is slave";
        EXPECT_TRUE(standby().peer.calls().empty());
    }
    standby_lost();
    EXPECT_EQ(dpm_host_entry_del_sync_send(&host), 0);
    EXPECT_EQ(logged(master(), "dpm_host_entry_del_sync_send"), 1u);
}

TEST_F(Mirroring, ACardIsCalledByTheNamesOfItsReceiversAlone) {
    EXPECT_EQ(standby().peer.deliver("dpm_unknown_sync_receive", {}), -1);
    EXPECT_EQ(standby().peer.deliver("dpm_api_set_vrf_enable", {}), -1);
}

// The standby's log line about a message that it cannot post is where it is cut off: in the middle
// of a batch.
TEST_F(Mirroring, APeerThatGoesAwayDuringTheTableEndsTheWalk) {
    learn_hosts(250);
    standby().os.fail(Fault::send, 20, 4);
    standby().os.log_to([this](const auto &) { master().peer.cut(); });
    allow().standby_differs = true;
    standby_connects();
    EXPECT_EQ(sizes_of("dpm_host_entry_sync_all_receive"), Sizes{17600});
    EXPECT_EQ(logged(master(), "::peer is not exist!"), 1u);
    EXPECT_EQ(sizes_of("dpm_slave_up_pro_over_sync_receive"), Sizes{});
    standby().os.log_to([](const auto &) {});
}

TEST_F(Mirroring, APeerThatGoesAwayDuringTheProgrammingOfASlotEndsTheWalk) {
    learn_hosts(20);
    master().chip.answer_slots({3});
    master().chip.fail_slot(Function::add_ip_entry, 3); // logged by the library
    master().os.log_to([this](const chassis::os::LogLine &line) {
        if (line.text.find("add_ip_entry_result") != line.text.npos)
            master().peer.cut();
    });
    clear_journal();
    EXPECT_EQ(dpm_bridge_slot_up(3), 0);
    settle();
    EXPECT_EQ(master().chip.journal().size(), 2u) << "a next hop and a host";
    advance(60);
}

TEST_F(Mirroring, ASlotIsProgrammedWithoutAnyPeer) {
    learn_hosts(20);
    standby_lost();
    clear_journal();
    dpm_bridge_slot_up(3);
    settle();
    EXPECT_EQ(chip_calls(master()).size(), 21u);
    EXPECT_EQ(logged(master(), "peer is not exist!"), 0u);
    advance(60);
}

TEST_F(Mirroring, AMirroredHostIsKeptWithTheStandbysOwnIndexAndCleanLocalParts) {
    for (const char *ip : {"10.1.1.2", "2001:db8::2"}) {
        dpm_host_entry host = mirrored(ip);
        EXPECT_EQ(receive(dpm_host_entry_add_sync_receive, host), 0);
        host.sdk_index = 78;
        std::memset(host.card_local, 0x77, sizeof host.card_local);
        EXPECT_EQ(receive(dpm_host_entry_add_sync_receive, host), 0) << "takes its place";
    }
    ASSERT_EQ(hosts(standby()).size(), 2u);
    for (const dpm_host_entry &host : hosts(standby())) {
        EXPECT_EQ(host.ifindex, standby().suite.find("vlanif100")->ifindex);
        EXPECT_EQ(host.sdk_index, 78u);
        EXPECT_EQ(std::count(host.card_local, host.card_local + 32, 0), 32);
    }
    EXPECT_EQ(standby().chip.requests(Function::add_ip_nexthop), 0u);
    // The master's delete names the master's index.
    EXPECT_EQ(receive(dpm_host_entry_del_sync_receive, mirrored("2001:db8::2")), 0);
    EXPECT_EQ(receive(dpm_host_entry_del_sync_receive, mirrored("2001:db8::2")), 0) << "gone";
    EXPECT_EQ(hosts(standby()).size(), 1u);
    EXPECT_EQ(receive(dpm_host_entry_del_sync_receive, mirrored("10.1.1.2")), 0);
}

TEST_F(Mirroring, ARecordWithoutFamilyOrNameEndDoesNotReachTheTables) {
    dpm_host_entry host = mirrored("10.1.1.2");
    host.ip.family = 3;
    EXPECT_EQ(receive(dpm_host_entry_add_sync_receive, host), 0);
    EXPECT_EQ(receive(dpm_host_entry_del_sync_receive, host), 0);
    EXPECT_EQ(logged(standby(), "::iptype = 3 is err!"), 2u);
    EXPECT_TRUE(hosts(standby()).empty());

    host = mirrored("10.1.1.2");
    std::memset(host.ifname, 'x', sizeof host.ifname);
    EXPECT_EQ(receive(dpm_host_entry_add_sync_receive, host), 0);
    ASSERT_EQ(hosts(standby()).size(), 1u);
    EXPECT_EQ(std::strlen(hosts(standby())[0].ifname), 63u);
    EXPECT_EQ(hosts(standby())[0].ifindex, ~0u) << "an interface that this card does not have";
    EXPECT_EQ(receive(dpm_host_entry_del_sync_receive, host), 0);
}

TEST_F(Mirroring, OfAMirroredNextHopThatIsThereOnlyTheCountIsTaken) {
    dpm_nexthop_entry next = nexthop(1, 1);
    EXPECT_EQ(receive(dpm_nexthop_entry_add_sync_receive, next), 0);
    next.cnt = 9;
    next.sdk_index = 999;
    EXPECT_EQ(receive(dpm_nexthop_entry_add_sync_receive, next), 0);
    ASSERT_EQ(nexthops(standby()).size(), 1u);
    EXPECT_EQ(nexthops(standby())[0].cnt, 9u);
    EXPECT_EQ(nexthops(standby())[0].sdk_index, 17u);
    EXPECT_EQ(receive(dpm_nexthop_entry_del_sync_receive, next), 0);
    EXPECT_EQ(receive(dpm_nexthop_entry_del_sync_receive, next), 0);
    EXPECT_TRUE(nexthops(standby()).empty());
    EXPECT_TRUE(standby().chip.nexthops.empty());
}
