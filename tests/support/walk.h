// Random walks: steps drawn from a seed, and a short script when one of them leads astray.
//
// Each step is a deed, drawn by weight from the seed and its own number alone, so that others can
// be left out and it stays what it was.  One of the deeds looks whether everything is as it should
// be.  A walk that fails is taken again with ever fewer of its steps, as long as it fails at all.
//
// A seed takes the same steps on every platform.  So no two draws stand in the arguments of one
// call, whose order is the compiler's.
//
//   DPM_WALK_SEED    another walk (1)           DPM_WALK_STEPS   how far to walk
//   DPM_WALK_ONLY    3,17,64: these steps alone, as the script of a failure names them
#pragma once

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace rig {

struct Walk {
    virtual ~Walk() = default;
    std::vector<std::pair<unsigned, std::function<void()>>> deeds; // by weight
    std::string script; // what the steps did, a line a command

    void take_step(unsigned seed, unsigned number);
    unsigned below(unsigned limit) { return unsigned(random_() % limit); }
    bool one_in(unsigned chances) { return below(chances) == 0; }
    void note(std::string command);

private:
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

} // namespace rig
