// Timer lists on a clock that stands still: order, re-arming from callbacks, idle nodes.

#include "chassis/chassis.h"
#include "dpm_timer.h"
#include "support/soundness.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

namespace {

using chassis::Card;

class Timers : public ::testing::Test {
protected:
    // A timer whose callback runs `deed` and notes its name.
    struct Record {
        dpm_timer_node node;
        int name = 0;
        std::function<void()> deed;
    };

    Timers() {
        card.os.log_to([this](const chassis::os::LogLine &line) { log.push_back(line.text); });
        list = dpm_timer_list_create();
    }
    void TearDown() override {
        EXPECT_EQ(rig::list_problem(list->head), "");
        dpm_timer_list_delete(list);
    }

    static int expired(std::uintptr_t test, std::uintptr_t record, std::uintptr_t extra) {
        EXPECT_EQ(extra, 7u);
        auto &own = *reinterpret_cast<Record *>(record);
        reinterpret_cast<Timers *>(test)->fired.push_back(own.name);
        if (own.deed)
            own.deed();
        return -1; // nobody looks
    }
    Record &record(int name) {
        records.push_back(std::make_unique<Record>());
        dpm_timer_node_init(&records.back()->node);
        records.back()->name = name;
        return *records.back();
    }
    void start(Record &own, unsigned seconds) {
        EXPECT_EQ(dpm_timer_start(list, &own.node, seconds, expired,
                                  reinterpret_cast<std::uintptr_t>(this),
                                  reinterpret_cast<std::uintptr_t>(&own), 7),
                  0);
    }
    std::vector<int> check_after(double seconds) {
        card.os.advance(std::int64_t(seconds * 1e9));
        fired.clear();
        EXPECT_EQ(dpm_timer_list_check(list), 0);
        return fired;
    }

    Card card{{.slot = 9, .mode = chassis::os::Mode::pumped, .mac = {}}};
    dpm_timer_list *list;
    std::vector<std::unique_ptr<Record>> records;
    std::vector<int> fired;
    std::vector<std::string> log;
};

using Names = std::vector<int>;

} // namespace

TEST_F(Timers, FireByExpiryAndThoseOfEqualExpiryInTheOrderOfArming) {
    std::mt19937 random(4);
    std::multimap<unsigned, int> expected; // of equal expiry: in the order of arming
    for (int name = 0; name < 500; ++name)
        start(record(name), expected.emplace(random() % 20, name)->first);
    Names order;
    for (const auto &[seconds, name] : expected)
        order.push_back(name);
    EXPECT_EQ(check_after(25), order);
    EXPECT_EQ(check_after(25), Names{}) << "each fires once";
}

TEST_F(Timers, WaitForTheNanosecond) {
    card.os.advance(400'000'000);
    start(record(1), 2);
    card.os.advance(999'999'999);
    EXPECT_EQ(check_after(1), Names{});
    EXPECT_EQ(check_after(1e-9), Names{1});
}

TEST_F(Timers, AnArmedTimerThatIsStartedAgainMovesAndFiresOnce) {
    Record &moved = record(1);
    start(moved, 1);
    start(record(2), 5);
    start(moved, 9);
    EXPECT_EQ(check_after(5), Names{2});
    EXPECT_EQ(dpm_timer_restart(list, &moved.node, 1), 0) << "callback and arguments stay";
    EXPECT_EQ(check_after(1), Names{1});
    EXPECT_EQ(moved.node.expiry_sec, 0);
    EXPECT_EQ(moved.node.expiry_nsec, 0);
    EXPECT_EQ(check_after(100), Names{});
}

TEST_F(Timers, ACallbackMayFreeItsRecordAndStopOthers) {
    for (int name : {1, 2, 3, 4})
        start(record(name), 1);
    records[1]->deed = [this] {
        dpm_timer_stop(list, &records[2]->node);
        records[1].reset();
    };
    EXPECT_EQ(check_after(1), (Names{1, 2, 4}));
    EXPECT_TRUE(list_empty(&list->head));
}

TEST_F(Timers, ACallbackThatRearmsWithZeroSecondsRunsAgainInTheSameCheck) {
    Record &again = record(1), &later = record(2);
    int left = 3;
    again.deed = [&] {
        if (--left)
            start(again, 0);
    };
    later.deed = [&] { dpm_timer_restart(list, &later.node, 1); };
    start(again, 0);
    start(later, 0);
    EXPECT_EQ(check_after(0), (Names{1, 2, 1, 1}));
    EXPECT_EQ(check_after(0.9), Names{});
    EXPECT_EQ(check_after(0.1), Names{2});
}

TEST_F(Timers, CheckingReadsTheClockOnceAndNotAtAllForAnEmptyList) {
    const std::uint64_t before = card.os.clock_reads();
    dpm_timer_list_check(list);
    EXPECT_EQ(card.os.clock_reads(), before);
    for (const unsigned seconds : {0u, 0u, 9u})
        start(record(1), seconds);
    const std::uint64_t armed = card.os.clock_reads();
    dpm_timer_list_check(list);
    EXPECT_EQ(card.os.clock_reads(), armed + 1);
    EXPECT_EQ(fired.size(), 2u);
}

TEST_F(Timers, StoppingClearsANodeAndIsHarmlessForAnIdleOne) {
    Record &own = record(1);
    start(own, 1);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(dpm_timer_stop(list, &own.node), 0);
        EXPECT_TRUE(list_empty(&own.node.link));
        EXPECT_EQ(own.node.expiry_sec, 0);
        EXPECT_EQ(own.node.callback, nullptr);
        EXPECT_EQ(own.node.arg3, 0u);
    }
    EXPECT_EQ(check_after(5), Names{});
}

TEST_F(Timers, NullArgumentsAreLoggedUnderTheFunctionsName) {
    dpm_timer_node node{};
    for (const int result :
         {dpm_timer_node_init(nullptr), dpm_timer_start(nullptr, &node, 1, expired, 0, 0, 0),
          dpm_timer_start(list, nullptr, 1, expired, 0, 0, 0), dpm_timer_restart(nullptr, &node, 1),
          dpm_timer_restart(list, nullptr, 1), dpm_timer_stop(nullptr, &node),
          dpm_timer_stop(list, nullptr), dpm_timer_list_check(nullptr),
          dpm_timer_list_delete(nullptr)})
        EXPECT_EQ(result, -1);
    ASSERT_EQ(log.size(), 9u);
    EXPECT_TRUE(log[1].starts_with("dpm_timer_start "));
    EXPECT_TRUE(log[8].starts_with("dpm_timer_list_delete "));
    for (const std::string &line : log)
        EXPECT_NE(line.find("::the input parameter is null!"), line.npos) << line;
}

TEST_F(Timers, CompareBySecondsAndThenNanosecondsAsSignedNumbers) {
    EXPECT_EQ(dpm_timer_compare(1, 9, 2, 0), -1);
    EXPECT_EQ(dpm_timer_compare(2, 1, 2, 0), 1);
    EXPECT_EQ(dpm_timer_compare(2, 1, 2, 1), 0);
    EXPECT_EQ(dpm_timer_compare(-1, 0, 1, 0), -1);
}
