// The control socket of a card: one thread, which waits for lines of its clients and carries them
// out one after the other.
//
// A turn is one command of each client that has sent one, so that a long script keeps nobody
// waiting.  A client may hang up at any time, and nothing more of its is carried out then.  A line
// that does not end within its bound is answered with an error and the connection is closed.
//
// Clients have a number of places, and leave some file descriptors to the rest of the card.  One
// that finds no place takes that of a client which has been idle for a minute, or is turned away
// with a word.
#pragma once

#include "chassis/ctl/server/server.h"
#include "chassis/os/os.h"

#include <functional>
#include <list>
#include <string>

namespace card {

class Control {
public:
    // The clock by which clients are idle is the card's, which can be moved.  `each_turn` is called
    // at least once a second.
    Control(ctl::Server &server, const chassis::os::Os &clock, ctl::Descriptor listener,
            std::function<void()> each_turn)
        : server_(server), clock_(clock), listener_(std::move(listener)),
          each_turn_(std::move(each_turn)) {}

    // Until the descriptor becomes readable or a command asks the card to end.
    void serve(int stop);

private:
    struct Client {
        ctl::Descriptor socket;
        std::int64_t last_nsec; // when it last said something, or took its answer
        std::string in, out;
        bool closing = false; // once `out` is gone

        bool has_line() const; // to be carried out in the next turn
        short awaited() const;
    };

    void take_turn(int stop);
    bool serve_client(Client &client, short events);
    bool receive(Client &client);
    bool send(Client &client);
    void execute_line(Client &client);
    void accept_client();
    bool drop_idle_client();

    ctl::Server &server_;
    const chassis::os::Os &clock_;
    const ctl::Descriptor listener_;
    const std::function<void()> each_turn_;
    std::list<Client> clients_;
    bool rests_ = false; // the listener does, for want of descriptors
    bool stopped_ = false;
};

} // namespace card
