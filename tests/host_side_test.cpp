// The lists beside the host table: addresses that are waited for, neighbours held after their port
// went down, and what a new master asks.

#include "dpm_host.h"
#include "support/shelf.h"

#include <cerrno>

namespace {

using chassis::stack::Probe;
using rig::Neighbour;

constexpr unsigned day_sec = 86400;

class HostSide : public rig::Shelf, public ::testing::WithParamInterface<const char *> {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        ifindex = master().suite.find("vlanif100")->ifindex;
    }
    // Seconds at which an address was probed, from `start` on.
    std::vector<unsigned> probed_at(const std::string &ip, std::int64_t start) {
        const dpm_prefix wanted = rig::prefix_of(ip);
        std::vector<unsigned> seconds;
        for (const Probe &probe : master().stack.probes())
            if (std::equal(wanted.address, wanted.address + 16, probe.key.address.begin()))
                seconds.push_back(unsigned((probe.at_nsec - start) / chassis::os::nsec_per_sec));
        return seconds;
    }
    std::int64_t now() { return master().os.now_nsec(); }
    std::string own() const { return GetParam(); }
    std::uint32_t ifindex = 0;
};
INSTANTIATE_TEST_SUITE_P(Families, HostSide, ::testing::Values("10.1.1.2", "2001:db8::2"));

class HoldList : public HostSide {};
INSTANTIATE_TEST_SUITE_P(Ipv4, HoldList, ::testing::Values("10.1.1.2"));

} // namespace

TEST_P(HostSide, AnAddressThatIsWaitedForIsProbedAtOnceAndOnceMoreForEveryCount) {
    const dpm_prefix ip = rig::prefix_of(own());
    const std::int64_t start = now();
    EXPECT_EQ(dpm_host_get_index_by_ip(0, ifindex, &ip), ~0u);
    EXPECT_EQ(dpm_host_get_index_by_ip(0, ifindex, &ip), ~0u) << "waited for once";
    EXPECT_EQ(dpm_api_get_unreachable_since(0, &ip), start / chassis::os::nsec_per_sec);
    EXPECT_EQ(dpm_api_get_unreachable_since(1, &ip), -1) << "another VRF";
    advance(30 * 100 - 1);
    EXPECT_EQ(unreachables(master()).size(), 1u);
    advance(day_sec);
    EXPECT_TRUE(unreachables(master()).empty());
    const auto seconds = probed_at(own(), start);
    ASSERT_EQ(seconds.size(), 101u);
    for (unsigned i = 0; i < seconds.size(); ++i)
        EXPECT_EQ(seconds[i], 30 * i);
}

TEST_P(HostSide, AnAnswerEndsTheProbing) {
    const dpm_prefix ip = rig::prefix_of(own());
    EXPECT_EQ(dpm_host_get_index_by_ip(0, ifindex, &ip), ~0u);
    advance(45);
    answers_probes({.ip = own(), .port = 3});
    advance(15);
    EXPECT_TRUE(unreachables(master()).empty());
    EXPECT_EQ(dpm_host_get_index_by_ip(0, ifindex, &ip), host(master(), own())->sdk_index);
    const auto probes = master().stack.probes().size();
    advance(day_sec);
    EXPECT_EQ(master().stack.probes().size(), probes);
}

TEST_P(HostSide, AHostOfALostPortStaysAndIsHeldForADay) {
    learn_host({.ip = own(), .port = 3});
    const auto before = host_texts(standby());
    port_down(3);
    EXPECT_EQ(master().stack.deletions().size(), 1u);
    EXPECT_TRUE(master().stack.cache().empty());
    EXPECT_EQ(host_texts(standby()), before);
    ASSERT_EQ(holds(master()).size(), 1u);
    EXPECT_TRUE(holds(standby()).empty()) << "events are the master's";
    port_down(3); // bounces
    EXPECT_EQ(holds(master()).size(), 1u);

    master().stack.clear_history();
    port_up(4);
    EXPECT_TRUE(master().stack.probes().empty());
    port_up(3);
    EXPECT_EQ(probed_at(own(), now()), std::vector<unsigned>{0});
    EXPECT_EQ(holds(master()).size(), 1u) << "until it answers";
    advance(day_sec - 1);
    EXPECT_EQ(holds(master()).size(), 1u);
    advance(1);
    EXPECT_TRUE(holds(master()).empty());
    EXPECT_EQ(hosts(master()).size(), 1u);
}

TEST_P(HostSide, AReportEndsTheHoldEvenOfAHostThatIsTheSame) {
    learn_host({.ip = own(), .port = 3});
    answers_probes({.ip = own(), .port = 3});
    port_down(3);
    port_up(3);
    EXPECT_TRUE(holds(master()).empty());
    EXPECT_EQ(hosts(master()).size(), 1u);
}

TEST_P(HostSide, ATrunkAndAPortOfOneNumberAreTwo) {
    learn_host({.ip = own(), .port = 3, .trunk = 5});
    port_down(5);
    EXPECT_TRUE(holds(master()).empty());
    trunk_down(5);
    EXPECT_EQ(holds(master()).size(), 1u);
    port_up(5);
    EXPECT_TRUE(probed_at(own(), now()).empty());
    trunk_up(5);
    EXPECT_EQ(probed_at(own(), now()).size(), 1u);
}

TEST_P(HostSide, ANewMasterProbesThreeTimesOverAMinuteAndKeepsWhoIsSilent) {
    learn_host({.ip = own(), .port = 3});
    learn_host({.ip = "10.1.1.99", .mac = "02:00:00:00:01:99", .port = 4});
    answers_probes({.ip = "10.1.1.99", .mac = "02:00:00:00:01:99", .port = 4});
    switch_over();
    const std::int64_t start = now();
    advance(day_sec);
    EXPECT_EQ(probed_at(own(), start), (std::vector<unsigned>{0, 30, 60}));
    EXPECT_EQ(probed_at("10.1.1.99", start), std::vector<unsigned>{0});
    EXPECT_EQ(hosts(master()).size(), 2u) << "the silent one ages out where it is reported from";
    EXPECT_TRUE(unreachables(master()).empty());
}

TEST_P(HostSide, ACardThatTurnedStandbyProbesNobodyUntilItIsMasterAgain) {
    const dpm_prefix ip = rig::prefix_of(own());
    dpm_host_unreachable_add(0, ifindex, &ip, 2);
    learn_host({.ip = "10.1.1.99", .port = 3});
    port_down(3);
    master().stack.clear_history();
    master().peer.set_role(chassis::peer::Role::standby);
    advance(2 * day_sec);
    port_up(3);
    EXPECT_TRUE(master().stack.probes().empty());
    EXPECT_EQ(unreachables(master()).at(0).probe_cnt, 2u);
    EXPECT_TRUE(holds(master()).empty()) << "a day is a day";
    master().peer.set_role(chassis::peer::Role::master);
    advance(60);
    EXPECT_EQ(master().stack.probes().size(), 2u);
    EXPECT_TRUE(unreachables(master()).empty());
}

TEST_P(HostSide, AStackThatFailsDoesNotStopTheWork) {
    const dpm_prefix ip = rig::prefix_of(own());
    const bool ipv4 = ip.family == DPM_FAMILY_IPV4;
    for (const unsigned failing : {1u, 2u}) { // the socket, its option
        master().stack.fail_next(failing, EMFILE);
        EXPECT_EQ(ipv4 ? dpm_arp_req_send(0, ifindex, dpm::address_word(ip.address))
                       : dpm_ndp_req_send(0, ifindex, ip.address),
                  -EMFILE);
        master().stack.fail_next(0, 0);
    }
    clear_journal();
    EXPECT_EQ(ipv4 ? dpm_arp_ipstack_delete(0, ifindex, dpm::address_word(ip.address))
                   : dpm_ndp_ipstack_delete(0, ifindex, ip.address),
              -ENXIO)
        << "no such neighbour";
    EXPECT_EQ(logged(master(), "::set ipstack errno " + std::to_string(ENXIO) + " errstring "), 1u);
    master().stack.fail_next(1, EMFILE);
    EXPECT_EQ(dpm_host_unreachable_add(0, ifindex, &ip, 2), 0);
    EXPECT_EQ(unreachables(master()).size(), 1u) << "the next probe may get through";
    EXPECT_EQ(dpm_host_unreachable_del(0, &ip), 0);
    EXPECT_EQ(dpm_host_unreachable_del(0, &ip), 0);
    chassis::card().os.fail(chassis::os::Fault::allocation, 1);
    EXPECT_EQ(dpm_host_unreachable_add(0, ifindex, &ip, 2), -1);
}

TEST_P(HoldList, TakesTheFirstHundredOfTheTable) {
    for (unsigned i = 0; i < 150; ++i)
        learn_host({.ip = (i < 60 ? "10.1.1." : "2001:db8::") + std::to_string(i), .port = 3});
    port_down(3);
    ASSERT_EQ(holds(master()).size(), 100u);
    EXPECT_EQ(master().stack.deletions().size(), 150u) << "of all of them";
    const auto table = hosts(master());
    auto held = holds(master());
    std::reverse(held.begin(), held.end()); // newest first
    for (std::size_t i = 0; i < held.size(); ++i)
        ASSERT_EQ(rig::text_of(held[i].ip), rig::text_of(table[i].ip));
    forget_host({.ip = "10.1.1.0", .port = 3});
    EXPECT_EQ(holds(master()).size(), 100u) << "a hold outlives its host";
    learn_host({.ip = "10.1.1.0", .port = 4});
    EXPECT_EQ(holds(master()).size(), 99u);
}

TEST_P(HoldList, RefusesWhatIsNoEntry) {
    port_down(3);
    EXPECT_EQ(logged(master(), "::ipv4 host table is null!"), 1u);
    const dpm_prefix unknown{};
    EXPECT_EQ(dpm_host_unreachable_add(0, ifindex, &unknown, 2), -1);
    EXPECT_EQ(dpm_host_get_index_by_ip(0, ifindex, &unknown), ~0u);
    EXPECT_TRUE(unreachables(master()).empty());
    rig::expect_all(-1, {dpm_host_hold_entry_del(nullptr), dpm_host_unreachable_send(nullptr),
                         dpm_ndp_req_send(0, ifindex, nullptr),
                         dpm_api_get_unreachable_since(0, nullptr),
                         dpm_ndp_ipstack_delete(0, ifindex, nullptr)});
}

TEST_P(HoldList, TheProxyArpRouteGoesWithTheNeighbour) {
    learn_host({.ip = own(), .port = 3});
    port_down(3);
    EXPECT_EQ(master().suite.proxy_counts().route_deletions, 1u);
    port_down(3); // the stack does not know it any more
    EXPECT_EQ(master().suite.proxy_counts().route_deletions, 1u);
}
