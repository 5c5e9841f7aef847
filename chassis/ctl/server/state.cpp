// Digests of the mirrored tables, and why an address is or is not in the chip.

#include "chassis/ctl/server/request.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace ctl::server {

namespace {

// --- digests ---------------------------------------------------------------------------------

std::uint64_t hash_bytes(const void *bytes, std::size_t count) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (std::size_t i = 0; i < count; i++)
        hash = (hash ^ static_cast<const unsigned char *>(bytes)[i]) * 0x100000001b3;
    return hash;
}

// A mirrored table hands every record to `visit` as its key in words and its bytes, with what is
// the card's own (tree link, indexes of interfaces, timers) made zero.
using VisitRecord = std::function<void(std::string key, const void *bytes, std::size_t count)>;

void visit_hosts(const VisitRecord &visit) {
    each_host([&](const dpm_host_entry &host) {
        dpm_host_entry copy = host;
        copy.node = {};
        copy.ifindex = 0;
        std::memset(copy.card_local, 0, sizeof copy.card_local);
        visit("vrf " + std::to_string(host.vrf) + " " + text_of(host.ip) + " dev " + host.ifname,
              &copy, sizeof copy);
    });
}

void visit_nexthops(const VisitRecord &visit) {
    each_nexthop([&](const dpm_nexthop_entry &entry) {
        dpm_nexthop_entry copy = entry;
        copy.node = {};
        visit(mac_text(entry.mac) + " port " +
                  port_text(entry.port_type, entry.port_id, entry.port_id) + " vlan " +
                  std::to_string(entry.svlan) + " cvlan " + std::to_string(entry.cvlan),
              &copy, sizeof copy);
    });
}

void visit_groups(const VisitRecord &visit) {
    each_group([&](const dpm_ecmp_entry &group) {
        dpm_ecmp_entry copy = group;
        copy.node = {};
        visit("group " + std::to_string(group.sdk_index), &copy, sizeof copy);
    });
}

void visit_routes(const VisitRecord &visit) {
    each_route([&](const dpm_route_entry &route) {
        dpm_route_entry copy = route;
        copy.node = {};
        std::memset(copy.np_ifindex, 0, sizeof copy.np_ifindex);
        copy.delete_timer = {};
        visit("vrf " + std::to_string(route.vrf) + " " + text_of(route.destination) + "/" +
                  std::to_string(route.destination.prefix_len),
              &copy, sizeof copy);
    });
}

void visit_ftns(const VisitRecord &visit) {
    each_ftn([&](const dpm_ftn &ftn) {
        dpm_ftn copy = ftn;
        copy.node = {};
        copy.pend = {};
        copy.stale = 0;
        visit("vrf " + std::to_string(ftn.vrf_id) + " " + address_text(ftn.ip_type, ftn.fec_prefix) +
                  "/" + std::to_string(ftn.prefixlen) + " via " +
                  address_text(ftn.tunnel_ip_type, ftn.tunnel_nhop),
              &copy, sizeof copy);
    });
}

void visit_ilms(const VisitRecord &visit) {
    each_ilm([&](const dpm_ilm &ilm) {
        dpm_ilm copy = ilm;
        copy.node = {};
        copy.pend = {};
        copy.out_ifindex = 0;
        visit("label " + std::to_string(ilm.in_label), &copy, sizeof copy);
    });
}

constexpr struct {
    std::string_view name; // a value of the language's type TABLE
    void (*visit)(const VisitRecord &visit);
} mirrored_tables[] = {
    {"nexthops", visit_nexthops},
    {"hosts", visit_hosts},
    {"ecmp", visit_groups},
    {"routes", visit_routes},
    {"ftn", visit_ftns},
    {"ilm", visit_ilms},
};

std::string hash_text(std::uint64_t hash) {
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}

// --- why -------------------------------------------------------------------------------------

std::string seconds_text(std::int64_t seconds) {
    return std::to_string(seconds) + " s";
}

bool is_address(const dpm_prefix &prefix, const Prefix &ip) {
    return prefix.family == ip.family &&
           std::memcmp(prefix.address, ip.address.data(), ip.address.size()) == 0;
}

// The host's line; empty when no table has it.
std::string why_host(const Request &request, std::uint32_t vrf, const Prefix &ip) {
    std::string text;
    each_host([&](const dpm_host_entry &host) {
        if (host.vrf != vrf || !is_address(host.ip, ip))
            return;
        const auto found =
            request.card.chip.lookup(std::int32_t(vrf), ip.family, ip.address.data());
        const bool in_chip =
            found && found->entry.prefix_len == ip.length && found->index == host.sdk_index;
        const bool link_local =
            ip.family == DPM_FAMILY_IPV6 && ip.address[0] == 0xFE && ip.address[1] == 0x80;
        text += in_chip      ? "in the chip, "
                : link_local ? "a neighbour; link-local addresses have no entry in the chip, "
                             : "a neighbour, but not in the chip, ";
        text += "next hop " + std::to_string(host.sdk_index) + ": " + mac_text(host.mac) +
                " port " + port_text(host.port_type, host.log_port_id, host.phy_port_id) +
                " vlan " + std::to_string(host.svlan) + " on " + host.ifname + "\n";
    });
    return text;
}

std::string why_waiting(const Request &request, std::uint32_t vrf, const Prefix &ip) {
    std::string text;
    const std::int64_t now = request.card.os.now_nsec() / 1'000'000'000;
    each_unreachable([&](const dpm_unreachable_entry &entry) {
        if (entry.vrf == vrf && is_address(entry.ip, ip))
            text += "waits for the neighbour to answer since " +
                    seconds_text(now - dpm_api_get_unreachable_since(vrf, &entry.ip)) + "; " +
                    std::to_string(entry.probe_cnt) + " probes left, the next in " +
                    seconds_text(entry.timer.expiry_sec - now) + "\n";
    });
    each_hold([&](const dpm_hold_entry &entry) {
        if (entry.vrf == vrf && is_address(entry.ip, ip))
            text += "held since port " +
                    port_text(entry.port_type, entry.log_port_id, entry.phy_port_id) +
                    " went down; forgotten in " + seconds_text(entry.timer.expiry_sec - now) + "\n";
    });
    return text;
}

// A route's line and, unless it is in the chip, one for each of its gateways.
std::string why_route(const Request &request, const dpm_route_entry &route) {
    std::string text = "route " + text_of(route.destination) + "/" +
                       std::to_string(route.destination.prefix_len) + ": ";
    if (label_in_place_of(route))
        return text + "a label entry for the same prefix stands in its place\n";
    if (route.sdk_index > 0)
        text += std::string("in the chip, by ") +
                (route.ecmp_enable == DPM_ROUTE_ECMP ? "group " : "next hop ") +
                std::to_string(route.sdk_index) + "\n";
    else
        text += route.np_num == 0 ? "not in the chip: it has no gateway\n"
                                  : "not in the chip: no gateway leads anywhere\n";
    for (std::uint32_t i = 0; i < route.np_num; i++) {
        const dpm_prefix &gateway = route.np[i];
        if (gateway.family == DPM_FAMILY_NONE) {
            text += std::string("    ") + route.np_ifname[i] + ": directly connected, to the CPU\n";
            continue;
        }
        Prefix ip{gateway.family, {}, host_length(gateway.family)};
        std::memcpy(ip.address.data(), gateway.address, ip.address.size());
        std::string state = why_host(request, route.vrf, ip) + why_waiting(request, route.vrf, ip);
        if (state.empty())
            state = "not a neighbour, and nothing waits for it any more\n";
        text += "    gateway " + text_of(gateway) + " on " + route.np_ifname[i] + ": " + state;
        if (route.host_index[i] == -1 && !why_host(request, route.vrf, ip).empty())
            text += "        the route does not use it: the chip refused, or its interface manages the device\n";
    }
    return text;
}

// The routes to exactly this prefix.
std::string why_routes(const Request &request, std::uint32_t vrf, const Prefix &prefix) {
    std::string text;
    each_route([&](const dpm_route_entry &route) {
        if (route.vrf == vrf && route.destination.prefix_len == prefix.length &&
            is_address(route.destination, prefix))
            text += why_route(request, route);
    });
    return text;
}

std::string why_absent(const Request &request, std::uint32_t vrf, const Prefix &ip) {
    const auto covering = request.card.chip.lookup(std::int32_t(vrf), ip.family, ip.address.data());
    for (const dpm_host_info &info : request.card.stack.cache())
        if (info.family == ip.family &&
            std::memcmp(info.address, ip.address.data(), ip.family == 1 ? 4 : 16) == 0)
            return "the IP stack knows it in vrf " + std::to_string(info.vrf) +
                   ", but no table has it in vrf " + std::to_string(vrf) + "\n";
    if (covering)
        return "not a neighbour; the chip has it under " +
               address_text(ip.family, covering->entry.bytes.data()) + "/" +
               std::to_string(covering->entry.prefix_len) + "\n";
    return "not a neighbour, and nothing waits for it\n";
}

} // namespace

Reply digest(Request &request) {
    const TableLock lock;
    const std::string_view wanted = request.line.value("TABLE");
    std::string text;
    for (const auto &table : mirrored_tables) {
        std::uint64_t sum = 0; // of the records: the order of a tree may be the card's own
        std::uint64_t records = 0;
        table.visit([&](const std::string &key, const void *bytes, std::size_t count) {
            const std::uint64_t hash = hash_bytes(bytes, count);
            sum += hash;
            records++;
            if (wanted == table.name)
                text += hash_text(hash) + " " + key + "\n";
        });
        if (wanted.empty())
            text += std::string(table.name) + " " + std::to_string(records) + " " + hash_text(sum) +
                    "\n";
    }
    return done(text);
}

Reply why(Request &request) {
    const std::string question(request.line.value("SUBNET"));
    const auto address = parse_address(question);
    const Prefix ip = address ? *address : *parse_prefix(question); // the language has checked it
    const std::uint32_t vrf = std::uint32_t(request.line.number("vrf"));
    const TableLock lock;
    std::string text = why_routes(request, vrf, ip);
    if (ip.length == host_length(ip.family))
        text = why_host(request, vrf, ip) + why_waiting(request, vrf, ip) + text;
    if (text.empty())
        text = why_absent(request, vrf, ip);
    return done(question + ": " + text);
}

// --- what the handlers share -----------------------------------------------------------------

Prefix address_argument(const Request &request, std::string_view key) {
    return *parse_address(request.line.value(key)); // the language has checked it
}

std::string text_of(const dpm_prefix &prefix) {
    return address_text(prefix.family, prefix.address);
}

std::string port_text(std::uint32_t port_type, std::uint32_t logical, std::uint32_t physical) {
    return port_type == DPM_PORT_LOGICAL ? "trunk " + std::to_string(logical)
                                         : std::to_string(physical);
}

} // namespace ctl::server
