// The multicast context: what is listened to, the groups that are forwarded, and the groups that
// ports have reported.
//
// Changed under the DPM lock: by the worker, and the settings also by the threads that set them.
// The two states are read by the platform's receive thread without it.
#pragma once

#include "dpm_api.h"
#include "dpm_avltree.h"
#include "dpm_state.h"
#include "dpm_timer.h"
#include "platform/bep.h"

#include <cstdint>

struct dpm_ipmc_global {
    bep_sem sem;              // the suite's lock; nothing here is guarded by it
    bep_sem chip_sem;         // on the standby: one thread at a time asks the chip; no other in it
    std::uint32_t ipv4_state; // DPM_ENABLE: IGMP is listened to, and what no group knows trapped
    std::uint32_t ipv6_state; // the same of MLD
    std::uint32_t unknown_ipv4_gid; // the chip's group of what no group knows; 0: none
    std::uint32_t unknown_ipv6_gid;
    dpm_avl_tree ipv4_tree; // dpm_ipmc_group
    dpm_avl_tree ipv6_tree;
    dpm_avl_tree ipv4_rx_tree; // dpm_ipmc_rx_group
    dpm_avl_tree ipv6_rx_tree;
    dpm_timer_list *timer_list; // null when it could not be had: then nothing is timed
    std::uint32_t rx_port_count;
    std::uint32_t echoes; // requests of the master's to this card's chip since the last sync's end
    std::uint32_t is_echo_open; // the last one changed the chip, and its mirrored change is to come
    dpm_ipmc_echo open_echo;
};

extern DPM_STATE dpm_ipmc_global g_ipmc_global;
