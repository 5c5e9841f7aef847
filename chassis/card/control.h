// The control socket of a card: one thread, which waits for lines of its clients and carries them
// out one after the other.
//
// A client may hang up at any time.  A line that does not end within its bound is answered with an
// error and the connection is closed; so is a client past the last place.
#pragma once

#include "chassis/ctl/server/server.h"

#include <list>
#include <string>

namespace card {

class Control {
public:
    Control(ctl::Server &server, ctl::Descriptor listener)
        : server_(server), listener_(std::move(listener)) {}

    // Until the descriptor becomes readable or a command asks the card to end.
    void serve(int stop);

private:
    struct Client {
        ctl::Descriptor socket;
        std::string in, out;
        bool closing = false; // once `out` is gone
    };

    void wait(int stop);
    void accept_client();
    static bool receive(Client &client);
    static bool send(Client &client);
    void execute_lines(Client &client);

    ctl::Server &server_;
    const ctl::Descriptor listener_;
    std::list<Client> clients_;
    bool stopped_ = false;
};

} // namespace card
