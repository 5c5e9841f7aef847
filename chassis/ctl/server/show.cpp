// The tables, through the library's exported walkers and under its lock; and what the chassis
// counts.

#include "chassis/ctl/server/filter.h"

#include <set>

namespace ctl::server {

namespace {

std::string interface_name(const chassis::Card &card, std::uint32_t ifindex) {
    const auto interface = card.suite.find(ifindex);
    return interface ? interface->name : "";
}

std::vector<std::int64_t> sub_vlans_of(const dpm_if_entry &interface) {
    std::vector<std::int64_t> all;
    for (const list_head *link = interface.sub_list.next; link != &interface.sub_list;
         link = link->next)
        all.push_back(reinterpret_cast<const dpm_if_entry *>(link)->if_id);
    return all;
}

bool takes(const Filter &filter, const dpm_if_entry &interface) {
    if (!filter.takes_address())
        return filter.takes_vrf(interface.vrf);
    for (const dpm_if_ip_entry *address : addresses_of(interface))
        if (filter.takes(interface.vrf, address->ip))
            return true;
    return false;
}

// Seconds until an armed timer is due, rounded up.
std::int64_t due_in_sec(const chassis::Card &card, const dpm_timer_node &timer) {
    const std::int64_t due = timer.expiry_sec * 1'000'000'000LL + timer.expiry_nsec;
    return (due - card.os.now_nsec() + 999'999'999) / 1'000'000'000;
}

std::int64_t waited_sec(const chassis::Card &card, const dpm_unreachable_entry &entry) {
    return card.os.now_nsec() / 1'000'000'000 - dpm_api_get_unreachable_since(entry.vrf, &entry.ip);
}

Reply probes_table(Command &command, const std::vector<chassis::stack::Probe> &probes) {
    const Filter filter(command.line);
    Table table({"vrf", "address", "interface", "ago_sec"});
    for (const auto &probe : probes)
        if (filter.takes(probe.key.vrf, probe.key.family, probe.key.address.data()))
            table.row({std::int64_t(probe.key.vrf),
                       address_text(probe.key.family, probe.key.address.data()),
                       interface_name(command.card, probe.ifindex),
                       (command.card.os.now_nsec() - probe.at_nsec) / 1'000'000'000});
    return print(command, table);
}

} // namespace

Reply show_interfaces(Command &command) {
    static constexpr const char *types[] = {"vlan", "?", "super", "sub"};
    const Filter filter(command.line);
    Table table({"interface", "vrf", "vlan", "type", "ifindex", "mac", "chip", "arp", "addresses",
                 "sub_vlans", "+mtu", "+l3_intf_id"});
    const TableLock lock;
    each_interface([&](const dpm_if_entry &entry) {
        if (!takes(filter, entry))
            return;
        std::vector<std::string> addresses;
        for (const dpm_if_ip_entry *address : addresses_of(entry))
            addresses.push_back(prefix_text(address->ip));
        table.row({std::string(entry.ifname), entry.vrf, entry.if_id,
                   std::string(entry.if_type < 4 ? types[entry.if_type] : "?"), entry.if_index,
                   mac_text(entry.mac), std::string(entry.l3_programmed ? "yes" : "no"),
                   std::string(entry.arp_programmed ? "yes" : "no"), addresses, sub_vlans_of(entry),
                   entry.mtu, entry.l3_intf_id});
    });
    return print(command, table);
}

Reply show_hosts(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "address", "mac", "port", "vlan", "cvlan", "nexthop", "interface",
                 "ifindex", "+supervlan", "+port_type", "+log_port_id", "+phy_port_id"});
    const TableLock lock;
    each_host([&](const dpm_host_entry &host) {
        if (filter.takes(host.vrf, host.ip))
            table.row({host.vrf, text_of(host.ip), mac_text(host.mac),
                       port_text(host.port_type, host.log_port_id, host.phy_port_id), host.svlan,
                       host.cvlan, host.sdk_index, std::string(host.ifname), host.ifindex,
                       host.supervlan, host.port_type, host.log_port_id, host.phy_port_id});
    });
    return print(command, table);
}

Reply show_nexthops(Command &command) {
    const Filter filter(command.line);
    Table table({"nexthop", "mac", "port", "vlan", "cvlan", "hosts", "+port_type", "+port_id"});
    const TableLock lock;
    std::set<std::uint32_t> wanted; // of the hosts that were asked for
    each_host([&](const dpm_host_entry &host) {
        if (filter.takes(host.vrf, host.ip))
            wanted.insert(host.sdk_index);
    });
    each_nexthop([&](const dpm_nexthop_entry &entry) {
        if (!filter.takes_all() && !wanted.contains(entry.sdk_index))
            return;
        table.row({entry.sdk_index, mac_text(entry.mac),
                   port_text(entry.port_type, entry.port_id, entry.port_id), entry.svlan,
                   entry.cvlan, entry.cnt, entry.port_type, entry.port_id});
    });
    return print(command, table);
}

Reply show_hold(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "address", "mac", "port", "vlan", "interface", "forgotten_in_sec"});
    const TableLock lock;
    each_hold([&](const dpm_hold_entry &entry) {
        if (filter.takes(entry.vrf, entry.ip))
            table.row({entry.vrf, text_of(entry.ip), mac_text(entry.mac),
                       port_text(entry.port_type, entry.log_port_id, entry.phy_port_id),
                       entry.svlan, interface_name(command.card, entry.ifindex),
                       due_in_sec(command.card, entry.timer)});
    });
    return print(command, table);
}

Reply show_unreachable(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "address", "interface", "waited_sec", "probes_left", "next_probe_in_sec"});
    const TableLock lock;
    each_unreachable([&](const dpm_unreachable_entry &entry) {
        if (filter.takes(entry.vrf, entry.ip))
            table.row({entry.vrf, text_of(entry.ip), interface_name(command.card, entry.ifindex),
                       waited_sec(command.card, entry), entry.probe_cnt,
                       due_in_sec(command.card, entry.timer)});
    });
    return print(command, table);
}

Reply show_timers(Command &command) {
    const Filter filter(command.line);
    Table table({"timer", "vrf", "address", "due_in_sec"});
    const auto add = [&](const char *timer, const auto &entry) {
        if (filter.takes(entry.vrf, entry.ip))
            table.row({std::string(timer), entry.vrf, text_of(entry.ip),
                       due_in_sec(command.card, entry.timer)});
    };
    const TableLock lock;
    each_unreachable([&](const dpm_unreachable_entry &entry) { add("probe", entry); });
    each_hold([&](const dpm_hold_entry &entry) { add("hold", entry); });
    each_route([&](const dpm_route_entry &route) {
        if (route.delete_timer.expiry_sec != 0 &&
            filter.takes_network(route.vrf, route.destination))
            table.row({std::string("route-delete"), route.vrf, prefix_text(route.destination),
                       due_in_sec(command.card, route.delete_timer)});
    });
    return print(command, table);
}

Reply show_neighbours(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "address", "mac", "port", "vlan", "interface"});
    for (const dpm_host_info &info : command.card.stack.cache())
        if (filter.takes(info.vrf, info.family, info.address))
            table.row({info.vrf, address_text(info.family, info.address), mac_text(info.mac),
                       port_text(info.port_type, info.log_port_id, info.phy_port_id), info.svlan,
                       interface_name(command.card, info.ifindex)});
    return print(command, table);
}

Reply show_probes(Command &command) {
    const Reply reply = probes_table(command, command.card.stack.probes());
    if (command.line.has("clear"))
        command.card.stack.clear_history();
    return reply;
}

Reply show_deletions(Command &command) {
    const Filter filter(command.line);
    Table table({"vrf", "address", "interface"});
    for (const auto &key : command.card.stack.deletions())
        if (filter.takes(key.vrf, key.family, key.address.data()))
            table.row({key.vrf, address_text(key.family, key.address.data()),
                       interface_name(command.card, key.ifindex)});
    if (command.line.has("clear"))
        command.card.stack.clear_history();
    return print(command, table);
}

Reply show_memory(Command &command) {
    Table table({"file", "line", "blocks", "bytes"});
    for (const auto &[place, use] : command.card.os.live_by_place())
        table.row({place.file, place.line, std::int64_t(use.blocks), std::int64_t(use.bytes)});
    return print(command, table);
}

Reply show_counters(Command &command) {
    using chassis::chip::Function;
    const chassis::Card &card = command.card;
    Table table({"counter", "value"});
    const auto count = [&](std::string name, std::uint64_t value) {
        table.row({std::move(name), std::int64_t(value)});
    };
    for (unsigned kind = 0; kind < unsigned(Function::count); kind++)
        count("chip " + std::string(name_of(Function(kind))), card.chip.requests(Function(kind)));
    count("chip mistakes", card.chip.mistakes());
    count("messages queued", card.os.queued());
    count("live blocks", card.os.live_blocks());
    count("live bytes", card.os.live_bytes());
    count("bad frees", card.os.bad_frees());
    count("handle errors", card.os.handle_errors());
    count("delays", card.os.delays());
    count("clock reads", card.os.clock_reads());
    return print(command, table);
}

} // namespace ctl::server
