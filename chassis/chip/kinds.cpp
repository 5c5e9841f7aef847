// What keys and values read like.
#include "chassis/chip/kinds.h"

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

std::string cpu_default::key_text(const Key &key) {
    return "vrf " + to_string(key.vrf) + " family " + to_string(key.family);
}

} // namespace chassis::chip::kinds
