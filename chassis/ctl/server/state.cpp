// Digests of the mirrored tables, and what the handlers share.

#include "chassis/ctl/server/command.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace ctl::server {

namespace {

std::uint64_t hash_bytes(const void *bytes, std::size_t count) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (std::size_t i = 0; i < count; i++)
        hash = (hash ^ static_cast<const unsigned char *>(bytes)[i]) * 0x100000001b3;
    return hash;
}

// A mirrored table hands every record to `visit` as its key in words and its bytes, with what is
// the card's own (tree link, timers) made zero, and of an interface's index whether there is one.
using VisitRecord = std::function<void(std::string key, const void *bytes, std::size_t count)>;

// Whether this card knows the interface that a record names.
std::uint32_t is_known_here(const char *ifname, std::uint32_t ifindex) {
    constexpr std::uint32_t no_such_name = 0xFFFFFFFF;
    return ifname[0] != '\0' && ifindex != 0 && ifindex != no_such_name;
}

void visit_hosts(const VisitRecord &visit) {
    each_host([&](const dpm_host_entry &host) {
        dpm_host_entry copy = host;
        copy.node = {};
        copy.ifindex = is_known_here(host.ifname, host.ifindex);
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
        for (std::size_t i = 0; i < std::size(copy.np_ifindex); i++)
            copy.np_ifindex[i] = is_known_here(route.np_ifname[i], route.np_ifindex[i]);
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
        visit("vrf " + std::to_string(ftn.vrf_id) + " " +
                  address_text(ftn.ip_type, ftn.fec_prefix) + "/" + std::to_string(ftn.prefixlen) +
                  " via " + address_text(ftn.tunnel_ip_type, ftn.tunnel_nhop),
              &copy, sizeof copy);
    });
}

void visit_ilms(const VisitRecord &visit) {
    each_ilm([&](const dpm_ilm &ilm) {
        dpm_ilm copy = ilm;
        copy.node = {};
        copy.pend = {};
        copy.out_ifindex = is_known_here(ilm.out_ifname, ilm.out_ifindex);
        visit("label " + std::to_string(ilm.in_label), &copy, sizeof copy);
    });
}

constexpr struct {
    std::string_view name; // a value of the language's type TABLE
    void (*visit)(const VisitRecord &visit);
} mirrored_tables[] = {
    {"nexthops", visit_nexthops}, {"hosts", visit_hosts}, {"ecmp", visit_groups},
    {"routes", visit_routes},     {"ftn", visit_ftns},    {"ilm", visit_ilms},
};

std::string hash_text(std::uint64_t hash) {
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}

} // namespace

Reply digest(Command &command) {
    const TableLock lock;
    const std::string_view wanted = command.line.value("TABLE");
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

// --- what the handlers share -----------------------------------------------------------------

Prefix address_argument(const Command &command, std::string_view key) {
    return *parse_address(command.line.value(key)); // the language has checked it
}

Prefix prefix_of(const dpm_prefix &record) {
    Prefix prefix{record.family, {}, record.prefix_len};
    std::ranges::copy(record.address, prefix.address.begin());
    return prefix;
}

std::string text_of(const dpm_prefix &prefix) {
    return address_text(prefix.family, prefix.address);
}

chassis::chip::Address chip_key(std::uint32_t vrf, const dpm_prefix &prefix) {
    chassis::chip::Address key{std::int32_t(vrf), prefix.family, {}, prefix.prefix_len};
    std::ranges::copy(prefix.address, key.bytes.begin());
    return key;
}

std::vector<const dpm_if_ip_entry *> addresses_of(const dpm_if_entry &interface) {
    std::vector<const dpm_if_ip_entry *> all;
    for (const list_head *list : {&interface.ipv4_list, &interface.ipv6_list})
        for (const list_head *link = list->next; link != list; link = link->next)
            all.push_back(reinterpret_cast<const dpm_if_ip_entry *>(link));
    return all;
}

bool is_link_local(const dpm_prefix &ip) {
    return ip.family == DPM_FAMILY_IPV6 && ip.address[0] == 0xFE && ip.address[1] == 0x80;
}

std::string port_text(std::uint32_t port_type, std::uint32_t logical, std::uint32_t physical) {
    return port_type == DPM_PORT_LOGICAL ? "trunk " + std::to_string(logical)
                                         : std::to_string(physical);
}

} // namespace ctl::server
