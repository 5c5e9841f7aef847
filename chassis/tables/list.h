// The list of tables.  Its rows name everything that is made for a table: its description
// (tables.h), the command `show NAME`, and the tables that `digest` and `verify` compare.
//
//   T, ROW  what a user of the list makes of a row, and a word of his that it passes on
//   name    of the description, which stands in a file of its own
//   record  that the table holds
//   scope   mirrored: the standby holds the same records
//           local: the card's own
//           history: what IP stack and suite were asked and told, oldest first, until it is cleared
//   help    of the command
//
// The order is that of the answers of `digest` and `why`.
#pragma once

#include <algorithm>
#include <string_view>

namespace chassis::tables {

// A row's name as it is typed, with dashes: typed_name<"mpls_if">.
template <std::size_t Size> struct NameText {
    consteval NameText(const char (&name)[Size]) {
        std::ranges::replace_copy(name, text, '_', '-');
    }
    char text[Size]{};
};
template <NameText Name> constexpr std::string_view typed_name = Name.text;

} // namespace chassis::tables

// clang-format off
#define CHASSIS_TABLES(T, ROW)                                                                     \
    T(ROW, interfaces,  dpm_if_entry,          local,    "L3 interfaces with their addresses")     \
    T(ROW, vrfs,        Vrf,                   local,    "VRFs that were enabled or disabled")     \
    T(ROW, hosts,       dpm_host_entry,        mirrored, "Resolved neighbours")                    \
    T(ROW, unreachable, dpm_unreachable_entry, local,    "Addresses that are waited for")          \
    T(ROW, hold,        dpm_hold_entry,        local,    "Neighbours held since a port went down") \
    T(ROW, nexthops,    dpm_nexthop_entry,     mirrored, "The chip's next hops, shared by hosts")  \
    T(ROW, routes,      dpm_route_entry,       mirrored, "Routes, with their gateways' next hops") \
    T(ROW, ecmp,        dpm_ecmp_entry,        mirrored, "Groups of next hops, with their routes") \
    T(ROW, tunnels,      dpm_tunnel_entry,      mirrored, "GRE tunnels, with their routes")        \
    T(ROW, tunnel_ports, dpm_tunnel_port_entry, mirrored, "Ports on which GRE next hops are")      \
    T(ROW, mpls_if,     dpm_mpls_if,           mirrored, "Interfaces that take labels")            \
    T(ROW, ftn,         dpm_ftn,               mirrored, "Label entries by prefix")                \
    T(ROW, ilm,         dpm_ilm,               mirrored, "Label entries by incoming label")        \
    T(ROW, vpws_ac,     dpm_vpws_acif,         mirrored, "Attachment circuits of pseudowires")      \
    T(ROW, vpws_out,    dpm_vpws_vc_fib,       mirrored, "Pseudowires, by peer: what they send")   \
    T(ROW, vpws_in,     dpm_vpws_vc_ilm,       mirrored, "Pseudowires, by peer: what they take")   \
    T(ROW, vpls,        dpm_vpls_vsi,          mirrored, "Virtual bridges (VPLS)")                 \
    T(ROW, vpls_ac,     dpm_vpls_acif,         mirrored, "Attachment circuits of virtual bridges") \
    T(ROW, vpls_out,    dpm_vpls_vc_fib,       mirrored, "Their pseudowires: what they send")      \
    T(ROW, vpls_in,     dpm_vpls_vc_ilm,       mirrored, "Their pseudowires: what they take")      \
    T(ROW, pbr,         dpm_policy_route_entry, local,   "Policy routes, by rule and ports")       \
    T(ROW, mroutes,        Mroute,           mirrored, "Sources of multicast groups")              \
    T(ROW, mroute_members, MrouteMember,     mirrored, "Ports that get a source's packets")        \
    T(ROW, mgroups,        dpm_ipmc_rx_port, local,    "Multicast groups that ports reported")     \
    T(ROW, bfd,         dpm_bfd_sess,          mirrored, "BFD sessions")                           \
    T(ROW, timers,      Timer,                 local,    "Timers that run, by what they are for")  \
    T(ROW, neighbours,  dpm_host_info,         local,    "The IP stack's own cache")               \
    T(ROW, probes,      stack::Probe,          history,  "Probes asked of the IP stack")           \
    T(ROW, deletions,   stack::NeighbourKey,   history,  "Deletions asked of the IP stack")        \
    T(ROW, bfd_reports, suite::BfdReport,      history,  "States of BFD sessions told to the suite")
// clang-format on
