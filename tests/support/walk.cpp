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

using chassis::chip::Request;
using chassis::os::Fault;

namespace {

constexpr unsigned max_replays = 2'000, max_replayed_steps = 600'000;
constexpr std::size_t shortest_tail = 64, lines_kept = 40, command_columns = 72;

class Shrinking {
public:
    Shrinking(const MakeWalk &make, unsigned seed, Outcome &failed)
        : make_(make), seed_(seed), best_(failed) {}

    unsigned replays() {
        if (!find_tail())
            return 0;
        drop_pieces();
        return replays_;
    }

private:
    // What fails becomes the best, without the steps behind its failure.
    bool fails(const std::vector<unsigned> &steps) {
        if (replays_ >= max_replays || replayed_steps_ >= max_replayed_steps)
            return false;
        ++replays_;
        replayed_steps_ += unsigned(steps.size());
        Outcome outcome = take_steps(make_, seed_, steps);
        if (outcome.failures.empty())
            return false;
        best_ = std::move(outcome);
        return true;
    }

    // The last steps that fail without those before; false: not even all of them fail again.
    bool find_tail() {
        const std::vector<unsigned> all = best_.steps;
        for (std::size_t length = shortest_tail; length < all.size(); length *= 2)
            if (fails({all.end() - std::ptrdiff_t(length), all.end()}))
                return true;
        return fails(all);
    }

    // Pieces that the failure does not need are left out, ever smaller ones, and single steps until
    // none can be spared.
    void drop_pieces() {
        for (std::size_t piece = best_.steps.size(); piece > 0;) {
            const std::size_t before = best_.steps.size();
            for (std::size_t at = 0; at < best_.steps.size();) {
                std::vector<unsigned> rest = best_.steps;
                const auto first = rest.begin() + std::ptrdiff_t(at);
                rest.erase(first, first + std::ptrdiff_t(std::min(piece, rest.size() - at)));
                if (!fails(rest))
                    at += piece;
            }
            piece = piece > 1 ? piece / 2 : best_.steps.size() < before;
        }
    }

    const MakeWalk &make_;
    const unsigned seed_;
    Outcome &best_;
    unsigned replays_ = 0, replayed_steps_ = 0;
};

unsigned number_of_environment(const char *name, unsigned otherwise) {
    const char *const text = std::getenv(name);
    return text ? unsigned(std::stoul(text)) : otherwise;
}

std::vector<unsigned> numbers_of(const std::string &list) {
    std::vector<unsigned> numbers;
    std::istringstream texts(list);
    for (std::string text; std::getline(texts, text, ',');)
        numbers.push_back(unsigned(std::stoul(text)));
    return numbers;
}

} // namespace

// --- steps ---

void Walk::take_step(unsigned seed, unsigned number) {
    step_ = number;
    random.state = std::uint64_t(seed) << 32 | number;
    if (number % check_every_ == 0) {
        note("# a check");
        return check();
    }
    unsigned place =
        below(std::accumulate(deeds.begin(), deeds.end(), 0u,
                              [](unsigned sum, const Deed &deed) { return sum + deed.weight; }));
    for (const Deed &deed : deeds) {
        if (place < deed.weight)
            return deed.act();
        place -= deed.weight;
    }
}

// splitmix64, its upper half
Walk::Random::result_type Walk::Random::operator()() {
    std::uint64_t mixed = state += 0x9E3779B97F4A7C15;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
    return result_type((mixed ^ mixed >> 31) >> 32);
}

// --- walks ---

Outcome take_steps(const MakeWalk &make, unsigned seed, const std::vector<unsigned> &steps) {
    using Reporter = ::testing::ScopedFakeTestPartResultReporter;
    ::testing::TestPartResultArray failures;
    const Reporter reporter(Reporter::INTERCEPT_ONLY_CURRENT_THREAD, &failures);
    Outcome outcome{.steps = {}, .script = {}, .failures = {}, .walk = make()};
    for (std::size_t i = 0; i < steps.size() && failures.size() == 0; ++i) {
        outcome.walk->take_step(seed, steps[i]);
        outcome.steps.push_back(steps[i]);
    }
    for (int i = 0; i < failures.size(); ++i) {
        std::ostringstream text;
        text << failures.GetTestPartResult(i);
        outcome.failures.push_back(text.str());
    }
    outcome.script = std::move(outcome.walk->script);
    if (!outcome.failures.empty())
        outcome.walk.reset();
    return outcome;
}

unsigned shrink(const MakeWalk &make, unsigned seed, Outcome &failed) {
    return Shrinking(make, seed, failed).replays();
}

std::string text_of(const Outcome &outcome, unsigned seed) {
    std::string text = joined("  DPM_WALK_SEED=", seed);
    for (const unsigned step : outcome.steps)
        text += joined(step == outcome.steps.front() ? " DPM_WALK_ONLY=" : ",", step);
    text += "\n";
    for (Walk::Line line : outcome.script) {
        line.command.resize(std::max(line.command.size(), command_columns), ' ');
        text += joined("  ", line.command, " # ", line.step, "\n");
    }
    for (const std::string &failure : outcome.failures)
        text += failure;
    return text;
}

std::unique_ptr<Walk> take_walk(const MakeWalk &make, unsigned steps, unsigned check_every) {
    const unsigned seed = number_of_environment("DPM_WALK_SEED", 1);
    const char *const only = std::getenv("DPM_WALK_ONLY");
    steps = number_of_environment("DPM_WALK_STEPS", steps) + check_every - 1;
    std::vector<unsigned> all(steps - steps % check_every);
    std::iota(all.begin(), all.end(), 1u);
    ::testing::Test::RecordProperty("seed", int(seed));
    Outcome outcome = take_steps(make, seed, only ? numbers_of(only) : all);
    if (outcome.failures.empty() && !only)
        return std::move(outcome.walk);
    if (outcome.failures.empty()) {
        std::cout << "these steps pass:\n" << text_of(outcome, seed);
        return nullptr;
    }
    std::string what = "these steps fail";
    if (!only) {
        what = joined("the walk fails at step ", unsigned(outcome.steps.size()));
        if (const unsigned replays = shrink(make, seed, outcome)) {
            what += joined(", and so do ", unsigned(outcome.steps.size()), " of its steps (",
                           replays, " replays)");
        } else {
            what += ", but not when it is taken again; its last commands";
            outcome.steps.clear();
            outcome.script.erase(outcome.script.begin(),
                                 outcome.script.end() -
                                     std::min(lines_kept, outcome.script.size()));
        }
    }
    ADD_FAILURE() << what << " (a fault holds for the next command alone):\n"
                  << text_of(outcome, seed);
    return nullptr;
}

// --- walks over a shelf ---

void ShelfWalk::arm(Fault kind, unsigned nth, unsigned count) {
    note("fault ", kind == Fault::send ? "send " : "alloc ", nth, " times ", count);
    fail(kind, nth, count);
}

void ShelfWalk::arm(const char *request, unsigned count, int code, unsigned skip) {
    note("chip refuse ", request, " ", count, skip ? joined(" skip ", skip) : "",
         code == -1 ? "" : joined(" code ", unsigned(code)));
    refuse(chassis::chip::request_named(request).value(), count, code, skip);
}

void ShelfWalk::disarm() {
    for (unsigned kind = 0; kind < unsigned(Request::count); ++kind)
        refuse(Request(kind), 0);
    fail(Fault::allocation, 0);
    fail(Fault::send, 0);
}

void ShelfWalk::note_neighbour(const char *verb, const Neighbour &own) {
    const bool adds = verb == std::string("add");
    note("neigh ", verb, " ", own.ip, " lladdr ", own.mac, " dev ", vlanif(own.vlan),
         !adds       ? ""
         : own.trunk ? joined(" trunk ", own.trunk)
                     : joined(" port ", own.port),
         " vlan ", own.vlan, adds && own.cvlan ? joined(" cvlan ", own.cvlan) : "");
}

unsigned ShelfWalk::time_passes(unsigned limit_sec) {
    const unsigned seconds = below(limit_sec);
    note("clock advance ", seconds, "s");
    advance(seconds);
    return seconds;
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
    const auto before = standby().chip.requests(Request::del_ip_entry);
    switch_over();
    EXPECT_EQ(master().chip.requests(Request::del_ip_entry), before) << "nothing leaves the chip";
    if (!one_in(3))
        standby_comes();
    return true;
}

} // namespace rig
