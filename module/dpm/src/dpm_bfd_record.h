// What the sources of BFD sessions share: the table with what stands beside each session, the
// indexes of end points, and the requests to the chip.
//
// A session names its interface by an index, which is the card's own, and by nothing else.  So the
// name stands beside it, and the VRF in which its next hop is looked for: that of the interface, as
// last known.  A resolved session keeps that of its host.
#pragma once

#include "dpm.h"
#include "dpm_address.h"
#include "dpm_bfd.h"
#include "dpm_host.h"
#include "dpm_memory.h"

struct bfd_record {
    dpm_bfd_sess entry; // first: the table sees this alone
    dpm_avl_node by_next_hop;
    std::uint32_t vrf;
    char ifname[DPM_IFNAME_BYTES]; // empty: this card does not know the interface
    bool has_host;                 // at a switch-over: a host is what the session's next hop is
    std::uint32_t sync;            // that brought it
};

inline bfd_record &record_of(dpm_bfd_sess &session) {
    return reinterpret_cast<bfd_record &>(session);
}
inline const bfd_record &record_of(const dpm_bfd_sess &session) {
    return reinterpret_cast<const bfd_record &>(session);
}

// The ends of a session, whose indexes count apart.
enum dpm_bfd_end : std::uint32_t { DPM_BFD_LOCAL, DPM_BFD_REMOTE };

inline constexpr std::uint32_t DPM_BFD_MEPS = 2000;   // of either end
inline constexpr std::uint32_t DPM_BFD_FIRST_MEP = 2; // 0 and 1 are never handed out

inline constexpr std::uint32_t DPM_BFD_DEBOUNCE_SEC = 3;

// In a mirrored delete, as the first argument of the timer, which is card-local: the session has left
// the chip and waits, an add follows.
inline constexpr std::uintptr_t DPM_BFD_WAITS = 1;

// The lowest free index, or -1 when all are used.  Reset marks one as used, free as free; 0, or -1
// for one that is none, or is free already.
std::int32_t dpm_bfd_alloc_mepindex(dpm_bfd_end end);
int dpm_bfd_reset_mepindex(dpm_bfd_end end, std::uint32_t index);
int dpm_bfd_free_mepindex(dpm_bfd_end end, std::uint32_t index);

// The table.  Add keeps a copy of the record, which is idle; null without memory, or when there is
// one with its key.  Del frees it, with its indexes and its timer.
int dpm_avl_bfd_sess_compile(const dpm_bfd_sess &a, const dpm_bfd_sess &b);
dpm_bfd_sess *dpm_avl_bfd_sess_add(const dpm_bfd_sess *image);
void dpm_avl_bfd_sess_del(dpm_bfd_sess *session);
dpm_bfd_sess *dpm_avl_bfd_sess_lookup(std::uint32_t local_disc);

// Whether the next hop is there; what is known of it is copied to the session, which is in the
// table.  0 or -1.
int dpm_bfd_get_mac_by_ip(std::uint32_t ifindex, const dpm_prefix *ip, dpm_bfd_sess *session);

// Type of the chip's end points; 0 for a session type that is none.
std::uint32_t dpm_bfd_mep_type_get(std::uint32_t session_type);

// Changes of a session: the chip first, if it has the session, then the record.  0 also when there
// is nothing to do; -1 when the chip refused, and nothing is changed, but for a discriminator, which
// is stored and told to the chip again later.
int dpm_bfd_cc_update(dpm_bfd_sess *session, std::uint32_t on);
int dpm_bfd_state_update(dpm_bfd_sess *session, std::uint32_t state);
int dpm_bfd_timer_update(dpm_bfd_sess *session, std::uint32_t timer1, std::uint32_t timer2,
                         std::uint32_t timer3);
int dpm_bfd_remoteid_update(dpm_bfd_sess *session, std::uint32_t remote_disc);
int dpm_bfd_remoteid_update_timeout(dpm_bfd_sess *session, std::uint32_t remote_disc);
int dpm_bfd_sess_update(dpm_bfd_sess *session, const dpm_bfd_sess *asked);

int dpm_bfd_entry_update_sync_send(const dpm_bfd_update *update);

namespace dpm {

using bfd_table = avl_table<dpm_bfd_sess, dpm_avl_bfd_sess_compile>;
bfd_table bfd_sessions();
void bfd_tables_create();

int bfd_next_hop_order(const bfd_record &a, const bfd_record &b);
using bfd_next_hop_index =
    avl_table<bfd_record, bfd_next_hop_order, offsetof(bfd_record, by_next_hop)>;
bfd_next_hop_index bfd_by_next_hop();

inline bool is_resolved(const dpm_bfd_sess &session) {
    return session.arp_state == DPM_BFD_RESOLVED;
}
inline bool is_installed(const dpm_bfd_sess &session) {
    return session.hw_state == DPM_BFD_INSTALLED;
}
inline bool is_held(const dpm_bfd_sess &session) {
    return session.cc_hold == 1;
}

// Type and sub-type are ones that the chip has end points for.
bool bfd_is_known_type(const dpm_bfd_told &told);

// Calls `visit(session)` for those over a next hop: in a VRF, in table order, or in all of them.
// The visit may move the session to another VRF.
bool is_over(const bfd_record &record, const dpm_prefix &next_hop);
template <class Visit>
void each_bfd_over(const dpm_prefix &next_hop, const std::uint32_t *vrf, Visit visit) {
    bfd_record key = {}; // before each of them
    key.entry.told.next_hop = next_hop;
    key.vrf = vrf != nullptr ? *vrf : 0;
    const bfd_next_hop_index index = bfd_by_next_hop();
    for (bfd_record *record = index.find_from(key), *next = nullptr;
         record != nullptr && is_over(*record, next_hop) && (vrf == nullptr || record->vrf == *vrf);
         record = next) {
        next = index.next(*record);
        visit(record->entry);
    }
}

// Copies what a host says of the way to it; false when it names no port.
bool bfd_take_host(dpm_bfd_sess &session, const dpm_host_entry &host);
void bfd_forget_next_hop(dpm_bfd_sess &session); // it is unresolved from now on

// A session is what the image says from now on, which has its key; it gives its indexes back.
dpm_bfd_sess *bfd_replace(dpm_bfd_sess &session, const dpm_bfd_sess &image);

// The session is on this interface, or in another VRF, from now on.
void bfd_stand_on(dpm_bfd_sess &session, const dpm_if_entry &interface);
void bfd_move_to_vrf(dpm_bfd_sess &session, std::uint32_t vrf);

// Where the next hop is, by the VLAN of a resolved session, else by its network; null: nowhere.
const dpm_if_entry *bfd_interface_of(const dpm_bfd_sess &session);

// Both end points come, or go, in the chip.  An index that the chip kept is the session's no more,
// and stays used.  0 or -1.
int bfd_chip_add(dpm_bfd_sess &session);
void bfd_chip_del(dpm_bfd_sess &session);

// Changes of an end point in the chip; its answer.
int bfd_chip_set_cc(const dpm_bfd_sess &session, std::uint32_t on);
int bfd_chip_set_state(const dpm_bfd_sess &session, std::uint32_t state);
int bfd_chip_set_timers(const dpm_bfd_sess &session, const std::uint32_t (&timer)[3]);
int bfd_chip_set_remote_disc(const dpm_bfd_sess &session, std::uint32_t remote_disc);

// The chip hears of the session's remote discriminator later; or no more.
void bfd_debounce_start(dpm_bfd_sess &session);
void bfd_debounce_stop(dpm_bfd_sess &session);

// Notices whether a session has changed since: it is mirrored when it has.
class bfd_watch {
public:
    explicit bfd_watch(const dpm_bfd_sess &session) : session_(session), before_(session) {}
    bool has_changed() const { return !is_same(session_, before_); }
    void mirror_change() const {
        if (has_changed())
            (void)dpm_bfd_entry_add_sync_send(&session_);
    }
    const dpm_bfd_sess &before() const { return before_; }

    // But for what is card-local.
    static bool is_same(const dpm_bfd_sess &a, const dpm_bfd_sess &b) {
        constexpr std::size_t first = offsetof(dpm_bfd_sess, told);
        return std::memcmp(reinterpret_cast<const char *>(&a) + first,
                           reinterpret_cast<const char *>(&b) + first,
                           offsetof(dpm_bfd_sess, timer) - first) == 0;
    }

private:
    const dpm_bfd_sess &session_;
    const dpm_bfd_sess before_;
};

} // namespace dpm
