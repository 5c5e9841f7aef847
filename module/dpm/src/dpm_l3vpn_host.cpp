// Label entries follow their neighbours: they are programmed when the neighbour comes and withdrawn
// before it goes.
//
// A neighbour drives the entries over its address in its own VRF: VRF 0 for FTNs, which lead through
// the provider's network, the entry's own for ILMs.  IPv6 neighbours drive none.  The IP route to a
// tunnel's prefix is not touched here.
#include "dpm_l3vpn.h"

#include "dpm_bridge.h"
#include "dpm_l3vpn_chip.h"
#include "dpm_l3vpn_ftn.h"
#include "dpm_trace.h"
#include "dpm_vpn_encaps.h"
#include "dpm_vpn_l2vpn.h"

namespace {

using dpm::ftn_kind;
using dpm::ilm_kind;

constexpr std::uint32_t ftn_vrf = 0;

void add_tunnel(dpm_ftn &tunnel, const dpm_host_entry &host) {
    if (dpm::label_program_over(tunnel, host) != 0) {
        DPM_PLAIN("dpm_mpls_arp_add_msg::add to sdk failed, stay in pend!\n\r");
        return;
    }
    (void)dpm_mpls_ftn_add_sync_send(&tunnel);
    DPM_PLAIN("dpm_mpls_arp_add_msg::dpm_hw_driver_mpls_ftn_add OK!\n\r");
    if (tunnel.ip_type == DPM_FAMILY_IPV4)
        (void)dpm_l2vpn_respond_arp_or_route_or_ftn_add(host.ip.address, tunnel.fec_prefix);
}

void end_add_vpn(const dpm_ftn &vpn, int result) {
    if (result != 0) {
        DPM_PLAIN(
            "dpm_mpls_vpn_ftn_proc_for_arp: add vrf ftn::add to sdk failed, stay in pend!\n\r");
        return;
    }
    (void)dpm_mpls_ftn_add_sync_send(&vpn);
    DPM_PLAIN("dpm_mpls_vpn_ftn_proc_for_arp: add vrf ftn::dpm_hw_driver_mpls_ftn_add OK!\n\r");
}

// Its tunnel may have another label than when the VPN route began to wait.
template <class Program> void program_vpn(dpm_ftn &vpn, Program program) {
    const std::uint32_t told_label = vpn.tunnel_label;
    vpn.tunnel_label = dpm::first_tunnel_to(vpn.vpn_nhop_af, vpn.vpn_nhop)->tunnel_label;
    const int result = program();
    if (result != 0)
        vpn.tunnel_label = told_label;
    end_add_vpn(vpn, result);
}

void add_vpn(dpm_ftn &vpn, const dpm_host_entry &host) {
    if (dpm::is_carried(vpn))
        program_vpn(vpn, [&] { return dpm::label_program_over(vpn, host); });
}

// A VPN route over another neighbour rides on the tunnel all the same; what its own does to it is
// done before.
bool rides_from_elsewhere(const dpm_ftn &vpn, const dpm_ftn &tunnel) {
    return vpn.vpn_prefixlen == tunnel.prefixlen &&
           dpm_fec_addr_cmp(vpn.tunnel_nhop, tunnel.tunnel_nhop) != 0;
}

// VPN routes over other neighbours that wait for the tunnel: they came before it, or left with it.
// The chip knows the tunnel, so no neighbour is named.
void add_carried(dpm_ftn &tunnel) {
    dpm::each_carried(tunnel, [&](dpm_ftn &vpn) {
        if (dpm::is_pending(vpn) && rides_from_elsewhere(vpn, tunnel))
            program_vpn(vpn, [&] { return dpm::label_program(vpn); });
    });
}

void add_ilm(dpm_ilm &ilm, const dpm_host_entry &host) {
    DPM_PLAIN("arp add for ILM::op=%d is_egress=%d tunnel_nhop=%x.%x.%x.%x \n\r", ilm.opcode,
              ilm.is_egress, DPM_IPV4_OF(ilm.tunnel_nhop));
    if (dpm::label_program_over(ilm, host) != 0) {
        DPM_PLAIN("dpm_mpls_arp_add_msg::add ilm to sdk failed, stay in pend!\n\r");
        return;
    }
    (void)dpm_mpls_ilm_add_sync_send(&ilm);
    DPM_PLAIN("dpm_mpls_arp_add_msg::dpm_hw_driver_mpls_ilm_add OK!\n\r");
}

void del_vpn(dpm_ftn &vpn) {
    if (const int result = dpm::label_withdrawn(vpn, dpm_hw_driver_mpls_ftn_del(&vpn))) {
        DPM_PLAIN(
            "dpm_mpls_vpn_ftn_proc_for_arp: del vrf ftn::del from sdk failed, stay in active, ret=%d\n\r",
            result);
        return;
    }
    dpm::label_wait(vpn);
    (void)dpm_mpls_ftn_add_sync_send(&vpn);
    DPM_PLAIN(
        "del vrf ftn:::dpm_hw_driver_mpls_ftn_del OK and ftn_entry has been added to pend. \n\r");
}

// VPN routes from elsewhere leave first, unless another tunnel is there.
void del_carried(dpm_ftn &tunnel) {
    const bool has_other =
        dpm::has_programmed_tunnel(tunnel.ip_type, tunnel.fec_prefix, tunnel.prefixlen, &tunnel);
    dpm::each_carried(tunnel, [&](dpm_ftn &vpn) {
        const bool leaves =
            !has_other && vpn.flags == DPM_LABEL_PROGRAMMED && rides_from_elsewhere(vpn, tunnel);
        if (leaves)
            del_vpn(vpn);
        record_of(vpn).went_with_tunnel = leaves && vpn.flags != DPM_LABEL_PROGRAMMED;
    });
}

void del_tunnel(dpm_ftn &tunnel, const dpm_host_entry &host) {
    if (tunnel.ip_type == DPM_FAMILY_IPV4)
        (void)dpm_l2vpn_respond_arp_or_route_or_ftn_del(host.ip.address, tunnel.fec_prefix);
    del_carried(tunnel);
    if (const int result = dpm::label_withdrawn(tunnel, dpm_hw_driver_mpls_ftn_del(&tunnel))) {
        DPM_PLAIN("dpm_mpls_arp_del_msg::del from sdk failed, stay in active, ret=%d\n\r", result);
        dpm::restore_carried(tunnel);
        return;
    }
    dpm::label_wait(tunnel);
    (void)dpm_mpls_ftn_add_sync_send(&tunnel);
    DPM_PLAIN(
        "dpm_mpls_arp_del_msg::dpm_hw_driver_mpls_ftn_del OK and ftn_entry has been added to pend.\n\r");
}

void del_ilm(dpm_ilm &ilm) {
    if (const int result = dpm::label_withdrawn(ilm, dpm_hw_driver_mpls_ilm_del(&ilm))) {
        DPM_PLAIN("dpm_mpls_arp_del_msg::delete ilm failed! ret=%d\n\r", result);
        return;
    }
    dpm::label_wait(ilm);
    (void)dpm_mpls_ilm_add_sync_send(&ilm);
    DPM_PLAIN("dpm_mpls_arp_del_msg::delete ilm ok and ilm_entry has been added to pend.\n\r");
}

// A waiting or programmed FTN of a kind over a neighbour.
bool is_driven(const dpm_ftn &ftn, bool is_vpn, const dpm_host_entry &host) {
    return (ftn.vrf_id != 0) == is_vpn && ftn.tunnel_ip_type == DPM_FAMILY_IPV4 &&
           host.vrf == ftn_vrf;
}

bool is_driven(const dpm_ilm &ilm, const dpm_host_entry &host) {
    return ilm.is_egress == 0 && ilm.tunnel_ip_type == DPM_FAMILY_IPV4 && ilm.vrf_id == host.vrf;
}

dpm_prefix address_of(const dpm_host_entry &host) { // zero-padded, as label entries have theirs
    return dpm::host_prefix(DPM_FAMILY_IPV4, host.ip.address);
}

template <class Add> void add_ftns(bool is_vpn, const dpm_host_entry &host, Add add) {
    dpm::each_waiting_over<ftn_kind>(address_of(host).address, [&](dpm_ftn &ftn) {
        if (is_driven(ftn, is_vpn, host))
            add(ftn, host);
    });
}

template <class Visit> void programmed_ftns(bool is_vpn, const dpm_host_entry &host, Visit visit) {
    dpm::each_over<ftn_kind>(address_of(host).address, [&](dpm_ftn &ftn) {
        if (is_driven(ftn, is_vpn, host) && ftn.flags == DPM_LABEL_PROGRAMMED)
            visit(ftn);
    });
}

template <class Entry> const dpm_host_entry *neighbour_of(const Entry &waiting, std::uint32_t vrf) {
    if (waiting.tunnel_ip_type != DPM_FAMILY_IPV4)
        return nullptr;
    return dpm::find_label_neighbour(vrf, DPM_FAMILY_IPV4, waiting.tunnel_nhop, 0);
}

void ask_for_ftns(bool is_vpn) {
    for (dpm_ftn &ftn : dpm::pend_ftns().erasable()) {
        const dpm_host_entry *host = neighbour_of(ftn, ftn_vrf);
        if (host != nullptr && is_driven(ftn, is_vpn, *host))
            is_vpn ? add_vpn(ftn, *host) : add_tunnel(ftn, *host);
    }
}

} // namespace

void dpm::labels_ask() {
    ask_for_ftns(false);
    ask_for_ftns(true);
    for (dpm_ilm &ilm : pend_ilms().erasable()) {
        const dpm_host_entry *host = neighbour_of(ilm, ilm.vrf_id);
        if (host != nullptr && is_driven(ilm, *host))
            add_ilm(ilm, *host);
    }
}

int dpm_mpls_vpn_ftn_proc_for_arp(std::uint32_t event, const dpm_host_entry *host) {
    if (host == nullptr)
        return dpm::null_parameter();
    if (event == DPM_HOST_ADDED) {
        add_ftns(true, *host, add_vpn);
        programmed_ftns(false, *host, add_carried);
    } else if (event == DPM_HOST_DELETED) {
        programmed_ftns(true, *host, del_vpn);
    }
    return 0;
}

int dpm_mpls_arp_add_msg(const dpm_host_entry *host) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (host == nullptr)
        return dpm::null_parameter();
    DPM_PLAIN(
        "dpm_mpls_arp_add_msg:: arp add ip:%d.%d.%d.%d list_empty_ftn=%d list_empty_ilm=%d\n\r",
        DPM_IPV4_OF(host->ip.address), dpm::pend_ftns().empty(), dpm::pend_ilms().empty());
    add_ftns(false, *host, add_tunnel);
    (void)dpm_mpls_vpn_ftn_proc_for_arp(DPM_HOST_ADDED, host);
    dpm::each_waiting_over<ilm_kind>(address_of(*host).address, [&](dpm_ilm &ilm) {
        if (is_driven(ilm, *host))
            add_ilm(ilm, *host);
    });
    return 0;
}

int dpm_mpls_arp_del_msg(const dpm_host_entry *host) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (host == nullptr)
        return dpm::null_parameter();
    DPM_PLAIN("dpm_mpls_arp_del_msg:: arp del ip:%d.%d.%d.%d\n\r", DPM_IPV4_OF(host->ip.address));
    (void)dpm_mpls_vpn_ftn_proc_for_arp(DPM_HOST_DELETED, host);
    programmed_ftns(false, *host, [&](dpm_ftn &tunnel) { del_tunnel(tunnel, *host); });
    dpm::each_over<ilm_kind>(address_of(*host).address, [&](dpm_ilm &ilm) {
        if (is_driven(ilm, *host) && ilm.flags == DPM_LABEL_PROGRAMMED)
            del_ilm(ilm);
    });
    return 0;
}

int dpm_mpls_ftn_arp_pro(const dpm_host_entry *host, std::uint32_t event) {
    if (host == nullptr)
        return dpm::null_parameter();
    if (host->ip.family == DPM_FAMILY_IPV6)
        return -1;
    if (event == DPM_HOST_ADDED)
        (void)dpm_mpls_arp_add_msg(host);
    else if (event == DPM_HOST_DELETED)
        (void)dpm_mpls_arp_del_msg(host);
    return 0;
}
