// Label entries: requests, neighbours that go and come, and full tables on their way to a standby.
#include "bench/routes.h"

#include "dpm_l3vpn.h"

#include <boost/intrusive/avl_set.hpp>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace bench {

namespace {

constexpr double host_limit = 1.6, request_limit = 5;
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

// The same records in sets with the tables' orders.
template <class Entry, int (*Compare)(const Entry *, const Entry *)> class PlainTable {
public:
    ~PlainTable() {
        set_.clear_and_dispose([](Record *record) { std::free(record); });
    }
    void add(const Entry &entry) {
        auto *const record = new (std::calloc(1, sizeof(Record))) Record;
        record->entry = entry;
        set_.insert(*record);
    }

private:
    struct Record : boost::intrusive::avl_set_base_hook<> {
        Entry entry;
        bool operator<(const Record &other) const { return Compare(&entry, &other.entry) < 0; }
    };
    boost::intrusive::avl_set<Record> set_;
};

double add_to_sets(const std::vector<dpm_ftn> &ftns, const std::vector<dpm_ilm> &ilms) {
    PlainTable<dpm_ftn, dpm_mpls_ftn_compare> ftn_set;
    PlainTable<dpm_ilm, dpm_mpls_ilm_compare> ilm_set;
    return time_of([&] {
               for (const dpm_ftn &ftn : ftns)
                   ftn_set.add(ftn);
               for (const dpm_ilm &ilm : ilms)
                   ilm_set.add(ilm);
           }) /
           double(ftns.size() + ilms.size());
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
    std::vector<dpm_ftn> ftns;
    std::vector<dpm_ilm> ilms;
    full_card.add(all);
    {
        const chassis::CardScope scope(full_card.card());
        for (const dpm_ftn &ftn : dpm::ftns())
            ftns.push_back(ftn);
        for (const dpm_ilm &ilm : dpm::ilms())
            ilms.push_back(ilm);
    }
    full_card.clear(all);
    for (unsigned round = 0; round < options.rounds; round++) {
        requests.round(
            [&] {
                const double nsec = full_card.add(all);
                full_card.clear(all);
                return nsec;
            },
            [&] { return add_to_sets(ftns, ilms); });
    }
    report({"a label entry to the chip / into a set", requests.time(), "ns", requests.ratio(),
            request_limit});
    report({"label entries to the chip", 1e9 / requests.time(), "per s"});
    full_card.add(all);
    for (unsigned round = 0; round < options.rounds; round++)
        mirrored.round([&] { return mirror(full_card); }, [&] { return add_to_sets(ftns, ilms); });
    report(
        {"4096 label entries to a standby / into sets", mirrored.time(), "ns", mirrored.ratio()});
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
