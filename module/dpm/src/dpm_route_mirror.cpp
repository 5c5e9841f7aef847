// Routes on the standby card: how they travel there, and what they are kept as.
#include "dpm_route_program.h"

#include "dpm_if.h"
#include "dpm_mirror.h"

namespace {

struct route_mirror : dpm::mirror_defaults<dpm_route_entry> {
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_ROUTE, del_code = DPM_MSG_SYNC_DEL_ROUTE;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, route driver sync.\r\n";
    static constexpr const char *empty_first_text = "%s %d::ipv4 route tree is null.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, route table sync.\r\n";
    static void create() {
        dpm::ipv4_routes().create();
        dpm::ipv6_routes().create();
        dpm::route_indexes_create();
    }
    static std::span<dpm_avl_tree *const> trees() {
        static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.route_ipv4_tree,
                                                       &g_dpm_global.route_ipv6_tree};
        return list;
    }
    static bool reprogram(const dpm_route_entry &route, std::uint32_t slot_bits) {
        dpm::reprogram_route(route, slot_bits);
        return true;
    }
    static bool localise_key(entry &image, const dpm::call_site &caller) {
        return dpm::is_iptype(image.destination.family, caller);
    }
    // Interface indexes are looked up by name again.
    static bool localise(entry &image, const dpm::call_site &caller) {
        if (!dpm::is_sound(image, caller))
            return false;
        for (std::uint32_t i = 0; i < DPM_ROUTE_GATEWAYS; i++) {
            image.np_ifname[i][DPM_IFNAME_BYTES - 1] = '\0';
            if (i < image.np_num)
                image.np_ifindex[i] = dpm_if_get_ifindexbyname(image.np_ifname[i]);
        }
        image.node = {};
        return true;
    }
    static entry *find(const entry &image) { return dpm_route_find_by_entry(&image); }
    static entry *put(const entry &image, entry *present) {
        dpm::route_block record(image);
        if (!record)
            return nullptr;
        if (present != nullptr)
            drop(*present);
        record->is_mirrored = true;
        dpm::adopt_chip_entry(*record);
        dpm::link_route(*record);
        return &record.release()->entry;
    }
    static void drop(entry &present) {
        (void)dpm_timer_stop(g_dpm_global.timer_list, &present.delete_timer);
        dpm::unlink_route(record_of(present));
        dpm::free_route(record_of(present));
    }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(route_mirror, mirrored_routes,
                   dpm_route_entry_add_sync_send, dpm_route_entry_add_sync_receive,
                   dpm_route_entry_add_sync_process,
                   dpm_route_entry_del_sync_send, dpm_route_entry_del_sync_receive,
                   dpm_route_entry_del_sync_process,
                   dpm_route_entry_sync_all_send, dpm_route_entry_sync_all_receive)
// clang-format on
