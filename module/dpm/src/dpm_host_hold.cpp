// Neighbours held after their port went down.
//
// A held neighbour is probed when its port comes up again, and forgotten after a day or when it is
// reported anew.  The list has the newest entry first; an index beside it finds an entry without
// walking.
#include "dpm_host.h"

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_memory.h"
#include "dpm_trace.h"

namespace {

using hold_list = dpm::list_view<dpm_hold_entry, &dpm_hold_entry::link>;

struct hold_record {
    dpm_hold_entry entry; // first: the list sees this alone
    dpm_avl_node by_address;
};

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

hold_index holds_by_address() {
    return hold_index(g_dpm_index.hold_by_address);
}

hold_record &record_of(dpm_hold_entry &entry) {
    return reinterpret_cast<hold_record &>(entry);
}

int hold_expired(std::uintptr_t entry, std::uintptr_t, std::uintptr_t) {
    return dpm_host_hold_entry_del(reinterpret_cast<dpm_hold_entry *>(entry));
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

} // namespace

namespace dpm {

void hold_index_create() {
    holds_by_address().create();
}

void holds_end_on(std::uint32_t ifindex, std::uint32_t vrf) {
    for (dpm_hold_entry &held : hold_list(g_dpm_global.hold_list).erasable())
        if (held.ifindex == ifindex && (vrf == DPM_VRF_NONE || held.vrf == vrf))
            (void)dpm_host_hold_entry_del(&held);
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
