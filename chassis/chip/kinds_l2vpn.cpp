// What keys and values of layer-2 services read like, and which frames their circuits match.
#include "chassis/chip/kinds.h"

#include "platform/dal.h"

namespace chassis::chip {

using std::to_string;

void VlanSet::add(std::uint16_t vlan) {
    const std::size_t byte = vlan / 8u;
    if (bits.size() <= byte)
        bits.resize(byte + 1);
    bits[byte] |= std::uint8_t(1u << vlan % 8);
}

bool VlanSet::has(std::uint32_t vlan) const {
    return vlan / 8 < bits.size() && (bits[vlan / 8] >> vlan % 8 & 1) != 0;
}

std::string VlanSet::text() const {
    std::string text;
    for (std::uint32_t vlan = 0; vlan < 8 * bits.size(); vlan++) {
        if (!has(vlan))
            continue;
        text += (text.empty() ? "" : ",") + to_string(vlan);
        const std::uint32_t first = vlan;
        while (has(vlan + 1))
            vlan++;
        if (vlan != first)
            text += "-" + to_string(vlan);
    }
    return text;
}

bool Vpws::is_same_service(const Vpws &other) const {
    return std::tie(circuit, wire, role, vlans) ==
           std::tie(other.circuit, other.wire, other.role, other.vlans);
}

} // namespace chassis::chip

namespace chassis::chip::kinds {

namespace {

// Left out where it is 0.
std::string part(const char *name, std::uint32_t value) {
    return value != 0 ? std::string(" ") + name + " " + to_string(value) : "";
}

std::string tpid_text(std::uint32_t tpid) {
    char text[20] = "";
    if (tpid != 0)
        std::snprintf(text, sizeof text, " tpid 0x%04x", unsigned(tpid));
    return text;
}

std::string peer_text(const Pseudowire &key) {
    return to_string(key.id) + " peer " + address_text(1, key.peer.data());
}

std::string wire_text(const Wire &wire) {
    return "in " + to_string(wire.in_label) + " out " + to_string(wire.out_label) + " nhid " +
           to_string(wire.path.nhid) + " tunnel " + to_string(wire.path.tunnel_id) +
           part("control-word", wire.control_word) + part("mode", wire.mode);
}

std::string circuit_text(const Circuit &circuit) {
    return "port " + to_string(circuit.port) + " vlan " + to_string(circuit.vlan) +
           part("svlan", circuit.svlan) + tpid_text(circuit.svlan_tpid) +
           part("cvlan", circuit.cvlan) + part("action", circuit.action) +
           part("action-vlan", circuit.action_vlan) + part("rule", circuit.match_rule);
}

bool is_valid_wire(const Wire &wire) {
    return is_label(wire.in_label) && is_label(wire.out_label);
}

std::uint32_t outer_tag(std::uint32_t vlan, std::uint32_t svlan) {
    return svlan != 0 ? svlan : vlan;
}

} // namespace

bool vpws::is_valid(const Key &, const Value &value) {
    return is_valid_wire(value.wire) && value.role <= DAL_PW_STANDBY &&
           value.vlans.bits.size() <= VlanSet::max_bytes;
}

std::vector<Match> vpws::matches(const Key &, const Value &value) {
    const Circuit &circuit = value.circuit;
    std::vector<Match> matches;
    for (std::uint32_t vlan = 0; vlan < 8 * value.vlans.bits.size(); vlan++)
        if (value.vlans.has(vlan))
            matches.push_back({circuit.port, vlan, circuit.cvlan});
    if (matches.empty())
        matches.push_back({circuit.port, outer_tag(circuit.vlan, circuit.svlan), circuit.cvlan});
    return matches;
}

std::string vpws::key_text(const Key &key) {
    return "vc " + peer_text(key);
}

std::string vpws::value_text(const Value &value) {
    return circuit_text(value.circuit) +
           (value.vlans.bits.empty() ? "" : " vlans " + value.vlans.text()) + " " +
           wire_text(value.wire) + (value.role == DAL_PW_PRIMARY ? "" : " standby") + " ac-nhid " +
           to_string(value.ac_nhid) + " pw-nhid " + to_string(value.pw_nhid) +
           part("aps", value.aps_id);
}

std::vector<Match> vpls_ac::matches(const Key &key, const Value &) {
    return {{key.port, outer_tag(key.vlan, key.svlan), key.cvlan}};
}

std::string vpls_ac::key_text(const Key &key) {
    return "port " + to_string(key.port) + " vlan " + to_string(key.vlan) +
           part("svlan", key.svlan) + part("cvlan", key.cvlan);
}

std::string vpls_ac::value_text(const Value &value) {
    return vpls::key_text(value.vpls_id) + tpid_text(value.svlan_tpid) +
           part("action", value.action) + " nhid " + to_string(value.nhid) + " logic-port " +
           to_string(value.logic_port);
}

bool vpls_pw::is_valid(const Key &key, const Value &value) {
    return is_valid_wire(value.wire) && key.id == value.vpls_id;
}

std::string vpls_pw::key_text(const Key &key) {
    return "vpls " + peer_text(key);
}

std::string vpls_pw::value_text(const Value &value) {
    return wire_text(value.wire) + (value.is_spoke != 0 ? " spoke" : "") + " nhid " +
           to_string(value.nhid) + " logic-port " + to_string(value.logic_port);
}

} // namespace chassis::chip::kinds
