// A card with hosts and routes, for what is measured pass by pass.
#pragma once

#include "bench/hosts.h"

#include "dpm.h"
#include "dpm_main.h"

namespace bench {

inline constexpr unsigned full = full_route_table, sixteenth = full / 16;

// A pumped card; everything happens on this thread.
class RouteCard {
public:
    RouteCard(unsigned slot, unsigned hosts) : master_(chassis::os::Mode::pumped, slot) {
        const chassis::CardScope scope(master_.card);
        for (unsigned i = 0; i < hosts; i++)
            host(i, DPM_OPER_ADD);
        check_hosts(hosts);
        ifindex_ = master_.card.suite.find("vlanif100")->ifindex;
    }

    chassis::Card &card() { return master_.card; }

    void host(unsigned number, std::uint32_t oper) {
        request_host(number, oper);
        dpm_task_pass();
    }
    void route(unsigned number, std::uint32_t oper, unsigned first_gateway = 0) {
        request(route_message(ifindex_, number, first_gateway, 1), oper);
    }

    // Nanoseconds a route for adding `count`, which are taken away again.  `also` is done in front
    // of each, with its destination.
    template <class Also> double add_routes(unsigned count, unsigned gateways, Also also) {
        const chassis::CardScope scope(master_.card);
        dpm_route_msg message = route_message(ifindex_, 0, 0, gateways);
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < count; i++) {
                message.destination = destination(i);
                also(message.destination);
                request(message, DPM_OPER_ADD);
            }
        });
        check(count);
        for (unsigned i = 0; i < count; i++)
            route(i, DPM_OPER_DEL);
        check(0);
        return nsec / count;
    }

    double add_routes(unsigned count, unsigned gateways = 1) {
        return add_routes(count, gateways, [](const dpm_prefix &) {});
    }

    void check(unsigned count) const {
        if (g_dpm_global.route_ipv4_tree.numnodes != count)
            fail("the route table does not hold what was asked for");
    }

private:
    static void request(const dpm_route_msg &message, std::uint32_t oper) {
        post_route(message, oper);
        dpm_task_pass();
    }

    MasterCard master_;
    std::uint32_t ifindex_ = 0;
};

} // namespace bench
