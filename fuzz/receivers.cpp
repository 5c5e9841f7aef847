// What a hostile peer card can call: every exported receiver, with any bytes and any length, and
// then everything that the card does with what it took in: it becomes master, loses a port, brings
// up a slot, prints its tables.
//
// An input is a byte of what to do at the end, and calls.  A call fills its buffer with zeros and
// lays its bytes over them at an offset, so that short inputs make whole records.
#include "chassis/chassis.h"
#include "chassis/tables/tables.h"
#include "fuzz/input.h"

#include "dpm.h"
#include "dpm_ipmc_global.h"
#include "dpm_timer.h"

#include <memory>

namespace {

namespace tables = chassis::tables;

struct Receiver {
    int (*receive)(const void *buffer, std::uint32_t length_bytes);
    unsigned record_bytes;
};

#define RECEIVER(name, record, kind) {name, sizeof(record)},
constexpr Receiver receivers[] = {DPM_RECEIVERS(RECEIVER)};
#undef RECEIVER

enum Ending : unsigned {
    start_as_master = 1,
    switch_over = 2,
    port_down = 4,
    port_up = 8,
    slot_up = 16,
    show = 32
};

constexpr void (*shows[])() = {dpm_ipv4_host_show,      dpm_ipv6_host_show,     dpm_nexthop_show,
                               dpm_ipv4_ecmp_show,      dpm_ipv4_route_show,    dpm_ipv6_route_show,
                               dpm_mpls_ftn_table_show, dpm_mpls_ilm_table_show};

constexpr std::uint8_t huge_length = 0x80;

// A card with two interfaces and an enabled VRF.
std::unique_ptr<chassis::Card> started_card(bool master) {
    auto card = std::make_unique<chassis::Card>(chassis::CardOptions{
        .slot = 10, .mode = chassis::os::Mode::pumped, .mac = {2, 0, 0, 0, 0, 10}});
    card->os.log_to([](const chassis::os::LogLine &) {}); // formatted, not written
    card->peer.set_role(master ? chassis::peer::Role::master : chassis::peer::Role::standby);
    fuzz::require(card->start() == 0, "a card starts");
    (void)card->suite.add_interface("vlanif100", DPM_IF_VLANIF, 100);
    (void)card->suite.add_interface("vlanif4091", DPM_IF_VLANIF, 4091);
    (void)dpm_api_set_vrf_enable(1, 1);
    (void)card->pump();
    return card;
}

void call(fuzz::Input &input) {
    const Receiver &receiver = receivers[input.byte() % std::size(receivers)];
    const std::uint8_t entries = input.byte();
    const std::int8_t more = std::int8_t(input.byte());
    if (more == std::int8_t(huge_length)) {
        (void)receiver.receive(fuzz::exact_block(receiver.record_bytes).get(), 1u << 31);
        return;
    }
    const int length = std::max(0, int(entries * receiver.record_bytes) + more);
    const std::size_t offset = std::min<std::size_t>(input.byte(), std::size_t(length));
    const auto bytes =
        input.bytes(std::min<std::size_t>(input.byte(), std::size_t(length) - offset));
    const fuzz::Block block = fuzz::exact_block(std::size_t(length));
    std::copy(bytes.begin(), bytes.end(), block.get() + offset);
    (void)receiver.receive(length == 0 && offset == 0 && entries % 2 ? nullptr : block.get(),
                           std::uint32_t(length));
}

bool is_terminated(const auto &name) {
    return std::memchr(name, 0, sizeof name) != nullptr;
}

void check(const dpm_host_entry &host, std::uint32_t family) {
    fuzz::require(is_terminated(host.ifname), "a host's interface name has its end");
    fuzz::require(host.ip.family == family, "a host stands in its family's tree");
}

void check(const dpm_route_entry &route, std::uint32_t family) {
    for (const auto &name : route.np_ifname)
        fuzz::require(is_terminated(name), "a gateway's interface name has its end");
    fuzz::require(route.destination.family == family, "a route stands in its family's tree");
    fuzz::require(route.np_num <= DPM_ROUTE_GATEWAYS, "a route has eight gateways at most");
}

void check(const dpm_ecmp_entry &group, std::uint32_t family) {
    fuzz::require(group.ecmp_type == family, "a group stands in its family's tree");
    fuzz::require(group.host_cnt <= std::size(group.host_sdk), "a group records eight members");
}

template <auto First, auto Next> void walk_family(std::uint32_t family) {
    for (auto *entry = First(family); entry != nullptr; entry = Next(entry))
        check(*entry, family);
}

// Each record is read as a show reads it, and holds what readers rely on.
void walk_tables(chassis::Card &card) {
    const tables::Reading reading(card);
    for (const tables::Table &table : tables::all())
        table.each(reading, [](const tables::Row &row) { (void)row.cells(); });
    for (const std::uint32_t family : {1u, 2u}) {
        walk_family<dpm_api_get_host_entry_first, dpm_api_get_host_entry_next>(family);
        walk_family<dpm_api_get_route_entry_first, dpm_api_get_route_entry_next>(family);
        walk_family<dpm_api_get_ecmp_entry_first, dpm_api_get_ecmp_entry_next>(family);
    }
    tables::ilm.each([](const dpm_ilm &ilm) {
        fuzz::require(is_terminated(ilm.out_ifname), "a label's interface name has its end");
    });
}

void end(chassis::Card &card, unsigned ending) {
    if (ending & switch_over)
        card.peer.become_master();
    if (ending & port_down)
        (void)card.hal.port_link(20, false);
    (void)card.pump();
    if (ending & port_up)
        (void)card.hal.port_link(20, true);
    if (ending & slot_up)
        (void)dpm_bridge_slot_up(3);
    (void)card.pump();
    card.os.advance(120'000'000'000); // probes and checks run
    (void)card.pump();
    if (ending & show)
        for (const auto print : shows)
            print();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    return std::freopen("/dev/null", "w", stdout) ==
           nullptr; // the shows print there; the fuzzer reports on stderr
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const unsigned ending = input.byte();
    const auto card = started_card(ending & start_as_master);
    while (!input.empty())
        call(input);
    (void)card->pump();
    walk_tables(*card);
    end(*card, ending);
    walk_tables(*card);
    fuzz::require(card->os.bad_frees() == 0, "blocks are given back once");
    fuzz::require(card->os.handle_errors() == 0, "handles are good");
    // The one thing that the library takes from elsewhere than the card, and never gives back.
    (void)dpm_timer_list_delete(g_ipmc_global.timer_list);
    (void)dpm_timer_list_delete(g_dpm_global.timer_list);
    return 0;
}
