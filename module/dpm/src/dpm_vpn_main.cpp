// Start-up of the VPN context, whose trees are made with their tables, and its address utilities.
#include "dpm_vpn.h"

#include "dpm_address.h"
#include "dpm_l3vpn.h"
#include "dpm_list.h"

#include <cstdio>
#include <initializer_list>

void dpm_vpn_main_init() {
    g_dpm_vpn = {};
    for (list_head *pend : {&g_dpm_vpn.pend_ftn_list, &g_dpm_vpn.pend_ilm_list,
                            &g_dpm_vpn.pend_vpws_vc_fib_list, &g_dpm_vpn.pend_vpws_vc_ilm_list,
                            &g_dpm_vpn.pend_vpls_vc_fib_list, &g_dpm_vpn.pend_vpls_vc_ilm_list})
        INIT_LIST_HEAD(pend);
}

std::uint32_t dpm_mpls_ip_str2int(const std::uint8_t *address) {
    return address != nullptr ? dpm::address_word(address) : 0;
}

int dpm_mpls_ip_int2str(std::uint32_t word, std::uint8_t *address) {
    if (address == nullptr)
        return -1;
    std::memcpy(address, &word, sizeof word);
    return 0;
}

int dpm_masklen2ip(std::uint32_t length, std::uint32_t *mask) {
    if (length > DPM_IPV4_BITS) {
        std::printf("hal_masklen2ip::masklen = %d ", length);
        return -1;
    }
    if (mask == nullptr) {
        std::printf("hal_masklen2ip::netmask NULL Err!");
        return -1;
    }
    *mask = dpm_get_netmask_addr(length);
    return 0;
}
