// The shelf's verbs and readers for routes, groups and label entries.

#include "support/shelf.h"

#include "dpm_destination.h"
#include "dpm_l3vpn.h"
#include "dpm_locks.h"
#include "dpm_route.h"
#include "platform/dal.h"

#include <algorithm>
#include <cstring>
#include <map>

namespace rig {

using namespace chassis;

namespace {

std::uint32_t ifindex_of(const Card &card, const std::string &name) {
    const auto interface = card.suite.find(name);
    return interface ? interface->ifindex : 0;
}

} // namespace

// --- records ---

dpm_route_msg msg_of(const Card &card, const Route &route) {
    dpm_route_msg msg{};
    msg.vrf = route.vrf;
    msg.route_type = route.type;
    msg.destination = prefix_of(route.prefix);
    for (std::size_t i = 0; i < std::min<std::size_t>(route.via.size(), DPM_ROUTE_GATEWAYS); ++i) {
        if (!route.via[i].ip.empty())
            msg.np[i] = prefix_of(route.via[i].ip);
        msg.np_ifindex[i] = ifindex_of(card, route.via[i].ifname);
    }
    msg.np_num = route.np_num.value_or(unsigned(route.via.size()));
    return msg;
}

dpm_ftn record_of(const Ftn &ftn) {
    const dpm_prefix fec = prefix_of(ftn.prefix), nhop = prefix_of(ftn.nhop);
    dpm_ftn record{};
    record.ip_type = std::uint8_t(fec.family);
    record.prefixlen = std::uint8_t(fec.prefix_len);
    std::memcpy(record.fec_prefix, fec.address, sizeof record.fec_prefix);
    record.tunnel_label = ftn.label;
    record.tunnel_ip_type = std::uint8_t(nhop.family);
    std::memcpy(record.tunnel_nhop, nhop.address, sizeof record.tunnel_nhop);
    record.vrf_id = ftn.vrf;
    record.vpn_label = ftn.vrf ? ftn.label + 1 : 0;
    record.flags = std::uint8_t(ftn.flags);
    return record;
}

dpm_ilm record_of(const Card &card, const Ilm &ilm) {
    const dpm_prefix nhop = prefix_of(ilm.nhop);
    dpm_ilm record{};
    record.in_label = ilm.label;
    record.swap_label = ilm.label + 1;
    record.ip_type = record.tunnel_ip_type = std::uint8_t(nhop.family);
    std::memcpy(record.tunnel_nhop, nhop.address, sizeof record.tunnel_nhop);
    record.out_ifindex = ifindex_of(card, ilm.ifname);
    record.is_egress = ilm.egress;
    record.flags = std::uint16_t(ilm.flags);
    return record;
}

// --- verbs ---

int Shelf::request_route(const Route &route, std::uint32_t oper) {
    CardScope scope(master());
    const dpm_route_msg msg = msg_of(master(), route);
    const int result = dpm_api_route_pro(&msg, oper);
    settle_verb();
    return result;
}

int Shelf::add_route(const Route &route) {
    return request_route(route, DPM_OPER_ADD);
}
int Shelf::del_route(const Route &route) {
    return request_route(route, DPM_OPER_DEL);
}

int Shelf::add_ftn(const Ftn &ftn) {
    CardScope scope(master());
    dpm_ftn *entry;
    {
        const dpm::dpm_lock lock;
        entry = dpm_mpls_ftn_add(record_of(ftn));
        if (!entry)
            return -1;
        entry->tunnel_label = ftn.label;
        dpm_route_entry *const route = dpm::find_route(0, prefix_of(ftn.prefix));
        const bool takes_over = ftn.vrf == 0 && ftn.flags == DPM_LABEL_PROGRAMMED && route;
        if (takes_over && dpm::give_way_below(dpm::destination_rank::label, 0, route->destination,
                                              dpm::way::out_of_chip, DPM_CALL_SITE) != 0)
            entry->flags = DPM_LABEL_WAITING;
        if (entry->flags == DPM_LABEL_WAITING && !dpm_mpls_pend_ftn_lookup(*entry))
            dpm_mpls_pend_ftn_add(entry);
        dpm_mpls_ftn_add_sync_send(entry);
    }
    settle_verb();
    return entry->flags == ftn.flags ? 0 : -1;
}

int Shelf::del_ftn(const Ftn &ftn) {
    CardScope scope(master());
    {
        const dpm::dpm_lock lock;
        dpm_ftn *const entry = dpm_mpls_ftn_lookup(record_of(ftn));
        if (!entry)
            return -1;
        dpm_mpls_ftn_del_sync_send(entry);
        dpm_mpls_ftn_del(entry);
        dpm::take_back_below(dpm::destination_rank::label, 0, prefix_of(ftn.prefix));
    }
    settle_verb();
    return 0;
}

int Shelf::add_ilm(const Ilm &ilm) {
    CardScope scope(master());
    {
        const dpm::dpm_lock lock;
        dpm_ilm *const entry = dpm_mpls_ilm_add(record_of(master(), ilm));
        if (!entry)
            return -1;
        if (entry->flags == DPM_LABEL_WAITING && !dpm_mpls_pend_ilm_lookup(*entry))
            dpm_mpls_pend_ilm_add(entry);
        dpm_mpls_ilm_add_sync_send(entry);
    }
    settle_verb();
    return 0;
}

int Shelf::del_ilm(const Ilm &ilm) {
    CardScope scope(master());
    {
        const dpm::dpm_lock lock;
        dpm_ilm *const entry = dpm_mpls_ilm_lookup(record_of(master(), ilm));
        if (!entry)
            return -1;
        dpm_mpls_ilm_del_sync_send(entry);
        dpm_mpls_ilm_del(entry);
    }
    settle_verb();
    return 0;
}

// --- readers ---

dpm_route_entry *Shelf::route(Card &card, const std::string &prefix, unsigned vrf) {
    CardScope scope(card);
    return dpm::find_route(vrf, prefix_of(prefix));
}

std::string Shelf::forwards(const std::string &address, unsigned vrf) {
    const dpm_prefix ip = prefix_of(address);
    const auto answer = master().chip.lookup(std::int32_t(vrf), ip.family, ip.address);
    if (!answer)
        return "";
    std::map<std::uint32_t, std::string> names{{DAL_NEXTHOP_TO_CPU, "cpu"}};
    for (const dpm_host_entry &host : hosts(master()))
        names.emplace(host.sdk_index, text_of(host.ip));
    dpm_prefix entry{std::uint16_t(ip.family), std::uint16_t(answer->entry.prefix_len), {}};
    std::copy(answer->entry.bytes.begin(), answer->entry.bytes.end(), entry.address);
    std::string text = text_of(entry) + " ->";
    for (const std::uint32_t member : answer->members)
        text += " " + (names.contains(member) ? names[member] : "?");
    return answer->members.empty() ? text + " nowhere" : text;
}

} // namespace rig
