// Neighbours that are held since their port went down.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"

namespace chassis::tables {

namespace {

std::string port_of(const dpm_hold_entry &entry) {
    return port_text(entry.port_type, entry.log_port_id, entry.phy_port_id);
}

} // namespace

const TableOf<dpm_hold_entry> hold{
    .each = walk<dpm_api_get_hold_entry_first, dpm_api_get_hold_entry_next>,
    .places =
        [](auto &entry) {
            return std::vector<Place>{{entry.vrf, entry.ip}};
        },
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"address", [](auto &entry) { return text_of(entry.ip); }},
                {"mac", [](auto &entry) { return mac_text(entry.mac); }},
                {"port", port_of},
                {"vlan", TABLE_MEMBER(svlan)},
                {"interface", [](auto &entry) { return interface_name(entry.ifindex); }},
                {"forgotten_in_sec", [](auto &entry) { return seconds_until(entry.timer); }}},
    .waits_for = [](auto &entry) { return "port " + port_of(entry) + " to come up"; },
    .why =
        [](auto &entry) {
            return "held since port " + port_of(entry) + " went down; forgotten in " +
                   seconds_text(seconds_until(entry.timer)) + "\n";
        },
};

} // namespace chassis::tables
