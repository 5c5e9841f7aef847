// The IP stack of a card: its neighbour cache and the probes that the library asks it to send.
//
// A probe for a neighbour that was declared reachable is answered by a neighbour report through the
// callback that the library registered; any other stays silent.  Reports are made by deliver(), so
// that they come outside the library's own call: at once on a thread of the stack in threaded mode,
// when the rig pumps in pumped mode.
#pragma once

#include "dpm_api.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace chassis::stack {

struct NeighbourKey {
    std::uint32_t vrf;
    std::uint32_t family; // 1 IPv4, 2 IPv6
    std::array<std::uint8_t, 16> address;
    std::uint32_t ifindex; // 0 for IPv4
    auto operator<=>(const NeighbourKey &) const = default;
};

struct Probe { // an ARP request or a neighbour solicitation that was asked for
    NeighbourKey key;
    std::uint32_t ifindex;
    std::int64_t at_nsec;
};

class Stack {
public:
    Stack();
    ~Stack();

    // Declares a neighbour reachable: a probe for it is answered with this record (oper 1).
    // `info.vrf` is the VRF that the probe names.
    void declare_reachable(const dpm_host_info &info);
    void declare_silent(const NeighbourKey &key);

    // Learns or loses a neighbour now: the cache changes and the library is told.  The library's
    // result.
    int learn(const dpm_host_info &info);
    int lose(const dpm_host_info &info);

    std::vector<dpm_host_info> cache() const;

    // Probes and deletions that the library asked for, oldest first (bounded).
    std::vector<Probe> probes() const;
    std::vector<NeighbourKey> deletions() const;
    void clear_history();
    // Is told of each of these, "probe" or "forget", on the requester's thread.
    using Watcher = std::function<void(std::string_view deed, const NeighbourKey &key)>;
    void watch(Watcher watcher);

    // Makes the reports that answered probes are waiting for; how many.
    unsigned deliver();

    // Ends the thread of the stack, if there is one; for the end of a card.
    void stop();

    std::size_t open_sockets() const;

    void fail_next(unsigned count, int error); // the next socket calls fail with this error number

    struct State;
    State &state() { return *state_; }

    // What the socket calls do.  forget() answers whether the cache had the neighbour.
    void probe(const NeighbourKey &key, std::uint32_t ifindex);
    bool forget(const NeighbourKey &key);

private:
    int report(dpm_host_info info, std::uint8_t oper);
    void run();
    std::unique_ptr<State> state_;
};

} // namespace chassis::stack
