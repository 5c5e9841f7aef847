// The command language: one list of commands, from which parsing, help and completion are made.
//
// A command is a path of literal words and a pattern of arguments:
//
//   NAME            an argument of that type (types.cpp), in this place
//   {dev NAME}      an attribute that must be there; attributes stand in any order
//   [vlan VLAN]     an attribute that may be there        [--json]   the same without a value
//   [via IP]*       the same, as often as wanted
//   [--vrf VRF]     an option; its dashes may be left out, as network people do
//   ...             what ip(8) prints and means nothing here (proto, scope, metric ...) is skipped
//
// A new command is one line in CTL_COMMANDS and, unless it is the client's own, one handler of that
// name in the card.  A new table's `show` comes with the table (chassis/tables/list.h).
#pragma once

#include "chassis/ctl/words.h"
#include "chassis/tables/list.h" // names alone

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace ctl {

// Where a command runs when the user names no card, and what it waits for.
enum class Kind {
    config, // on every card that is up: interfaces and settings are not mirrored
    change, // on the master: requests and events
    read,   // on the master, when everything asked before has been carried out
    ask,    // on the master, at once
    local,  // in the client
};

#define CTL_SHOW "[--vrf VRF] [SUBNET] [--count] [--json]"
#define CTL_ROUTE "DEST [nexthop]* [via IP]* [dev NAME]* [vrf VRF] [type NUMBER] ..."
#define CTL_NEIGHBOUR                                                                              \
    "IP {lladdr MAC} {dev NAME} [port PORT] [trunk TRUNK] [vlan VLAN] [cvlan VLAN]"

#define CTL_RULE "[set NUMBER] [from SUBNET] [to SUBNET] [port PORT]*"
#define CTL_BFD                                                                                    \
    "DISC {via IP} [peer IP] [local IP] [dev NAME] [remote DISC] [state BFDSTATE] [timers TIMERS]" \
    " [type NUMBER] [sub NUMBER] [id NUMBER] [fec PREFIX] [hold] [new] [admin-down]"
#define CTL_ILM "LABEL [as LABEL] [via FAMILY IP] [dev NAME] [vrf VRF] [fec DEST] ..."

#define CTL_PSEUDOWIRE "{vc-id VCID} {peer PEER}"
#define CTL_BRIDGE_PW "{vpls VPLSID} {peer PEER}"
#define CTL_VPWS_OUT                                                                               \
    CTL_PSEUDOWIRE " {label LABEL} [control-word] [sibling VCID PEER] [standby] [ac NAME] "        \
                   "[dev NAME] [mode NUMBER] [index NUMBER]"

#define CTL_TUNNEL                                                                                 \
    "TUNNEL [vrf VRF] [mode NUMBER] [underlay VRF] [addr PREFIX] [local IP] [remote IP] "          \
    "[key NUMBER] [nokey] [csum NUMBER]"

// A table's own command.
#define CTL_SHOW_TABLE(ROW, name, record, scope, help)                                             \
    ROW(show_##name, chassis::tables::typed_name<"show " #name>, CTL_SHOW_##scope, read, help)
#define CTL_SHOW_mirrored CTL_SHOW
#define CTL_SHOW_local CTL_SHOW
#define CTL_SHOW_history CTL_SHOW " [clear]"

// One row per command: its name (and that of its handler), path, arguments, kind, help.
#define CTL_COMMANDS(ROW)                                                                          \
    ROW(if_add, "if add", "NAME [vlan VLAN] [super]", config,                                      \
        "Add a VLAN interface or, with super, the interface of a super-VLAN")                      \
    ROW(if_del, "if del", "NAME", config, "Delete an interface")                                   \
    ROW(if_vrf, "if vrf", "NAME VRF", config, "Move an interface to a VRF")                        \
    ROW(if_list, "if list", "", ask, "Print the names of the interfaces")                          \
    ROW(addr_add, "addr add", "PREFIX {dev NAME}", config, "Add an address to an interface")       \
    ROW(addr_del, "addr del", "PREFIX {dev NAME}", config, "Take an address from an interface")    \
    ROW(sub_add, "sub add", "SUPERVLAN VLAN", config, "Make a VLAN a sub-VLAN of a super-VLAN")    \
    ROW(sub_del, "sub del", "SUPERVLAN VLAN", config, "Take a sub-VLAN from its super-VLAN")       \
    ROW(vlan_port, "vlan port", "VLAN [PORT] [trunk TRUNK]", config,                               \
        "Tell the first member port of a VLAN; without one it has none")                           \
    ROW(vrf_enable, "vrf enable", "VRF", config, "Enable a VRF")                                   \
    ROW(vrf_disable, "vrf disable", "VRF", config, "Disable a VRF")                                \
    ROW(hash, "hash", "NUMBER", config, "Set the mode by which the chip spreads over a group")     \
    ROW(ospf, "ospf", "PREFIX", config, "Say that OSPF runs on a network")                         \
    ROW(neigh_add, "neigh add", CTL_NEIGHBOUR " [nud NUD] [NUD] ...", change,                      \
        "The IP stack learns a neighbour")                                                         \
    ROW(neigh_del, "neigh del", "IP {dev NAME} [lladdr MAC] [vlan VLAN] [nud NUD] [NUD] ...",      \
        change, "The IP stack loses a neighbour")                                                  \
    ROW(neigh_reachable, "neigh reachable", CTL_NEIGHBOUR, config,                                 \
        "From now on this neighbour answers probes")                                               \
    ROW(neigh_silent, "neigh silent", "IP {dev NAME}", config,                                     \
        "From now on this neighbour answers no probe")                                             \
    ROW(route_add, "route add", CTL_ROUTE, change,                                                 \
        "Install a route; each via, with its dev, is a gateway")                                   \
    ROW(route_replace, "route replace", CTL_ROUTE, change, "As route add")                         \
    ROW(route_del, "route del", CTL_ROUTE, change, "Withdraw a route")                             \
    ROW(route_show, "route show", CTL_SHOW, read, "As show routes")                                \
    ROW(ecmp_show, "ecmp show", CTL_SHOW, read, "As show ecmp")                                    \
    ROW(ftn_show, "ftn show", CTL_SHOW, read, "As show ftn")                                       \
    ROW(ilm_show, "ilm show", CTL_SHOW, read, "As show ilm")                                       \
    ROW(pbr_add, "pbr add", CTL_RULE " {via IP} [vrf VRF]", config,                                \
        "Redirect traffic that matches a rule on ports, or on all, to a next hop")                 \
    ROW(pbr_del, "pbr del", CTL_RULE " [via IP] [vrf VRF]", config, "End a policy route")          \
    ROW(bfd_add, "bfd add", CTL_BFD, change,                                                       \
        "The chip runs a BFD session; again, with new or admin-down, it changes one")              \
    ROW(bfd_del, "bfd del", "DISC", change, "End a BFD session")                                   \
    ROW(bfd_update, "bfd update",                                                                  \
        "DISC [remote DISC] [state BFDSTATE] [cc SWITCH] [timers TIMERS]", change,                 \
        "Change a BFD session")                                                                    \
    ROW(mpls_if_add, "mpls if add", "NAME [space NUMBER]", change,                                 \
        "Packets with labels are taken on an interface")                                           \
    ROW(mpls_if_del, "mpls if del", "NAME", change, "The suite forgets such an interface")         \
    ROW(mpls_ftn_add, "mpls ftn add",                                                              \
        "DEST {encap mpls LABELS} {via IP} [dev NAME] [vrf VRF remote IP] ...", change,            \
        "Lead a prefix to a label; one of a VRF through the tunnel to its remote end")             \
    ROW(mpls_ftn_del, "mpls ftn del",                                                              \
        "DEST [encap mpls LABELS] {via IP} [dev NAME] [vrf VRF] [remote IP] ...", change,          \
        "Withdraw the label of a prefix over a next hop")                                          \
    ROW(mpls_ilm_add, "mpls ilm add", CTL_ILM, change,                                             \
        "Swap an incoming label, pop it towards a next hop or, without via, look behind it")       \
    ROW(mpls_ilm_del, "mpls ilm del", CTL_ILM, change, "Withdraw an incoming label")               \
    ROW(l2vpn_vpws_bind, "l2vpn vpws bind",                                                        \
        "NAME {vc-id VCID} [svlan VLAN] [tpid TPID] [cvlan VLAN] [action NUMBER] [match NUMBER]",  \
        change, "An interface becomes the attachment circuit of a pseudowire")                     \
    ROW(l2vpn_vpws_unbind, "l2vpn vpws unbind", "NAME", change,                                    \
        "An interface is an attachment circuit no more")                                           \
    ROW(l2vpn_vpws_out_add, "l2vpn vpws out add", CTL_VPWS_OUT, change,                            \
        "What a pseudowire sends to its peer gets this label; with sibling it is one of two of a " \
        "circuit")                                                                                 \
    ROW(l2vpn_vpws_out_del, "l2vpn vpws out del", CTL_PSEUDOWIRE, change,                          \
        "Withdraw the outgoing label of a pseudowire")                                             \
    ROW(l2vpn_vpws_in_add, "l2vpn vpws in add",                                                    \
        CTL_PSEUDOWIRE " {label LABEL} [ac NAME] [dev NAME]", change,                              \
        "What comes from a pseudowire's peer has this label")                                      \
    ROW(l2vpn_vpws_in_del, "l2vpn vpws in del", CTL_PSEUDOWIRE, change,                            \
        "Withdraw the incoming label of a pseudowire")                                             \
    ROW(l2vpn_vpls_add, "l2vpn vpls add", "VPLSID", change, "Make a virtual bridge")               \
    ROW(l2vpn_vpls_del, "l2vpn vpls del", "VPLSID", change,                                        \
        "End a virtual bridge that has no circuits and pseudowires")                               \
    ROW(l2vpn_vpls_bind, "l2vpn vpls bind",                                                        \
        "NAME {vpls VPLSID} [svlan VLAN] [tpid TPID] [cvlan VLAN] [action NUMBER]", change,        \
        "An interface becomes an attachment circuit of a virtual bridge")                          \
    ROW(l2vpn_vpls_unbind, "l2vpn vpls unbind", "NAME", change,                                    \
        "An interface is an attachment circuit no more")                                           \
    ROW(l2vpn_vpls_out_add, "l2vpn vpls out add",                                                  \
        CTL_BRIDGE_PW " {label LABEL} [spoke] [control-word] [vc-id VCID] [dev NAME] "             \
                      "[mode NUMBER] [index NUMBER]",                                              \
        change,                                                                                    \
        "What a virtual bridge sends to a peer gets this label; without spoke nothing that came "  \
        "from another peer")                                                                       \
    ROW(l2vpn_vpls_out_del, "l2vpn vpls out del", CTL_BRIDGE_PW, change,                           \
        "Withdraw the outgoing label of a virtual bridge's peer")                                  \
    ROW(l2vpn_vpls_in_add, "l2vpn vpls in add",                                                    \
        CTL_BRIDGE_PW " {label LABEL} [vc-id VCID] [dev NAME]", change,                            \
        "What comes from a peer of a virtual bridge has this label")                               \
    ROW(l2vpn_vpls_in_del, "l2vpn vpls in del", CTL_BRIDGE_PW, change,                             \
        "Withdraw the incoming label of a virtual bridge's peer")                                  \
    ROW(l2vpn_switch, "l2vpn switch", "NUMBER ROLE", change,                                       \
        "A redundancy group uses its primary pseudowire, or the standby one")                      \
    ROW(mroute_add, "mroute add", "SOURCE GROUP NAME [NAME]* [vrf VRF]", change,                   \
        "Forward a source's packets, or everybody's (* or any), of a group from an interface to "  \
        "others")                                                                                  \
    ROW(mroute_del, "mroute del", "SOURCE GROUP [NAME]* [vrf VRF]", change,                        \
        "End what mroute add of this source and group began")                                      \
    ROW(mcast_snoop, "mcast snoop", "SWITCH [FAMILY]", change,                                     \
        "Listen to the reports of hosts about groups, of one family or both")                      \
    ROW(rx, "rx",                                                                                  \
        "PORT [PATH] [live DEVICE] [hex BYTES] [vlan VLAN] [timed] [save PATH]", change,           \
        "A port receives the frames of a capture, of a device of this machine, or one in digits")  \
    ROW(tunnel_add, "tunnel add", CTL_TUNNEL, change, "Make a GRE tunnel, and set it")             \
    ROW(tunnel_set, "tunnel set", CTL_TUNNEL, change, "Set a GRE tunnel")                          \
    ROW(tunnel_del, "tunnel del", "TUNNEL [addr PREFIX] [local IP] [remote IP]", change,           \
        "End a GRE tunnel, or what is named of it")                                                \
    ROW(port_up, "port up", "PORT", change, "A port's link comes up")                              \
    ROW(port_down, "port down", "PORT", change, "A port's link goes down")                         \
    ROW(trunk_up, "trunk up", "TRUNK", change, "A trunk's link comes up")                          \
    ROW(trunk_down, "trunk down", "TRUNK", change, "A trunk's link goes down")                     \
    ROW(trunk_join, "trunk join", "TRUNK {port PORT}", change, "A port joins a trunk")             \
    ROW(trunk_leave, "trunk leave", "TRUNK {port PORT}", change, "A port leaves a trunk")          \
    ROW(card_status, "card status", "[--json]", ask, "Slot, role, peer, queue, chip mistakes")     \
    ROW(card_role, "card role", "", ask, "Print master or standby")                                \
    ROW(card_master, "card master", "", ask, "The card becomes master; with --card")               \
    ROW(card_standby_lost, "card standby-lost", "", change,                                        \
        "The standby card is no longer fit for use: mirroring stops at the next check")            \
    ROW(card_standby_usable, "card standby-usable", "", change,                                    \
        "The standby is fit for use again")                                                        \
    ROW(card_slot_up, "card slot-up", "SLOT", change, "The card in a slot comes up")               \
    ROW(card_quit, "card quit", "", ask, "The card's process ends")                                \
    ROW(chip_lookup, "chip lookup", "IP [from SENDER] [vrf VRF]", read,                            \
        "Where the chip would forward to, of a group and its sender too")                          \
    ROW(chip_trace, "chip trace",                                                                  \
        "[IP] [label LABELS] [vrf VRF] [ttl TTL] [exp EXP] [port PORT] [from IP]", read,           \
        "What the chip does with a packet, step by step")                                          \
    ROW(chip_trace_frame, "chip trace frame",                                                      \
        "[port PORT] [vlan VLAN] [inner VLAN] [label LABELS] {from MAC} {to MAC}", read,           \
        "What the chip does with an Ethernet frame; virtual bridges learn from it")                \
    ROW(chip_show, "chip show", "[--json]", read, "What the chip holds")                           \
    ROW(chip_check, "chip check", "", read, "Compare the tables with the chip")                    \
    ROW(journal, "journal", "[STATE] [CHANNEL]* [last COUNT]", read,                               \
        "Print what left the library, in order; on, off and clear govern the recording")           \
    ROW(chip_mistakes, "chip mistakes", "", read, "Requests that a chip would not understand")     \
    ROW(chip_refuse, "chip refuse", "REQUEST COUNT [skip COUNT] [code NUMBER]", change,            \
        "The chip refuses the next requests of a kind")                                            \
    ROW(chip_bfd_up, "chip bfd up", "DISC {remote DISC}", change,                                  \
        "The peer of a BFD session talks; the chip reports it")                                    \
    ROW(chip_bfd_lost, "chip bfd lost", "DISC", change,                                            \
        "The peer of a BFD session talks no more; the chip reports it if it checks continuity")    \
    CHASSIS_TABLES(CTL_SHOW_TABLE, ROW)                                                            \
    ROW(show_memory, "show memory", "[--count] [--json]", read, "Live heap blocks by place")       \
    ROW(show_counters, "show counters", "[--json]", read, "Requests made of the chip, and others") \
    ROW(suite_start, "suite start", "[PROTOCOL] [index COUNT]", ask,                               \
        "Start the tasks of the routing suite, or of one protocol")                                \
    ROW(show_tasks, "show tasks", "[--json]", ask, "The card's tasks, and how they were started")  \
    ROW(show_log, "show log", "[last COUNT]", ask, "The last lines of the card's log")             \
    ROW(log_level, "log level", "NUMBER", config, "Log lines of this level and above only")        \
    ROW(clock_show, "clock show", "", ask, "The card's clock")                                     \
    ROW(clock_advance, "clock advance", "DURATION", config, "Move the clock forward")              \
    ROW(fault, "fault", "FAULT COUNT [times COUNT]", change,                                       \
        "The Nth operation of a kind from now on fails; 0 disarms")                                \
    ROW(digest, "digest", "[TABLE]", read, "A digest of each mirrored table, or of its records")   \
    ROW(settle, "settle", "", read,                                                                \
        "Wait until all asked before is carried out, and told the standby")                        \
    ROW(config, "config", "", ask, "Print the settings of the card as commands")                   \
    ROW(why, "why", "SUBNET [vrf VRF]", read,                                                      \
        "Whether the chip has an address or a prefix, and if not what it waits for and since "     \
        "when")                                                                                    \
    ROW(why_vpws, "why vpws", "VCID [peer PEER]", read,                                            \
        "Whether the chip has a pseudowire, and if not what it waits for")                         \
    ROW(why_vpls, "why vpls", "VPLSID [peer PEER]", read,                                          \
        "Whether the chip has a virtual bridge with all that belongs to it, and what is missing")  \
    ROW(verify, "verify", "", local,                                                               \
        "Compare the two cards, and the master's tables and its chip")                             \
    ROW(import, "import",                                                                          \
        "[--dev-map DEVMAP]* [--dev NAME] [--port PORT] [--reachable] [file PATH]", local,         \
        "Feed the lines of ip neigh, ip route and ip monitor, from stdin or a file")               \
    ROW(help, "help", "[TOPIC]*", local, "What there is to type")                                  \
    ROW(quit, "quit", "", local, "Leave the prompt")

enum class Verb {
#define CTL_ROW(name, path, arguments, kind, help) name,
    CTL_COMMANDS(CTL_ROW)
#undef CTL_ROW
};

struct Command {
    Verb verb;
    const char *name;
    std::string_view path;
    std::string_view arguments;
    Kind kind;
    std::string_view help;
};

std::string command_line_of(const Command &command); // its path and arguments
const std::vector<Command> &commands();

// --- types of arguments ----------------------------------------------------------------------

struct Type {
    std::string_view name;
    std::string_view expected;              // what an error says
    bool (*accepts)(std::string_view text); // null: the values below
    std::vector<std::string_view> values;   // all of them, or empty when there are too many

    bool takes(std::string_view text) const;
};

const Type &type_named(std::string_view name);
// How many words of ip(8) mean nothing here, from one on.
std::size_t skipped_words(const std::vector<Word> &words, std::size_t at);

// --- parsing ---------------------------------------------------------------------------------

struct Error {
    std::size_t column; // from 1
    std::string text;
};

// An argument: its key is the literal word in front of it, or its type when there is none.
struct Argument {
    std::string_view key;
    std::string_view value; // empty for a literal alone
};

// What may stand in a place: a literal word, or a value of a type.
struct Expected {
    std::string_view literal; // empty: a value
    const Type *type = nullptr;

    bool takes(std::string_view text) const;
    std::string text() const;
};

struct Parsed {
    const Command *command = nullptr; // null: an empty line, or no such command
    std::vector<Argument> arguments;  // views of the line, in the order given
    std::optional<Error> error;
    std::vector<Expected> expected; // what could stand behind the last word

    bool has(std::string_view key) const;
    std::string_view value(std::string_view key) const; // empty when it is not there
    std::vector<std::string_view> values(std::string_view key) const;
    // Of an argument that was checked as a number; `otherwise` when it is not there.
    std::uint64_t number(std::string_view key, std::uint64_t otherwise = 0) const;
};

// The line must outlive what is parsed from it.
Parsed parse(std::string_view line);

// The words that may stand in place of the last, begun one.  `values_of` supplies values of types
// that the language cannot list (interface names).
using Values = std::function<std::vector<std::string>(std::string_view type)>;
std::vector<std::string> complete(std::string_view line, const Values &values_of = {});

// All commands, or those that begin with these words; empty when there is none.
std::string help(std::string_view topic = {});

} // namespace ctl
