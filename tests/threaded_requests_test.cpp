// The library under real threads: the worker on its own task, many posters with the pacing, readers
// under the DPM lock, and the callbacks that wait.

#include "dpm.h"
#include "dpm_avltree.h"
#include "dpm_bridge.h"
#include "dpm_host.h"
#include "dpm_nexthop.h"
#include "support/shelf.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;
using chassis::os::nsec_per_sec;

constexpr unsigned posters = 8, posts = 4000, hosts_of_a_poster = 16;

// What the worker handled, by poster; written on the worker alone.
struct Arrivals {
    std::atomic<unsigned> total;
    std::atomic<unsigned> out_of_order;
    unsigned last[posters];
};
Arrivals arrivals;

// A poster writes its number and a sequence number into the MAC of what it reports.
int note_arrival(const dpm_host_entry *host, std::uint32_t event) {
    if (event != DPM_HOST_ADDED)
        return 0;
    const unsigned poster = host->mac[1], sequence = host->mac[4] * 256u + host->mac[5];
    arrivals.out_of_order += sequence != ++arrivals.last[poster];
    ++arrivals.total;
    return 0;
}

class ThreadedRequests : public ::testing::Test {
protected:
    void SetUp() override {
        card.os.log_to([this](const chassis::os::LogLine &line) {
            confirmed += line.text.ends_with("::it is master, slave up process over!");
        });
        ASSERT_EQ(card.start(), 0);
        card.peer.set_role(chassis::peer::Role::master);
        ASSERT_EQ(card.suite.add_interface("vlanif100", DPM_IF_VLANIF, 100), 0);
        ASSERT_TRUE(eventually([] { return dpm_api_get_if_entry_first() != nullptr; }));
    }

    // Looks under the DPM lock until the condition holds, at most 20 seconds.
    static bool eventually(const std::function<bool()> &condition) {
        for (unsigned round = 0; round < 4000; ++round) {
            norix_dpm_sem_take();
            const bool holds = condition();
            norix_dpm_sem_give();
            if (holds)
                return true;
            std::this_thread::sleep_for(5ms);
        }
        return false;
    }

    void post_all(unsigned poster) {
        for (unsigned sequence = 1; sequence <= posts; ++sequence) {
            const bool ipv4 = sequence % 2;
            const std::string ip = (ipv4 ? "10.1." : "2001:db8::") + std::to_string(poster) +
                                   (ipv4 ? "." : ":") +
                                   std::to_string(sequence % hosts_of_a_poster + 1);
            dpm_host_info info = rig::info_of(card, {.ip = ip, .port = poster});
            info.mac[1] = std::uint8_t(poster);
            info.mac[4] = std::uint8_t(sequence >> 8);
            info.mac[5] = std::uint8_t(sequence);
            refused += dpm_api_host_pro(&info, DPM_OPER_ADD) != 0;
        }
    }

    // Between two steps of the worker, each host has its reference and the trees are in order.
    void read_until_done() {
        while (!done) {
            norix_dpm_sem_take();
            unsigned references = 0;
            for (auto *entry = dpm_api_get_nexthop_entry_first(); entry;
                 entry = dpm_api_get_nexthop_entry_next(entry))
                references += entry->cnt;
            const unsigned hosts = dpm::ipv4_hosts().count() + dpm::ipv6_hosts().count();
            torn_reads += references != hosts;
            for (const std::uint32_t family : {1u, 2u})
                for (auto *at = dpm_api_get_host_entry_first(family); at;) {
                    const auto *const next = dpm_api_get_host_entry_next(at);
                    torn_reads += next && dpm_host_ipv6_compare(*at, *next) >= 0;
                    at = next;
                }
            norix_dpm_sem_give();
            ++reads;
            std::this_thread::yield();
        }
    }

    chassis::Card card{{.slot = 9, .mode = chassis::os::Mode::threaded, .mac = {2, 0, 0, 0, 0, 9}}};
    std::atomic<unsigned> refused{0}, torn_reads{0}, reads{0}, confirmed{0};
    std::atomic<bool> done{false};
};

} // namespace

TEST_F(ThreadedRequests, EveryPostArrivesInItsThreadsOrderWhileOthersRead) {
    card.os.log_level(100);
    std::fill(std::begin(arrivals.last), std::end(arrivals.last), 0);
    arrivals.total = arrivals.out_of_order = 0;
    norix_dpm_sem_take();
    dpm_host_notify_register(note_arrival);
    norix_dpm_sem_give();
    const std::uint64_t delays_before = card.os.delays();

    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 2; ++i)
        threads.emplace_back([this] { read_until_done(); });
    for (unsigned poster = 0; poster < posters; ++poster)
        threads.emplace_back([this, poster] { post_all(poster); });
    EXPECT_TRUE(eventually([] { return arrivals.total == posters * posts; })) << arrivals.total;
    done = true;
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(refused, 0u);
    EXPECT_EQ(arrivals.out_of_order, 0u);
    EXPECT_EQ(torn_reads, 0u);
    EXPECT_GT(reads, 0u);
    // Posters lose counts to one another; the rests stay in the order of one in 256.
    EXPECT_GT(card.os.delays() - delays_before, posters * posts / 256 / 2);
    EXPECT_EQ(dpm::ipv4_hosts().count() + dpm::ipv6_hosts().count(), posters * hosts_of_a_poster);
    EXPECT_EQ(card.chip.mistakes(), 0u);
}

TEST_F(ThreadedRequests, TimersRunWithinASecondWithoutAnyMessage) {
    const dpm_prefix ip = rig::prefix_of("10.1.1.2");
    norix_dpm_sem_take();
    EXPECT_EQ(dpm_host_unreachable_add(0, 900, &ip, 100), 0);
    norix_dpm_sem_give();
    EXPECT_EQ(card.stack.probes().size(), 1u);
    card.stack.declare_reachable(rig::info_of(card, {})); // answers on a thread of the stack's own
    card.os.advance(29 * nsec_per_sec);
    EXPECT_TRUE(eventually([] { return dpm::ipv4_hosts().count() == 1; }));
    EXPECT_EQ(card.stack.probes().size(), 2u);
}

TEST_F(ThreadedRequests, TheConnectedCallbackWaitsForTheStandbysConfirmation) {
    std::thread service([] { EXPECT_EQ(dpm_bridge_slave_up(), 0); });
    EXPECT_TRUE(eventually([this] { return dpm_get_slave_up() == 1; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(confirmed, 0u);
    EXPECT_EQ(dpm_slave_up_pro_over_peercard_callback(nullptr, 0), 0);
    service.join();
    EXPECT_EQ(confirmed, 1u);
}

TEST_F(ThreadedRequests, AHolderOfTheLockMayCallTheQueriesThatTakeIt) {
    norix_dpm_sem_take();
    norix_dpm_sem_take();
    EXPECT_EQ(dpm_api_get_vrf_by_vlan(100), 0u);
    EXPECT_EQ(dpm_api_is_supervlan_by_vlanid(100), -1);
    norix_dpm_sem_give();
    norix_dpm_sem_give();
    for (const auto &[take, give] : {std::pair(&norix_nsm_sem_take, &norix_nsm_sem_give),
                                     {&norix_bfd_sem_take, &norix_bfd_sem_give}}) {
        take();
        const auto other = std::async(std::launch::async, [take, give] { take(), give(); });
        EXPECT_EQ(other.wait_for(20ms), std::future_status::timeout);
        give();
    }
    EXPECT_EQ(card.os.handle_errors(), 0u);
}
