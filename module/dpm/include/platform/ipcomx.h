/*
 * Contract: the IP stack's sockets and neighbour cache.
 *
 * The host supplies every function of this header.  The socket calls are made on the worker, under
 * the DPM lock, and on the threads of those who read neighbour entries; they must not block for
 * long and must not call the library back on the same thread (a neighbour report comes on a thread
 * of the stack).
 *
 * A request block is 60 bytes.  Socket addresses inside it start with their length and family, one
 * byte each:
 *
 *   ARP block                                  neighbour block
 *    0  16                                      0  28
 *    1  2, the family                           1  24, the family
 *    4  IPv4 address                            8  IPv6 address
 *   16  24                                     36  interface index
 *   17  18, the family
 *   20  interface index
 *   in a reply:                                in a reply:
 *   24  length of the MAC, 6 at most
 *   26  MAC                                    28  MAC
 *   32  a 16-bit field of the entry            40  a 16-bit field of the entry
 *   34  another                                42  another
 *                                              44  a 32-bit field of the entry
 */
#ifndef DPM_PLATFORM_IPCOMX_H
#define DPM_PLATFORM_IPCOMX_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* clang-format off */
#define IPCOMX_AF_INET       2
#define IPCOMX_AF_LINK       18
#define IPCOMX_AF_INET6      24
#define IPCOMX_SOCK_DGRAM    2
#define IPCOMX_SOL_SOCKET    0xFFFF
#define IPCOMX_SO_VRF        0x1020      /* a 32-bit VRF id */

#define IPCOMX_ARP_DELETE    0xC03C1403u /* drop the neighbour entry of an IPv4 address */
#define IPCOMX_ARP_REQUEST   0xC03C1404u /* send an ARP request for an IPv4 address */
#define IPCOMX_ARP_GET       0xC03C0402u /* read the neighbour entry of an IPv4 address */
#define IPCOMX_ND_SOLICIT    0xC03C1607u /* send a neighbour solicitation for an IPv6 address */
#define IPCOMX_ND_DELETE     0xC03C1609u /* drop the neighbour entry of an IPv6 address */
#define IPCOMX_ND_GET        0xC03C0608u /* read the neighbour entry of an IPv6 address */
#define IPCOMX_REQUEST_BYTES 60
/* clang-format on */

/* Opens a socket; a descriptor, or -1 with the error number set. */
int ipcomx_socket(int family, int type, int protocol);

/* 0, or -1 with the error number set. */
int ipcomx_setsockopt(int socket, int level, int option, const void *value, uint32_t length_bytes);
int ipcomx_socketioctl(int socket, uint32_t request, void *block);
int ipcomx_socketclose(int socket);

/* The calling thread's last error number, and its text (static). */
int ipcomx_errno_get(void);
const char *ipcomx_strerror(int error);

/* An IPv6 address (16 bytes) to a 28-byte socket address, and that address to text; 0 or -1. */
int ipcomx_getsockaddrbyaddr(const void *address, int family, void *socket_address);
int ipcomx_getnameinfo(const void *socket_address, uint32_t length_bytes, char *text,
                       uint32_t text_bytes);

/* What the IP stack reports about a neighbour; the record is struct dpm_host_info of dpm_api.h. */
struct dpm_host_info;
typedef int (*ipcomx_neighbour_callback)(const struct dpm_host_info *info);

/* The IP stack reports every neighbour that it learns (operation 1) or loses (operation 2) to this
 * callback, on a thread of its own.  Called once, from dpm_main_init. */
int ipstack_no_nbase_func_register(ipcomx_neighbour_callback callback);

#ifdef __cplusplus
}
#endif

#endif
