// The cards and hosts of the measurements.
#include "bench/hosts.h"

#include "dpm.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace bench {

namespace {

constexpr unsigned vlan = 100;
constexpr auto interface_name = "vlanif100";

// A field that the worker changes meanwhile.
template <class Field> Field read_live(const Field &field) {
    return __atomic_load_n(&field, __ATOMIC_ACQUIRE);
}

template <class Condition> void wait_until(Condition condition) {
    while (!condition())
        std::this_thread::yield();
}

} // namespace

void fail(const char *what) {
    std::fprintf(stderr, "bench: %s\n", what);
    std::exit(1);
}

void prepare(chassis::Card &card) {
    const chassis::CardScope scope(card);
    card.chip.set_null(true);
    card.os.log_level(1000);
    if (card.start() != 0 || card.suite.add_interface(interface_name, DPM_IF_VLANIF, vlan) != 0)
        fail("a card does not start");
    if (card.os.mode() == chassis::os::Mode::pumped)
        card.pump();
    else
        wait_until([] { return read_live(g_dpm_global.if_count) == 1; });
}

MasterCard::MasterCard(chassis::os::Mode mode, unsigned slot) : card({.slot = slot, .mode = mode}) {
    card.peer.set_role(chassis::peer::Role::master);
    prepare(card);
}

void check_hosts(unsigned count) {
    norix_dpm_sem_take();
    const dpm_host_entry *entry = dpm_api_get_host_entry_first(DPM_FAMILY_IPV4);
    for (; entry != nullptr && count > 0; count--)
        entry = dpm_api_get_host_entry_next(entry);
    norix_dpm_sem_give();
    if (entry != nullptr || count != 0)
        fail("the host table does not hold what was asked for");
}

void request_host(unsigned number, std::uint32_t oper) {
    // Odd and 15 bits wide: neighbouring numbers lie far apart, and no address comes twice.
    const unsigned place = number * 20011u % 32768u;
    const std::uint8_t address[4] = {10, 1, std::uint8_t(place >> 8), std::uint8_t(place)};
    dpm_host_info info{};
    info.family = DPM_FAMILY_IPV4;
    std::memcpy(info.address, address, sizeof address);
    const std::uint8_t mac[6] = {2, 0, 0, 1, address[2], address[3]};
    std::memcpy(info.mac, mac, sizeof mac);
    info.svlan = vlan;
    info.supervlan = vlan;
    info.port_type = DPM_PORT_PHYSICAL;
    info.phy_port_id = 1 + number % 24;
    if (dpm_api_host_pro(&info, oper) != 0)
        fail("a host request was refused");
}

void wait_for_hosts(unsigned count) {
    wait_until([count] { return read_live(g_dpm_global.host_ipv4_tree.numnodes) == count; });
    norix_dpm_sem_take(); // the worker may not be through with the last one
    norix_dpm_sem_give();
}

dpm_prefix host_address(unsigned number) {
    const unsigned place = number * 20011u % 32768u;
    return {DPM_FAMILY_IPV4, 32, {10, 1, std::uint8_t(place >> 8), std::uint8_t(place)}};
}

dpm_prefix destination(unsigned number) {
    const unsigned place = number * 20011u % full_route_table;
    return {DPM_FAMILY_IPV4, 24, {100, std::uint8_t(place >> 8), std::uint8_t(place)}};
}

dpm_route_msg route_message(std::uint32_t ifindex, unsigned number, unsigned first_gateway,
                            unsigned gateways) {
    dpm_route_msg message{};
    message.route_type = 9;
    message.destination = destination(number);
    message.np_num = gateways;
    for (unsigned i = 0; i < gateways; i++) {
        message.np[i] = host_address(first_gateway + i);
        message.np_ifindex[i] = ifindex;
    }
    return message;
}

void post_route(const dpm_route_msg &message, std::uint32_t oper) {
    if (dpm_api_route_pro(&message, oper) != 0)
        fail("a route request was refused");
}

void wait_for_routes(unsigned count) {
    wait_until([count] { return read_live(g_dpm_global.route_ipv4_tree.numnodes) == count; });
    norix_dpm_sem_take();
    norix_dpm_sem_give();
}

} // namespace bench
