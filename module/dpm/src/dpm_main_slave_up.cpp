// The handshake that brings a newly connected standby card up to date, and the hand-over when it
// becomes master.
//
// A slot that comes up is re-programmed; when it is the peer card's, card data, every table and an
// end marker follow.  The standby's worker sees the first and the last in their order among the
// entries: between them it renews its tables (dpm_mirror.h), then it confirms, which releases the
// master's waiting callback.  Changes are mirrored from the start of the process on.
#include "dpm_main.h"

#include "dpm.h"
#include "dpm_bfd.h"
#include "dpm_bridge.h"
#include "dpm_ecmp.h"
#include "dpm_host.h"
#include "dpm_ipmc.h"
#include "dpm_l3vpn.h"
#include "dpm_locks.h"
#include "dpm_mirror.h"
#include "dpm_msg.h"
#include "dpm_policy_route.h"
#include "dpm_route.h"
#include "dpm_slot.h"
#include "dpm_trace.h"
#include "dpm_tunnel.h"
#include "dpm_vpls.h"
#include "dpm_vpn_l2vpn.h"
#include "dpm_vrf.h"

#include <cstring>

namespace {

constexpr std::uint32_t first_peer_check_sec = 60;
constexpr std::uint32_t peer_check_sec = 10;
constexpr std::uint32_t confirmed = 1;

int check_peer(std::uintptr_t, std::uintptr_t, std::uintptr_t) {
    return dpm_peer_can_be_use();
}

// What the master does not have goes; entries before those that they point to.
void drop_old_entries(const dpm::call_site &caller) {
    std::uint32_t dropped = 0;
    for (std::size_t i = std::size(dpm_mirrored_tables); i > 0; i--)
        dropped += dpm_mirrored_tables[i - 1]->drop_old();
    if (dropped != 0)
        DPM_LOG_FROM(caller, "%s %d::%d entries are not on the master, dropped.\r\n", dropped);
}

// With holes, its begin among them, a sync tells nothing about what it did not bring.
void end_sync(const dpm::call_site &caller) {
    if (!dpm::sync_is_whole())
        DPM_LOG_FROM(caller, "%s %d::the sync has holes, nothing is dropped!\r\n");
    else if (dpm::sync_number() != 0)
        drop_old_entries(caller);
    dpm::sync_end();
}

void follow_mac(const void *bytes) {
    const dpm::dpm_lock lock;
    std::uint8_t mac[DPM_MAC_BYTES];
    std::memcpy(mac, bytes, sizeof mac);
    if (std::memcmp(mac, g_dpm_global.device_mac, sizeof mac) != 0)
        dpm_vrf_follow_mac(mac);
}

} // namespace

int dpm_slave_up_process(std::uint32_t slot) {
    if (dpm_bridge_self_is_slave())
        return 0;
    if (slot < DPM_SLOT_FIRST || slot > DPM_SLOT_LAST) {
        DPM_TRACE("%s %d::slot = %d is err!\r\n", slot);
        if (slot == dpm_bridge_peer_slot_get())
            dpm_slot_up_sem_give(); // nobody will confirm
        return -1;
    }
    g_dpm_global.slave_up = 1;
    (void)dpm_main_entry_sync_all_send(slot);
    for (const dpm::mirrored *table : dpm_mirrored_tables)
        if (table->send_all != nullptr)
            (void)table->send_all(slot);
    (void)dpm_slave_up_pro_over_sync_send(slot);
    return dpm_timer_start(g_dpm_global.timer_list, &g_dpm_global.peer_timer, first_peer_check_sec,
                           check_peer, 0, 0, 0);
}

int dpm_slave_up_pro_over_sync_send(std::uint32_t slot) {
    if (slot != dpm_bridge_peer_slot_get())
        return 0;
    DPM_TRACE("%s %d:: it is master, slave_up_pro send over!\r\n");
    return dpm_bridge_sync_send("dpm_slave_up_pro_over_sync_receive", &slot, sizeof slot);
}

int dpm_slave_up_pro_over_sync_receive(const void *, std::uint32_t) {
    if (!dpm_bridge_self_is_slave()) {
        // deliberate: the text says the opposite of the condition, as in every receiver
        DPM_TRACE("%s %d::it is slave.\r\n");
        return 0;
    }
    dpm::ipmc_echoes_restart();
    return dpm::post_words(DPM_MSG_SLAVE_UP_OVER, sizeof(std::uint32_t), 0,
                           DPM_SEND_ERROR("[%s %d]send msg err!\r\n"));
}

int dpm_slave_up_pro_over_sync_process() {
    if (!dpm_bridge_self_is_slave()) {
        DPM_TRACE("%s %d::it is master!!\r\n");
        return 0;
    }
    end_sync(DPM_CALL_SITE);
    DPM_TRACE("%s %d::it is slave,slave up process over!\r\n");
    return dpm_bridge_slave_sync_send("dpm_slave_up_pro_over_peercard_callback", &confirmed,
                                      sizeof confirmed);
}

int dpm_slave_up_pro_over_peercard_callback(const void *, std::uint32_t) {
    if (!dpm_bridge_self_is_master()) {
        DPM_TRACE("%s %d::it is slave!\r\n");
        return 0;
    }
    DPM_TRACE("%s %d::slave up process over, sem_give!\r\n");
    dpm_slot_up_sem_give();
    return 0;
}

int dpm_main_entry_sync_all_send(std::uint32_t slot) {
    if (slot != dpm_bridge_peer_slot_get())
        return 0;
    return dpm_bridge_sync_send("dpm_main_entry_sync_all_receive", g_dpm_global.device_mac,
                                sizeof g_dpm_global.device_mac);
}

// Both cards answer with the master's MAC and link-local address, which they do when the call
// returns.  It is also the first that a sync brings: the worker is told.
int dpm_main_entry_sync_all_receive(const void *buffer, std::uint32_t length_bytes) {
    if (buffer == nullptr)
        return dpm::null_parameter();
    if (!dpm_bridge_self_is_slave()) {
        // deliberate: the text says the opposite of the condition, as in every receiver
        DPM_TRACE("%s %d::it is slave.\r\n");
        return 0;
    }
    if (length_bytes != DPM_MAC_BYTES)
        return dpm::null_parameter();
    follow_mac(buffer);
    const int result =
        dpm::post_words(DPM_MSG_SYNC_BEGIN, sizeof(std::uint32_t), dpm::sync_lost_so_far(),
                        DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
    if (result != 0)
        dpm::sync_begin_lost();
    return result;
}

int dpm_sync_begin(std::uint32_t lost_before) {
    if (!dpm_bridge_self_is_slave())
        return 0;
    dpm::unreachables_end(); // this card may have been master
    dpm::ipmc_filters_forget();
    dpm::sync_begin(lost_before);
    return 0;
}

int dpm_peer_can_be_use() {
    if (!dpm_bridge_self_is_master() || g_dpm_global.slave_up != 1)
        return 0;
    if (get_standby_corecard_can_be_use() == 1)
        (void)dpm_timer_restart(g_dpm_global.timer_list, &g_dpm_global.peer_timer, peer_check_sec);
    else
        g_dpm_global.slave_up = 0; // no mirroring until the next standby card connects
    return 0;
}

// A sync that ran will not end, and no standby has this card's tables.
int dpm_slave_to_master_process() {
    dpm::sync_end();
    dpm::unreachables_end(); // from a time as master before: asked for anew below
    g_dpm_global.slave_up = 0;
    (void)dpm_host_start_delete_time();
    dpm::hosts_left_over();
    dpm::ecmp_groups_uncount();
    dpm::tunnels_recount();
    (void)dpm_route_start_delete_time();
    dpm::ecmp_groups_drop_uncounted();
    dpm::tunnels_take_over();
    dpm::labels_ask();
    dpm::vpws_ask();
    (void)dpm_vpls_acif_slave_to_master_process();
    (void)dpm_bfd_slave_to_master_pro();
    dpm::policy_routes_ask();
    (void)dpm_ipmc_slave_to_master_pro();
    return 0;
}
