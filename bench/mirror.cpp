// Bringing a new standby card up to date: full tables over a Unix socket to another process.
//
// The time runs from the master's connected callback to the standby's confirmation that it applied
// everything.  It is compared with the least that a card with these tables costs: each record
// allocated, copied and inserted into a set, in the order in which it travels.
#include "bench/hosts.h"

#include "chassis/peer/link.h"
#include "chassis/peer/state.h"
#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_nexthop.h"
#include "dpm_route.h"
#include "platform/hss.h"

#include <atomic>
#include <boost/intrusive/avl_set.hpp>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace bench {

namespace {

constexpr unsigned hosts = 18432, routes = full_route_table, groups = 1024; // full tables
constexpr unsigned group_gateways = 8;
constexpr double sets_limit = 6.0;
constexpr std::int64_t patience_nsec = 60'000'000'000; // a round takes less than one of them

// Ends the program when it takes far too long; the other process then ends as well.
template <class Condition> void wait_for(Condition condition, const char *missing) {
    const std::int64_t deadline = now_nsec() + patience_nsec;
    while (!condition()) {
        if (now_nsec() > deadline)
            fail(missing);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// --- what is compared with -----------------------------------------------------------------------

// The records of a table in its order.
template <class Entry, class Next> std::vector<Entry> copies(const Entry *entry, Next next) {
    std::vector<Entry> list;
    for (; entry != nullptr; entry = next(entry))
        list.push_back(*entry);
    return list;
}

struct Records {
    std::vector<dpm_nexthop_entry> nexthops =
        copies(dpm_api_get_nexthop_entry_first(), dpm_api_get_nexthop_entry_next);
    std::vector<dpm_host_entry> hosts =
        copies(dpm_api_get_host_entry_first(DPM_FAMILY_IPV4), dpm_api_get_host_entry_next);
    std::vector<dpm_ecmp_entry> groups =
        copies(dpm_api_get_ecmp_entry_first(DPM_FAMILY_IPV4), dpm_api_get_ecmp_entry_next);
    std::vector<dpm_route_entry> routes =
        copies(dpm_api_get_route_entry_first(DPM_FAMILY_IPV4), dpm_api_get_route_entry_next);
};

int order(const dpm_nexthop_entry &a, const dpm_nexthop_entry &b) {
    return dpm_nexthop_compare(a, b);
}
int order(const dpm_host_entry &a, const dpm_host_entry &b) {
    return dpm_host_ipv4_compare(a, b);
}
int order(const dpm_ecmp_entry &a, const dpm_ecmp_entry &b) {
    return dpm_ecmp_compare(&a, &b);
}
int order(const dpm_route_entry &a, const dpm_route_entry &b) {
    return dpm_route_ipv4_compare(a, b);
}

template <class Entry> class Set {
public:
    ~Set() {
        set_.clear_and_dispose([](Element *element) { std::free(element); });
    }
    void insert_all(const std::vector<Entry> &entries) {
        for (const Entry &entry : entries)
            set_.insert(*new (std::malloc(sizeof(Element))) Element{{}, entry});
    }

private:
    using Hook = boost::intrusive::avl_set_member_hook<>;
    struct Element {
        Hook hook;
        Entry entry;
        bool operator<(const Element &other) const { return order(entry, other.entry) < 0; }
    };
    boost::intrusive::avl_set<Element, boost::intrusive::member_hook<Element, Hook, &Element::hook>>
        set_;
};

double insert_into_sets(const Records &records) {
    Set<dpm_nexthop_entry> nexthops;
    Set<dpm_host_entry> hosts;
    Set<dpm_ecmp_entry> groups;
    Set<dpm_route_entry> routes;
    (void)malloc_trim(0); // like a card's that has just started: each page is the kernel's to give
    return time_until_done([&] {
        nexthops.insert_all(records.nexthops);
        hosts.insert_all(records.hosts);
        groups.insert_all(records.groups);
        routes.insert_all(records.routes);
    });
}

// --- the shelf -----------------------------------------------------------------------------------

void check_tables() {
    check_hosts(hosts);
    const Records records;
    if (records.nexthops.size() != hosts || records.groups.size() != groups ||
        records.routes.size() != routes)
        fail("a card does not hold full tables");
}

std::string socket_in(const std::string &directory) {
    return directory + "/shelf.sock";
}

pid_t start_standby(const std::string &directory, bool paced) {
    std::string words[] = {"bench", "--standby", directory, "--paced", paced ? "1" : "0"};
    char *pointers[] = {words[0].data(), words[1].data(), words[2].data(),
                        words[3].data(), words[4].data(), nullptr};
    pid_t process = 0;
    if (posix_spawn(&process, "/proc/self/exe", nullptr, nullptr, pointers, environ) != 0)
        fail("the standby card does not start");
    return process;
}

// Other clients of the connected callback, called before and behind the library.  One that ends for
// a standby that was lost counts for nothing: the cards meet again, and it is called anew.
std::atomic<std::int64_t> began_nsec, ended_nsec;
int note_begin() {
    return began_nsec = now_nsec(), 0;
}
int note_end() {
    return ended_nsec = chassis::card().peer.exists() ? now_nsec() : 0, 0;
}

// Where the cards meet.
class Directory {
public:
    Directory() {
        if (mkdtemp(path_) == nullptr)
            fail("no directory for two cards");
    }
    ~Directory() { rmdir(path_); }
    const char *path() const { return path_; }

private:
    char path_[24] = "/tmp/dpm-bench-XXXXXX";
};

// Held by each card for its slot, as long as it lives: or the other takes over as soon as they are
// apart, and tells so to whom it meets next.
chassis::peer::LockFile lock_slot(const std::string &directory, unsigned slot) {
    auto lock = chassis::peer::LockFile::take(chassis::peer::slot_lock_path(directory, slot));
    if (!lock)
        fail("a slot has a card already");
    return lock;
}

// A master with full tables, and standby cards in processes of their own, one after the other.
class Shelf {
public:
    Shelf() : lock_(lock_slot(directory_.path(), 9)), master_(chassis::os::Mode::threaded) {
        master_.card.os.skip_delays(true);
        for (unsigned i = 0; i < hosts; i++)
            request_host(i, DPM_OPER_ADD);
        wait_for_hosts(hosts);
        const std::uint32_t ifindex = master_.card.suite.find("vlanif100")->ifindex;
        for (unsigned i = 0; i < routes; i++)
            post_route(route_message(ifindex, i, i, i < groups ? group_gateways : 1), DPM_OPER_ADD);
        wait_for_routes(routes);
        check_tables();
        (void)hss_backupConnectedRegister(INT_MIN, note_begin);
        (void)hss_backupConnectedRegister(INT_MAX, note_end);
    }

    // Nanoseconds for a standby that comes with empty tables.
    double bring_up(bool paced) {
        master_.card.os.skip_delays(!paced);
        ended_nsec = 0;
        const pid_t process = start_standby(directory_.path(), paced);
        master_.card.peer.open(socket_in(directory_.path()));
        wait_for([] { return ended_nsec != 0; }, "the standby card confirms nothing");
        master_.card.peer.close();
        int status = 0;
        waitpid(process, &status, 0);
        if (status != 0)
            fail("the standby card does not hold the master's tables");
        return double(ended_nsec - began_nsec);
    }

private:
    const Directory directory_;
    const chassis::peer::LockFile lock_;
    MasterCard master_;
};

} // namespace

int run_standby(const Options &options) {
    chassis::Card card(
        {.slot = 10, .mode = chassis::os::Mode::threaded, .mac = {2, 0, 0, 0, 0, 10}});
    card.peer.set_role(chassis::peer::Role::standby);
    prepare(card);
    card.os.skip_delays(!options.standby_paced);
    const chassis::peer::LockFile lock = lock_slot(options.standby_directory, 10);
    card.peer.open(socket_in(options.standby_directory));
    wait_for([&] { return bool(card.peer.state().has_tables); }, "no tables come");
    wait_for([&] { return !card.peer.exists(); }, "the master card does not end");
    check_tables();
    card.peer.close();
    return 0;
}

void measure_mirroring(const Options &options, const Report &report) {
    Shelf shelf;
    const Records records;
    Comparison comparison;
    std::vector<double> paced;
    for (unsigned round = 0; round < options.rounds; round++) {
        // More often than others: two cards that work side by side seldom have two cores of a busy
        // machine to themselves.
        for (int i = 0; i < 3; i++)
            comparison.round([&] { return shelf.bring_up(false); },
                             [&] { return insert_into_sets(records); });
        paced.push_back(shelf.bring_up(true));
    }
    report({"mirroring full tables with pacing", quick(paced) / 1e6, "ms"});
    report({"mirroring full tables / the records into sets", comparison.time() / 1e6, "ms",
            comparison.ratio(), sets_limit});
}

} // namespace bench
