// The label tables on standard output, for people at the device.
#include "dpm_l3vpn.h"

#include "dpm_locks.h"

#include <arpa/inet.h>
#include <cstdio>

namespace {

void print_ftn(const dpm_ftn &ftn) {
    std::printf(
        "\n\r flags=%d  vrf_id=%d ftn_index=%d fec=%d.%d.%d.%d tunnel_nhop=%d.%d.%d.%d \t\t\t\ttunnel_lbl=%d vpn_lbl=%d sdk_ret=%d vpn_nhop=%d.%d.%d.%d nhid=%d tunnel_id=%d \n\r",
        ftn.flags, ftn.vrf_id, ftn.ftn_ix, DPM_IPV4_OF(ftn.fec_prefix),
        DPM_IPV4_OF(ftn.tunnel_nhop), ftn.tunnel_label, ftn.vpn_label, ftn.sdk_result,
        DPM_IPV4_OF(ftn.vpn_nhop), ftn.nhid, ftn.tunnel_id);
}

void print_ilm(const dpm_ilm &ilm) {
    std::printf(
        "\n\r vrf_id=%d in_label=%d swap=%d tnl_lbl=%d flags=%d fec=%d.%d.%d.%d \t\t\t\ttunnel_nhop=%d.%d.%d.%d in_ifindex=%d nhid=%d tunnel_id=%d sdk_ret=%d\n\r",
        ilm.vrf_id, ilm.in_label, ilm.swap_label, ilm.tunnel_label, ilm.flags,
        DPM_IPV4_OF(ilm.fec_prefix), DPM_IPV4_OF(ilm.tunnel_nhop), ilm.in_ifindex, ilm.nhid,
        ilm.tunnel_id, ilm.sdk_result);
}

void print_ftn_fields(const dpm_ftn &ftn) {
    std::printf("\n\r ftn_ix = %d", ftn.ftn_ix);
    std::printf("\n\r owner = %d", ftn.owner);
    std::printf("\n\r ip_type = %d", ftn.ip_type);
    std::printf("\n\r prefixlen = %d", ftn.prefixlen);
    std::printf("\n\r fec_prefix = %d.%d.%d.%d", DPM_IPV4_OF(ftn.fec_prefix));
    std::printf("\n\r tunnel_label = %d", ftn.tunnel_label);
    std::printf("\n\r tunnel_nhop = %d.%d.%d.%d", DPM_IPV4_OF(ftn.tunnel_nhop));
    std::printf("\n\r vrf_id = %d", ftn.vrf_id);
    std::printf("\n\r vpn_label = %d", ftn.vpn_label);
    std::printf("\n\r vpn_nhop = %d.%d.%d.%d", DPM_IPV4_OF(ftn.vpn_nhop));
    std::printf("\n\r vpn_prefixlen = %d", ftn.vpn_prefixlen);
    std::printf("\n\r ftn_type = %d", ftn.ftn_type);
    std::printf("\n\r pro_type = %d", ftn.pro_type);
    std::printf("\n\r flags = %d", ftn.flags);
    std::printf("\n\r sdk_result = %d", ftn.sdk_result);
}

void print_ilm_fields(const dpm_ilm &ilm) {
    std::printf("\n\r ilm_ix = %d", ilm.ilm_ix);
    std::printf("\n\r in_label = %d", ilm.in_label);
    std::printf("\n\r vrf_id = %d", ilm.vrf_id);
    std::printf("\n\r ip_type = %d", ilm.ip_type);
    std::printf("\n\r prefixlen = %d", ilm.prefixlen);
    std::printf("\n\r protocol = %d", ilm.protocol);
    std::printf("\n\r opcode = %d", ilm.opcode);
    std::printf("\n\r fec_prefix = %d.%d.%d.%d", DPM_IPV4_OF(ilm.fec_prefix));
    std::printf("\n\r tunnel_nhop = %d.%d.%d.%d", DPM_IPV4_OF(ilm.tunnel_nhop));
    std::printf("\n\r in_ifindex = %d", ilm.in_ifindex);
    std::printf("\n\r out_ifindex = %d", ilm.out_ifindex);
    std::printf("\n\r out_ifname = %s", ilm.out_ifname);
    std::printf("\n\r swap_label = %d", ilm.swap_label);
    std::printf("\n\r tunnel_label = %d", ilm.tunnel_label);
    std::printf("\n\r tnl_ix = %d", ilm.tnl_ix);
    std::printf("\n\r is_egress = %d", ilm.is_egress);
    std::printf("\n\r owner = %d", ilm.owner);
    std::printf("\n\r flags = %d", ilm.flags);
    std::printf("\n\r sdk_result = %d", ilm.sdk_result);
}

} // namespace

void dpm_mpls_ftn_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global ftn table: total count %d", dpm::ftns().count());
    for (const dpm_ftn &ftn : dpm::ftns())
        if (ftn.ip_type == DPM_FAMILY_IPV4)
            print_ftn(ftn);
    std::printf("\n\r pend ftn table: ");
    std::printf("\n\r pend ftn table: is_empty=%d ", dpm::pend_ftns().empty());
    for (const dpm_ftn &ftn : dpm::pend_ftns()) {
        if (ftn.ip_type != DPM_FAMILY_IPV4)
            continue;
        std::printf("\n\r pend ftn table: ftn_info=%p ", static_cast<const void *>(&ftn));
        print_ftn(ftn);
    }
    std::printf("\n\r ftn table info end!\n\r");
}

void dpm_mpls_ftn_table_detail_show(std::uint32_t vrf_id, std::uint32_t address,
                                    std::uint32_t prefix_len) {
    const dpm::dpm_lock lock;
    dpm_ftn key = {};
    const std::uint32_t fec = htonl(address);
    key.vrf_id = vrf_id;
    key.ip_type = DPM_FAMILY_IPV4;
    key.prefixlen = static_cast<std::uint8_t>(prefix_len);
    std::memcpy(key.fec_prefix, &fec, sizeof fec);
    std::printf("\n\r prefix=%u ipstr= %d.%d.%d.%d \n\r", address, DPM_IPV4_OF(key.fec_prefix));
    std::printf("\n\r fec_prefix = %d.%d.%d.%d", DPM_IPV4_OF(key.fec_prefix));
    const dpm_ftn *ftn = prefix_len <= UINT8_MAX ? dpm::ftns().find(key) : nullptr;
    if (ftn == nullptr)
        std::printf("\n\r no found! \n\r");
    else
        print_ftn_fields(*ftn);
}

void dpm_mpls_ilm_table_show() {
    const dpm::dpm_lock lock;
    std::printf("\n\r global ilm table: total count %d", dpm::ilms().count());
    for (const dpm_ilm &ilm : dpm::ilms())
        if (ilm.ip_type == DPM_FAMILY_IPV4)
            print_ilm(ilm);
    std::printf("\n\r pend ilm table:");
    for (const dpm_ilm &ilm : dpm::pend_ilms())
        if (ilm.ip_type == DPM_FAMILY_IPV4)
            print_ilm(ilm);
    std::printf("\n\r ilm table info end!");
}

void dpm_mpls_ilm_table_detail_show(std::uint32_t in_label) {
    const dpm::dpm_lock lock;
    dpm_ilm key = {};
    key.in_label = in_label;
    const dpm_ilm *ilm = dpm::ilms().find(key);
    if (ilm == nullptr)
        std::printf("\n\r no found!\n\r");
    else
        print_ilm_fields(*ilm);
}
