// The client's view of the shelf: the cards that run, which of them is the master, and commands
// carried out where they belong.
#pragma once

#include "chassis/ctl/grammar.h"
#include "chassis/ctl/wire.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// Connections to the cards of one directory.  A connection that ended is made again when the card
// is asked next.
class Shelf {
public:
    explicit Shelf(std::string directory) : directory_(std::move(directory)) {}

    const std::string &directory() const { return directory_; }

    // The card's reply; none when it does not run, hangs up or takes too long.
    std::optional<Reply> ask(unsigned slot, std::string_view line);

    std::vector<unsigned> present();
    std::optional<unsigned> master(); // the first that says so
    std::string role(unsigned slot);  // "master", "standby", or empty when it does not answer

private:
    std::optional<Reply> ask_once(unsigned slot, std::string_view line, int timeout_msec);

    const std::string directory_;
    std::map<unsigned, Descriptor> connections_;
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
    std::vector<unsigned> cards_for(const Command &command);

    Shelf shelf_;
    const Target target_;
    bool quit_ = false;
};

// The client's own commands (verify.cpp, import.cpp).  They print to stdout, errors to stderr.
bool verify_shelf(Shelf &shelf);
bool import_lines(Shelf &shelf, const Parsed &parsed);

// Printing (page.cpp).
unsigned terminal_columns(); // plenty when stdout is no terminal
void print_paged(const std::string &text);

// Reads a line at a prompt, with history and completion where readline was built in; false at the
// end of input (prompt.cpp).
bool read_prompt(Session &session, std::string &line);

} // namespace ctl
