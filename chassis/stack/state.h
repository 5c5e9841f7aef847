// What a Stack keeps, shared by the sources of this folder.
#pragma once

#include "chassis/stack/stack.h"
#include "platform/ipcomx.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace chassis::stack {

struct Socket {
    int family = 0;
    std::uint32_t vrf = 0;
};

struct Stack::State {
    std::mutex mutex; // guards everything but the callback, which is set once at start-up
    ipcomx_neighbour_callback callback = nullptr;

    std::map<NeighbourKey, dpm_host_info> cache, reachable;
    std::vector<dpm_host_info> answers; // reports that are due
    std::deque<Probe> probes;
    std::deque<NeighbourKey> deletions;
    Stack::Watcher watcher;

    std::map<int, Socket> sockets;
    int next_socket = 3;
    unsigned failures = 0;
    int failure = 0;

    std::condition_variable waiting; // of the thread, for answers
    std::thread thread;
    bool stopping = false;
};

NeighbourKey key_of(const dpm_host_info &info);

} // namespace chassis::stack
