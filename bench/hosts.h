// A master card to measure, and the hosts that it is told about.
#pragma once

#include "bench/bench.h"
#include "chassis/chassis.h"

#include "dpm_api.h"

namespace bench {

// A card with the interface of the hosts, its chip in null mode, its log off.
struct MasterCard {
    explicit MasterCard(chassis::os::Mode mode, unsigned slot = 9);
    chassis::Card card;
};

// Ends the program when the current card's table does not hold that many hosts: the figure would
// mean nothing.
void check_hosts(unsigned count);

// Tells the current card about host `number`: an IPv4 address and a MAC of its own, spread over the
// tree.
void request_host(unsigned number, std::uint32_t oper);

// Waits until the worker has brought the table to that many hosts (threaded mode).
void wait_for_hosts(unsigned count);

// As request_host() tells it.
dpm_prefix host_address(unsigned number);

// --- routes ---

inline constexpr unsigned full_route_table = 16384;

// Spread over the tree; no destination comes twice.
dpm_prefix destination(unsigned number);

// A route to a destination over as many hosts, from `first_gateway` on.
dpm_route_msg route_message(std::uint32_t ifindex, unsigned number, unsigned first_gateway,
                            unsigned gateways);

void post_route(const dpm_route_msg &message, std::uint32_t oper);

// Waits until the worker has brought the table to that many IPv4 routes (threaded mode).
void wait_for_routes(unsigned count);

// Starts a card with what is common to every card here.
void prepare(chassis::Card &card);

[[noreturn]] void fail(const char *what);

} // namespace bench
