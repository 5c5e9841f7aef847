#include "chassis/card/control.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <vector>

namespace card {

namespace {

constexpr std::size_t max_clients = 32;

bool is_later(ssize_t count) {
    return count < 0 && (errno == EAGAIN || errno == EINTR);
}

} // namespace

void Control::serve(int stop) {
    while (!stopped_ && !server_.wants_to_quit())
        wait(stop);
    for (Client &client : clients_)
        send(client);
}

// One turn: whoever has something to say is heard.  A client whose answer is not gone yet is not
// read from, so its answers cannot pile up.
void Control::wait(int stop) {
    std::vector<pollfd> polled{{stop, POLLIN, 0}, {listener_.get(), POLLIN, 0}};
    for (const Client &client : clients_)
        polled.push_back({client.socket.get(), short(client.out.empty() ? POLLIN : POLLOUT), 0});
    if (poll(polled.data(), polled.size(), -1) < 0)
        return;
    stopped_ = polled[0].revents != 0;
    std::size_t at = 2;
    for (auto client = clients_.begin(); client != clients_.end() && !stopped_;) {
        const short events = polled[at++].revents;
        bool keep = true;
        if (events & POLLOUT)
            keep = send(*client);
        else if (events)
            keep = receive(*client);
        if (keep) {
            execute_lines(*client);
            keep = !client->closing || !client->out.empty();
        }
        client = keep ? std::next(client) : clients_.erase(client);
    }
    if (polled[1].revents && !stopped_)
        accept_client();
}

void Control::accept_client() {
    ctl::Descriptor socket(
        accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket)
        return;
    Client &client = clients_.emplace_back();
    client.socket = std::move(socket);
    if (clients_.size() > max_clients) {
        client.out = ctl::encode_reply({ctl::Status::failed, "the card has too many clients"});
        client.closing = true;
        send(client);
        clients_.pop_back();
    }
}

bool Control::receive(Client &client) {
    char bytes[4096];
    const ssize_t count = recv(client.socket.get(), bytes, sizeof bytes, 0);
    if (count <= 0)
        return is_later(count);
    client.in.append(bytes, std::size_t(count));
    return true;
}

bool Control::send(Client &client) {
    const ssize_t count =
        ::send(client.socket.get(), client.out.data(), client.out.size(), MSG_NOSIGNAL);
    if (count < 0)
        return is_later(count);
    client.out.erase(0, std::size_t(count));
    return true;
}

void Control::execute_lines(Client &client) {
    while (client.out.empty() && !client.closing) {
        const std::size_t end = client.in.find('\n');
        if (end > ctl::max_line_bytes && client.in.size() > ctl::max_line_bytes) {
            client.out = ctl::encode_reply({ctl::Status::failed, "the line is too long"});
            client.closing = true;
        } else if (end == client.in.npos) {
            return;
        } else {
            client.out =
                ctl::encode_reply(server_.execute(std::string_view(client.in).substr(0, end)));
            client.in.erase(0, end + 1);
        }
        if (!send(client))
            client.closing = true, client.out.clear();
    }
}

} // namespace card
