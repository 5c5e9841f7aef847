// What a Peer keeps, shared by the sources of this folder.
#pragma once

#include "chassis/os/state.h"
#include "chassis/peer/peer.h"
#include "platform/hss.h"

#include <atomic>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

namespace chassis::peer {

class Link;

struct Peer::State {
    std::atomic<Role> role{Role::standby};
    std::atomic<std::uint64_t> term{0};
    std::atomic<std::int64_t> replaced_until_nsec{0}; // as a master, a moment ago
    std::atomic<bool> exists{false};
    std::atomic<bool> has_tables{false}; // a standby that got all that the master has
    std::atomic<bool> standby_usable{true};
    std::atomic<bool> recording{false};

    std::map<int, hss_callback> connected_callbacks; // by client, in whose order they are called
    hss_callback to_master = nullptr;
    std::function<void()> before_master, around_master = [] {};
    std::function<bool()> takes_calls = [] { return true; };
    Peer::Watcher watcher;
    std::mutex changing_role;

    Peer *other = nullptr;    // in one process, and
    std::deque<Call> arrived; // what waits there for room in this card's queue
    std::size_t arrived_bytes = 0;

    std::mutex mutex; // guards the three below
    std::optional<std::array<std::uint8_t, 6>> masters_mac;
    std::shared_ptr<Link> link; // over a socket
    std::vector<Call> calls;

    os::Monitor connecting; // guards the next two
    bool is_connected_wanted = false, is_ending = false;
    std::atomic<bool> connected_running{false}; // wanted, or under way
    std::thread connected_thread;
};

} // namespace chassis::peer
