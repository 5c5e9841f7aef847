// Messages: the codes, the record on the queue, and how a request is posted.
//
// Every change to the tables is a message on one queue.  A poster fills a heap block and sends the
// 16-byte record that points to it; from then on the block belongs to the handler.  Any thread may
// post; the worker alone receives.
#pragma once

#include "dpm_memory.h"
#include "dpm_trace.h"

#include <cstdint>
#include <type_traits>

// One row per message code, in code order; codes without a row are dropped in silence.
//   code     number on the queue; other programs post by number
//   name     enumerator
//   handler  calls the owner and then frees the block (CALL rows have none: the owner is called)
//   owner    the function of the table's owner, declared here
//   body     what the block holds
//   shape    what is passed on:
//              body    the block, freed behind the call; a null block is passed over
//              trunk   the block and the len word, as body
//              slot    the data word, a slot number or a count
//              port    the len and data words: port kind, and port or trunk id
//              owned   the block, which the owner frees
//              rules   the block, as body; its second and fourth words are blocks that are freed
//                      before it
//              packet  the block of the arg word: a descriptor, and the bytes behind it with their length
//              sized   the block of the arg word, and its length
//              signal  nothing
// clang-format off
#define DPM_MESSAGES(ROW, CALL)                                                                                                                                           \
    ROW (  1, DPM_MSG_ADD_IF,                      dpm_task_msg_add_if_pro,                      dpm_if_add,                              dpm_if_msg,            body)    \
    ROW (  2, DPM_MSG_DEL_IF,                      dpm_task_msg_del_if_pro,                      dpm_if_del,                              dpm_if_msg,            body)    \
    ROW (  3, DPM_MSG_ADD_IF_IP,                   dpm_task_msg_add_if_ip_pro,                   dpm_if_add_ip,                           if_ip_msg,             body)    \
    ROW (  4, DPM_MSG_DEL_IF_IP,                   dpm_task_msg_del_if_ip_pro,                   dpm_if_del_ip,                           if_ip_msg,             body)    \
    ROW (  5, DPM_MSG_IF_VRF,                      dpm_task_msg_if_vrf_pro,                      dpm_if_vrf_pro,                          dpm_if_vrf_msg,        body)    \
    ROW (  6, DPM_MSG_SUPER_ADD_SUB,               dpm_task_msg_super_add_sub,                   dpm_super_add_sub,                       dpm_super_sub_msg,     body)    \
    ROW (  7, DPM_MSG_SUPER_DEL_SUB,               dpm_task_msg_super_del_sub,                   dpm_super_del_sub,                       dpm_super_sub_msg,     body)    \
    ROW (  8, DPM_MSG_ADD_HOST,                    dpm_task_msg_add_host_pro,                    dpm_host_add_msg,                        dpm_host_msg,          body)    \
    ROW (  9, DPM_MSG_DEL_HOST,                    dpm_task_msg_del_host_pro,                    dpm_host_del_msg,                        dpm_host_msg,          body)    \
    ROW ( 10, DPM_MSG_SYNC_ADD_HOST,               dpm_task_msg_sync_add_host_pro,               dpm_host_entry_add_sync_process,         dpm_host_entry,        body)    \
    ROW ( 11, DPM_MSG_SYNC_DEL_HOST,               dpm_task_msg_sync_del_host_pro,               dpm_host_entry_del_sync_process,         dpm_host_entry,        body)    \
    ROW ( 13, DPM_MSG_SYNC_ADD_NEXTHOP,            dpm_task_msg_sync_add_nexthop_pro,            dpm_nexthop_entry_add_sync_process,      dpm_nexthop_entry,     body)    \
    ROW ( 14, DPM_MSG_SYNC_DEL_NEXTHOP,            dpm_task_msg_sync_del_nexthop_pro,            dpm_nexthop_entry_del_sync_process,      dpm_nexthop_entry,     body)    \
    ROW ( 16, DPM_MSG_SYNC_ADD_ECMP,               dpm_task_msg_sync_add_ecmp_pro,               dpm_ecmp_entry_add_sync_process,         dpm_ecmp_entry,        body)    \
    ROW ( 17, DPM_MSG_SYNC_DEL_ECMP,               dpm_task_msg_sync_del_ecmp_pro,               dpm_ecmp_entry_del_sync_process,         dpm_ecmp_entry,        body)    \
    ROW ( 19, DPM_MSG_ADD_ROUTE,                   dpm_task_msg_add_route_pro,                   dpm_route_add_msg,                       dpm_route_msg,         body)    \
    ROW ( 20, DPM_MSG_DEL_ROUTE,                   dpm_task_msg_del_route_pro,                   dpm_route_del_msg,                       dpm_route_msg,         body)    \
    ROW ( 21, DPM_MSG_SYNC_ADD_ROUTE,              dpm_task_msg_sync_add_route_pro,              dpm_route_entry_add_sync_process,        dpm_route_entry,       body)    \
    ROW ( 22, DPM_MSG_SYNC_DEL_ROUTE,              dpm_task_msg_sync_del_route_pro,              dpm_route_entry_del_sync_process,        dpm_route_entry,       body)    \
    CALL( 23, DPM_MSG_SYNC_BEGIN,                                                                dpm_sync_begin,                                                 slot)    \
    CALL( 24, DPM_MSG_SLAVE_UP,                                                                  dpm_slave_up_process,                                           slot)    \
    CALL( 25, DPM_MSG_SLAVE_TO_MASTER,                                                           dpm_slave_to_master_process,                                    signal)  \
    ROW ( 26, DPM_MSG_ENABLE_MPLS_IF,              dpm_task_msg_enable_mpls_if_pro,              dpm_mpls_if_enable,                      dpm_mpls_if_msg,       body)    \
    ROW ( 27, DPM_MSG_DISABLE_MPLS_IF,             dpm_task_msg_disable_mpls_if_pro,             dpm_mpls_if_disable,                     dpm_mpls_if_msg,       body)    \
    ROW ( 28, DPM_MSG_SYNC_ENABLE_MPLS_IF,         dpm_task_msg_sync_enable_mpls_if_pro,         dpm_mpls_if_add_sync_process,            dpm_mpls_if,           body)    \
    ROW ( 29, DPM_MSG_SYNC_DISABLE_MPLS_IF,        dpm_task_msg_sync_disable_mpls_if_pro,        dpm_mpls_if_del_sync_process,            dpm_mpls_if,           body)    \
    ROW ( 30, DPM_MSG_FTN_ADD,                     dpm_task_msg_ftn_add_pro,                     dpm_mpls_ftn_add_msg,                    dpm_ftn_msg,           body)    \
    ROW ( 31, DPM_MSG_FTN_DEL,                     dpm_task_msg_ftn_del_pro,                     dpm_mpls_ftn_del_msg,                    dpm_ftn_msg,           body)    \
    ROW ( 32, DPM_MSG_SYNC_FTN_ADD,                dpm_task_msg_sync_ftn_add_pro,                dpm_mpls_ftn_add_sync_process,           dpm_ftn,               body)    \
    ROW ( 33, DPM_MSG_SYNC_FTN_DEL,                dpm_task_msg_sync_ftn_del_pro,                dpm_mpls_ftn_del_sync_process,           dpm_ftn,               body)    \
    ROW ( 35, DPM_MSG_ILM_ADD,                     dpm_task_msg_ilm_add_pro,                     dpm_mpls_ilm_add_msg,                    dpm_ilm_msg,           body)    \
    ROW ( 36, DPM_MSG_ILM_DEL,                     dpm_task_msg_ilm_del_pro,                     dpm_mpls_ilm_del_msg,                    dpm_ilm_msg,           body)    \
    ROW ( 37, DPM_MSG_SYNC_ILM_ADD,                dpm_task_msg_sync_ilm_add_pro,                dpm_mpls_ilm_add_sync_process,           dpm_ilm,               body)    \
    ROW ( 38, DPM_MSG_SYNC_ILM_DEL,                dpm_task_msg_sync_ilm_del_pro,                dpm_mpls_ilm_del_sync_process,           dpm_ilm,               body)    \
    ROW ( 40, DPM_MSG_VPWS_ACIF_BIND,              dpm_task_msg_vpws_acif_bind_pro,              dpm_mpls_vpws_acif_bind,                 dpm_vpws_acif_msg,     body)    \
    ROW ( 41, DPM_MSG_VPWS_ACIF_UNBIND,            dpm_task_msg_vpws_acif_unbind_pro,            dpm_mpls_vpws_acif_unbind,               dpm_vpws_acif_msg,     body)    \
    ROW ( 42, DPM_MSG_SYNC_VPWS_ACIF_ADD,          dpm_task_msg_sync_vpws_acif_add_pro,          dpm_vpws_acif_add_sync_process,          dpm_vpws_acif,         body)    \
    ROW ( 43, DPM_MSG_SYNC_VPWS_ACIF_DEL,          dpm_task_msg_sync_vpws_acif_del_pro,          dpm_vpws_acif_del_sync_process,          dpm_vpws_acif,         body)    \
    ROW ( 44, DPM_MSG_VPWS_VCFIB_ADD,              dpm_task_msg_vpws_vcfib_add_pro,              dpm_mpls_vpws_vc_fib_add,                dpm_vpws_vc_fib_msg,   body)    \
    ROW ( 45, DPM_MSG_VPWS_VCFIB_DEL,              dpm_task_msg_vpws_vcfib_del_pro,              dpm_mpls_vpws_vc_fib_del,                dpm_vpws_vc_fib_msg,   body)    \
    ROW ( 46, DPM_MSG_SYNC_VPWS_VCFIB_ADD,         dpm_task_msg_sync_vpws_vcfib_add_pro,         dpm_vpws_vc_fib_add_sync_process,        dpm_vpws_vc_fib,       body)    \
    ROW ( 47, DPM_MSG_SYNC_VPWS_VCFIB_DEL,         dpm_task_msg_sync_vpws_vcfib_del_pro,         dpm_vpws_vc_fib_del_sync_process,        dpm_vpws_vc_fib,       body)    \
    ROW ( 48, DPM_MSG_VPWS_VCILM_ADD,              dpm_task_msg_vpws_vcilm_add_pro,              dpm_mpls_vpws_vc_ilm_add,                dpm_vpws_vc_ilm_msg,   body)    \
    ROW ( 49, DPM_MSG_VPWS_VCILM_DEL,              dpm_task_msg_vpws_vcilm_del_pro,              dpm_mpls_vpws_vc_ilm_del,                dpm_vpws_vc_ilm_msg,   body)    \
    ROW ( 50, DPM_MSG_SYNC_VPWS_VCILM_ADD,         dpm_task_msg_sync_vpws_vcilm_add_pro,         dpm_vpws_vc_ilm_add_sync_process,        dpm_vpws_vc_ilm,       body)    \
    ROW ( 51, DPM_MSG_SYNC_VPWS_VCILM_DEL,         dpm_task_msg_sync_vpws_vcilm_del_pro,         dpm_vpws_vc_ilm_del_sync_process,        dpm_vpws_vc_ilm,       body)    \
    CALL( 52, DPM_MSG_VPLS_VSI_ADD,                                                              dpm_mpls_vpls_vsi_add,                                          owned)   \
    CALL( 53, DPM_MSG_VPLS_VSI_DEL,                                                              dpm_mpls_vpls_vsi_del,                                          owned)   \
    ROW ( 54, DPM_MSG_SYNC_VPLS_VSI_ADD,           dpm_task_msg_sync_vpls_vsi_add_pro,           dpm_vpls_vsi_add_sync_process,           dpm_vpls_vsi,          body)    \
    ROW ( 55, DPM_MSG_SYNC_VPLS_VSI_DEL,           dpm_task_msg_sync_vpls_vsi_del_pro,           dpm_vpls_vsi_del_sync_process,           dpm_vpls_vsi,          body)    \
    ROW ( 56, DPM_MSG_VPLS_ACIF_BIND,              dpm_task_msg_vpls_acif_bind_pro,              dpm_mpls_vpls_acif_bind,                 dpm_vpls_acif_msg,     body)    \
    ROW ( 57, DPM_MSG_VPLS_ACIF_UNBIND,            dpm_task_msg_vpls_acif_unbind_pro,            dpm_mpls_vpls_acif_unbind,               dpm_vpls_acif_msg,     body)    \
    ROW ( 58, DPM_MSG_SYNC_VPLS_ACIF_ADD,          dpm_task_msg_sync_vpls_acif_add_pro,          dpm_vpls_acif_add_sync_process,          dpm_vpls_acif,         body)    \
    ROW ( 59, DPM_MSG_SYNC_VPLS_ACIF_DEL,          dpm_task_msg_sync_vpls_acif_del_pro,          dpm_vpls_acif_del_sync_process,          dpm_vpls_acif,         body)    \
    ROW ( 60, DPM_MSG_VPLS_VCFIB_ADD,              dpm_task_msg_vpls_vcfib_add_pro,              dpm_mpls_vpls_vc_fib_add,                dpm_vpls_vc_fib_msg,   body)    \
    ROW ( 61, DPM_MSG_VPLS_VCFIB_DEL,              dpm_task_msg_vpls_vcfib_del_pro,              dpm_mpls_vpls_vc_fib_del,                dpm_vpls_vc_fib_msg,   body)    \
    ROW ( 62, DPM_MSG_SYNC_VPLS_VCFIB_ADD,         dpm_task_msg_sync_vpls_vcfib_add_pro,         dpm_vpls_vc_fib_add_sync_process,        dpm_vpls_vc_fib,       body)    \
    ROW ( 63, DPM_MSG_SYNC_VPLS_VCFIB_DEL,         dpm_task_msg_sync_vpls_vcfib_del_pro,         dpm_vpls_vc_fib_del_sync_process,        dpm_vpls_vc_fib,       body)    \
    ROW ( 64, DPM_MSG_VPLS_VCILM_ADD,              dpm_task_msg_vpls_vcilm_add_pro,              dpm_mpls_vpls_vc_ilm_add,                dpm_vpls_vc_ilm_msg,   body)    \
    ROW ( 65, DPM_MSG_VPLS_VCILM_DEL,              dpm_task_msg_vpls_vcilm_del_pro,              dpm_mpls_vpls_vc_ilm_del,                dpm_vpls_vc_ilm_msg,   body)    \
    ROW ( 66, DPM_MSG_SYNC_VPLS_VCILM_ADD,         dpm_task_msg_sync_vpls_vcilm_add_pro,         dpm_vpls_vc_ilm_add_sync_process,        dpm_vpls_vc_ilm,       body)    \
    ROW ( 67, DPM_MSG_SYNC_VPLS_VCILM_DEL,         dpm_task_msg_sync_vpls_vcilm_del_pro,         dpm_vpls_vc_ilm_del_sync_process,        dpm_vpls_vc_ilm,       body)    \
    ROW ( 68, DPM_MSG_PW_REDUNDANCY_GROUP_SWITCH,  dpm_task_msg_pw_redundancy_group_switch_pro,  dpm_pw_redundancy_group_switch,          dpm_pw_switch_msg,     body)    \
    CALL( 69, DPM_MSG_PORT_DOWN,                                                                 dpm_host_port_down,                                             port)    \
    CALL( 70, DPM_MSG_PORT_UP,                                                                   dpm_host_port_up,                                               port)    \
    ROW ( 71, DPM_MSG_BFD_ADD,                     dpm_task_msg_bfd_add_pro,                     dpm_bfd_sess_add_msg,                    dpm_bfd_request,       body)    \
    ROW ( 72, DPM_MSG_BFD_DEL,                     dpm_task_msg_bfd_del_pro,                     dpm_bfd_sess_del_msg,                    dpm_bfd_request,       body)    \
    ROW ( 73, DPM_MSG_BFD_UPDATE,                  dpm_task_msg_bfd_update_pro,                  dpm_bfd_sess_update_msg,                 dpm_bfd_update,        body)    \
    ROW ( 74, DPM_MSG_BFD_NOTIFY,                  dpm_task_msg_bfd_notify_pro,                  dpm_bfd_sess_notify_msg,                 dpm_bfd_notice,        body)    \
    ROW ( 76, DPM_MSG_BFD_SYNC_ADD,                dpm_task_msg_bfd_sync_add_pro,                dpm_bfd_sess_sync_add_msg,               dpm_bfd_sess,          body)    \
    ROW ( 77, DPM_MSG_BFD_SYNC_DEL,                dpm_task_msg_bfd_sync_del_pro,                dpm_bfd_sess_sync_del_msg,               dpm_bfd_sess,          body)    \
    ROW ( 78, DPM_MSG_ADD_IPMC_GOURP,              dpm_task_msg_add_ipmc_gourp_pro,              dpm_ipmc_gourp_add_process,              dpm_ipmc_request,      body)    \
    ROW ( 79, DPM_MSG_DEL_IPMC_GOURP,              dpm_task_msg_del_ipmc_gourp_pro,              dpm_ipmc_gourp_del_process,              dpm_ipmc_request,      body)    \
    ROW ( 80, DPM_MSG_IGMP_RX,                     dpm_task_msg_igmp_rx_pro,                     dpm_ipmc_igmp_process,                   uv_rx_descriptor,      packet)  \
    ROW ( 81, DPM_MSG_MLD_RX,                      dpm_task_msg_mld_rx_pro,                      dpm_ipmc_mld_process,                    uv_rx_descriptor,      packet)  \
    ROW ( 82, DPM_MSG_SLAVE_ADD_IPMC_GOURP,        dpm_task_msg_slave_add_ipmc_gourp_pro,        dpm_ipmc_slave_gourp_add_process,        dpm_ipmc_group_image,  sized)   \
    ROW ( 83, DPM_MSG_SLAVE_DEL_IPMC_GOURP,        dpm_task_msg_slave_del_ipmc_gourp_pro,        dpm_ipmc_slave_gourp_del_process,        dpm_ipmc_group_image,  sized)   \
    ROW ( 84, DPM_MSG_SLAVE_ADD_IPMC_GOURP_MEMBER, dpm_task_msg_slave_add_ipmc_gourp_member_pro, dpm_ipmc_slave_gourp_add_member_process, dpm_ipmc_member_image, sized)   \
    ROW ( 85, DPM_MSG_SLAVE_DEL_IPMC_GOURP_MEMBER, dpm_task_msg_slave_del_ipmc_gourp_member_pro, dpm_ipmc_slave_gourp_del_member_process, dpm_ipmc_member_image, sized)   \
    ROW ( 86, DPM_MSG_TRUNK_MEMBER_CHANGE,         dpm_task_msg_trunk_member_change_pro,         dpm_trunk_member_change_notify,          dpm_trunk_member_msg,  trunk)   \
    CALL( 87, DPM_MSG_SLAVE_UP_OVER,                                                             dpm_slave_up_pro_over_sync_process,                             signal)  \
    CALL( 88, DPM_MSG_PROXY_PACKET,                                                              dpm_proxy_msg_packet_recv,                                      owned)   \
    CALL( 89, DPM_MSG_PROXY_TIMER,                                                               dpm_proxy_msg_timer,                                            signal)  \
    CALL( 90, DPM_MSG_PROXY_SLAVE_SYNC,                                                          dpm_proxy_msg_slave_sync,                                       owned)   \
    ROW ( 91, DPM_MSG_ADD_POLICY_ROUTE,            dpm_task_msg_add_policy_route_pro,            dpm_policy_route_add_msg,                dpm_policy_route_msg,  rules)   \
    ROW ( 92, DPM_MSG_DEL_POLICY_ROUTE,            dpm_task_msg_del_policy_route_pro,            dpm_policy_route_del_msg,                dpm_policy_route_msg,  rules)   \
    ROW ( 93, DPM_MSG_ADD_ROUTE_TUNNEL,            dpm_task_msg_add_route_tunnel_pro,            dpm_route_tunnel_add_msg,                dpm_route_tunnel_msg,  body)    \
    ROW ( 94, DPM_MSG_DEL_ROUTE_TUNNEL,            dpm_task_msg_del_route_tunnel_pro,            dpm_route_tunnel_del_msg,                dpm_route_tunnel_msg,  body)    \
    ROW ( 95, DPM_MSG_ADD_TUNNEL,                  dpm_task_msg_add_tunnel_pro,                  dpm_tunnel_create_msg,                   dpm_tunnel_msg,        body)    \
    ROW ( 96, DPM_MSG_DEL_TUNNEL,                  dpm_task_msg_del_tunnel_pro,                  dpm_tunnel_delete_msg,                   dpm_tunnel_msg,        body)    \
    ROW ( 97, DPM_MSG_UPDATE_TUNNEL_IPVRF,         dpm_task_msg_update_tunnel_ipvrf_pro,         dpm_tunnel_ipvrf_update_msg,             dpm_tunnel_value_msg,  body)    \
    ROW ( 98, DPM_MSG_ADD_TUNNEL_IP,               dpm_task_msg_add_tunnel_ip_pro,               dpm_tunnel_ip_add_msg,                   dpm_tunnel_ip_msg,     body)    \
    ROW ( 99, DPM_MSG_DEL_TUNNEL_IP,               dpm_task_msg_del_tunnel_ip_pro,               dpm_tunnel_ip_del_msg,                   dpm_tunnel_ip_msg,     body)    \
    ROW (100, DPM_MSG_UPDATE_TUNNEL_MODE,          dpm_task_msg_update_tunnel_mode_pro,          dpm_tunnel_mode_update_msg,              dpm_tunnel_value_msg,  body)    \
    ROW (101, DPM_MSG_UPDATE_TUNNEL_VRF,           dpm_task_msg_update_tunnel_vrf_pro,           dpm_tunnel_tunnelvrf_update_msg,         dpm_tunnel_value_msg,  body)    \
    ROW (102, DPM_MSG_ADD_TUNNEL_SRC,              dpm_task_msg_add_tunnel_src_pro,              dpm_tunnel_source_add_msg,               dpm_tunnel_ip_msg,     body)    \
    ROW (103, DPM_MSG_DEL_TUNNEL_SRC,              dpm_task_msg_del_tunnel_src_pro,              dpm_tunnel_source_del_msg,               dpm_tunnel_ip_msg,     body)    \
    ROW (104, DPM_MSG_ADD_TUNNEL_DEST,             dpm_task_msg_add_tunnel_dest_pro,             dpm_tunnel_destination_add_msg,          dpm_tunnel_ip_msg,     body)    \
    ROW (105, DPM_MSG_DEL_TUNNEL_DEST,             dpm_task_msg_del_tunnel_dest_pro,             dpm_tunnel_destination_del_msg,          dpm_tunnel_ip_msg,     body)    \
    ROW (106, DPM_MSG_UPDATE_TUNNEL_CHECKSUM,      dpm_task_msg_update_tunnel_checksum_pro,      dpm_tunnel_checksum_update_msg,          dpm_tunnel_value_msg,  body)    \
    ROW (107, DPM_MSG_UPDATE_TUNNEL_KEY,           dpm_task_msg_update_tunnel_key_pro,           dpm_tunnel_key_update_msg,               dpm_tunnel_key_msg,    body)    \
    ROW (108, DPM_MSG_SYNC_ADD_TUNNEL_PORT,        dpm_task_msg_sync_add_tunnel_port_pro,        dpm_tunnel_port_entry_add_sync_process,  dpm_tunnel_port_entry, body)    \
    ROW (109, DPM_MSG_SYNC_DEL_TUNNEL_PORT,        dpm_task_msg_sync_del_tunnel_port_pro,        dpm_tunnel_port_entry_del_sync_process,  dpm_tunnel_port_entry, body)    \
    ROW (110, DPM_MSG_SYNC_ADD_TUNNEL,             dpm_task_msg_sync_add_tunnel_pro,             dpm_tunnel_entry_add_sync_process,       dpm_tunnel_entry,      body)    \
    ROW (111, DPM_MSG_SYNC_DEL_TUNNEL,             dpm_task_msg_sync_del_tunnel_pro,             dpm_tunnel_entry_del_sync_process,       dpm_tunnel_entry,      body)
// clang-format on

// The owners of ROW messages, on the worker, under the DPM lock.  The worker does not look at their
// results: each logs its own failures.
#define DPM_OWNER_body(owner, body) int owner(const body *);
#define DPM_OWNER_rules(owner, body) int owner(const body *);
#define DPM_OWNER_trunk(owner, body) int owner(const body *, std::uint32_t);
#define DPM_OWNER_packet(owner, body) int owner(const std::uint8_t *, std::uint32_t, const body *);
#define DPM_OWNER_sized(owner, body) int owner(const body *, std::uint32_t);
#define DPM_ROW(code, name, handler, owner, body, shape)                                           \
    struct body;                                                                                   \
    DPM_OWNER_##shape(owner, body)
#define DPM_CALL(code, name, owner, shape)
DPM_MESSAGES(DPM_ROW, DPM_CALL)
#undef DPM_ROW
#undef DPM_CALL

enum dpm_msg_code : std::uint32_t {
#define DPM_ROW(code, name, handler, owner, body, shape) name = code,
#define DPM_CALL(code, name, owner, shape) name = code,
    DPM_MESSAGES(DPM_ROW, DPM_CALL)
#undef DPM_ROW
#undef DPM_CALL
};

inline constexpr std::uint32_t DPM_MSG_LAST = 111;

// A message as it stands on the queue.
struct dpm_msg {
    std::uint32_t type; // dpm_msg_code
    std::uint32_t len;  // bytes of the block, or a value of the message's own
    std::uint32_t data; // the block, or a value of the message's own
    std::uint32_t arg;  // the block of packet and multicast messages
};
static_assert(sizeof(dpm_msg) == 16);
static_assert(sizeof(void *) == sizeof(std::uint32_t), "a pointer travels in a 32-bit word");

inline constexpr std::uint32_t DPM_QUEUE_MESSAGES = 32768;

// Sends with three further tries, a clock tick apart, and rests a tick after every 256th success of
// the process. 0, or the platform's last answer.  Any thread.
int dpm_msg_send(const dpm_msg *msg);

// Sends once, without pacing; the platform's answer.  Any thread.
int dpm_msg_send_direct(const dpm_msg *msg);

namespace dpm {

// The line that a failed post logs, under the poster's name.
struct send_error {
    const char *format; // of function and line
    const char *function;
    int line;
    int level = DPM_LEVEL_TRACE;
};
#define DPM_SEND_ERROR(format, ...)                                                                \
    (dpm::send_error{format, __func__, __LINE__ __VA_OPT__(, ) __VA_ARGS__})

// Packet and multicast messages carry their block in the arg word.
constexpr bool has_block_in_arg(std::uint32_t code) {
    return code >= DPM_MSG_IGMP_RX && code <= DPM_MSG_SLAVE_DEL_IPMC_GOURP_MEMBER;
}

// Posts the words of a message, or one with a block; 0, or -1 after logging.  A block that did not
// travel stays the caller's.
int post_words(std::uint32_t code, std::uint32_t len, std::uint32_t data, const send_error &error);
int post_block(std::uint32_t code, std::uint32_t len, const void *block, const send_error &error);

// A request in the making: a zeroed heap block, filled in place and posted.  What is not posted is
// zeroed and freed.
template <class Body> class request : public block<Body> {
    static_assert(std::is_trivially_copyable_v<Body>);

public:
    explicit request(const char *file = __builtin_FILE(), int line = __builtin_LINE())
        : block<Body>(file, line) {}

    // `len` is that of the body unless the message gives the word another meaning.
    int post(std::uint32_t code, const send_error &error, std::uint32_t len = sizeof(Body)) {
        if (post_block(code, len, this->get(), error) != 0)
            return -1;
        this->release();
        return 0;
    }
};

// Posts a copy of a record as it is; 0 or -1.
template <class Body>
int post_copy(const void *record, std::uint32_t code, const send_error &error) {
    request<Body> body;
    if (!body)
        return -1;
    std::memcpy(static_cast<void *>(body.get()), record, sizeof(Body));
    return body.post(code, error);
}

constexpr bool is_known_oper(std::uint32_t oper) {
    return oper == DPM_OPER_ADD || oper == DPM_OPER_DEL;
}

// The same, told under the caller's name when it is not.
bool is_known_oper(std::uint32_t oper, const call_site &caller);

// The codes of a pair of requests.
struct oper_codes {
    std::uint32_t add;
    std::uint32_t del;
    constexpr std::uint32_t of(std::uint32_t oper) const {
        return oper == DPM_OPER_ADD ? add : del;
    }
};

// A request of the suite's that the worker takes apart: its bytes are copied and posted.
template <std::size_t Bytes>
int post_request(const void *record, std::uint32_t oper, const oper_codes &codes,
                 const send_error &error) {
    struct opaque {
        unsigned char bytes[Bytes];
    };
    if (record == nullptr)
        return null_parameter(error.function, error.line);
    return is_known_oper(oper) ? post_copy<opaque>(record, codes.of(oper), error) : -1;
}

} // namespace dpm
