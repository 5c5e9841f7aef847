// The two control cards: which one this is, whether the other is there, and the calls to it.
#pragma once

#include "dpm_api.h"
#include "dpm_trace.h"
#include "platform/hss.h"

#include <cstdint>

inline constexpr int DPM_ROLE_MASTER = 1;
inline constexpr int DPM_ROLE_SLAVE = 2;

int dpm_bridge_self_role_get();  // DPM_ROLE_*
int dpm_bridge_self_is_master(); // 1 or 0
int dpm_bridge_self_is_slave();  // 1 or 0
int dpm_bridge_peer_is_exist();  // 1 while the peer card is present
std::uint32_t dpm_bridge_self_slot_get();
std::uint32_t dpm_bridge_peer_slot_get();
std::uint8_t *dpm_bridge_virtual_mac_get(); // the device's MAC, in a buffer of this module

// 1 when a port of this card leads to the peer card.
int dpm_bridge_get_port_is_peer(std::uint32_t port);

// Callbacks of the hot-standby service: the standby card connected (blocks until it has every
// table, at most 600 s); this card became master.  0, or -1 when the post failed.
int dpm_bridge_slave_up();
int dpm_bridge_slave_to_master();

std::uint32_t dpm_get_slave_up();

// Calls a receiver on the peer card: from the master while tables are mirrored, and from the slave
// for the handshake. -1 when this card may not, else the service's answer.
int dpm_bridge_sync_send(const char *receiver, const void *buffer, std::uint32_t length_bytes);
int dpm_bridge_slave_sync_send(const char *receiver, const void *buffer,
                               std::uint32_t length_bytes);

namespace dpm {

// What the owner of a request looks at first: that there is one, and that this card is not the
// standby, whose tables change by mirroring alone.  False, told in the log: the call ends with
// `result`.
bool may_change(const void *body, int &result, const call_site &caller);

} // namespace dpm
