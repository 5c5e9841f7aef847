// What keys and values read like.
#include "chassis/chip/kinds.h"

#include "platform/dal.h"

#include <bit>
#include <cstring>
#include <span>

namespace chassis::chip {

bool Ilm::is_same_path(const Ilm &other) const {
    const auto path = [](const Ilm &ilm) {
        return std::tie(ilm.lookup, ilm.label_type, ilm.action, ilm.out_label, ilm.fec, ilm.other,
                        ilm.hop);
    };
    return path(*this) == path(other);
}

bool Mep::operator==(const Mep &other) const {
    return cc == other.cc && std::memcmp(&record, &other.record, sizeof record) == 0;
}

} // namespace chassis::chip

namespace chassis::chip::kinds {

namespace {

using std::to_string;

std::string mac_of(const auto &object) {
    return "mac " + mac_text(object.mac.data());
}

std::string port_of(const auto &object) {
    return (object.port_type == 1 ? "trunk " : "port ") + to_string(object.port_id);
}

} // namespace

std::string interface::value_text(const Value &value) {
    return mac_of(value) + " id " + to_string(value.id) +
           (value.vrf ? " vrf " + to_string(value.vrf) : "");
}

std::string nexthop::value_text(const Value &value) {
    return port_of(value) + " svlan " + to_string(value.svlan) + " cvlan " +
           to_string(value.cvlan) + " " + mac_of(value);
}

// --- labels ----------------------------------------------------------------------------------

namespace {

bool is_prefix(const Address &prefix) {
    return is_family(prefix.family) && prefix.prefix_len <= host_length(prefix.family);
}

std::string prefix_text(const Address &prefix) {
    return address_text(prefix.family, prefix.bytes.data()) + "/" + to_string(prefix.prefix_len);
}

std::string hop_text(const LabelHop &hop) {
    if (hop == LabelHop{} || (hop.port_id == 0 && hop.vlan == 0))
        return "";
    return " " + port_of(hop) + " svlan " + to_string(hop.vlan) + " " + mac_of(hop);
}

std::string rule_text(const LabelRule &rule) {
    const std::string ttl = rule.ttl_mode == DAL_TTL_SET ? to_string(rule.ttl)
                            : rule.ttl == 0              ? "kept"
                                                         : "less-" + to_string(rule.ttl);
    return " ttl " + ttl + " exp " + (rule.exp_type == DAL_EXP_COPY ? "kept" : to_string(rule.exp));
}

std::string answer_text(const auto &value) {
    return " nhid " + to_string(value.nhid) + " tunnel " + to_string(value.tunnel_id);
}

} // namespace

bool ftn::is_valid(const Key &key, const Value &) {
    const bool is_vpn = key.vpn.family != 0;
    return is_prefix(key.tunnel) && is_label(key.tunnel_label) &&
           (is_vpn ? is_prefix(key.vpn) && is_label(key.vpn_label) : key.vpn_label == DAL_NO_LABEL);
}

std::string ftn::key_text(const Key &key) {
    std::string text;
    if (key.vpn.family != 0)
        text = "vrf " + to_string(key.vpn.vrf) + " " + prefix_text(key.vpn) + " push " +
               to_string(key.vpn_label) + " over ";
    return text + prefix_text(key.tunnel) + " push " + to_string(key.tunnel_label) +
           hop_text(key.hop);
}

std::string ftn::value_text(const Value &value) {
    return rule_text(value.tunnel).substr(1) + answer_text(value);
}

bool ilm::is_valid(Key label, const Value &value) {
    const bool has_no_neighbour = value.lookup != 0 && value.fec.family == 0; // whose family it is
    return is_label(label) && is_label(value.out_label) &&
           (has_no_neighbour || is_prefix(value.fec));
}

std::string ilm::value_text(const Value &value) {
    const std::string action = value.action == DAL_ILM_SWAP ? "swap " + to_string(value.out_label)
                               : value.lookup == 1          ? "pop lookup"
                                                            : "pop";
    return action + (value.fec.vrf ? " vrf " + to_string(value.fec.vrf) : "") +
           hop_text(value.hop) + rule_text(value.rule) + answer_text(value);
}

std::string port_key::key_text(const Key &key) {
    return "type " + to_string(key.port_type) + " port " + to_string(key.port) + " subport " +
           to_string(key.subport) + " direction " + to_string(key.direction);
}

std::string gre_tunnel::key_text(const Key &key) {
    return "vrf " + to_string(key.vrf) + " source " + address_text(1, key.source.data()) +
           " destination " + address_text(1, key.destination.data()) + " key " +
           to_string(key.key) + " checksum " + to_string(key.checksum);
}

std::string gre_nexthop::value_text(const Value &value) {
    return port_of(value) + " vid " + to_string(value.vid) + " ivid " + to_string(value.ivid) +
           " " + mac_of(value) + " " + gre_tunnel::key_text(value.tunnel);
}

std::string group::value_text(const Value &members) {
    std::string text = "members";
    for (const Index member : members)
        text += " " + to_string(member);
    return text;
}

std::string entry::key_text(const Key &key) {
    return "vrf " + to_string(key.vrf) + " " + address_text(key.family, key.bytes.data()) + "/" +
           to_string(key.prefix_len);
}

std::string mcast_group::key_text(const Key &key) {
    return "vrf " + to_string(key.vrf) + " (" +
           (key.source_len == 0 ? "*" : address_text(key.family, key.source.data())) + ", " +
           address_text(key.family, key.group.data()) + ")";
}

std::string mcast_member::key_text(const Key &key) {
    return mcast_group::key_text(key.of) + " vlan " + to_string(key.vlan) + " port " +
           to_string(key.port);
}

std::string cpu_default::key_text(const Key &key) {
    return "vrf " + to_string(key.vrf) + " family " + to_string(key.family);
}

// --- streams ---------------------------------------------------------------------------------

namespace {

using Bytes = std::span<const std::uint8_t>;

std::uint16_t word_at(Bytes bytes, std::size_t at) {
    return std::uint16_t(at + 1 < bytes.size() ? bytes[at] | bytes[at + 1] << 8 : 0);
}

// What is no address is shown byte by byte.
std::string value_text(Bytes key, Bytes mask) {
    unsigned bits = 0;
    for (const std::uint8_t byte : mask)
        bits += unsigned(std::popcount(byte));
    if (key.size() == 4 || key.size() == 16)
        return address_text(key.size() == 4 ? 1 : 2, key.data()) + "/" + to_string(bits);
    std::string text;
    for (const std::uint8_t byte : key)
        text += (text.empty() ? "" : ".") + to_string(byte);
    return text + "/" + to_string(bits);
}

std::string field_text(std::uint16_t field) {
    return field == 1 ? " from " : field == 2 ? " to " : " field " + to_string(field) + " ";
}

// Records of 88 bytes: field, second id, length of key and mask, key, mask.
constexpr std::size_t record_bytes = 88;

Bytes key_of(Bytes record) {
    return record.subspan(8, std::min<std::size_t>(word_at(record, 4), 32));
}
Bytes mask_of(Bytes record) {
    return record.subspan(40, std::min<std::size_t>(word_at(record, 6), 48));
}

std::string rule_text(Bytes rule) {
    std::string text;
    for (; rule.size() >= record_bytes; rule = rule.subspan(record_bytes))
        text += field_text(word_at(rule, 0)) + value_text(key_of(rule), mask_of(rule));
    return text + (rule.empty() ? "" : " and " + to_string(rule.size()) + " bytes");
}

// The bytes of an address that a record's mask leaves are those of its key.
bool meets(const std::optional<Address> &address, Bytes key, Bytes mask) {
    const std::size_t length = key.size();
    if (!address || length != host_length(address->family) / 8u)
        return false;
    for (std::size_t i = 0; i < length; i++)
        if (const unsigned bits = i < mask.size() ? mask[i] : 0u;
            (address->bytes[i] & bits) != (key[i] & bits))
            return false;
    return true;
}

bool is_on(Bytes ports, std::uint32_t port) {
    for (std::size_t at = 4; at + 1 < ports.size(); at += 2)
        if (word_at(ports, at) == port)
            return true;
    return false;
}

// Records of an id, a count, and as many ports.
std::string ports_text(Bytes ports) {
    constexpr std::size_t most_told = 8;
    const std::size_t count = ports.size() < 4 ? 0 : (ports.size() - 4) / 2;
    if (count > most_told)
        return " on " + to_string(count) + " ports";
    std::string text = " on port";
    for (std::size_t i = 0; i < count; i++)
        text += (i == 0 ? " " : ",") + to_string(word_at(ports, 4 + 2 * i));
    return text;
}

} // namespace

bool stream::matches(const Key &key, std::uint32_t port, const std::optional<Address> &source,
                     const std::optional<Address> &destination) {
    if (!is_on(key.ports, port))
        return false;
    for (Bytes rule = key.rule; rule.size() >= record_bytes; rule = rule.subspan(record_bytes)) {
        const std::uint16_t field = word_at(rule, 0);
        if ((field != 1 && field != 2) ||
            !meets(field == 1 ? source : destination, key_of(rule), mask_of(rule)))
            return false;
    }
    return true;
}

std::string stream::key_text(const Key &key) {
    return "set " + to_string(key.vsid) + rule_text(key.rule) + ports_text(key.ports);
}

// --- BFD ---------------------------------------------------------------------------------------

namespace {

std::string state_text(unsigned state) {
    constexpr const char *names[] = {"admin-down", "down", "init", "up"};
    return state < std::size(names) ? names[state] : "state " + to_string(state);
}

} // namespace

// A remote end point is told its discriminator alone later on, a local one all but that.
Mep bfd_local::told(const hw_bfd_mep &record) {
    Mep mep{record, 0, 0};
    mep.record.remote_disc = 0;
    return mep;
}

Mep bfd_remote::told(const hw_bfd_mep &record) {
    Mep mep{record, 0, 0};
    mep.record.state = mep.record.timer3 = 0;
    mep.record.timer1 = mep.record.timer2 = 0;
    return mep;
}

std::string BfdMep::value_text(const Value &value) {
    const hw_bfd_mep &mep = value.record;
    std::string text = "disc " + to_string(mep.local_disc);
    if (mep.remote_disc != 0)
        text += " of " + to_string(mep.remote_disc);
    text += " type " + to_string(mep.type) + " " + address_text(mep.family, mep.local) + " > " +
            address_text(mep.family, mep.peer) + " port " + to_string(mep.port_id) + " " +
            mac_text(mep.mac);
    if (mep.timer1 != 0 || mep.timer2 != 0 || mep.timer3 != 0)
        text += " timers " + to_string(mep.timer1) + "," + to_string(mep.timer2) + "," +
                to_string(mep.timer3);
    return text + (mep.state != 0 ? " " + state_text(mep.state) : "") +
           (value.cc != 0 ? " cc" : "");
}

} // namespace chassis::chip::kinds
