// Posting and dispatch: what is dropped, what is tried again, and what rests.

#include "dpm.h"
#include "dpm_host.h"
#include "dpm_main.h"
#include "dpm_msg.h"
#include "support/rows.h"

namespace {

using chassis::os::Fault;

class Messages : public rig::LoneShelf {
protected:
    using Answer = std::pair<int, std::uint64_t>; // and how many ticks it took
    Answer post(std::uint32_t type, const void *block = nullptr) {
        const std::uint64_t before = master().os.delays();
        const dpm_msg msg{type, 0, std::uint32_t(reinterpret_cast<std::uintptr_t>(block)), 0};
        const int result = dpm_msg_send(&msg);
        return {result, master().os.delays() - before};
    }
};

} // namespace

TEST_F(Messages, OfUnknownTypesOrWithoutABlockAreDroppedInSilence) {
    const int block = 0; // what is unknown leaves it alone
    for (const std::uint32_t type : {0u, 12u, 15u, 18u, 23u, 34u, 39u, 75u, 112u, 200u, ~0u})
        EXPECT_EQ(post(type, &block).first, 0);
    for (const auto type : {DPM_MSG_ADD_IF, DPM_MSG_DEL_IF_IP, DPM_MSG_SUPER_ADD_SUB,
                            DPM_MSG_ADD_HOST, DPM_MSG_DEL_HOST, DPM_MSG_SYNC_ADD_HOST,
                            DPM_MSG_SYNC_DEL_NEXTHOP, DPM_MSG_TRUNK_MEMBER_CHANGE})
        EXPECT_EQ(post(type).first, 0);
    settle();
    EXPECT_TRUE(log(master()).empty());
    EXPECT_EQ(run("if add vlanif100").text, "");
    EXPECT_EQ(interfaces(master()).size(), 1u) << "the next message is handled";
}

TEST_F(Messages, AreTriedFourTimesATickApart) {
    fail(Fault::send, 1, 3);
    EXPECT_EQ(post(200), Answer(0, 3)) << "the fourth try gets through";
    fail(Fault::send, 1, 5);
    EXPECT_EQ(post(200), Answer(-1, 4));
    EXPECT_EQ(post(200), Answer(0, 1)) << "the fifth try failed here";
    master().os.limit_queue(3);
    EXPECT_EQ(post(200), Answer(0, 0));
    EXPECT_EQ(post(200), Answer(-1, 4));
    const dpm_msg msg{200, 0, 0, 0};
    const std::uint64_t before = master().os.delays();
    EXPECT_EQ(dpm_msg_send_direct(&msg), -1);
    EXPECT_EQ(master().os.delays(), before) << "one try";
}

TEST_F(Messages, RestATickAfterEvery256thThatWasSent) {
    unsigned first = 0;
    for (unsigned sent = 1; sent <= 1024; ++sent) {
        const bool rests = post(200).second == 1;
        first = rests && !first ? sent : first;
        EXPECT_EQ(rests, first && (sent - first) % 256 == 0) << sent;
    }
    EXPECT_GT(first, 0u);
}

TEST_F(Messages, DoNotKeepTimersFromRunning) {
    const dpm_prefix ip = rig::prefix_of("10.1.1.77");
    EXPECT_EQ(dpm_host_unreachable_add(0, 1, &ip, 100), 0);
    master().os.advance(30 * chassis::os::nsec_per_sec);
    post(200);
    dpm_task_pass();
    EXPECT_EQ(master().stack.probes().size(), 2u) << "in the pass that handled a message";
}

ROWS(Proxy, ItsMessagesReachTheHostProcessOnTheWorker, rig::once("platform log")){
    {"call dpm_api_proxy_arp_packet_send packet 6", "proxy packet; = 0"},
    {"call dpm_api_proxy_arp_timer_send", "= 0"},
    {"call dpm_api_proxy_arp_packet_send 0 4",
     "log10 dpm_api_proxy_arp_packet_send #::the input parameter is null!\r\n; = -1"},
    {"fault alloc 1"},
    {"call dpm_api_proxy_arp_packet_send packet 6", "= -1"},
    {"call dpm_api_proxy_arp_slave_sync packet 6", "= 0"}, // nothing on the master
    {"role standby"},
    {"call dpm_api_proxy_arp_slave_sync 0 4",
     "log10 dpm_api_proxy_arp_slave_sync #::the input parameter is null!\r\n; = -1"},
    {"call dpm_api_proxy_arp_slave_sync packet 6", "proxy data; = 0"},
};
