// The requests that the chip takes.
//
// One row for each contract function.  From it come the kinds of request for refusals and counts,
// the words of `chip refuse`, and the callback that a slot's own answer goes through.
//
//   name    of the contract function behind dal_driver_ or hw_driver_ (ROW), or hal_ or hw_driver_
//           (SILENT; ipmc_group_set and ipmc_member_set are two rows each); also a refusal's
//   word    of the command language
//   answer  the library's callback; a SILENT request has none
//
// This header needs neither the library nor the chassis: the command language is built for any ABI.
#pragma once

#include <optional>
#include <string_view>

// clang-format off
#define CHIP_FUNCTIONS(ROW, SILENT)                                                                \
    ROW(add_l3_intf,           "interface",      dpm_driver_add_l3_intf_result)                    \
    ROW(delete_l3_intf,        "interface-del",  dpm_driver_delete_l3_intf_result)                 \
    ROW(interface_vrf_set,     "vrf",            dpm_driver_interface_vrf_set_result)              \
    ROW(interface_mpls_enable, "mpls",           dpm_driver_interface_mpls_enable_result)          \
    ROW(add_ip_entry,          "route",          dpm_driver_add_ip_entry_result)                   \
    ROW(del_ip_entry,          "route-del",      dpm_driver_del_ip_entry_result)                   \
    ROW(default_route_set,     "default-route",  dpm_driver_default_route_set_result)              \
    ROW(add_ip_nexthop,        "nexthop",        dpm_driver_add_ip_nexthop_result)                 \
    ROW(del_ip_nexthop,        "nexthop-del",    dpm_driver_del_ip_nexthop_result)                 \
    ROW(add_ecmp_nexthop,      "group",          dpm_driver_add_ecmp_nexthop_result)               \
    ROW(update_ecmp_nexthop,   "group-member",   dpm_driver_update_ecmp_nexthop_result)            \
    ROW(del_ecmp_nexthop,      "group-del",      dpm_driver_del_ecmp_nexthop_result)               \
    ROW(set_ecmp_hash_ctl,     "hash",           dpm_driver_set_ecmp_hash_ctl_result)              \
    ROW(mpls_ftn_add,          "ftn",            dpm_driver_mpls_ftn_add_result)                   \
    ROW(mpls_ftn_del,          "ftn-del",        dpm_driver_mpls_ftn_del_result)                   \
    ROW(mpls_ilm_add,          "ilm",            dpm_driver_mpls_ilm_add_result)                   \
    ROW(mpls_ilm_del,          "ilm-del",        dpm_driver_mpls_ilm_del_result)                   \
    ROW(vpws_entry_add,        "vpws",           dpm_driver_vpws_entry_add_result)                 \
    ROW(vpws_entry_del,        "vpws-del",       dpm_driver_vpws_entry_del_result)                 \
    ROW(vpws_entry_update,     "vpws-update",    dpm_driver_vpws_entry_update_result)              \
    ROW(vpws_entry_add_test,   "vpws-vlans",     dpm_driver_vpws_entry_add_result_test)            \
    ROW(vpws_entry_del_test,   "vpws-vlans-del", dpm_driver_vpws_entry_del_result_test)            \
    ROW(pw_group_switch,       "pw-switch",      dpm_driver_pw_group_switch_result)                \
    ROW(vpls_add,              "vpls",           dpm_driver_vpls_add_result)                       \
    ROW(vpls_del,              "vpls-del",       dpm_driver_vpls_del_result)                       \
    ROW(vpls_ac_entry_add,     "vpls-ac",        dpm_driver_vpls_ac_entry_add_result)              \
    ROW(vpls_ac_entry_del,     "vpls-ac-del",    dpm_driver_vpls_ac_entry_del_result)              \
    ROW(vpls_pw_entry_add,     "vpls-pw",        dpm_driver_vpls_pw_entry_add_result)              \
    ROW(vpls_pw_entry_del,     "vpls-pw-del",    dpm_driver_vpls_pw_entry_del_result)              \
    ROW(port_scl_key_type_set, "port-key",       dpm_driver_port_scl_key_type_set_result)          \
    ROW(add_gre_tunnel,        "gre",            dpm_driver_add_gre_tunnel_result)                 \
    ROW(del_gre_tunnel,        "gre-del",        dpm_driver_del_gre_tunnel_result)                 \
    ROW(add_gre_nexthop,       "gre-nexthop",    dpm_driver_add_gre_nexthop_result)                \
    ROW(update_gre_nexthop,    "gre-nexthop-update", dpm_driver_update_gre_nexthop_result)         \
    ROW(del_gre_nexthop,       "gre-nexthop-del", dpm_driver_del_gre_nexthop_result)               \
    SILENT(set_arp_to_cpu,     "arp-rule")                                                         \
    SILENT(set_ospf_to_cpu_ex, "ospf-rule")                                                        \
    SILENT(set_ipv6_ns_rule,   "nd-rule")                                                          \
    SILENT(set_stream_qos_item, "stream")                                                          \
    SILENT(delete_qos_item_by_stream, "stream-del")                                                   \
    ROW(interface_ipmc_enable, "mcast",          dpm_driver_interface_ipmc_enable_result)          \
    SILENT(ipmc_group_create,  "mcast-group")                                                      \
    SILENT(ipmc_group_destroy, "mcast-group-del")                                                  \
    SILENT(ipmc_member_add,    "mcast-member")                                                     \
    SILENT(ipmc_member_del,    "mcast-member-del")                                                 \
    SILENT(unknown_ipmc_set,   "mcast-unknown")                                                    \
    SILENT(set_igmp_to_cpu,    "igmp-rule")                                                        \
    SILENT(set_mld_to_cpu,     "mld-rule")                                                         \
    SILENT(bfd_lmep_add,       "bfd-local")                                                        \
    SILENT(bfd_lmep_del,       "bfd-local-del")                                                    \
    SILENT(bfd_lmep_update,    "bfd-local-update")                                                 \
    SILENT(bfd_rmep_add,       "bfd-remote")                                                       \
    SILENT(bfd_rmep_del,       "bfd-remote-del")                                                   \
    SILENT(bfd_rmep_update,    "bfd-remote-update")                                                \
    SILENT(bfd_get_remote_disc, "bfd-read")
// clang-format on

namespace chassis::chip {

enum class Function {
#define CHIP_FUNCTION(name, ...) name,
    CHIP_FUNCTIONS(CHIP_FUNCTION, CHIP_FUNCTION)
#undef CHIP_FUNCTION
        count
};

// By Function.
inline constexpr std::string_view function_names[] = {
#define CHIP_FUNCTION(name, ...) #name,
    CHIP_FUNCTIONS(CHIP_FUNCTION, CHIP_FUNCTION)
#undef CHIP_FUNCTION
};
inline constexpr std::string_view function_words[] = {
#define CHIP_FUNCTION(name, word, ...) word,
    CHIP_FUNCTIONS(CHIP_FUNCTION, CHIP_FUNCTION)
#undef CHIP_FUNCTION
};

constexpr std::string_view name_of(Function function) {
    return function < Function::count ? function_names[std::size_t(function)] : "?";
}

// By its name, or its word in the command language.
constexpr std::optional<Function> function_named(std::string_view name) {
    for (std::size_t i = 0; i < std::size_t(Function::count); i++)
        if (name == function_names[i] || name == function_words[i])
            return Function(i);
    return std::nullopt;
}

} // namespace chassis::chip
