// Keys and values of what the chip keeps (kinds.h).  Each byte of them is told.
#pragma once

#include "chassis/address.h"
#include "platform/hw.h"

#include <compare>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace chassis::chip {

struct Nothing { // value of what is there or not; key of what there is one of
    auto operator<=>(const Nothing &) const = default;
};

using Index = std::uint32_t; // handed out by the chip, one row for all kinds
inline constexpr Index first_index = 16, last_index = 0x7FFFFFFF;
inline constexpr Index to_cpu = 2; // what entries to the CPU lead to

struct Address { // key of an address entry
    std::int32_t vrf;
    std::uint32_t family;
    AddressBytes bytes; // host bits as given
    std::uint32_t prefix_len;
    auto operator<=>(const Address &) const = default;
};

struct NextHop {
    std::uint32_t port_type, port_id;
    std::uint16_t svlan, cvlan;
    std::array<std::uint8_t, 6> mac;
    std::uint16_t zero = 0; // so that each byte is told
    auto operator<=>(const NextHop &) const = default;
};

struct Interface {
    Index id;
    std::uint16_t vrf;
    std::array<std::uint8_t, 6> mac;
    auto operator<=>(const Interface &) const = default;
};

using Ipv4 = std::array<std::uint8_t, 4>; // in network order

struct GreTunnel {
    std::uint32_t vrf;
    Ipv4 source, destination;
    std::uint32_t key, checksum;
    auto operator<=>(const GreTunnel &) const = default;
};

struct GreNextHop {
    std::uint32_t port_type, port_id, vid, ivid;
    GreTunnel tunnel;
    std::array<std::uint8_t, 6> mac;
    std::uint16_t zero = 0;
    auto operator<=>(const GreNextHop &) const = default;
};

struct PortKey { // of what tells a port's packets apart
    std::uint32_t port_type;
    std::uint16_t port, subport;
    std::uint32_t direction;
    auto operator<=>(const PortKey &) const = default;
};

struct DefaultKey { // of what matches no entry
    std::uint32_t family;
    std::uint32_t vrf;
    auto operator<=>(const DefaultKey &) const = default;
};

struct LabelHop { // the neighbour that a label entry leads to; all zero: none
    std::uint32_t port_type, port_id;
    std::uint16_t vlan;
    std::array<std::uint8_t, 6> mac;
    auto operator<=>(const LabelHop &) const = default;
};

struct LabelRule { // what becomes of TTL and EXP where a label is written (dal.h)
    std::uint8_t ttl_mode, ttl, exp_type, exp;
};

// What a delete of an FTN names.  A tunnel has no VPN prefix; a VPN prefix leads to a tunnel.
struct FtnKey {
    Address tunnel; // VRF 0
    Address vpn;    // family 0: none
    std::uint32_t tunnel_label, vpn_label;
    LabelHop hop;
    auto operator<=>(const FtnKey &) const = default;
};

// What the chip answered, and the rules of the settings at that time, which no table keeps.
struct Ftn {
    Index nhid, tunnel_id;
    LabelRule tunnel, vpn;
    bool operator==(const Ftn &other) const {
        return nhid == other.nhid && tunnel_id == other.tunnel_id;
    }
};

struct Ilm {
    std::uint32_t lookup, label_type, action, out_label;
    Address fec;         // of the label's VRF
    std::uint32_t other; // family byte behind the address
    LabelHop hop;
    Index nhid, tunnel_id;
    LabelRule rule; // of all its labels
    bool is_same_path(const Ilm &other) const;
    bool operator==(const Ilm &other) const {
        return is_same_path(other) && nhid == other.nhid && tunnel_id == other.tunnel_id;
    }
};

struct McastGroup { // key of a source of a multicast group
    std::uint32_t vrf, family;
    AddressBytes group, source;
    std::uint32_t source_len; // 0: any source
    auto operator<=>(const McastGroup &) const = default;
};

struct McastMember { // key of a port that gets a source's packets
    McastGroup of;
    std::uint32_t port, vlan;
    auto operator<=>(const McastMember &) const = default;
};

using Members = std::vector<Index>;

struct StreamKey {
    std::uint32_t vsid; // rule set
    std::vector<std::uint8_t> rule, ports;
    auto operator<=>(const StreamKey &) const = default;
};

// A maintenance end point of BFD, as it was added and changed since.
struct Mep {
    hw_bfd_mep record;
    std::uint32_t cc;    // of a local one: 1, continuity is checked
    std::uint32_t heard; // of a remote one: the discriminator in the peer's packets
    bool operator==(const Mep &other) const; // in what requests told
};

// --- layer-2 services --------------------------------------------------------------------------

struct LabelPath { // an FTN, by what the chip answered
    Index nhid, tunnel_id;
    auto operator<=>(const LabelPath &) const = default;
};

struct Pseudowire {   // key
    std::uint32_t id; // of a multipoint one its VPLS
    Ipv4 peer;
    auto operator<=>(const Pseudowire &) const = default;
};

struct Wire { // what becomes of a pseudowire's frames
    std::uint32_t in_label, out_label;
    LabelPath path;
    std::uint16_t control_word, mode;
    auto operator<=>(const Wire &) const = default;
};

struct VlanSet {
    std::vector<std::uint8_t> bits; // one for each VLAN, as many bytes as the last one needs

    static constexpr std::size_t max_bytes = 512;
    void add(std::uint16_t vlan);
    bool has(std::uint32_t vlan) const;
    std::string text() const; // "1,8-10"
    auto operator<=>(const VlanSet &) const = default;
};

struct Circuit { // of a point-to-point pseudowire
    std::uint32_t port, vlan;
    std::uint16_t svlan, svlan_tpid, cvlan, action_vlan;
    std::uint32_t action, match_rule;
    auto operator<=>(const Circuit &) const = default;
};

struct Vpws {
    Circuit circuit;
    Wire wire;
    std::uint32_t role;                            // DAL_PW_*
    Index ac_nhid, pw_nhid, aps_id;                // group 0: none
    VlanSet vlans;                                 // outer ones, in the place of the circuit's own
    bool is_same_service(const Vpws &other) const; // whatever the chip answered
    auto operator<=>(const Vpws &) const = default;
    auto parts() { return std::tie(circuit, wire, role, ac_nhid, pw_nhid, aps_id, vlans.bits); }
    auto parts() const {
        return std::tie(circuit, wire, role, ac_nhid, pw_nhid, aps_id, vlans.bits);
    }
};

struct VplsCircuit { // key
    std::uint32_t port, vlan;
    std::uint16_t svlan, cvlan;
    auto operator<=>(const VplsCircuit &) const = default;
};

struct VplsAc {
    std::uint32_t vpls_id, action, svlan_tpid;
    Index nhid, logic_port;
    auto operator<=>(const VplsAc &) const = default;
};

struct VplsPw {
    std::uint32_t vpls_id; // the key's
    Wire wire;
    std::uint32_t is_spoke;
    Index nhid, logic_port;
    auto operator<=>(const VplsPw &) const = default;
};

struct Match {                        // the frames of a port with these tags
    std::uint32_t port, outer, inner; // 0: no outer tag, any inner one
    auto operator<=>(const Match &) const = default;
};

} // namespace chassis::chip
