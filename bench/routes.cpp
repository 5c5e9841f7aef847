// Routes: from the posting call to the table, at full tables and at a sixteenth; and a whole
// switch-over.
//
// The chip is in null mode and the log is off, so that the figures are the library's.
#include "bench/routes.h"

#include "dpm_l3vpn.h"

#include <algorithm>
#include <boost/functional/hash.hpp>
#include <boost/intrusive/avl_set.hpp>
#include <boost/intrusive/list.hpp>
#include <boost/intrusive/unordered_set.hpp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace bench {

namespace {

constexpr double paced_limit = 1.1;
constexpr double plain_limit = 4.0;
constexpr double gateways_limit = 1.5;
constexpr double labels_limit = 1.3;

// --- what is compared with -----------------------------------------------------------------------

// Freed by whoever took it, like the library's: what malloc gives.
template <class Record> Record *new_record(const Record &record = {}) {
    return new (std::malloc(sizeof record)) Record(record);
}

// What any program does that keeps such a table: the request comes in a block of its own, its
// destination is looked for, a record is made of it and put into a set, into a hash by network and
// to the end of a gateway's list.
class PlainTable {
public:
    ~PlainTable() {
        by_network_.clear();
        over_gateway_.clear();
        routes_.clear_and_dispose([](Record *record) { std::free(record); });
    }

    void add(const dpm_route_msg &message) {
        dpm_route_msg *const request = new_record(message);
        decltype(routes_)::insert_commit_data place;
        if (!routes_.insert_check(*request, Order(), place).second)
            fail("a route stands in the plain table already");
        Record *const record = new_record<Record>();
        record->entry.vrf = request->vrf;
        record->entry.route_type = request->route_type;
        record->entry.destination = request->destination;
        std::memcpy(record->entry.np, request->np, sizeof record->entry.np);
        std::memcpy(record->entry.np_ifindex, request->np_ifindex, sizeof record->entry.np_ifindex);
        record->entry.np_num = request->np_num;
        routes_.insert_commit(*record, place);
        by_network_.insert(*record);
        over_gateway_.push_back(*record);
        std::free(request);
    }

private:
    struct Record : boost::intrusive::avl_set_base_hook<>,
                    boost::intrusive::unordered_set_base_hook<>,
                    boost::intrusive::list_base_hook<> {
        dpm_route_entry entry;
        bool operator==(const Record &other) const {
            return entry.vrf == other.entry.vrf &&
                   dpm_prefix_compare(entry.destination, other.entry.destination) == 0;
        }
        friend std::size_t hash_value(const Record &record) {
            std::size_t seed = record.entry.vrf;
            boost::hash_combine(seed, record.entry.destination.prefix_len);
            boost::hash_combine(seed, dpm::address_word(record.entry.destination.address));
            return seed;
        }
    };
    struct Order {
        template <class A, class B> bool operator()(const A &a, const B &b) const {
            return precedes(entry_of(a), entry_of(b));
        }
        static const dpm_route_entry &entry_of(const Record &record) { return record.entry; }
        static const dpm_route_msg &entry_of(const dpm_route_msg &message) { return message; }
        template <class A, class B> static bool precedes(const A &a, const B &b) {
            return a.vrf != b.vrf ? a.vrf < b.vrf
                                  : dpm_prefix_compare(a.destination, b.destination) < 0;
        }
    };
    using Hash = boost::intrusive::unordered_set<Record>;

    boost::intrusive::avl_set<Record, boost::intrusive::compare<Order>> routes_;
    std::vector<Hash::bucket_type> buckets_ = std::vector<Hash::bucket_type>(full_route_table);
    Hash by_network_{{buckets_.data(), buckets_.size()}};
    boost::intrusive::list<Record> over_gateway_;
};

double add_to_plain_table(unsigned count) {
    PlainTable table;
    dpm_route_msg message = route_message(1, 0, 0, 1);
    return time_of([&] {
               for (unsigned i = 0; i < count; i++) {
                   message.destination = destination(i);
                   table.add(message);
               }
           }) /
           count;
}

constexpr unsigned ftns = 4096;

// The label entry beside a route's destination, not in its place.
dpm_ftn ftn_beside(unsigned number) {
    dpm_ftn ftn{};
    const dpm_prefix fec = destination(number);
    ftn.ip_type = DPM_FAMILY_IPV4;
    ftn.prefixlen = 28;
    std::memcpy(ftn.fec_prefix, fec.address, sizeof ftn.fec_prefix);
    return ftn;
}

// The label entries in a set by FEC.
class PlainFtns {
public:
    PlainFtns() {
        for (unsigned i = 0; i < ftns; i++)
            set_.insert(*new_record<Record>({{}, ftn_beside(i)}));
    }
    ~PlainFtns() {
        set_.clear_and_dispose([](Record *record) { std::free(record); });
    }
    bool has(const dpm_prefix &destination) const {
        const auto found = set_.lower_bound(destination, Order());
        return found != set_.end() && found->entry.prefixlen == destination.prefix_len;
    }

private:
    struct Record : boost::intrusive::avl_set_base_hook<> {
        dpm_ftn entry;
    };
    struct Order {
        template <class A, class B> bool operator()(const A &a, const B &b) const {
            return dpm_fec_addr_cmp(fec_of(a), fec_of(b)) < 0;
        }
        static const std::uint8_t *fec_of(const Record &record) { return record.entry.fec_prefix; }
        static const std::uint8_t *fec_of(const dpm_prefix &prefix) { return prefix.address; }
    };
    boost::intrusive::avl_set<Record, boost::intrusive::compare<Order>> set_;
};

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
        const double all = time_until_done([&] {
            posting = time_until_done([&] {
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
        report({"routes with pacing, until applied / posting", full / quick(seconds), "per s",
                quick(drained), paced_limit});
    else
        report({"16384 routes without pacing", quick(seconds) * 1e3, "ms"});
}

// --- pass by pass ------------------------------------------------------------------------------

void measure_adds(const Options &options, const Report &report) {
    RouteCard card(9, 8);
    Comparison plain, gateways, groups;
    card.add_routes(full);
    for (unsigned round = 0; round < options.rounds; round++)
        plain.round([&] { return card.add_routes(full); }, [] { return add_to_plain_table(full); });
    report(
        {"a route / the same in plain containers", plain.time(), "ns", plain.ratio(), plain_limit});
    // The chip has groups for 1,024 routes; those that come after them wait for one.
    for (unsigned round = 0; round < options.rounds; round++) {
        gateways.round([&] { return card.add_routes(full, 8); },
                       [&] { return card.add_routes(full, 1); });
        groups.round([&] { return card.add_routes(sixteenth, 8); },
                     [&] { return card.add_routes(sixteenth, 1); });
    }
    report({"a route over eight gateways / over one, 16k routes", gateways.time(), "ns",
            gateways.ratio(), gateways_limit});
    report({"the same, 1k routes: each gets its group", groups.time(), "ns", groups.ratio()});
}

void measure_routes_beside_labels(const Options &options, const Report &report) {
    RouteCard with(9, 1), without(10, 1);
    {
        const chassis::CardScope scope(with.card());
        for (unsigned i = 0; i < ftns; i++)
            if (dpm_mpls_ftn_add(ftn_beside(i)) == nullptr)
                fail("a label entry is refused");
    }
    const PlainFtns plain;
    const auto look_up = [&](const dpm_prefix &destination) {
        if (plain.has(destination))
            fail("a label entry stands in a route's place");
    };
    Comparison comparison;
    for (unsigned round = 0; round < options.rounds; round++)
        comparison.round([&] { return with.add_routes(full); },
                         [&] { return without.add_routes(full, 1, look_up); });
    report({"a route, 4096 FTNs / none, and a find in a set", comparison.time(), "ns",
            comparison.ratio(), labels_limit});
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
    report({"switch-over, 18432 hosts and 16384 routes", quick(msec), "ms"});
    report({"chip deletes during a switch-over", double(most), "requests", double(most), 0.0});
}

} // namespace

void measure_routes(const Options &options, const Report &report) {
    measure_bursts(options, report, true);
    measure_bursts(options, report, false);
    measure_adds(options, report);
    measure_routes_beside_labels(options, report);
    measure_switch_over(options, report);
}

} // namespace bench
