// Routes on the standby card: how they travel there, and what they are kept as.
#include "dpm_route_program.h"

#include "dpm_if.h"
#include "dpm_mirror.h"

namespace {

struct route_mirror {
    using entry = dpm_route_entry;
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_ROUTE, del_code = DPM_MSG_SYNC_DEL_ROUTE;
    static constexpr std::uint32_t batch_entries = 100;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, route driver sync.\r\n";
    static constexpr const char *empty_first_text = "%s %d::ipv4 route tree is null.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, route table sync.\r\n";
    static std::span<dpm_avl_tree *const> trees() {
        static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.route_ipv4_tree,
                                                       &g_dpm_global.route_ipv6_tree};
        return list;
    }
    static bool reprogram(const dpm_route_entry &route, std::uint32_t slot_bits) {
        dpm::reprogram_route(route, slot_bits);
        return true;
    }
};

// A mirrored route as this card keeps it: interface indexes are looked up by name again.
bool localise(dpm_route_entry &route, const dpm::call_site &caller) {
    const dpm_prefix &destination = route.destination;
    if (!dpm::is_known_family(destination.family) || route.np_num > DPM_ROUTE_GATEWAYS ||
        destination.prefix_len > dpm::host_bits(destination.family)) {
        DPM_LOG_FROM(caller, "%s %d::iptype = %d is err!\r\n", destination.family);
        return false;
    }
    for (std::uint32_t i = 0; i < DPM_ROUTE_GATEWAYS; i++) {
        route.np_ifname[i][DPM_IFNAME_BYTES - 1] = '\0';
        if (i < route.np_num)
            route.np_ifindex[i] = dpm_if_get_ifindexbyname(route.np_ifname[i]);
    }
    route.node = {};
    return true;
}

void drop_mirrored(dpm_route_entry *present) {
    if (present == nullptr)
        return;
    (void)dpm_timer_stop(g_dpm_global.timer_list, &present->delete_timer);
    dpm::unlink_route(record_of(*present));
    dpm::free_route(record_of(*present));
}

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(route_mirror,
                   dpm_route_entry_add_sync_send, dpm_route_entry_add_sync_receive,
                   dpm_route_entry_del_sync_send, dpm_route_entry_del_sync_receive,
                   dpm_route_entry_sync_all_send, dpm_route_entry_sync_all_receive)
// clang-format on

int dpm_route_entry_add_sync_process(const dpm_route_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    dpm_route_entry route = *entry;
    if (!localise(route, DPM_CALL_SITE))
        return -1;
    dpm::route_block record(route);
    if (!record)
        return -1;
    drop_mirrored(dpm_route_find_by_entry(&record->entry));
    record->is_mirrored = true;
    dpm::adopt_chip_entry(*record);
    dpm::link_route(*record.release());
    return 0;
}

int dpm_route_entry_del_sync_process(const dpm_route_entry *entry) {
    if (entry == nullptr)
        return dpm::null_parameter();
    if (!dpm::is_known_family(entry->destination.family)) {
        DPM_TRACE("%s %d::iptype = %d is err!\r\n", entry->destination.family);
        return -1;
    }
    drop_mirrored(dpm_route_find_by_entry(entry));
    return 0;
}
