// The two control cards: roles, presence, the hot-standby service's callbacks, and the calls to the
// peer.
//
// The callbacks run on threads of the service and only post; all table work runs on the worker.
#include "dpm_bridge.h"

#include "dpm_locks.h"
#include "dpm_msg.h"
#include "dpm_trace.h"

namespace {

constexpr std::uint32_t lower_card_slot = 9;
constexpr std::uint32_t upper_card_slot = 10;

DPM_STATE std::uint8_t g_dpm_virtual_mac[DPM_MAC_BYTES];

constexpr bool is_between(std::uint32_t value, std::uint32_t first, std::uint32_t last) {
    return value >= first && value <= last;
}

int post_slot_up(std::uint32_t slot, const dpm::send_error &error) {
    return dpm::post_words(DPM_MSG_SLAVE_UP, sizeof slot, slot, error);
}

} // namespace

int dpm_bridge_self_role_get() {
    return hss_GetSmuState() == HSS_STATE_MASTER ? DPM_ROLE_MASTER : DPM_ROLE_SLAVE;
}

int dpm_bridge_self_is_master() {
    return dpm_bridge_self_role_get() == DPM_ROLE_MASTER;
}

int dpm_bridge_self_is_slave() {
    return dpm_bridge_self_role_get() == DPM_ROLE_SLAVE;
}

int dpm_bridge_peer_is_exist() {
    return hss_IsPeerExist();
}

std::uint32_t dpm_bridge_self_slot_get() {
    return static_cast<std::uint32_t>(get_core_card_self_cardnumber());
}

std::uint32_t dpm_bridge_peer_slot_get() {
    return static_cast<std::uint32_t>(get_bakup_core_card_cardnumber());
}

std::uint8_t *dpm_bridge_virtual_mac_get() {
    (void)hss_get_device_mac(g_dpm_virtual_mac);
    return g_dpm_virtual_mac;
}

int dpm_bridge_get_port_is_peer(std::uint32_t port) {
    switch (dpm_bridge_self_slot_get()) {
    case lower_card_slot:
        return is_between(port, 38, 41);
    case upper_card_slot:
        return is_between(port, 18, 21);
    default:
        return 0;
    }
}

int dpm_bridge_slot_up(std::uint32_t slot) {
    if (dpm_bridge_self_is_slave())
        return 0;
    return post_slot_up(slot, DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

int dpm_bridge_slave_up() {
    if (dpm_bridge_self_is_slave())
        return 0;
    dpm::empty_slot_up_sem(); // a late confirmation is none of what is sent now
    if (post_slot_up(dpm_bridge_peer_slot_get(), DPM_SEND_ERROR("%s %d::send msg err!\r\n")) != 0)
        return -1;
    DPM_TRACE("%s %d::wait slave up process over!\r\n");
    dpm_slot_up_sem_take(); // the end of the wait counts, whether the slave confirmed or not
    DPM_TRACE("%s %d::it is master, slave up process over!\r\n");
    return 0;
}

int dpm_bridge_slave_to_master() {
    return dpm::post_words(DPM_MSG_SLAVE_TO_MASTER, sizeof(std::uint32_t), 0,
                           DPM_SEND_ERROR("%s %d::send msg err!\r\n"));
}

std::uint32_t dpm_get_slave_up() {
    return g_dpm_global.slave_up;
}

int dpm_bridge_sync_send(const char *receiver, const void *buffer, std::uint32_t length_bytes) {
    if (!dpm_bridge_self_is_master() || dpm_bridge_peer_is_exist() != 1 ||
        g_dpm_global.slave_up != 1)
        return -1;
    return hss_TellBackToExcuteSpe(receiver, buffer, length_bytes);
}

int dpm_bridge_slave_sync_send(const char *receiver, const void *buffer,
                               std::uint32_t length_bytes) {
    if (!dpm_bridge_self_is_slave() || dpm_bridge_peer_is_exist() != 1)
        return -1;
    return hss_TellBackToExcuteSpe(receiver, buffer, length_bytes);
}

namespace dpm {

bool may_change(const void *body, int &result, const call_site &caller) {
    if (body == nullptr) {
        result = null_parameter(caller.function, caller.line);
        return false;
    }
    if (!dpm_bridge_self_is_slave())
        return true;
    DPM_LOG_FROM(caller, "%s %d::it is slave.\r\n");
    result = 0;
    return false;
}

} // namespace dpm
