// Routes: from the posting call to the table, at full tables and at a sixteenth; and a whole
// switch-over.
//
// The chip is in null mode and the log is off, so that the figures are the library's.
#include "bench/routes.h"

#include "dpm_l3vpn.h"

#include <boost/intrusive/avl_set.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>

namespace bench {

namespace {

constexpr unsigned full = full_route_table, sixteenth = full / 16;

constexpr double paced_limit = 1.1;
constexpr double record_limit = 4.0;
constexpr double gateways_limit = 1.5;
constexpr double labels_limit = 1.3;

// The least that a route costs: a block of its size, a copy, and a place in a tree.
double insert_records(unsigned count) {
    struct Record {
        boost::intrusive::avl_set_member_hook<> hook;
        std::uint32_t vrf, type;
        dpm_prefix destination;
        unsigned char rest[824 - 16 - 28];
        bool operator<(const Record &other) const {
            return vrf != other.vrf ? vrf < other.vrf
                                    : dpm_prefix_compare(destination, other.destination) < 0;
        }
    };
    using Hook = boost::intrusive::member_hook<Record, boost::intrusive::avl_set_member_hook<>,
                                               &Record::hook>;
    boost::intrusive::avl_set<Record, Hook> set;
    Record record{};
    const double nsec = time_of([&] {
        for (unsigned i = 0; i < count; i++) {
            record.destination = destination(i);
            auto *const copy = new (std::malloc(sizeof(Record))) Record;
            copy->vrf = record.vrf, copy->type = record.type;
            copy->destination = record.destination;
            std::memcpy(copy->rest, record.rest, sizeof record.rest);
            set.insert(*copy);
        }
    });
    set.clear_and_dispose([](Record *each) { std::free(each); });
    return nsec / count;
}

// --- with the worker on its own thread -------------------------------------------------------

void measure_bursts(const Options &options, const Report &report, bool paced) {
    MasterCard master(chassis::os::Mode::threaded);
    request_host(0, DPM_OPER_ADD);
    wait_for_hosts(1);
    master.card.os.skip_delays(!paced);
    const std::uint32_t ifindex = master.card.suite.find("vlanif100")->ifindex;
    std::vector<double> seconds, drained;
    for (unsigned round = 0; round < options.rounds; round++) {
        double posting = 0;
        const double all = time_of([&] {
            posting = time_of([&] {
                for (unsigned i = 0; i < full; i++)
                    post_route(route_message(ifindex, i, 0, 1), DPM_OPER_ADD);
            });
            wait_for_routes(full);
        });
        seconds.push_back(all / 1e9);
        drained.push_back(all / posting);
        for (unsigned i = 0; i < full; i++)
            post_route(route_message(ifindex, i, 0, 1), DPM_OPER_DEL);
        wait_for_routes(0);
    }
    if (paced)
        report({"routes with pacing, until applied / posting", full / median(seconds), "per s",
                median(drained), paced_limit});
    else
        report({"16384 routes without pacing", median(seconds) * 1e3, "ms"});
}

// --- pass by pass ------------------------------------------------------------------------------

void measure_adds(const Options &options, const Report &report) {
    RouteCard card(9, 8);
    Comparison record, gateways, groups;
    card.add_routes(full);
    for (unsigned round = 0; round < options.rounds; round++)
        record.round([&] { return card.add_routes(full); }, [] { return insert_records(full); });
    report({"a route / a record of its size into a set", median(record.ours), "ns", record.ratio(),
            record_limit});
    // The chip has groups for 1,024 routes; those that come after them wait for one.
    for (unsigned round = 0; round < options.rounds; round++) {
        gateways.round([&] { return card.add_routes(full, 8); },
                       [&] { return card.add_routes(full, 1); });
        groups.round([&] { return card.add_routes(sixteenth, 8); },
                     [&] { return card.add_routes(sixteenth, 1); });
    }
    report({"a route over eight gateways / over one, 16k routes", median(gateways.ours), "ns",
            gateways.ratio(), gateways_limit});
    report({"the same, 1k routes: each gets its group", median(groups.ours), "ns", groups.ratio()});
}

void measure_labels(const Options &options, const Report &report) {
    RouteCard with(9, 1), without(10, 1);
    {
        const chassis::CardScope scope(with.card());
        for (unsigned i = 0; i < 4096; i++) {
            dpm_ftn ftn{};
            const dpm_prefix fec = destination(i);
            ftn.ip_type = DPM_FAMILY_IPV4;
            ftn.prefixlen = 28; // beside the routes' own
            std::memcpy(ftn.fec_prefix, fec.address, sizeof ftn.fec_prefix);
            if (dpm_mpls_ftn_add(ftn) == nullptr)
                fail("a label entry is refused");
        }
    }
    Comparison comparison;
    for (unsigned round = 0; round < options.rounds; round++)
        comparison.round([&] { return with.add_routes(full); },
                         [&] { return without.add_routes(full); });
    report({"a route, 4096 FTNs present / none", median(comparison.ours), "ns", comparison.ratio(),
            labels_limit});
}

// --- a whole switch-over -------------------------------------------------------------------------

std::uint64_t chip_deletes(const chassis::chip::Chip &chip) {
    using chassis::chip::Function;
    return chip.requests(Function::del_ip_entry) + chip.requests(Function::del_ip_nexthop) +
           chip.requests(Function::del_ecmp_nexthop);
}

// Milliseconds from the change of the role to the end of what the worker does about it.
double switch_over(std::uint64_t &deletes) {
    constexpr unsigned hosts = 18432;
    auto master = std::make_unique<RouteCard>(9, 0);
    MasterCard other(chassis::os::Mode::pumped, 10);
    other.card.peer.set_role(chassis::peer::Role::standby);
    {
        const chassis::CardScope scope(master->card());
        master->card().peer.join(other.card.peer);
        master->card().peer.connected();
        master->card().pump();
        other.card.pump();
        for (unsigned i = 0; i < hosts; i++) {
            master->host(i, DPM_OPER_ADD);
            if (i < full)
                master->route(i, DPM_OPER_ADD, i);
            if (i % 1024 == 0) // before its queue is full
                other.card.pump();
        }
        master->check(full);
    }
    other.card.pump();
    const chassis::CardScope scope(other.card);
    check_hosts(hosts);
    master->card().peer.cut();
    deletes = chip_deletes(other.card.chip);
    const double nsec = time_of([&] {
        other.card.peer.become_master();
        dpm_task_pass();
    });
    deletes = chip_deletes(other.card.chip) - deletes;
    if (g_dpm_global.route_ipv4_tree.numnodes != full)
        fail("the standby does not hold the routes");
    return nsec / 1e6;
}

void measure_switch_over(const Options &options, const Report &report) {
    std::vector<double> msec;
    std::uint64_t deletes = 0, most = 0;
    for (unsigned round = 0; round < options.rounds; round++) {
        msec.push_back(switch_over(deletes));
        most = std::max(most, deletes);
    }
    report({"switch-over, 18432 hosts and 16384 routes", median(msec), "ms"});
    report({"chip deletes during a switch-over", double(most), "requests", double(most), 0.0});
}

} // namespace

void measure_routes(const Options &options, const Report &report) {
    measure_bursts(options, report, true);
    measure_bursts(options, report, false);
    measure_adds(options, report);
    measure_labels(options, report);
    measure_switch_over(options, report);
}

} // namespace bench
