// Addresses that something waits for.
//
// Such an address is probed at once and then every 30 seconds until its probes are spent or the
// host is added.  The list has the newest entry first; an index beside it finds an entry without
// walking.
#include "dpm_host.h"

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_memory.h"
#include "dpm_trace.h"

namespace {

using unreachable_list = dpm::list_view<dpm_unreachable_entry, &dpm_unreachable_entry::link>;

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
    if (const int order = dpm_prefix_compare(a.entry.ip, b.entry.ip))
        return order;
    return dpm::is_scoped(a.entry.ip) ? dpm::three_way(a.entry.ifindex, b.entry.ifindex) : 0;
}

using unreachable_index =
    dpm::avl_table<unreachable_record, address_order, offsetof(unreachable_record, by_address)>;

unreachable_index unreachables_by_address() {
    return unreachable_index(g_dpm_index.unreachable_by_address);
}

unreachable_record &record_of(dpm_unreachable_entry &entry) {
    return reinterpret_cast<unreachable_record &>(entry);
}

void forget(dpm_unreachable_entry &entry) {
    (void)dpm_timer_stop(g_dpm_global.timer_list, &entry.timer);
    unreachables_by_address().remove(record_of(entry));
    list_del(&entry.link);
    dpm::free_zeroed(&record_of(entry));
}

// An address was asked for on no interface by a card that took over without it.
void forget_nowhere(std::uint32_t vrf, const dpm_prefix &ip) {
    dpm_unreachable_entry *entry = dpm_host_unreachable_find(vrf, DPM_IFINDEX_NONE, &ip);
    if (entry != nullptr && entry->ifindex == DPM_IFINDEX_NONE)
        forget(*entry);
}

// A standby card waits for nothing: what it may need as the next master is asked for then.
int probe_due(std::uintptr_t arg, std::uintptr_t, std::uintptr_t) {
    auto *entry = reinterpret_cast<dpm_unreachable_entry *>(arg);
    if (!dpm_bridge_self_is_slave())
        return dpm_host_unreachable_send(entry);
    forget(*entry);
    return 0;
}

} // namespace

namespace dpm {

void unreachable_index_create() {
    unreachables_by_address().create();
}

void unreachables_end() {
    for (dpm_unreachable_entry &entry : unreachable_list(g_dpm_global.unreachable_list).erasable())
        forget(entry);
}

void unreachables_end_on(std::uint32_t ifindex, std::uint32_t vrf) {
    for (dpm_unreachable_entry &entry : unreachable_list(g_dpm_global.unreachable_list).erasable())
        if (entry.ifindex == ifindex && (vrf == DPM_VRF_NONE || entry.vrf == vrf))
            forget(entry);
}

} // namespace dpm

dpm_unreachable_entry *dpm_host_unreachable_find(std::uint32_t vrf, std::uint32_t ifindex,
                                                 const dpm_prefix *ip) {
    if (ip == nullptr)
        return nullptr;
    unreachable_record key = {};
    key.entry.vrf = vrf;
    key.entry.ifindex = ifindex;
    key.entry.ip = *ip;
    unreachable_record *record = unreachables_by_address().find(key);
    return record != nullptr ? &record->entry : nullptr;
}

int dpm_host_unreachable_add(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix *ip,
                             std::uint32_t probe_count) {
    if (ip == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_iptype(ip->family, DPM_CALL_SITE)) // such an address would never be found again
        return -1;
    if (ifindex != DPM_IFINDEX_NONE)
        forget_nowhere(vrf, *ip);
    if (dpm_host_unreachable_find(vrf, ifindex, ip) != nullptr)
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

int dpm_host_unreachable_del(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix *ip) {
    if (ip == nullptr)
        return dpm::null_parameter();
    if (dpm_unreachable_entry *entry = dpm_host_unreachable_find(vrf, ifindex, ip))
        forget(*entry);
    return 0;
}

std::uint32_t dpm_host_get_index_by_ip(std::uint32_t vrf, std::uint32_t ifindex,
                                       const dpm_prefix *ip) {
    if (const dpm_host_entry *host = dpm_host_find_by_ip(vrf, ip, ifindex))
        return host->sdk_index;
    (void)dpm_host_unreachable_add(vrf, ifindex, ip, DPM_UNREACHABLE_PROBES);
    return DPM_HOST_UNRESOLVED;
}

std::int32_t dpm_api_get_unreachable_since(const dpm_unreachable_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    return reinterpret_cast<const unreachable_record *>(entry)->since_sec;
}
