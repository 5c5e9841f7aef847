// The card's side of the command language: carries out commands on one card.
//
// A command is parsed again here, since the socket is open to other programs.  Commands that read
// wait until the worker has carried out everything that was asked before (settle).  One thread at a
// time may use a server; the log may be written from any.
#pragma once

#include "chassis/ctl/wire.h"

#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace chassis {
class Card;
}

namespace ctl {

class Server {
public:
    explicit Server(chassis::Card &card) : card_(card) {}

    Reply execute(std::string_view line);

    // True when the queue is empty and the worker at rest, which it waits for; in pumped mode it
    // pumps.
    bool settle();

    void keep_log_line(const std::string &line);
    std::vector<std::string> log_lines(std::size_t count) const; // the last ones

    void ask_to_quit() { quit_ = true; }
    bool wants_to_quit() const { return quit_; }

private:
    chassis::Card &card_;
    bool quit_ = false;
    mutable std::mutex log_mutex_; // guards the lines
    std::deque<std::string> log_lines_;
};

} // namespace ctl
