// Runs the groups of figures, prints their table, writes them as JSON, and fails when a ratio is
// past its limit.
#include "bench/bench.h"

#include "chassis/os/state.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <memory>
#include <numeric>

namespace bench {

namespace {

std::size_t third_of(std::size_t rounds) {
    return (rounds + 2) / 3;
}

} // namespace

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double quick(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    times.resize(third_of(times.size()));
    return median(times);
}

// The third in which both sides together were least disturbed.
std::vector<std::size_t> Comparison::quick_rounds() const {
    std::vector<std::size_t> rounds(ours.size());
    std::iota(rounds.begin(), rounds.end(), 0);
    std::ranges::sort(rounds, {}, [this](std::size_t i) { return ours[i] * theirs[i]; });
    rounds.resize(third_of(rounds.size()));
    return rounds;
}

double Comparison::time() const {
    std::vector<double> times;
    for (const std::size_t i : quick_rounds())
        times.push_back(ours[i]);
    return median(times);
}

double Comparison::ratio() const {
    std::vector<double> ratios;
    for (const std::size_t i : quick_rounds())
        ratios.push_back(ours[i] / theirs[i]);
    return median(ratios);
}

std::int64_t now_nsec() {
    return chassis::os::raw_nsec();
}

std::int64_t own_nsec() {
    return chassis::os::raw_nsec(CLOCK_THREAD_CPUTIME_ID);
}

} // namespace bench

namespace {

using namespace bench;

struct Group {
    const char *name;
    void (*measure)(const Options &, const Report &);
};

constexpr Group groups[] = {
    {"avl", measure_avl},
    {"requests", measure_requests},
    {"host-table", measure_host_table},
    {"timers", measure_timers},
    {"mirroring", measure_mirroring},
    {"routes", measure_routes},
    {"route-events", measure_route_events},
    {"labels", measure_labels},
    {"multicast", measure_multicast},
    {"bfd", measure_bfd},
    {"tunnels", measure_tunnels},
    {"daemon", measure_daemon},
};

[[noreturn]] void usage(const char *wrong) {
    if (wrong != nullptr)
        std::fprintf(stderr, "bench: %s is not understood\n", wrong);
    std::fprintf(stderr,
                 "usage: bench [--json FILE] [--rounds N (7 or more)] [--only GROUP]\ngroups:");
    for (const Group &group : groups)
        std::fprintf(stderr, " %s", group.name);
    std::fprintf(stderr, "\n");
    std::exit(2);
}

Options parse(int count, char **words) {
    Options options;
    for (int i = 1; i < count; i += 2) {
        const std::string word = words[i];
        if (i + 1 == count)
            usage(words[i]);
        const char *const value = words[i + 1];
        if (word == "--json")
            options.json_path = value;
        else if (word == "--rounds")
            options.rounds = unsigned(std::max(7, std::atoi(value)));
        else if (word == "--only")
            options.only = value;
        else if (word == "--standby")
            options.standby_directory = value;
        else if (word == "--paced")
            options.standby_paced = std::atoi(value) != 0;
        else
            usage(words[i]);
    }
    const auto is_named = [&](const Group &group) { return options.only == group.name; };
    if (!options.only.empty() && std::none_of(std::begin(groups), std::end(groups), is_named))
        usage(options.only.c_str());
    return options;
}

void print_head() {
    std::printf("%-50s %14s %-10s %7s %7s\n", "name", "value", "unit", "ratio", "limit");
}

std::string number(const std::optional<double> &value, const char *absent) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", value.value_or(0));
    return value ? text : absent;
}

void print(const Row &row) {
    std::printf("%-50s %14.1f %-10s %7s %7s%s\n", row.name.c_str(), row.value, row.unit.c_str(),
                number(row.ratio, "").c_str(), number(row.limit, "").c_str(),
                row.is_past_limit() ? "  past its limit" : "");
    std::fflush(stdout);
}

bool write_json(const std::string &path, const std::vector<Row> &rows) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "w"),
                                                                std::fclose);
    if (!file)
        return false;
    std::fprintf(file.get(), "[\n");
    for (std::size_t i = 0; i < rows.size(); i++) {
        const Row &row = rows[i];
        std::fprintf(file.get(),
                     "  {\"name\": \"%s\", \"value\": %.3f, \"unit\": \"%s\", \"ratio\": %s, "
                     "\"limit\": %s}%s\n",
                     row.name.c_str(), row.value, row.unit.c_str(),
                     number(row.ratio, "null").c_str(), number(row.limit, "null").c_str(),
                     i + 1 < rows.size() ? "," : "");
    }
    return std::fprintf(file.get(), "]\n") > 0 && std::fflush(file.get()) == 0;
}

} // namespace

int main(int count, char **words) {
    // One heap that grows by a megabyte: the arena of another thread would ask the kernel for each page.
    // What is freed stays in it, or whoever comes next would pay for the pages.
    (void)mallopt(M_ARENA_MAX, 1);
    (void)mallopt(M_TOP_PAD, 1 << 20);
    (void)mallopt(M_TRIM_THRESHOLD, INT_MAX);
    const Options options = parse(count, words);
    if (!options.standby_directory.empty())
        return run_standby(options);
    std::vector<Row> rows;
    const Report report = [&](Row row) {
        print(row);
        rows.push_back(std::move(row));
    };
    print_head();
    for (const Group &group : groups)
        if (options.only.empty() || options.only == group.name)
            group.measure(options, report);
    if (!options.json_path.empty() && !write_json(options.json_path, rows)) {
        std::fprintf(stderr, "bench: cannot write %s\n", options.json_path.c_str());
        return 1;
    }
    const auto past =
        std::count_if(rows.begin(), rows.end(), [](const Row &row) { return row.is_past_limit(); });
    std::printf("%zu rows, %d past their limit\n", rows.size(), int(past));
    return past > 0 ? 1 : 0;
}
