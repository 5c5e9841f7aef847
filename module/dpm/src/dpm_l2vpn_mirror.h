// What the descriptions of layer-2 tables (mirrored_table) have in common.
#pragma once

#include "dpm_l2vpn.h"
#include "dpm_mirror.h"

namespace dpm {

template <vpn_table Kind> struct service_mirror : mirror_defaults<typename Kind::entry> {
    using entry = typename Kind::entry;
    static bool reprogram(const entry &, std::uint32_t) { return true; }
    static entry *find(const entry &image) { return Kind::table().find(image); }
    static void drop(entry &present) { (void)Kind::del(&present); }
    static std::uint32_t &sync_of(entry &present) { return record_of<Kind>(present).sync; }
};

// A circuit stands under this card's index of its interface.
template <vpn_table Kind> struct circuit_mirror : service_mirror<Kind> {
    using entry = typename Kind::entry;
    static bool localise_key(entry &image, const call_site &) {
        image.ifindex = circuit_index(image.ifname, index_of(image.ifname));
        return true;
    }
};

// Of a peer the address counts alone: what stands behind it is zero in every table.
template <vpn_table Kind> struct pseudowire_mirror : service_mirror<Kind> {
    using entry = typename Kind::entry;
    static bool localise_key(entry &image, const call_site &) {
        std::memset(image.vc_peer + 4, 0, sizeof image.vc_peer - 4);
        return true;
    }
};

} // namespace dpm
