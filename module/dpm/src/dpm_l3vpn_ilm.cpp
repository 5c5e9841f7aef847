// ILM requests of the routing suite: what becomes of packets that come with a label.
//
// An entry that passes packets on is programmed when its neighbour is resolved, and waits otherwise;
// an egress needs none.  One that the chip refuses does not wait: the suite tells it again.
#include "dpm_l3vpn.h"

#include "dpm_bridge.h"
#include "dpm_l3vpn_chip.h"
#include "dpm_trace.h"
#include "dpm_vpn_encaps.h"

namespace {

dpm_ilm image_of(const dpm_ilm_msg &request) {
    dpm_ilm image = {};
    image.ilm_ix = request.ilm_ix;
    image.in_label = request.in_label;
    image.vrf_id = request.vrf_id;
    image.ip_type =
        dpm::is_known_family(request.family) ? static_cast<std::uint8_t>(request.family) : 0;
    image.prefixlen = request.prefixlen;
    image.protocol = request.protocol;
    image.opcode = request.opcode;
    std::memcpy(image.fec_prefix, request.fec_prefix, image.ip_type == DPM_FAMILY_IPV4 ? 4 : 16);
    image.tunnel_ip_type = request.tunnel_ip_type;
    std::memcpy(image.tunnel_nhop, request.tunnel_nhop,
                image.tunnel_ip_type == DPM_FAMILY_IPV4 ? 4 : 16);
    image.in_ifindex = request.in_ifindex;
    image.out_ifindex = request.out_ifindex;
    image.swap_label = request.swap_label;
    image.word = request.word;
    image.tunnel_label = request.tunnel_label;
    image.tnl_ix = request.tnl_ix;
    image.is_egress = request.is_egress;
    dpm::label_name_interface(image);
    return image;
}

bool is_sound(const dpm_ilm &image, const dpm::call_site &caller) {
    if (dpm::is_known_family(image.ip_type) &&
        (image.is_egress != 0 || dpm::is_known_family(image.tunnel_ip_type)))
        return true;
    DPM_LOG_FROM(caller, "%s %d::iptype = %d tunnel_ip_type %d is err!\r\n", image.ip_type,
                 image.tunnel_ip_type);
    return false;
}

// An entry that is told again leaves the chip first.  0, or the driver's answer: then it stays as it
// was.
int retell(dpm_ilm &entry, const dpm_ilm &image) {
    DPM_PLAIN(
        "dpm_mpls_ilm_add_msg::ilm_entry already exist! flags=%d in_label:%d:%d swap:%d:%d tunnel_label:%d:%d\n\r",
        entry.flags, entry.in_label, image.in_label, entry.swap_label, image.swap_label,
        entry.tunnel_label, image.tunnel_label);
    if (entry.flags == DPM_LABEL_PROGRAMMED)
        if (const int result = dpm::label_withdrawn(entry, dpm_mpls_ilm_update_for_del(&entry)))
            return result;
    if (image.is_egress != 0) // it waits for no neighbour any more
        dpm::unpend(entry);
    dpm::label_replace(entry, image);
    return 0;
}

// False when the entry waits for its neighbour.
bool find_neighbour(dpm_ilm &entry) {
    const dpm_host_entry *host = dpm::find_label_neighbour(entry.vrf_id, entry.tunnel_ip_type,
                                                           entry.tunnel_nhop, entry.out_ifindex);
    if (host != nullptr) {
        dpm::take_neighbour(entry, *host);
        return true;
    }
    entry.sdk_result = 0;
    DPM_PLAIN("dpm_mpls_ilm_add_msg:: arp not found, need to add pend!\n\r");
    DPM_PLAIN("dpm_mpls_ilm_add_msg::add ilm to pend\n\r");
    dpm::label_wait(entry);
    return false;
}

int program(dpm_ilm &entry) {
    if (entry.is_egress == 0 && !find_neighbour(entry))
        return 0;
    const int result = dpm::label_program(entry);
    if (result == 0)
        DPM_PLAIN(" dpm_mpls_ilm_add_msg:: add ilm to driver  OK! nhid=%d, tunnel_id=%d \r\n",
                  entry.nhid, entry.tunnel_id);
    return result;
}

} // namespace

int dpm_mpls_ilm_add_msg(const dpm_ilm_msg *request) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    const dpm_ilm image = image_of(*request);
    if (!is_sound(image, DPM_CALL_SITE))
        return -1;
    dpm_ilm *entry = dpm::ilms().find(image);
    if (entry == nullptr) {
        if (!dpm::has_label_room())
            return -1;
        entry = dpm_mpls_ilm_add(image);
        if (entry == nullptr) {
            DPM_PLAIN("dpm_mpls_ilm_add_msg::add dpm_ilm failed!\n\r");
            return -1;
        }
    } else if (const int result = retell(*entry, image)) {
        return result;
    }
    const int result = program(*entry);
    (void)dpm_mpls_ilm_add_sync_send(entry);
    return result;
}

int dpm_mpls_ilm_del_msg(const dpm_ilm_msg *request) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (request == nullptr)
        return dpm::null_parameter();
    dpm_ilm key = {};
    key.in_label = request->in_label;
    dpm_ilm *entry = dpm::ilms().find(key);
    if (entry == nullptr) {
        DPM_PLAIN("dpm_mpls_ilm_lookup::can not find ilm! in_label=%d\n\r", request->in_label);
        return -1;
    }
    if (entry->flags == DPM_LABEL_PROGRAMMED)
        if (const int result = dpm::label_withdrawn(*entry, dpm_hw_driver_mpls_ilm_del(entry))) {
            DPM_PLAIN("dpm_mpls_ilm_del_msg::delete ilm to sdk failed! ret=%d\n\r", result);
            return result;
        }
    (void)dpm_mpls_ilm_del_sync_send(entry);
    return dpm_mpls_ilm_del(entry);
}

int dpm_mpls_oam_ipuc_ilm_enable() {
    return 0;
}
