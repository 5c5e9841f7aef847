// Random walks: steps drawn from a seed, a model that knows what each of them must lead to, and a
// short script when one leads elsewhere.
//
// A walk is a list of step numbers.  Each step is a deed, drawn by weight from the seed and its own
// number alone, so that others can be left out and it stays what it was.  What it does beyond that
// it decides by the model.  One of the deeds looks whether everything is as it should be.
// A walk that fails is taken again, from the beginning, with ever fewer of its steps, as long as it
// fails at all.  What is left is printed in the words that dpmctl reads.
//
//   DPM_WALK_SEED    another walk (1)           DPM_WALK_STEPS   how far to walk
//   DPM_WALK_ONLY    3,17,64: these steps alone, as the script of a failure names them
#pragma once

#include "support/rows.h"

#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace rig {

// Texts and numbers, one behind the other.
template <class... Parts> std::string joined(const Parts &...parts) {
    const auto text_of = [](const auto &part) {
        if constexpr (std::is_convertible_v<decltype(part), std::string>)
            return std::string(part);
        else
            return std::to_string(part);
    };
    return (text_of(parts) + ...);
}

class Walk {
public:
    virtual ~Walk() = default;
    void take_step(unsigned seed, unsigned number);
    std::string script; // what the steps did, a line a command

    unsigned below(unsigned limit) { return unsigned(random_() % limit); }
    bool one_in(unsigned chances) { return below(chances) == 0; }
    template <class Set> auto any_of(const Set &set) {
        return *std::next(std::begin(set), below(unsigned(std::size(set))));
    }
    // One of those that are there: the choice stays the same when most of the others are not.
    template <class Set> static auto next_to(const Set &set, const typename Set::key_type &key) {
        const auto found = set.lower_bound(key);
        return found == set.end() ? set.begin() : found;
    }
    template <class... Parts> void note(const Parts &...parts) { write(joined(parts...)); }

protected:
    virtual void disarm() {}                                       // behind each deed
    std::vector<std::pair<unsigned, std::function<void()>>> deeds; // by weight

private:
    void write(std::string command);
    unsigned step_ = 0;
    std::minstd_rand random_; // small to seed
};

using MakeWalk = std::function<std::unique_ptr<Walk>()>;
using Steps = std::vector<unsigned>;

Steps steps_up_to(unsigned last); // from 1

struct Outcome {
    std::unique_ptr<Walk> walk; // null: it failed
    Steps steps;                // up to the one that failed
    std::string text;           // script and failures
};

// Takes steps without marking the running test as failed.
Outcome take_steps(const MakeWalk &make, unsigned seed, const Steps &steps);
// Leaves the fewest steps that are found to fail.  The replays that it took; 0: all of them pass
// when they are taken again.
unsigned shrink(const MakeWalk &make, unsigned seed, Outcome &failed);

// A walk as the environment asks for it.  One that fails is shrunk and fails the test.  The answer
// is the walk when it went all the way, else null.
std::unique_ptr<Walk> take_walk(const MakeWalk &make, unsigned length);
template <class Kind> std::unique_ptr<Kind> take_walk(unsigned length) {
    auto walk = take_walk([] { return std::make_unique<Kind>(); }, length);
    return std::unique_ptr<Kind>(static_cast<Kind *>(walk.release()));
}

// A walk over all tables.  Its deeds are commands, as rows have them (rows.h); the words in braces
// are drawn.  What the laws cannot see a model knows: which hosts and routes there are.
//
// A table joins with lists of its own: what its deeds are, what its words stand for, and what is
// expected behind its commands.
class TableWalk : public RowShelf, public Walk {
public:
    TableWalk();

    enum class Stretch { plain, few_groups, faulty_hosts, faulty } stretch = Stretch::plain;
    std::string drawn(std::string command);
    bool perform(const std::string &command); // noted; what is expected of it is looked at
    void look_behind(const std::string &command, bool is_accepted);
    // Whether a fault holds, or may have left what meets the deeds behind it.
    bool is_faulty() const { return !fault_.empty() || stretch == Stretch::faulty; }

    // The tables as the model has them: keys with what is to be known of their entries.
    using Entries = std::map<std::string, std::string>;
    std::map<std::string, Entries> model;
    // The entry must be there now, with this text, or be gone.  Behind a fault it is as it is.
    void expect(const std::string &table, const std::string &key, const std::string *text);

    std::map<unsigned, unsigned> vrf_of;    // by VLAN, of the interfaces that there are
    std::vector<std::int32_t> held;         // groups of nobody
    unsigned now = 0;                       // seconds
    std::map<std::string, unsigned> expiry; // of routes by key, when they are not renewed
    std::size_t most_hosts = 0, most_routes = 0;

    // Hosts whose delete stopped half way have no entry in the chip until they are told of again.
    std::map<std::string, std::string> half_gone; // with the command that tells
    void mend();
    void check();
    void end_stretch();

private:
    void disarm() override;
    void arm();
    void account_for_fault();
    void begin_stretch(Stretch next);
    void clear();
    unsigned leaks();

    std::string fault_;
};

struct Deed {
    unsigned weight;
    std::string command; // empty: what `act` does
    std::function<void(TableWalk &)> act = {};
};
struct Deeds {
    Deeds(std::initializer_list<Deed> deeds);
};
struct Drawn {
    Drawn(const char *word, std::function<std::string(TableWalk &)> draw);
};
// Behind each command that begins so; the words are those of the command.
struct Expectation {
    using Look = std::function<void(TableWalk &, const Words &, bool is_accepted)>;
    Expectation(const char *command, Look look);
};
// What the model compares: a table's entries as they are, by keys that stand behind the command
// that takes them away.
struct Modelled {
    using Read = std::function<TableWalk::Entries(TableWalk &)>;
    Modelled(const char *table, const char *taken_by, Read read);
};

} // namespace rig
