// What layer-2 services have in common: orders of their tables, the images of requests, entries whose
// place they take, their marks, and circuits whose interface changes.  For the sources of these
// services alone.
//
// Beside what a table of the VPN context tells of itself, one of pseudowires tells
//   id_of(), label_of()  of an entry: the service, and the label that a request gives it
//   unsound_text         logged with both and the peer
#pragma once

#include "dpm_address.h"
#include "dpm_bridge.h"
#include "dpm_driver.h"
#include "dpm_if.h"
#include "dpm_l3vpn_chip.h"
#include "dpm_retry.h"
#include "dpm_trace.h"
#include "dpm_vpn_table.h"

#include <cstring>

namespace dpm {

// --- orders and indexes ----------------------------------------------------------------------

// The entry of what stands in a table or in an index.
template <class Place> auto &entry_of(Place &place) {
    if constexpr (requires { place.entry; })
        return place.entry;
    else
        return place;
}

// Circuits by interface index, and by name where this card has no such interface.
template <class Circuit> int circuit_order(const Circuit &a, const Circuit &b) {
    if (a.ifindex != b.ifindex || a.ifindex != DPM_IFINDEX_NONE)
        return three_way(a.ifindex, b.ifindex);
    const int order = std::strncmp(a.ifname, b.ifname, sizeof a.ifname);
    return order < 0 ? -1 : order > 0;
}

// By service, and of one by name, which is the same on both cards; of interfaces without one by
// index.
template <class Circuit>
int service_order(std::uint32_t service_a, std::uint32_t service_b, const Circuit &a,
                  const Circuit &b) {
    int order = three_way(service_a, service_b);
    if (order == 0)
        order = std::strncmp(a.ifname, b.ifname, sizeof a.ifname);
    return order != 0 ? order : circuit_order(a, b);
}

template <class Record> int port_order(const Record &a, const Record &b) {
    const int order = three_way(a.entry.port, b.entry.port);
    return order != 0 ? order : circuit_order(a.entry, b.entry);
}

// Pseudowires by service and peer, and the other way round.
template <class Entry>
int pseudowire_order(std::uint32_t service_a, std::uint32_t service_b, const Entry &a,
                     const Entry &b) {
    return service_a != service_b ? three_way(service_a, service_b)
                                  : dpm_fec_addr_cmp(a.vc_peer, b.vc_peer);
}

template <class Entry>
int peer_order(std::uint32_t service_a, std::uint32_t service_b, const Entry &a, const Entry &b) {
    const int order = bytes_order(a.vc_peer, b.vc_peer, sizeof a.vc_peer);
    return order != 0 ? order : three_way(service_a, service_b);
}

// Calls `visit(entry)` for the entries of a table or an index from a key on, while they are
// `alike(entry)`.
template <class Table, class Key, class Alike, class Visit>
void each_from(const Table &table, const Key &key, Alike alike, Visit visit) {
    for (Key *at = table.find_from(key); at != nullptr && alike(entry_of(*at));
         at = table.next(*at))
        visit(entry_of(*at));
}

// Calls `visit(way)` for the ways out to a peer (four bytes).
template <class Kind, class Visit> void each_to_peer(const std::uint8_t *peer, Visit visit) {
    typename Kind::record key = {};
    std::memcpy(key.entry.vc_peer, peer, 4);
    each_from(
        Kind::by_peer(), key,
        [&](const auto &way) { return std::memcmp(way.vc_peer, key.entry.vc_peer, 16) == 0; },
        visit);
}

// Calls `visit(circuit)` for the circuits that the chip has on a port, or that wait for one (port 0).
// It may change their places.
template <class Kind, class Visit> void each_on_port(std::uint32_t port, Visit visit) {
    const auto index = Kind::by_port();
    typename Kind::record place = {};
    place.entry.port = static_cast<std::uint16_t>(port);
    auto *record = index.find_from(place);
    while (record != nullptr && record->entry.port == port) {
        place.entry = record->entry;
        visit(record->entry);
        auto *const next = index.find_from(place);
        record = next == record ? index.next(*record) : next;
    }
}

// --- requests --------------------------------------------------------------------------------

inline constexpr std::uint32_t max_label = 0xFFFFF;

// What a request carries of an entry begins behind its links.
template <class Entry> constexpr std::size_t image_offset() {
    std::size_t links = sizeof(Entry::node);
    if constexpr (requires(Entry entry) { entry.pend; })
        links += sizeof(Entry::pend);
    return links;
}

// The entry that a request tells of; what it does not carry is zero.
template <class Entry, class Request> Entry image_of(const Request &request) {
    static_assert(image_offset<Entry>() + sizeof request.image <= sizeof(Entry));
    Entry entry = {};
    std::memcpy(reinterpret_cast<unsigned char *>(&entry) + image_offset<Entry>(), request.image,
                sizeof request.image);
    entry.flags = DPM_LABEL_WAITING;
    return entry;
}

inline void end_name(char *ifname) {
    ifname[DPM_IFNAME_BYTES - 1] = '\0';
}

// Peers are IPv4 addresses; what stands behind one is zero.
inline bool is_peer(const std::uint8_t *peer) {
    static constexpr std::uint8_t none[16] = {};
    return std::memcmp(peer, none, 4) != 0 && std::memcmp(peer + 4, none, 12) == 0;
}

// Whether a request tells of a pseudowire that there can be; logs when not.
template <vpn_table Kind>
bool is_sound(const typename Kind::entry &image, const call_site &caller) {
    const bool is_sound = is_peer(image.vc_peer) && Kind::label_of(image) <= max_label;
    if (!is_sound)
        DPM_LOG_FROM(caller, Kind::unsound_text, Kind::id_of(image), Kind::label_of(image),
                     DPM_IPV4_OF(image.vc_peer));
    return is_sound;
}

// Unlike the label tables pseudowires never step over the capacity.
inline bool has_pseudowire_room() {
    constexpr std::uint32_t label_items = 12; // what the capacity is asked for
    if (dpm_mpls_vpn_item_check(label_items) < DPM_LABEL_CAPACITY)
        return true;
    DPM_PLAIN("Outer and inner items exceed max 4096!\r\n");
    return false;
}

// An image in the place of an entry; the links stay.
template <vpn_table Kind> void put(typename Kind::entry &entry, typename Kind::entry image) {
    image.node = entry.node;
    if constexpr (requires { entry.pend; })
        image.pend = entry.pend;
    auto &record = record_of<Kind>(entry);
    Kind::unindex(record);
    entry = image;
    Kind::index(record);
}

// What this card and the chip know of an entry, from a member on, stays when an image replaces it.
template <class Entry> void keep_from(std::size_t offset, Entry &image, const Entry &entry) {
    std::memcpy(reinterpret_cast<unsigned char *>(&image) + offset,
                reinterpret_cast<const unsigned char *>(&entry) + offset, sizeof image - offset);
}

// Whether an entry is another than it was, but for its links.
template <class Entry> bool is_another(const Entry &entry, Entry before) {
    before.node = entry.node;
    if constexpr (requires { before.pend; })
        before.pend = entry.pend;
    return std::memcmp(&before, &entry, sizeof entry) != 0;
}

// --- where an entry is -----------------------------------------------------------------------

template <class Entry> bool is_in_chip(const Entry &entry) {
    return entry.flags == DPM_LABEL_PROGRAMMED;
}

// The flags of a pseudowire, with its place on the pend list; true when they were others.
template <vpn_table Kind> bool mark(typename Kind::entry &entry, std::uint8_t flags) {
    if (flags == DPM_LABEL_WAITING && !is_pending(entry))
        (void)vpn_pend_add<Kind>(&entry);
    else if (flags != DPM_LABEL_WAITING)
        vpn_unpend(entry);
    if (entry.flags == flags)
        return false;
    entry.flags = flags;
    return true;
}

// A circuit's logical port, 0 for none, and the VLAN of its interface.
struct circuit_place {
    std::uint16_t port = 0, vlan = 0;
};

// An interface that this card does not know has the port on which the chip has the circuit: it may
// still come to a card that has just become master.  One that has gone has none.
template <class Circuit> circuit_place place_of(const Circuit &circuit) {
    if (circuit.ifindex == DPM_IFINDEX_NONE)
        return circuit.is_gone ? circuit_place{} : circuit_place{circuit.port, circuit.port_vlan};
    std::uint32_t port = 0;
    int vlan = 0;
    if (dpm_driver_ifindex_to_logical(circuit.ifindex, &port, &vlan) != 0)
        return {};
    return {static_cast<std::uint16_t>(port), static_cast<std::uint16_t>(vlan)};
}

// What the chip refused, and what waits for a port, is settled again in a while; a time that runs is
// not put off.
inline void ask_later(dpm_timer_node &timer, void (*ask)()) {
    if (timer.expiry_sec == 0)
        retry_later(timer, ask);
}

// --- interfaces ------------------------------------------------------------------------------

// Indexes are card-local; a name that this card has no interface of leads to DPM_IFINDEX_NONE.
inline std::uint32_t index_of(char *ifname) {
    end_name(ifname);
    return dpm_if_get_ifindexbyname(ifname);
}

// The same for the key of a circuit: an index is that of one interface alone.
inline std::uint32_t circuit_index(char *ifname, std::uint32_t told) {
    char name[DPM_IFNAME_BYTES] = {};
    const bool is_anothers =
        dpm_if_get_ifnamebyindex(told, name) == 0 && std::strcmp(name, ifname) != 0;
    return is_anothers ? DPM_IFINDEX_NONE : told;
}

// The index of an interface that a request names and tells the index of: the name decides where this
// card knows it.
inline std::uint32_t index_told(char *ifname, std::uint32_t told) {
    const std::uint32_t known = index_of(ifname);
    return known != DPM_IFINDEX_NONE ? known : told;
}

// A request may carry the beginning of a name alone: one that has no end in it is that of its index.
// False, told in the log: there is no name, by which the standby card could know the circuit.
template <class Circuit>
bool name_circuit(Circuit &image, std::size_t carried, const call_site &caller) {
    char name[DPM_IFNAME_BYTES] = {};
    const std::size_t length = strnlen(image.ifname, carried);
    if ((length == 0 || length == carried) && dpm_if_get_ifnamebyindex(image.ifindex, name) == 0)
        std::memcpy(image.ifname, name, sizeof image.ifname);
    image.ifindex = circuit_index(image.ifname, index_told(image.ifname, image.ifindex));
    if (image.ifname[0] == '\0')
        DPM_LOG_FROM(caller, "%s %d::ifindex = %d, can not find the interface!\r\n",
                     +image.ifindex);
    return image.ifname[0] != '\0';
}

// The circuit of an interface: by its name.  It stands under the interface's index, under none, or,
// where this card does not know the interface, under whichever it was told.
template <class Kind> typename Kind::entry *find_circuit(typename Kind::entry key) {
    for (const std::uint32_t ifindex : {+key.ifindex, DPM_IFINDEX_NONE}) {
        key.ifindex = ifindex;
        auto *present = Kind::table().find(key);
        if (present != nullptr && std::strcmp(present->ifname, key.ifname) == 0)
            return present;
    }
    if (dpm_if_get_ifindexbyname(key.ifname) == DPM_IFINDEX_NONE)
        for (auto &circuit : Kind::table())
            if (std::strcmp(circuit.ifname, key.ifname) == 0)
                return &circuit;
    return nullptr;
}

// A circuit comes to stand under another index.  Of two of one name, as a sync that had holes may
// leave them, one goes: the one that the chip does not have.  False: that was this one.
template <class Kind> bool move_circuit(typename Kind::entry &circuit, std::uint32_t ifindex) {
    typename Kind::entry key = circuit;
    key.ifindex = ifindex;
    auto *twin = Kind::table().find(key);
    if (twin == &circuit)
        return true;
    if (twin != nullptr && is_in_chip(*twin)) {
        (void)Kind::del(&circuit);
        return false;
    }
    if (twin != nullptr)
        (void)Kind::del(twin);
    auto &record = record_of<Kind>(circuit);
    Kind::unindex(record);
    Kind::table().remove(circuit);
    circuit.ifindex = ifindex;
    (void)Kind::table().add(circuit);
    Kind::index(record);
    return true;
}

// A circuit that stands under no index is told one.
template <class Kind> void take_index(typename Kind::entry &circuit, std::uint32_t ifindex) {
    if (circuit.ifindex == DPM_IFINDEX_NONE)
        (void)move_circuit<Kind>(circuit,
                                 ifindex); // nobody stands there: that was looked up before
}

// A circuit of another name that stands under the index of an image has lost it: it stands under its
// name alone.  Calls `moved(circuit)` for it.
template <class Kind, class Moved> void make_way(const typename Kind::entry &image, Moved moved) {
    auto *present = image.ifindex != DPM_IFINDEX_NONE ? Kind::table().find(image) : nullptr;
    if (present == nullptr || std::strcmp(present->ifname, image.ifname) == 0)
        return;
    if (!dpm_bridge_self_is_slave())
        present->is_gone = 1; // its port is the other's from now on
    if (move_circuit<Kind>(*present, DPM_IFINDEX_NONE))
        moved(*present);
}

// The circuit of an interface takes its index.  Calls `moved(circuit)` for it, and for one that had
// that index.
template <class Kind, class Moved>
void renumber_circuit(const char *ifname, std::uint32_t ifindex, Moved moved) {
    typename Kind::entry key = {};
    key.ifindex = ifindex;
    std::strncpy(key.ifname, ifname, sizeof key.ifname - 1);
    make_way<Kind>(key, moved);
    for (auto &circuit : Kind::table()) {
        if (std::strcmp(circuit.ifname, ifname) != 0)
            continue;
        if (move_circuit<Kind>(circuit, ifindex))
            moved(circuit);
        return;
    }
}

// The index of an interface that a record names, when that is the one which changes.
template <std::size_t Size>
std::uint32_t renumbered(std::uint32_t present, const char (&name)[Size], const char *ifname,
                         std::uint32_t ifindex) {
    return std::strncmp(name, ifname, Size) == 0 ? ifindex : present;
}

inline int not_there(std::uint32_t id, const call_site &caller) {
    DPM_LOG_FROM(caller, "%s %d::vc_id = %d, can not find same entry!\r\n", id);
    return -1;
}

} // namespace dpm

// Walkers: dpm_api_get_NAME_first and _next over a table.
#define DPM_WALKERS(name, table)                                                                   \
    const dpm_##name *dpm_api_get_##name##_first() {                                               \
        return table.first();                                                                      \
    }                                                                                              \
    const dpm_##name *dpm_api_get_##name##_next(const dpm_##name *entry) {                         \
        if (entry != nullptr)                                                                      \
            return table.next(*entry);                                                             \
        (void)dpm::null_parameter();                                                               \
        return nullptr;                                                                            \
    }
