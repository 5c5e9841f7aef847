// Every receiver of the exported list, in both roles: what holds no record, what is hostile, and
// what these and the other posters leave behind when memory or the queue gives out.

#include "dpm_api.h"
#include "dpm_bridge.h"
#include "dpm_events.h"
#include "dpm_host.h"
#include "dpm_main.h"
#include "support/shelf.h"

#include <functional>

namespace {

using chassis::os::Fault;
using Bytes = std::vector<std::uint8_t>;

enum Kind { ENTRY, TABLE, CARD, SIGNAL };

struct Receiver {
    const char *name;
    int (*receive)(const void *buffer, std::uint32_t length_bytes);
    std::uint32_t bytes;
    Kind kind;
    bool is_for(bool master) const {
        return (receive == dpm_slave_up_pro_over_peercard_callback) == master;
    }
};

#define RECEIVER(name, record, kind) {#name, name, sizeof(record), kind},
constexpr Receiver receivers[] = {DPM_RECEIVERS(RECEIVER)};

class Receivers : public rig::JoinedShelf {
protected:
    // What a receiver answers to a length of zeros.
    int answer(const Receiver &receiver, std::uint32_t length) {
        return receiver.receive(Bytes(std::min(length, 300'000u)).data(), length);
    }
};

} // namespace

TEST_F(Receivers, RefuseWhatHoldsNoRecord) {
    const auto scope = as(standby());
    for (const Receiver &receiver : receivers) {
        SCOPED_TRACE(receiver.name);
        if (receiver.kind == SIGNAL)
            continue;
        const std::uint32_t size = receiver.bytes;
        clear_journal();
        for (const std::uint32_t length : {0u, 1u << 31, ~0u})
            EXPECT_EQ(answer(receiver, length), -1) << length;
        EXPECT_EQ(receiver.receive(nullptr, size), -1);
        EXPECT_EQ(log(standby()).size(), 4u);
        const bool takes_parts = receiver.kind == TABLE; // a part of a record is passed over
        EXPECT_EQ(answer(receiver, size - 1), takes_parts ? 0 : -1);
        EXPECT_EQ(standby().os.queued(), 0u);
        EXPECT_EQ(answer(receiver, size + 1), takes_parts ? 0 : -1);
        EXPECT_EQ(answer(receiver, 250 * size), takes_parts ? 0 : -1) << "more than a batch";
        EXPECT_EQ(standby().os.queued(), takes_parts ? 251u : 0u);
        settle();
    }
}

TEST_F(Receivers, OfTheOtherRoleDropWhatArrives) {
    for (rig::Card *const card : cards())
        for (const Receiver &receiver : receivers) {
            SCOPED_TRACE(receiver.name);
            const bool is_master = card == &master();
            if (receiver.is_for(is_master))
                continue;
            const auto scope = as(*card);
            clear_journal();
            const bool is_setting = receiver.receive == dpm_api_set_unknown_ipmc_to_cpu_slave;
            EXPECT_EQ(answer(receiver, receiver.bytes), is_setting ? -1 : 0);
            EXPECT_EQ(logged(*card, "::it is slave"), receiver.kind == TABLE ? 0u : 1u);
            EXPECT_EQ(card->os.queued(), 0u);
        }
}

TEST_F(Receivers, AndPostersLeaveNoBlockBehindWhenMemoryOrTheQueueGivesOut) {
    allow().standby_differs = true;
    const auto scope = as(standby());
    const std::uint8_t ip[16] = {10, 1, 1, 1};
    dpm_host_info info = rig::info_of(standby(), {});
    dpm_host_entry host{};
    host.ip = rig::prefix_of("10.1.1.2");
    constexpr bool needs_none = false;
    struct Poster {
        const char *name;
        std::function<int()> post;
        bool needs_block = true;
    };
    std::vector<Poster> posters{
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
    for (const Receiver &receiver : receivers)
        if (receiver.kind != CARD && receiver.is_for(false))
            posters.insert(posters.begin(),
                           {receiver.name, [&] { return answer(receiver, receiver.bytes); },
                            receiver.kind != SIGNAL});
    auto &os = standby().os;
    for (const auto &[name, post, needs_block] : posters) {
        SCOPED_TRACE(name);
        const std::size_t blocks = os.live_blocks();
        os.fail(Fault::allocation, 1);
        EXPECT_EQ(post(), needs_block ? -1 : 0);
        os.fail(Fault::allocation, 0);
        EXPECT_EQ(os.queued(), needs_block ? 0u : 1u);
        settle();
        clear_journal();
        os.fail(Fault::send, 1, 4);
        EXPECT_EQ(post(), -1);
        EXPECT_EQ(os.queued(), 0u);
        EXPECT_EQ(os.live_blocks(), blocks);
        EXPECT_EQ(logged(standby(), "msg err!") + logged(standby(), "msg is err!") +
                      logged(standby(), "msg send err!"),
                  1u);
    }
}

// A record of words, whatever they mean in it: what the adds took in, the deletes take out.
TEST_F(Receivers, TakeHostileRecordsInAndOut) {
    allow().standby_differs = true;
    const auto scope = as(standby());
    const auto deliver = [this](const Bytes &bytes, bool deletes) {
        for (const Receiver &receiver : receivers) {
            if (receiver.kind != ENTRY && receiver.kind != TABLE)
                continue;
            const std::string_view name = receiver.name;
            if (deletes == (name.find("_del") != name.npos || name.ends_with("destroy"))) {
                EXPECT_EQ(receiver.receive(bytes.data(), receiver.bytes), 0) << receiver.name;
            }
        }
        settle();
    };
    std::size_t blocks = 0;
    for (int round = 0; round < 2; ++round) {
        blocks = standby().os.live_blocks(); // the first round makes what tables keep for good
        for (const unsigned word : {0u, 1u, 2u, 0x10001u, 0x20002u, ~0u}) {
            SCOPED_TRACE(word);
            Bytes bytes(900);
            for (std::size_t at = 0; at < bytes.size(); ++at)
                bytes[at] = std::uint8_t(word >> at % 4 * 8);
            deliver(bytes, false);
            EXPECT_GT(standby().os.live_blocks(), blocks);
            deliver(bytes, true);
        }
    }
    EXPECT_EQ(standby().os.live_blocks(), blocks);
}
