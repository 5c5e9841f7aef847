// The frame of the random walks: what steps draw, and what is left of a walk that fails.

#include "support/walk.h"

#include <gtest/gtest.h>

namespace {

// A lamp with a fault: it breaks when it is shaken while it is hot, and a check sees it later.
struct LampWalk : rig::Walk {
    explicit LampWalk(bool has_fault) {
        deeds = {{10, [this] { note("light"), lit = true; }},
                 {10, [this] { note("put out"), lit = hot = false; }},
                 {10, [this] { note("wait " + std::to_string(1 + below(60))), hot = lit; }},
                 {10, [this, has_fault] { note("shake"), broken |= hot && has_fault; }},
                 {99, [this] { note("look at " + std::to_string(below(1000))); }},
                 {5, [this] { check(); }}};
    }
    void check() {
        note("# a check");
        EXPECT_FALSE(broken) << "it is dark";
    }
    bool lit = false, hot = false, broken = false;
};

} // namespace

TEST(Walk, ShrinksToTheDeedsThatAFailureNeedsForAnySeed) {
    const auto make = [] { return std::make_unique<LampWalk>(true); };
    for (unsigned seed = 1; seed <= 20; ++seed) {
        rig::Outcome failed = rig::take_steps(make, seed, rig::steps_up_to(10'000));
        ASSERT_EQ(failed.walk, nullptr);
        EXPECT_LT(rig::shrink(make, seed, failed), 200u);
        EXPECT_EQ(failed.steps.size(), 4u) << failed.text; // light, wait, shake, check
        EXPECT_TRUE(failed.text.find("it is dark") != failed.text.npos) << failed.text;
        EXPECT_EQ(failed.text, rig::take_steps(make, seed, failed.steps).text);
    }
}

TEST(Walk, DrawsTheSameInAStepWhateverOtherStepsThereAre) {
    const auto make = [] { return std::make_unique<LampWalk>(false); };
    const std::string all = rig::take_steps(make, 1, rig::steps_up_to(50)).text;
    std::string one_by_one;
    for (const unsigned step : rig::steps_up_to(50))
        one_by_one += rig::take_steps(make, 1, {step}).text;
    EXPECT_EQ(all, one_by_one);
    EXPECT_NE(all, rig::take_steps(make, 2, rig::steps_up_to(50)).text);
}

TEST(Walk, FindsNothingToShrinkWhenAFailureDoesNotComeAgain) {
    bool has_fault = true;
    const auto make = [&] { return std::make_unique<LampWalk>(std::exchange(has_fault, false)); };
    rig::Outcome failed = rig::take_steps(make, 1, rig::steps_up_to(10'000));
    ASSERT_EQ(failed.walk, nullptr);
    EXPECT_EQ(rig::shrink(make, 1, failed), 0u);
}
