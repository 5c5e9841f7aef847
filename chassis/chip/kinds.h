// The kinds of object that the chip keeps.
//
// A kind is told once, as a struct: its key, its value, what both read like, what it uses and which
// rules hold for it.  From the list of kinds at the end come what the chip holds and what a change
// of it is, mistakes, the journal, what line cards keep, and `chip show`.
#pragma once

#include "chassis/chip/values.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace chassis::chip {

// What users call an object: its key, unless its kind has another name for them.
template <class Kind> struct Naming { using Name = typename Kind::Key; };
template <class Kind>
requires requires {
    typename Kind::Name;
}
struct Naming<Kind> {
    using Name = typename Kind::Name;
};
template <class Kind> using NameOf = typename Naming<Kind>::Name;
template <class Kind>
inline constexpr bool is_named_by_key = std::is_same_v<NameOf<Kind>, typename Kind::Key>;

// The object of one of these kinds that has this name.
template <class Kind, class... Others> struct Use { NameOf<Kind> key; };

constexpr bool is_label(std::uint32_t label) {
    return label < 1u << 20;
}

namespace kinds {

// What holds for a kind that does not say otherwise.
struct Kind {
    // Line cards keep it while control cards come and go; if not, each control card sets its own.
    static constexpr bool outlives_card = true;
    // Setting it again, to whatever, or taking away what is not there is no mistake.
    static constexpr bool is_setting = false;
    // One that is there may be put with another value.
    static constexpr bool is_replaced = false;
    // Two records may ask for the same object, over neighbours that are alike: the second is refused,
    // and that is no mistake.
    static constexpr bool is_ambiguous = false;
    // It cannot go while another object uses it.
    static constexpr bool is_pinned = false;
    // Its key is an index that the chip hands out.
    static constexpr bool is_indexed = false;
    // The tables may tell another thing of it than the chip since a request was refused on order.
    static constexpr bool may_differ = false;
    // The library does not take it away when no record wants it any more.
    static constexpr bool is_left_behind = false;
    // The library goes on as if a request had been carried out that was refused: what it asks for
    // next is then refused or done, and no mistake.
    static bool is_unheard(const auto &) { return false; }
    // The platform adds and deletes it as well, so it may have gone before it is deleted.
    static bool is_shared(const auto &) { return false; }
    static bool is_valid(const auto &, const auto &) { return true; }
    // Calls `visit` with the Use of each object that a value names.
    static void uses(const auto &, const auto &) {}
    // Calls `visit` with each index that the chip answered and that stands in a value.
    static void indexes(const auto &, const auto &) {}

    static std::string value_text(Nothing) { return "on"; }
};

struct Indexed : Kind {
    using Key = Index;
    static constexpr bool is_indexed = true;
    static constexpr std::string_view index_name = "index"; // in the journal
    static bool is_valid(Key index, const auto &) {
        return index >= first_index && index <= last_index;
    }
    static std::string key_text(Key index) { return std::to_string(index); }
};

struct Setting : Kind {
    static constexpr bool is_setting = true;
};

struct OfVlan : Kind {
    using Key = std::uint32_t;
    using Value = Nothing;
    static std::string key_text(Key vlan) { return "vlan " + std::to_string(vlan); }
};

struct interface : Kind { // of a VLAN
    using Key = std::uint16_t;
    using Value = Interface;
    static constexpr std::string_view name = "interface";
    static constexpr bool outlives_card = false;
    static bool is_unheard(const Value &) { return true; }
    static void indexes(const Value &value, const auto &visit) { visit(value.id); }
    static std::string key_text(Key vlan) { return "vlan " + std::to_string(vlan); }
    static std::string value_text(const Value &value);
};

struct VlanRule : OfVlan { // traps packets to the CPU
    static constexpr bool outlives_card = false;
};

struct arp_rule : VlanRule {
    static constexpr std::string_view name = "arp rule";
    static bool is_unheard(Value) { return true; }
};

struct ospf_rule : VlanRule {
    static constexpr std::string_view name = "ospf rule";
    static constexpr bool is_setting = true;
};

struct nd_rule : VlanRule {
    static constexpr std::string_view name = "nd rule";
    static constexpr bool is_setting = true;
};

struct nexthop : Indexed { // a neighbour behind a port
    using Value = NextHop;
    static constexpr std::string_view name = "next hop";
    static constexpr bool is_pinned = true;
    static std::string value_text(const Value &value);
};

struct mpls_vlan : OfVlan { // packets with labels are taken
    static constexpr std::string_view name = "mpls vlan";
    static constexpr bool is_setting = true;
    static constexpr bool is_left_behind = true;
};

struct ftn : Kind { // prefix to labels
    using Key = FtnKey;
    using Value = Ftn;
    using Name = LabelPath;
    static constexpr std::string_view name = "ftn";
    static constexpr bool is_ambiguous = true;
    static constexpr bool is_pinned = true;
    static Name name_of(const Value &value) { return {value.nhid, value.tunnel_id}; }
    static bool is_valid(const Key &key, const Value &);
    static void indexes(const Value &value, const auto &visit) {
        visit(value.nhid), visit(value.tunnel_id);
    }
    static std::string key_text(const Key &key);
    static std::string value_text(const Value &value);
};

struct ilm : Kind { // incoming label
    using Key = std::uint32_t;
    using Value = Ilm;
    static constexpr std::string_view name = "ilm";
    static bool is_valid(Key label, const Value &value);
    static void indexes(const Value &value, const auto &visit) {
        visit(value.nhid), visit(value.tunnel_id);
    }
    static std::string key_text(Key label) { return "label " + std::to_string(label); }
    static std::string value_text(const Value &value);
};

// The redundancy of a circuit that has two pseudowires: made with the first of them, it goes with the
// last.
struct pw_group : Indexed {
    using Value = std::uint32_t; // the role of the one that it uses: DAL_PW_*
    static constexpr std::string_view name = "pw group";
    static constexpr std::string_view index_name = "group";
    static constexpr bool is_setting = true;
    static constexpr bool is_pinned = true;
    static constexpr bool may_differ = true;
    static bool is_unheard(Value) { return true; } // a switch of one that is made again
    static bool is_valid(Key index, Value role) {
        return Indexed::is_valid(index, role) && role < 2;
    }
    static std::string value_text(Value role) { return role == 0 ? "primary" : "standby"; }
};

struct vpws : Kind { // a circuit's frames over a pseudowire, and back
    using Key = Pseudowire;
    using Value = Vpws;
    static constexpr std::string_view name = "vpws";
    static bool is_valid(const Key &, const Value &value);
    static void uses(const Value &value, const auto &visit) {
        visit(Use<ftn>{value.wire.path});
        if (value.aps_id != 0)
            visit(Use<pw_group>{value.aps_id});
    }
    static void indexes(const Value &value, const auto &visit) {
        visit(value.ac_nhid), visit(value.pw_nhid);
    }
    static std::vector<Match> matches(const Key &, const Value &value);
    static std::string key_text(const Key &key);
    static std::string value_text(const Value &value);
};

struct vpls : Kind { // a virtual bridge
    using Key = std::uint32_t;
    using Value = std::uint32_t; // forwarding id
    static constexpr std::string_view name = "vpls";
    static constexpr bool is_pinned = true;
    static std::string key_text(Key id) { return "vpls " + std::to_string(id); }
    static std::string value_text(Value fid) { return "fid " + std::to_string(fid); }
};

struct vpls_ac : Kind { // its circuit
    using Key = VplsCircuit;
    using Value = VplsAc;
    static constexpr std::string_view name = "vpls circuit";
    static constexpr bool is_ambiguous = true;
    static void uses(const Value &value, const auto &visit) { visit(Use<vpls>{value.vpls_id}); }
    static void indexes(const Value &value, const auto &visit) {
        visit(value.nhid), visit(value.logic_port);
    }
    static std::vector<Match> matches(const Key &key, const Value &);
    static std::string key_text(const Key &key);
    static std::string value_text(const Value &value);
};

struct vpls_pw : Kind { // its pseudowire
    using Key = Pseudowire;
    using Value = VplsPw;
    static constexpr std::string_view name = "vpls pw";
    static bool is_valid(const Key &key, const Value &value);
    static void uses(const Value &value, const auto &visit) {
        visit(Use<vpls>{value.vpls_id});
        visit(Use<ftn>{value.wire.path});
    }
    static void indexes(const Value &value, const auto &visit) {
        visit(value.nhid), visit(value.logic_port);
    }
    static std::string key_text(const Key &key);
    static std::string value_text(const Value &value);
};

struct port_key : Setting { // the fields that tell a port's packets apart
    using Key = PortKey;
    using Value = std::uint32_t;
    static constexpr std::string_view name = "port key";
    static constexpr bool is_left_behind = true; // as 0: switched off
    static std::string key_text(const Key &key);
    static std::string value_text(Value type) { return "key " + std::to_string(type); }
};

struct gre_tunnel : Kind { // packets to it are unpacked
    using Key = GreTunnel;
    using Value = Nothing;
    static constexpr std::string_view name = "gre tunnel";
    static std::string key_text(const Key &key);
};

struct gre_nexthop : Indexed { // packs what is sent to it
    using Value = GreNextHop;
    static constexpr std::string_view name = "gre next hop";
    static constexpr bool is_pinned = true;
    static std::string value_text(const Value &value);
};

// What an entry or a member leads to, unless it is the CPU.
void uses_target(Index index, const auto &visit);

// A group may go while entries still name it: they forward nowhere until they are deleted.
struct group : Indexed {
    using Value = Members;
    static constexpr std::string_view name = "group";
    static constexpr std::string_view index_name = "group";
    static constexpr std::size_t max_members = 64; // the library may add one past its own eight
    static bool is_valid(Key index, const Value &members) {
        return Indexed::is_valid(index, members) && members.size() <= max_members;
    }
    static void uses(const Value &members, const auto &visit) {
        for (const Index member : members)
            uses_target(member, visit);
    }
    static std::string value_text(const Value &members);
};

struct entry : Kind { // a host, a prefix or an interface address
    using Key = Address;
    using Value = Index; // of what it leads to
    static constexpr std::string_view name = "entry";
    static constexpr bool is_replaced = true;
    static bool is_unheard(Value index) { return index == to_cpu; }
    static bool is_shared(Value index) { return index == to_cpu; }
    static bool is_valid(const Key &key, Value) {
        return is_family(key.family) && key.prefix_len <= host_length(key.family) &&
               key.bytes == address_bytes(key.family, key.bytes.data());
    }
    static void uses(Value index, const auto &visit) { uses_target(index, visit); }
    static std::string key_text(const Key &key);
    static std::string value_text(Value index) { return "nexthop " + std::to_string(index); }
};

// Redirects the packets of a rule on a set of ports.  Each control card sets its own, over next hops
// that a standby's chip does not have: they are not pinned.
struct stream : Kind {
    using Key = StreamKey;
    using Value = Index; // of a next hop
    static constexpr std::string_view name = "stream";
    static constexpr bool outlives_card = false;
    static bool is_unheard(Value) { return true; } // a refused delete
    // Whether a packet from a port meets the rule; a rule asks for what is known alone.
    static bool matches(const Key &key, std::uint32_t port, const std::optional<Address> &source,
                        const std::optional<Address> &destination);
    static std::string key_text(const Key &key);
    static std::string value_text(Value index) { return "nexthop " + std::to_string(index); }
};

// A delete that was refused leaves the end point there, under an index that is not asked for again.
struct BfdMep : Kind {
    using Key = std::uint32_t;
    using Value = Mep;
    static constexpr Key first_mep = 2, last_mep = 2001;
    static constexpr bool may_differ = true;
    static bool is_unheard(const Value &) { return true; }
    static bool is_valid(Key index, const Value &value) {
        return index >= first_mep && index <= last_mep && value.record.index == index;
    }
    static std::string key_text(Key index) { return "mep " + std::to_string(index); }
    static std::string value_text(const Value &value);
};

struct bfd_local : BfdMep {
    static constexpr std::string_view name = "bfd local";
    // What only the other end is told.
    static Mep told(const hw_bfd_mep &record);
};

struct bfd_remote : BfdMep {
    static constexpr std::string_view name = "bfd remote";
    static Mep told(const hw_bfd_mep &record);
};

struct cpu_default : Setting { // what matches no entry goes to the CPU, or is dropped
    using Key = DefaultKey;
    using Value = bool;
    static constexpr std::string_view name = "default";
    static std::string key_text(const Key &key);
    static std::string value_text(Value cpu) { return cpu ? "to-cpu" : "drop"; }
};

struct hash_mode : Setting { // by which the chip spreads over a group
    using Key = Nothing;
    using Value = std::uint32_t;
    static constexpr std::string_view name = "hash";
    static std::string key_text(Key) { return "mode"; }
    static std::string value_text(Value mode) { return std::to_string(mode); }
};

// Multicast: each control card has a chip of its own, and the standby's is told whole tables more
// than once.
struct Mcast : Setting {
    static constexpr bool outlives_card = false;
    static constexpr bool may_differ = true;
    static bool is_unheard(const auto &) { return true; }
};

struct mcast_group : Mcast { // a source of a group
    using Key = McastGroup;
    using Value = Index; // the gid
    static constexpr std::string_view name = "mcast group";
    static bool is_valid(const Key &key, Value gid) { return is_family(key.family) && gid != 0; }
    static std::string key_text(const Key &key);
    static std::string value_text(Value gid) { return "gid " + std::to_string(gid); }
};

struct mcast_member : Mcast {
    using Key = McastMember;
    using Value = Nothing;
    static constexpr std::string_view name = "mcast member";
    static std::string key_text(const Key &key);
};

struct mcast_unknown : Mcast { // of a family: what no group knows goes to the CPU
    using Key = std::uint32_t;
    using Value = Nothing;
    static constexpr std::string_view name = "mcast unknown";
    static std::string key_text(Key family) { return "family " + std::to_string(family); }
};

void uses_target(Index index, const auto &visit) {
    if (index != to_cpu)
        visit(Use<nexthop, group, gre_nexthop>{index});
}

} // namespace kinds

// Every kind, in the order in which objects can be put: what is used stands in front of its users.
using Kinds =
    std::tuple<kinds::interface, kinds::arp_rule, kinds::ospf_rule, kinds::nd_rule,
               kinds::mpls_vlan, kinds::ftn, kinds::ilm, kinds::pw_group, kinds::vpws, kinds::vpls,
               kinds::vpls_ac, kinds::vpls_pw, kinds::port_key, kinds::gre_tunnel,
               kinds::gre_nexthop, kinds::nexthop, kinds::group, kinds::entry, kinds::stream,
               kinds::cpu_default, kinds::hash_mode, kinds::mcast_group, kinds::mcast_member,
               kinds::mcast_unknown, kinds::bfd_local, kinds::bfd_remote>;

// Calls `visit` with one of each.
template <class Visit> void each_kind(const Visit &visit) {
    std::apply([&](auto... kind) { (visit(kind), ...); }, Kinds());
}

// A kind's place in the list.
template <class Kind> constexpr std::uint32_t number_of() {
    return []<class... All>(std::tuple<All...>) {
        const bool is_it[] = {std::is_same_v<Kind, All>...};
        return std::uint32_t(std::find(std::begin(is_it), std::end(is_it), true) - is_it);
    }(Kinds());
}

// Something for each kind.
template <template <class> class Of>
using ForEachKind = decltype([]<class... All>(std::tuple<All...>) {
    return std::tuple<Of<All>...>();
}(Kinds()));

} // namespace chassis::chip
