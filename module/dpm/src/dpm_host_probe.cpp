// What the host table asks of the IP stack, which resolves neighbours: send a probe, drop a
// neighbour entry, read one.
//
// Each request opens a datagram socket of its family, selects the VRF, makes one call and closes
// the socket.
#include "dpm_host.h"

#include "dpm_trace.h"
#include "platform/host.h"
#include "platform/ipcomx.h"
#include "platform/nsm.h"

#include <arpa/inet.h>

namespace {

constexpr std::size_t mac_bytes_max = DPM_MAC_BYTES;

// Blocks of the socket calls; the offsets are the IP stack's.
struct arp_block {
    std::uint8_t ip_length = 16;
    std::uint8_t ip_family = IPCOMX_AF_INET;
    std::uint8_t pad0[2] = {};
    std::uint32_t address; // network order
    std::uint8_t pad1[8] = {};
    std::uint8_t link_length = 24;
    std::uint8_t link_family = IPCOMX_AF_LINK;
    std::uint8_t pad2[2] = {};
    std::uint32_t ifindex;
    std::uint8_t mac_length = DPM_MAC_BYTES;
    std::uint8_t pad3 = 0;
    std::uint8_t mac[DPM_MAC_BYTES] = {}; // in a reply
    std::uint16_t first = 0;              // in a reply
    std::uint16_t second = 0;             // in a reply
    std::uint8_t pad4[24] = {};
};
static_assert(sizeof(arp_block) == IPCOMX_REQUEST_BYTES);
static_assert(offsetof(arp_block, link_length) == 16);
static_assert(offsetof(arp_block, ifindex) == 20);
static_assert(offsetof(arp_block, mac_length) == 24);

struct neighbour_block {
    std::uint8_t ip_length = 28;
    std::uint8_t ip_family = IPCOMX_AF_INET6;
    std::uint8_t pad0[6] = {};
    std::uint8_t address[16];
    std::uint8_t pad1[4] = {};
    std::uint8_t mac[DPM_MAC_BYTES] = {}; // in a reply
    std::uint8_t pad2[2] = {};
    std::uint32_t ifindex;
    std::uint16_t first = 0;  // in a reply
    std::uint16_t second = 0; // in a reply
    std::uint32_t third = 0;  // in a reply
    std::uint8_t pad3[12] = {};
};
static_assert(sizeof(neighbour_block) == IPCOMX_REQUEST_BYTES);
static_assert(offsetof(neighbour_block, address) == 8);
static_assert(offsetof(neighbour_block, ifindex) == 36);

arp_block arp_request(std::uint32_t ifindex, std::uint32_t address) {
    arp_block block;
    block.address = address;
    block.ifindex = ifindex;
    return block;
}

neighbour_block neighbour_request(std::uint32_t ifindex, const void *address) {
    neighbour_block block;
    std::memcpy(block.address, address, sizeof block.address);
    block.ifindex = ifindex;
    return block;
}

enum class on_failure { silent, log };

int failed(on_failure action, const dpm::call_site &caller) {
    const int error = ipcomx_errno_get();
    if (action == on_failure::log)
        DPM_LOG_FROM(caller, "%s %d::set ipstack errno %d errstring %s\r\n", error,
                     ipcomx_strerror(error));
    return error > 0 ? -error : -1;
}

// One call on a socket of its own; 0, or the negated error number of the step that failed.
int call_stack(int family, std::uint32_t vrf, std::uint32_t request, void *block, on_failure action,
               const dpm::call_site &caller) {
    const int socket = ipcomx_socket(family, IPCOMX_SOCK_DGRAM, 0);
    if (socket < 0)
        return failed(action, caller);
    const std::uint32_t vrf_option = vrf & 0xFFFF;
    int result = 0;
    if (ipcomx_setsockopt(socket, IPCOMX_SOL_SOCKET, IPCOMX_SO_VRF, &vrf_option,
                          sizeof vrf_option) != 0 ||
        ipcomx_socketioctl(socket, request, block) != 0)
        result = failed(action, caller);
    (void)ipcomx_socketclose(socket);
    return result;
}

// Whether an IPv6 address turns into a socket address and from there into text.
bool is_printable(const void *address) {
    std::uint8_t socket_address[28] = {};
    char text[64];
    return ipcomx_getsockaddrbyaddr(address, IPCOMX_AF_INET6, socket_address) == 0 &&
           ipcomx_getnameinfo(socket_address, sizeof socket_address, text, sizeof text) == 0;
}

} // namespace

int dpm_arp_req_send(std::uint32_t vrf, std::uint32_t ifindex, std::uint32_t address) {
    arp_block block = arp_request(ifindex, address);
    return call_stack(IPCOMX_AF_INET, vrf, IPCOMX_ARP_REQUEST, &block, on_failure::silent,
                      DPM_CALL_SITE);
}

int dpm_ndp_req_send(std::uint32_t vrf, std::uint32_t ifindex, const std::uint8_t *address) {
    if (address == nullptr)
        return dpm::null_parameter();
    neighbour_block block = neighbour_request(ifindex, address);
    return call_stack(IPCOMX_AF_INET6, vrf, IPCOMX_ND_SOLICIT, &block, on_failure::silent,
                      DPM_CALL_SITE);
}

int dpm_arp_ipstack_delete(std::uint32_t vrf, std::uint32_t ifindex, std::uint32_t address) {
    arp_block block = arp_request(ifindex, address);
    const int result =
        call_stack(IPCOMX_AF_INET, vrf, IPCOMX_ARP_DELETE, &block, on_failure::log, DPM_CALL_SITE);
    if (result == 0)
        (void)proxy_arp_route_del_by_vrf_ip(vrf, address);
    return result;
}

int dpm_ndp_ipstack_delete(std::uint32_t vrf, std::uint32_t ifindex, const std::uint8_t *address) {
    if (address == nullptr)
        return dpm::null_parameter();
    neighbour_block block = neighbour_request(ifindex, address);
    return call_stack(IPCOMX_AF_INET6, vrf, IPCOMX_ND_DELETE, &block, on_failure::log,
                      DPM_CALL_SITE);
}

int dpm_get_arp_info_by_vrf_ip(std::uint32_t vrf, std::uint32_t address, std::uint8_t *mac,
                               std::uint16_t *first, std::uint16_t *second) {
    if (mac == nullptr || first == nullptr || second == nullptr)
        return dpm::null_parameter();
    arp_block block = arp_request(0, htonl(address));
    if (call_stack(IPCOMX_AF_INET, vrf, IPCOMX_ARP_GET, &block, on_failure::silent,
                   DPM_CALL_SITE) != 0)
        return -1;
    std::memcpy(mac, block.mac,
                block.mac_length < mac_bytes_max ? block.mac_length : mac_bytes_max);
    *first = block.first;
    *second = block.second;
    return 0;
}

int dpm_get_ndp_entry_by_ip(const void *address, std::uint8_t *mac, std::uint32_t ifindex,
                            std::uint16_t *first, std::uint16_t *second, std::uint32_t *third) {
    if (address == nullptr || mac == nullptr || first == nullptr || second == nullptr ||
        third == nullptr)
        return dpm::null_parameter();
    const int vrf = nsm_vrf_id_get_by_ifindex(ifindex);
    if (vrf < 0 || !is_printable(address))
        return -1;
    neighbour_block block = neighbour_request(0, address);
    if (call_stack(IPCOMX_AF_INET6, static_cast<std::uint32_t>(vrf), IPCOMX_ND_GET, &block,
                   on_failure::silent, DPM_CALL_SITE) != 0)
        return -1;
    std::memcpy(mac, block.mac, DPM_MAC_BYTES);
    *first = block.first;
    *second = block.second;
    *third = block.third;
    return 0;
}

namespace dpm {

void drop_neighbour(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix &ip) {
    if (ip.family == DPM_FAMILY_IPV4)
        (void)dpm_arp_ipstack_delete(vrf, ifindex, address_word(ip.address));
    else
        (void)dpm_ndp_ipstack_delete(vrf, ifindex, ip.address);
}

void probe_neighbour(std::uint32_t vrf, std::uint32_t ifindex, const dpm_prefix &ip) {
    if (ip.family == DPM_FAMILY_IPV4)
        (void)dpm_arp_req_send(vrf, ifindex, address_word(ip.address));
    else
        (void)dpm_ndp_req_send(vrf, ifindex, ip.address);
}

} // namespace dpm
