// The card's side of the command language: carries out commands on one card.
//
// A command is parsed again here, since the socket is open to other programs.  Commands that read
// wait until the worker has carried out everything that was asked before (settle).  One thread at a
// time may use a server; the log may be written from any.
#pragma once

#include "chassis/ctl/server/settings.h"
#include "chassis/ctl/wire.h"
#include "chassis/journal/journal.h"

#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

class Server {
public:
    // The journal, which may be of several cards, outlives the server.
    Server(chassis::Card &card, chassis::journal::Journal &journal)
        : card_(card), journal_(journal) {}

    Reply execute(std::string_view line);

    // True when the queue is empty and the worker at rest, which it waits for; in pumped mode it
    // pumps.
    bool settle();

    // True when the standby will have what this card has mirrored, also when this process ends now;
    // waits for it.
    bool wait_until_sent();

    void keep_log_line(const std::string &line);
    std::vector<std::string> log_lines(std::size_t count) const; // the last ones

    void ask_to_quit() { quit_ = true; }
    bool wants_to_quit() const { return quit_; }
    chassis::journal::Journal &journal() { return journal_; }
    const Settings &settings() const { return settings_; }

private:
    chassis::Card &card_;
    chassis::journal::Journal &journal_;
    Settings settings_;
    bool quit_ = false;
    mutable std::mutex log_mutex_; // guards the lines
    std::deque<std::string> log_lines_;
};

} // namespace ctl
