// Label entries as the chip is asked for them.
//
// A request is filled in one place for add and delete, so that a delete names what the add put
// there; the add alone says what becomes of TTL and EXP.  The settings are the host's and are read
// anew for each request.
#include "dpm_vpn_encaps.h"

#include "dpm_address.h"
#include "dpm_driver.h"
#include "dpm_trace.h"
#include "platform/nsm.h"

#include <cstring>
#include <span>

namespace {

constexpr std::uint8_t full_ttl = 255;

// Swap labels that mean that the packet leaves without this label.
constexpr std::uint32_t explicit_null = 0;
constexpr std::uint32_t implicit_null = 3;

using labels_of_request = std::span<dal_label>;

void put_label(dal_label &slot, std::uint32_t label, std::uint8_t ttl = 0) {
    slot.label = label;
    slot.ttl = ttl;
}

void set_ttl(labels_of_request labels, std::uint8_t mode, std::uint8_t ttl) {
    for (dal_label &slot : labels) {
        slot.ttl_mode = mode;
        slot.ttl = ttl;
    }
}

void set_exp(labels_of_request labels, std::uint8_t type, std::uint8_t exp) {
    for (dal_label &slot : labels) {
        slot.exp_type = type;
        slot.exp = exp;
    }
}

void apply_exp_setting(labels_of_request labels) {
    switch (g_mpls_exp_module) {
    case 0:
        set_exp(labels, DAL_EXP_COPY, 0);
        break;
    case 1:
    case 2:
        set_exp(labels, DAL_EXP_SET, static_cast<std::uint8_t>(g_mpls_exp_value));
        break;
    default: // as the chip takes it
        break;
    }
}

void apply_ftn_policy(labels_of_request labels) {
    if (g_mpls_ttl_module == 1)
        set_ttl(labels, DAL_TTL_LESS, 0);
    else if (g_mpls_ttl_module == 0)
        set_ttl(labels, DAL_TTL_SET, full_ttl);
    apply_exp_setting(labels);
}

// deliberate: the TTL setting does not count here, and a pop without lookup says nothing of TTL and
// EXP
void apply_ilm_policy(dal_ilm_request &request) {
    if (request.action == DAL_ILM_SWAP)
        set_ttl(request.labels, DAL_TTL_LESS, 1);
    else if (request.lookup == 1)
        set_ttl(request.labels, DAL_TTL_LESS, 0);
    else
        return;
    apply_exp_setting(request.labels);
}

void place_ftn_labels(dal_ftn_request &request, const dpm_ftn &ftn) {
    const bool is_vpn = ftn.vrf_id != 0;
    put_label(request.labels[DAL_FTN_TUNNEL], ftn.tunnel_label, full_ttl);
    put_label(request.labels[DAL_FTN_VPN], is_vpn ? ftn.vpn_label : DAL_NO_LABEL,
              is_vpn ? full_ttl : 0);
}

void place_ilm_labels(dal_ilm_request &request, const dpm_ilm &ilm) {
    const bool is_vpn = ilm.vrf_id != 0;
    put_label(request.labels[DAL_ILM_TUNNEL_IN], is_vpn ? DAL_NO_LABEL : ilm.in_label);
    put_label(request.labels[DAL_ILM_TUNNEL_OUT], is_vpn ? DAL_NO_LABEL : ilm.swap_label, full_ttl);
    put_label(request.labels[DAL_ILM_VPN_IN], is_vpn ? ilm.in_label : DAL_NO_LABEL, full_ttl);
    put_label(request.labels[DAL_ILM_VPN_OUT], is_vpn ? ilm.swap_label : DAL_NO_LABEL);
}

void put_address(std::uint8_t *to, const std::uint8_t *address, std::uint8_t family) {
    std::memcpy(to, address, family == DPM_FAMILY_IPV4 ? 4 : 16);
}

// The neighbour that either request names.
template <class Request, class Entry> void put_neighbour(Request &request, const Entry &entry) {
    request.port_type = entry.port_type == DPM_PORT_LOGICAL ? DPM_PORT_LOGICAL : DPM_PORT_PHYSICAL;
    request.port_id = entry.out_port;
    std::memcpy(request.mac, entry.mac, sizeof request.mac);
    request.vlan = static_cast<std::uint16_t>(entry.svlan);
    request.vrf = static_cast<std::uint16_t>(entry.vrf_id);
}

// A tunnel stands in the tunnel's place itself; of a VPN route that is its remote end.
dal_ftn_request request_of(const dpm_ftn &ftn) {
    const bool is_vpn = ftn.vrf_id != 0;
    dal_ftn_request request = {};
    request.flag = 1;
    put_neighbour(request, ftn);
    request.tunnel_family = ftn.vpn_nhop_af;
    request.tunnel_prefix_len = is_vpn ? ftn.vpn_prefixlen : ftn.prefixlen;
    put_address(request.tunnel_address, is_vpn ? ftn.vpn_nhop : ftn.fec_prefix, ftn.vpn_nhop_af);
    request.vpn_family = ftn.ip_type;
    if (is_vpn) {
        request.vpn_prefix_len = ftn.prefixlen;
        put_address(request.vpn_address, ftn.fec_prefix, ftn.ip_type);
    }
    place_ftn_labels(request, ftn);
    return request;
}

dal_ilm_request request_of(const dpm_ilm &ilm) {
    const bool is_swap =
        ilm.is_egress == 0 && ilm.swap_label != explicit_null && ilm.swap_label != implicit_null;
    dal_ilm_request request = {};
    request.lookup = ilm.is_egress != 0;
    request.label_type = ilm.vrf_id == 0 ? DAL_ILM_TUNNEL_LABEL : DAL_ILM_VPN_LABEL;
    request.action = is_swap ? DAL_ILM_SWAP : DAL_ILM_POP;
    put_neighbour(request, ilm);
    request.family = ilm.tunnel_ip_type;
    request.prefix_len = ilm.prefixlen;
    put_address(request.address, ilm.fec_prefix, ilm.tunnel_ip_type);
    request.address_family = ilm.ip_type;
    place_ilm_labels(request, ilm);
    return request;
}

void log_ftn(const dpm_ftn &ftn, const dal_ftn_request &request) {
    const dal_label &tunnel = request.labels[DAL_FTN_TUNNEL], &vpn = request.labels[DAL_FTN_VPN];
    const std::uint8_t *mac = request.mac;
    DPM_PLAIN(
        "dpm_hw_driver_mpls_ftn_add::nhid=%d tunnel_id=%d port_type=%d out_port=%d out_vlan=%d\n\r",
        ftn.nhid, ftn.tunnel_id, request.port_type, request.port_id, request.vlan);
    DPM_PLAIN("tunnel label: label=%d, exp=%d, ttl=%d, exp_type=%d, ttl_mode=%d \n\r", tunnel.label,
              tunnel.exp, tunnel.ttl, tunnel.exp_type, tunnel.ttl_mode);
    DPM_PLAIN("vpn label: label=%d, exp=%d, ttl=%d, exp_type=%d, ttl_mode=%d \n\r", vpn.label,
              vpn.exp, vpn.ttl, vpn.exp_type, vpn.ttl_mode);
    DPM_PLAIN("vpn_nexthop=%d.%d.%d.%d fec=%d.%d.%d.%d mac=%x:%x:%x:%x:%x:%x\n\r",
              DPM_IPV4_OF(ftn.vpn_nhop), DPM_IPV4_OF(ftn.fec_prefix), mac[0], mac[1], mac[2],
              mac[3], mac[4], mac[5]);
    DPM_PLAIN("tunnel ip info:mask_len=%d \n\r", request.tunnel_prefix_len);
    if (request.tunnel_family == DPM_FAMILY_IPV4)
        DPM_PLAIN("ipv4 ip=%x \n\r", dpm::address_word(request.tunnel_address));
    DPM_PLAIN("vpn ip info: vrf_id=%d, mask_len=%d \n\r", request.vrf, request.vpn_prefix_len);
}

#define LABEL_OF(slot) (slot).label, (slot).ttl_mode, (slot).ttl, (slot).exp_type, (slot).exp

void log_ilm(const dal_ilm_request &request, int result) {
    const dal_label *labels = request.labels;
    DPM_PLAIN(
        "dpm_hw_driver_mpls_ilm_add::ret=%d t_lbl=%d, lbl_type=%d action=%d is_lkup=%d t_in=%d:%d:%d:%d:%d t_out=%d:%d:%d:%d:%d vpn_in=%d:%d:%d:%d:%d vpn_out=%d:%d:%d:%d:%d (label:ttl_mode:ttl:exp_type:exp) exp_module=%d exp_value=%d \n\r",
        result, labels[DAL_ILM_TUNNEL_IN].label, request.label_type, request.action, request.lookup,
        LABEL_OF(labels[DAL_ILM_TUNNEL_IN]), LABEL_OF(labels[DAL_ILM_TUNNEL_OUT]),
        LABEL_OF(labels[DAL_ILM_VPN_IN]), LABEL_OF(labels[DAL_ILM_VPN_OUT]), g_mpls_exp_module,
        g_mpls_exp_value);
}

} // namespace

int dpm_hw_driver_mpls_ftn_add(const dpm_ftn *ftn, std::uint32_t *nhid, std::uint32_t *tunnel_id,
                               std::uint32_t slot_bits) {
    if (ftn == nullptr || nhid == nullptr || tunnel_id == nullptr) {
        ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_ERROR,
                   "dpm_hw_driver_mpls_ftn_add::input para null !");
        return -1;
    }
    dal_ftn_request request = request_of(*ftn);
    apply_ftn_policy(request.labels);
    log_ftn(*ftn, request);
    return dpm_driver_mpls_ftn_add(&request, nhid, tunnel_id, slot_bits);
}

int dpm_hw_driver_mpls_ftn_del(const dpm_ftn *ftn) {
    if (ftn == nullptr)
        return dpm::null_parameter();
    dal_ftn_request request = request_of(*ftn);
    request.labels[DAL_FTN_VPN].ttl = full_ttl;
    if (ftn->vrf_id != 0)
        DPM_PLAIN("dpm_hw_driver_mpls_ftn_del::info->intf.vpn_nexthop :%s\r\n",
                  dpm::address_text(dpm::host_prefix(ftn->vpn_nhop_af, ftn->vpn_nhop)).c_str());
    return dpm_driver_mpls_ftn_del(&request, DPM_SLOT_ALL_BITS);
}

int dpm_hw_driver_mpls_ilm_add(const dpm_ilm *ilm, std::uint32_t *nhid, std::uint32_t *tunnel_id,
                               std::uint32_t slot_bits) {
    if (ilm == nullptr || nhid == nullptr || tunnel_id == nullptr) {
        ulogPrintf(g_dpm_global.module_id, DPM_LEVEL_ERROR,
                   "dpm_hw_driver_mpls_ilm_add::input para null !");
        return -1;
    }
    dal_ilm_request request = request_of(*ilm);
    DPM_PLAIN(" vrf_id=%d vpn_lbl=%d action=%d is_lkup=%d \n\r", request.vrf,
              request.labels[DAL_ILM_VPN_IN].label, request.action, request.lookup);
    apply_ilm_policy(request);
    const int result = dpm_driver_mpls_ilm_add(&request, nhid, tunnel_id, slot_bits);
    log_ilm(request, result);
    return result;
}

int dpm_hw_driver_mpls_ilm_del(const dpm_ilm *ilm) {
    if (ilm == nullptr)
        return dpm::null_parameter();
    const dal_ilm_request request = request_of(*ilm);
    return dpm_driver_mpls_ilm_del(&request, DPM_SLOT_ALL_BITS);
}

int dpm_hw_driver_mpls_if_add(std::uint32_t vlan, std::uint32_t slot_bits) {
    const int result = dpm_driver_interface_mpls_enable(vlan, 1, slot_bits);
    DPM_PLAIN("dpm_hw_driver_mpls_if_add::dpm_driver_interface_mpls_enable ret=%d\n\r", result);
    return result;
}

int dpm_hw_driver_mpls_if_del(std::uint32_t vlan) {
    const int result = dpm_driver_interface_mpls_enable(vlan, 0, DPM_SLOT_ALL_BITS);
    // deliberate: the text of the other one; those who watch the logs know it so
    DPM_PLAIN("dpm_hw_driver_mpls_if_add::dpm_driver_interface_mpls_enable ret=%d\n\r", result);
    return result;
}
