// Tunnels on the standby card: how they travel there, and what they are kept as.
#include "dpm_tunnel_record.h"

#include "dpm_mirror.h"

namespace {

struct tunnel_mirror : dpm::mirror_defaults<dpm_tunnel_entry> {
    static constexpr auto add_code = DPM_MSG_SYNC_ADD_TUNNEL, del_code = DPM_MSG_SYNC_DEL_TUNNEL;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, tunnel driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, tunnel table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.tunnel_tree};
    static void create() { dpm::tunnel_tables_create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &tunnel, std::uint32_t slot_bits) {
        dpm::reprogram_tunnel(tunnel, slot_bits);
        return true;
    }
    static bool localise(entry &image, const dpm::call_site &) {
        image.name[sizeof image.name - 1] = '\0';
        image.node = {};
        return true;
    }
    static entry *find(const entry &image) { return dpm::tunnels().find(image); }
    static entry *put(const entry &image, entry *present) {
        dpm::block<tunnel_record> record;
        if (!record)
            return nullptr;
        record->entry = image;
        dpm::find_paths(*record, present != nullptr ? &record_of(*present) : nullptr);
        if (present != nullptr)
            drop(*present);
        dpm::link_tunnel(*record);
        return &record.release()->entry;
    }
    static void drop(entry &present) {
        dpm::unlink_tunnel(record_of(present));
        dpm::free_zeroed(&record_of(present));
    }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(tunnel_mirror, mirrored_tunnels,
                   dpm_tunnel_entry_add_sync_send, dpm_tunnel_entry_add_sync_receive,
                   dpm_tunnel_entry_add_sync_process,
                   dpm_tunnel_entry_del_sync_send, dpm_tunnel_entry_del_sync_receive,
                   dpm_tunnel_entry_del_sync_process,
                   dpm_tunnel_entry_sync_all_send, dpm_tunnel_entry_sync_all_receive)
// clang-format on
