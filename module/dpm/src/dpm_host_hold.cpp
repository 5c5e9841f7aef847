// Neighbours held after their port went down, and addresses that something waits for.
//
// A held neighbour is probed when its port comes up again, and forgotten after a day or when it is
// reported anew.  An address that is waited for is probed at once and then every 30 seconds until
// its probes are spent or the host is added.  Both lists have the newest entry first; an index
// beside each finds an entry without walking.
#include "dpm_host.h"

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_memory.h"
#include "dpm_trace.h"

namespace {

using hold_list = dpm::list_view<dpm_hold_entry, &dpm_hold_entry::link>;
using unreachable_list = dpm::list_view<dpm_unreachable_entry, &dpm_unreachable_entry::link>;

struct hold_record {
    dpm_hold_entry entry; // first: the list sees this alone
    dpm_avl_node by_address;
};

struct unreachable_record {
    dpm_unreachable_entry entry; // first: the list sees this alone
    dpm_avl_node by_address;
    std::int32_t since_sec; // monotonic clock
};

int address_order(const unreachable_record &a, const unreachable_record &b) {
    if (a.entry.vrf != b.entry.vrf)
        return dpm::three_way(a.entry.vrf, b.entry.vrf);
    if (a.entry.ip.family != b.entry.ip.family)
        return dpm::three_way(a.entry.ip.family, b.entry.ip.family);
    return dpm_prefix_compare(a.entry.ip, b.entry.ip);
}

int hold_order(const hold_record &a, const hold_record &b) {
    if (a.entry.vrf != b.entry.vrf)
        return dpm::three_way(a.entry.vrf, b.entry.vrf);
    if (a.entry.ifindex != b.entry.ifindex)
        return dpm::three_way(a.entry.ifindex, b.entry.ifindex);
    if (a.entry.ip.family != b.entry.ip.family)
        return dpm::three_way(a.entry.ip.family, b.entry.ip.family);
    return dpm_prefix_compare(a.entry.ip, b.entry.ip);
}

using hold_index = dpm::avl_table<hold_record, hold_order, offsetof(hold_record, by_address)>;
using unreachable_index =
    dpm::avl_table<unreachable_record, address_order, offsetof(unreachable_record, by_address)>;

hold_index holds_by_address() {
    return hold_index(g_dpm_index.hold_by_address);
}
unreachable_index unreachables_by_address() {
    return unreachable_index(g_dpm_index.unreachable_by_address);
}

hold_record &record_of(dpm_hold_entry &entry) {
    return reinterpret_cast<hold_record &>(entry);
}
unreachable_record &record_of(dpm_unreachable_entry &entry) {
    return reinterpret_cast<unreachable_record &>(entry);
}

int hold_expired(std::uintptr_t entry, std::uintptr_t, std::uintptr_t) {
    return dpm_host_hold_entry_del(reinterpret_cast<dpm_hold_entry *>(entry));
}

// On a card that has become standby a probe is left out and not counted, but stays due: the card
// may become master again.
int probe_due(std::uintptr_t arg, std::uintptr_t, std::uintptr_t) {
    auto *entry = reinterpret_cast<dpm_unreachable_entry *>(arg);
    if (dpm_bridge_self_is_slave())
        return dpm_timer_restart(g_dpm_global.timer_list, &entry->timer,
                                 DPM_UNREACHABLE_PERIOD_SEC);
    return dpm_host_unreachable_send(entry);
}

void forget(dpm_unreachable_entry &entry) {
    (void)dpm_timer_stop(g_dpm_global.timer_list, &entry.timer);
    unreachables_by_address().remove(record_of(entry));
    list_del(&entry.link);
    dpm::free_zeroed(&record_of(entry));
}

void copy_host(dpm_hold_entry &held, const dpm_host_entry &host) {
    held.vrf = host.vrf;
    held.ifindex = host.ifindex;
    held.ip = host.ip;
    std::memcpy(held.mac, host.mac, sizeof held.mac);
    held.svlan = host.svlan;
    held.cvlan = host.cvlan;
    held.supervlan = host.supervlan;
    held.port_type = host.port_type;
    held.log_port_id = host.log_port_id;
    held.phy_port_id = host.phy_port_id;
}

bool sits_on(const dpm_host_entry &host, std::uint32_t port_type, std::uint32_t log_port_id) {
    return host.port_type == port_type && host.log_port_id == log_port_id;
}

// The host stays until the routing suite deletes it; its neighbour entry goes and it is held for a
// probe.
void port_lost(const dpm_host_entry &host) {
    dpm::drop_neighbour(host.vrf, host.ifindex, host.ip);
    if (g_dpm_global.hold_count < DPM_HOLD_CAPACITY)
        (void)dpm_host_hold_entry_add(&host);
}

// After a switch-over: hosts that answer are reported again, the others age out where they are
// reported from.
void ask_again(const dpm_host_entry &host) {
    dpm::drop_neighbour(host.vrf, host.ifindex, host.ip);
    (void)dpm_host_unreachable_add(host.vrf, host.ifindex, &host.ip, DPM_SWITCHOVER_PROBES);
}

} // namespace

namespace dpm {

void host_hold_indexes_create() {
    holds_by_address().create();
    unreachables_by_address().create();
}

} // namespace dpm

dpm_hold_entry *dpm_host_hold_find_by_entry(const dpm_host_entry *host) {
    if (host == nullptr || g_dpm_global.hold_count == 0)
        return nullptr;
    hold_record key = {};
    copy_host(key.entry, *host);
    hold_record *record = holds_by_address().find(key);
    return record != nullptr ? &record->entry : nullptr;
}

int dpm_host_hold_entry_add(const dpm_host_entry *host) {
    if (host == nullptr)
        return dpm::null_parameter();
    if (dpm_host_hold_find_by_entry(host) != nullptr)
        return 0;
    dpm::block<hold_record> record;
    if (!record)
        return -1;
    dpm_hold_entry &held = record.release()->entry;
    copy_host(held, *host);
    (void)dpm_timer_node_init(&held.timer);
    (void)dpm_timer_start(g_dpm_global.timer_list, &held.timer, DPM_HOLD_SEC, hold_expired,
                          reinterpret_cast<std::uintptr_t>(&held), 0, 0);
    (void)holds_by_address().add(record_of(held));
    list_add(&held.link, &g_dpm_global.hold_list);
    g_dpm_global.hold_count++;
    return 0;
}

int dpm_host_hold_entry_del(dpm_hold_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    holds_by_address().remove(record_of(*entry));
    list_del(&entry->link);
    (void)dpm_timer_stop(g_dpm_global.timer_list, &entry->timer);
    dpm::free_zeroed(&record_of(*entry));
    g_dpm_global.hold_count--;
    return 0;
}

dpm_unreachable_entry *dpm_host_unreachable_find(std::uint32_t vrf, const dpm_prefix *ip) {
    if (ip == nullptr)
        return nullptr;
    unreachable_record key = {};
    key.entry.vrf = vrf;
    key.entry.ip = *ip;
    unreachable_record *record = unreachables_by_address().find(key);
    return record != nullptr ? &record->entry : nullptr;
}

int dpm_host_unreachable_add(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix *ip,
                             std::uint32_t probe_count) {
    if (ip == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_family(ip->family)) { // such an address would never be found again
        DPM_TRACE("%s %d::iptype = %d is err!\r\n", ip->family);
        return -1;
    }
    if (dpm_host_unreachable_find(vrf, ip) != nullptr)
        return 0;
    dpm::probe_neighbour(vrf, ifindex, *ip);
    dpm::block<unreachable_record> record;
    if (!record)
        return -1;
    dpm_unreachable_entry &entry = record.release()->entry;
    entry.vrf = vrf;
    entry.ifindex = ifindex;
    entry.ip = *ip;
    entry.probe_cnt = probe_count;
    (void)dpm_timer_node_init(&entry.timer);
    (void)dpm_timer_start(g_dpm_global.timer_list, &entry.timer, DPM_UNREACHABLE_PERIOD_SEC,
                          probe_due, reinterpret_cast<std::uintptr_t>(&entry), 0, 0);
    if (entry.timer.expiry_sec != 0) // else there is no timer list
        record_of(entry).since_sec =
            entry.timer.expiry_sec - static_cast<std::int32_t>(DPM_UNREACHABLE_PERIOD_SEC);
    (void)unreachables_by_address().add(record_of(entry));
    list_add(&entry.link, &g_dpm_global.unreachable_list);
    return 0;
}

int dpm_host_unreachable_send(dpm_unreachable_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    dpm::probe_neighbour(entry->vrf, entry->ifindex, entry->ip);
    if (--entry->probe_cnt == 0)
        forget(*entry);
    else
        (void)dpm_timer_restart(g_dpm_global.timer_list, &entry->timer, DPM_UNREACHABLE_PERIOD_SEC);
    return 0;
}

int dpm_host_unreachable_del(std::uint32_t vrf, const dpm_prefix *ip) {
    if (ip == nullptr)
        return dpm::null_parameter();
    if (dpm_unreachable_entry *entry = dpm_host_unreachable_find(vrf, ip))
        forget(*entry);
    return 0;
}

int dpm_host_port_down(std::uint32_t port_type, std::uint32_t log_port_id) {
    if (!dpm_bridge_self_is_master())
        return 0;
    if (dpm::ipv4_hosts().empty())
        DPM_TRACE("%s %d::ipv4 host table is null!\r\n");
    for (const dpm_host_entry &host : dpm::ipv4_hosts())
        if (sits_on(host, port_type, log_port_id))
            port_lost(host);
    for (const dpm_host_entry &host : dpm::ipv6_hosts())
        if (sits_on(host, port_type, log_port_id))
            port_lost(host);
    return 0;
}

int dpm_host_port_up(std::uint32_t port_type, std::uint32_t log_port_id) {
    if (!dpm_bridge_self_is_master())
        return 0;
    for (const dpm_hold_entry &held : hold_list(g_dpm_global.hold_list))
        if (held.port_type == port_type && held.log_port_id == log_port_id)
            dpm::probe_neighbour(held.vrf, held.ifindex, held.ip);
    return 0;
}

int dpm_host_start_delete_time() {
    if (dpm::ipv4_hosts().empty())
        DPM_TRACE("%s %d:: ipv4 host tree is null!\r\n");
    for (const dpm_host_entry &host : dpm::ipv4_hosts())
        ask_again(host);
    for (const dpm_host_entry &host : dpm::ipv6_hosts())
        ask_again(host);
    return 0;
}

// ---- for management readers, under the DPM lock ----

const dpm_unreachable_entry *dpm_api_get_unreachable_entry_first() {
    return unreachable_list(g_dpm_global.unreachable_list).first();
}

const dpm_unreachable_entry *
dpm_api_get_unreachable_entry_next(const dpm_unreachable_entry *entry) {
    return entry != nullptr ? unreachable_list(g_dpm_global.unreachable_list).next(*entry)
                            : nullptr;
}

std::int32_t dpm_api_get_unreachable_since(std::uint32_t vrf, const dpm_prefix *ip) {
    if (ip == nullptr)
        return dpm::null_parameter();
    dpm_unreachable_entry *entry = dpm_host_unreachable_find(vrf, ip);
    return entry != nullptr ? record_of(*entry).since_sec : -1;
}

const dpm_hold_entry *dpm_api_get_hold_entry_first() {
    return hold_list(g_dpm_global.hold_list).first();
}

const dpm_hold_entry *dpm_api_get_hold_entry_next(const dpm_hold_entry *entry) {
    return entry != nullptr ? hold_list(g_dpm_global.hold_list).next(*entry) : nullptr;
}
