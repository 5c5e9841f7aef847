// Reports of hosts about multicast groups, from the hook to the tables, and the timers of ports.
//
// The chip is in null mode and the log is off.  Groups are as many as are learnt at most.
#include "bench/hosts.h"

#include "dpm_ipmc.h"
#include "dpm_timer.h"

#include <algorithm>
#include <array>
#include <deque>

extern "C" int dpm_task_pass(void); // one pass of the worker

namespace bench {

namespace {

constexpr double report_limit = 1.6, timer_limit = 2;
constexpr unsigned all_groups = DPM_IPMC_RX_GROUPS, few_groups = 600;
constexpr unsigned all_timers = 10'000, few_timers = 600;
constexpr unsigned vlan = 100;

dpm_prefix group_address(unsigned number) {
    return {DPM_FAMILY_IPV4, 32, {225, 1, std::uint8_t(number >> 8), std::uint8_t(number)}};
}

// An IGMPv3 report of one record, as a host sends it: router alert, VLAN tag.
struct ReportFrame {
    explicit ReportFrame(std::uint8_t record_type) { bytes[50] = record_type; }
    void about(unsigned number) {
        const dpm_prefix group = group_address(number);
        std::copy_n(group.address, 4, bytes.begin() + 54);
    }
    std::array<std::uint8_t, 60> bytes{1, 0, 94,   0,    0,  22,   2, 0, 0,   0, 1, 2,  0x81,
                                       0, 0, vlan, 8,    0,  0x46, 0, 0, 40,  0, 0, 0,  0,
                                       1, 2, 0,    0,    10, 1,    1, 2, 224, 0, 0, 22, 0x94,
                                       4, 0, 0,    0x22, 0,  0,    0, 0, 0,   0, 1};
};

// A pumped card that forwards as many groups, each reported by port 1.  Those that are measured are
// the same on every card, spread over all groups: others stand between them, or do not.
class ListeningCard {
public:
    ListeningCard(unsigned slot, unsigned groups)
        : master_(chassis::os::Mode::pumped, slot), groups_(groups) {
        const chassis::CardScope scope(master_.card);
        (void)dpm_api_set_unknown_ipmc_to_cpu(DPM_FAMILY_IPV4, DPM_ENABLE);
        dpm_ipmc_request request{};
        request.iif = request.oif[0] = master_.card.suite.find("vlanif100")->ifindex;
        request.oif_num = 1;
        ReportFrame frame(exclude);
        for (unsigned i = 0; i < groups; i++) {
            const unsigned number = groups == few_groups ? i * spread : i;
            request.group = group_address(number);
            if (dpm_api_set_ipmc_proc(&request, DPM_OPER_ADD) != 0)
                fail("a group was refused");
            dpm_task_pass();
            hear(frame, 1, number);
        }
        check(groups);
    }

    // Nanoseconds a report: refreshes of what is there, and those with which another port comes and
    // goes.  The first time is not counted.
    double refreshes() {
        const chassis::CardScope scope(master_.card);
        (void)reports(exclude, 1);
        const double nsec = reports(exclude, 1);
        return check(groups_), nsec;
    }
    double changes() {
        const chassis::CardScope scope(master_.card);
        (void)come_and_go();
        return come_and_go();
    }

private:
    static constexpr unsigned spread = all_groups / few_groups;
    static constexpr std::uint8_t include = 3, exclude = 4; // TO_IN, TO_EX of no source

    double come_and_go() {
        const double coming = reports(exclude, 2);
        check(groups_ + few_groups);
        const double going = reports(include, 2);
        return check(groups_), (coming + going) / 2;
    }
    void hear(ReportFrame &frame, unsigned port, unsigned number) {
        frame.about(number);
        (void)master_.card.ports.receive(port, frame.bytes, vlan);
        dpm_task_pass();
    }
    double reports(std::uint8_t record_type, unsigned port) {
        ReportFrame frame(record_type);
        return time_of([&] {
                   for (unsigned i = 0; i < few_groups; i++)
                       hear(frame, port, i * 7 % few_groups * spread); // 7 is prime to the number
               }) /
               few_groups;
    }
    void check(unsigned ports) const {
        if (g_ipmc_global.rx_port_count != ports)
            fail("the groups do not have the ports that were reported");
    }
    MasterCard master_;
    const unsigned groups_;
};

// Nanoseconds a timer for arming many, whose lengths are those of two VLANs by turns, and for
// starting each of them anew.
double arm_and_refresh(unsigned count) {
    std::deque<dpm_timer_node> nodes(count);
    for (dpm_timer_node &node : nodes)
        dpm_timer_node_init(&node);
    dpm_timer_list *const list = dpm_timer_list_create();
    const double nsec = time_of([&] {
        for (const bool is_refresh : {false, true})
            for (unsigned i = 0; i < count; i++) {
                const unsigned length_sec = i % 2 == 0 ? 260 : 125;
                if (is_refresh)
                    dpm_timer_restart(list, &nodes[i], length_sec);
                else
                    dpm_timer_start(list, &nodes[i], length_sec, nullptr, 0, 0, 0);
            }
    });
    dpm_timer_list_delete(list);
    return nsec / (2 * count);
}

void measure_port_timers(const Options &options, const Report &report) {
    MasterCard master(chassis::os::Mode::threaded); // for its clock
    Comparison timers;
    for (unsigned round = 0; round < options.rounds; round++)
        timers.round([] { return arm_and_refresh(all_timers); },
                     [] {
                         constexpr unsigned times = all_timers / few_timers;
                         double nsec = 0;
                         for (unsigned i = 0; i < times; i++)
                             nsec += arm_and_refresh(few_timers) / times;
                         return nsec;
                     });
    report({"a timer of 10k ports / 600, two lengths", timers.time(), "ns", timers.ratio(),
            timer_limit});
}

void measure_reports(const Options &options, const Report &report) {
    ListeningCard full_card(9, all_groups), few_card(10, few_groups);
    Comparison refreshes, changes;
    for (unsigned round = 0; round < options.rounds; round++) {
        refreshes.round([&] { return full_card.refreshes(); },
                        [&] { return few_card.refreshes(); });
        changes.round([&] { return full_card.changes(); }, [&] { return few_card.changes(); });
    }
    report({"reports, 8k groups", 1e9 / refreshes.time(), "per s"});
    report({"a report, 8k groups / 600", refreshes.time(), "ns", refreshes.ratio(), report_limit});
    report({"a port comes or goes, 8k groups / 600", changes.time(), "ns", changes.ratio(),
            report_limit});
}

} // namespace

void measure_multicast(const Options &options, const Report &report) {
    measure_reports(options, report);
    measure_port_timers(options, report); // no two cards of several threads
}

} // namespace bench
