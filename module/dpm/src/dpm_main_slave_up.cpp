// The handshake that brings a newly connected standby card up to date, and the hand-over when it
// becomes master.
//
// A slot that comes up is re-programmed; when it is the peer card's, every table follows, then an
// end marker.  The standby's worker reaches the marker behind all entries and confirms, which
// releases the master's waiting callback. Changes are mirrored from the start of the process on.
#include "dpm_main.h"

#include "dpm.h"
#include "dpm_bridge.h"
#include "dpm_host.h"
#include "dpm_locks.h"
#include "dpm_msg.h"
#include "dpm_route.h"
#include "dpm_trace.h"
#include "dpm_vrf.h"

#include <cstring>

namespace {

constexpr std::uint32_t first_peer_check_sec = 60;
constexpr std::uint32_t peer_check_sec = 10;
constexpr std::uint32_t confirmed = 1;

int check_peer(std::uintptr_t, std::uintptr_t, std::uintptr_t) {
    return dpm_peer_can_be_use();
}

} // namespace

int dpm_slave_up_process(std::uint32_t slot) {
    if (dpm_bridge_self_is_slave())
        return 0;
    g_dpm_global.slave_up = 1;
    (void)dpm_main_entry_sync_all_send(slot);
    for (const dpm::mirrored *table : dpm_mirrored_tables)
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
    return dpm::post_words(DPM_MSG_SLAVE_UP_OVER, sizeof(std::uint32_t), 0,
                           DPM_SEND_ERROR("[%s %d]send msg err!\r\n"));
}

int dpm_slave_up_pro_over_sync_process() {
    if (!dpm_bridge_self_is_slave()) {
        DPM_TRACE("%s %d::it is master!!\r\n");
        return 0;
    }
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

// Both cards answer with the master's MAC and link-local address.  Complete when the call returns.
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
    const dpm::dpm_lock lock;
    std::uint8_t mac[DPM_MAC_BYTES];
    std::memcpy(mac, buffer, sizeof mac);
    if (std::memcmp(mac, g_dpm_global.device_mac, sizeof mac) != 0)
        dpm_vrf_follow_mac(mac);
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

int dpm_slave_to_master_process() {
    (void)dpm_host_start_delete_time();
    (void)dpm_route_start_delete_time();
    return 0;
}
