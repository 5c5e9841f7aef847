// The test rig: a shelf of two control cards in one process, and the verbs that scenarios are told
// with.
//
// Both cards run pumped: a verb makes its requests, lets both cards work until they are quiet, and
// comes back.  The clock stands still until advance().  One card is the master, and current, so
// that a test may call dpm_api_* directly; `as(card)` makes the other one current for a scope.
//
// A card that is lost is gone for good, with its memory; the next one in its slot starts empty, and
// is told the interfaces again as the routing suite would.  The chip's tables live on line cards:
// they outlive a master.
//
// At the end of every test the laws are checked (laws.h).  A test that breaks one on purpose says
// so with allow_*().
#pragma once

#include "chassis/chassis.h"
#include "chassis/ctl/grammar.h"
#include "chassis/ctl/server/server.h"
#include "chassis/journal/journal.h"
#include "chassis/tables/tables.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rig {

using chassis::Card;
using chassis::journal::Channel, chassis::journal::Event, chassis::journal::Journal;

// A neighbour on vlanif100 and its VLAN, as the IP stack tells it.
struct Neighbour {
    std::string ip = "10.1.1.2"; // either family
    unsigned port = 1;
    unsigned vrf = 0; // that the IP stack knows it in
};

using Words = std::vector<std::string>;
Words words_of(const std::string &text);
std::string word_behind(const Words &words, const std::string &word, const char *otherwise = "");

// Records from text; a text that cannot be read fails the test.
dpm_prefix prefix_of(const std::string &text); // "10.1.1.2" or "2001:db8::/64"
std::string text_of(const dpm_prefix &ip);
dpm_host_info info_of(const Card &card, const Neighbour &neighbour);

// Each of several calls, in their order, answers `wanted`.
void expect_all(int wanted, std::initializer_list<int> answers);

// Exceptions to the laws that a test states.
struct Exceptions {
    unsigned mistakes = 0;        // that the chip counted, on all cards together
    unsigned failed_checks = 0;   // of the library, on all cards together
    unsigned nexthop_leaks = 0;   // references of next hops without a host
    unsigned group_leaks = 0;     // groups that no route points to
    unsigned blocks = 0;          // live on the master and held by the test
    unsigned routes_adrift = 0;   // not 0: a refusal left routes that do not follow their hosts
    unsigned chip_differs = 0;    // not 0: the chip is not what the tables say
    unsigned mcast_adrift = 0;    // not 0: a refusal left ports whose filters are not followed
    unsigned standby_differs = 0; // not 0: the standby is not what the master says
};

enum class Start {
    alone,     // the master alone
    joined,    // both cards started and joined, nothing mirrored yet
    mirroring, // and the standby has connected
};

class Shelf : public ::testing::Test {
public:
    explicit Shelf(Start start = Start::mirroring);
    ~Shelf() override;

    Card &master() { return *cards_[master_]; }
    Card &standby() { return *cards_[1 - master_]; } // while there is one
    bool has_standby() const { return cards_[1 - master_] != nullptr; }
    std::vector<Card *> cards();
    [[nodiscard]] chassis::CardScope as(Card &card) { return chassis::CardScope(card); }

    // A command, as dpmctl gives it: settings and events of links to both cards, settings again to
    // one that comes later, anything else to the master.  Time passes as by advance().  What a
    // neighbour's command leaves open is vlanif100, and a MAC that ends as its address does.  The
    // rig's own commands, told to the master as the routing suite would, are ftn add|del PREFIX
    // [via IP] [dev NAME] [vrf VRF] [label LABEL] [remote IP], ilm add|del LABEL [via IP] [dev NAME]
    // [vrf VRF] [swap LABEL] [fec PREFIX] [egress], and mpls add|del NAME [space NUMBER].
    ctl::Reply run(const std::string &command);
    ctl::Reply run_on(Card &card, const std::string &command);

    // Moves both clocks; the timers of both cards fire at their time, in order.
    void advance(unsigned seconds);
    // Lets both cards work until both are quiet.
    void settle();
    // While held, verbs post and do not settle.
    void hold(bool on) { held_ = on; }

    void standby_connects(); // a new card where none is, and the tables travel
    void standby_starts();   // the same without the connection: joined, nothing mirrored
    void standby_lost();
    void switch_over(); // the master is gone and the standby takes its place
    // The master will die behind so many changes that standby and line cards see, and be gone with
    // the next switch-over.
    void dies_behind(unsigned changes) { changes_left_ = changes; }
    bool is_dead() const { return changes_left_ == 0; }

    // Faults on the master.
    void refuse(chassis::chip::Function kind, unsigned count = 1, int code = -1,
                unsigned skip = 0) {
        master().chip.refuse(kind, count, code, skip);
    }
    void fail(chassis::os::Fault kind, unsigned nth = 1, unsigned count = 1) {
        master().os.fail(kind, nth, count);
    }

    // What was logged and asked of the chip since the last clear_journal().
    std::vector<std::string> told(const Card &card, Channel channel) const;
    auto log(const Card &card) const { return told(card, Channel::log); }
    unsigned logged(const Card &card, const std::string &part) const;
    auto chip_calls(const Card &card) const { return told(card, Channel::chip); }
    void clear_journal();
    void keep_log(bool on); // long walks do without

    // The tables in their order, IPv4 before IPv6.
    template <class Record>
    std::vector<Record> all(Card &card, const chassis::tables::TableOf<Record> &table) {
        const auto scope = as(card);
        std::vector<Record> records;
        table.each([&](const Record &record) { records.push_back(record); });
        return records;
    }
    auto hosts(Card &card) { return all(card, chassis::tables::hosts); }
    auto nexthops(Card &card) { return all(card, chassis::tables::nexthops); }
    auto interfaces(Card &card) { return all(card, chassis::tables::interfaces); }
    auto unreachables(Card &card) { return all(card, chassis::tables::unreachable); }
    auto holds(Card &card) { return all(card, chassis::tables::hold); }
    auto routes(Card &card) { return all(card, chassis::tables::routes); }
    auto groups(Card &card) { return all(card, chassis::tables::ecmp); }
    auto ftns(Card &card) { return all(card, chassis::tables::ftn); }
    auto ilms(Card &card) { return all(card, chassis::tables::ilm); }
    auto mpls_ifs(Card &card) { return all(card, chassis::tables::mpls_if); }
    // The record in the table, or null.
    dpm_route_entry *route(Card &card, const std::string &prefix, unsigned vrf = 0);
    // What the chip answers for an address: "10.2.0.0/16 -> 10.1.1.2 10.1.1.3", the hosts by
    // address; "cpu" and "nowhere" stand for themselves, "" for no entry.
    std::string forwards(const std::string &address, unsigned vrf = 0);

    Journal journal{chassis::journal::Naming::by_making}; // before the cards: they write to its end

    Exceptions &allow() { return exceptions_; }
    void check_laws();

protected:
    void TearDown() override { check_laws(); }

private:
    Card &start_card(unsigned index);
    void line_cards_follow();
    bool lives() { return changes_left_ > 0 && changes_left_-- > 0; }
    void replay(Card &card);
    void end_card(unsigned index);
    bool change_label(const Words &words);
    void settle_verb() { held_ ? void() : settle(); }
    std::int64_t nsec_to_next_timer();

    std::unique_ptr<chassis::chip::Chip> line_cards_; // what outlives a master, by its changes
    std::unique_ptr<Card> cards_[2];                  // slots 9 and 10
    std::unique_ptr<ctl::Server> servers_[2];
    std::size_t blocks_at_start_[2] = {};
    unsigned master_ = 0;
    bool held_ = false, keep_log_ = true;
    unsigned changes_left_ = ~0u;
    Exceptions exceptions_;
    std::uint64_t past_mistakes_ = 0, past_failed_checks_ = 0; // of cards that are gone
};

class LoneShelf : public Shelf {
protected:
    LoneShelf() : Shelf(Start::alone) {}
};

class JoinedShelf : public Shelf {
protected:
    JoinedShelf() : Shelf(Start::joined) {}
};

} // namespace rig
