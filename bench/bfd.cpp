// BFD sessions: a host of one session comes and goes, with a full table and with a sixteenth of it.
//
// The chip is in null mode and the log is off, so that the figures are the library's.
#include "bench/routes.h"

#include "dpm_bfd_record.h"

namespace bench {

namespace {

constexpr double host_limit = 1.6;
constexpr unsigned all = DPM_BFD_MEPS, few = all / 16;

// A pumped card with two hosts.  All sessions are over the second but for the last, which has the
// highest indexes of its ends.
class BfdCard {
public:
    explicit BfdCard(unsigned sessions) : routes_(9, 2) {
        const chassis::CardScope scope(routes_.card());
        for (unsigned i = 0; i < sessions; i++)
            add(i, i + 1 < sessions ? 1 : 0);
        if (dpm::bfd_sessions().count() != sessions)
            fail("the table of sessions does not hold what was asked for");
    }

    // Nanoseconds for the going and coming of the first host.
    double host_goes_and_comes() {
        constexpr unsigned times = 256;
        using chassis::chip::Function;
        const chassis::CardScope scope(routes_.card());
        const auto &chip = routes_.card().chip;
        const std::uint64_t before = chip.requests(Function::bfd_rmep_add);
        const double nsec = time_of([&] {
            for (unsigned i = 0; i < times; i++) {
                routes_.host(0, DPM_OPER_DEL);
                routes_.host(0, DPM_OPER_ADD);
            }
        });
        if (chip.requests(Function::bfd_rmep_add) != before + times)
            fail("the session does not follow its next hop");
        return nsec / times;
    }

private:
    void add(unsigned number, unsigned host) {
        dpm_bfd_request request{};
        request.told.ifindex = routes_.card().suite.find("vlanif100")->ifindex;
        request.told.type = 1;
        request.told.family = DPM_FAMILY_IPV4;
        request.told.local_disc = number + 1;
        request.told.next_hop = request.told.peer = host_address(host);
        (void)dpm_api_bfd_proc(&request, DPM_ENABLE);
        dpm_task_pass();
    }

    RouteCard routes_;
};

} // namespace

void measure_bfd(const Options &options, const Report &report) {
    BfdCard full_card(all), few_card(few);
    Comparison hosts;
    for (unsigned round = 0; round < options.rounds; round++)
        hosts.round([&] { return full_card.host_goes_and_comes(); },
                    [&] { return few_card.host_goes_and_comes(); });
    report({"a host of one session goes and comes, 2000 / 125", hosts.time(), "ns", hosts.ratio(),
            host_limit});
}

} // namespace bench
