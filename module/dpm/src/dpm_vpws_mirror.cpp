// Pseudowires on the standby card: three tables that travel together.
#include "dpm_vpws_chip.h"

#include "dpm_l2vpn_mirror.h"

namespace {

using dpm::vpws_acif_kind;
using dpm::vpws_vc_fib_kind;
using dpm::vpws_vc_ilm_kind;

struct acif_mirror : dpm::circuit_mirror<vpws_acif_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPWS_ACIF_ADD,
                          del_code = DPM_MSG_SYNC_VPWS_ACIF_DEL;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpws acif driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpws acif table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpws_acif_tree};
    static void create() {
        dpm::vpws_acifs().create();
        vpws_acif_kind::by_vc().create();
        vpws_acif_kind::by_port().create();
    }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static entry *put(const entry &image, entry *) { return dpm_vpws_acif_add_for_slave(image); }
};

struct vc_fib_mirror : dpm::pseudowire_mirror<vpws_vc_fib_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPWS_VCFIB_ADD,
                          del_code = DPM_MSG_SYNC_VPWS_VCFIB_DEL;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpws vc_fib driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpws vc_fib table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpws_vc_fib_tree};
    static void create() {
        dpm::vpws_vc_fibs().create();
        vpws_vc_fib_kind::by_peer().create();
        vpws_vc_fib_kind::by_circuit().create();
    }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static bool reprogram(const entry &entry, std::uint32_t slot_bits) {
        dpm::vpws_reprogram(entry, slot_bits);
        return true;
    }
    static entry *put(const entry &image, entry *) { return dpm_vpws_vc_fib_add_for_slave(image); }
};

struct vc_ilm_mirror : dpm::pseudowire_mirror<vpws_vc_ilm_kind> {
    static constexpr auto add_code = DPM_MSG_SYNC_VPWS_VCILM_ADD,
                          del_code = DPM_MSG_SYNC_VPWS_VCILM_DEL;
    static constexpr const char *driver_sync_text =
        "%s %d::slot_bit = %d, vpws vc_ilm driver sync.\r\n";
    static constexpr const char *table_sync_text = "%s %d::slot %d, vpws vc_ilm table sync.\r\n";
    static constexpr dpm_avl_tree *const list[] = {&g_dpm_vpn.vpws_vc_ilm_tree};
    static void create() { dpm::vpws_vc_ilms().create(); }
    static std::span<dpm_avl_tree *const> trees() { return list; }
    static entry *put(const entry &image, entry *) { return dpm_vpws_vc_ilm_add_for_slave(image); }
};

} // namespace

// clang-format off
DPM_MIRRORED_ENTRIES(acif_mirror,
                     dpm_vpws_acif_add_sync_send, dpm_vpws_acif_add_sync_receive,
                     dpm_vpws_acif_add_sync_process,
                     dpm_vpws_acif_del_sync_send, dpm_vpws_acif_del_sync_receive,
                     dpm_vpws_acif_del_sync_process, dpm_vpws_acif_sync_all_receive)
DPM_MIRRORED_ENTRIES(vc_fib_mirror,
                     dpm_vpws_vc_fib_add_sync_send, dpm_vpws_vc_fib_add_sync_receive,
                     dpm_vpws_vc_fib_add_sync_process,
                     dpm_vpws_vc_fib_del_sync_send, dpm_vpws_vc_fib_del_sync_receive,
                     dpm_vpws_vc_fib_del_sync_process, dpm_vpws_vc_fib_sync_all_receive)
DPM_MIRRORED_ENTRIES(vc_ilm_mirror,
                     dpm_vpws_vc_ilm_add_sync_send, dpm_vpws_vc_ilm_add_sync_receive,
                     dpm_vpws_vc_ilm_add_sync_process,
                     dpm_vpws_vc_ilm_del_sync_send, dpm_vpws_vc_ilm_del_sync_receive,
                     dpm_vpws_vc_ilm_del_sync_process, dpm_vpws_vc_ilm_sync_all_receive)
// clang-format on

// One whole-table sender for the three, so that a peer card has no circuit without its pseudowires.
int dpm_vpws_sync_all_send(std::uint32_t slot) {
    const int first =
        dpm::mirror_send_all<acif_mirror>(slot, "dpm_vpws_acif_sync_all_receive", DPM_CALL_SITE);
    if (dpm_bridge_self_is_slave())
        return first;
    const int results[] = {first,
                           dpm::mirror_send_all<vc_fib_mirror>(
                               slot, "dpm_vpws_vc_fib_sync_all_receive", DPM_CALL_SITE),
                           dpm::mirror_send_all<vc_ilm_mirror>(
                               slot, "dpm_vpws_vc_ilm_sync_all_receive", DPM_CALL_SITE)};
    for (const int result : results)
        if (result != 0)
            return result;
    return 0;
}

constexpr dpm::mirrored dpm::mirrored_vpws_acifs = {acif_mirror::create, dpm_vpws_sync_all_send,
                                                    dpm::mirror_drop_old<acif_mirror>};
constexpr dpm::mirrored dpm::mirrored_vpws_vc_fibs = {vc_fib_mirror::create, nullptr,
                                                      dpm::mirror_drop_old<vc_fib_mirror>};
constexpr dpm::mirrored dpm::mirrored_vpws_vc_ilms = {vc_ilm_mirror::create, nullptr,
                                                      dpm::mirror_drop_old<vc_ilm_mirror>};
