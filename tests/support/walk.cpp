// Taking walks, shrinking those that fail, and the deeds that walks over a shelf share.

#include "support/walk.h"

#include "dpm_ecmp.h"
#include "platform/dal.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest-spi.h>
#include <iostream>
#include <numeric>
#include <sstream>

namespace rig {

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

// --- the walk over all tables ---

namespace {

struct Lists { // what tables joined with
    std::vector<Deed> deeds;
    std::map<std::string, std::function<std::string(TableWalk &)>> words;
    std::vector<std::pair<std::string, Expectation::Look>> expectations;
    struct Table {
        std::string taken_by;
        Modelled::Read read;
    };
    std::map<std::string, Table> modelled;
};
Lists &lists() {
    static Lists all;
    return all;
}

constexpr const char *stretches[] = {"plain", "of few groups", "of faults of hosts", "faulty"};
constexpr const char *refusals[] = {"route",       "route-del", "nexthop",
                                    "nexthop-del", "group",     "group-member"};

bool is_one_of(const std::string &command, std::initializer_list<const char *> beginnings) {
    return std::ranges::any_of(
        beginnings, [&](const char *beginning) { return command.starts_with(beginning); });
}
// Routes and label entries stay out of the stretch that ends without taking everything away.
bool is_of_routes(const std::string &command) {
    return is_one_of(command, {"route ", "ftn ", "ilm "});
}
// The suite tells of an interface once, and believes that it is there.
bool may_fail(const std::string &command) {
    return is_of_routes(command) || is_one_of(command, {"neigh ", "port ", "trunk ", "await "});
}

} // namespace

Deeds::Deeds(std::initializer_list<Deed> deeds) {
    lists().deeds.insert(lists().deeds.end(), deeds);
}
Drawn::Drawn(const char *word, std::function<std::string(TableWalk &)> draw) {
    lists().words["{" + std::string(word) + "}"] = std::move(draw);
}
Expectation::Expectation(const char *command, Look look) {
    lists().expectations.emplace_back(command, std::move(look));
}
Modelled::Modelled(const char *table, const char *taken_by, Read read) {
    lists().modelled[table] = {taken_by, std::move(read)};
}

TableWalk::TableWalk() : RowShelf(4, Role::mirroring, {.bare = true}) {
    keep_log(false);
    for (const Deed &deed : lists().deeds)
        deeds.emplace_back(deed.weight, [this, &deed] {
            if (deed.act)
                return deed.act(*this);
            const std::string command = drawn(deed.command);
            if (stretch == Stretch::faulty_hosts && is_of_routes(command))
                return;
            if (may_fail(command))
                arm();
            perform(command);
        });
}

std::string TableWalk::drawn(std::string command) {
    for (const auto &[word, draw] : lists().words)
        for (std::size_t at = 0; (at = command.find(word)) != command.npos;)
            command.replace(at, word.size(), draw(*this));
    return command;
}

bool TableWalk::perform(const std::string &command) {
    note(command);
    const bool is_accepted = act(command);
    look_behind(command, is_accepted);
    return is_accepted;
}

void TableWalk::look_behind(const std::string &command, bool is_accepted) {
    const Words words = words_of(command);
    for (const auto &[begin, look] : lists().expectations)
        if (command.starts_with(begin))
            look(*this, words, is_accepted);
}

void TableWalk::expect(const std::string &table, const std::string &key, const std::string *text) {
    Entries &entries = model[table];
    if (is_faulty()) {
        const Entries found = lists().modelled.at(table).read(*this);
        const auto at = found.find(key);
        text = at == found.end() ? nullptr : &at->second;
        text ? void(entries[key] = *text) : void(entries.erase(key));
        return;
    }
    text ? void(entries[key] = *text) : void(entries.erase(key));
}

// One fault of the master, until the deed ends.
void TableWalk::arm() {
    const bool is_of_hosts = stretch == Stretch::faulty_hosts;
    if ((stretch != Stretch::faulty && !is_of_hosts) || !one_in(3))
        return;
    const unsigned kind = below(is_of_hosts ? 6 : 8);
    if (kind == 0)
        fault_ = joined("fault alloc ", 1 + below(5));
    else if (kind == 1)
        fault_ = "fault send 1 times 4";
    else
        fault_ = joined("chip refuse ", refusals[kind - 2], " ", 1 + below(2),
                        one_in(2) ? " skip 1" : "", one_in(2) ? " code 5" : "");
    note(fault_);
    (void)act(fault_);
}

void TableWalk::disarm() {
    if (fault_.empty())
        return;
    for (const char *kind : refusals)
        (void)act(joined("chip refuse ", kind, " 0"));
    (void)act("fault alloc 0");
    (void)act("fault send 0");
    account_for_fault();
    fault_.clear();
}

unsigned TableWalk::leaks() {
    unsigned references = 0;
    for (const dpm_nexthop_entry &entry : nexthops(master()))
        references += entry.cnt;
    return references - unsigned(hosts(master()).size());
}

// What a fault may leave behind on purpose: a reference of a next hop whose entry was refused, an
// object of the chip for which there was no memory.
void TableWalk::account_for_fault() {
    const unsigned leaked = leaks() - allow().nexthop_leaks;
    EXPECT_LE(leaked, fault_.starts_with("chip refuse route ") ? 2u : 0u) << "references leak";
    allow().nexthop_leaks += leaked;
    auto orphans = master().chip.nexthops;
    for (const dpm_nexthop_entry &entry : nexthops(master()))
        orphans.erase(entry.sdk_index);
    EXPECT_LE(orphans.size(), fault_.starts_with("fault alloc") ? 1u : 0u) << "objects leak";
    for (const auto &[index, object] : orphans)
        EXPECT_EQ(dal_driver_del_ip_nexthop(index, 0), 0);
}

void TableWalk::mend() {
    for (const auto &[key, command] : std::exchange(half_gone, {}))
        if (model["hosts"].contains(key))
            perform(command);
}

void TableWalk::check() {
    note("# a check");
    if (stretch == Stretch::faulty_hosts)
        mend();
    for (const auto &[name, table] : lists().modelled)
        EXPECT_EQ(table.read(*this), model[name]) << name;
    most_hosts = std::max(most_hosts, model["hosts"].size());
    most_routes = std::max(most_routes, model["routes"].size());
    if (stretch == Stretch::faulty)
        return; // what was refused is adrift until the stretch ends
    check_laws();
}

void TableWalk::end_stretch() {
    check();
    if (stretch != Stretch::plain)
        clear();
    check_laws();
    begin_stretch(Stretch(below(4)));
}

void TableWalk::begin_stretch(Stretch next) {
    note("# the next stretch is ", stretches[unsigned(next)]);
    stretch = next;
    if (next == Stretch::faulty_hosts)
        clear();
    if (next != Stretch::few_groups)
        return;
    for (std::size_t taken = groups(master()).size(); taken < 1020; ++taken) {
        held.push_back(0);
        ASSERT_EQ(dpm_ecmp_add(DPM_FAMILY_IPV4, &held.back(), 2), 0);
    }
    settle();
    allow().group_leaks = unsigned(held.size());
    allow().routes_adrift = true;
}

// Everything is taken away, and what was adrift is sound again.
void TableWalk::clear() {
    for (const auto &[name, table] : lists().modelled)
        for (const auto &[key, text] : table.taken_by.empty() ? Entries{} : table.read(*this))
            EXPECT_TRUE(act(table.taken_by + key)) << key;
    for (std::int32_t &index : std::exchange(held, {}))
        EXPECT_EQ(dpm_ecmp_del_all(DPM_FAMILY_IPV4, &index), 0);
    for (const dpm_host_entry &host : hosts(master()))
        EXPECT_EQ(dpm_api_host_msg_send(&host, DPM_OPER_DEL), 0);
    settle();
    for (const auto &[name, table] : lists().modelled)
        EXPECT_EQ(table.read(*this), model[name] = {}) << name;
    half_gone.clear();
    EXPECT_TRUE(groups(master()).empty());
    allow().group_leaks = 0;
    allow().routes_adrift = false;
}

} // namespace rig
