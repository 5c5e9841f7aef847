// The tables' tree against boost::intrusive::avl_set, on records of the same size and key.
//
// Both containers get the same keys in the same shuffled orders; a find gets a key record, as a
// table's find does.
#include "bench/bench.h"

#include "dpm_avltree.h"

#include <algorithm>
#include <boost/intrusive/avl_set.hpp>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
#include <sys/mman.h>

namespace bench {

namespace {

namespace bi = boost::intrusive;

constexpr double limit = 1.15;
constexpr std::size_t piece = 512; // operations on one container before the other has its turn
constexpr std::size_t operations =
    65536; // a round; it fills and empties a small table several times

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

// Keys, and the records in an order for each operation.
class Orders {
public:
    explicit Orders(unsigned count) : random_(count) {
        std::uint32_t key = std::uint32_t(random_());
        for (unsigned i = 0; i < count; i++)
            keys.push_back(key += 2654435761u); // odd: no key comes twice
        for (auto *list : {&insert, &find, &erase}) {
            list->resize(count);
            std::iota(list->begin(), list->end(), 0);
        }
        shuffle();
    }

    // An order that came again would be learnt by the processor's branch predictor.
    void shuffle() {
        for (auto *list : {&insert, &find, &erase})
            std::shuffle(list->begin(), list->end(), random_);
    }

    std::vector<std::uint32_t> keys;                // of record i
    std::vector<std::uint32_t> insert, find, erase; // records

private:
    std::mt19937 random_;
};

// Memory in small pages, as the heap's blocks are: large ones, given to one side by luck, would decide the comparison.
template <class Entry> class Records {
public:
    explicit Records(std::size_t count) : bytes_(count * sizeof(Entry)) {
        void *const memory =
            mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED)
            std::abort();
        (void)madvise(memory, bytes_, MADV_NOHUGEPAGE);
        entries_ = static_cast<Entry *>(memory);
        std::uninitialized_value_construct_n(entries_, count);
    }
    ~Records() { munmap(entries_, bytes_); }
    Records(const Records &) = delete;
    Records &operator=(const Records &) = delete;
    Entry &operator[](std::size_t i) { return entries_[i]; }

private:
    const std::size_t bytes_;
    Entry *entries_;
};

// One container with its records, and what can be done with record i.
template <class Tree> class Subject {
public:
    explicit Subject(const Orders &orders) : keys_(orders.keys), records_(keys_.size()) {
        for (std::size_t i = 0; i < keys_.size(); i++) {
            records_[i].vrf = keys_[i] % 4;
            records_[i].address = keys_[i];
        }
    }
    void insert(std::uint32_t i) { tree_.insert(records_[i]); }
    void find(std::uint32_t i) {
        key_.vrf = keys_[i] % 4;
        key_.address = keys_[i];
        found_ += tree_.find(key_);
    }
    void erase(std::uint32_t i) { tree_.erase(records_[i]); }
    unsigned found() const { return found_; }

private:
    const std::vector<std::uint32_t> &keys_;
    Records<typename Tree::entry> records_;
    typename Tree::entry key_{};
    Tree tree_;
    unsigned found_ = 0;
};

struct Times { // nanoseconds in all
    double ours = 0, theirs = 0;
};

// The same operations on both in pieces, turn and turn about, so that whatever else the machine
// does meets both.
template <class Ours, class Theirs>
void in_turns(const std::vector<std::uint32_t> &list, Times &times, Ours ours, Theirs theirs) {
    const auto run = [&list](std::size_t from, auto work) {
        return time_of([&] {
            for (std::size_t i = from; i < std::min(list.size(), from + piece); i++)
                work(list[i]);
        });
    };
    for (std::size_t from = 0; from < list.size(); from += piece) {
        const bool ours_first = from / piece % 2 == 0;
        if (ours_first)
            times.ours += run(from, ours);
        times.theirs += run(from, theirs);
        if (!ours_first)
            times.ours += run(from, ours);
    }
}

struct Round {
    Times insert, find, erase;
};

template <class Ours, class Theirs>
Round measure_round(Orders &orders, Ours &ours, Theirs &theirs) {
    Round round;
    for (std::size_t done = 0; done < operations; done += orders.keys.size()) {
        orders.shuffle();
        in_turns(
            orders.insert, round.insert, [&](auto i) { ours.insert(i); },
            [&](auto i) { theirs.insert(i); });
        in_turns(
            orders.find, round.find, [&](auto i) { ours.find(i); },
            [&](auto i) { theirs.find(i); });
        in_turns(
            orders.erase, round.erase, [&](auto i) { ours.erase(i); },
            [&](auto i) { theirs.erase(i); });
    }
    return round;
}

struct Operation {
    const char *name;
    Times Round::*times;
};
constexpr Operation operation_list[] = {
    {"find", &Round::find}, {"insert", &Round::insert}, {"erase", &Round::erase}};

template <std::size_t Bytes>
void measure_size(unsigned count, const Options &options, const Report &report) {
    Orders orders(count);
    Subject<our_tree<Bytes>> ours(orders);
    Subject<reference_tree<Bytes>> theirs(orders);
    Comparison comparisons[std::size(operation_list)];
    (void)measure_round(orders, ours, theirs); // touch the memory
    for (unsigned i = 0; i < options.rounds; i++) {
        const Round round = measure_round(orders, ours, theirs);
        for (std::size_t each = 0; each < std::size(operation_list); each++) {
            const Times &times = round.*operation_list[each].times;
            comparisons[each].ours.push_back(times.ours / operations);
            comparisons[each].theirs.push_back(times.theirs / operations);
        }
    }
    if (ours.found() != theirs.found())
        std::abort(); // they would not be comparable
    for (std::size_t i = 0; i < std::size(operation_list); i++)
        report({std::string("avl ") + operation_list[i].name + ", " + std::to_string(count / 1024) +
                    "k of " + std::to_string(Bytes) + " bytes",
                comparisons[i].time(), "ns", comparisons[i].ratio(), limit});
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
