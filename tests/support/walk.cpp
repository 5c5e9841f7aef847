// Random walks: how steps are drawn, and what is left of a walk that fails.

#include "support/walk.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest-spi.h>
#include <iostream>
#include <numeric>
#include <sstream>

namespace rig {

namespace {

// What replays may cost, in steps: a short one costs its shelf and its first checks.
constexpr std::size_t steps_to_replay = 400'000, steps_of_a_replay = 400;
constexpr std::size_t shortest_tail = 64, command_columns = 72, script_bytes = 200'000;

Steps without(Steps steps, std::size_t at, std::size_t count) {
    const auto first = steps.begin() + std::ptrdiff_t(at);
    steps.erase(first, first + std::ptrdiff_t(std::min(count, steps.size() - at)));
    return steps;
}

} // namespace

void Walk::take_step(unsigned seed, unsigned number) {
    step_ = number;
    std::seed_seq seeds{seed, number};
    random_.seed(seeds);
    unsigned place = 0;
    for (const auto &[weight, act] : deeds)
        place += weight;
    place = below(place);
    for (const auto &[weight, act] : deeds) {
        if (place < weight)
            return act();
        place -= weight;
    }
}

void Walk::note(std::string command) {
    if (script.size() > script_bytes) // the last half remains
        script.erase(0, script.find('\n', script_bytes / 2) + 1);
    command.resize(std::max(command.size(), command_columns), ' ');
    script += "  " + command + " # " + std::to_string(step_) + "\n";
}

Steps steps_up_to(unsigned last) {
    Steps steps(last);
    std::iota(steps.begin(), steps.end(), 1u);
    return steps;
}

Outcome take_steps(const MakeWalk &make, unsigned seed, const Steps &steps) {
    using Reporter = ::testing::ScopedFakeTestPartResultReporter;
    ::testing::TestPartResultArray failures;
    const Reporter reporter(Reporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    Outcome outcome{make(), {}, {}};
    for (std::size_t i = 0; i < steps.size() && failures.size() == 0; ++i) {
        outcome.walk->take_step(seed, steps[i]);
        outcome.steps.push_back(steps[i]);
    }
    std::ostringstream text;
    for (int i = 0; i < failures.size(); ++i)
        text << failures.GetTestPartResult(i);
    outcome.text = std::move(outcome.walk->script) + text.str();
    if (failures.size() > 0)
        outcome.walk.reset();
    return outcome;
}

unsigned shrink(const MakeWalk &make, unsigned seed, Outcome &failed) {
    const Steps all = failed.steps;
    std::size_t budget = 2 * all.size() + steps_to_replay;
    unsigned replays = 0;
    const auto fails = [&](const Steps &steps) {
        const std::size_t cost = steps.size() + steps_of_a_replay;
        if (budget < cost)
            return false;
        budget -= cost;
        ++replays;
        Outcome outcome = take_steps(make, seed, steps);
        if (outcome.walk)
            return false;
        failed = std::move(outcome);
        return true;
    };
    // The last steps, if need be all.
    for (std::size_t tail = shortest_tail;
         !fails(without(all, 0, all.size() - std::min(tail, all.size()))); tail *= 2)
        if (tail >= all.size())
            return 0;
    // Pieces that the failure does not need are left out, ever smaller ones; then pairs, of which
    // one may be needed for the other alone.
    for (std::size_t piece = failed.steps.size(); piece > 0; piece /= 2)
        for (std::size_t at = 0; at < failed.steps.size();)
            at += fails(without(failed.steps, at, piece)) ? 0 : piece;
    for (std::size_t at = 0; at < failed.steps.size(); ++at)
        for (std::size_t other = at; other < failed.steps.size();)
            other =
                fails(without(without(failed.steps, other, 1), at, other > at)) ? at : other + 1;
    return replays;
}

std::unique_ptr<Walk> take_walk(const MakeWalk &make, unsigned length) {
    const auto number = [](const char *name, unsigned otherwise) {
        const char *const text = std::getenv(name);
        return text ? unsigned(std::stoul(text)) : otherwise;
    };
    const unsigned seed = number("DPM_WALK_SEED", 1);
    const char *const only = std::getenv("DPM_WALK_ONLY");
    Steps steps = steps_up_to(only ? 0 : number("DPM_WALK_STEPS", length));
    std::istringstream list(only ? only : "");
    for (unsigned step; list >> step; list.ignore())
        steps.push_back(step);
    Outcome outcome = take_steps(make, seed, steps);
    if (outcome.walk && only)
        std::cout << "these steps pass:\n" << outcome.text;
    if (outcome.walk)
        return only ? nullptr : std::move(outcome.walk);
    std::ostringstream told;
    told << "DPM_WALK_SEED=" << seed << " fails in " << outcome.steps.size() << " steps";
    const unsigned replays = only ? 0 : shrink(make, seed, outcome);
    told << (replays ? "; it does so in these alone:\n  DPM_WALK_SEED=" + std::to_string(seed)
             : only  ? ""
                     : ", but not when they are taken again");
    for (std::size_t i = 0; replays && i < outcome.steps.size(); ++i)
        told << (i ? "," : " DPM_WALK_ONLY=") << outcome.steps[i];
    ADD_FAILURE() << told.str() << "\n  # a fault holds for the next command alone\n"
                  << outcome.text;
    return nullptr;
}

} // namespace rig
