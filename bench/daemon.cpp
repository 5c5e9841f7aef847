// Side by side: the CPU seconds of a routing daemon that installs 16,384 routes into the kernel,
// and of the library that takes the same routes.
//
// The daemon (bird) runs in a network namespace of its own, which needs root or user namespaces;
// where it cannot run, the row says so on standard error and is left out.
#include "bench/hosts.h"

#include "dpm.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <optional>
#include <string>
#include <unistd.h>

namespace bench {

namespace {

constexpr unsigned routes = 16384;

std::string prefix_text(unsigned number) {
    return "100." + std::to_string(number >> 8) + "." + std::to_string(number & 0xFF) + ".0/24";
}

void write_config(const std::string &path) {
    std::ofstream config(path);
    config << "router id 10.1.0.1;\nprotocol device {}\n"
              "protocol kernel { ipv4 { import none; export all; }; }\n"
              "protocol static { ipv4;\n";
    for (unsigned i = 0; i < routes; i++)
        config << "  route " << prefix_text(i) << " via 10.1.0.2;\n";
    config << "}\n";
}

// User and system seconds of the daemon until the kernel has every route; the time that it takes to
// read its configuration without installing is taken off.
constexpr auto script = R"sh(
dir=$1 routes=$2
export dir routes
cat >"$dir/inside" <<'INSIDE'
ip link set lo up
ip link add dpm0 type veth peer name dpm1 && ip addr add 10.1.0.1/16 dev dpm0 &&
    ip link set dpm0 up && ip link set dpm1 up || exit 1
cpu() { awk '{ print $14 + $15 }' "/proc/$1/stat"; }
measure() {
    bird -f -c "$1" -s "$dir/bird.ctl" 2>/dev/null &
    daemon=$!
    for i in $(seq 200); do
        [ "$(ip -4 route show proto bird | wc -l)" = "$2" ] && break
        sleep 0.05
    done
    sleep 0.2
    [ "$(ip -4 route show proto bird | wc -l)" = "$2" ] && cpu $daemon
    kill $daemon; wait $daemon 2>/dev/null
}
sed 's/export all/export none/' "$dir/bird.conf" >"$dir/idle.conf"
all=$(measure "$dir/bird.conf" "$routes")
idle=$(measure "$dir/idle.conf" 0)
[ -n "$all" ] && [ -n "$idle" ] && echo "$all $idle $(getconf CLK_TCK)"
INSIDE
command -v bird >/dev/null || exit 1
if [ "$(id -u)" = 0 ]; then unshare --net sh "$dir/inside"
else unshare --user --map-root-user --net sh "$dir/inside"; fi
)sh";

std::optional<double> daemon_seconds() {
    char directory[] = "/tmp/dpm-bench.XXXXXX";
    if (mkdtemp(directory) == nullptr)
        return {};
    const std::string path(directory);
    write_config(path + "/bird.conf");
    std::ofstream(path + "/script") << script;
    const std::string command =
        "sh " + path + "/script " + path + " " + std::to_string(routes) + " 2>/dev/null";
    double all = 0, idle = 0, ticks = 0;
    if (std::FILE *const output = popen(command.c_str(), "r")) {
        if (std::fscanf(output, "%lf %lf %lf", &all, &idle, &ticks) != 3)
            ticks = 0;
        pclose(output);
    }
    if (std::system(("rm -rf " + path).c_str()) != 0 || ticks == 0)
        return {};
    return (all - idle) / ticks;
}

double process_seconds() {
    timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) / 1e9;
}

// Of the requester and the worker together.
double library_seconds() {
    MasterCard master(chassis::os::Mode::pumped);
    const chassis::CardScope scope(master.card);
    request_host(0, DPM_OPER_ADD);
    master.card.pump();
    dpm_route_msg message{};
    message.route_type = 9;
    message.np_num = 1;
    message.np[0] = {DPM_FAMILY_IPV4, 32, {10, 1, 0, 0}};
    message.np_ifindex[0] = master.card.suite.find("vlanif100")->ifindex;
    const double start = process_seconds();
    for (unsigned i = 0; i < routes; i++) {
        message.destination = {DPM_FAMILY_IPV4, 24, {100, std::uint8_t(i >> 8), std::uint8_t(i)}};
        if (dpm_api_route_pro(&message, DPM_OPER_ADD) != 0)
            fail("a route request was refused");
        if (i % 256 == 255)
            master.card.pump();
    }
    const double seconds = process_seconds() - start;
    if (g_dpm_global.route_ipv4_tree.numnodes != routes)
        fail("the route table does not hold what was asked for");
    return seconds;
}

} // namespace

void measure_daemon(const Options &options, const Report &report) {
    std::vector<double> ours, theirs;
    for (unsigned round = 0; round < options.rounds; round++) {
        const std::optional<double> daemon = daemon_seconds();
        if (!daemon) {
            std::fprintf(stderr, "bench: no daemon, or no namespace for it: its row is left out\n");
            return;
        }
        theirs.push_back(*daemon);
        ours.push_back(library_seconds());
    }
    report({"16384 routes, CPU of the daemon into the kernel", quick(theirs) * 1e3, "ms"});
    report({"16384 routes, CPU of the library / of the daemon", quick(ours) * 1e3, "ms",
            quick(ours) / quick(theirs)});
}

} // namespace bench
