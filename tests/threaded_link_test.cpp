// The link between two cards, with one of them played by the test: what a card does while the other
// sends faster than it works, does not read, dies, is silent, is a second master, or is a stranger.

#include "chassis/peer/frame.h"
#include "chassis/peer/link.h"
#include "chassis/peer/state.h"
#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_nexthop.h"
#include "support/shelf.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/socket.h>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace chassis::peer;

constexpr const char *marker = "dpm_slave_up_pro_over_sync_receive"; // is answered by its worker

bool eventually(const std::function<bool()> &condition) {
    for (unsigned round = 0; round < 6000; ++round) {
        if (condition())
            return true;
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

// The test's card: as much of one as it is told to be.
class Other {
public:
    Other(std::string directory, unsigned slot, Standing standing, std::uint64_t term)
        : directory_(std::move(directory)), claim_{claim_magic, claim_version, slot, standing,
                                                   term},
          lock(LockFile::take(slot_lock_path(directory_, slot))),
          pulse(directory_ + "/shelf.sock", slot, 19 - slot,
                {[this] { return claim_; }, [](const Claim &) {}}) {}

    // Says hello, and waits for the answer for a second.
    std::optional<Claim> connect() {
        eventually([this] { return bool(socket = connect_stream(directory_ + "/shelf.sock")); });
        fcntl(socket.get(), F_SETFL, 0);
        const timeval second{1, 0};
        setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second);
        send("hello", std::as_bytes(std::span(&claim_, 1)));
        Frame frame;
        if (!read(frame) || frame.name != "hello")
            return std::nullopt;
        pulse.start();
        return read_claim(frame.payload, 19 - claim_.slot);
    }
    void send(const char *name, std::span<const std::byte> payload) {
        const auto frame = encode_frame(name, payload);
        EXPECT_EQ(::send(socket.get(), frame.data(), frame.size(), MSG_NOSIGNAL),
                  ssize_t(frame.size()));
    }
    bool read(Frame &frame) {
        std::array<std::byte, 65536> bytes;
        while (buffer_.next(frame) == FrameBuffer::Next::incomplete) {
            const ssize_t count = recv(socket.get(), bytes.data(), bytes.size(), 0);
            if (count <= 0)
                return false;
            buffer_.append(std::span(bytes).first(std::size_t(count)));
        }
        return true;
    }
    void die() {
        socket.reset();
        lock.release();
    }

private:
    const std::string directory_;
    const Claim claim_;
    FrameBuffer buffer_;

public:
    LockFile lock;
    Descriptor socket;
    Pulse pulse;
};

class LinkOfCards : public ::testing::Test {
protected:
    ~LinkOfCards() override {
        card.reset(); // its threads open files there
        std::filesystem::remove_all(directory);
    }

    chassis::Card &start(unsigned slot, Role role, std::uint64_t term) {
        card = std::make_unique<chassis::Card>(chassis::CardOptions{.slot = slot});
        card->os.log_level(100);
        EXPECT_EQ(card->start(), 0);
        card->peer.know_term(term);
        card->peer.set_role(role);
        card->peer.open(directory + "/shelf.sock");
        return *card;
    }
    Role role() const { return card->peer.role(); }

    std::string directory = [] {
        char path[] = "/tmp/dpm-link.XXXXXX";
        return std::string(mkdtemp(path));
    }();
    std::unique_ptr<chassis::Card> card;
};

} // namespace

TEST_F(LinkOfCards, LosesNothingAndStaysWhileAReaderHoldsTheLockOfTheStandby) {
    constexpr unsigned calls = 40'000; // the queue takes 32,768
    start(10, Role::standby, 0);
    Other master(directory, 9, Standing::master, 4);
    ASSERT_TRUE(master.connect());
    norix_dpm_sem_take();
    std::thread sender([&] {
        for (unsigned i = 0; i < calls; ++i)
            master.send(marker, std::as_bytes(std::span(&i, 1)));
    });
    EXPECT_TRUE(eventually([this] { return card->os.queued() > 32'000; }));
    std::this_thread::sleep_for(1700ms); // longer than a silence
    EXPECT_EQ(role(), Role::standby);
    EXPECT_TRUE(card->peer.exists());
    norix_dpm_sem_give();
    sender.join();
    unsigned found = 0;
    for (Frame frame; found < calls && master.read(frame);) // until it is silent for a second
        found += frame.name == "dpm_slave_up_pro_over_peercard_callback";
    EXPECT_EQ(found, calls);
}

TEST_F(LinkOfCards, TakesOverWhenItsWorkerHasCarriedOutAllThatArrived) {
    constexpr unsigned records = 300;
    start(10, Role::standby, 0);
    Other master(directory, 9, Standing::master, 4);
    ASSERT_TRUE(master.connect());
    norix_dpm_sem_take();
    for (unsigned i = 0; i < records; ++i) {
        dpm_route_entry entry{};
        entry.destination = {DPM_FAMILY_IPV4, 32, {10, 1, std::uint8_t(i >> 8), std::uint8_t(i)}};
        master.send("dpm_route_entry_add_sync_receive", std::as_bytes(std::span(&entry, 1)));
    }
    master.die();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(role(), Role::standby);
    norix_dpm_sem_give();
    EXPECT_TRUE(eventually([this] { return role() == Role::master; }));
    EXPECT_EQ(card->peer.term(), 5u);
    unsigned found = 0;
    for (auto *at = dpm_api_get_route_entry_first(DPM_FAMILY_IPV4); at;
         at = dpm_api_get_route_entry_next(at))
        ++found;
    EXPECT_EQ(found, records);
}

TEST_F(LinkOfCards, AStandbyThatDoesNotReadHoldsNobodyUpAndGetsTheTablesAnew) {
    start(9, Role::master, 4);
    Other standby(directory, 10, Standing::standby, 4);
    ASSERT_TRUE(standby.connect());
    EXPECT_TRUE(eventually([this] { return card->peer.exists() && dpm_get_slave_up() == 1; }));
    const std::vector<std::byte> payload(max_call_bytes);
    unsigned taken = 0;
    while (taken < 100 && card->peer.call("dpm_test_sync_receive", payload) == 0)
        ++taken;
    EXPECT_GE(taken, 63u);
    EXPECT_LT(taken, 80u);
    EXPECT_NE(card->peer.call("dpm_test_sync_receive", {}), 0) << "nothing behind a hole";
    unsigned whole = 0, ends = 0;
    for (Frame frame; ends < 2 && standby.read(frame);) {
        whole += frame.payload.size() == payload.size();
        ends += frame.name == marker;
    }
    EXPECT_EQ(whole, taken);
    EXPECT_EQ(ends, 2u) << "the tables when it came, and once more";
}

TEST_F(LinkOfCards, StrangersThatSayNothingKeepNoPeerWaiting) {
    start(9, Role::master, 4);
    std::vector<Descriptor> strangers;
    for (unsigned i = 0; i < 30; ++i) {
        EXPECT_TRUE(eventually([&] {
            Descriptor stranger = connect_stream(directory + "/shelf.sock");
            return stranger ? strangers.push_back(std::move(stranger)), true : false;
        }));
    }
    const auto answer = Other(directory, 10, Standing::standby, 0).connect();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->is_master());
    EXPECT_EQ(answer->term, 4u);
}

TEST_F(LinkOfCards, ACardThatHearsALivingMasterWaitsForIt) {
    const LockFile stranger = LockFile::take(directory + "/shelf.sock.lock");
    const Descriptor silent = listen_stream(directory + "/shelf.sock");
    Other master(directory, 9, Standing::master, 4);
    master.pulse.start();
    start(10, Role::standby, 0);
    std::this_thread::sleep_for(1300ms); // longer than a card waits that hears nobody
    EXPECT_EQ(role(), Role::standby);
    EXPECT_EQ(card->peer.term(), 4u);
    master.die();
    EXPECT_TRUE(eventually([this] { return role() == Role::master; }));
    EXPECT_EQ(card->peer.term(), 5u);
}

TEST_F(LinkOfCards, AMasterThatHearsOfALaterOneStepsDownBeforeTheyMeet) {
    start(9, Role::master, 4);
    Other earlier(directory, 10, Standing::master, 3);
    earlier.pulse.start();
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(role(), Role::master);
    earlier.pulse.stop();
    Other later(directory, 10, Standing::master, 6);
    later.pulse.start();
    EXPECT_TRUE(eventually([this] { return role() == Role::standby; }));
    EXPECT_EQ(card->peer.term(), 6u);
}

TEST_F(LinkOfCards, MeetsAlsoWhenItHearsOfATermBetweenTwoHellos) {
    chassis::Card standby(chassis::CardOptions{.slot = 10});
    const Claim told = standby.peer.claim(),
                master{claim_magic, claim_version, 9, Standing::master, 4};
    standby.peer.know_term(4);
    EXPECT_TRUE(standby.peer.settle(told, master));
    EXPECT_EQ(standby.peer.term(), 4u);
    const Claim again = standby.peer.claim(), // which wins, if nobody took over
        other{claim_magic, claim_version, 9, Standing::standby, 0};
    standby.peer.know_term(5);
    EXPECT_FALSE(standby.peer.settle(again, other));
    EXPECT_EQ(standby.peer.role(), Role::standby);
}
