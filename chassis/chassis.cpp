// Which card is current, and the exchange of the library's state between two cards of one process.
//
// The library marks everything that it remembers with one linker section.  Linked into this
// program, the section has a start and an end here; loaded as a shared library it has not, and
// there is one card.  The bytes that the section had before the first card are those that every
// card starts with.  The section belongs to one card at a time ("loaded"); it is exchanged only
// when another card is entered, so that a single card never pays for it.

#include "chassis/chassis.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
extern std::byte __start_dpm_state[] __attribute__((weak, visibility("hidden")));
extern std::byte __stop_dpm_state[] __attribute__((weak, visibility("hidden")));
int dpm_task_pass(void) __attribute__((weak)); // one pass of the worker
}

namespace chassis {

namespace {

constexpr unsigned max_passes =
    100'000; // of one pump: a card that never comes to rest is a fault to be seen

std::atomic<Card *> current_card{nullptr};
Card *loaded_card = nullptr; // whose state the section holds

std::size_t section_bytes() {
    return std::size_t(__stop_dpm_state - __start_dpm_state);
}

const std::vector<std::byte> &pristine_state() {
    static const std::vector<std::byte> bytes(__start_dpm_state, __stop_dpm_state);
    return bytes;
}

} // namespace

Card *current() {
    return current_card.load(std::memory_order_relaxed);
}

Card &card() {
    if (Card *const card = current())
        return *card;
    std::fputs("chassis: a contract was called while no card is current\n", stderr);
    std::abort();
}

Card::Card(const CardOptions &options)
    : os(options.mode), peer(*this), suite(options.slot * 100), ports(*this), options_(options),
      library_state_(pristine_state()) {
    if (!current())
        make_current(*this);
}

Card::~Card() {
    stop();
    if (loaded_card == this)
        loaded_card = nullptr;
    if (current() == this)
        current_card = nullptr;
}

// Puts this card's state into the section, and what the section holds into the card that it belongs
// to.
void Card::load() {
    if (loaded_card == this)
        return;
    if (const std::size_t bytes = section_bytes()) {
        if (loaded_card)
            std::memcpy(loaded_card->library_state_.data(), __start_dpm_state, bytes);
        std::memcpy(__start_dpm_state, library_state_.data(), bytes);
    }
    loaded_card = this;
}

void Card::stop() {
    ports.stop();
    peer.close();
    stack.stop();
    os.stop();
}

int Card::start() {
    CardScope scope(*this);
    return dpm_main_init();
}

unsigned Card::pump() {
    if (!dpm_task_pass)
        return 0;
    CardScope scope(*this);
    unsigned handled = 0;
    for (unsigned passes = 0; passes < max_passes; ++passes) {
        const bool is_all_here = peer.deliver_arrived();
        const std::size_t before = os.queued();
        dpm_task_pass();
        handled += before > 0;
        if (os.queued() == 0 && stack.deliver() == 0 && before == 0 && is_all_here)
            return handled;
    }
    std::fprintf(stderr, "chassis: the card in slot %u does not come to rest\n", slot());
    return handled;
}

void make_current(Card &card) {
    card.load();
    current_card = &card;
}

CardScope::CardScope(Card &card) : former_(current()) {
    make_current(card);
}

CardScope::~CardScope() {
    if (former_)
        former_->load();
    current_card = former_;
}

} // namespace chassis
