// BFD sessions on the standby card: how they travel there, and what they are kept as.
//
// End points are the chip's business alone: a slot that comes up is not programmed with them.
#include "dpm_bfd_record.h"

#include "dpm_mirror.h"

namespace {

// The interface of a session, as this card knows it; else the one that it knew before.
void place(dpm_bfd_sess &session, std::uint32_t known_ifindex) {
    if (const dpm_if_entry *interface = dpm::bfd_interface_of(session))
        dpm::bfd_stand_on(session, *interface);
    else
        session.told.ifindex = known_ifindex;
}

struct bfd_mirror : dpm::mirror_defaults<dpm_bfd_sess> {
    static constexpr auto add_code = DPM_MSG_BFD_SYNC_ADD, del_code = DPM_MSG_BFD_SYNC_DEL;
    static constexpr const char *driver_sync_text = nullptr;
    static constexpr const char *table_sync_text = "%s %d::slot %d, bfd table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_global.bfd_tree};
    static void create() { dpm::bfd_tables_create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &, std::uint32_t) { return true; }
    static entry *find(const entry &image) {
        return dpm_avl_bfd_sess_lookup(image.told.local_disc);
    }
    static entry *put(const entry &image, entry *present) {
        const std::uint32_t ifindex = present != nullptr ? present->told.ifindex : DPM_IFINDEX_NONE;
        entry *const session =
            present != nullptr ? dpm::bfd_replace(*present, image) : dpm_avl_bfd_sess_add(&image);
        if (session == nullptr)
            return nullptr;
        (void)dpm_bfd_reset_mepindex(DPM_BFD_LOCAL, session->local_mep);
        (void)dpm_bfd_reset_mepindex(DPM_BFD_REMOTE, session->remote_mep);
        place(*session, ifindex);
        return session;
    }
    static void drop(entry &present) { dpm_avl_bfd_sess_del(&present); }
    static bool stays(const entry &deleted) { return deleted.timer.arg1 == DPM_BFD_WAITS; }
    static std::uint32_t &sync_of(entry &present) { return record_of(present).sync; }
};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(bfd_mirror, mirrored_bfd_sessions,
                   dpm_bfd_entry_add_sync_send, dpm_bfd_entry_add_sync_receive,
                   dpm_bfd_sess_sync_add_msg,
                   dpm_bfd_entry_del_sync_send, dpm_bfd_entry_del_sync_receive,
                   dpm_bfd_sess_sync_del_msg,
                   dpm_bfd_sync_all_send, dpm_bfd_sync_all_receive)
// clang-format on

int dpm_bfd_entry_update_sync_send(const dpm_bfd_update *update) {
    return dpm::mirror_send(update, sizeof *update, "dpm_bfd_entry_update_sync_receive",
                            DPM_CALL_SITE);
}

int dpm_bfd_entry_update_sync_receive(const void *buffer, std::uint32_t length_bytes) {
    return dpm::mirror_receive<dpm_bfd_update>(DPM_MSG_BFD_UPDATE, buffer, length_bytes,
                                               DPM_CALL_SITE);
}
