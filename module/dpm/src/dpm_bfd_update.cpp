// Changes of BFD sessions that are there: by the routing suite, by what the chip reports, and by
// time.
//
// A peer that is lost is told to the chip 3 seconds later, so that one that comes back at once never
// stops the continuity check.  A discriminator that the chip would not take is told again in the
// same way.  On the standby card an update changes the record as it did the master's.
#include "dpm_bfd_record.h"

#include "dpm_bridge.h"

namespace {

using std::uintptr_t;

int debounce_is_over(uintptr_t session, uintptr_t remote_disc, uintptr_t) {
    return dpm_bfd_remoteid_update_timeout(reinterpret_cast<dpm_bfd_sess *>(session), remote_disc);
}

// Tells the chip the discriminator that is stored.
int tell_remote_disc(dpm_bfd_sess &session) {
    const std::uint32_t remote_disc = session.told.remote_disc;
    int result = 0;
    if (dpm::is_resolved(session))
        result = dpm::bfd_chip_set_remote_disc(session, remote_disc);
    if (result == 0 && !dpm::is_held(session))
        result = dpm_bfd_cc_update(&session, remote_disc != 0);
    if (result == 0)
        return 0;
    dpm::bfd_debounce_start(session);
    return -1;
}

bool has_timers(const dpm_bfd_sess &session, const std::uint32_t (&timer)[3]) {
    return std::memcmp(session.told.timer, timer, sizeof timer) == 0;
}

int apply(dpm_bfd_sess &session, const dpm_bfd_update &update) {
    switch (update.kind) {
    case DPM_BFD_UPDATE_REMOTE_DISC:
        return dpm_bfd_remoteid_update(&session, update.value[0]);
    case DPM_BFD_UPDATE_STATE:
        return dpm_bfd_state_update(&session, update.value[0]);
    case DPM_BFD_UPDATE_CC:
        return dpm_bfd_cc_update(&session, update.value[0]);
    case DPM_BFD_UPDATE_TIMERS:
        return dpm_bfd_timer_update(&session, update.value[0], update.value[1], update.value[2]);
    default:
        return 0;
    }
}

// What an update that the chip takes makes of a record.
void apply_to_record(dpm_bfd_sess &session, const dpm_bfd_update &update) {
    switch (update.kind) {
    case DPM_BFD_UPDATE_REMOTE_DISC:
        if (session.told.remote_disc == update.value[0])
            return;
        session.told.remote_disc = update.value[0];
        session.debounce = update.value[0] == 0;
        if (update.value[0] != 0 && dpm::is_resolved(session) && !dpm::is_held(session))
            session.cc_state = 1;
        return;
    case DPM_BFD_UPDATE_STATE:
        session.told.state = static_cast<std::uint16_t>(update.value[0]);
        return;
    case DPM_BFD_UPDATE_CC:
        if (dpm::is_resolved(session))
            session.cc_state = update.value[0] != 0;
        return;
    case DPM_BFD_UPDATE_TIMERS:
        std::memcpy(session.told.timer, update.value, sizeof session.told.timer);
        return;
    default:
        return;
    }
}

// An update that did what it does on the standby travels as it is; else the record does.
void mirror_update(const dpm_bfd_sess &session, const dpm::bfd_watch &watch,
                   const dpm_bfd_update &update) {
    if (!watch.has_changed())
        return;
    dpm_bfd_sess there = watch.before();
    apply_to_record(there, update);
    if (dpm::bfd_watch::is_same(there, session))
        (void)dpm_bfd_entry_update_sync_send(&update);
    else
        (void)dpm_bfd_entry_add_sync_send(&session);
}

} // namespace

namespace dpm {

void bfd_debounce_start(dpm_bfd_sess &session) {
    session.debounce = 1;
    if (g_dpm_global.timer_list != nullptr)
        (void)dpm_timer_start(g_dpm_global.timer_list, &session.timer, DPM_BFD_DEBOUNCE_SEC,
                              debounce_is_over, reinterpret_cast<uintptr_t>(&session),
                              session.told.remote_disc, 0);
}

} // namespace dpm

int dpm_bfd_cc_update(dpm_bfd_sess *session, std::uint32_t on) {
    const std::uint32_t cc_state = on != 0;
    if (cc_state == session->cc_state || !dpm::is_resolved(*session))
        return 0;
    if (dpm::bfd_chip_set_cc(*session, cc_state) != 0)
        return -1;
    session->cc_state = cc_state;
    return 0;
}

int dpm_bfd_state_update(dpm_bfd_sess *session, std::uint32_t state) {
    const auto value = static_cast<std::uint16_t>(state);
    if (value == session->told.state)
        return 0;
    if (dpm::is_resolved(*session) && dpm::bfd_chip_set_state(*session, value) != 0)
        return -1;
    session->told.state = value;
    return 0;
}

int dpm_bfd_timer_update(dpm_bfd_sess *session, std::uint32_t timer1, std::uint32_t timer2,
                         std::uint32_t timer3) {
    const std::uint32_t timer[] = {timer1, timer2, timer3};
    if (dpm::is_resolved(*session) && dpm::bfd_chip_set_timers(*session, timer) != 0)
        return -1;
    std::memcpy(session->told.timer, timer, sizeof timer);
    return 0;
}

// deliberate: a peer that is lost does not stop the continuity check before the debounce is over
int dpm_bfd_remoteid_update(dpm_bfd_sess *session, std::uint32_t remote_disc) {
    if (remote_disc == session->told.remote_disc)
        return 0;
    dpm::bfd_debounce_stop(*session);
    session->told.remote_disc = remote_disc;
    if (remote_disc != 0)
        return tell_remote_disc(*session);
    dpm::bfd_debounce_start(*session);
    return 0;
}

int dpm_bfd_remoteid_update_timeout(dpm_bfd_sess *session, std::uint32_t remote_disc) {
    if (dpm_bridge_self_is_slave() || session->debounce == 0)
        return 0;
    const dpm::bfd_watch watch(*session);
    session->debounce = 0;
    session->told.remote_disc = remote_disc;
    const int result = tell_remote_disc(*session);
    watch.mirror_change();
    return result;
}

int dpm_bfd_sess_update(dpm_bfd_sess *session, const dpm_bfd_sess *asked) {
    int result = 0;
    if ((session->told.remote_disc != 0) != (asked->told.remote_disc != 0)) {
        dpm::bfd_debounce_stop(*session);
        session->told.remote_disc = asked->told.remote_disc;
        result = tell_remote_disc(*session);
    }
    const auto &timer = asked->told.timer;
    if (has_timers(*session, timer))
        return result;
    return dpm_bfd_timer_update(session, timer[0], timer[1], timer[2]) != 0 ? -1 : result;
}

int dpm_bfd_sess_update_msg(const dpm_bfd_update *update) {
    if (update == nullptr)
        return dpm::null_parameter();
    dpm_bfd_sess *const session = dpm_avl_bfd_sess_lookup(update->local_disc);
    if (session == nullptr)
        return 0;
    if (dpm_bridge_self_is_slave()) {
        apply_to_record(*session, *update);
        return 0;
    }
    const dpm::bfd_watch watch(*session);
    const int result = apply(*session, *update);
    mirror_update(*session, watch, *update);
    return result;
}
