// The tables of virtual bridges on standard output, for people at the device.
#include "dpm_vpls.h"

#include "dpm_address.h"
#include "dpm_locks.h"
#include "dpm_trace.h"

#include <cstdio>

namespace {

void print(const dpm_vpls_vc_fib &fib, const dpm::call_site &caller) {
    std::printf(
        "\r\n %s:%d flags=%d vpls_id=%d vc_id=%d pw_index=%d out_label=%d nw_ifindex=%x tunnel_label=%d c_word=%d pw_mode=%d is_spoke=%d vc_peer=%d.%d.%d.%d peer_nhop_addr=%d.%d.%d.%d fec_prefix=%d.%d.%d.%d out_ifname=%s nhid=%d logic_port=%d",
        caller.function, caller.line, fib.flags, fib.vpls_id, fib.vc_id, fib.pw_index,
        fib.out_label, fib.nw_ifindex, fib.tunnel_label, fib.c_word, fib.pw_mode, fib.is_spoke,
        DPM_IPV4_OF(fib.vc_peer), DPM_IPV4_OF(fib.peer_nhop_addr), DPM_IPV4_OF(fib.fec_prefix),
        fib.out_ifname, fib.nhid, fib.logic_port);
}

void print(const dpm_vpls_vc_ilm &ilm, const dpm::call_site &caller) {
    std::printf(
        "\r\n %s:%d flags=%d vpls_id=%d vc_id=%d in_label=%d in_ifindex=%x in_ifname=%s nexthop=%d.%d.%d.%d vc_peer=%d.%d.%d.%d fec_prefix=%d.%d.%d.%d fec_prefixlen=%d",
        caller.function, caller.line, ilm.flags, ilm.vpls_id, ilm.vc_id, ilm.in_label,
        ilm.in_ifindex, ilm.in_ifname, DPM_IPV4_OF(ilm.nexthop), DPM_IPV4_OF(ilm.vc_peer),
        DPM_IPV4_OF(ilm.fec_prefix), ilm.fec_prefixlen);
}

} // namespace

void dpm_vpls_vsi_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vpls_vsi table: total count %d", dpm::vpls_vsis().count());
    for (const dpm_vpls_vsi &vsi : dpm::vpls_vsis())
        std::printf("\n\r vpls_id=%d fid=%d flags=%d\n\r", vsi.vpls_id, vsi.fid, vsi.flags);
    std::printf("\n\r vpls_vsi table info end!");
}

void dpm_vpls_acif_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vpls_acif table: total count %d", dpm::vpls_acifs().count());
    for (const dpm_vpls_acif &acif : dpm::vpls_acifs())
        std::printf(
            "\n\r vpls_id=%d flags=%d svlan_id=%d svlan_tpid=0x%x cvlan_id=%d vlan_action=%d \t\t\tifindex=%x ifname=%s vlan_id=%d port=%d nhid=%d logic_port=%d\n\r",
            acif.vpls_id, acif.flags, acif.svlan_id, acif.svlan_tpid, acif.cvlan_id,
            acif.vlan_action, acif.ifindex, acif.ifname, acif.vlan_id, acif.port, acif.nhid,
            acif.logic_port);
    std::printf("\n\r vpls_acif table info end!");
}

void dpm_vpls_vc_fib_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vpls_vc_fib table: total count %d", dpm::vpls_vc_fibs().count());
    for (const dpm_vpls_vc_fib &fib : dpm::vpls_vc_fibs())
        print(fib, DPM_CALL_SITE);
    std::printf("\n\r pend vpls_vc_fib table:");
    for (const dpm_vpls_vc_fib &fib : dpm::pend_vpls_vc_fibs())
        print(fib, DPM_CALL_SITE);
    std::printf("\n\r vpls_vc_fib table info end!");
}

void dpm_vpls_vc_ilm_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global vpls_vc_ilm table: total count %d", dpm::vpls_vc_ilms().count());
    for (const dpm_vpls_vc_ilm &ilm : dpm::vpls_vc_ilms())
        print(ilm, DPM_CALL_SITE);
    std::printf("\n\r pend vpls_vc_ilm table:");
    for (const dpm_vpls_vc_ilm &ilm : dpm::pend_vpls_vc_ilms())
        print(ilm, DPM_CALL_SITE);
    std::printf("\n\r vpls_vc_ilm table info end!");
}
