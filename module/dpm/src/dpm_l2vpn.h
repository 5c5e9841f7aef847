// What layer-2 services have in common: the images of requests, entries whose place they take, and
// circuits whose interface changes.  For the sources of these services alone.
#pragma once

#include "dpm_address.h"
#include "dpm_if.h"
#include "dpm_l3vpn_chip.h"
#include "dpm_trace.h"
#include "dpm_vpn_table.h"

#include <cstring>

namespace dpm {

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

// A request may carry the beginning of a name alone: one that has no end in it is that of its index.
// An index is this card's own, so the name decides where it is known.  False, told in the log: there
// is no name, by which the standby card could know the circuit.
template <class Circuit>
bool name_circuit(Circuit &image, std::size_t carried, const call_site &caller) {
    char name[DPM_IFNAME_BYTES] = {};
    const std::size_t length = strnlen(image.ifname, carried);
    if ((length == 0 || length == carried) && dpm_if_get_ifnamebyindex(image.ifindex, name) == 0)
        std::memcpy(image.ifname, name, sizeof image.ifname);
    end_name(image.ifname);
    const std::uint32_t known = dpm_if_get_ifindexbyname(image.ifname);
    if (known != DPM_IFINDEX_NONE)
        image.ifindex = known;
    if (image.ifname[0] == '\0')
        DPM_LOG_FROM(caller, "%s %d::ifindex = %d, can not find the interface!\r\n",
                     +image.ifindex);
    return image.ifname[0] != '\0';
}

// The circuit of an interface: by its index, or by its name where the index is another by now.
template <class Kind> typename Kind::entry *find_circuit(const typename Kind::entry &image) {
    if (auto *present = Kind::table().find(image))
        return present;
    for (auto &circuit : Kind::table())
        if (image.ifname[0] != '\0' && std::strcmp(circuit.ifname, image.ifname) == 0)
            return &circuit;
    return nullptr;
}

template <class Kind> void move_circuit(typename Kind::entry &circuit, std::uint32_t ifindex) {
    auto &record = record_of<Kind>(circuit);
    Kind::unindex(record);
    Kind::table().remove(circuit);
    circuit.ifindex = ifindex;
    (void)Kind::table().add(circuit);
    Kind::index(record);
}

// The circuit of an interface takes its index; another one that stood under it has lost it.  Calls
// `moved(circuit)` for each.
template <class Kind, class Moved>
void renumber_circuit(const char *ifname, std::uint32_t ifindex, Moved moved) {
    typename Kind::entry key = {};
    key.ifindex = ifindex;
    auto *other = ifindex != DPM_IFINDEX_NONE ? Kind::table().find(key) : nullptr;
    for (auto &circuit : Kind::table()) {
        if (std::strcmp(circuit.ifname, ifname) != 0)
            continue;
        if (&circuit == other || circuit.ifindex == ifindex)
            return;
        if (other != nullptr) {
            move_circuit<Kind>(*other, DPM_IFINDEX_NONE);
            moved(*other);
        }
        move_circuit<Kind>(circuit, ifindex);
        return moved(circuit);
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
