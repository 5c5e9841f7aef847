// Random walks: steps drawn from a seed, a model that knows what each of them must lead to, and a
// short script when one leads elsewhere.
//
// A walk is a list of step numbers.  A step draws from the seed and its own number alone, so others
// can be left out and it stays what it was, but for choices among what is there; each deed decides
// by the model.  Every so many steps one is a check.  A walk that fails is taken again, from the
// beginning, with ever fewer of its steps, as long as it fails at all.  What is left is printed in
// the words that dpmctl reads.
//
//   DPM_WALK_SEED    another walk (1)           DPM_WALK_STEPS   how far to walk
//   DPM_WALK_ONLY    3,17,64: these steps alone, as the script of a failure names them
#pragma once

#include "support/shelf.h"

#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace rig {

inline std::string word(std::string text) {
    return text;
}
inline std::string word(unsigned number) {
    return std::to_string(number);
}
// Texts and numbers, one behind the other.
template <class... Parts> std::string joined(const Parts &...parts) {
    return (word(parts) + ...);
}

class Walk {
public:
    struct Deed {
        unsigned weight; // beside those of the others
        std::function<void()> act;
    };
    struct Line {
        unsigned step;
        std::string command;
    };

    virtual ~Walk() = default;
    void take_step(unsigned seed, unsigned number);
    std::vector<Line> script; // of the steps taken

protected:
    explicit Walk(unsigned check_every) : check_every_(check_every) {}
    std::vector<Deed> deeds;

    virtual void check() = 0; // every `check_every` steps, instead of a deed

    template <class... Parts> void note(const Parts &...parts) {
        script.push_back({step_, joined(parts...)});
    }

    struct Random { // small to seed, since each step has its own
        using result_type = std::uint32_t;
        static constexpr result_type min() { return 0; }
        static constexpr result_type max() { return UINT32_MAX; }
        result_type operator()();
        std::uint64_t state = 0;
    };
    Random random;
    unsigned below(unsigned limit) { return random() % limit; }
    bool one_in(unsigned chances) { return below(chances) == 0; }
    template <class Set> auto any_of(const Set &set) {
        return *std::next(std::begin(set), below(unsigned(std::size(set))));
    }

private:
    const unsigned check_every_;
    unsigned step_ = 0;
};

using MakeWalk = std::function<std::unique_ptr<Walk>()>;

// What became of a walk.
struct Outcome {
    std::vector<unsigned> steps; // up to the one that failed
    std::vector<Walk::Line> script;
    std::vector<std::string> failures; // none: it passed
    std::unique_ptr<Walk> walk = {};   // when it passed
};

// Takes steps without marking the running test as failed.
Outcome take_steps(const MakeWalk &make, unsigned seed, const std::vector<unsigned> &steps);
// Leaves the fewest steps that are found to fail.  The replays that it took; 0: the same steps pass
// when they are taken again.
unsigned shrink(const MakeWalk &make, unsigned seed, Outcome &failed);
std::string text_of(const Outcome &outcome, unsigned seed);

// A walk as the environment asks for it; it ends with a check.  One that fails is shrunk and fails
// the test.  The answer is the walk when it went all the way, else null.
std::unique_ptr<Walk> take_walk(const MakeWalk &make, unsigned steps, unsigned check_every);
template <class Kind> std::unique_ptr<Kind> take_walk(unsigned steps) {
    auto walk = take_walk([] { return std::make_unique<Kind>(); }, steps, Kind::check_every);
    return std::unique_ptr<Kind>(static_cast<Kind *>(walk.release()));
}

// A walk over a shelf of its own.
class ShelfWalk : public Shelf, public Walk {
protected:
    explicit ShelfWalk(unsigned check_every) : Walk(check_every) { keep_log(false); }
    void TestBody() override {}

    // Faults on the master, noted; a request is named as dpmctl names it.
    void arm(chassis::os::Fault kind, unsigned nth, unsigned count = 1);
    void arm(const char *request, unsigned count = 1, int code = -1, unsigned skip = 0);
    void disarm();

    static std::string vlanif(unsigned vlan) { return joined("vlanif", vlan); }
    void note_neighbour(const char *verb, const Neighbour &own);
    unsigned time_passes(unsigned limit_sec); // the seconds
    void line_card_comes();
    void standby_comes(); // or connects again
    void standby_goes();
    bool master_dies(); // when the standby can take over; mostly another standby comes
    // What the suite sets on a standby that starts, beside interfaces.
    virtual void configure(Card &) {}
};

} // namespace rig
