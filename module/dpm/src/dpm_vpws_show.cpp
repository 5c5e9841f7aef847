// The tables of pseudowires on standard output, for people at the device.
#include "dpm_vpws.h"

#include "dpm_address.h"
#include "dpm_locks.h"
#include "dpm_trace.h"

#include <cstdio>

namespace {

void print(const dpm_vpws_vc_fib &fib, const dpm::call_site &caller) {
    std::printf(
        "\r\n %s:%d flags=%d vc_id=%d pw_index=%d vc_style=%d in_label=%d out_label=%d ac_ifindex=%x nw_ifindex=%x opcode=%d tunnel_label=%d c_word=%d pw_mode=%d svlan_id=%d svlan_tpid=0x%x vlan_id=%d vc_peer=%d.%d.%d.%d peer_nhop_addr=%d.%d.%d.%d fec_prefix=%d.%d.%d.%d in_ifname=%s out_ifname=%s vc_role=%d sibling_vc_id=%d sibling_vc_peer=%d.%d.%d.%d ac_nhid=%d pw_nhid=%d aps_id=%d",
        caller.function, caller.line, fib.flags, fib.vc_id, fib.pw_index, fib.vc_style,
        fib.in_label, fib.out_label, fib.ac_ifindex, fib.nw_ifindex, fib.opcode, fib.tunnel_label,
        fib.c_word, fib.pw_mode, fib.svlan_id, fib.svlan_tpid, fib.vlan_id,
        DPM_IPV4_OF(fib.vc_peer), DPM_IPV4_OF(fib.peer_nhop_addr), DPM_IPV4_OF(fib.fec_prefix),
        fib.in_ifname, fib.out_ifname, fib.vc_role, fib.sibling_vc_id,
        DPM_IPV4_OF(fib.sibling_vc_peer), fib.ac_nhid, fib.pw_nhid, fib.aps_id);
}

void print(const dpm_vpws_vc_ilm &ilm, const dpm::call_site &caller) {
    std::printf(
        "\r\n %s:%d flags=%d vpn_id=%d in_label=%d in_ifindex=%x out_label=%d out_ifindex=%x in_ifname=%s out_ifname=%s nhlfe_ix=%d tunnel_label=%d nexthop=%d.%d.%d.%d vc_peer=%d.%d.%d.%d fec_prefix=%d.%d.%d.%d fec_prefixlen=%d",
        caller.function, caller.line, ilm.flags, ilm.vpn_id, ilm.in_label, ilm.in_ifindex,
        ilm.out_label, ilm.out_ifindex, ilm.in_ifname, ilm.out_ifname, ilm.nhlfe_ix,
        ilm.tunnel_label, DPM_IPV4_OF(ilm.nexthop), DPM_IPV4_OF(ilm.vc_peer),
        DPM_IPV4_OF(ilm.fec_prefix), ilm.fec_prefixlen);
}

} // namespace

void dpm_vpws_acif_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vpws_acif table: total count %d", dpm::vpws_acifs().count());
    for (const dpm_vpws_acif &acif : dpm::vpws_acifs())
        std::printf(
            "\n\r vc_id=%d flags=%d svlan_id=%d svlan_tpid=0x%x cvlan_id=%d vlan_action=%d \t\t\tifindex=%x ifname=%s matchRule=%d vlan_id=%d action_vlan=%d\n\r",
            acif.vc_id, acif.flags, acif.svlan_id, acif.svlan_tpid, acif.cvlan_id, acif.vlan_action,
            acif.ifindex, acif.ifname, acif.matchRule, acif.vlan_id, acif.action_vlan);
    std::printf("\n\r vpws_acif table info end!");
}

void dpm_vpws_vc_fib_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vpws_vc_fib table: total count %d", dpm::vpws_vc_fibs().count());
    for (const dpm_vpws_vc_fib &fib : dpm::vpws_vc_fibs())
        print(fib, DPM_CALL_SITE);
    std::printf("\n\r pend vpws_vc_fib table:");
    for (const dpm_vpws_vc_fib &fib : dpm::pend_vpws_vc_fibs())
        print(fib, DPM_CALL_SITE);
    std::printf("\n\r vc_fib table info end!");
}

void dpm_vpws_vc_ilm_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vc_ilm table: total count %d", dpm::vpws_vc_ilms().count());
    for (const dpm_vpws_vc_ilm &ilm : dpm::vpws_vc_ilms())
        print(ilm, DPM_CALL_SITE);
    std::printf("\n\r pend vc_ilm table:");
    for (const dpm_vpws_vc_ilm &ilm : dpm::pend_vpws_vc_ilms())
        print(ilm, DPM_CALL_SITE);
    std::printf("\n\r vc_ilm table info end!");
}
