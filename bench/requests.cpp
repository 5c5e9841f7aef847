// Host requests from the posting call to the table, and what full tables and many timers cost.
//
// The chip is in null mode and the log is off, so that the figures are the library's.
#include "bench/hosts.h"

#include "dpm_timer.h"

#include <algorithm>
#include <deque>

extern "C" int dpm_task_pass(void); // one pass of the worker

namespace bench {

namespace {

constexpr unsigned burst = 16384; // hosts; fits into the table and into the queue

constexpr double paced_limit = 1.1;
constexpr double full_table_limit = 1.6;
constexpr double timer_limit = 2.0;

struct Run {
    double posting_nsec, all_nsec;
    std::size_t backlog; // most messages that waited
};

// Posts a burst from this thread; the worker takes it meanwhile.
Run post_burst(chassis::Card &card, std::uint32_t oper) {
    Run run{};
    const std::int64_t start = now_nsec();
    for (unsigned i = 0; i < burst; i++) {
        request_host(i, oper);
        if (i % 64 == 0)
            run.backlog = std::max(run.backlog, card.os.queued());
    }
    run.posting_nsec = double(now_nsec() - start);
    wait_for_hosts(oper == DPM_OPER_ADD ? burst : 0);
    run.all_nsec = double(now_nsec() - start);
    return run;
}

void measure_bursts(const Options &options, const Report &report, bool paced) {
    MasterCard master(chassis::os::Mode::threaded);
    master.card.os.skip_delays(!paced);
    std::vector<double> seconds, drained, backlog;
    for (unsigned round = 0; round < options.rounds; round++) {
        const Run run = post_burst(master.card, DPM_OPER_ADD);
        seconds.push_back(run.all_nsec / 1e9);
        drained.push_back(run.all_nsec / run.posting_nsec);
        backlog.push_back(double(run.backlog));
        check_hosts(burst);
        (void)post_burst(master.card, DPM_OPER_DEL);
        check_hosts(0);
    }
    if (!paced)
        return report({"host adds without pacing", burst / quick(seconds), "per s"});
    report({"host adds with pacing, until applied / posting", burst / quick(seconds), "per s",
            quick(drained), paced_limit});
    report({"most messages waiting, with pacing", median(backlog), "messages"});
}

// A card with some hosts, to which a fixed number is added and taken away again, pass by pass on
// this thread.
class FilledCard {
public:
    FilledCard(unsigned slot, unsigned hosts)
        : master_(chassis::os::Mode::pumped, slot), hosts_(hosts) {
        const chassis::CardScope scope(master_.card);
        for (unsigned i = 0; i < hosts; i++)
            request(i, DPM_OPER_ADD);
        check_hosts(hosts);
    }

    // Nanoseconds an add.
    double add_some() {
        const chassis::CardScope scope(master_.card);
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < added; i++)
                request(hosts_ + i, DPM_OPER_ADD);
        });
        check_hosts(hosts_ + added);
        for (unsigned i = 0; i < added; i++)
            request(hosts_ + i, DPM_OPER_DEL);
        return nsec / added;
    }

private:
    static constexpr unsigned added = 1024;
    static void request(unsigned host, std::uint32_t oper) {
        request_host(host, oper);
        dpm_task_pass();
    }
    MasterCard master_;
    const unsigned hosts_;
};

// Nanoseconds for each of many timers of one length, armed one after the other.
double arm_timers(unsigned count) {
    std::deque<dpm_timer_node> nodes(count);
    for (dpm_timer_node &node : nodes)
        dpm_timer_node_init(&node);
    dpm_timer_list *const list = dpm_timer_list_create();
    const double nsec = time_of([&] {
        for (dpm_timer_node &node : nodes)
            dpm_timer_start(list, &node, 30, nullptr, 0, 0, 0);
    });
    dpm_timer_list_delete(list);
    return nsec / count;
}

} // namespace

void measure_requests(const Options &options, const Report &report) {
    measure_bursts(options, report, true);
    measure_bursts(options, report, false);
}

void measure_host_table(const Options &options, const Report &report) {
    FilledCard large(9, 16384), small(10, 1024);
    Comparison comparison;
    large.add_some(), small.add_some();
    for (unsigned round = 0; round < options.rounds; round++)
        comparison.round([&] { return large.add_some(); }, [&] { return small.add_some(); });
    report({"host add, 16k hosts present / 1k", comparison.time(), "ns", comparison.ratio(),
            full_table_limit});
}

void measure_timers(const Options &options, const Report &report) {
    MasterCard master(chassis::os::Mode::threaded); // for its clock
    Comparison comparison;
    arm_timers(16384);
    for (unsigned round = 0; round < options.rounds; round++)
        comparison.round([] { return arm_timers(16384); },
                         [] {
                             double nsec = 0;
                             for (int i = 0; i < 16; i++)
                                 nsec += arm_timers(1024) / 16;
                             return nsec;
                         });
    report({"arming a timer of one length, 16k / 1k", comparison.time(), "ns", comparison.ratio(),
            timer_limit});
}

} // namespace bench
