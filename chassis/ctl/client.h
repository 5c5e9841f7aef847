// The client's view of the shelf: the cards that run, which of them is the master, and commands
// carried out where they belong.
#pragma once

#include "chassis/ctl/grammar.h"
#include "chassis/ctl/wire.h"

#include <chrono>
#include <csignal>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

using Clock = std::chrono::steady_clock;

// How long a card may take to answer.  What reads waits for the worker, at most 20 seconds.
inline constexpr std::chrono::milliseconds change_limit{10'000}, read_limit{30'000};

struct Seen { // a card that runs
    unsigned slot;
    std::string role; // "master", "standby", or empty: it does not say
};

// Connections to the cards of one directory.  A connection that ended is made again when the card
// is asked next.
class Shelf {
public:
    explicit Shelf(std::string directory) : directory_(std::move(directory)) {}

    const std::string &directory() const { return directory_; }

    // The card's reply; none when it does not run, hangs up or takes too long.
    std::optional<Reply> ask(unsigned slot, std::string_view line,
                             std::chrono::milliseconds limit = read_limit);
    // Why there was none when the card was asked last: "does not run".
    const std::string &trouble(unsigned slot) { return trouble_[slot]; }

    // Both are asked at once.  `for_master`: a master that is found is not kept waiting long for a
    // card that does not answer.
    std::vector<Seen> look(bool for_master = false);
    std::optional<unsigned> master(); // the first that says so
    std::string role(unsigned slot);  // empty when it does not say
    // The reply of the card that is master then.  While there is none, or another takes over, it
    // waits for 20 seconds, or until interrupted; then none.
    std::optional<Reply> ask_master(std::string_view line);

private:
    bool begin(unsigned slot, std::string_view line);
    std::optional<Reply> finish(unsigned slot, Clock::time_point deadline);
    std::string role_from(const std::optional<Reply> &reply, unsigned slot);

    const std::string directory_;
    std::map<unsigned, Descriptor> connections_;
    std::map<unsigned, std::string> trouble_;
    std::optional<unsigned> followed_; // the master that was asked last
};

struct Target { // what the user chose with --card
    std::optional<unsigned> slot;
    bool both = false;
};

class Session {
public:
    Session(std::string directory, Target target) : shelf_(std::move(directory)), target_(target) {}

    // Carries out one line and prints what comes of it; false after an error, which is told on
    // stderr with `origin` in front.
    bool run(std::string_view line, const std::string &origin = "dpmctl");

    bool wants_to_quit() const { return quit_; }
    std::vector<std::string> values_of(std::string_view type); // for completion
    Shelf &shelf() { return shelf_; }

private:
    bool run_local(const Parsed &parsed, const std::string &origin);
    bool run_on_cards(const Command &command, std::string_view line, const std::string &origin);
    std::vector<Seen> cards_for(const Command &command, const std::string &origin);
    std::optional<Reply> ask(const Seen &card, const Command &command, std::string_view line);

    Shelf shelf_;
    const Target target_;
    bool quit_ = false;
};

// From then on a signal to end does not end the client: a read or a wait ends, so that what was done
// is still told.
void catch_interrupts();
extern volatile std::sig_atomic_t interrupted; // not 0: there was one

// The client's own commands (verify.cpp, import.cpp, capture.cpp).  They print to stdout, errors to stderr.
bool verify_shelf(Shelf &shelf);
bool import_lines(Shelf &shelf, const Parsed &parsed);
bool receive_capture(Shelf &shelf, Target target, const Parsed &parsed);

// Printing (page.cpp).
unsigned terminal_columns(); // plenty when stdout is no terminal
void print_paged(const std::string &text);
// False when stdout did not take all that was printed since the last time, which is told.
bool flush_output();

// Reads a line at a prompt, with history and completion where readline was built in; false at the
// end of input (prompt.cpp).
bool read_prompt(Session &session, std::string &line);

} // namespace ctl
