// Label entries: requests, neighbours that go and come, and full tables on their way to a standby.
#include "bench/routes.h"

#include "dpm_l3vpn_record.h"

#include <boost/intrusive/avl_set.hpp>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

namespace bench {

namespace {

constexpr double host_limit = 1.6, request_limit = 4;
constexpr unsigned all = DPM_LABEL_CAPACITY, few = 256;

// An FTN for each even number, an ILM for each odd one, over a host.
dpm_ftn_msg ftn_message(std::uint32_t ifindex, unsigned number, unsigned host) {
    dpm_ftn_msg message{};
    const dpm_prefix fec = destination(number), nexthop = host_address(host);
    message.family = message.tunnel_ip_type = message.vpn_nhop_af = DPM_FAMILY_IPV4;
    std::memcpy(message.fec_prefix, fec.address, sizeof message.fec_prefix);
    std::memcpy(message.tunnel_nhop, nexthop.address, sizeof message.tunnel_nhop);
    message.prefixlen = std::uint8_t(fec.prefix_len);
    message.tunnel_label = 16 + number;
    message.ifindex = ifindex;
    return message;
}

dpm_ilm_msg ilm_message(std::uint32_t ifindex, unsigned number, unsigned host) {
    dpm_ilm_msg message{};
    const dpm_prefix fec = destination(number), nexthop = host_address(host);
    message.family = message.tunnel_ip_type = DPM_FAMILY_IPV4;
    std::memcpy(message.fec_prefix, fec.address, sizeof message.fec_prefix);
    std::memcpy(message.tunnel_nhop, nexthop.address, sizeof message.tunnel_nhop);
    message.prefixlen = std::uint8_t(fec.prefix_len);
    message.in_label = 16 + number;
    message.swap_label = 17 + number;
    message.out_ifindex = ifindex;
    return message;
}

// A pumped card with hosts, whose label entries are over the last of them.
class LabelCard {
public:
    explicit LabelCard(unsigned slot) : routes_(slot, hosts) {
        ifindex_ = routes_.card().suite.find("vlanif100")->ifindex;
    }
    static constexpr unsigned hosts = 2;
    chassis::Card &card() { return routes_.card(); }

    void entry(unsigned number, std::uint32_t oper, unsigned host = hosts - 1) {
        if (number % 2 == 0) {
            const dpm_ftn_msg message = ftn_message(ifindex_, number, host);
            (void)dpm_api_set_mpls_ftn_proc(&message, oper);
        } else {
            const dpm_ilm_msg message = ilm_message(ifindex_, number, host);
            (void)dpm_api_set_mpls_ilm_proc(&message, oper);
        }
        dpm_task_pass();
    }

    // Nanoseconds an entry.
    double add(unsigned count) {
        const chassis::CardScope scope(card());
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < count; i++)
                entry(i, DPM_OPER_ADD);
        });
        check(count);
        return nsec / count;
    }
    void clear(unsigned count) {
        const chassis::CardScope scope(card());
        for (unsigned i = 0; i < count; i++)
            entry(i, DPM_OPER_DEL);
        check(0);
    }
    void check(unsigned count) {
        if (dpm::ftns().count() + dpm::ilms().count() != count)
            fail("the label tables do not hold what was asked for");
    }

    // One entry is over the first host: nanoseconds for its going and coming.
    double host_goes_and_comes() {
        constexpr unsigned times = 256;
        const chassis::CardScope scope(card());
        const std::uint64_t before = card().chip.requests(chassis::chip::Function::mpls_ftn_add);
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < times; i++) {
                routes_.host(0, DPM_OPER_DEL);
                routes_.host(0, DPM_OPER_ADD);
            }
        });
        if (card().chip.requests(chassis::chip::Function::mpls_ftn_add) != before + times)
            fail("the label entry does not follow its neighbour");
        return nsec / times;
    }

private:
    RouteCard routes_;
    std::uint32_t ifindex_;
};

// --- what is compared with -----------------------------------------------------------------------

dpm_ftn entry_of(const dpm_ftn_msg &message) {
    dpm_ftn entry{};
    entry.ip_type = std::uint8_t(message.family);
    entry.prefixlen = message.prefixlen;
    std::memcpy(entry.fec_prefix, message.fec_prefix, sizeof entry.fec_prefix);
    std::memcpy(entry.tunnel_nhop, message.tunnel_nhop, sizeof entry.tunnel_nhop);
    entry.tunnel_label = message.tunnel_label;
    return entry;
}

dpm_ilm entry_of(const dpm_ilm_msg &message) {
    dpm_ilm entry{};
    entry.in_label = message.in_label;
    entry.swap_label = message.swap_label;
    entry.prefixlen = message.prefixlen;
    std::memcpy(entry.fec_prefix, message.fec_prefix, sizeof entry.fec_prefix);
    std::memcpy(entry.tunnel_nhop, message.tunnel_nhop, sizeof entry.tunnel_nhop);
    return entry;
}

// What any program does that keeps such a table and follows neighbours: the request comes in a block
// of its own, its key is looked for, a record as large as the library's is made of it and put into a
// set, into one by next hop and, of a prefix, into one by its far end.
template <class Message, class Entry> class PlainTable {
public:
    ~PlainTable() {
        by_end_.clear();
        by_nexthop_.clear();
        set_.clear_and_dispose([](Record *record) { std::free(record); });
    }
    void add(const Message &message) {
        auto *const request = new (std::malloc(sizeof message)) Message(message);
        const Entry entry = entry_of(*request);
        typename decltype(set_)::insert_commit_data place;
        if (!set_.insert_check(entry, Order(), place).second)
            fail("a label entry stands in the plain table already");
        auto *const record = new (std::calloc(1, sizeof(Record))) Record;
        record->entry = entry;
        set_.insert_commit(*record, place);
        by_nexthop_.insert(*record);
        if constexpr (std::is_same_v<Entry, dpm_ftn>)
            by_end_.insert(*record);
        std::free(request);
    }

private:
    template <class Tag>
    using Hook = boost::intrusive::avl_set_base_hook<boost::intrusive::tag<Tag>>;
    template <class Record, class Tag, class Order>
    using Set = boost::intrusive::avl_set<Record, boost::intrusive::base_hook<Hook<Tag>>,
                                          boost::intrusive::compare<Order>>;
    struct Key;
    struct Nexthop;
    struct End;
    struct Record : Hook<Key>, Hook<Nexthop>, Hook<End> {
        Entry entry;
        std::uint32_t beside[4]; // since when it waits, and the like
    };
    struct Order {
        template <class A, class B> bool operator()(const A &a, const B &b) const {
            return dpm::label_order(of(a), of(b)) < 0;
        }
        static const Entry &of(const Entry &entry) { return entry; }
        static const Entry &of(const Record &record) { return record.entry; }
    };
    struct NexthopOrder {
        bool operator()(const Record &a, const Record &b) const {
            return dpm::nexthop_order(a, b) < 0;
        }
    };
    struct EndOrder {
        bool operator()(const Record &a, const Record &b) const {
            const int order = dpm::bytes16_order(a.entry.fec_prefix, b.entry.fec_prefix);
            return order != 0 ? order < 0 : dpm::label_order(a.entry, b.entry) < 0;
        }
    };
    static_assert(sizeof(Record) >= sizeof(label_record<Entry>) - 8 &&
                  sizeof(Record) <= sizeof(label_record<Entry>) + 8);

    Set<Record, Key, Order> set_;
    Set<Record, Nexthop, NexthopOrder> by_nexthop_;
    Set<Record, End, EndOrder> by_end_;
};

double add_to_plain_tables(unsigned count) {
    PlainTable<dpm_ftn_msg, dpm_ftn> ftns;
    PlainTable<dpm_ilm_msg, dpm_ilm> ilms;
    return time_of([&] {
               for (unsigned i = 0; i < count; i++)
                   i % 2 == 0 ? ftns.add(ftn_message(1, i, 0)) : ilms.add(ilm_message(1, i, 0));
           }) /
           count;
}

// Nanoseconds an entry from the standby's connection until it has all of them.
double mirror(LabelCard &master) {
    MasterCard standby(chassis::os::Mode::pumped, 10);
    standby.card.peer.set_role(chassis::peer::Role::standby);
    const chassis::CardScope scope(master.card());
    master.card().peer.join(standby.card.peer);
    const double nsec = time_of([&] {
        master.card().peer.connected();
        master.card().pump();
        standby.card.pump();
        master.card().pump();
    });
    {
        const chassis::CardScope other(standby.card);
        master.check(all);
    }
    master.card().peer.cut();
    return nsec / all;
}

} // namespace

void measure_labels(const Options &options, const Report &report) {
    LabelCard full_card(9), few_card(9);
    Comparison requests, mirrored, hosts;
    for (unsigned round = 0; round < options.rounds; round++) {
        requests.round(
            [&] {
                const double nsec = full_card.add(all);
                full_card.clear(all);
                return nsec;
            },
            [] { return add_to_plain_tables(all); });
    }
    report({"a label entry / the same in plain containers", requests.time(), "ns", requests.ratio(),
            request_limit});
    report({"label entries to the chip", 1e9 / requests.time(), "per s"});
    full_card.add(all);
    for (unsigned round = 0; round < options.rounds; round++)
        mirrored.round([&] { return mirror(full_card); }, [] { return add_to_plain_tables(all); });
    report({"4096 label entries to a standby / the same", mirrored.time(), "ns", mirrored.ratio()});
    few_card.add(few);
    for (LabelCard *card : {&full_card, &few_card}) {
        const chassis::CardScope scope(card->card());
        card->entry(0, DPM_OPER_DEL);
        card->entry(0, DPM_OPER_ADD, 0);
    }
    for (unsigned round = 0; round < options.rounds; round++)
        hosts.round([&] { return full_card.host_goes_and_comes(); },
                    [&] { return few_card.host_goes_and_comes(); });
    report({"a host of one label goes and comes, 4096 / 256", hosts.time(), "ns", hosts.ratio(),
            host_limit});
}

} // namespace bench
