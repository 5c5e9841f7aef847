// The chassis itself, where a fault in it would hide a fault of the product: the accounts of heap
// and handles, the log, waiting on a clock that is moved, and what a peer may call.  The link
// between two cards runs in dpmctl_process_test.py.

#include "chassis/chassis.h"
#include "chassis/os/state.h"
#include "chassis/peer/frame.h"
#include "platform/bep.h"
#include "platform/hss.h"
#include "platform/ipcomx.h"
#include "platform/rqzt.h"

#include <gtest/gtest.h>
#include <thread>

using namespace chassis;
using namespace std::chrono_literals;
using namespace std::string_literals;

#define HERE __FILE__, __LINE__

namespace {

std::vector<std::vector<std::uint8_t>> received; // by the receiver below

std::span<const std::byte> bytes_of(const std::vector<std::uint8_t> &payload) {
    return std::as_bytes(std::span(payload));
}

struct Pumped : Card {
    explicit Pumped(unsigned slot = 9) : Card({.slot = slot, .mode = os::Mode::pumped}) {}
};

} // namespace

// A receiver of this program: its name follows the pattern of those that a peer may call.
extern "C" __attribute__((visibility("default"))) int dpm_test_sync_receive(const void *buffer,
                                                                            uint32_t length) {
    const auto *const bytes = static_cast<const uint8_t *>(buffer);
    received.emplace_back(bytes, bytes + length);
    return 0;
}

TEST(Os, AdvancingAThreadedClockWakesAWaitingReceiver) {
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
    EXPECT_GE(card.os.now_nsec() - began, 3600 * os::nsec_per_sec);
    EXPECT_FALSE(card.os.advance(os::latest_clock_sec * os::nsec_per_sec)) << "it has an end";
    mover.join();
    EXPECT_NE(bep_msgQSendEx(queue, buffer, 17, 0, 1, HERE), 0) << "longer than a message";
}

TEST(Os, AMutexIsRecursiveAndADeletedHandleIsAnErrorThatIsCounted) {
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

TEST(Os, EveryBlockStandsInTheAccountsOfTheCardThatTookIt) {
    Pumped one, two(10);
    void *const block = bep_mallocEx(100, "a.cpp", 7);
    void *const other = bep_callocEx(3, 5, "a.cpp", 7);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0u);
    const os::PlaceUse use = one.os.live_by_place().at({"a.cpp", 7});
    EXPECT_EQ(std::pair(use.blocks, use.bytes), std::pair(2u, 115u));
    {
        CardScope scope(two); // whoever frees it: the account is that of the card that took it
        bep_freeEx(block, HERE);
        EXPECT_EQ(two.os.live_blocks(), 0u);
    }
    EXPECT_EQ(one.os.live_bytes(), 15u);
    one.os.fail(os::Fault::allocation, 1);
    EXPECT_FALSE(bep_reallocEx(other, 16, HERE)) << "the old block stays";
    void *const grown = bep_reallocEx(other, 64, "b.cpp", 9);
    EXPECT_EQ(static_cast<char *>(grown)[14], 0);
    EXPECT_EQ(one.os.live_by_place().at({"b.cpp", 9}).bytes, 64u);
    bep_freeEx(grown, HERE);
    EXPECT_FALSE(bep_callocEx(0x10001, 0x10000, HERE)) << "the product does not fit a size";
    alignas(std::max_align_t) char foreign[64] = {};
    bep_freeEx(foreign + 48, HERE);
    EXPECT_EQ(std::pair(one.os.live_blocks(), one.os.bad_frees()), std::pair(0u, 1ull));
}

TEST(Os, ALogLineIsBoundedLosesItsEndAndIsFilteredByLevel) {
    Pumped card;
    std::vector<os::LogLine> lines;
    card.os.log_to([&lines](const os::LogLine &line) { lines.push_back(line); });
    card.os.log_level(10);
    ulogPrintf(3, 10, "%s %d::hello\r\n", "f", 1);
    ulogPrintf(3, 9, "quiet\r\n");
    ulogPrintf(3, 13, "%s\r\n", std::string(5000, 'x').c_str());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(std::pair(lines[0].text, lines[0].module_id), std::pair("f 1::hello"s, 3u));
    EXPECT_EQ(lines[1].text, std::string(2047, 'x'));
}

TEST(Stack, ASocketIsClosedOnce) {
    Pumped card;
    const int socket = ipcomx_socket(IPCOMX_AF_INET, IPCOMX_SOCK_DGRAM, 0);
    EXPECT_EQ(ipcomx_socketclose(socket), 0);
    EXPECT_EQ(ipcomx_socketclose(socket), -1);
}

TEST(Peer, OnlyReceiversCanBeCalledAndOnlyWithABoundedLength) {
    for (const char *name :
         {"dpm_host_entry_add_sync_receive", "dpm_host_entry_sync_all_receive",
          "dpm_slave_up_pro_over_peercard_callback", "dpm_driver_group_create_slave",
          "dpm_ipmc_api_slave_enable", "dpm_api_set_unknown_ipmc_to_cpu_slave"})
        EXPECT_TRUE(peer::is_receiver(name)) << name;
    for (const char *name :
         {"", "system", "dpm_main_init", "dpm_api_set_if_proc", "dpm__sync_receiv",
          "dpm_sync_receive ", "xdpm_host_entry_add_sync_receive",
          "dpm_host_entry_add_sync_receive_", "dpm_../_sync_receive"})
        EXPECT_FALSE(peer::is_receiver(name)) << name;

    Pumped card;
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

TEST(Peer, CallsReachAJoinedCardAtOnceUntilItIsCutOff) {
    Pumped one, two(10);
    received.clear();
    const auto call = [](const char *text) {
        return hss_TellBackToExcuteSpe("dpm_test_sync_receive", text, 1);
    };
    EXPECT_EQ(call("a"), -1);
    one.peer.join(two.peer);
    EXPECT_EQ(call("b"), 0);
    one.peer.take_calls([] { return false; });
    EXPECT_EQ(call("c"), -1);
    one.peer.take_calls([] { return true; });
    two.peer.cut();
    EXPECT_FALSE(one.peer.exists());
    EXPECT_EQ(call("d"), -1);
    EXPECT_EQ(received, (std::vector<std::vector<std::uint8_t>>{{'b'}}));
    EXPECT_EQ(current(), &one);
}

// Also over a socket: has_room_for() is what the link asks.
TEST(Peer, CallsWaitForRoomInTheQueueAndOutliveTheCaller) {
    Pumped one, two(10);
    one.peer.join(two.peer);
    received.clear();
    const auto on_two = [&two](auto work) {
        const CardScope scope(two);
        return work();
    };
    const bep_msgq queue = on_two([] { return bep_msgQCreateEx(100, 4, 0, HERE); });
    const auto post = [&] { return bep_msgQSendEx(queue, "abc", 4, 0, 1, HERE); };
    const auto take = [&, bytes = std::array<char, 4>()]() mutable {
        return bep_msgQReceiveEx(queue, bytes.data(), 4, 0, HERE);
    };
    for (unsigned i = 0; i < 35; ++i)
        on_two(post);
    EXPECT_TRUE(two.peer.has_room_for("dpm_test_sync_receive", 5000))
        << "one message, some to spare";
    EXPECT_FALSE(two.peer.has_room_for("dpm_test_sync_all_receive", 5000)) << "up to 312";
    EXPECT_TRUE(two.peer.has_room_for("dpm_slave_up_pro_over_peercard_callback", 4));
    on_two(post);

    const std::vector<std::byte> payload(peer::max_call_bytes);
    for (unsigned i = 0; i < 64; ++i)
        EXPECT_EQ(one.peer.call("dpm_test_sync_receive", payload), 0);
    EXPECT_EQ(one.peer.call("dpm_test_sync_receive", payload), -1) << "64 MiB wait";
    EXPECT_TRUE(received.empty());
    one.peer.cut();
    on_two(take);
    EXPECT_TRUE(two.peer.deliver_arrived());
    EXPECT_EQ(received.size(), 64u);
}

TEST(Peer, OfTwoCardsThatMeetOneIsMasterByTermAndSlot) {
    const struct {
        bool nine; // is master
        std::uint64_t nine_term;
        bool ten;
        std::uint64_t ten_term;
        unsigned slot;      // that is master then
        std::uint64_t term; // and on both cards
    } meetings[] = {
        {true, 1, false, 0, 9, 1},  {true, 1, false, 1, 9, 1}, {false, 3, true, 3, 10, 3},
        {true, 5, true, 6, 10, 6},  {true, 6, true, 5, 9, 6},  {true, 5, true, 5, 9, 6},
        {false, 7, true, 5, 10, 8},
    };
    for (const auto &[nine, nine_term, ten, ten_term, slot, term] : meetings) {
        Pumped one, two(10);
        one.peer.know_term(nine_term), two.peer.know_term(ten_term);
        one.peer.set_role(nine ? peer::Role::master : peer::Role::standby);
        two.peer.set_role(ten ? peer::Role::master : peer::Role::standby);
        one.peer.join(two.peer);
        EXPECT_EQ(one.peer.role() == peer::Role::master, slot == 9) << term;
        EXPECT_NE(one.peer.role(), two.peer.role()) << term;
        EXPECT_EQ(std::pair(one.peer.term(), two.peer.term()), std::pair(term, term));
    }
}

// Whole ones are taken from any cuts: fuzz/link.cpp.
TEST(Frames, ThatAreMalformedAreTold) {
    std::vector<std::uint8_t> long_name(4 + 0x10000);
    long_name[2] = 1;
    long_name[4] = 97;
    for (const std::vector<std::uint8_t> &malformed :
         {std::vector<std::uint8_t>{1, 0, 0, 0, 0}, // shorter than a name's length
          {0xff, 0xff, 0xff, 0xff, 0, 0},           // 4 GB
          {4, 0, 0, 0, 3, 0, 'a', 'b'},             // the name passes the frame
          long_name}) {
        peer::FrameBuffer buffer;
        peer::Frame frame;
        buffer.append(bytes_of(malformed));
        EXPECT_EQ(buffer.next(frame), peer::FrameBuffer::Next::malformed);
    }
}
