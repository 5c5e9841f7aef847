/* The exported header as a routing suite in C sees it. */
#include "dpm_api.h"

#include <string.h>

_Static_assert(sizeof(struct dpm_host_info) == 60, "shared with the IP stack");
_Static_assert(sizeof(struct dpm_host_entry) == 176, "mirrored byte for byte");
_Static_assert(sizeof(struct dpm_nexthop_entry) == 44, "mirrored byte for byte");
_Static_assert(sizeof(struct dpm_if_entry) == 144, "one block an interface");

/* Reports an IPv4 neighbour of VLAN 100 and counts the hosts that are there afterwards. */
int c_reports_a_neighbour(unsigned char last_byte, uint32_t ifindex);
unsigned c_counts_hosts(void);

int c_reports_a_neighbour(unsigned char last_byte, uint32_t ifindex) {
    const unsigned char address[4] = {10, 1, 1, last_byte};
    struct dpm_host_info info;
    memset(&info, 0, sizeof info);
    info.family = DPM_FAMILY_IPV4;
    memcpy(info.address, address, sizeof address);
    info.mac[5] = last_byte;
    info.ifindex = ifindex;
    info.svlan = 100;
    info.port_type = DPM_PORT_PHYSICAL;
    info.phy_port_id = 3;
    return dpm_api_host_pro(&info, DPM_OPER_ADD);
}

unsigned c_counts_hosts(void) {
    unsigned count = 0;
    const struct dpm_host_entry *host;
    norix_dpm_sem_take();
    for (host = dpm_api_get_host_entry_first(DPM_FAMILY_IPV4); host != NULL;
         host = dpm_api_get_host_entry_next(host))
        count++;
    norix_dpm_sem_give();
    return count;
}
