// FTN requests of the routing suite: a prefix is reached by labels over a neighbour.
//
// A tunnel (VRF 0) is programmed when its neighbour is resolved, and waits otherwise, also when the
// chip refuses it or will not let the IP route of the prefix go.  A VPN route (other VRFs) rides on
// the tunnel to its VPN next hop: it takes the tunnel's label, is refused without a tunnel, is
// programmed only while a tunnel to that end is, and leaves the chip before the tunnel does; the
// suite tells it again behind a tunnel that changed.
#include "dpm_l3vpn_ftn.h"

#include "dpm_bridge.h"
#include "dpm_l3vpn_chip.h"
#include "dpm_l3vpn_destination.h"
#include "dpm_trace.h"
#include "dpm_vpn_encaps.h"
#include "dpm_vpn_l2vpn.h"

namespace {

bool is_vpn(const dpm_ftn &ftn) {
    return ftn.vrf_id != 0;
}

// Whose label path pseudowires may follow.
bool is_ipv4_tunnel(const dpm_ftn &ftn) {
    return !is_vpn(ftn) && ftn.ip_type == DPM_FAMILY_IPV4;
}

void copy_address(std::uint8_t *to, const std::uint8_t *address, std::uint32_t family) {
    std::memcpy(to, address, family == DPM_FAMILY_IPV4 ? 4 : 16);
}

// The request as an entry; a VPN route's tunnel is found later.
dpm_ftn image_of(const dpm_ftn_msg &request) {
    dpm_ftn image = {};
    image.ftn_ix = request.ftn_ix;
    image.owner = request.owner;
    image.ip_type =
        dpm::is_known_family(request.family) ? static_cast<std::uint8_t>(request.family) : 0;
    copy_address(image.fec_prefix, request.fec_prefix, image.ip_type);
    image.prefixlen = request.prefixlen;
    image.tunnel_label = request.tunnel_label;
    image.tunnel_ip_type = request.tunnel_ip_type;
    copy_address(image.tunnel_nhop, request.tunnel_nhop, image.tunnel_ip_type);
    image.vrf_id = request.vrf_id;
    image.vpn_label = request.vpn_label;
    image.vpn_nhop_af = request.vpn_nhop_af;
    image.ftn_type = request.ftn_type;
    image.pro_type = request.pro_type;
    return image;
}

bool is_sound(const dpm_ftn &image, const dpm::call_site &caller) {
    if (dpm::is_known_family(image.ip_type) && dpm::is_known_family(image.tunnel_ip_type) &&
        (!is_vpn(image) || dpm::is_known_family(image.vpn_nhop_af)))
        return true;
    DPM_LOG_FROM(caller, "%s %d::iptype = %d tunnel_ip_type %d vpn_nhop_af %d is err!\r\n",
                 image.ip_type, image.tunnel_ip_type, image.vpn_nhop_af);
    return false;
}

// A VPN route has its tunnel's label and prefix length.  False when there is no tunnel.
bool take_tunnel(dpm_ftn &image, const dpm_ftn_msg &request) {
    copy_address(image.vpn_nhop, request.vpn_nhop, image.vpn_nhop_af);
    const dpm_ftn *tunnel = dpm::first_tunnel_to(image.vpn_nhop_af, image.vpn_nhop);
    if (tunnel == nullptr)
        return false;
    image.tunnel_label = tunnel->tunnel_label;
    image.vpn_prefixlen = tunnel->prefixlen;
    return true;
}

dpm::address_text text_of(std::uint8_t family, const std::uint8_t *address) {
    return dpm::address_text(dpm::host_prefix(family, address));
}

void log_request(const dpm_ftn &image, const dpm_ftn_msg &request) {
    if (image.ip_type == DPM_FAMILY_IPV4)
        DPM_PLAIN(
            "dpm_mpls_ftn_add_msg:v4:ftn_ix=%d fec_addr=%d.%d.%d.%d tunnel_nhop=%d.%d.%d.%d \t\t\tvpn_nhop=%d.%d.%d.%d list_empty=%d vrf_id=%d tunnel_ip_type=%d tunnel_label=%d vpn_label=%d\r\n",
            image.ftn_ix, DPM_IPV4_OF(image.fec_prefix), DPM_IPV4_OF(image.tunnel_nhop),
            DPM_IPV4_OF(request.vpn_nhop), dpm::pend_ftns().empty(), image.vrf_id,
            image.tunnel_ip_type, image.tunnel_label, image.vpn_label);
    else
        DPM_PLAIN(
            "dpm_mpls_ftn_add_msg:v6:ftn_ix=%d fec_addr=%s tunnel_nhop=%s \t\t\tvpn_nhop=%s list_empty=%d vrf_id=%d tunnel_ip_type=%d tunnel_label=%d vpn_label=%d\r\n",
            image.ftn_ix, text_of(image.ip_type, image.fec_prefix).c_str(),
            text_of(image.tunnel_ip_type, image.tunnel_nhop).c_str(),
            text_of(image.vpn_nhop_af, request.vpn_nhop).c_str(), dpm::pend_ftns().empty(),
            image.vrf_id, image.tunnel_ip_type, image.tunnel_label, image.vpn_label);
}

void log_present(const dpm_ftn &entry, const dpm_ftn &image) {
    DPM_PLAIN(
        "dpm_mpls_ftn_add_msg::ftn_entry already exist! vrf_id=%d \t\t\tflag=%d tunnel:%d:%d vpn:%d:%d tunnel_nhop_af=%d vpn_nhop_af=%d\r\n",
        entry.vrf_id, entry.flags, entry.tunnel_label, image.tunnel_label, entry.vpn_label,
        image.vpn_label, entry.tunnel_ip_type, entry.vpn_nhop_af);
}

// An entry that is told again leaves the chip first.  0, or the driver's answer: then it stays as it
// was.
int take_out(dpm_ftn &entry) {
    if (is_vpn(entry)) {
        const bool is_out = entry.stale != 0 || entry.flags != DPM_LABEL_PROGRAMMED;
        entry.stale = 0;
        return is_out ? 0 : dpm::label_withdrawn(entry, dpm_mpls_tunnel_update(&entry));
    }
    if (is_ipv4_tunnel(entry))
        (void)dpm_mpls_ftn_update_for_l2vpn_del(entry.tunnel_nhop, entry.fec_prefix);
    (void)dpm_mpls_ftn_update_for_vpnv4_del(&entry);
    if (entry.flags != DPM_LABEL_PROGRAMMED)
        return 0;
    const int result = dpm::label_withdrawn(entry, dpm_mpls_tunnel_update(&entry));
    if (result != 0)
        dpm::restore_carried(entry);
    return result;
}

int wait(dpm_ftn &entry, int result) {
    DPM_PLAIN("dpm_mpls_ftn_add_msg::add ftn to pend\n\r");
    dpm::label_wait(entry);
    return result;
}

int program_tunnel(dpm_ftn &entry, std::uint32_t ifindex, const dpm::call_site &caller) {
    const dpm_host_entry *host =
        dpm::find_label_neighbour(0, entry.tunnel_ip_type, entry.tunnel_nhop, ifindex);
    if (host == nullptr) {
        DPM_PLAIN("dpm_mpls_ftn_add_msg::ftn add, arp=%d.%d.%d.%d not found, need to add pend!\n\r",
                  DPM_IPV4_OF(entry.tunnel_nhop));
        return wait(entry, 0);
    }
    dpm::take_neighbour(entry, *host);
    if (const int result = dpm::take_destination(entry)) {
        DPM_PLAIN("dpm_mpls_ftn_add_msg::delete fec route failed, need to add pend! ret=%d\n\r",
                  result);
        entry.sdk_result = result;
        return wait(entry, result);
    }
    if (const int result = dpm::label_program(entry)) {
        DPM_PLAIN("dpm_mpls_ftn_add_msg::add to sdk failed, need to add pend! ret=%d\n\r", result);
        dpm::return_destination(entry);
        return wait(entry, result);
    }
    DPM_LOG_FROM(caller, "%s:%d mpls_ftn_add_to_sdk OK!  nhid=%d tunnel_id=%d \r\n", entry.nhid,
                 entry.tunnel_id);
    return 0;
}

// The chip knows the tunnel: no neighbour is named.
int program_vpn(dpm_ftn &entry) {
    DPM_PLAIN(
        "dpm_mpls_ftn_add_msg::fec_prefix=%s tunnel_nhop=%s prefixlen=%d vpn_nhop_af=%d tunnel_label=%d vpn_label=%d\n\r",
        text_of(entry.ip_type, entry.fec_prefix).c_str(),
        text_of(entry.tunnel_ip_type, entry.tunnel_nhop).c_str(), entry.prefixlen,
        entry.vpn_nhop_af, entry.tunnel_label, entry.vpn_label);
    if (!dpm::is_carried(entry))
        return wait(entry, 0);
    const int result = dpm::label_program(entry);
    if (result == 0)
        DPM_PLAIN("mpls_ftn_add_to_sdk OK! nhid=%d, tunnel_id=%d \r\n", entry.nhid,
                  entry.tunnel_id);
    else // deliberate: it does not wait, the suite tells it again
        DPM_PLAIN("dpm_mpls_ftn_add_msg::add to sdk failed! ret=%d\n\r", result);
    return result;
}

// The tunnel's path goes: pseudowires and VPN routes leave it first.
void leave_tunnel(dpm_ftn &tunnel) {
    if (is_ipv4_tunnel(tunnel))
        (void)dpm_l2vpn_respond_arp_or_route_or_ftn_del(tunnel.tunnel_nhop, tunnel.fec_prefix);
    (void)dpm_mpls_ftn_update_for_vpnv4_del(&tunnel);
}

void log_delete(const dpm_ftn &key, const dpm_ftn_msg &request) {
    DPM_PLAIN(
        "dpm_mpls_ftn_del_msg::fec_prefix=%d.%d.%d.%d vrf_id=%d prefixlen=%d tunnel_nhop=%d.%d.%d.%d vpn_nhop=%d.%d.%d.%d\n\r",
        DPM_IPV4_OF(key.fec_prefix), key.vrf_id, key.prefixlen, DPM_IPV4_OF(key.tunnel_nhop),
        DPM_IPV4_OF(request.vpn_nhop));
}

} // namespace

namespace dpm {

void restore_carried(dpm_ftn &tunnel) {
    each_carried(tunnel, [](dpm_ftn &vpn) {
        if (!record_of(vpn).went_with_tunnel)
            return;
        vpn.stale = 0;
        (void)label_program(vpn);
        (void)dpm_mpls_ftn_add_sync_send(&vpn);
    });
    settle_pseudowires(tunnel);
}

void settle_pseudowires(const dpm_ftn &tunnel) {
    if (is_ipv4_tunnel(tunnel))
        (void)dpm_l2vpn_respond_arp_or_route_or_ftn_add(tunnel.tunnel_nhop, tunnel.fec_prefix);
}

} // namespace dpm

int dpm_mpls_ftn_add_msg(const dpm_ftn_msg *request) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    dpm_ftn image = image_of(*request);
    if (!is_sound(image, DPM_CALL_SITE))
        return -1;
    dpm_ftn *entry = dpm::ftns().find(image);
    if (entry == nullptr && !dpm::has_label_room())
        return -1;
    log_request(image, *request);
    if (is_vpn(image) && !take_tunnel(image, *request))
        return -1;
    const bool is_claim = entry == nullptr && !dpm::is_claimed_by_label(image);
    if (entry == nullptr) {
        entry = dpm_mpls_ftn_add(image);
        if (entry == nullptr) {
            DPM_PLAIN("dpm_mpls_ftn_add_msg::add dpm_ftn failed!\r\n");
            return 0;
        }
    } else {
        log_present(*entry, image);
        if (const int result = take_out(*entry))
            return result;
        dpm::label_replace(*entry, image);
    }
    const int result = is_vpn(*entry) ? program_vpn(*entry)
                                      : program_tunnel(*entry, request->ifindex, DPM_CALL_SITE);
    (void)dpm_mpls_ftn_add_sync_send(entry);
    dpm::settle_pseudowires(*entry);
    if (is_claim)
        dpm::tell_of_claim(image);
    return result;
}

int dpm_mpls_ftn_del_msg(const dpm_ftn_msg *request) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    const dpm_ftn key = image_of(*request);
    log_delete(key, *request);
    dpm_ftn *entry = dpm::ftns().find(key);
    if (entry == nullptr) {
        DPM_PLAIN(
            "dpm_mpls_ftn_del_msg::can not find ftn! \t\t\tfec_prefix=%d.%d.%d.%d vrf_id=%d prefixlen=%d tunnel_nhop=%d.%d.%d.%d vpn_nhop=%d.%d.%d.%d\n\r",
            DPM_IPV4_OF(key.fec_prefix), key.vrf_id, key.prefixlen, DPM_IPV4_OF(key.tunnel_nhop),
            DPM_IPV4_OF(request->vpn_nhop));
        return -1;
    }
    if (!is_vpn(*entry))
        leave_tunnel(*entry);
    if (entry->flags == DPM_LABEL_PROGRAMMED) {
        DPM_PLAIN("dpm_mpls_ftn_del_msg::\tnhid=%d, tunnel_id=%d\r\n", entry->nhid,
                  entry->tunnel_id);
        if (const int result = dpm::label_withdrawn(*entry, dpm_hw_driver_mpls_ftn_del(entry))) {
            DPM_PLAIN("dpm_mpls_ftn_del_msg::delete ftn to sdk failed! ret=%d \n\r", result);
            if (!is_vpn(*entry))
                dpm::restore_carried(*entry);
            return result;
        }
    }
    dpm::leave_destination(*entry);
    (void)dpm_mpls_ftn_del_sync_send(entry);
    (void)dpm_mpls_ftn_del(entry);
    dpm::settle_pseudowires(key); // a tunnel of another length may end there as well
    if (!dpm::is_claimed_by_label(key))
        dpm::tell_of_claim(key);
    return 0;
}

int dpm_mpls_ftn_update_for_vpnv4_del(dpm_ftn *tunnel) {
    if (tunnel == nullptr)
        return dpm::null_parameter();
    dpm::each_carried(*tunnel, [](dpm_ftn &vpn) {
        record_of(vpn).went_with_tunnel = false;
        if (vpn.flags != DPM_LABEL_PROGRAMMED)
            return;
        DPM_PLAIN(
            "dpm_mpls_ftn_update_for_vpnv4_del: get ready to del vrf ftn. nhid=%d, tunnel_id=%d \n\r",
            vpn.nhid, vpn.tunnel_id);
        if (const int result = dpm::label_withdrawn(vpn, dpm_hw_driver_mpls_ftn_del(&vpn))) {
            DPM_PLAIN(
                "dpm_mpls_ftn_update_for_vpnv4_del: del vrf ftn::del from sdk failed, stay in active, ret=%d\n\r",
                result);
            return;
        }
        // deliberate: not on the pend list; the suite tells it again, and the mark says that it is
        // out of the chip already
        vpn.stale = 1;
        vpn.flags = DPM_LABEL_WAITING;
        record_of(vpn).went_with_tunnel = true;
        (void)dpm_mpls_ftn_add_sync_send(&vpn);
    });
    return 0;
}
