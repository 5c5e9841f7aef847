// Figures: rows of a table, measured as ratios within one run so that they mean the same on any
// machine.
//
// A row is a value with its unit and, where something is compared, a ratio with or without a limit.
// What is compared is measured turn and turn about.  Whatever else the machine does only ever makes
// a round slower, so the row shows the quick rounds: a value is their median, a ratio that of their
// own ratios.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace bench {

struct Row {
    std::string name;
    double value;
    std::string unit;
    std::optional<double> ratio = {}, limit = {};
    bool is_past_limit() const { return ratio && limit && *ratio > *limit; }
};

struct Options {
    unsigned rounds = 15;  // at least 7
    std::string only;      // part of the names of the rows' groups; empty: all
    std::string json_path; // empty: none
    // Set in the process that is the other card of the mirroring rows.
    std::string standby_directory;
    bool standby_paced = true;
};

using Report = std::function<void(Row)>;

// The groups of rows.
void measure_avl(const Options &options, const Report &report);
void measure_requests(const Options &options, const Report &report);
void measure_host_table(const Options &options, const Report &report);
void measure_timers(const Options &options, const Report &report);
void measure_mirroring(const Options &options, const Report &report);
void measure_routes(const Options &options, const Report &report);
void measure_route_events(const Options &options, const Report &report);
void measure_labels(const Options &options, const Report &report);
void measure_multicast(const Options &options, const Report &report);
void measure_bfd(const Options &options, const Report &report);
void measure_tunnels(const Options &options, const Report &report);
void measure_daemon(const Options &options, const Report &report);

// The other card's process; runs until the master is gone.
int run_standby(const Options &options);

double median(std::vector<double> values);

// The median of the quickest third.
double quick(std::vector<double> times);

// The kernel's monotonic clock, and the processor's time of this thread; the process's own
// clock_gettime answers for the current card.
std::int64_t now_nsec();
std::int64_t own_nsec();

// Nanoseconds that a call takes on this thread, without those that the processor has for others.
template <class Work> double time_of(Work work) {
    const std::int64_t start = own_nsec();
    work();
    return double(own_nsec() - start);
}

// Where several threads work side by side: nanoseconds until it is done.
template <class Work> double time_until_done(Work work) {
    const std::int64_t start = now_nsec();
    work();
    return double(now_nsec() - start);
}

// Two things measured in turn, the first one first in every other round.
struct Comparison {
    std::vector<double> ours, theirs;
    template <class Ours, class Theirs> void round(Ours measure_ours, Theirs measure_theirs) {
        const bool ours_first = ours.size() % 2 == 0;
        if (ours_first)
            ours.push_back(measure_ours());
        theirs.push_back(measure_theirs());
        if (!ours_first)
            ours.push_back(measure_ours());
    }
    double time() const;
    double ratio() const;

private:
    std::vector<std::size_t> quick_rounds() const;
};

} // namespace bench
