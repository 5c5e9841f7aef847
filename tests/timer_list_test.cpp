// Timer lists against a model, on a clock that stands still.

#include "chassis/chassis.h"
#include "dpm_timer.h"
#include "support/soundness.h"

#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

namespace {

class Timers : public ::testing::Test {
protected:
    static constexpr unsigned names = 40;

    Timers() {
        card.os.log_to([this](const chassis::os::LogLine &line) { log.push_back(line.text); });
        list = dpm_timer_list_create();
        for (unsigned name = 0; name < names; ++name)
            make(name);
    }
    void TearDown() override {
        EXPECT_EQ(rig::list_problem(list->head), "");
        dpm_timer_list_delete(list);
    }

    void make(unsigned name) {
        nodes[name] = std::make_unique<dpm_timer_node>();
        EXPECT_EQ(dpm_timer_node_init(nodes[name].get()), 0);
    }
    void expect_in(unsigned seconds, unsigned name) {
        armed.emplace(card.os.now_nsec() + seconds * chassis::os::nsec_per_sec, name);
    }
    void forget(unsigned name) {
        std::erase_if(armed, [name](const auto &timer) { return timer.second == name; });
    }
    void start(unsigned name, unsigned seconds) {
        forget(name);
        expect_in(seconds, name);
        EXPECT_EQ(dpm_timer_start(list, nodes[name].get(), seconds, expired,
                                  reinterpret_cast<std::uintptr_t>(this), name, 7),
                  0);
    }
    void restart(unsigned name, unsigned seconds) { // callback and arguments stay
        if (!nodes[name]->callback)
            return;
        forget(name);
        expect_in(seconds, name);
        EXPECT_EQ(dpm_timer_restart(list, nodes[name].get(), seconds), 0);
    }
    void stop(unsigned name) {
        forget(name);
        EXPECT_EQ(dpm_timer_stop(list, nodes[name].get()), 0);
        EXPECT_TRUE(is_idle(name) && !nodes[name]->callback && nodes[name]->arg3 == 0);
    }
    bool is_idle(unsigned name) const {
        const dpm_timer_node &node = *nodes[name];
        return list_empty(&node.link) && node.expiry_sec == 0 && node.expiry_nsec == 0;
    }
    void deed(unsigned name) {
        const unsigned seconds = unsigned(random() % 6);
        switch (random() % 8) {
        case 0:
            return stop(name);
        case 1:
            stop(name);
            return make(name); // its record is freed
        case 2:
        case 3:
            return restart(name, seconds);
        default:
            return start(name, seconds);
        }
    }
    static int expired(std::uintptr_t test, std::uintptr_t name, std::uintptr_t extra) {
        EXPECT_EQ(extra, 7u);
        auto &own = *reinterpret_cast<Timers *>(test);
        own.fires(unsigned(name));
        return -1; // nobody looks
    }
    void fires(unsigned name) {
        ++fired;
        EXPECT_TRUE(is_idle(name));
        const auto first = armed.begin();
        ASSERT_NE(first, armed.end());
        EXPECT_EQ(first->second, name);
        EXPECT_LE(first->first, card.os.now_nsec());
        armed.erase(first);
        if (random() % 2) // to itself or to another
            deed(random() % 2 ? name : unsigned(random() % names));
    }

    chassis::Card card{{.slot = 9, .mode = chassis::os::Mode::pumped, .mac = {}}};
    dpm_timer_list *list;
    std::unique_ptr<dpm_timer_node> nodes[names];
    std::multimap<std::int64_t, unsigned> armed; // by expiry, of equal expiry in order of arming
    std::mt19937 random{4};
    unsigned fired = 0;
    std::vector<std::string> log;
};

} // namespace

TEST_F(Timers, FireByExpiryToTheNanosecondWhateverTheirCallbacksDo) {
    for (unsigned step = 0; step < 5000; ++step) {
        deed(unsigned(random() % names));
        if (random() % 3 == 0) {
            card.os.advance(std::int64_t(random() % 4) * 500'000'000 + (random() % 4 == 0));
            EXPECT_EQ(dpm_timer_list_check(list), 0);
            EXPECT_TRUE(armed.empty() || armed.begin()->first > card.os.now_nsec());
        }
        ASSERT_EQ(rig::list_problem(list->head), "");
        ASSERT_FALSE(HasFailure()) << "behind step " << step;
    }
    EXPECT_GT(fired, 1000u);
}

TEST_F(Timers, CheckingReadsTheClockOnceAndNotAtAllForAnEmptyList) {
    const std::uint64_t before = card.os.clock_reads();
    dpm_timer_list_check(list);
    EXPECT_EQ(card.os.clock_reads(), before);
    for (const unsigned name : {0u, 1u, 9u})
        start(name, 9);
    const std::uint64_t started = card.os.clock_reads();
    dpm_timer_list_check(list);
    EXPECT_EQ(card.os.clock_reads(), started + 1);
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
    EXPECT_TRUE(log[1].starts_with("dpm_timer_start ")) << log[1];
    EXPECT_TRUE(log[8].ends_with("::the input parameter is null!")) << log[8];
    EXPECT_EQ(dpm_timer_compare(-1, 0, 1, 0), -1) << "signed";
}
