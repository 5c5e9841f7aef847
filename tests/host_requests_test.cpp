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
        entry.ifindex = info.ifindex;
        entry.ip = rig::prefix_of("10.1.1.2/24"); // an odd prefix: it is a host all the same
        entry.mac[5] = 7;
        entry.svlan = 100;
        entry.phy_port_id = 3;
        clear_journal();
    }
    // The request of each kind.
    std::vector<int> report(std::uint32_t oper) {
        info.oper = std::uint8_t(oper);
        return {dpm_api_host_pro(&info, oper), dpm_api_notify_ipstack_host(&info),
                dpm_api_host_msg_send(&entry, oper)};
    }
    static std::vector<int> report_null(std::uint32_t oper) {
        return {dpm_api_host_pro(nullptr, oper), dpm_api_notify_ipstack_host(nullptr),
                dpm_api_host_msg_send(nullptr, oper)};
    }
    dpm_host_info info{};
    dpm_host_entry entry{};
};

using Answers = std::vector<int>;
const Answers refused(3, -1), taken(3, 0);

} // namespace

TEST_F(HostRequests, OfAllThreeKindsAddAndDeleteTheHost) {
    const std::function<int(std::uint32_t)> kinds[] = {
        [this](std::uint32_t oper) { return dpm_api_host_pro(&info, oper); },
        [this](std::uint32_t oper) {
            info.oper = std::uint8_t(oper);
            return dpm_api_notify_ipstack_host(&info);
        },
        [this](std::uint32_t oper) { return dpm_api_host_msg_send(&entry, oper); },
    };
    for (const auto &request : kinds)
        for (const std::uint32_t oper : {DPM_OPER_ADD, DPM_OPER_DEL}) {
            EXPECT_EQ(request(oper), 0);
            settle();
            check_laws();
            EXPECT_EQ(hosts(master()).size(), oper == DPM_OPER_ADD ? 1u : 0u);
        }
    EXPECT_EQ(logged(master(), "::host_msg vrf 0 ip 10.1.1.2 mac 2.0.0.0.1.2 ifindex 900 port "
                               "3/0x3 port_type 0 \t\tcvlan 0 svlan 100 supervlan 100 "),
              2u);
}

TEST_F(HostRequests, WithoutARecordOperationOrFamilyAreRefused) {
    EXPECT_EQ(report(3), refused);
    EXPECT_EQ(report(0), refused);
    EXPECT_EQ(logged(master(), "::unkown oper "), 6u);
    EXPECT_EQ(report_null(DPM_OPER_ADD), refused);
    EXPECT_EQ(logged(master(), "::the input parameter is null!"), 3u);
    entry.ip.family = info.family = 3;
    EXPECT_EQ(report(DPM_OPER_ADD), refused);
    EXPECT_EQ(logged(master(), "::iptype = 3 is err!"), 2u);
    EXPECT_EQ(logged(master(), "::iptype 3 is err!"), 1u);
    EXPECT_EQ(master().os.queued(), 0u);
    dpm_host_msg body{}; // another program posts by number
    body.ifindex = info.ifindex;
    body.ip.family = 3;
    EXPECT_EQ(dpm_host_add_msg(&body), -1);
    EXPECT_EQ(dpm_host_del_msg(&body), 0) << "there is no such host";
}

TEST_F(HostRequests, AskEveryNeighbourAgain) {
    EXPECT_EQ(dpm_api_host_msg_send(&entry, DPM_OPER_ADD), 0);
    settle();
    EXPECT_EQ(dpm_host_start_delete_time_test(), 0);
    EXPECT_EQ(unreachables(master()).at(0).probe_cnt, 2u);
    EXPECT_EQ(hosts(master()).at(0).ip.prefix_len, 32u);
}

TEST_F(HostRequests, AreDroppedWithSuccessWhileTheConformanceTestRuns) {
    EXPECT_EQ(dpm_ipv6_ready_test_switch_open(), 0);
    EXPECT_EQ(dpm_get_ipv6_ready_test_switch_state(), 1u);
    EXPECT_EQ(report(DPM_OPER_ADD), taken);
    EXPECT_EQ(report_null(77), taken);
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
    const struct {
        std::uint32_t port, state, posts;
        std::size_t holds; // behind it
    } events[] = {{95, 0, 1, 1}, {95, 1, 1, 1},  {5, 0, 1, 2},   {5, 1, 1, 2}, {1, 1, 1, 2},
                  {64, 1, 1, 2}, {91, 1, 1, 2},  {106, 1, 1, 2}, {0, 0, 0, 2}, {65, 0, 0, 2},
                  {90, 0, 0, 2}, {107, 0, 0, 2}, {~0u, 0, 0, 2}, {5, 2, 0, 2}, {95, 2, 0, 2}};
    for (const auto &[port, state, posts, held] : events) {
        EXPECT_EQ(dpm_port_link_func(port, state), 0);
        EXPECT_EQ(master().os.queued(), posts) << port;
        settle();
        ASSERT_EQ(holds(master()).size(), held) << port;
        if (held == 1) {
            EXPECT_EQ(rig::text_of(holds(master())[0].ip), "10.1.1.3");
        }
    }
}

TEST_F(HostRequests, ReadTheStacksNeighbourEntries) {
    learn_host({.ip = "10.1.1.2", .port = 3});
    learn_host({.ip = "2001:db8::2", .port = 4});
    std::array<std::uint8_t, 6> mac{};
    std::uint16_t first = 0, second = 0;
    std::uint32_t third = 77;
    const auto arp = [&](std::uint32_t vrf, std::uint8_t *out) { // an address in host order
        return dpm_get_arp_info_by_vrf_ip(vrf, 0x0A010102, out, &first, &second);
    };
    EXPECT_EQ(arp(0, mac.data()), 0);
    EXPECT_EQ(mac, rig::mac_of("02:00:00:00:01:02"));
    EXPECT_EQ(std::pair(first, second), std::pair(std::uint16_t(100), std::uint16_t(3)));
    EXPECT_EQ(arp(1, mac.data()), -1) << "another VRF";
    EXPECT_EQ(arp(0, nullptr), -1);

    const dpm_prefix ip = rig::prefix_of("2001:db8::2");
    const auto ndp = [&](const std::uint8_t *address, std::uint32_t ifindex) {
        return dpm_get_ndp_entry_by_ip(address, mac.data(), ifindex, &first, &second, &third);
    };
    mac = {};
    EXPECT_EQ(ndp(ip.address, info.ifindex), 0);
    EXPECT_EQ(mac, rig::mac_of("02:00:00:00:01:02"));
    EXPECT_EQ(second, 4u);
    EXPECT_EQ(third, 0u);
    EXPECT_EQ(ndp(ip.address, 4711), -1);
    EXPECT_EQ(ndp(nullptr, 1), -1);
    master().stack.fail_next(1, 5);
    EXPECT_EQ(ndp(ip.address, info.ifindex), -1);
}
