// Start-up: what is asked of the platform and in which order, what is given back when a step fails;
// and the settings and small address functions that start-up uses.

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_if_announced.h"
#include "dpm_vrf.h"
#include "support/rows.h"

#include <arpa/inet.h>

extern "C" {
int c_reports_a_neighbour(unsigned char last_byte, std::uint32_t ifindex);
unsigned c_counts_hosts(void);
}

namespace {

using chassis::chip::Function;
using chassis::os::Fault;
using Lines = std::vector<std::string>;

struct BareCard : ::testing::Test {
    BareCard() {
        card.chip.watch([this](const std::string &line) { asked.push_back(line); });
        card.os.log_to([this](const chassis::os::LogLine &line) { log.push_back(line); });
    }
    chassis::Card card{{.slot = 9, .mode = chassis::os::Mode::pumped, .mac = {2, 0, 0, 0, 0, 9}}};
    std::vector<chassis::os::LogLine> log;
    Lines asked; // of the chip
};

class Caller : public rig::LoneShelf {};

} // namespace

TEST_F(BareCard, StartUpSetsTheChipsDefaultsSpawnsTheWorkerAndRegistersTheModuleLast) {
    ASSERT_EQ(card.start(), 0);
    EXPECT_EQ(asked,
              (Lines{"default_route_set vrf 0 family 1 to-cpu queue 10 rate 64 slots 0x0 -> 0",
                     "default_route_set vrf 0 family 2 to-cpu queue 10 rate 64 slots 0x0 -> 0",
                     "add_ip_entry vrf 0 fe80::ff:fe00:9/128 nexthop 2 slots 0x0 -> 0",
                     "set_ecmp_hash_ctl mode 6 slots 0x0 -> 0"}));
    ASSERT_EQ(card.os.tasks().size(), 1u);
    const chassis::os::Task task = card.os.tasks()[0];
    EXPECT_EQ(task.name, "dpm_task");
    EXPECT_EQ(task.priority, 55);
    EXPECT_EQ(task.options, 8);
    EXPECT_EQ(task.stack_bytes, 204800);
    EXPECT_EQ(task.entry, &dpm_task);
    const chassis::CardScope scope(card);
    EXPECT_EQ(card.os.module_version(g_dpm_global.module_id).size(), 20u) << "date, blank, time";
    EXPECT_EQ(card.os.live_blocks(), 4u) << "routes, labels, BFD and policy routes, dependants";
    EXPECT_EQ(dpm_api_set_if_proc("vlanif100", DPM_IF_VLANIF, 7, 100, DPM_OPER_ADD), 0);
    EXPECT_EQ(dpm_main_init(), 0);
    EXPECT_EQ(dpm::if_announced_count(), 0u) << "another start";
}

// The first lock is deleted once for every lock that is there, the others never; then what else is.
TEST_F(BareCard, AStepThatFailsGivesBackWhatWasMadeAndRegistersNothing) {
    using Numbers = std::vector<unsigned>;
    const std::tuple<Fault, unsigned, Numbers> cases[] = {
        {Fault::semaphore, 1, {}},       {Fault::semaphore, 2, {1}},
        {Fault::semaphore, 3, {1, 1}},   {Fault::semaphore, 4, {1, 1, 1}},
        {Fault::queue, 1, {1, 1, 1, 4}},
    };
    for (const auto &[kind, nth, deleted] : cases) {
        chassis::Card other({.slot = 10, .mode = chassis::os::Mode::pumped, .mac = {}});
        const chassis::CardScope scope(other);
        other.os.log_to([this](const chassis::os::LogLine &line) { log.push_back(line); });
        other.os.fail(kind, nth);
        EXPECT_EQ(other.start(), -1);
        EXPECT_EQ(other.os.deleted_semaphores(), deleted);
        EXPECT_EQ(other.os.tasks().size(), 0u);
        EXPECT_EQ(other.hal.port_link(1, true), -1);
        EXPECT_EQ(other.chip.requests(Function::default_route_set), 0u);
        EXPECT_TRUE(log.empty());
    }
}

// "no-timers": the card could not have its timer list.
const rig::Verb no_timers{"no-timers", [](rig::RowShelf &, const rig::Words &) {
                              dpm_timer_list_delete(
                                  std::exchange(g_dpm_global.timer_list, nullptr));
                          }};
ROWS(Settings, ACardWithoutTimerListWorksButTimesNothing, rig::once("log/dpm_timer chip stack")){
    {"no-timers"},
    {"neigh add {a} port 3"},
    {"route add {net} via {b}",
     "probe {b}; log10 dpm_timer_start #::the input parameter is null!\r\n"},
    {"port down 3", "forget {a}; log10 dpm_timer_start #::the input parameter is null!\r\n"},
    {"clock advance 86400s", ""},
    {"show hold --count", "= 1"}, // and it stays
    {"neigh add {a} port 3", "log10 dpm_timer_stop #::the input parameter is null!\r\n"},
    {"show hold --count", "= 0"},
    {"neigh del {a}", "entry- {a} n1; nexthop- n1"},
    {"route del {net}", "log10 dpm_timer_stop #::the input parameter is null!\r\n"},
};

ROWS(SettingsOfTheChip, AreMadeWhenAVrfIsEnabledAndDisabledOnceEach, rig::once("chip")){
    {"vrf enable 5",
     "default vrf 5 ipv4 to-cpu; default vrf 5 ipv6 to-cpu; entry+ vrf 5 {linklocal} cpu"},
    {"vrf enable 5", ""},
    {"vrf disable 5",
     "default vrf 5 ipv4 drop; default vrf 5 ipv6 drop; entry- vrf 5 {linklocal} cpu"},
    {"vrf disable 5", ""},
    {"vrf disable 7", // one that never was enabled
     "default vrf 7 ipv4 drop; default vrf 7 ipv6 drop; entry- vrf 7 {linklocal} cpu -> -1"},
    {"vrf enable 255", "default vrf 255 ipv4 to-cpu; ...; ..."},
    {"call dpm_api_set_vrf_enable 256 1", "= -1"},
    {"allow chip-differs"}, // from what the suite knows
    {"call dpm_api_set_vrf_enable 255 77", "default vrf 255 ipv4 drop; ...; ...; = 0"}, // not one
};

ROWS(SettingsOfTheChip, OfTheHashModeStayWhenTheChipRefuses, rig::once("chip")){
    {"hash 6", ""},
    {"chip refuse hash 1"},
    {"hash 3", "hash mode 3 -> -1; refused"},
    {"hash 3", "hash mode 3"},
    {"call dpm_api_set_ecmp_hash 3", "= 0"},
    {"call dpm_api_get_ecmp_hash", "= 3"},
};

TEST_F(Caller, InCIsServedByTheExportedHeader) {
    EXPECT_EQ(run("if add vlanif100").text, "");
    for (const unsigned char last_byte : {7, 8})
        EXPECT_EQ(c_reports_a_neighbour(last_byte, master().suite.find("vlanif100")->ifindex), 0);
    settle();
    EXPECT_EQ(c_counts_hosts(), 2u);
}

TEST(Addresses, CompareByLengthAndThenByTheFamilysBytes) {
    const std::tuple<const char *, const char *, int> cases[] = {
        {"10.0.0.0/24", "200.0.0.0/16", 1},    {"200.0.0.0/16", "10.0.0.0/24", -1},
        {"2001:db8::/64", "2001:db8::/64", 0}, {"2001:db8::1", "2001:db8::100", -1},
        {"10.0.0.2", "10.0.0.1", 1},           {"1.0.0.2", "2.0.0.1", 1}, // as it is stored
    };
    for (const auto &[a, b, order] : cases)
        EXPECT_EQ(dpm_prefix_compare(rig::prefix_of(a), rig::prefix_of(b)), order) << a << " " << b;
    EXPECT_EQ(dpm_prefix_compare(dpm_prefix{}, dpm_prefix{}), -1);
    EXPECT_STREQ(dpm::address_text(dpm_prefix{}).c_str(), "-");
}

TEST(Addresses, OfNetworksAreMaskedToTheirLengthAndLongerOnesRefused) {
    std::uint8_t ones[16], network[16];
    std::fill_n(ones, 16, std::uint8_t(0xFF));
    std::uint32_t word = 0;
    for (std::uint32_t length = 0; length <= 128; ++length) {
        std::fill_n(network, 16, std::uint8_t(0x5A));
        EXPECT_EQ(dpm_ipv4_net_addr_calc(~0u, length, &word), length <= 32 ? 0 : -1);
        ASSERT_EQ(dpm_ipv6_net_addr_calc(ones, length, network), 0);
        for (std::uint32_t bit = 0; bit < 128; ++bit)
            ASSERT_EQ(network[bit / 8] >> (7 - bit % 8) & 1, bit < length) << length << " " << bit;
        EXPECT_EQ(word, ~std::uint32_t(0xFFFFFFFFull >> std::min(length, 32u)));
    }
    EXPECT_EQ(dpm_ipv6_net_addr_calc(ones, 129, network), -1);
    EXPECT_EQ(dpm_get_linklocal(nullptr, ones), -1);
}
