// Posting and dispatch: what is dropped, what is tried again, what rests, and that nothing is lost
// on the way when memory or the queue gives out.

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_events.h"
#include "dpm_host.h"
#include "dpm_main.h"
#include "dpm_msg.h"
#include "support/shelf.h"

#include <functional>

namespace {

using chassis::os::Fault;

class Messages : public rig::LoneShelf {
protected:
    void SetUp() override { add_interface("vlanif100", 100); }
    int post(std::uint32_t type, std::uint32_t data = 0) {
        const dpm_msg msg{type, 0, data, 0};
        return dpm_msg_send(&msg);
    }
    std::uint64_t delays_of(const std::function<void()> &deed) {
        const std::uint64_t before = master().os.delays();
        deed();
        return master().os.delays() - before;
    }
};

class Posters : public rig::JoinedShelf {};

} // namespace

TEST_F(Messages, OfUnknownTypesOrWithoutABlockAreDroppedInSilence) {
    int block = 0; // what is unknown leaves it alone
    clear_journal();
    for (const std::uint32_t type : {0u, 12u, 15u, 18u, 23u, 34u, 39u, 75u, 111u, 112u, 200u, ~0u})
        EXPECT_EQ(post(type, std::uint32_t(reinterpret_cast<std::uintptr_t>(&block))), 0);
    for (const auto type : {DPM_MSG_ADD_IF, DPM_MSG_DEL_IF_IP, DPM_MSG_SUPER_ADD_SUB,
                            DPM_MSG_ADD_HOST, DPM_MSG_DEL_HOST, DPM_MSG_SYNC_ADD_HOST,
                            DPM_MSG_SYNC_DEL_NEXTHOP, DPM_MSG_TRUNK_MEMBER_CHANGE})
        EXPECT_EQ(post(type), 0);
    settle();
    EXPECT_TRUE(log(master()).empty());
    EXPECT_EQ(learn_host({}), 0);
    EXPECT_EQ(hosts(master()).size(), 1u) << "the next message is handled";
}

TEST_F(Messages, AreTriedFourTimesATickApart) {
    const auto post_one = [this](int wanted) { EXPECT_EQ(post(200), wanted); };
    fail(Fault::send, 1, 3);
    EXPECT_EQ(delays_of([&] { post_one(0); }), 3u) << "the fourth try gets through";
    fail(Fault::send, 1, 5);
    EXPECT_EQ(delays_of([&] { post_one(-1); }), 4u);
    EXPECT_EQ(delays_of([&] { post_one(0); }), 1u) << "the fifth try failed here";
    settle();
    master().os.limit_queue(1);
    hold(true);
    EXPECT_EQ(learn_host({}), 0);
    EXPECT_EQ(delays_of([this] { EXPECT_EQ(learn_host({.ip = "10.1.1.3"}), -1); }), 4u);
    EXPECT_EQ(logged(master(), "::send msg err!"), 1u);
    const dpm_msg msg{200, 0, 0, 0};
    EXPECT_EQ(delays_of([&] { EXPECT_EQ(dpm_msg_send_direct(&msg), -1); }), 0u) << "one try";
    master().os.limit_queue(0);
    settle();
    EXPECT_EQ(hosts(master()).size(), 1u);
}

TEST_F(Messages, RestATickAfterEvery256thThatWasSent) {
    unsigned first = 0;
    for (unsigned sent = 1; sent <= 1024; ++sent) {
        const bool rests = delays_of([this] { post(200); }) == 1;
        if (rests && !first)
            first = sent;
        EXPECT_EQ(rests, first && (sent - first) % 256 == 0) << sent;
    }
    EXPECT_GT(first, 0u);
}

TEST_F(Messages, TimersRunWhetherMessagesComeOrNot) {
    const dpm_prefix ip = rig::prefix_of("10.1.1.77");
    const auto probe = [this, &ip] {
        return dpm_host_unreachable_add(0, 1, &ip, 100) == 0 ? master().stack.probes().size() : 0;
    };
    EXPECT_EQ(probe(), 1u);
    advance(30);
    EXPECT_EQ(probe(), 2u);
    master().os.advance(30 * chassis::os::nsec_per_sec);
    post(200);
    dpm_task_pass();
    EXPECT_EQ(probe(), 3u) << "in the pass that handled a message";
}

TEST_F(Messages, OfTheProxyReachTheHostProcessOnTheWorker) {
    const char packet[100] = "packet";
    EXPECT_EQ(dpm_api_proxy_arp_packet_send(packet, sizeof packet), 0);
    EXPECT_EQ(dpm_api_proxy_arp_timer_send(), 0);
    EXPECT_EQ(dpm_api_proxy_arp_slave_sync(packet, sizeof packet), 0) << "nothing on the master";
    EXPECT_EQ(master().os.queued(), 2u);
    EXPECT_EQ(dpm_api_proxy_arp_packet_send(nullptr, 4), -1);
    fail(Fault::allocation);
    EXPECT_EQ(dpm_api_proxy_arp_packet_send(packet, sizeof packet), -1);
    settle();
    EXPECT_EQ(master().suite.proxy_counts().packets, 1u);
    EXPECT_EQ(master().suite.proxy_counts().ticks, 1u);
    master().peer.set_role(chassis::peer::Role::standby);
    EXPECT_EQ(dpm_api_proxy_arp_slave_sync(nullptr, 4), -1);
    EXPECT_EQ(dpm_api_proxy_arp_slave_sync(packet, sizeof packet), 0);
    settle();
    EXPECT_EQ(master().suite.proxy_counts().syncs, 1u);
}

// Every poster of the library: what it answers without memory, and that a refused post leaves
// nothing behind.
TEST_F(Posters, LeaveNoBlockBehindWhenMemoryOrTheQueueGivesOut) {
    const auto scope = as(standby());
    const std::uint8_t ip[16] = {10, 1, 1, 1};
    dpm_host_info info = rig::info_of(standby(), {});
    dpm_host_entry host{};
    host.ip = rig::prefix_of("10.1.1.2");
    enum Memory { needs_block, needs_none };
    struct Poster {
        const char *name;
        std::function<int()> post;
        Memory memory = needs_block;
    };
    const Poster posters[] = {
        {"interface", [] { return dpm_api_set_if_proc("vlanif7", 0, 7, 7, 1); }},
        {"address", [&] { return dpm_api_set_if_ip_proc(0, 7, 1, ip, 24, 1); }},
        {"interface vrf", [] { return dpm_api_set_if_vrf_proc(7, 3); }},
        {"sub-VLAN", [] { return dpm_api_super_sub_proc(7, 8, 1); }},
        {"trunk member", [this] { return standby().hal.trunk_member(0, 1, 3, 1); }},
        {"host", [&] { return dpm_api_host_pro(&info, 1); }},
        {"stack's host", [&] { return dpm_api_notify_ipstack_host(&info); }},
        {"host entry", [&] { return dpm_api_host_msg_send(&host, 2); }},
        {"test host", [] { return dpm_host_test_add(0x101010a, 7, 7, 0, 3, 3); }},
        {"test host gone", [] { return dpm_host_test_del(0x101010a, 7, 7, 0, 3, 3); }},
        {"proxy packet", [&] { return dpm_api_proxy_arp_packet_send(ip, 4); }},
        {"proxy tick", [] { return dpm_api_proxy_arp_timer_send(); }, needs_none},
        {"proxy data", [&] { return dpm_api_proxy_arp_slave_sync(ip, 4); }},
        {"port down", [] { return dpm_port_down_func(3); }, needs_none},
        {"port up", [] { return dpm_port_up_func(3); }, needs_none},
        {"trunk down", [] { return dpm_trunk_down_func(3); }, needs_none},
        {"trunk up", [] { return dpm_trunk_up_func(3); }, needs_none},
        {"to master", [] { return dpm_bridge_slave_to_master(); }, needs_none},
    };
    auto &os = standby().os;
    for (const Poster &poster : posters) {
        SCOPED_TRACE(poster.name);
        const std::size_t blocks = os.live_blocks();
        os.fail(Fault::allocation, 1);
        EXPECT_EQ(poster.post(), poster.memory == needs_block ? -1 : 0);
        os.fail(Fault::allocation, 0);
        EXPECT_EQ(os.queued(), poster.memory == needs_block ? 0u : 1u);
        settle();
        clear_journal();
        os.fail(Fault::send, 1, 4);
        EXPECT_EQ(poster.post(), -1);
        EXPECT_EQ(os.queued(), 0u);
        EXPECT_EQ(os.live_blocks(), blocks);
        EXPECT_EQ(logged(standby(), "msg err!") + logged(standby(), "msg is err!") +
                      logged(standby(), "msg send err!"),
                  1u);
        EXPECT_EQ(poster.post(), 0);
        settle();
    }
}
