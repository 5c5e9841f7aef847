// Taking walks, shrinking those that fail, and the deeds that walks over a shelf share.

#include "support/walk.h"

#include "dpm_bridge.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest-spi.h>
#include <iostream>
#include <numeric>
#include <sstream>

namespace rig {

using chassis::chip::Function;
using chassis::os::Fault;

namespace {

// What shrinking may take, in steps; a replay takes some more.
constexpr std::size_t steps_to_replay = 500'000, steps_of_a_replay = 100;
constexpr std::size_t shortest_tail = 64, command_columns = 72, script_bytes = 200'000;

Steps without(Steps steps, std::size_t at, std::size_t count) {
    const auto first = steps.begin() + std::ptrdiff_t(at);
    steps.erase(first, first + std::ptrdiff_t(std::min(count, steps.size() - at)));
    return steps;
}

unsigned number_of_environment(const char *name, unsigned otherwise) {
    const char *const text = std::getenv(name);
    return text ? unsigned(std::stoul(text)) : otherwise;
}

std::string list_of(const Steps &steps) {
    std::string list;
    for (const unsigned step : steps)
        list += joined(list.empty() ? "" : ",", step);
    return list;
}

} // namespace

// --- steps ---

void Walk::take_step(unsigned seed, unsigned number) {
    step_ = number;
    std::seed_seq seeds{seed, number};
    random_.seed(seeds);
    unsigned place = 0;
    for (const auto &[weight, act] : deeds)
        place += weight;
    place = below(place);
    for (const auto &[weight, act] : deeds) {
        if (place < weight) {
            act();
            return disarm();
        }
        place -= weight;
    }
}

void Walk::write(std::string command) {
    if (script.size() > script_bytes) // the last half remains
        script.erase(0, script.find('\n', script_bytes / 2) + 1);
    command.resize(std::max(command.size(), command_columns), ' ');
    script += joined("  ", command, " # ", step_, "\n");
}

// --- walks ---

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
    for (std::size_t tail = shortest_tail;; tail *= 2) {
        if (fails({all.end() - std::ptrdiff_t(std::min(tail, all.size())), all.end()}))
            break;
        if (tail >= all.size())
            return 0;
    }
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
    const unsigned seed = number_of_environment("DPM_WALK_SEED", 1);
    const char *const only = std::getenv("DPM_WALK_ONLY");
    Steps steps = steps_up_to(only ? 0 : number_of_environment("DPM_WALK_STEPS", length));
    std::istringstream list(only ? only : "");
    for (unsigned step; list >> step; list.ignore())
        steps.push_back(step);
    ::testing::Test::RecordProperty("seed", int(seed));
    Outcome outcome = take_steps(make, seed, steps);
    if (outcome.walk && only)
        std::cout << "these steps pass:\n" << outcome.text;
    if (outcome.walk)
        return only ? nullptr : std::move(outcome.walk);
    std::string told = joined("DPM_WALK_SEED=", seed, " fails in ", outcome.steps.size(), " steps");
    if (const unsigned replays = only ? 0 : shrink(make, seed, outcome))
        told += joined("; ", replays,
                       " replays found that it does so in these:\n  DPM_WALK_SEED=", seed,
                       " DPM_WALK_ONLY=", list_of(outcome.steps));
    else if (!only)
        told += ", but not when they are taken again; the last of them were";
    ADD_FAILURE() << told << "\n  # a fault holds for the next command alone\n" << outcome.text;
    return nullptr;
}

// --- walks over a shelf ---

void ShelfWalk::arm(const std::string &what, unsigned number, int code, unsigned skip) {
    is_armed_ = true;
    if (what == "alloc") {
        note("fault alloc ", number);
        fail(Fault::allocation, number);
    } else if (what == "send") {
        note("fault send 1 times ", number);
        fail(Fault::send, 1, number);
    } else {
        note("chip refuse ", what, " ", number, skip ? joined(" skip ", skip) : "",
             code == -1 ? "" : joined(" code ", unsigned(code)));
        refuse(chassis::chip::request_named(what).value(), number, code, skip);
    }
}

void ShelfWalk::disarm() {
    if (!std::exchange(is_armed_, false))
        return;
    for (unsigned kind = 0; kind < unsigned(Function::count); ++kind)
        refuse(Function(kind), 0);
    fail(Fault::allocation, 0);
    fail(Fault::send, 0);
}

void ShelfWalk::interface_comes(unsigned vlan, std::uint32_t type) {
    note("if add ", vlanif(vlan), " vlan ", vlan, type == DPM_IF_SUPERVLAN ? " super" : "");
    add_interface(vlanif(vlan), vlan, type);
}

void ShelfWalk::interface_moves(unsigned vlan, unsigned vrf) {
    note("if vrf ", vlanif(vlan), " ", vrf);
    set_vrf(vlanif(vlan), vrf);
}

int ShelfWalk::tell(bool learns, const Neighbour &own) {
    const std::string at = own.trunk ? joined(" trunk ", own.trunk) : joined(" port ", own.port);
    note("neigh ", learns ? "add " : "del ", own.ip, " lladdr ", own.mac, " dev ", vlanif(own.vlan),
         learns ? at : "", " vlan ", own.vlan,
         learns && own.cvlan ? joined(" cvlan ", own.cvlan) : "");
    return learns ? learn_host(own) : forget_host(own);
}

void ShelfWalk::time_passes(unsigned seconds) {
    note("clock advance ", seconds, "s");
    advance(seconds);
}

void ShelfWalk::line_card_comes() {
    note("card slot-up 3");
    EXPECT_EQ(dpm_bridge_slot_up(3), 0);
    settle();
}

void ShelfWalk::standby_comes() {
    note("# the standby connects");
    if (!has_standby()) {
        standby_starts();
        configure(standby());
    }
    standby_connects();
}

void ShelfWalk::standby_goes() {
    note("# the standby is lost");
    standby_lost();
}

bool ShelfWalk::master_dies() {
    if (!has_standby() || dpm_get_slave_up() != 1)
        return false;
    note("# the master dies");
    const auto before = standby().chip.requests(Function::del_ip_entry);
    switch_over();
    EXPECT_EQ(master().chip.requests(Function::del_ip_entry), before) << "nothing leaves the chip";
    if (!one_in(3))
        standby_comes();
    return true;
}

} // namespace rig
