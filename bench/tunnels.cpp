// GRE tunnels that a better route takes over, and a neighbour among the next hops of policy routes.
#include "bench/routes.h"

#include "dpm_policy_route.h"
#include "dpm_tunnel.h"

#include <arpa/inet.h>
#include <cstring>

namespace bench {

namespace {

constexpr double limit = 1.6;
constexpr unsigned many = 1000, few = 125;
constexpr std::uint32_t network = 50u << 24; // where the tunnels end

// A pumped card with two hosts, and tunnels to as many ends.
class TunnelCard {
public:
    explicit TunnelCard(unsigned count) : routes_(9, 2), count_(count) {
        const chassis::CardScope scope(routes_.card());
        ifindex_ = routes_.card().suite.find("vlanif100")->ifindex;
        for (unsigned i = 1; i <= count; i++) {
            (void)dpm_api_set_tunnel_proc(DPM_OPER_ADD, i);
            (void)dpm_api_set_tunnel_source_proc(DPM_OPER_ADD, i, 0, htonl(network + 1));
            (void)dpm_api_set_tunnel_destination_proc(DPM_OPER_ADD, i, 0, htonl(network + 256 + i));
            routes_.card().pump();
        }
        route(8, 0, DPM_OPER_ADD);
    }

    // Nanoseconds a tunnel for a longer route that comes and goes.
    double follow() {
        constexpr unsigned times = 4;
        const chassis::CardScope scope(routes_.card());
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < times; i++) {
                route(16, 1, DPM_OPER_ADD);
                check(16);
                route(16, 1, DPM_OPER_DEL);
                check(8);
            }
        });
        return nsec / times / count_;
    }

private:
    void route(unsigned prefix_len, unsigned host, std::uint32_t oper) {
        dpm_route_msg message = route_message(ifindex_, 0, host, 1);
        const std::uint32_t word = htonl(network);
        message.destination = {DPM_FAMILY_IPV4, std::uint16_t(prefix_len), {}};
        std::memcpy(message.destination.address, &word, sizeof word);
        post_route(message, oper);
        dpm_task_pass();
    }
    void check(unsigned prefix_len) const {
        const dpm_tunnel_entry *const last = dpm_tunnel_find_by_tunnelid(count_);
        if (last == nullptr || last->sdk_index <= 0 || last->route_prefix.prefix_len != prefix_len)
            fail("the tunnels do not follow their route");
    }

    RouteCard routes_;
    const unsigned count_;
    std::uint32_t ifindex_;
};

// Policy routes over as many next hops, of which the first is a host.
class PolicyCard {
public:
    explicit PolicyCard(unsigned count) : routes_(9, 1) {
        const chassis::CardScope scope(routes_.card());
        for (std::uint32_t i = 0; i < count; i++) {
            const dpm_prefix next_hop = host_address(i);
            const std::uint16_t ports[] = {1, 1, 3}; // set, count, port
            (void)dpm_api_policy_route_add(1, &i, sizeof i, ports, sizeof ports, "", 0,
                                           DPM_FAMILY_IPV4, next_hop.address);
            routes_.card().pump();
        }
        if (dpm::policy_routes().count() != count)
            fail("the policy routes are not there");
    }

    // Nanoseconds for the going and coming of the host of one.
    double host_goes_and_comes() {
        constexpr unsigned times = 256;
        const chassis::CardScope scope(routes_.card());
        const auto items = [&] {
            return routes_.card().chip.requests(chassis::chip::Function::set_stream_qos_item);
        };
        const std::uint64_t before = items();
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < times; i++) {
                routes_.host(0, DPM_OPER_DEL);
                routes_.host(0, DPM_OPER_ADD);
            }
        });
        if (items() != before + times)
            fail("the policy route does not follow its next hop");
        return nsec / times;
    }

private:
    RouteCard routes_;
};

} // namespace

void measure_tunnels(const Options &options, const Report &report) {
    Comparison tunnels, policies;
    TunnelCard many_tunnels(many), few_tunnels(few);
    for (unsigned round = 0; round < options.rounds; round++)
        tunnels.round([&] { return many_tunnels.follow(); }, [&] { return few_tunnels.follow(); });
    report({"a tunnel, a better route comes and goes, 1000 / 125", tunnels.time(), "ns",
            tunnels.ratio(), limit});
    PolicyCard many_policies(many), few_policies(few);
    for (unsigned round = 0; round < options.rounds; round++)
        policies.round([&] { return many_policies.host_goes_and_comes(); },
                       [&] { return few_policies.host_goes_and_comes(); });
    report({"a host of one policy route goes and comes, 1000 / 125", policies.time(), "ns",
            policies.ratio(), limit});
}

} // namespace bench
