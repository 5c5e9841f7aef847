// The trees of tunnels and of their ports: orders, lookups, and the index by ends.  Below everything
// else that is known about tunnels, so that each of those sources can use it.
#include "dpm_tunnel_record.h"

#include "dpm_address.h"
#include "platform/dal.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr char name_prefix[] = "tunnel";

int ends_order(const dpm::tunnel_ends &a, const dpm::tunnel_ends &b) {
    if (a.vrf != b.vrf)
        return dpm::three_way(a.vrf, b.vrf);
    if (const int order = dpm::bytes_order(&a.source, &b.source, sizeof a.source))
        return order;
    if (const int order = dpm::bytes_order(&a.destination, &b.destination, sizeof a.destination))
        return order;
    return dpm::three_way(a.key, b.key);
}

int by_ends_order(const tunnel_record &a, const tunnel_record &b) {
    if (const int order = ends_order(dpm::ends_of(a.entry), dpm::ends_of(b.entry)))
        return order;
    return dpm_tunnel_compare(a.entry, b.entry);
}

using ends_index = dpm::avl_table<tunnel_record, by_ends_order, offsetof(tunnel_record, by_ends)>;

ends_index by_ends() {
    return ends_index(g_dpm_index.tunnel_by_ends);
}

} // namespace

namespace dpm {

bool tunnel_ends::operator==(const tunnel_ends &other) const {
    return ends_order(*this, other) == 0;
}

tunnel_ends ends_of(const dpm_tunnel_entry &tunnel) {
    return {tunnel.ip_vrfid, tunnel.source, tunnel.destination,
            tunnel.key_enable != 0 ? tunnel.key : DAL_GRE_NO_KEY};
}

tunnel_table tunnels() {
    return tunnel_table(g_dpm_global.tunnel_tree);
}
tunnel_port_table tunnel_ports() {
    return tunnel_port_table(g_dpm_global.tunnel_port_tree);
}

void tunnel_tables_create() {
    tunnels().create();
    by_ends().create();
}

void tunnel_leave_index(tunnel_record &record) {
    by_ends().remove(record);
}
void tunnel_enter_index(tunnel_record &record) {
    (void)by_ends().add(record);
}

void link_tunnel(tunnel_record &record) {
    (void)tunnels().add(record.entry);
    tunnel_enter_index(record);
}

void unlink_tunnel(tunnel_record &record) {
    tunnel_leave_index(record);
    tunnels().remove(record.entry);
}

dpm_tunnel_entry *first_with(const tunnel_ends &ends) {
    tunnel_record key = {}; // before every tunnel with these ends: of id 0
    key.entry.ip_vrfid = ends.vrf;
    key.entry.source = ends.source;
    key.entry.destination = ends.destination;
    key.entry.key_enable = DPM_ENABLE;
    key.entry.key = ends.key;
    tunnel_record *record = by_ends().find_from(key);
    return record != nullptr && ends_of(record->entry) == ends ? &record->entry : nullptr;
}

dpm_tunnel_entry *next_with_same(const dpm_tunnel_entry &tunnel) {
    tunnel_record *record = by_ends().next(record_of(tunnel));
    return record != nullptr && ends_of(record->entry) == ends_of(tunnel) ? &record->entry
                                                                          : nullptr;
}

} // namespace dpm

int dpm_tunnel_compare(const dpm_tunnel_entry &a, const dpm_tunnel_entry &b) {
    return dpm::three_way(a.tunnel_id, b.tunnel_id);
}

int dpm_tunnel_port_compare(const dpm_tunnel_port_entry &a, const dpm_tunnel_port_entry &b) {
    if (a.port_type != b.port_type)
        return dpm::three_way(a.port_type, b.port_type);
    if (a.port != b.port)
        return dpm::three_way(a.port, b.port);
    return dpm::three_way(a.subport, b.subport);
}

dpm_tunnel_entry *dpm_tunnel_find_by_entry(const dpm_tunnel_entry *key) {
    if (key == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    return dpm::tunnels().find(*key);
}

dpm_tunnel_entry *dpm_tunnel_find_by_tunnelid(std::uint32_t tunnel_id) {
    dpm_tunnel_entry key; // only what the compare reads is set
    key.tunnel_id = tunnel_id;
    return dpm::tunnels().find(key);
}

// The name tells the id.
dpm_tunnel_entry *dpm_tunnel_find_by_tunnelname(const char *name) {
    if (name == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    constexpr std::size_t length = sizeof name_prefix - 1;
    if (std::strncmp(name, name_prefix, length) != 0)
        return nullptr;
    const long long id = std::strtoll(name + length, nullptr, 10);
    dpm_tunnel_entry *tunnel = dpm_tunnel_find_by_tunnelid(static_cast<std::uint32_t>(id));
    return tunnel != nullptr && std::strncmp(tunnel->name, name, sizeof tunnel->name) == 0
               ? tunnel
               : nullptr;
}

dpm_tunnel_port_entry *dpm_tunnel_port_find_by_entry(const dpm_tunnel_port_entry *key) {
    if (key == nullptr)
        return (void)dpm::null_parameter(), nullptr;
    return dpm::tunnel_ports().find(*key);
}
