// What the descriptions of layer-2 services share.  The records are packed: members are copied.
#pragma once

#include "chassis/tables/tables.h"
#include "chassis/tables/text.h"
#include "chassis/tables/wanted.h"

#include <cstddef>
#include <map>

namespace chassis::tables {

inline dpm_prefix peer_of(const auto &pseudowire) {
    return host_of(DPM_FAMILY_IPV4, pseudowire.vc_peer);
}
inline std::string peer_text(const auto &pseudowire) {
    return address_text(DPM_FAMILY_IPV4, pseudowire.vc_peer);
}

inline bool is_programmed(const auto &entry) {
    return entry.flags == DPM_LABEL_PROGRAMMED;
}

// "chip", "waits", or what the chip refused it with.
template <class Entry> std::string service_state(const Entry &entry) {
    std::string state = label_state(entry);
    if constexpr (requires { entry.sdk_result; })
        if (entry.sdk_result != 0)
            state = (is_programmed(entry) ? "chip, refused " : "refused ") +
                    std::to_string(entry.sdk_result);
    return state;
}

template <class Entry> bool is_pending(const Entry &entry) {
    const list_head pend = entry.pend;
    return static_cast<const void *>(pend.next) !=
           reinterpret_cast<const std::byte *>(&entry) + offsetof(Entry, pend);
}

// The names of what is missing, one behind the other.
inline void add_missing(std::string &missing, const std::string &what) {
    if (!what.empty())
        missing += (missing.empty() ? "" : ", ") + what;
}

// Label entries of VRF 0 to one address, in table order.
struct LabelPaths {
    explicit LabelPaths(const Reading &);
    std::multimap<AddressBytes, const dpm_ftn *> to;
};

// What of the label path to a pseudowire's peer is missing; empty: nothing.
std::string missing_path(const dpm_prefix &peer, const Reading &reading);
// Whether such a path has these indexes in the chip.
bool is_path(const dpm_prefix &peer, std::uint32_t nhid, std::uint32_t tunnel_id,
             const Reading &reading);

// The first member port of an interface's VLAN; 0: it has none, or the card has no such interface.
std::uint32_t port_behind(std::uint32_t ifindex);

// A service is in the chip if nothing is missing, unless the chip refused something.  On the standby
// the tables follow the master's.
void compare_need(const auto &entry, const std::string &name, const std::string &missing,
                  Wanted &wanted) {
    if (entry.sdk_result != 0 || wanted.reading.card.peer.role() != peer::Role::master)
        return;
    if (is_programmed(entry) && !missing.empty())
        wanted.differ(name + " is in the chip without " + missing);
    else if (!is_programmed(entry) && missing.empty())
        wanted.differ(name + " waits for nothing");
}

// A pseudowire is over a label path to its peer besides.
void compare_service(const auto &way_out, const std::string &name, const std::string &missing,
                     Wanted &wanted) {
    if (is_pending(way_out) != (way_out.flags == DPM_LABEL_WAITING))
        wanted.differ(name + " waits and is not on the list, or the other way round");
    compare_need(way_out, name, missing, wanted);
    if (way_out.sdk_result == 0 && is_programmed(way_out) &&
        !is_path(peer_of(way_out), way_out.path_nhid, way_out.path_id, wanted.reading))
        wanted.differ(name + " is over another label path than those to its peer");
}

// The way in is where the way out of the same pseudowire is; null: there is none.
template <class WayOut>
void compare_way_in(const auto &way_in, const WayOut *way_out, const std::string &name,
                    Wanted &wanted) {
    const std::uint32_t flags = way_out ? std::uint32_t(way_out->flags) : DPM_LABEL_WAITING;
    if (way_in.flags != flags)
        wanted.differ(name + " is not where its way out is");
    if (is_pending(way_in) != (way_in.flags == DPM_LABEL_WAITING))
        wanted.differ(name + " waits and is not on the list, or the other way round");
}

// What the chip has of a pseudowire, whose frames come with this label.
chip::Wire wire_of(const auto &way_out, std::uint32_t in_label) {
    return {in_label,
            way_out.out_label,
            {way_out.path_nhid, way_out.path_id},
            way_out.c_word,
            way_out.pw_mode};
}
inline chip::Ipv4 chip_peer(const auto &pseudowire) {
    const std::uint8_t(&peer)[16] = pseudowire.vc_peer;
    return {peer[0], peer[1], peer[2], peer[3]};
}

// What someone waits for who has all that he needs.
inline std::string refusal_of(const auto &entry) {
    return entry.sdk_result != 0
               ? "the chip, which refused it with " + std::to_string(entry.sdk_result)
               : "the routing suite to tell it again";
}

} // namespace chassis::tables
