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

#include "support/shelf.h"

#include <functional>
#include <iterator>
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

protected:
    virtual void disarm() {} // behind each deed

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

inline bool is_ipv6(const Neighbour &own) {
    return own.ip.find(':') != own.ip.npos;
}
inline bool is_linklocal(const Neighbour &own) {
    return own.ip.starts_with("fe80:");
}

// A walk over a shelf of its own.  Its verbs are noted.
class ShelfWalk : public Shelf, public Walk {
protected:
    ShelfWalk() { keep_log(false); }
    void TestBody() override {}

    // A fault of the master, until the deed ends: "alloc" is the allocation of that number, "send"
    // so many messages, anything else so many requests of the chip, as dpmctl names them.
    void arm(const std::string &what, unsigned number = 1, int code = -1, unsigned skip = 0);
    void disarm() override;

    static std::string vlanif(unsigned vlan) { return joined("vlanif", vlan); }
    void interface_comes(unsigned vlan, std::uint32_t type = DPM_IF_VLANIF);
    void interface_moves(unsigned vlan, unsigned vrf);
    int tell(bool learns, const Neighbour &own);
    void time_passes(unsigned seconds);
    void line_card_comes();
    void standby_comes(); // or connects again
    void standby_goes();
    bool master_dies(); // when the standby can take over; mostly another standby comes
    // What the suite sets on a standby that starts, beside interfaces.
    virtual void configure(Card &) {}

private:
    bool is_armed_ = false;
};

} // namespace rig
