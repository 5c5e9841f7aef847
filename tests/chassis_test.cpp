// The chassis itself, where a fault in it would hide a fault of the product: the clock, the faults
// on demand, the queue's order, the heap's accounts, what the peer may call, and the link between
// two real processes.

#include "chassis/chassis.h"
#include "chassis/os/state.h"
#include "chassis/peer/frame.h"
#include "platform/bep.h"
#include "platform/hss.h"
#include "platform/ipcomx.h"
#include "platform/rqzt.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace chassis;
using namespace std::chrono_literals;

#define HERE __FILE__, __LINE__

namespace {

std::vector<std::vector<std::uint8_t>> received; // by the receiver below
std::atomic<unsigned> received_count;

std::int64_t monotonic_nsec() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * os::nsec_per_sec + now.tv_nsec;
}

std::span<const std::byte> bytes_of(const std::vector<std::uint8_t> &payload) {
    return std::as_bytes(std::span(payload));
}

// Waits in real time, whatever a card's clock says.
bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds limit = 10s) {
    const std::int64_t deadline = os::raw_nsec() + limit.count() * 1'000'000;
    while (!condition()) {
        if (os::raw_nsec() > deadline)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

} // namespace

// A receiver of this program: its name follows the pattern of those that a peer may call.
extern "C" __attribute__((visibility("default"))) int dpm_test_sync_receive(const void *buffer,
                                                                            uint32_t length) {
    const auto *const bytes = static_cast<const uint8_t *>(buffer);
    received.emplace_back(bytes, bytes + length);
    ++received_count;
    return 0;
}

TEST(Os, advancing_a_threaded_clock_wakes_a_waiting_receiver) {
    Card card({.slot = 9, .mode = os::Mode::threaded});
    const bep_msgq queue = bep_msgQCreateEx(4, 16, 0, HERE);
    const std::int64_t began = os::raw_nsec();
    std::thread mover([&card] {
        std::this_thread::sleep_for(50ms);
        card.os.advance(3600 * os::nsec_per_sec);
    });
    char buffer[16];
    EXPECT_EQ(bep_msgQReceiveEx(queue, buffer, sizeof buffer, 60'000, HERE), -1);
    EXPECT_LT(os::raw_nsec() - began, 30 * os::nsec_per_sec);
    EXPECT_GE(monotonic_nsec() - began, 3600 * os::nsec_per_sec);
    mover.join();
    const std::int64_t waited = os::raw_nsec();
    EXPECT_EQ(bep_msgQReceiveEx(queue, buffer, sizeof buffer, 20, HERE), -1);
    EXPECT_GE(os::raw_nsec() - waited, 20 * os::nsec_per_tick);
}

TEST(Os, the_nth_operation_of_a_kind_fails_and_the_others_pass) {
    Card card({.slot = 9, .mode = os::Mode::pumped});
    card.os.fail(os::Fault::allocation, 2, 2);
    void *const first = bep_mallocEx(8, HERE);
    EXPECT_TRUE(first);
    EXPECT_FALSE(bep_callocEx(1, 8, HERE));
    EXPECT_FALSE(bep_reallocEx(first, 16, HERE)) << "the old block stays";
    EXPECT_EQ(card.os.live_blocks(), 1u);
    bep_freeEx(first, HERE);

    card.os.fail(os::Fault::semaphore, 3);
    EXPECT_TRUE(bep_semMCreateEx(13, HERE));
    EXPECT_TRUE(bep_semMCreateEx(13, HERE));
    EXPECT_FALSE(bep_semBCreateEx(1, BEP_SEM_EMPTY, HERE));
    EXPECT_TRUE(bep_semBCreateEx(1, BEP_SEM_EMPTY, HERE));

    const bep_msgq queue = bep_msgQCreateEx(4, 16, 0, HERE);
    card.os.fail(os::Fault::send, 1);
    EXPECT_NE(bep_msgQSendEx(queue, "x", 1, 0, 1, HERE), 0);
    EXPECT_EQ(bep_msgQSendEx(queue, "x", 1, 0, 1, HERE), 0);
    card.os.fail(os::Fault::queue, 1);
    card.os.fail(os::Fault::queue, 0);
    EXPECT_TRUE(bep_msgQCreateEx(4, 16, 0, HERE)) << "disarmed";
}

TEST(Os, a_mutex_is_recursive_and_a_deleted_handle_is_an_error_that_is_counted) {
    Card card({.slot = 9, .mode = os::Mode::threaded});
    const bep_sem mutex = bep_semMCreateEx(13, HERE);
    EXPECT_EQ(bep_semTakeEx(mutex, BEP_WAIT_FOREVER, HERE), 0);
    EXPECT_EQ(bep_semTakeEx(mutex, BEP_WAIT_FOREVER, HERE), 0);
    EXPECT_EQ(bep_semGiveEx(mutex, HERE), 0);
    std::thread([mutex] { EXPECT_NE(bep_semTakeEx(mutex, 20, HERE), 0); }).join();
    EXPECT_EQ(bep_semGiveEx(mutex, HERE), 0);
    EXPECT_EQ(card.os.handle_errors(), 0u);

    EXPECT_EQ(bep_semDeleteEx(mutex, HERE), 0);
    EXPECT_NE(bep_semDeleteEx(mutex, HERE), 0);
    EXPECT_NE(bep_semTakeEx(mutex, 0, HERE), 0);
    EXPECT_NE(bep_semTakeEx(nullptr, 0, HERE), 0);
    EXPECT_EQ(card.os.deleted_semaphores(), (std::vector<unsigned>{1, 1}));
    EXPECT_EQ(card.os.handle_errors(), 3u);
}

TEST(Os, every_block_stands_in_the_accounts_of_the_card_that_took_it) {
    Card one({.slot = 9, .mode = os::Mode::pumped});
    Card two({.slot = 10, .mode = os::Mode::pumped});
    void *const block = bep_mallocEx(100, "a.cpp", 7);
    void *const other = bep_callocEx(3, 5, "a.cpp", 7);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u);
    const auto places = one.os.live_by_place();
    ASSERT_EQ(places.count({"a.cpp", 7}), 1u);
    EXPECT_EQ(places.at({"a.cpp", 7}).blocks, 2u);
    EXPECT_EQ(places.at({"a.cpp", 7}).bytes, 115u);
    {
        CardScope scope(two); // whoever frees it: the account is that of the card that took it
        bep_freeEx(block, HERE);
        EXPECT_EQ(two.os.live_blocks(), 0u);
    }
    EXPECT_EQ(one.os.live_bytes(), 15u);
    void *const grown = bep_reallocEx(other, 64, "b.cpp", 9);
    EXPECT_EQ(one.os.live_by_place().at({"b.cpp", 9}).bytes, 64u);
    bep_freeEx(grown, HERE);
    EXPECT_EQ(one.os.live_blocks(), 0u);
    EXPECT_FALSE(bep_callocEx(0x10001, 0x10000, HERE)) << "the product does not fit a size";
    EXPECT_EQ(one.os.bad_frees(), 0u);
    alignas(std::max_align_t) char foreign[64] = {};
    bep_freeEx(foreign + 48, HERE);
    EXPECT_EQ(one.os.bad_frees(), 1u);
}

TEST(Os, a_log_line_is_bounded_loses_its_end_and_is_filtered_by_level) {
    Card card({.slot = 9, .mode = os::Mode::pumped});
    std::vector<os::LogLine> lines;
    card.os.log_to([&lines](const os::LogLine &line) { lines.push_back(line); });
    card.os.log_level(10);
    ulogPrintf(3, 10, "%s %d::hello\r\n", "f", 1);
    ulogPrintf(3, 9, "quiet\r\n");
    ulogPrintf(3, 13, "%s\r\n", std::string(5000, 'x').c_str());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "f 1::hello");
    EXPECT_EQ(lines[0].module_id, 3u);
    EXPECT_EQ(lines[1].text, std::string(2047, 'x'));
}

TEST(Peer, only_receivers_can_be_called_and_only_with_a_bounded_length) {
    for (const char *name : {"dpm_host_entry_add_sync_receive", "dpm_host_entry_sync_all_receive",
                             "dpm_slave_up_pro_over_peercard_callback",
                             "dpm_driver_group_create_slave", "dpm_ipmc_api_slave_enable"})
        EXPECT_TRUE(peer::is_receiver(name)) << name;
    for (const char *name :
         {"", "system", "dpm_main_init", "dpm_api_set_if_proc", "dpm__sync_receiv",
          "dpm_sync_receive ", "xdpm_host_entry_add_sync_receive",
          "dpm_host_entry_add_sync_receive_", "dpm_../_sync_receive"})
        EXPECT_FALSE(peer::is_receiver(name)) << name;

    Card card({.slot = 9, .mode = os::Mode::pumped});
    received.clear();
    std::vector<std::uint8_t> payload(peer::max_call_bytes, 7);
    EXPECT_EQ(card.peer.deliver("dpm_test_sync_receive", bytes_of(payload)), 0);
    payload.push_back(7);
    EXPECT_EQ(card.peer.deliver("dpm_test_sync_receive", bytes_of(payload)), -1);
    EXPECT_EQ(card.peer.deliver("dpm_nothing_sync_receive", {}), -1) << "not exported";
    EXPECT_EQ(card.peer.deliver("dpm_main_init", {}), -1);
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].size(), peer::max_call_bytes);
}

TEST(Peer, calls_reach_a_joined_card_at_once_until_it_is_cut_off) {
    Card one({.slot = 9, .mode = os::Mode::pumped});
    Card two({.slot = 10, .mode = os::Mode::pumped});
    received.clear();
    EXPECT_EQ(hss_TellBackToExcuteSpe("dpm_test_sync_receive", "a", 1), -1);
    one.peer.join(two.peer);
    one.peer.record(true);
    EXPECT_EQ(hss_TellBackToExcuteSpe("dpm_test_sync_receive", "ab", 2), 0);
    one.peer.drop_calls(true);
    EXPECT_EQ(hss_TellBackToExcuteSpe("dpm_test_sync_receive", "c", 1), -1);
    one.peer.drop_calls(false);
    two.peer.cut();
    EXPECT_FALSE(one.peer.exists());
    EXPECT_EQ(hss_TellBackToExcuteSpe("dpm_test_sync_receive", "d", 1), -1);
    EXPECT_EQ(received, (std::vector<std::vector<std::uint8_t>>{{'a', 'b'}}));
    ASSERT_EQ(one.peer.calls().size(), 1u);
    EXPECT_EQ(one.peer.calls()[0].name, "dpm_test_sync_receive");
    EXPECT_EQ(current(), &one);
}

TEST(Frames, are_taken_whole_from_any_cuts_and_malformed_ones_are_told) {
    const std::vector<std::uint8_t> payload(300, 9);
    std::vector<std::byte> stream;
    for (const char *name : {"first", "", "third"}) {
        const auto frame = peer::encode_frame(name, bytes_of(payload));
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    for (const std::size_t cut : {1u, 7u, 310u, 100'000u}) {
        peer::FrameBuffer buffer;
        std::string names;
        for (std::size_t at = 0; at < stream.size(); at += cut) {
            buffer.append(std::span(stream).subspan(at, std::min(cut, stream.size() - at)));
            peer::Frame frame;
            while (buffer.next(frame) == peer::FrameBuffer::Next::frame) {
                names += std::string(frame.name) + ";";
                EXPECT_EQ(frame.payload.size(), payload.size());
            }
        }
        EXPECT_EQ(names, "first;;third;");
    }
    const std::vector<std::vector<std::uint8_t>> malformed = {
        {0, 0, 0, 0},                   // shorter than a name's length
        {1, 0, 0, 0, 0},                //
        {0xff, 0xff, 0xff, 0xff, 0, 0}, // 4 GB
        {4, 0, 0, 0, 3, 0, 'a', 'b'},   // the name passes the frame
        {0, 0, 1, 0, 97, 0},            // longer than a name may be
    };
    for (const auto &bytes : malformed) {
        peer::FrameBuffer buffer;
        std::vector<std::uint8_t> padded = bytes;
        if (padded.size() == 6 && padded[4] == 97)
            padded.resize(4 + 0x10000);
        buffer.append(bytes_of(padded));
        peer::Frame frame;
        EXPECT_EQ(buffer.next(frame), peer::FrameBuffer::Next::malformed);
    }
}

// --- the link over a socket, with the other card as a process of its own ---

namespace {

// Starts other cards as processes.  It is forked while this process has one thread, and forks again
// for each card, because a fork of many threads is nothing to build on.
class Spawner {
public:
    explicit Spawner(std::string path) : path_(std::move(path)) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
        spawner_ = fork();
        if (spawner_ != 0) {
            close(ends_[1]);
            return;
        }
        close(ends_[0]);
        signal(SIGCHLD, SIG_IGN); // nobody waits for a card
        for (unsigned slot; read(ends_[1], &slot, sizeof slot) == sizeof slot;) {
            const pid_t card = fork();
            if (card == 0)
                run_card(slot);
            [[maybe_unused]] const ssize_t told = write(ends_[1], &card, sizeof card);
        }
        _exit(0);
    }

    ~Spawner() {
        for (const pid_t card : std::vector(cards_))
            end(card);
        close(ends_[0]);
        waitpid(spawner_, nullptr, 0);
    }

    pid_t start(unsigned slot) {
        pid_t card = -1;
        EXPECT_EQ(write(ends_[0], &slot, sizeof slot), ssize_t(sizeof slot));
        EXPECT_EQ(read(ends_[0], &card, sizeof card), ssize_t(sizeof card));
        cards_.push_back(card);
        return card;
    }

    void end(pid_t card) {
        kill(card, SIGKILL);
        EXPECT_TRUE(eventually([card] { return kill(card, 0) != 0; }));
        std::erase(cards_, card);
    }

    void end_all() {
        while (!cards_.empty())
            end(cards_.back());
    }

private:
    // Answers every call by one back, until it is killed.
    [[noreturn]] void run_card(unsigned slot) {
        Card card({.slot = slot, .mode = os::Mode::threaded});
        card.peer.open(path_);
        for (unsigned answered = 0;;) {
            if (answered < received_count && card.peer.call("dpm_test_sync_receive", {}) == 0)
                ++answered;
            std::this_thread::sleep_for(1ms);
        }
    }

    std::string path_;
    int ends_[2] = {-1, -1};
    pid_t spawner_ = -1;
    std::vector<pid_t> cards_;
};

class Socket : public ::testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "dpm-link-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        directory_ = name;
        path_ = name + "/peer";
        received.clear();
        received_count = 0;
        others_ = std::make_unique<Spawner>(path_);
    }

    void TearDown() override {
        others_.reset();
        std::filesystem::remove_all(directory_);
    }

    // The last card clears away what those before it left.
    void close_as_last(Card &card) {
        others_->end_all();
        card.peer.close();
        EXPECT_TRUE(std::filesystem::is_empty(directory_));
    }

    std::filesystem::path directory_;
    std::string path_;
    std::unique_ptr<Spawner> others_;
};

std::atomic<int> connections, promotions;
int count_connection() {
    return ++connections, 0;
}
int count_promotion() {
    return ++promotions, 0;
}

} // namespace

TEST_F(Socket, two_cards_agree_on_the_lower_slot_and_calls_pass_both_ways_in_order) {
    others_->start(10);
    Card card({.slot = 9, .mode = os::Mode::threaded});
    connections = 0;
    hss_backupConnectedRegister(11, count_connection);
    card.peer.open(path_);
    ASSERT_TRUE(eventually([&] { return card.peer.exists() && connections == 1; }));
    EXPECT_EQ(card.peer.role(), peer::Role::master);
    EXPECT_EQ(hss_IsSmuMaster(), 1);
    const std::vector<std::uint8_t> big(peer::max_call_bytes, 1);
    for (int number = 0; number < 20; ++number)
        EXPECT_EQ(hss_TellBackToExcuteSpe("dpm_test_sync_receive", big.data(), big.size()), 0);
    EXPECT_EQ(hss_TellBackToExcuteSpe("dpm_test_sync_receive", big.data(), big.size() + 1), -1);
    EXPECT_TRUE(eventually([] { return received_count >= 20; }));
    close_as_last(card);
}

TEST_F(Socket,
       a_standby_becomes_master_when_the_master_is_killed_and_a_restarted_card_joins_again) {
    const pid_t master = others_->start(9);
    Card card({.slot = 10, .mode = os::Mode::threaded});
    promotions = connections = 0;
    hssSlaveToMasterRtnReg(count_promotion);
    hss_backupConnectedRegister(11, count_connection);
    card.peer.open(path_);
    ASSERT_TRUE(eventually([&] { return card.peer.exists(); }));
    EXPECT_EQ(card.peer.role(), peer::Role::standby);
    EXPECT_EQ(promotions, 0);

    others_->end(master);
    ASSERT_TRUE(eventually([] { return promotions == 1; }));
    EXPECT_EQ(card.peer.role(), peer::Role::master);
    EXPECT_FALSE(card.peer.exists());
    EXPECT_EQ(card.peer.call("dpm_test_sync_receive", {}), -1);

    // The lower slot comes back and finds a master: it stays standby.  Again and again.
    for (int round = 1; round <= 3; ++round) {
        const pid_t returned = others_->start(9);
        ASSERT_TRUE(eventually([&] { return card.peer.exists() && connections == round; }));
        EXPECT_EQ(card.peer.role(), peer::Role::master);
        others_->end(returned);
        ASSERT_TRUE(eventually([&] { return !card.peer.exists(); }));
    }
    EXPECT_EQ(promotions, 1);
    close_as_last(card);
}

TEST_F(Socket, a_silent_peer_is_lost_by_its_heartbeat) {
    const pid_t master = others_->start(9);
    Card card({.slot = 10, .mode = os::Mode::threaded});
    card.peer.open(path_);
    ASSERT_TRUE(eventually([&] { return card.peer.exists(); }));
    kill(master, SIGSTOP);
    EXPECT_TRUE(eventually([&] { return card.peer.role() == peer::Role::master; }));
    EXPECT_FALSE(card.peer.exists());
    kill(master, SIGCONT);
    others_->end(master);
    close_as_last(card);
}

TEST_F(Socket, a_stranger_who_sends_garbage_is_closed_and_the_real_peer_still_gets_in) {
    Card card({.slot = 9, .mode = os::Mode::threaded});
    card.peer.open(path_);
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(path_); }));
    const auto connect_stranger = [this] {
        const int stranger = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_TRUE(eventually([&] {
            return connect(stranger, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        }));
        return stranger;
    };
    const std::vector<std::vector<std::byte>> greetings = {
        std::vector<std::byte>(64, std::byte{0xff}), peer::encode_frame("hello", {}),
        peer::encode_frame("dpm_test_sync_receive", {})};
    for (const std::vector<std::byte> &greeting : greetings) {
        const int stranger = connect_stranger();
        EXPECT_EQ(send(stranger, greeting.data(), greeting.size(), MSG_NOSIGNAL),
                  ssize_t(greeting.size()));
        char answer[256];
        while (recv(stranger, answer, sizeof answer, 0) > 0)
            ; // its own hello, then the end
        close(stranger);
    }
    EXPECT_EQ(received_count, 0u);
    EXPECT_FALSE(card.peer.exists());
    others_->start(10);
    EXPECT_TRUE(eventually([&] { return card.peer.exists(); }));
    close_as_last(card);
}

TEST(Threads, a_card_that_ends_takes_its_waiting_task_with_it) {
    static std::atomic<int> rounds;
    static bep_msgq queue;
    rounds = 0;
    {
        Card card({.slot = 9, .mode = os::Mode::threaded});
        queue = bep_msgQCreateEx(4, 4, 0, HERE);
        const auto entry = +[]() -> int {
            for (char buffer[4];; ++rounds)
                bep_msgQReceiveEx(queue, buffer, sizeof buffer, 1000, HERE);
        };
        EXPECT_GE(rqzt_task_spawn("t", 55, 8, 204800, entry, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0), 0);
        bep_msgQSendEx(queue, "abcd", 4, 0, 1, HERE);
        EXPECT_TRUE(eventually([] { return rounds == 1; }));
        ASSERT_EQ(card.os.tasks().size(), 1u);
        EXPECT_EQ(card.os.tasks()[0].priority, 55);
    }
    EXPECT_EQ(rounds, 1);
}

TEST(Threads, a_probe_of_a_reachable_neighbour_is_answered_on_the_stacks_own_thread) {
    static std::atomic<unsigned> answers;
    static std::atomic<bool> on_own_thread;
    static const std::thread::id tester = std::this_thread::get_id();
    answers = 0;
    Card card({.slot = 9, .mode = os::Mode::threaded});
    ipstack_no_nbase_func_register([](const dpm_host_info *info) {
        on_own_thread = std::this_thread::get_id() != tester;
        return answers += info->oper == DPM_OPER_ADD && info->mac[5] == 7, 0;
    });
    dpm_host_info neighbour{};
    neighbour.vrf = 3;
    neighbour.family = DPM_FAMILY_IPV4;
    neighbour.address[0] = 10;
    neighbour.mac[5] = 7;
    card.stack.declare_reachable(neighbour);

    std::uint8_t block[IPCOMX_REQUEST_BYTES] = {16, IPCOMX_AF_INET, 0, 0, 10};
    const int socket = ipcomx_socket(IPCOMX_AF_INET, IPCOMX_SOCK_DGRAM, 0);
    EXPECT_EQ(ipcomx_socketioctl(socket, IPCOMX_ARP_REQUEST, block), 0) << "silent in VRF 0";
    const std::uint32_t vrf = 3;
    EXPECT_EQ(ipcomx_setsockopt(socket, IPCOMX_SOL_SOCKET, IPCOMX_SO_VRF, &vrf, sizeof vrf), 0);
    EXPECT_EQ(ipcomx_socketioctl(socket, IPCOMX_ARP_GET, block), -1) << "not learnt yet";
    EXPECT_EQ(ipcomx_errno_get(), ENXIO);
    EXPECT_EQ(ipcomx_socketioctl(socket, IPCOMX_ARP_REQUEST, block), 0);
    EXPECT_TRUE(eventually([] { return answers == 1; }));
    EXPECT_TRUE(on_own_thread);
    EXPECT_EQ(ipcomx_socketioctl(socket, IPCOMX_ARP_GET, block), 0);
    EXPECT_EQ(block[31], 7) << "the last byte of the MAC";
    EXPECT_EQ(ipcomx_socketclose(socket), 0);
    EXPECT_EQ(ipcomx_socketclose(socket), -1);
    EXPECT_EQ(card.stack.probes().size(), 2u);
    EXPECT_EQ(card.stack.open_sockets(), 0u);
}
