// Tunnels as owners of destinations: an IP route to the prefix of a tunnel gives way.
//
// A route that comes gives way to any tunnel for its prefix, also to one that waits.  One that was
// there first leaves the chip when the tunnel is programmed by a request; a tunnel that is
// programmed because its neighbour came leaves it there: the chip keeps prefixes and label entries
// apart, and looks at the label entry first.
#include "dpm_l3vpn_destination.h"

#include "dpm_destination.h"
#include "dpm_trace.h"

namespace {

using dpm::destination_rank;

dpm_prefix prefix_of(const dpm_ftn &tunnel) {
    dpm_prefix prefix = {tunnel.ip_type, tunnel.prefixlen, {}};
    std::memcpy(prefix.address, tunnel.fec_prefix, sizeof prefix.address);
    return prefix;
}

// The first tunnel for a prefix, from one to its far end on, that meets a condition.
template <class Meets> dpm_ftn *find_tunnel(dpm_ftn *from, std::uint32_t length, Meets meets) {
    for (dpm_ftn *tunnel = from; tunnel != nullptr; tunnel = dpm::next_tunnel_to(*tunnel))
        if (tunnel->prefixlen == length && meets(*tunnel))
            return tunnel;
    return nullptr;
}

// Tunnels are VRF 0's, so the routes of other VRFs never meet one.
template <class Meets>
dpm_ftn *find_tunnel(std::uint32_t vrf, const dpm_prefix &destination, Meets meets) {
    if (vrf != 0 || dpm::ftns().empty())
        return nullptr;
    dpm_prefix padded = {};
    std::memcpy(padded.address, destination.address, dpm::address_bytes(destination.family));
    return find_tunnel(dpm::first_tunnel_to(destination.family, padded.address),
                       destination.prefix_len, meets);
}

bool keeps_route_out(const dpm_ftn &tunnel) {
    return tunnel.fec_route_deleted != 0;
}

bool holds(std::uint32_t vrf, const dpm_prefix &destination) {
    return find_tunnel(vrf, destination, keeps_route_out) != nullptr;
}

bool claims(std::uint32_t vrf, const dpm_prefix &destination) {
    return find_tunnel(vrf, destination, [](const dpm_ftn &) { return true; }) != nullptr;
}

void keep_route_out(dpm_ftn &tunnel) {
    if (keeps_route_out(tunnel))
        return;
    tunnel.fec_route_deleted = 1;
    (void)dpm_mpls_ftn_add_sync_send(&tunnel);
}

void take_over(std::uint32_t vrf, const dpm_prefix &destination) {
    (void)find_tunnel(vrf, destination, [](dpm_ftn &tunnel) {
        keep_route_out(tunnel);
        return false; // each of them
    });
}

template <class Meets> dpm_ftn *find_other(dpm_ftn &tunnel, Meets meets) {
    return find_tunnel(0, prefix_of(tunnel),
                       [&](dpm_ftn &other) { return &other != &tunnel && meets(other); });
}

void put_route_back(dpm_ftn &tunnel) {
    tunnel.fec_route_deleted = 0;
    dpm::take_back_below(destination_rank::label, 0, prefix_of(tunnel));
}

} // namespace

constexpr dpm::destination_owner dpm::label_owner = {
    .holds = holds,
    .claims = claims,
    .take_over = take_over,
    .give_way = nullptr, // nobody stands above a label entry
    .take_back = nullptr,
};

namespace dpm {

int take_destination(dpm_ftn &tunnel) {
    const dpm_prefix destination = prefix_of(tunnel);
    if (!is_claimed_by(destination_rank::route, 0, destination))
        return 0;
    const int result =
        give_way_below(destination_rank::label, 0, destination, way::out_of_chip, DPM_CALL_SITE);
    tunnel.fec_route_deleted = result == 0;
    return result;
}

bool is_claimed_by_label(const dpm_ftn &image) {
    return claims(image.vrf_id, prefix_of(image));
}

void tell_of_claim(const dpm_ftn &image) {
    if (image.vrf_id == 0)
        claim_changed(destination_rank::label, 0, prefix_of(image));
}

void return_destination(dpm_ftn &tunnel) {
    if (keeps_route_out(tunnel) && find_other(tunnel, keeps_route_out) == nullptr)
        put_route_back(tunnel);
}

void leave_destination(dpm_ftn &tunnel) {
    if (tunnel.vrf_id != 0 || !keeps_route_out(tunnel))
        return;
    dpm_ftn *heir = find_other(tunnel, [](const dpm_ftn &) { return true; });
    if (heir != nullptr)
        keep_route_out(*heir);
    else
        put_route_back(tunnel);
}

} // namespace dpm
