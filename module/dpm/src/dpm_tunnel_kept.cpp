// GRE objects that the chip would not let go: no tunnel has them any more, and they are deleted again
// every 30 seconds, behind the routes that still lead to them.
#include "dpm_tunnel_record.h"

#include "dpm_driver.h"
#include "dpm_retry.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

dpm_kept_gre kept_of(const dpm_tunnel_entry &tunnel) {
    dpm_kept_gre kept = {};
    kept.is_used = 1;
    kept.vrf = tunnel.ip_vrfid;
    std::memcpy(kept.source, tunnel.source.address, sizeof kept.source);
    std::memcpy(kept.destination, tunnel.destination.address, sizeof kept.destination);
    kept.key_enable = tunnel.key_enable != 0;
    kept.key = kept.key_enable != 0 ? tunnel.key : 0;
    kept.checksum = tunnel.checksum;
    return kept;
}

int delete_in_chip(const dpm_kept_gre &gre) {
    if (gre.nexthop != 0)
        return dpm_driver_del_gre_nexthop(gre.nexthop, DPM_SLOT_ALL_BITS);
    return dpm_driver_del_gre_tunnel(gre.vrf, gre.source, gre.destination, gre.key_enable, gre.key,
                                     gre.checksum, DPM_SLOT_ALL_BITS);
}

int release(const dpm_kept_gre &gre);

void release_again() {
    dpm::routes_leave_tunnels();
    for (dpm_kept_gre &kept : g_dpm_index.kept_gre) {
        const dpm_kept_gre gre = std::exchange(kept, {});
        if (gre.is_used != 0)
            (void)release(gre);
    }
}

int release(const dpm_kept_gre &gre) {
    const int result = delete_in_chip(gre);
    if (result == 0)
        return 0;
    for (dpm_kept_gre &kept : g_dpm_index.kept_gre)
        if (kept.is_used == 0) {
            kept = gre;
            dpm::retry_later(g_dpm_index.kept_gre_timer, release_again);
            break;
        }
    return result;
}

} // namespace

namespace dpm {

int release_gre_nexthop(std::uint32_t id) {
    dpm_kept_gre gre = {};
    gre.is_used = 1;
    gre.nexthop = id;
    return release(gre);
}

int release_gre_tunnel(const dpm_tunnel_entry &tunnel) {
    return release(kept_of(tunnel));
}

bool reclaim_gre_tunnel(const dpm_tunnel_entry &tunnel) {
    const dpm_kept_gre wanted = kept_of(tunnel);
    for (dpm_kept_gre &kept : g_dpm_index.kept_gre)
        if (std::memcmp(&kept, &wanted, sizeof kept) == 0) {
            kept = {};
            return true;
        }
    return false;
}

void forget_kept_gre() {
    for (dpm_kept_gre &kept : g_dpm_index.kept_gre)
        kept = {};
}

} // namespace dpm
