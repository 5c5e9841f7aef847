// A label entry in the chip.
//
// sdk_result is the driver's last failure, cleared by a success.  Flags, ids and the pend list are
// changed together, here: an entry is programmed (1) exactly while the chip has it, and on the pend
// list only while it waits (2).
#include "dpm_l3vpn_chip.h"

#include "dpm_slot.h"
#include "dpm_trace.h"
#include "dpm_vpn_encaps.h"
#include "platform/nsm.h"

namespace {

constexpr std::uint32_t label_items = 12; // what the capacity is asked for

int chip_add(const dpm_ftn &ftn, std::uint32_t *nhid, std::uint32_t *tunnel_id) {
    return dpm_hw_driver_mpls_ftn_add(&ftn, nhid, tunnel_id, DPM_SLOT_ALL_BITS);
}
int chip_add(const dpm_ilm &ilm, std::uint32_t *nhid, std::uint32_t *tunnel_id) {
    return dpm_hw_driver_mpls_ilm_add(&ilm, nhid, tunnel_id, DPM_SLOT_ALL_BITS);
}

// What an entry keeps of its neighbour.
struct neighbour_part {
    std::uint8_t mac[DPM_MAC_BYTES];
    std::uint32_t svlan;
    std::uint32_t out_port;
    std::uint32_t host_word;
    std::uint32_t port_type;
};

neighbour_part part_of(const dpm_host_entry &host) {
    neighbour_part part = {};
    std::memcpy(part.mac, host.mac, sizeof part.mac);
    part.svlan = host.svlan;
    part.host_word = host.sdk_index;
    dpm::egress out;
    if (dpm::egress_of(host, out)) {
        part.port_type = out.port_type;
        part.out_port = out.port_id;
    }
    return part;
}

template <class Entry> void put_part(Entry &entry, const neighbour_part &part) {
    std::memcpy(entry.mac, part.mac, sizeof part.mac);
    entry.svlan = part.svlan;
    entry.out_port = part.out_port;
    entry.host_word = part.host_word;
    entry.port_type = part.port_type;
}

template <class Entry> void clear_ids(Entry &entry) {
    entry.nhid = 0;
    entry.tunnel_id = 0;
}

int pend_named(dpm_ftn &ftn) {
    return dpm_mpls_pend_ftn_add(&ftn);
}
int pend_named(dpm_ilm &ilm) {
    return dpm_mpls_pend_ilm_add(&ilm);
}

// The interface is that of the neighbour's VLAN; the suite may have none for a sub-VLAN.
void take_interface(dpm_ilm &ilm, const dpm_host_entry &host) {
    const std::uint32_t ifindex = ns_get_ifindex_by_vlanid(host.svlan);
    if (ifindex == 0)
        return;
    ilm.out_ifindex = ifindex;
    dpm::label_name_interface(ilm);
}
void take_interface(dpm_ftn &, const dpm_host_entry &) {} // an FTN names none

} // namespace

namespace dpm {

bool has_label_room() {
    // deliberate: exactly the capacity; a table that came over it from a peer card may still change
    if (dpm_mpls_vpn_item_check(label_items) != DPM_LABEL_CAPACITY)
        return true;
    DPM_PLAIN("Outer and inner items exceed max 4096!\r\n");
    return false;
}

const dpm_host_entry *find_label_neighbour(std::uint32_t vrf, std::uint32_t family,
                                           const std::uint8_t *nexthop, std::uint32_t ifindex) {
    const dpm_prefix ip = host_prefix(family, nexthop);
    return dpm_host_find_by_ip(vrf, &ip, ifindex);
}

template <class Entry> void take_neighbour(Entry &entry, const dpm_host_entry &host) {
    put_part(entry, part_of(host));
    take_interface(entry, host);
}

template <class Entry> int label_program(Entry &entry) {
    std::uint32_t nhid = 0, tunnel_id = 0;
    clear_ids(entry);
    const int result = chip_add(entry, &nhid, &tunnel_id);
    entry.sdk_result = result;
    if (result == 0) {
        entry.flags = DPM_LABEL_PROGRAMMED;
        entry.nhid = nhid;
        entry.tunnel_id = tunnel_id;
        unpend(entry);
    } else if (!is_pending(entry)) {
        entry.flags = DPM_LABEL_NEW;
    }
    return result;
}

template <class Entry> int label_program_over(Entry &entry, const dpm_host_entry &host) {
    const Entry before = entry;
    take_neighbour(entry, host);
    const int result = label_program(entry);
    if (result != 0) {
        entry = before; // no link of it has changed
        clear_ids(entry);
        entry.sdk_result = result;
    }
    return result;
}

template <class Entry> int label_withdrawn(Entry &entry, int result) {
    entry.sdk_result = result;
    if (result != 0)
        return result;
    entry.flags = DPM_LABEL_NEW;
    clear_ids(entry);
    return 0;
}

template <class Entry> void label_wait(Entry &entry) {
    entry.flags = DPM_LABEL_WAITING;
    clear_ids(entry);
    if (!is_pending(entry))
        (void)pend_named(entry);
}

#define DPM_FOR_LABELS(Entry)                                                                      \
    template void take_neighbour(Entry &, const dpm_host_entry &);                                 \
    template int label_program(Entry &);                                                           \
    template int label_program_over(Entry &, const dpm_host_entry &);                              \
    template int label_withdrawn(Entry &, int);                                                    \
    template void label_wait(Entry &);
DPM_FOR_LABELS(dpm_ftn)
DPM_FOR_LABELS(dpm_ilm)
#undef DPM_FOR_LABELS

bool has_programmed_tunnel(std::uint32_t family, const std::uint8_t *end, std::uint32_t length,
                           const dpm_ftn *but) {
    for (dpm_ftn *tunnel = first_tunnel_to(family, end); tunnel != nullptr;
         tunnel = next_tunnel_to(*tunnel))
        if (tunnel != but && tunnel->prefixlen == length && tunnel->flags == DPM_LABEL_PROGRAMMED)
            return true;
    return false;
}

bool is_carried(const dpm_ftn &vpn) {
    return has_programmed_tunnel(vpn.vpn_nhop_af, vpn.vpn_nhop, vpn.vpn_prefixlen, nullptr);
}

} // namespace dpm

int dpm_mpls_tunnel_update(const dpm_ftn *ftn) {
    if (ftn == nullptr)
        return dpm::null_parameter();
    DPM_PLAIN("dpm_mpls_tunnel_update: ftn del:dpm_ftn->fec_prefix=%s nhid=%d, tunnel_id=%d\n\r",
              dpm::address_text(dpm::host_prefix(ftn->ip_type, ftn->fec_prefix)).c_str(), ftn->nhid,
              ftn->tunnel_id);
    return dpm_hw_driver_mpls_ftn_del(ftn);
}

int dpm_mpls_ilm_update_for_del(const dpm_ilm *ilm) {
    if (ilm == nullptr)
        return dpm::null_parameter();
    return dpm_hw_driver_mpls_ilm_del(ilm);
}

std::uint32_t dpm_mpls_vpn_item_check(std::uint32_t what) {
    if (what != label_items)
        return 0;
    return g_dpm_vpn.ftn_tree.numnodes + g_dpm_vpn.ilm_tree.numnodes +
           g_dpm_vpn.vpws_vc_fib_tree.numnodes + g_dpm_vpn.vpws_vc_ilm_tree.numnodes +
           g_dpm_vpn.vpls_vc_fib_tree.numnodes + g_dpm_vpn.vpls_vc_ilm_tree.numnodes;
}
