// A control card in software: everything that the library's contracts ask of its host.
//
// The contracts are plain C functions without a card argument, so one card at a time is "current".
// A process that is one card makes it current once, at start.  A test that holds two cards in one
// process changes between them with CardScope, which also exchanges the library's own state (its
// linker section), so that each card sees its own tables. Two cards in one process are
// single-threaded: pumped mode only.
#pragma once

#include "chassis/chip/chip.h"
#include "chassis/hal.h"
#include "chassis/os/os.h"
#include "chassis/peer/peer.h"
#include "chassis/ports.h"
#include "chassis/stack/stack.h"
#include "chassis/suite/suite.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace chassis {

struct CardOptions {
    unsigned slot = 9; // 9 or 10
    os::Mode mode = os::Mode::threaded;
    std::array<std::uint8_t, 6> mac{0x02, 0, 0, 0, 0, 9}; // the device MAC of this card
};

class Card {
public:
    explicit Card(const CardOptions &options);
    ~Card();
    Card(const Card &) = delete;
    Card &operator=(const Card &) = delete;

    unsigned slot() const { return options_.slot; }
    const CardOptions &options() const { return options_; }

    // Calls dpm_main_init with this card current; its result.
    int start();
    // Ends its threads, in the order in which they call one another; what they call may go then.
    void stop();

    // Pumped mode: one pass of the worker for every message queued, and one more; the number of
    // messages handled. Timers that are due run as well.
    unsigned pump();

    os::Os os;
    peer::Peer peer;
    chip::Chip chip;
    stack::Stack stack;
    suite::Suite suite;
    hal::Hal hal;
    ports::Ports ports;

    std::atomic<unsigned> mended{0}; // objects of the chip, when it last became master

private:
    friend class CardScope;
    friend void make_current(Card &card);
    void load();
    CardOptions options_;
    std::vector<std::byte> library_state_; // the library's section while this card is not current
};

// The current card of this process; null before the first.
Card *current();
Card &card(); // the same where there must be one
// Makes a card current for good; for a rig whose cards come and go.
void make_current(Card &card);

// Makes a card current for a scope, and the former one current again at its end.  Nests.
class CardScope {
public:
    explicit CardScope(Card &card);
    ~CardScope();
    CardScope(const CardScope &) = delete;
    CardScope &operator=(const CardScope &) = delete;

private:
    Card *former_;
};

} // namespace chassis
