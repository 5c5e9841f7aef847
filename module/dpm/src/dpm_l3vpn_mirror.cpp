// Label entries on the standby card: how they travel there, and what they are kept as.
//
// The standby keeps the master's flags: what waits there waits here.  So it also lists VPN routes
// whose tunnel went, which the master leaves to the routing suite; on either card they are
// programmed only behind their tunnel.
#include "dpm_l3vpn_chip.h"

#include "dpm_bridge.h"
#include "dpm_if.h"
#include "dpm_mirror.h"
#include "dpm_vpn.h"
#include "dpm_vpn_encaps.h"

namespace {

// A VPN route that the chip would not let go with its tunnel stays out of a slot that comes.
bool is_for_slot(const dpm_ftn &ftn) {
    return ftn.vrf_id == 0 || dpm::is_carried(ftn);
}
bool is_for_slot(const dpm_ilm &) {
    return true;
}

int chip_add(const dpm_ftn &ftn, std::uint32_t *nhid, std::uint32_t *tunnel_id,
             std::uint32_t slot_bits) {
    return dpm_hw_driver_mpls_ftn_add(&ftn, nhid, tunnel_id, slot_bits);
}
int chip_add(const dpm_ilm &ilm, std::uint32_t *nhid, std::uint32_t *tunnel_id,
             std::uint32_t slot_bits) {
    return dpm_hw_driver_mpls_ilm_add(&ilm, nhid, tunnel_id, slot_bits);
}

template <class Entry> struct label_mirror : dpm::mirror_defaults<Entry> {
    // What the chip answers for one slot is not kept.
    static bool reprogram(const Entry &entry, std::uint32_t slot_bits) {
        std::uint32_t nhid = entry.nhid, tunnel_id = entry.tunnel_id;
        if (entry.flags == DPM_LABEL_PROGRAMMED && is_for_slot(entry))
            (void)chip_add(entry, &nhid, &tunnel_id, slot_bits);
        return true;
    }
};

struct ftn_mirror : label_mirror<dpm_ftn> {
    static constexpr auto add_code = DPM_MSG_SYNC_FTN_ADD, del_code = DPM_MSG_SYNC_FTN_DEL;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, ftn driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, ftn table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.ftn_tree};
    static void create() { dpm::ftn_tables_create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool localise_key(entry &image, const dpm::call_site &) {
        dpm::trim(image);
        return true;
    }
    static entry *find(const entry &image) { return dpm::ftns().find(image); }
    static entry *put(const entry &image, entry *) { return dpm_mpls_ftn_add_for_salve(image); }
    static void drop(entry &present) { (void)dpm_mpls_ftn_del(&present); }
    static std::uint32_t &sync_of(entry &present) { return dpm::label_sync_of(present); }
};

struct ilm_mirror : label_mirror<dpm_ilm> {
    static constexpr auto add_code = DPM_MSG_SYNC_ILM_ADD, del_code = DPM_MSG_SYNC_ILM_DEL;
    static constexpr const char *driver_sync_text = "%s %d::slot_bit = %d, ilm driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, ilm table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.ilm_tree};
    static void create() { dpm::ilm_tables_create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool localise(entry &image, const dpm::call_site &) {
        image.out_ifname[sizeof image.out_ifname - 1] = '\0';
        image.out_ifindex =
            image.out_ifname[0] != '\0' ? dpm_if_get_ifindexbyname(image.out_ifname) : 0;
        return true;
    }
    static entry *find(const entry &image) { return dpm::ilms().find(image); }
    static entry *put(const entry &image, entry *) { return dpm_mpls_ilm_add_for_slave(image); }
    static void drop(entry &present) { (void)dpm_mpls_ilm_del(&present); }
    static std::uint32_t &sync_of(entry &present) { return dpm::label_sync_of(present); }
};

// One that was given before its interface has no name for it, so the standby knows no index.
void name_interface(dpm_ilm &ilm) {
    dpm::label_name_interface(ilm);
    (void)dpm_mpls_ilm_add_sync_send(&ilm);
}

void renumber(const char *ifname, std::uint32_t ifindex) {
    const bool is_masters = ifindex != DPM_IFINDEX_NONE && dpm_bridge_self_is_master();
    for (dpm_ilm &ilm : dpm::ilms()) {
        if (is_masters && ifindex != 0 && ilm.out_ifindex == ifindex && ilm.out_ifname[0] == '\0')
            name_interface(ilm);
        if (std::strcmp(ilm.out_ifname, ifname) == 0)
            ilm.out_ifindex = ifindex;
    }
}

} // namespace

constexpr dpm::if_follower dpm::labels_on_interfaces = {nullptr, nullptr, renumber};

// clang-format off
DPM_MIRRORED_TABLE(ftn_mirror, mirrored_ftns,
                   dpm_mpls_ftn_add_sync_send, dpm_mpls_ftn_add_sync_receive,
                   dpm_mpls_ftn_add_sync_process,
                   dpm_mpls_ftn_del_sync_send, dpm_mpls_ftn_del_sync_receive,
                   dpm_mpls_ftn_del_sync_process,
                   dpm_mpls_ftn_sync_all_send, dpm_mpls_ftn_sync_all_receive)
DPM_MIRRORED_TABLE(ilm_mirror, mirrored_ilms,
                   dpm_mpls_ilm_add_sync_send, dpm_mpls_ilm_add_sync_receive,
                   dpm_mpls_ilm_add_sync_process,
                   dpm_mpls_ilm_del_sync_send, dpm_mpls_ilm_del_sync_receive,
                   dpm_mpls_ilm_del_sync_process,
                   dpm_mpls_ilm_sync_all_send, dpm_mpls_ilm_sync_all_receive)
// clang-format on
