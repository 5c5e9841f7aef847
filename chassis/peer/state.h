// What a Peer keeps, shared by the sources of this folder.
#pragma once

#include "chassis/peer/peer.h"
#include "platform/hss.h"

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

namespace chassis::peer {

class Link;

struct Peer::State {
    std::atomic<Role> role{Role::standby};
    std::atomic<bool> exists{false};
    std::atomic<bool> standby_usable{true};
    std::atomic<bool> drop{false};
    std::atomic<bool> recording{false};

    std::map<int, hss_callback> connected_callbacks; // by client, in whose order they are called
    hss_callback to_master = nullptr;
    std::function<void()> before_master;
    Peer::Watcher watcher;

    Peer *other = nullptr; // in one process

    std::mutex mutex;           // guards the three below
    std::shared_ptr<Link> link; // over a socket
    std::vector<Call> calls;
    std::vector<std::thread> connected_threads;
    std::atomic<unsigned> connected_running{0};
};

} // namespace chassis::peer
