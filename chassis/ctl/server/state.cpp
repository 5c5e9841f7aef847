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

constexpr struct {
    std::string_view name; // a value of the language's type TABLE
    void (*visit)(const VisitRecord &visit);
} mirrored_tables[] = {
    {"nexthops", visit_nexthops},
    {"hosts", visit_hosts},
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
    const Prefix ip = address_argument(request);
    const std::uint32_t vrf = std::uint32_t(request.line.number("vrf"));
    const TableLock lock;
    std::string text = why_host(request, vrf, ip) + why_waiting(request, vrf, ip);
    if (text.empty())
        text = why_absent(request, vrf, ip);
    return done(std::string(request.line.value("IP")) + ": " + text);
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
