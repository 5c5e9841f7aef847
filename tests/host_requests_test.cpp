// The edge of the host table: the three ways to report a neighbour, the conformance-test switch,
// link events, and what is read from the IP stack.

#include "dpm_events.h"
#include "dpm_host.h"
#include "support/shelf.h"

#include <arpa/inet.h>
#include <functional>

namespace {

class HostRequests : public rig::LoneShelf {
protected:
    void SetUp() override {
        add_interface("vlanif100", 100);
        info = rig::info_of(master(), {.ip = "10.1.1.2", .port = 3});
        clear_journal();
    }
    dpm_host_entry entry_of(const char *ip) {
        dpm_host_entry entry{};
        entry.ifindex = info.ifindex;
        entry.ip = rig::prefix_of(ip);
        entry.mac[5] = 7;
        entry.svlan = 100;
        entry.phy_port_id = 3;
        return entry;
    }
    dpm_host_info info{};
};

} // namespace

TEST_F(HostRequests, OfAllThreeKindsAddAndDeleteTheHost) {
    dpm_host_entry entry = entry_of("10.1.1.2");
    const std::function<int(std::uint32_t)> reports[] = {
        [this](std::uint32_t oper) { return dpm_api_host_pro(&info, oper); },
        [this](std::uint32_t oper) {
            info.oper = std::uint8_t(oper);
            return dpm_api_notify_ipstack_host(&info);
        },
        [&entry](std::uint32_t oper) { return dpm_api_host_msg_send(&entry, oper); },
    };
    for (const auto &report : reports) {
        EXPECT_EQ(report(DPM_OPER_ADD), 0);
        settle();
        EXPECT_EQ(hosts(master()).size(), 1u);
        EXPECT_EQ(report(DPM_OPER_DEL), 0);
        settle();
        EXPECT_TRUE(hosts(master()).empty());
        EXPECT_EQ(report(3), -1);
        EXPECT_EQ(report(0), -1);
    }
    EXPECT_EQ(logged(master(), "::unkown oper "), 6u);
    EXPECT_EQ(logged(master(), "::host_msg vrf 0 ip 10.1.1.2 mac 2.0.0.0.1.2 ifindex 900 port "
                               "3/0x3 port_type 0 \t\tcvlan 0 svlan 100 supervlan 100 "),
              2u);
    EXPECT_EQ(logged(master(), "::oper 2 host_msg vrf 0 ip 10.1.1.2 mac 2.0.0.0.1.2 ifindex 900 "
                               "port 3/0x3 \t\t port_type 0 cvlan 0 svlan 100 supervlan 100 "),
              1u);
}

TEST_F(HostRequests, WithoutARecordOrWithAnUnknownFamilyAreRefused) {
    rig::expect_all(-1,
                    {dpm_api_host_pro(nullptr, DPM_OPER_ADD), dpm_api_notify_ipstack_host(nullptr),
                     dpm_api_host_msg_send(nullptr, DPM_OPER_ADD)});
    EXPECT_EQ(logged(master(), "::the input parameter is null!"), 3u);
    dpm_host_entry entry = entry_of("10.1.1.2");
    info.oper = DPM_OPER_ADD;
    entry.ip.family = info.family = 3;
    rig::expect_all(-1, {dpm_api_host_pro(&info, DPM_OPER_ADD), dpm_api_notify_ipstack_host(&info),
                         dpm_api_host_msg_send(&entry, DPM_OPER_ADD)});
    EXPECT_EQ(logged(master(), "::iptype = 3 is err!"), 2u);
    EXPECT_EQ(logged(master(), "::iptype 3 is err!"), 1u);
    EXPECT_EQ(master().os.queued(), 0u);
    dpm_host_msg body{}; // another program posts by number
    body.ifindex = info.ifindex;
    body.ip.family = 3;
    EXPECT_EQ(dpm_host_add_msg(&body), -1);
    EXPECT_EQ(dpm_host_del_msg(&body), 0) << "there is no such host";
}

TEST_F(HostRequests, AnEntryWithAnOddPrefixLeavesChipAndTableInStep) {
    dpm_host_entry entry = entry_of("10.1.1.2/24");
    EXPECT_EQ(dpm_api_host_msg_send(&entry, DPM_OPER_ADD), 0);
    settle();
    check_laws();
    EXPECT_EQ(dpm_host_start_delete_time_test(), 0) << "asks every neighbour again";
    EXPECT_EQ(unreachables(master()).at(0).probe_cnt, 2u);
    EXPECT_EQ(hosts(master()).at(0).ip.prefix_len, 32u);
    EXPECT_EQ(dpm_api_host_msg_send(&entry, DPM_OPER_DEL), 0);
    settle();
    EXPECT_TRUE(hosts(master()).empty());
}

TEST_F(HostRequests, AreDroppedWithSuccessWhileTheConformanceTestRuns) {
    EXPECT_EQ(dpm_ipv6_ready_test_switch_open(), 0);
    EXPECT_EQ(dpm_get_ipv6_ready_test_switch_state(), 1u);
    rig::expect_all(0, {dpm_api_host_pro(&info, DPM_OPER_ADD), dpm_api_host_pro(nullptr, 77),
                        dpm_api_notify_ipstack_host(nullptr), dpm_api_host_msg_send(nullptr, 77)});
    EXPECT_EQ(master().os.queued(), 0u);
    EXPECT_EQ(dpm_host_test_add(inet_addr("10.1.1.3"), info.ifindex, 100, 0, 3, 3), 0)
        << "the test hosts are not reports";
    EXPECT_EQ(dpm_ipv6_ready_test_switch_close(), 0);
    EXPECT_EQ(dpm_get_ipv6_ready_test_switch_state(), 0u);
    settle();
    ASSERT_EQ(host_texts(master()),
              std::vector<std::string>{"10.1.1.3 00:01:02:03:04:05 vlanif100 vlan 100 port 3"});
    EXPECT_EQ(dpm_host_test_del(inet_addr("10.1.1.3"), info.ifindex, 100, 0, 3, 3), 0);
    settle();
    EXPECT_TRUE(hosts(master()).empty());
}

TEST_F(HostRequests, LinkEventsBecomeMessagesForPortsAndTrunksInRange) {
    learn_host({.ip = "10.1.1.2", .port = 5});
    learn_host({.ip = "10.1.1.3", .trunk = 5});
    const auto posts = [this](std::uint32_t port, std::uint32_t state) {
        EXPECT_EQ(dpm_port_link_func(port, state), 0);
        const std::size_t queued = master().os.queued();
        settle();
        return queued;
    };
    EXPECT_EQ(posts(95, 0), 1u);
    ASSERT_EQ(holds(master()).size(), 1u);
    EXPECT_EQ(rig::text_of(holds(master())[0].ip), "10.1.1.3");
    EXPECT_EQ(posts(95, 1), 1u);
    EXPECT_EQ(master().stack.probes().size(), 1u);
    EXPECT_EQ(posts(5, 0), 1u);
    EXPECT_EQ(holds(master()).size(), 2u);
    EXPECT_EQ(posts(5, 1), 1u);
    for (const std::uint32_t port : {1u, 64u, 91u, 106u})
        EXPECT_EQ(posts(port, 1), 1u) << port;
    for (const std::uint32_t port : {0u, 65u, 90u, 107u, ~0u})
        EXPECT_EQ(posts(port, 0), 0u) << port;
    EXPECT_EQ(posts(5, 2), 0u);
    EXPECT_EQ(posts(95, 2), 0u);
}

TEST_F(HostRequests, ReadTheStacksNeighbourEntries) {
    learn_host({.ip = "10.1.1.2", .port = 3});
    learn_host({.ip = "2001:db8::2", .port = 4});
    std::uint8_t mac[6] = {};
    std::uint16_t first = 0, second = 0;
    std::uint32_t third = 77;
    const std::uint32_t address = 0x0A010102; // host order
    EXPECT_EQ(dpm_get_arp_info_by_vrf_ip(0, address, mac, &first, &second), 0);
    EXPECT_EQ(mac[4], 1u);
    EXPECT_EQ(mac[5], 2u);
    EXPECT_EQ(first, 100u);
    EXPECT_EQ(second, 3u);
    EXPECT_EQ(dpm_get_arp_info_by_vrf_ip(1, address, mac, &first, &second), -1) << "another VRF";
    EXPECT_EQ(dpm_get_arp_info_by_vrf_ip(0, address, nullptr, &first, &second), -1);

    const dpm_prefix ip = rig::prefix_of("2001:db8::2");
    EXPECT_EQ(dpm_get_ndp_entry_by_ip(ip.address, mac, info.ifindex, &first, &second, &third), 0);
    EXPECT_EQ(mac[5], 2u);
    EXPECT_EQ(second, 4u);
    EXPECT_EQ(third, 0u);
    EXPECT_EQ(dpm_get_ndp_entry_by_ip(ip.address, mac, 4711, &first, &second, &third), -1);
    EXPECT_EQ(dpm_get_ndp_entry_by_ip(nullptr, mac, 1, &first, &second, &third), -1);
    master().stack.fail_next(1, 5);
    EXPECT_EQ(dpm_get_ndp_entry_by_ip(ip.address, mac, info.ifindex, &first, &second, &third), -1);
}
