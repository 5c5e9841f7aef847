// Multicast: sources of groups that are forwarded, ports that get their packets, and what ports have
// reported.  The library keeps them as lists in lists; here each source, member and filter is a
// record.

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

namespace chassis::tables {

namespace {

// Entries of a list that are linked by their first member.
template <class Entry> void each_of(const list_head &head, const auto &visit) {
    for (const list_head *link = head.next; link != &head; link = link->next)
        visit(*reinterpret_cast<const Entry *>(link));
}

void each_source(const auto &visit) {
    walk<dpm_api_get_ipmc_group_first, dpm_api_get_ipmc_group_next>(
        [&](const dpm_ipmc_group &group) {
            each_of<dpm_ipmc_source>(group.sources, [&](const dpm_ipmc_source &source) {
                visit(Mroute{group.vrf, group.group, source.source, source.in_vlan, source.out_cnt,
                             source.gid},
                      source);
            });
        });
}

std::string source_text(const dpm_prefix &source) {
    return source.family == DPM_FAMILY_NONE ? "*" : text_of(source);
}

std::string name_of(std::uint32_t vrf, const dpm_prefix &source, const dpm_prefix &group) {
    return "vrf " + std::to_string(vrf) + " (" + source_text(source) + ", " + text_of(group) + ")";
}

chip::McastGroup mcast_key(std::uint32_t vrf, const dpm_prefix &source, const dpm_prefix &group) {
    chip::McastGroup key{vrf, group.family, {}, {}, 0};
    std::copy_n(group.address, key.group.size(), key.group.begin());
    std::copy_n(source.address, key.source.size(), key.source.begin());
    if (key.source != AddressBytes())
        key.source_len = host_length(group.family);
    return key;
}

std::string member_name(const MrouteMember &member) {
    return name_of(member.vrf, member.source, member.group) + " vlan " +
           std::to_string(member.vlan) + " port " + std::to_string(member.port);
}

// One that was there at a switch-over.
std::string report_awaited(const MrouteMember &member) {
    return member.timer.expiry_sec == 0
               ? ""
               : "a report; gone in " + seconds_text(seconds_until(member.timer));
}

std::vector<std::string> sources_of(const dpm_ipmc_rx_port &port) {
    std::vector<std::string> texts;
    for (unsigned i = 0; i < port.src_cnt; i++)
        texts.push_back(text_of(port.sources[i]));
    return texts;
}

std::string mode_of(const dpm_ipmc_rx_port &port) {
    return port.mode == DPM_IPMC_INCLUDE   ? "include"
           : port.mode == DPM_IPMC_EXCLUDE ? "exclude"
                                           : "any";
}

} // namespace

const TableOf<Mroute> mroutes{
    .each = [](auto &visit) { each_source([&](const Mroute &route, auto &) { visit(route); }); },
    .key = [](auto &route) { return name_of(route.vrf, route.source, route.group); },
    .places =
        [](auto &route) {
            return std::vector<Place>{{route.vrf, route.group}};
        },
    .own = [](auto &route, auto &) { route.out_count = 0; }, // the standby knows those with members
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"source", [](auto &route) { return source_text(route.source); }},
                {"group", [](auto &route) { return text_of(route.group); }},
                {"in_vlan", TABLE_MEMBER(in_vlan)},
                {"out_vlans", TABLE_MEMBER(out_count)},
                {"gid", TABLE_MEMBER(gid)}},
    .in_chip =
        [](auto &route, Wanted &wanted) {
            wanted.want<kinds::mcast_group>(mcast_key(route.vrf, route.source, route.group),
                                            route.gid);
        },
    .why =
        [](auto &route) {
            return name_of(route.vrf, route.source, route.group) + ": in the chip, gid " +
                   std::to_string(route.gid) + "\n";
        },
};

const TableOf<MrouteMember> mroute_members{
    .each =
        [](auto &visit) {
            each_source([&](const Mroute &route, const dpm_ipmc_source &source) {
                for (const dpm_ipmc_out_vlan *out : source.out)
                    if (out != nullptr)
                        each_of<dpm_ipmc_member>(out->members, [&](const dpm_ipmc_member &member) {
                            visit(MrouteMember{route.vrf, route.group, route.source,
                                               member.out_vlan, member.inner_vlan, member.phy,
                                               member.timer});
                        });
            });
        },
    .key = member_name,
    .places =
        [](auto &member) {
            return std::vector<Place>{{member.vrf, member.group}};
        },
    .own = [](auto &member, auto &) { member.timer = {}; },
    .columns = {{"vrf", TABLE_MEMBER(vrf)},
                {"source", [](auto &member) { return source_text(member.source); }},
                {"group", [](auto &member) { return text_of(member.group); }},
                {"vlan", TABLE_MEMBER(vlan)},
                {"inner_vlan", TABLE_MEMBER(inner_vlan)},
                {"port", TABLE_MEMBER(port)}},
    .in_chip =
        [](auto &member, Wanted &wanted) {
            wanted.want<kinds::mcast_member>(
                {mcast_key(member.vrf, member.source, member.group), member.port, member.vlan},
                chip::Nothing());
        },
    .waits_for = report_awaited,
    .why =
        [](auto &member) {
            const std::string awaited = report_awaited(member);
            return member_name(member) + ": in the chip" +
                   (awaited.empty() ? "" : ", waits for " + awaited) + "\n";
        },
};

const TableOf<dpm_ipmc_rx_port> mgroups{
    .each =
        [](auto &visit) {
            walk<dpm_api_get_ipmc_rx_group_first, dpm_api_get_ipmc_rx_group_next>(
                [&](const dpm_ipmc_rx_group &group) {
                    each_of<dpm_ipmc_rx_port>(group.ports, visit);
                });
        },
    .key =
        [](auto &port) {
            return text_of(port.group->group) + " vlan " + std::to_string(port.outer_vlan) +
                   " port " + std::to_string(port.phy);
        },
    .places =
        [](auto &port) {
            return std::vector<Place>{
                {dpm_api_get_vrf_by_vlan(port.outer_vlan), port.group->group}};
        },
    .columns = {{"vlan", TABLE_MEMBER(outer_vlan)},
                {"group", [](auto &port) { return text_of(port.group->group); }},
                {"port", TABLE_MEMBER(phy)},
                {"inner_vlan", TABLE_MEMBER(inner_vlan)},
                {"mode", mode_of},
                {"sources", sources_of},
                {"gone_in_sec", [](auto &port) { return seconds_until(port.timer); }}},
};

} // namespace chassis::tables
