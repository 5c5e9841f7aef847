// What stands beside each tunnel, card-locally, and what its sources share.  For them alone.
#pragma once

#include "dpm.h"
#include "dpm_memory.h"
#include "dpm_tunnel.h"

// The neighbour that a GRE next hop was made for: what took a port gives that port back, whatever
// has become of the neighbour.
struct tunnel_path {
    std::uint32_t port_type;
    std::uint32_t port;
    std::uint32_t svlan;
    std::uint32_t cvlan;
    std::uint8_t mac[DPM_MAC_BYTES];
};

struct tunnel_record {
    dpm_tunnel_entry entry; // first: the table sees this alone
    dpm_avl_node by_ends;
    tunnel_path paths[DPM_TUNNEL_PATHS]; // of the GRE next hops that there are
    std::uint32_t sync;                  // that brought it
    bool is_torn;                        // the master died while it took the tunnel apart
};

inline tunnel_record &record_of(dpm_tunnel_entry &tunnel) {
    return reinterpret_cast<tunnel_record &>(tunnel);
}
inline const tunnel_record &record_of(const dpm_tunnel_entry &tunnel) {
    return reinterpret_cast<const tunnel_record &>(tunnel);
}

// Chip work; 0, also when the chip refuses: the tunnel is down then, and the next event tries again.
// The update takes the values that the chip has.
int dpm_tunnel_driver_add(dpm_tunnel_entry *tunnel);
int dpm_tunnel_driver_del(dpm_tunnel_entry *tunnel);
int dpm_tunnel_driver_update(std::uint32_t old_key_enable, std::uint32_t old_key,
                             std::uint32_t old_checksum, dpm_tunnel_entry *tunnel);
int dpm_tunnel_driver_update_ipvrf(std::uint32_t old_vrf, dpm_tunnel_entry *tunnel);

// The best route to the destination is looked for and taken; let go.
int dpm_tunnel_destination_nexthop_add(dpm_tunnel_entry *tunnel);
int dpm_tunnel_destination_nexthop_del(dpm_tunnel_entry *tunnel);
void dpm_tunnel_clear_destination_nexthop(dpm_tunnel_entry *tunnel);

namespace dpm {

// By what the chip knows a tunnel: of those with the same ends one alone is up.
struct tunnel_ends {
    std::uint32_t vrf; // of the tunnel's own address
    dpm_prefix source, destination;
    std::uint32_t key; // as it is passed on
    bool operator==(const tunnel_ends &other) const;
};
tunnel_ends ends_of(const dpm_tunnel_entry &tunnel);

inline bool is_up(const dpm_tunnel_entry &tunnel) {
    return tunnel.sdk_index > 0;
}

// Puts a record into the table and its index, or takes it out.
void link_tunnel(tunnel_record &record);
void unlink_tunnel(tunnel_record &record);

// The first tunnel with these ends in table order, and the next; null at the end.
dpm_tunnel_entry *first_with(const tunnel_ends &ends);
dpm_tunnel_entry *next_with_same(const dpm_tunnel_entry &tunnel);

// Lets `set` change what makes the ends of a tunnel.
void tunnel_leave_index(tunnel_record &record);
void tunnel_enter_index(tunnel_record &record);
template <class Set> void set_ends(dpm_tunnel_entry &tunnel, Set set) {
    tunnel_leave_index(record_of(tunnel));
    set();
    tunnel_enter_index(record_of(tunnel));
}

void tunnel_tables_create();

// Takes a route as the one that leads to the destination, and programs the tunnel over it.
void take_route(dpm_tunnel_entry &tunnel, const dpm_route_entry &route);
bool holds_route(const dpm_tunnel_entry &tunnel, const dpm_route_entry &route);

// The neighbours behind the GRE next hops of a tunnel that another card has programmed; of those
// whose neighbour has gone, what `former` knows.
void find_paths(tunnel_record &record, const tunnel_record *former);

// What is done to a tunnel while this lives.  Then it is mirrored, if it has changed, and when it has
// left its ends, another one that waits for them comes.
class tunnel_work {
public:
    explicit tunnel_work(dpm_tunnel_entry &tunnel);
    ~tunnel_work();
    tunnel_work(const tunnel_work &) = delete;
    tunnel_work &operator=(const tunnel_work &) = delete;
    void mirror_anyway() { is_mirrored_ = true; }

private:
    dpm_tunnel_entry &tunnel_;
    const dpm_tunnel_entry before_;
    bool is_mirrored_ = false;
};

// These ends are free: the first of those that wait for them, but for one, comes.
void ends_are_free(const tunnel_ends &ends, const dpm_tunnel_entry *but);

// What the chip holds for a tunnel is programmed into a slot that came up.
void reprogram_tunnel(const dpm_tunnel_entry &tunnel, std::uint32_t slot_bits);
void reprogram_tunnel_port(const dpm_tunnel_port_entry &port, std::uint32_t slot_bits);

// --- ports ---

// Counting anew on a card that becomes master.
void tunnel_ports_uncount();
void tunnel_port_count(std::uint32_t port_type, std::uint32_t port);
void tunnel_ports_drop_uncounted();

// --- what the chip would not let go (dpm_tunnel_kept) ---

// Delete a GRE object; 0, or the driver's answer: then it is tried again later.
int release_gre_nexthop(std::uint32_t id);
int release_gre_tunnel(const dpm_tunnel_entry &tunnel);

// Whether the chip has kept just this tunnel, which is the caller's again.
bool reclaim_gre_tunnel(const dpm_tunnel_entry &tunnel);
void forget_kept_gre();

// --- routes over tunnels ---

// Chip entries of theirs that the chip would not let go, when they lead nowhere any more.
void routes_leave_tunnels();

// On a card that becomes master: each leads where its tunnel does.
void routes_rejoin_tunnels();

} // namespace dpm
