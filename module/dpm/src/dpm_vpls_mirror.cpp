// Virtual bridges on the standby card: bridges, then their circuits, then ways out and in together.
#include "dpm_vpls_chip.h"

#include "dpm_l2vpn_mirror.h"

namespace {

using dpm::vpls_acif_kind;
using dpm::vpls_vc_fib_kind;
using dpm::vpls_vc_ilm_kind;
using dpm::vpls_vsi_kind;

struct vsi_mirror : dpm::service_mirror<vpls_vsi_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPLS_VSI_ADD,
                          del_code = DPM_MSG_SYNC_VPLS_VSI_DEL;
    static constexpr std::uint32_t batch_entries = 64;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpls vsi driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpls vsi table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpls_vsi_tree};
    static bool localise_key(entry &image, const dpm::call_site &) {
        image.fid = image.vpls_id;
        return dpm::is_vpls_id(image.vpls_id);
    }
    static void create() { dpm::vpls_vsis().create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &entry, std::uint32_t slot_bits) {
        dpm::vpls_reprogram(entry, slot_bits);
        return true;
    }
    static entry *put(const entry &image, entry *) {
        return dpm::vpn_add_mirrored<vpls_vsi_kind>(image);
    }
};

struct acif_mirror : dpm::circuit_mirror<vpls_acif_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPLS_ACIF_ADD,
                          del_code = DPM_MSG_SYNC_VPLS_ACIF_DEL;
    static constexpr std::uint32_t batch_entries = 128;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpls acif driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpls acif table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpls_acif_tree};
    static void create() {
        dpm::vpls_acifs().create();
        vpls_acif_kind::by_vsi().create();
        vpls_acif_kind::by_port().create();
    }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &entry, std::uint32_t slot_bits) {
        dpm::vpls_reprogram(entry, slot_bits);
        return true;
    }
    static entry *put(const entry &image, entry *) {
        return dpm::vpn_add_mirrored<vpls_acif_kind>(image);
    }
};

struct vc_fib_mirror : dpm::pseudowire_mirror<vpls_vc_fib_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPLS_VCFIB_ADD,
                          del_code = DPM_MSG_SYNC_VPLS_VCFIB_DEL;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpls vc_fib driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpls vc_fib table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpls_vc_fib_tree};
    static void create() {
        dpm::vpls_vc_fibs().create();
        vpls_vc_fib_kind::by_peer().create();
    }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &entry, std::uint32_t slot_bits) {
        dpm::vpls_reprogram(entry, slot_bits);
        return true;
    }
    static bool localise(entry &image, const dpm::call_site &) {
        image.nw_ifindex = dpm::index_of(image.out_ifname);
        return true;
    }
    static entry *put(const entry &image, entry *) {
        return dpm::vpn_add_mirrored<vpls_vc_fib_kind>(image);
    }
};

struct vc_ilm_mirror : dpm::pseudowire_mirror<vpls_vc_ilm_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPLS_VCILM_ADD,
                          del_code = DPM_MSG_SYNC_VPLS_VCILM_DEL;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpls vc_ilm driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpls vc_ilm table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpls_vc_ilm_tree};
    static void create() { dpm::vpls_vc_ilms().create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool localise(entry &image, const dpm::call_site &) {
        image.in_ifindex = dpm::index_of(image.in_ifname);
        return true;
    }
    static entry *put(const entry &image, entry *) {
        return dpm::vpn_add_mirrored<vpls_vc_ilm_kind>(image);
    }
};

} // namespace

// clang-format off
DPM_MIRRORED_TABLE(vsi_mirror, mirrored_vpls_vsis,
                   dpm_vpls_vsi_add_sync_send, dpm_vpls_vsi_add_sync_receive,
                   dpm_vpls_vsi_add_sync_process,
                   dpm_vpls_vsi_del_sync_send, dpm_vpls_vsi_del_sync_receive,
                   dpm_vpls_vsi_del_sync_process,
                   dpm_vpls_vsi_sync_all_send, dpm_vpls_vsi_sync_all_receive)
DPM_MIRRORED_TABLE(acif_mirror, mirrored_vpls_acifs,
                   dpm_vpls_acif_add_sync_send, dpm_vpls_acif_add_sync_receive,
                   dpm_vpls_acif_add_sync_process,
                   dpm_vpls_acif_del_sync_send, dpm_vpls_acif_del_sync_receive,
                   dpm_vpls_acif_del_sync_process,
                   dpm_vpls_acif_sync_all_send, dpm_vpls_acif_sync_all_receive)
DPM_MIRRORED_ENTRIES(vc_fib_mirror,
                     dpm_vpls_vc_fib_add_sync_send, dpm_vpls_vc_fib_add_sync_receive,
                     dpm_vpls_vc_fib_add_sync_process,
                     dpm_vpls_vc_fib_del_sync_send, dpm_vpls_vc_fib_del_sync_receive,
                     dpm_vpls_vc_fib_del_sync_process, dpm_vpls_vc_fib_sync_all_receive)
DPM_MIRRORED_ENTRIES(vc_ilm_mirror,
                     dpm_vpls_vc_ilm_add_sync_send, dpm_vpls_vc_ilm_add_sync_receive,
                     dpm_vpls_vc_ilm_add_sync_process,
                     dpm_vpls_vc_ilm_del_sync_send, dpm_vpls_vc_ilm_del_sync_receive,
                     dpm_vpls_vc_ilm_del_sync_process, dpm_vpls_vc_ilm_sync_all_receive)
// clang-format on

// One whole-table sender for the two halves of pseudowires.
int dpm_vpls_pw_sync_all_send(std::uint32_t slot) {
    const int out = dpm::mirror_send_all<vc_fib_mirror>(slot, "dpm_vpls_vc_fib_sync_all_receive",
                                                        DPM_CALL_SITE);
    const int in = dpm::mirror_send_all<vc_ilm_mirror>(slot, "dpm_vpls_vc_ilm_sync_all_receive",
                                                       DPM_CALL_SITE);
    return out != 0 ? out : in;
}

constexpr dpm::mirrored dpm::mirrored_vpls_vc_fibs = {
    vc_fib_mirror::create, dpm_vpls_pw_sync_all_send, dpm::mirror_drop_old<vc_fib_mirror>};
constexpr dpm::mirrored dpm::mirrored_vpls_vc_ilms = {vc_ilm_mirror::create, nullptr,
                                                      dpm::mirror_drop_old<vc_ilm_mirror>};
