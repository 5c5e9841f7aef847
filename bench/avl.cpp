// The tables' tree against boost::intrusive::avl_set, on records of the same size and key.
//
// Both containers get the same keys in the same shuffled orders; a find gets a key record, as a
// table's find does.
#include "bench/bench.h"

#include "dpm_avltree.h"

#include <algorithm>
#include <boost/intrusive/avl_set.hpp>
#include <numeric>
#include <random>

namespace bench {

namespace {

namespace bi = boost::intrusive;

constexpr double limit = 1.15;
constexpr unsigned operations =
    65536; // of a measurement: a small table is filled and emptied several times

// A record with its header first, then a key of a VRF and an address, as most tables have.
template <class Header, std::size_t Bytes> struct record {
    Header header;
    std::uint32_t vrf;
    std::uint32_t address;
    unsigned char rest[Bytes - sizeof(Header) - 8];
};

template <class Record> int order(const Record &a, const Record &b) {
    if (a.vrf != b.vrf)
        return a.vrf < b.vrf ? -1 : 1;
    return a.address == b.address ? 0 : a.address < b.address ? -1 : 1;
}

template <std::size_t Bytes> struct our_tree {
    using entry = record<dpm_avl_node, Bytes>;
    static_assert(sizeof(entry) == Bytes);

    our_tree() { table.create(); }
    bool find(const entry &key) { return table.find(key) != nullptr; }
    void insert(entry &entry) { table.add(entry); }
    void erase(entry &entry) { table.remove(entry); }

    dpm_avl_tree tree{};
    dpm::avl_table<entry, order<entry>> table{tree};
};

template <std::size_t Bytes> struct reference_tree {
    using hook = bi::avl_set_member_hook<bi::link_mode<bi::normal_link>>;
    using entry = record<hook, Bytes>;
    static_assert(sizeof(entry) == Bytes);

    struct less {
        bool operator()(const entry &a, const entry &b) const { return order(a, b) < 0; }
    };
    bool find(const entry &key) { return set.find(key) != set.end(); }
    void insert(entry &entry) { set.insert(entry); }
    void erase(entry &entry) { set.erase(set.iterator_to(entry)); }

    bi::avl_set<entry, bi::member_hook<entry, hook, &entry::header>, bi::compare<less>,
                bi::constant_time_size<true>>
        set;
};

struct Orders {
    std::vector<std::uint32_t> keys;                // of record i
    std::vector<std::uint32_t> insert, find, erase; // records
};

Orders shuffled_orders(unsigned count) {
    std::mt19937 random(count);
    Orders orders;
    std::uint32_t key = std::uint32_t(random());
    for (unsigned i = 0; i < count; i++)
        orders.keys.push_back(key += 2654435761u); // odd: no key comes twice
    for (auto *list : {&orders.insert, &orders.find, &orders.erase}) {
        list->resize(count);
        std::iota(list->begin(), list->end(), 0);
        std::shuffle(list->begin(), list->end(), random);
    }
    return orders;
}

struct Times {
    double find = 0, insert = 0, erase = 0; // nanoseconds in all
};

// One container with its records.
template <class Tree> class Subject {
public:
    explicit Subject(const Orders &orders) : orders_(orders), records_(orders.keys.size()) {
        for (std::size_t i = 0; i < records_.size(); i++) {
            records_[i].vrf = orders.keys[i] % 4;
            records_[i].address = orders.keys[i];
        }
    }

    Times measure() {
        Times times;
        for (unsigned done = 0; done < operations; done += unsigned(records_.size())) {
            times.insert += each(orders_.insert, [&](auto i) { tree_.insert(records_[i]); });
            times.find += each(orders_.find, [&](auto i) {
                key_.vrf = orders_.keys[i] % 4;
                key_.address = orders_.keys[i];
                found_ += tree_.find(key_);
            });
            times.erase += each(orders_.erase, [&](auto i) { tree_.erase(records_[i]); });
        }
        return times;
    }
    unsigned found() const { return found_; }

private:
    template <class Work> double each(const std::vector<std::uint32_t> &list, Work work) {
        return time_of([&] {
            for (const std::uint32_t i : list)
                work(i);
        });
    }

    const Orders &orders_;
    std::vector<typename Tree::entry> records_;
    typename Tree::entry key_{};
    Tree tree_;
    unsigned found_ = 0;
};

struct Operation {
    const char *name;
    double Times::*time;
};
constexpr Operation operation_list[] = {
    {"find", &Times::find}, {"insert", &Times::insert}, {"erase", &Times::erase}};

template <std::size_t Bytes>
void measure_size(unsigned count, const Options &options, const Report &report) {
    const Orders orders = shuffled_orders(count);
    Subject<our_tree<Bytes>> ours(orders);
    Subject<reference_tree<Bytes>> theirs(orders);
    Comparison comparisons[std::size(operation_list)];
    ours.measure(), theirs.measure(); // touch the memory
    for (unsigned round = 0; round < options.rounds; round++) {
        const bool ours_first = round % 2 == 0;
        Times a, b;
        if (ours_first)
            a = ours.measure();
        b = theirs.measure();
        if (!ours_first)
            a = ours.measure();
        for (std::size_t i = 0; i < std::size(operation_list); i++) {
            comparisons[i].ours.push_back(a.*operation_list[i].time / operations);
            comparisons[i].theirs.push_back(b.*operation_list[i].time / operations);
        }
    }
    if (ours.found() != theirs.found())
        std::abort(); // they would not be comparable
    for (std::size_t i = 0; i < std::size(operation_list); i++)
        report({std::string("avl ") + operation_list[i].name + ", " + std::to_string(count / 1024) +
                    "k of " + std::to_string(Bytes) + " bytes",
                median(comparisons[i].ours), "ns", comparisons[i].ratio(), limit});
}

} // namespace

void measure_avl(const Options &options, const Report &report) {
    for (const unsigned count : {1024u, 16384u, 65536u}) {
        measure_size<44>(count, options, report);
        measure_size<176>(count, options, report);
        measure_size<824>(count, options, report);
    }
}

} // namespace bench
