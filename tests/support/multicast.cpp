#include "support/multicast.h"

#include "chassis/tables/law.h"
#include "dpm_ipmc.h"
#include "dpm_locks.h"
#include "support/soundness.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>

namespace rig::multicast {

using namespace chassis;

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Kind {
    std::uint8_t igmp, mld; // type of the message
    std::uint8_t record;    // 0: a message about one group
};
const std::map<std::string, Kind> kinds{
    {"join", {0x16, 131, 0}},  {"leave", {0x17, 132, 0}}, {"is-in", {0x22, 143, 1}},
    {"is-ex", {0x22, 143, 2}}, {"to-in", {0x22, 143, 3}}, {"to-ex", {0x22, 143, 4}},
    {"allow", {0x22, 143, 5}}, {"block", {0x22, 143, 6}},
};

void append(Bytes &bytes, const dpm_prefix &ip) {
    bytes.insert(bytes.end(), ip.address, ip.address + ip.prefix_len / 8);
}

Bytes message_of(const Words &words) {
    const Kind &kind = kinds.at(words[3]);
    const dpm_prefix group = prefix_of(words[4]);
    Bytes bytes{group.family == DPM_FAMILY_IPV4 ? kind.igmp : kind.mld, 0, 0, 0};
    if (kind.record == 0) {
        bytes.resize(group.family == DPM_FAMILY_IPV4 ? 4 : 8);
        append(bytes, group);
        return bytes;
    }
    const auto sources = std::uint8_t(words.size() - 5);
    bytes.insert(bytes.end(), {0, 0, 0, 1, kind.record, 0, 0, sources});
    append(bytes, group);
    for (std::size_t i = 5; i < words.size(); ++i)
        append(bytes, prefix_of(words[i]));
    return bytes;
}

// With a VLAN tag, and the router alert that reports carry.
Bytes frame_of(unsigned vlan, std::uint32_t family, const Bytes &message) {
    Bytes frame(12);
    frame.insert(frame.end(), {0x81, 0, std::uint8_t(vlan >> 8), std::uint8_t(vlan)});
    if (family == DPM_FAMILY_IPV4) {
        frame.insert(frame.end(), {8, 0, 0x46, 0, 0, 0, 0, 0, 0, 0, 1, 2, 0, 0});
        frame.insert(frame.end(), {0, 0, 0, 0, 224, 0, 0, 22, 0x94, 4, 0, 0});
    } else {
        frame.insert(frame.end(), {0x86, 0xDD, 0x60, 0, 0, 0, 0, 0, 0, 1});
        frame.resize(frame.size() + 32);
        frame.insert(frame.end(), {58, 0, 5, 2, 0, 0, 1, 0});
    }
    frame.insert(frame.end(), message.begin(), message.end());
    return frame;
}

// A report as the fuzzer of frames (fuzz/multicast.cpp) reads it, behind a request for its group and
// the report before it, is a file of the directory.
void keep_seed(const std::string &directory, unsigned long port, const dpm_prefix &group,
               const Bytes &message) {
    static Bytes former;
    Bytes deed{4, std::uint8_t((port - 1) % 4 << 6 | (group.family == DPM_FAMILY_IPV6)),
               std::uint8_t(message.size())};
    deed.insert(deed.end(), message.begin(), message.end());
    Bytes seed(1 + offsetof(dpm_ipmc_request, iif));
    std::memcpy(&seed[1 + offsetof(dpm_ipmc_request, group)], &group, sizeof group);
    seed.push_back(1); // outgoing interface
    seed.insert(seed.end(), DPM_IPMC_OUT_VLANS, 1);
    seed.push_back(DPM_OPER_ADD);
    for (const Bytes &each : {former, deed})
        seed.insert(seed.end(), each.begin(), each.end());
    former = deed;
    const std::string bytes(seed.begin(), seed.end());
    std::ofstream(directory + "/told-" + std::to_string(std::hash<std::string>()(bytes))) << bytes;
}

// --- laws ---

struct Law {
    const bool follows; // members follow the filters
    laws::Lines lines = {};
    unsigned timers = 0;

    void equal(const char *what, unsigned left, unsigned right) {
        if (left != right)
            lines.push_back(std::string(what) + ": " + std::to_string(left) + " and " +
                            std::to_string(right));
    }
    unsigned length(const char *what, const list_head &head) {
        unsigned count = 0;
        if (const std::string problem = list_problem(head, &count); !problem.empty())
            lines.push_back(std::string(what) + ": " + problem);
        return count;
    }
    // A port's membership follows from its filter.  A group of another VRF than its VLAN's is the
    // suite's own affair, and so is what a master did not keep for want of memory.
    void membership(const dpm_ipmc_group &group, const dpm_ipmc_source &source,
                    dpm_ipmc_out_vlan &out) {
        if (dpm_if_get_vrf_by_vlan(out.out_vlan) != group.vrf)
            return;
        dpm_ipmc_rx_group *const reported = dpm::find_ipmc_rx_group(out.out_vlan, group.group);
        for (const dpm_ipmc_member &member : dpm::ipmc_members(out.members))
            if (member.timer.expiry_sec == 0 &&
                (!reported || !dpm_ipmc_rx_find_phy(reported, member.phy)))
                lines.push_back("a member that nobody reports: " + text_of(group.group) + " port " +
                                std::to_string(member.phy));
        if (!reported)
            return;
        for (const dpm_ipmc_rx_port &port : dpm::ipmc_rx_ports(reported->ports)) {
            const dpm_ipmc_member *const member = dpm_ipmc_gourp_phy_find(&out, port.phy);
            const bool is_there = member && member->timer.expiry_sec == 0;
            if (is_there != dpm::passes_filter(port, source.source))
                lines.push_back("a filter that is not followed: " + text_of(group.group) +
                                " port " + std::to_string(port.phy));
        }
    }
    void source(const dpm_ipmc_group &group, dpm_ipmc_source &source) {
        unsigned slots = 0;
        for (dpm_ipmc_out_vlan *const out : source.out) {
            if (!out)
                continue;
            ++slots;
            equal("members and their count", length("members", out->members), out->member_cnt);
            for (const dpm_ipmc_member &member : dpm::ipmc_members(out->members)) {
                timers += member.timer.expiry_sec != 0;
                if (member.group != &group || member.source != &source || member.out != out ||
                    member.out_vlan != out->out_vlan)
                    lines.push_back("a member that leads elsewhere");
            }
            if (follows)
                membership(group, source, *out);
        }
        equal("outgoing VLANs and their count", slots, source.out_cnt);
    }
};

unsigned ports_of(Law &law, std::uint32_t family) {
    unsigned all = 0;
    for (dpm_ipmc_rx_group &group : dpm::ipmc_rx_groups(family)) {
        const unsigned ports = law.length("ports", group.ports);
        law.equal("ports and their count", ports, group.port_cnt);
        all += ports;
        for (const dpm_ipmc_rx_port &port : dpm::ipmc_rx_ports(group.ports)) {
            law.timers += port.timer.expiry_sec != 0;
            const auto used = std::ranges::count_if(
                port.sources, [](auto &source) { return source.family != DPM_FAMILY_NONE; });
            law.equal("sources and their count", unsigned(used), port.src_cnt);
            if (port.group != &group || ports == 0)
                law.lines.push_back("a port that leads elsewhere");
        }
    }
    return all;
}

} // namespace

bool is_command(const Words &words) {
    return words.size() > 4 && words[0] == "hear";
}

bool act(Shelf &shelf, const Words &words) {
    const Bytes message = message_of(words);
    const Bytes frame =
        frame_of(unsigned(std::stoul(words[2])), prefix_of(words[4]).family, message);
    if (const char *const directory = std::getenv("DPM_SEEDS"))
        keep_seed(directory, std::stoul(words[1]), prefix_of(words[4]), message);
    const auto scope = shelf.as(shelf.master());
    return shelf.master().ports.receive(unsigned(std::stoul(words[1])), frame, 1) == 1;
}

dpm_ipmc_request request_of(const Card &card, const std::string &group, unsigned first_vlan,
                            unsigned last_vlan) {
    dpm_ipmc_request request{};
    request.group = prefix_of(group);
    for (unsigned vlan = first_vlan; vlan <= last_vlan; ++vlan)
        request.oif[request.oif_num++] = card.suite.find("vlanif" + std::to_string(vlan))->ifindex;
    request.iif = request.oif[0];
    return request;
}

laws::Lines is_sound(Card &card, bool follows) {
    const CardScope scope(card);
    Law law{follows && card.peer.role() == peer::Role::master};
    unsigned ports = 0;
    for (const std::uint32_t family : dpm::ipmc_families)
        ports += ports_of(law, family);
    law.equal("ports and their count", ports, g_ipmc_global.rx_port_count);
    dpm::each_ipmc_source([&](dpm_ipmc_group &group, dpm_ipmc_source &source) {
        law.equal("sources and their count", law.length("sources", group.sources), group.src_cnt);
        law.source(group, source);
    });
    if (g_ipmc_global.timer_list)
        law.equal("timers and those that hold one",
                  law.length("timers", g_ipmc_global.timer_list->head), law.timers);
    return law.lines;
}

laws::Lines chip_holds_tables(Card &card) {
    laws::Lines lines = tables::chip_equals_tables(card).faults;
    std::erase_if(lines, [](const std::string &line) {
        return line.find("the chip lacks mcast") == line.npos;
    });
    return lines;
}

void clear(Shelf &shelf) {
    for (const dpm_ipmc_rx_port &port : shelf.all(shelf.master(), tables::mgroups))
        (void)shelf.run("hear " + std::to_string(port.phy) + " " + std::to_string(port.outer_vlan) +
                        " leave " + text_of(port.group->group));
    for (const tables::Mroute &route : shelf.all(shelf.master(), tables::mroutes)) {
        dpm_ipmc_request request{};
        request.vrf = route.vrf;
        request.group = route.group;
        request.source = route.source;
        EXPECT_EQ(dpm_api_set_ipmc_proc(&request, DPM_OPER_DEL), 0);
    }
    shelf.settle();
}

std::size_t blocks() {
    std::size_t blocks = 0;
    for (const std::uint32_t family : dpm::ipmc_families)
        blocks += dpm::ipmc_groups(family).count() + dpm::ipmc_rx_groups(family).count();
    dpm::each_ipmc_source(
        [&](dpm_ipmc_group &, dpm_ipmc_source &source) { blocks += source.out_cnt; });
    return blocks + g_ipmc_global.rx_port_count;
}

} // namespace rig::multicast
