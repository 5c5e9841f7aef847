// Label entries: their records, and their commands, which do on the master's worker what its label
// code does: the table, the list of those that wait, the route to the same prefix, the mirror.
// Nothing stands for their own programming in the chip.

#include "support/shelf.h"

#include "dpm_destination.h"
#include "dpm_l3vpn.h"
#include "dpm_locks.h"
#include "dpm_route.h"

#include <algorithm>
#include <cstring>

namespace rig {

using namespace chassis;

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
    const auto interface = card.suite.find(ilm.ifname);
    dpm_ilm record{};
    record.in_label = ilm.label;
    record.swap_label = ilm.label + 1;
    record.ip_type = record.tunnel_ip_type = std::uint8_t(nhop.family);
    std::memcpy(record.tunnel_nhop, nhop.address, sizeof record.tunnel_nhop);
    record.out_ifindex = interface ? interface->ifindex : 0;
    record.is_egress = ilm.egress;
    record.flags = std::uint16_t(ilm.flags);
    return record;
}

namespace {

#define LABEL_TABLE(kind)                                                                          \
    struct kind##_table {                                                                          \
        static constexpr auto add = dpm_mpls_##kind##_add;                                         \
        static constexpr auto del = dpm_mpls_##kind##_del;                                         \
        static constexpr auto lookup = dpm_mpls_##kind##_lookup;                                   \
        static constexpr auto pend_add = dpm_mpls_pend_##kind##_add;                               \
        static constexpr auto pend_lookup = dpm_mpls_pend_##kind##_lookup;                         \
        static constexpr auto send_add = dpm_mpls_##kind##_add_sync_send;                          \
        static constexpr auto send_del = dpm_mpls_##kind##_del_sync_send;                          \
    }
LABEL_TABLE(ftn);
LABEL_TABLE(ilm);

// False when there is no room for it; `place` is told of an entry before the others are.
template <class Table> bool add(const auto &record, const auto &place) {
    auto *const entry = Table::add(record);
    if (!entry)
        return false;
    place(*entry);
    if (entry->flags == DPM_LABEL_WAITING && !Table::pend_lookup(*entry))
        Table::pend_add(entry);
    Table::send_add(entry);
    return entry->flags == record.flags;
}

template <class Table> bool del(const auto &record) {
    auto *const entry = Table::lookup(record);
    if (entry) {
        Table::send_del(entry);
        Table::del(entry);
    }
    return entry;
}

// A tunnel's entry takes the place of the route, or waits when the chip does not let that go.
bool change_ftn(bool adds, const Ftn &ftn) {
    const dpm_prefix fec = prefix_of(ftn.prefix);
    if (!adds) {
        const bool is_gone = del<ftn_table>(record_of(ftn));
        if (is_gone)
            dpm::take_back_below(dpm::destination_rank::label, 0, fec);
        return is_gone;
    }
    return add<ftn_table>(record_of(ftn), [&](dpm_ftn &entry) {
        entry.tunnel_label = ftn.label;
        dpm_route_entry *const route = dpm::find_route(0, fec);
        const bool takes_over = ftn.vrf == 0 && ftn.flags == DPM_LABEL_PROGRAMMED && route;
        if (takes_over && dpm::give_way_below(dpm::destination_rank::label, 0, route->destination,
                                              dpm::way::out_of_chip, DPM_CALL_SITE) != 0)
            entry.flags = DPM_LABEL_WAITING;
    });
}

} // namespace

bool Shelf::change_label(const Words &words) {
    const bool adds = words[1] == "add";
    const auto number = [&](const char *word, const char *otherwise) {
        return unsigned(std::stoul(word_behind(words, word, otherwise)));
    };
    const auto has = [&](const char *word) { return std::ranges::count(words, word) > 0; };
    const unsigned flags = has("waits") ? DPM_LABEL_WAITING : DPM_LABEL_PROGRAMMED;
    const std::string nhop = word_behind(words, "via", "10.1.1.1");
    CardScope scope(master());
    const dpm::dpm_lock lock;
    if (words[0] == "ftn")
        return change_ftn(adds,
                          {words[2], nhop, number("vrf", "0"), number("label", "1000"), flags});
    const dpm_ilm ilm =
        record_of(master(), {unsigned(std::stoul(words[2])), nhop,
                             word_behind(words, "dev", "vlanif100"), flags, has("egress")});
    return adds ? add<ilm_table>(ilm, [](dpm_ilm &) {}) : del<ilm_table>(ilm);
}

} // namespace rig
