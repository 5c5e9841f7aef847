// Questions to the label tables: which labels lead to an address, and where a label leads.
#include "dpm_l3vpn_record.h"

#include "dpm_trace.h"

#include <arpa/inet.h>

namespace {

// A key with an IPv4 FEC (a word in network order) and no tunnel next hop.
dpm_ftn ipv4_key(std::uint32_t vrf_id, std::uint32_t fec, std::uint32_t prefix_len) {
    dpm_ftn key = {};
    key.vrf_id = vrf_id;
    key.ip_type = DPM_FAMILY_IPV4;
    key.prefixlen = static_cast<std::uint8_t>(prefix_len);
    std::memcpy(key.fec_prefix, &fec, sizeof fec);
    return key;
}

bool covers(const dpm_ftn &ftn, std::uint32_t address) {
    const std::uint32_t mask = dpm_get_netmask_addr(ftn.prefixlen);
    return ((dpm::address_word(ftn.fec_prefix) ^ address) & mask) == 0;
}

// The longest prefix of the VRF that covers the address; the first in table order among equals.
const dpm_ftn *longest_match(std::uint32_t vrf_id, std::uint32_t address) {
    const dpm_ftn *best = nullptr;
    for (const dpm_ftn &ftn : dpm::ftns())
        if (ftn.vrf_id == vrf_id && covers(ftn, address) &&
            (best == nullptr || ftn.prefixlen > best->prefixlen))
            best = &ftn;
    return best;
}

// Null is no next hop.
bool is_over(const dpm_ftn &tunnel, const std::uint8_t *nexthop) {
    const std::size_t length_bytes = tunnel.tunnel_ip_type == DPM_FAMILY_IPV4 ? 4 : 16;
    return nexthop != nullptr && std::memcmp(tunnel.tunnel_nhop, nexthop, length_bytes) == 0;
}

} // namespace

const dpm_ftn *dpm::label_path_to(const std::uint8_t *host, const std::uint8_t *but,
                                  std::uint32_t nhid) {
    const dpm_prefix end = host_prefix(DPM_FAMILY_IPV4, host);
    const dpm_ftn *first = nullptr;
    for (dpm_ftn *tunnel = first_tunnel_to(DPM_FAMILY_IPV4, end.address); tunnel != nullptr;
         tunnel = next_tunnel_to(*tunnel))
        if (tunnel->prefixlen == DPM_IPV4_BITS && tunnel->flags == DPM_LABEL_PROGRAMMED &&
            !is_over(*tunnel, but) && (first == nullptr || tunnel->nhid == nhid))
            first = tunnel;
    return first;
}

std::uint32_t dpm_get_netmask_addr(std::uint32_t prefix_len) {
    if (prefix_len == 0 || prefix_len > DPM_IPV4_BITS)
        return 0;
    std::uint32_t mask = 0xFFFFFFFF;
    dpm::clear_host_bits(&mask, prefix_len, sizeof mask);
    return mask;
}

dpm_ftn *dpm_mpls_ftn_get_by_vpn_nhop(const std::uint8_t *address) {
    if (address == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    const dpm_prefix ipv4 = dpm::host_prefix(DPM_FAMILY_IPV4, address);
    dpm_ftn *const four = dpm::first_tunnel_to(DPM_FAMILY_IPV4, ipv4.address);
    dpm_ftn *const sixteen = dpm::first_tunnel_to(DPM_FAMILY_IPV6, address);
    if (four == nullptr || sixteen == nullptr)
        return four != nullptr ? four : sixteen;
    return dpm_mpls_ftn_compare(four, sixteen) < 0 ? four : sixteen;
}

dpm_ftn *dpm_mpls_ftn_get_by_fec(const std::uint8_t *address) {
    if (address == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    ftn_record key = {};
    std::memcpy(key.entry.fec_prefix, address, sizeof key.entry.fec_prefix);
    ftn_record *record = dpm::ftn_kind::by_end().find_from(key);
    const bool is_there = record != nullptr && record->entry.vrf_id == 0 &&
                          dpm_fec_addr_cmp(record->entry.fec_prefix, address) == 0;
    return is_there ? &record->entry : nullptr;
}

int dpm_get_mpls_ftn_info(std::uint32_t vrf_id, std::uint32_t address, std::uint32_t *tunnel_label,
                          std::uint32_t *vpn_label, std::uint32_t *tunnel_nhop) {
    if (tunnel_label == nullptr || vpn_label == nullptr || tunnel_nhop == nullptr)
        return -1;
    const dpm_ftn *ftn = dpm::ftns().find(ipv4_key(vrf_id, address, DPM_IPV4_BITS));
    if (ftn == nullptr)
        ftn = longest_match(vrf_id, address);
    if (ftn == nullptr)
        return -1;
    *tunnel_label = ftn->tunnel_label;
    *vpn_label = ftn->vpn_label;
    *tunnel_nhop = dpm::address_word(ftn->tunnel_nhop);
    return 0;
}

int dpm_mpls_ftn_tnl_nexthop_get(std::uint32_t vrf_id, std::uint32_t address,
                                 std::uint32_t prefix_len, std::uint32_t *tunnel_nhop,
                                 std::uint32_t *tunnel_label) {
    if (tunnel_nhop == nullptr || tunnel_label == nullptr)
        return dpm::null_parameter();
    const std::uint32_t network = htonl(address) & dpm_get_netmask_addr(prefix_len);
    for (const dpm_ftn &ftn : dpm::ftns()) {
        if (ftn.ip_type != DPM_FAMILY_IPV4 || ftn.vrf_id != vrf_id || ftn.prefixlen != prefix_len ||
            dpm::address_word(ftn.fec_prefix) != network)
            continue;
        *tunnel_nhop = dpm::address_word(ftn.tunnel_nhop);
        *tunnel_label = ftn.tunnel_label;
        return 0;
    }
    return -1;
}

int dpm_ilm_info_get_by_lbl(std::uint32_t in_label, std::uint32_t *out_ifindex,
                            std::uint32_t *tunnel_nhop, std::uint32_t *swap_label,
                            std::uint32_t *vrf_id) {
    if (out_ifindex == nullptr || tunnel_nhop == nullptr || swap_label == nullptr ||
        vrf_id == nullptr)
        return 0;
    dpm_ilm key = {};
    key.in_label = in_label;
    const dpm_ilm *ilm = dpm::ilms().find(key);
    if (ilm == nullptr)
        return 0;
    *vrf_id = ilm->vrf_id;
    *out_ifindex = ilm->out_ifindex;
    *swap_label = ilm->swap_label;
    *tunnel_nhop = dpm::address_word(ilm->tunnel_nhop);
    return 0;
}

dpm_ftn *dpm_mpls_ftn_table_get(std::uint32_t vrf_id, const std::uint8_t *fec,
                                std::uint32_t prefix_len, const std::uint8_t *tunnel_nhop) {
    if (fec == nullptr || tunnel_nhop == nullptr) {
        (void)dpm::null_parameter();
        return nullptr;
    }
    if (prefix_len > UINT8_MAX) // no entry has such a length
        return nullptr;
    DPM_PLAIN("fec_prefix = %d.%d.%d.%d", fec[0], fec[1], fec[2], fec[3]);
    dpm_ftn key = ipv4_key(vrf_id, dpm::address_word(fec), prefix_len);
    std::memcpy(key.tunnel_nhop, tunnel_nhop, 4);
    return dpm::ftns().find(key);
}
